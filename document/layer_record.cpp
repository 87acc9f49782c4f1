#include "document/layer_record.h"

#include "document/big_endian.h"
#include "document/blend_keys.h"
#include "document/byte_reader.h"
#include "document/tagged_blocks.h"

namespace tessary {
namespace {

// The length of a side; 0 when it does not fit, so that a rectangle with sides of 1 and more is a real one.
int32_t Side(int64_t difference) {
    const int32_t side = static_cast<int32_t>(static_cast<uint32_t>(difference));
    return side == difference ? side : 0;
}

PsdReadResult ReadChannelList(PsdDocument& document, PsdLayer& layer) {
    layer.channelCount = ReadI16(document);
    if (layer.channelCount < 1) return PsdReadResult::kBadLayer;
    layer.channels = AllocateZeroed<PsdChannelInfo>({static_cast<uint16_t>(layer.channelCount)});
    if (!layer.channels) return PsdReadResult::kOutOfMemory;
    for (PsdChannelInfo& channel : layer.channels.span()) {
        channel.id = ReadI16(document);
        channel.dataLength = ReadU32(document);
    }
    return PsdReadResult::kOk;
}

void ReadFlags(PsdDocument& document, PsdLayer& layer) {
    const uint8_t flags = ReadU8(document);
    layer.transparencyProtected = (flags & 1) != 0;
    layer.visible = (flags & 2) == 0;
    layer.obsolete = (flags & 4) != 0;
    layer.pixelDataIrrelevant = (flags & 8) != 0 && (flags & 16) != 0;
}

void SetMaskFlags(PsdLayerMask& mask, uint8_t flags) {
    mask.relativeToLayer = (flags & 1) != 0;
    mask.disabled = (flags & 2) != 0;
    mask.inverted = (flags & 4) != 0;
}

bool ReadMaskColor(PsdDocument& document, PsdLayerMask& mask) {
    mask.defaultColor = ReadU8(document);
    return mask.defaultColor == 0 || mask.defaultColor == 255;
}

// Behind a record's user mask the long form has the real mask: the user mask and the vector mask as one.
PsdReadResult ReadMask(PsdDocument& document, PsdLayerMask& mask) {
    constexpr uint32_t kShortForm = 20;
    constexpr uint32_t kLongForm = 36;
    const uint32_t size = ReadU32(document);
    if (size == 0) return PsdReadResult::kOk;
    if (size != kShortForm && size != kLongForm) return PsdReadResult::kBadLayer;

    mask.bounds = mask.userBounds = ReadRect(document);
    if (!ReadMaskColor(document, mask)) return PsdReadResult::kBadLayer;
    SetMaskFlags(mask, ReadU8(document));
    if (size == kShortForm) {
        Skip(document, 2);
    } else {
        mask.hasReal = true;
        SetMaskFlags(mask, ReadU8(document));
        if (!ReadMaskColor(document, mask)) return PsdReadResult::kBadLayer;
        mask.bounds = ReadRect(document);
    }
    mask.width = Side(mask.bounds.Width());
    mask.height = Side(mask.bounds.Height());
    return PsdReadResult::kOk;
}

constexpr uint32_t kRangesBytes = 8;

PsdBlendRanges RangesAt(const uint8_t* bytes) {
    return {{LoadU16(bytes), LoadU16(bytes + 2)}, {LoadU16(bytes + 4), LoadU16(bytes + 6)}};
}

PsdReadResult ReadBlendRanges(PsdDocument& document, PsdLayer& layer) {
    const int32_t length = ReadI32(document);
    if (length < 1) return PsdReadResult::kOk;
    uint8_t gray[kRangesBytes] = {};
    if (Read(document, gray, sizeof gray) != 0) layer.grayRanges = RangesAt(gray);
    const int32_t count = (length - 8) / static_cast<int32_t>(kRangesBytes);
    if (count < 1) return PsdReadResult::kEmptyBlendRanges;

    // Only what arrives becomes ranges; how many there are is a claim of the file.
    const uint32_t size = static_cast<uint32_t>(count) * kRangesBytes;
    Owned<uint8_t> bytes;
    size_t arrived = 0;
    const PsdReadResult result = ReadBytes(document, size, bytes, arrived);
    if (result != PsdReadResult::kOk) return result;
    layer.channelRanges = AllocateZeroed<PsdBlendRanges>({(arrived + kRangesBytes - 1) / kRangesBytes});
    if (!layer.channelRanges) return PsdReadResult::kOutOfMemory;
    layer.channelRangeCount = static_cast<int32_t>(layer.channelRanges.count());
    for (size_t i = 0; i < layer.channelRanges.count(); ++i)
        layer.channelRanges[i] = RangesAt(bytes.get() + i * kRangesBytes);
    return PsdReadResult::kOk;
}

}  // namespace

PsdReadResult ReadLayerRecord(PsdDocument& document, PsdLayer& layer) {
    layer.bounds = ReadRect(document);
    layer.width = Side(layer.bounds.Width());
    layer.height = Side(layer.bounds.Height());
    PsdReadResult result = ReadChannelList(document, layer);
    if (result != PsdReadResult::kOk) return result;

    uint32_t signature = 0;
    if (!ReadKey(document, signature) || signature != FourCC("8BIM")) {
        return PsdReadResult::kBadLayerSignature;
    }
    layer.blendMode = ReadBlendKey(document);
    layer.opacity = ReadU8(document);
    layer.clipping = ReadBool(document);
    ReadFlags(document, layer);
    const uint8_t filler = ReadU8(document);
    if (filler != 0) return PsdReadResult::kBadLayer;

    const uint32_t length = ReadU32(document);
    if (length == 0) return PsdReadResult::kBadLayer;
    const uint32_t start = Position(document);
    result = ReadMask(document, layer.mask);
    if (result != PsdReadResult::kOk) return result;
    result = ReadBlendRanges(document, layer);
    if (result != PsdReadResult::kOk) return result;
    ReadPascalString(document, 4, layer.name);
    result = ReadTaggedBlocks(document, layer, start, length);
    if (result != PsdReadResult::kOk) return result;
    return Position(document) == WrapAdd(start, length) ? PsdReadResult::kOk : PsdReadResult::kBadLayer;
}

}  // namespace tessary
