#include "document/tagged_blocks.h"

#include <bitset>
#include <optional>

#include "document/big_endian.h"
#include "document/blend_keys.h"
#include "document/byte_reader.h"
#include "properties/property_readers.h"

namespace tessary {
namespace {

// The channel ids that the blocks of a record exclude from blending. They are matched with the channels once,
// when all blocks are read: both lists can be long, and so can the list of blocks.
using ExcludedIds = std::optional<std::bitset<65536>>;

struct Block {
    PsdDocument& document;
    PsdLayer& layer;
    uint32_t length;  // of the data, rounded up to even
    ExcludedIds& excludedIds;
};

struct BlockRow {
    uint32_t key;
    PsdReadResult (*read)(const Block& block);
};

// Flags occupy four bytes, of which the first counts. A shorter block is overrun, as are all that are shorter
// than their fields.
template <auto Field>
PsdReadResult ReadFlagBlock(const Block& block) {
    if constexpr (std::is_same_v<decltype(Field), bool PsdLayer::*>) {
        block.layer.*Field = ReadBool(block.document);
    } else {
        block.layer.*Field = ReadU8(block.document);
    }
    Skip(block.document, 3);
    return PsdReadResult::kOk;
}

template <int32_t PsdLayer::*Field>
PsdReadResult ReadNumberBlock(const Block& block) {
    block.layer.*Field = ReadI32(block.document);
    return PsdReadResult::kOk;
}

PsdReadResult ReadUnicodeName(const Block& block) {
    return ReadUnicodeString(block.document, kMaxUnicodeUnits, block.layer.unicodeName);
}

PsdReadResult ReadSheetColor(const Block& block) {
    const uint32_t red = ReadU8(block.document);
    const uint32_t green = ReadU8(block.document);
    const uint32_t blue = ReadU8(block.document);
    block.layer.sheetColor = PackPixel(255, red, green, blue);
    Skip(block.document, 1 + 4);
    return PsdReadResult::kOk;
}

PsdReadResult ReadProtection(const Block& block) {
    const uint32_t flags = ReadU32(block.document);
    block.layer.protectTransparency = (flags & 1) != 0;
    block.layer.protectComposite = (flags & 2) != 0;
    block.layer.protectPosition = (flags & 4) != 0;
    return PsdReadResult::kOk;
}

PsdReadResult ReadReferencePoint(const Block& block) {
    block.layer.referenceX = TruncateToInt32(ReadDouble(block.document));
    block.layer.referenceY = TruncateToInt32(ReadDouble(block.document));
    return PsdReadResult::kOk;
}

PsdReadResult ReadExcludedChannels(const Block& block) {
    if (!block.excludedIds) block.excludedIds.emplace();
    uint32_t stored = 0;
    for (uint32_t left = block.length / 4; left > 0 && ReadKey(block.document, stored); --left) {
        const int16_t id = static_cast<int16_t>(stored);
        if (id == static_cast<int32_t>(stored)) block.excludedIds->set(static_cast<uint16_t>(id));
    }
    return PsdReadResult::kOk;
}

PsdReadResult ReadSectionDivider(const Block& block) {
    PsdLayer& layer = block.layer;
    layer.sectionType = ReadI32(block.document);
    if (layer.sectionType == 1 || layer.sectionType == 2) layer.layerKind = kLayerGroup;
    if (layer.sectionType == 3) layer.layerKind = kLayerGroupEnd;
    // Longer blocks carry a key too, but it is not theirs that counts.
    if (block.length != 12) return PsdReadResult::kOk;
    uint32_t signature = 0;
    if (!ReadKey(block.document, signature) || signature != FourCC("8BIM")) {
        return PsdReadResult::kBadDividerSignature;
    }
    layer.sectionBlendMode = ReadBlendKey(block.document);
    layer.hasSectionBlendMode = true;
    return PsdReadResult::kOk;
}

constexpr BlockRow kLayerBlocks[] = {
    {FourCC("luni"), ReadUnicodeName},
    {FourCC("lnsr"), ReadNumberBlock<&PsdLayer::nameSourceId>},
    {FourCC("lyid"), ReadNumberBlock<&PsdLayer::layerId>},
    {FourCC("lyvr"), ReadNumberBlock<&PsdLayer::layerVersion>},
    {FourCC("lclr"), ReadSheetColor},
    {FourCC("lspf"), ReadProtection},
    {FourCC("fxrp"), ReadReferencePoint},
    {FourCC("clbl"), ReadFlagBlock<&PsdLayer::blendClippedElements>},
    {FourCC("infx"), ReadFlagBlock<&PsdLayer::blendInteriorElements>},
    {FourCC("knko"), ReadFlagBlock<&PsdLayer::knockout>},
    {FourCC("tsly"), ReadFlagBlock<&PsdLayer::transparencyShapesLayer>},
    {FourCC("lmgm"), ReadFlagBlock<&PsdLayer::layerMaskAsGlobalMask>},
    {FourCC("vmgm"), ReadFlagBlock<&PsdLayer::vectorMaskAsGlobalMask>},
    {FourCC("iOpa"), ReadFlagBlock<&PsdLayer::fillOpacity>},
    {FourCC("brst"), ReadExcludedChannels},
    {FourCC("lsct"), ReadSectionDivider},
};

PsdReadResult ReadBlock(const Block& block, uint32_t key) {
    for (const BlockRow& row : kLayerBlocks) {
        if (row.key == key) return row.read(block);
    }
    return ReadPropertyBlock(block.document, block.layer, key, block.length);
}

void MarkExcluded(PsdLayer& layer, const ExcludedIds& ids) {
    if (!ids) return;
    for (PsdChannelInfo& channel : layer.channels.span()) {
        channel.excluded = ids->test(static_cast<uint16_t>(channel.id));
    }
}

}  // namespace

PsdReadResult ReadTaggedBlocks(PsdDocument& document, PsdLayer& layer, uint32_t start, uint32_t length) {
    ExcludedIds excludedIds;
    while (WrapSubtract(Position(document), start) < length) {
        uint32_t signature = 0;
        if (!ReadKey(document, signature) || signature != FourCC("8BIM")) {
            return PsdReadResult::kBadBlockSignature;
        }
        const uint32_t key = ReadU32(document);
        const uint32_t stored = ReadU32(document);
        const Block block = {document, layer, WrapAdd(stored, stored & 1), excludedIds};
        const uint32_t end = WrapAdd(Position(document), block.length);
        const PsdReadResult result = ReadBlock(block, key);
        if (result != PsdReadResult::kOk) return result;
        SkipTo(document, end);
    }
    MarkExcluded(layer, excludedIds);
    return PsdReadResult::kOk;
}

}  // namespace tessary
