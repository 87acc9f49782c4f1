#include "document/merged_image.h"

#include <algorithm>
#include <utility>

#include "document/byte_reader.h"
#include "document/pixel_assembly.h"

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

bool IsVouchedFor(const PsdDocument& document) { return document.resources.versionInfo.hasRealMergedData; }

bool KeepsMergedImage(const PsdDocument& document) {
    switch (document.mergedUse) {
    case kMergedKept: return true;
    case kMergedKeptIfReal: return IsVouchedFor(document);
    default: return false;
    }
}

// The file has the colour planes first and the alpha planes behind them. The first plane behind the colours
// is the transparency only when exactly that one is left once the named alpha channels are taken away.
PixelAssembly AssemblyOf(const PsdDocument& document) {
    PixelAssembly assembly;
    PlaneBlock& block = assembly.block;
    block.colorMode = document.colorMode;
    block.depth = document.depth;
    block.width = document.width;
    block.height = document.height;
    // The names of a multichannel document are those of its colours.
    block.planeCount = document.colorMode == kColorMultichannel ? document.channels : document.colorChannels;
    block.palette = document.palette.span();
    block.transparencyIndex = document.resources.transparencyIndex;
    assembly.planeCount = 1;
    if (!ConvertsPlanes(block)) return assembly;
    const uint32_t withTransparency = PlanesWithTransparency(block.colorMode);
    const bool isTransparent = withTransparency != 0 && block.planeCount == withTransparency;
    const uint32_t used = ColorPlanesUsed(block.colorMode, block.planeCount) + (isTransparent ? 1 : 0);
    assembly.planeCount = std::clamp<uint32_t>(document.channels, 1, used);
    return assembly;
}

PsdReadResult AssembleMerged(PsdDocument& document, PlaneDecoder& decoder, uint64_t input,
                             uint32_t expansion) {
    PixelAssembly assembly = AssemblyOf(document);
    assembly.isKept = MayBecomePixels(assembly.block, input, expansion);
    WaitPacked(assembly, decoder);
    const uint32_t colors = ColorPlanesUsed(assembly.block.colorMode, assembly.block.planeCount);
    Owned<uint32_t> none;
    for (uint32_t i = 0; i < assembly.planeCount; ++i) {
        const uint32_t role = i < colors ? kRoleColor + i : uint32_t{kRoleAlpha};
        const PsdReadResult result =
            AddPlane(assembly, decoder, static_cast<uint8_t>(role), document.allowance, none);
        if (result != PsdReadResult::kOk) return result;
    }
    if (assembly.isKept) document.mergedPixels = std::move(assembly.pixels);
    return assembly.isKept || !IsVouchedFor(document) ? PsdReadResult::kOk : PsdReadResult::kOutOfMemory;
}

}  // namespace

PsdReadResult ReadMergedImage(PsdDocument& document) {
    if (!WantsMergedImage(document)) return PsdReadResult::kOk;
    const uint32_t position = Position(document);
    const uint16_t compression = ReadU16(document);
    const uint32_t expansion = CompressionExpansion(compression), input = InputLeft(document);
    // To inflate it once more is the most that opening a document can cost.
    const bool isKept = KeepsMergedImage(document);
    if (!isKept && expansion == kMostExpansion && document.soundMergedAt == position) {
        Skip(document, static_cast<int32_t>(input));
        return PsdReadResult::kOk;
    }

    const uint64_t rows = uint64_t{document.height} * document.channels;
    const PlaneShape shape = {document.width, rows, document.depth};
    PlaneDecoder decoder;
    PsdReadResult result = BeginPlanes(decoder, document, input, compression, shape, !IsVouchedFor(document));
    if (result != PsdReadResult::kOk) return result;

    if (isKept) result = AssembleMerged(document, decoder, input, expansion);
    if (result == PsdReadResult::kOk) result = DropPlanes(decoder);
    if (result == PsdReadResult::kOk) document.soundMergedAt = position;
    return result;
}

}  // namespace tessary
