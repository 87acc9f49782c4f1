#include "document/merged_image.h"

#include "document/byte_reader.h"
#include "document/channel_codec.h"
#include "render/color_convert.h"

namespace tessary {
namespace {

bool WantsMergedImage(const PsdDocument& document) {
    switch (document.readMode) {
    case kReadThumbnail:
    case kReadMetadata: return false;
    case kReadNoThumbnail: return document.layerCount == 0;
    default: return true;
    }
}

// The file has the colour planes first and the alpha planes behind them. The first plane behind the colours
// is the transparency only when exactly that one is left once the named alpha channels are taken away.
PlaneBlock MergedPlanes(const PsdDocument& document, const uint8_t* planes, size_t planeBytes) {
    const auto plane = [&](uint32_t index) {
        return index < document.channels ? planes + index * planeBytes : nullptr;
    };
    PlaneBlock block;
    block.colorMode = document.colorMode;
    block.depth = document.depth;
    block.width = document.width;
    block.height = document.height;
    // The names of a multichannel document are those of its colours.
    block.planeCount = document.colorMode == kColorMultichannel ? document.channels : document.colorChannels;
    const uint32_t withTransparency = PlanesWithTransparency(document.colorMode);
    if (withTransparency != 0 && block.planeCount == withTransparency) {
        block.alpha = plane(block.planeCount - 1);
    }
    const uint32_t colors = ColorPlanesUsed(document.colorMode, block.planeCount);
    for (uint32_t i = 0; i < colors; ++i) block.color[i] = plane(i);
    block.palette = document.palette.span();
    block.transparencyIndex = document.resources.transparencyIndex;
    return block;
}

}  // namespace

PsdReadResult ReadMergedImage(PsdDocument& document) {
    if (!WantsMergedImage(document)) return PsdReadResult::kOk;
    const uint64_t rowBytes = PlaneRowBytes(document.width, document.depth);
    const auto planeBytes = CheckedProduct({rowBytes, document.height});
    const auto total = CheckedProduct({rowBytes, document.height, document.channels});
    if (!planeBytes || !total) return PsdReadResult::kOutOfMemory;

    const uint16_t compression = ReadU16(document);
    const uint32_t expansion = CompressionExpansion(compression);
    if (expansion == 0) return PsdReadResult::kBadCompression;
    // The pixels are counted besides the planes: with 1 bit or without channels they are the larger part.
    const uint64_t pixelCount = uint64_t{document.width} * document.height;
    const uint32_t pixelsPerByte = document.depth == 1 ? 8 : 1;
    const auto isPlausible = [&](uint64_t bytes, uint32_t expandedBy) {
        return MayAllocate(*total, bytes, expandedBy) &&
               MayAllocate(4 * pixelCount, 4 * bytes, pixelsPerByte * expandedBy);
    };
    if (!isPlausible(InputLeft(document), expansion)) return PsdReadResult::kOutOfMemory;

    // The stream's size is a claim as well, so what has arrived is asked again.
    Owned<uint8_t> planes;
    size_t delivered = 0;
    if (compression == kCompressionRaw) {
        const PsdReadResult result = ReadBytes(document, *total, planes, delivered);
        if (result != PsdReadResult::kOk) return result;
        if (!isPlausible(delivered, expansion)) return PsdReadResult::kOutOfMemory;
    } else {
        Owned<uint8_t> input;
        PsdReadResult result = ReadUpTo(document, InputLeft(document), input, delivered);
        if (result != PsdReadResult::kOk) return result;
        if (!isPlausible(delivered, expansion)) return PsdReadResult::kOutOfMemory;
        planes = AllocateZeroed<uint8_t>({*total});
        if (!planes) return PsdReadResult::kOutOfMemory;
        const PlaneShape shape{document.width, document.height, document.depth, document.channels};
        uint64_t filled;
        result = DecodePlanes(compression, {input.get(), delivered}, shape, planes.span(), &filled);
        if (result != PsdReadResult::kOk) return result;
        // Planes that nothing was decoded to are no memory yet, the pixels will be.
        if (!isPlausible(filled, 1)) return PsdReadResult::kOutOfMemory;
    }

    document.mergedPixels = AllocateZeroed<uint32_t>({document.width, document.height});
    if (!document.mergedPixels) return PsdReadResult::kOutOfMemory;
    ConvertPlanes(MergedPlanes(document, planes.get(), *planeBytes), 0, document.height,
                  document.mergedPixels.get());
    return PsdReadResult::kOk;
}

}  // namespace tessary
