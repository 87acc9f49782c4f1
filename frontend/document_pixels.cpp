#include "frontend/document_pixels.h"

#include <utility>

#include "frontend/stream_position.h"
#include "render/streamed_render.h"

namespace tessary {
namespace {

// Hands the image over; the document keeps nothing of it.
PsdReadResult TakeImage(PsdDocument& document, Owned<uint32_t>& image, DocumentPixels& picture) {
    if (!image) return PsdReadResult::kShortRead;
    picture.width = document.width;
    picture.height = document.height;
    picture.pixels = std::move(image);
    return PsdReadResult::kOk;
}

PsdReadResult TakeLayers(IStream* stream, DocumentPixels& picture, uint32_t soundMergedAt) {
    Owned<PsdDocument> document;
    StreamedRender render;
    const LayerSink sink = SinkOf(render);
    PsdReadResult result =
        OpenDocument(document, stream, kReadEverything, {kMergedChecked, soundMergedAt, &sink});
    if (result == PsdReadResult::kOk) result = EndStreamedRender(render, *document);
    return result == PsdReadResult::kOk ? TakeImage(*document, document->canvas, picture) : result;
}

}  // namespace

PsdReadResult DecodeDocumentPixels(IStream* stream, DocumentPixels& picture, PictureChoice choice) {
    picture = DocumentPixels();
    if (!stream) return PsdReadResult::kNoStream;
    uint32_t soundMergedAt = 0;
    if (choice == PictureChoice::kAsTheFileSays) {
        const StreamPositionScope keep(stream);
        Owned<PsdDocument> document;
        const PsdReadResult result = OpenDocument(document, stream, kReadMerged, {kMergedKeptIfReal});
        if (result != PsdReadResult::kOk) return result;
        if (document->resources.versionInfo.hasRealMergedData)
            return TakeImage(*document, document->mergedPixels, picture);
        soundMergedAt = document->soundMergedAt;
    }
    return TakeLayers(stream, picture, soundMergedAt);
}

}  // namespace tessary
