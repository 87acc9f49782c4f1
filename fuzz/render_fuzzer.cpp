// Composites documents whatever they say about their merged image, whole and in parts.
#include "frontend/document_pixels.h"
#include "render/render.h"
#include "tests/support/memory_stream.h"

using namespace tessary;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    test::MemoryStream stream(test::Bytes(data, data + size));
    Owned<PsdDocument> document;
    if (OpenDocument(document, &stream, kReadEverything) != PsdReadResult::kOk) return 0;
    const uint64_t layers = 1 + static_cast<uint64_t>(document->layerCount);
    if (uint64_t{document->width} * document->height * layers > 1u << 18) return 0;  // not worth the time
    const int32_t width = static_cast<int32_t>(document->width);
    const int32_t height = static_cast<int32_t>(document->height);
    const PsdReadResult result = Render(document.get(), width / 3, height / 4, width, height, 1);
    if (result == PsdReadResult::kOk && !document->canvas) __builtin_trap();
    static_cast<void>(Render(document.get(), 0, 0, width, height));
    return 0;
}
