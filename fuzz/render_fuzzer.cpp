// Composites documents whatever they say about their merged image, whole and in parts.
#include <cstddef>
#include <cstdint>

#include "frontend/document_pixels.h"
#include "render/render.h"
#include "tools/memory_stream.h"

using namespace tessary;

namespace {

constexpr uint64_t kPixelsWorthTheTime = 1u << 18;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const test::Bytes file(data, data + size);
    test::MemoryStream stream(file);
    Owned<PsdDocument> document;
    if (OpenDocument(document, &stream, kReadEverything) != PsdReadResult::kOk) return 0;
    if (uint64_t{document->width} * document->height * (1 + static_cast<uint64_t>(document->layerCount)) >
        kPixelsWorthTheTime) {
        return 0;
    }
    const int32_t width = static_cast<int32_t>(document->width);
    const int32_t height = static_cast<int32_t>(document->height);
    if (Render(document.get(), width / 3, height / 4, width, height, 1) == PsdReadResult::kOk &&
        !document->canvas) {
        __builtin_trap();
    }
    static_cast<void>(Render(document.get(), 0, 0, width, height));

    DocumentPixels picture;
    test::MemoryStream again(file);
    const PsdReadResult result = DecodeDocumentPixels(&again, picture);
    if ((result == PsdReadResult::kOk) != static_cast<bool>(picture.pixels)) __builtin_trap();
    return 0;
}
