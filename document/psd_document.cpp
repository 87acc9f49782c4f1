#include "document/psd_document.h"

#include <algorithm>

#include "document/checked_math.h"

namespace tessary {

// Of 64 MiB and 12 bytes for each pixel of the canvas, the canvas and its noise take 5 bytes a pixel, the
// buffers that are kept and the program 16 MiB, records what they take. A host full of small files must stay
// small: for those it is 96 MiB in all.
uint64_t UnbackedBytes(const PsdDocument& document) {
    constexpr uint64_t kFree = 48u << 20, kOfSmallFile = 80u << 20, kLeast = 4u << 20;
    constexpr int32_t kSmallFile = 65536;
    const uint64_t pixels = CheckedProduct({document.width, document.height, 16}).value_or(SIZE_MAX) / 16;
    uint64_t bytes = kFree + 7 * pixels;
    if (document.streamSize <= kSmallFile)
        bytes = std::min(bytes, kOfSmallFile - std::min(5 * pixels, kOfSmallFile));
    return std::max(bytes - std::min(document.recordBytes, bytes), kLeast);
}

PsdReadResult CloseDocument(Owned<PsdDocument>& document) {
    if (!document) return PsdReadResult::kNoDocument;
    document.Reset();
    return PsdReadResult::kOk;
}

}  // namespace tessary
