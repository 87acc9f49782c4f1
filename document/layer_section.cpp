#include "document/layer_section.h"

#include <algorithm>
#include <cstdlib>

#include "document/big_endian.h"
#include "document/byte_reader.h"
#include "document/layer_pixels.h"
#include "document/layer_record.h"

namespace tessary {
namespace {

// One level only: what lies above the end of an inner group has no group, even inside an outer one. Only
// ordinary layers get a parent; fills and adjustments have none.
void LinkGroups(std::span<PsdLayer> layers) {
    const PsdLayer* group = nullptr;
    for (size_t left = layers.size(); left > 0; --left) {
        PsdLayer& layer = layers[left - 1];
        switch (layer.layerKind) {
        case kLayerGroup: group = &layer; break;
        case kLayerGroupEnd: group = nullptr; break;
        case kLayerOrdinary: layer.parent = group; break;
        default: break;
        }
    }
}

// Reads records and pixels behind a layer info's length; a second layer info replaces the layers of the
// first.
PsdReadResult ReadLayerInfo(PsdDocument& document, uint32_t storedLength, PlaneDecoder& decoder) {
    const uint32_t length = WrapAdd(storedLength, storedLength & 1);
    if (static_cast<int32_t>(length) < 1) return PsdReadResult::kOk;
    const uint32_t end = WrapAdd(Position(document), length);

    // The sign only says what the first alpha channel of the merged image is.
    const uint32_t count = static_cast<uint32_t>(std::abs(int32_t{ReadI16(document)}));
    if (count == 0) return PsdReadResult::kBadLayer;
    document.layers.Reset();
    document.layerCount = 0;
    // Room for the records that the stream can hold and for the one that it then breaks off in.
    const uint32_t possible = InputLeft(document) / kSmallestLayerRecord + 1;
    Owned<PsdLayer> layers = AllocateZeroed<PsdLayer>({std::min(count, possible)});
    if (!layers) return PsdReadResult::kOutOfMemory;

    for (PsdLayer& layer : layers.span()) {
        const PsdReadResult result = ReadLayerRecord(document, layer);
        if (result != PsdReadResult::kOk) return result;
    }
    if (layers.count() != count) return PsdReadResult::kBadLayer;
    LinkGroups(layers.span());
    const LayerSink* const sink = document.sink;
    if (sink) sink->begin(document, sink->context);
    for (PsdLayer& layer : layers.span()) {
        PsdReadResult result = ReadLayerPixels(document, layer, decoder, !sink || sink->wants(layer));
        if (result == PsdReadResult::kOk && sink) result = sink->layer(document, layer, sink->context);
        if (result != PsdReadResult::kOk) return result;
    }
    SkipTo(document, end);
    document.layers = std::move(layers);
    document.layerCount = static_cast<int32_t>(count);
    return PsdReadResult::kOk;
}

void ReadGlobalMask(PsdDocument& document) {
    const uint32_t length = ReadU32(document);
    if (length == 0) return;
    const uint32_t end = WrapAdd(Position(document), length);
    document.globalMaskColor = ReadColor(document);
    document.globalMaskOpacity = ReadU16(document);
    document.globalMaskKind = ReadU8(document);
    SkipTo(document, end);
}

// Documents of 16 bits keep their layers here. Lengths are not padded.
PsdReadResult ReadDocumentBlocks(PsdDocument& document, uint32_t end, PlaneDecoder& decoder) {
    while (BytesUntil(document, end) > 12) {
        uint32_t signature = 0;
        if (!ReadKey(document, signature) || signature != FourCC("8BIM")) break;
        const uint32_t key = ReadU32(document);
        const uint32_t length = ReadU32(document);
        if (key == FourCC("Lr16")) {
            const PsdReadResult result = ReadLayerInfo(document, length, decoder);
            if (result != PsdReadResult::kOk) return result;
        } else {
            Skip(document, static_cast<int32_t>(length));
        }
    }
    return PsdReadResult::kOk;
}

}  // namespace

PsdReadResult ReadLayerSection(PsdDocument& document) {
    const int32_t length = ReadI32(document);
    if (length < 1) return PsdReadResult::kOk;
    const uint32_t end = WrapAdd(Position(document), static_cast<uint32_t>(length));
    switch (document.readMode) {
    case kReadMerged:
    case kReadThumbnail:
    case kReadMetadata: SkipTo(document, end); return PsdReadResult::kOk;
    default: break;
    }

    PlaneDecoder decoder;
    PsdReadResult result = ReadLayerInfo(document, ReadU32(document), decoder);
    if (result != PsdReadResult::kOk) return result;
    if (BytesUntil(document, end) > 12) ReadGlobalMask(document);
    result = ReadDocumentBlocks(document, end, decoder);
    if (result != PsdReadResult::kOk) return result;
    SkipTo(document, end);
    return PsdReadResult::kOk;
}

}  // namespace tessary
