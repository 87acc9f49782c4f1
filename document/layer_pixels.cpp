#include "document/layer_pixels.h"

#include <algorithm>
#include <cstring>

#include "document/byte_reader.h"
#include "document/channel_codec.h"
#include "render/color_convert.h"

namespace tessary {
namespace {

constexpr uint64_t kLeastPlaneBytes = 12288;
constexpr uint64_t kLeastInputBytes = 4096;
constexpr size_t kStepBytes = 1u << 14;         // of the rows that are converted at once
constexpr size_t kLongRow = 1u << 17;           // longer rows are not worked on in steps
constexpr uint64_t kUnfilledBytes = 64u << 20;  // of planes that are not asked what can fill them

struct Plane {
    const PsdChannelInfo* channel = nullptr;  // null: the layer has no such plane
    uint32_t width = 0;
    uint32_t height = 0;
    size_t bytes = 0;
    PlaneRows rows;     // of its data, which lies in the scratch buffer of the slot
    bool used = false;  // they have been gone through
    bool isCounted = false;
    uint64_t filled = 0;  // what came out of the data, where `rows` does not tell
};

struct LayerPlanes {
    Plane slots[kSlotCount];
    uint32_t planeCount = 0;   // channels that are no masks
    uint32_t colorPlanes = 0;  // of them that the colour mode looks at
    bool realMask = false;     // channel -3 is the mask
    uint64_t planeBytes = 0;   // of all slots
    uint64_t keptBytes = 0;    // that the layer's pixels and mask take, and its dropped mask
    uint64_t inputBytes = 0;   // of channel data that the stream can still deliver
};

bool IsMaskId(int16_t id) { return id == -2 || id == -3; }

bool HasChannel(const PsdLayer& layer, int16_t id) {
    return std::ranges::any_of(layer.channels.span(), [id](const auto& channel) { return channel.id == id; });
}

// kSlotCount for ids without a slot. With a real mask in the file the user mask is only there to be edited.
uint32_t SlotOf(int16_t id, const LayerPlanes& planes) {
    if (id == -1) return kSlotAlpha;
    if (id == -2) return planes.realMask ? kSlotDropped : kSlotMask;
    if (id == -3) return planes.realMask ? kSlotMask : kSlotCount;
    if (id < 0 || static_cast<uint32_t>(id) >= planes.colorPlanes) return kSlotCount;
    return kSlotColor + static_cast<uint32_t>(id);
}

// False when the plane is larger than any file could fill.
bool SetPlaneSize(Plane& plane, int64_t width, int64_t height, uint32_t depth) {
    if (width < 1 || height < 1) return true;
    plane.width = static_cast<uint32_t>(width);
    plane.height = static_cast<uint32_t>(height);
    const auto bytes = CheckedProduct({PlaneRowBytes(plane.width, depth), plane.height});
    // Far above what passes MayAllocate, and small enough to be summed up and multiplied.
    if (!bytes || *bytes > uint64_t{1} << 52) return false;
    plane.bytes = *bytes;
    return true;
}

// Finds the channel of each slot and lays the planes out. False as above.
bool LayOutPlanes(const PsdDocument& document, const PsdLayer& layer, LayerPlanes& planes) {
    for (const PsdChannelInfo& channel : layer.channels.span()) {
        if (!IsMaskId(channel.id)) ++planes.planeCount;
        planes.inputBytes += channel.dataLength;
    }
    planes.inputBytes = std::min<uint64_t>(planes.inputBytes, InputLeft(document));

    planes.colorPlanes = ColorPlanesUsed(document.colorMode, planes.planeCount);
    planes.realMask = layer.mask.hasReal && HasChannel(layer, -3);
    for (const PsdChannelInfo& channel : layer.channels.span()) {
        const uint32_t slot = SlotOf(channel.id, planes);
        if (slot == kSlotCount || planes.slots[slot].channel) continue;
        Plane& plane = planes.slots[slot];
        plane.channel = &channel;
        const Rect& user = layer.mask.userBounds;
        const bool fits =
            slot == kSlotMask      ? SetPlaneSize(plane, layer.mask.width, layer.mask.height, document.depth)
            : slot == kSlotDropped ? SetPlaneSize(plane, user.Width(), user.Height(), document.depth)
                                   : SetPlaneSize(plane, layer.width, layer.height, document.depth);
        if (!fits) return false;
        plane.rows.rowBytes = static_cast<size_t>(PlaneRowBytes(plane.width, document.depth));
        planes.planeBytes += plane.bytes;
        if (slot >= kSlotMask) planes.keptBytes += plane.bytes;
    }
    Plane pixels;
    if (!SetPlaneSize(pixels, layer.width, layer.height, 32)) return false;
    planes.keptBytes += pixels.bytes;
    return true;
}

// A channel is never cut short, so a large plane that its data cannot fill, whatever is in it, is a lie.
bool CanFill(uint64_t planeBytes, uint64_t dataBytes, uint32_t expansion) {
    return planeBytes <= kUnfilledBytes || planeBytes <= dataBytes * expansion;
}

size_t StepRows(size_t rowBytes) { return std::max<size_t>(kStepBytes / std::max<size_t>(rowBytes, 1), 1); }

// Long rows are used where they are.
size_t StepBytes(size_t rowBytes) {
    return (rowBytes <= kLongRow ? StepRows(rowBytes) * rowBytes : 0) + kUnpackSlack;
}

// Goes through a plane's rows in steps that stay in the cache.
//   buffer  StepBytes
//   use     takes samples, first row and row count
template <class Use>
void ForEachStep(Plane& plane, uint8_t* buffer, Use use) {
    const size_t stepRows = StepRows(plane.rows.rowBytes);
    for (uint32_t row = 0; row < plane.height;) {
        const uint32_t count = static_cast<uint32_t>(std::min<size_t>(stepRows, plane.height - row));
        use(TakeRows(plane.rows, count, buffer), row, count);
        row += count;
    }
    plane.used = true;
}

// Bytes that come out of the plane's data.
uint64_t FilledBytes(Plane plane, uint8_t* buffer) {
    if (plane.isCounted || !plane.rows.data) return plane.filled;
    if (!plane.used) ForEachStep(plane, buffer, [](const uint8_t*, uint32_t, uint32_t) {});
    return plane.rows.filled;
}

// Bytes of pixels and masks that the layer's data fills. One full plane is enough for a pixel.
uint64_t FilledBytes(const LayerPlanes& planes, uint32_t depth, uint8_t* buffer) {
    uint64_t samples = 0;
    for (uint32_t i = 0; i < kSlotMask; ++i)
        samples = std::max(samples, FilledBytes(planes.slots[i], buffer) * 8 / depth);
    return 4 * samples + FilledBytes(planes.slots[kSlotMask], buffer) +
           FilledBytes(planes.slots[kSlotDropped], buffer);
}

// Claims what the layer keeps. A small file must not make much of nothing: beyond a fixed share all layers
// up to this one may take twice what they have filled, for there are sound layers without data. What this
// layer fills is only counted here when the others have not filled enough.
bool Claim(PsdDocument& document, const LayerPlanes& planes, uint8_t* steps) {
    document.claimedBytes += planes.keptBytes;
    const auto allowed = [&](uint64_t filled) {
        return document.claimedBytes <= UnbackedBytes(document) + 2 * (document.filledBytes + filled);
    };
    return allowed(0) || allowed(FilledBytes(planes, document.depth, steps));
}

// Makes room for `need` bytes. Grows by doubling, for layers that grow little by little; what the buffer held
// is lost.
bool Grow(Owned<uint8_t>& buffer, uint64_t need, uint64_t least) {
    if (buffer && need <= buffer.count()) return true;
    const uint64_t size = std::max({need, uint64_t{2} * buffer.count(), least});
    buffer.Reset();
    buffer = AllocateZeroed<uint8_t>({size});
    return static_cast<bool>(buffer);
}

// Gives a plane rows of zeros that are no memory yet.
bool TakeZeros(Plane& plane, Owned<uint8_t>& slot) {
    slot.Reset();
    slot = AllocateZeroed<uint8_t>({plane.bytes});
    plane.rows.data = slot.get();
    plane.rows.left = plane.bytes;
    return static_cast<bool>(slot);
}

// Reads the data of a plane that is wanted, behind its compression code.
PsdReadResult ReadPlane(PsdDocument& document, uint16_t compression, uint32_t length, Plane& plane,
                        Owned<uint8_t>& slot, Owned<uint8_t>& zipped) {
    const bool isStored = plane.rows.rowBytes <= kLongRow &&
                          (compression == kCompressionRaw || compression == kCompressionPackBits);
    Owned<uint8_t>& input = isStored ? slot : zipped;
    Owned<uint8_t> head;
    size_t arrived = 0;
    if (const auto result = ReadHead(document, length, head, arrived); result != PsdReadResult::kOk)
        return result;
    if (arrived < HeadBytes(length)) return PsdReadResult::kShortRead;
    if (!Grow(input, uint64_t{length} + kUnpackSlack, kLeastInputBytes)) return PsdReadResult::kOutOfMemory;
    if (arrived) std::memcpy(input.get(), head.get(), arrived);
    arrived += Read(document, input.get() + arrived, length - arrived);
    if (arrived != length) return PsdReadResult::kShortRead;
    plane.rows.data = input.get();
    plane.rows.left = length;
    if (isStored && compression == kCompressionRaw) {
        plane.rows.left = std::min<size_t>(length, plane.bytes);
        return PsdReadResult::kOk;
    }
    if (isStored) {
        const uint64_t tableBytes = uint64_t{2} * plane.height;
        if (tableBytes >= length) {
            plane.rows.left = 0;
            return PsdReadResult::kOk;
        }
        plane.rows.counts = input.get();
        plane.rows.data += tableBytes;
        plane.rows.left -= tableBytes;
        return PsdReadResult::kOk;
    }
    const bool isLong = plane.rows.rowBytes > kLongRow;
    const bool hasRoom = isLong ? TakeZeros(plane, slot) : Grow(slot, plane.bytes, kLeastPlaneBytes);
    if (!hasRoom) return PsdReadResult::kOutOfMemory;
    const PsdReadResult result =
        DecodePlanes(compression, {input.get(), length},
                     {.width = plane.width, .height = plane.height, .depth = document.depth},
                     {slot.get(), plane.bytes}, plane.filled);
    plane.isCounted = true;
    plane.rows.data = slot.get();
    plane.rows.left = isLong ? plane.bytes : static_cast<size_t>(plane.filled);
    return result;
}

// Reads one channel's data. `slot` is kSlotCount when it is not wanted; then only its place in the file
// counts.
PsdReadResult ReadChannel(PsdDocument& document, const PsdChannelInfo& channel, uint32_t slot,
                          LayerPlanes& planes, LayerPixelState& state) {
    if (channel.dataLength > InputLeft(document)) return PsdReadResult::kShortRead;
    if (channel.dataLength < 2) {
        Skip(document, static_cast<int32_t>(channel.dataLength));
        return PsdReadResult::kOk;
    }
    const uint16_t compression = ReadU16(document);
    const uint32_t length = channel.dataLength - 2;
    const uint32_t expansion = CompressionExpansion(compression);
    if (expansion == 0) return PsdReadResult::kBadCompression;
    if (slot == kSlotCount || planes.slots[slot].bytes == 0) {
        Skip(document, static_cast<int32_t>(length));
        return PsdReadResult::kOk;
    }
    Plane& plane = planes.slots[slot];
    if (!CanFill(plane.bytes, length, expansion)) return PsdReadResult::kOutOfMemory;
    return ReadPlane(document, compression, length, plane, state.slots[slot], state.zipped);
}

PsdReadResult ConvertLayer(const PsdDocument& document, PsdLayer& layer, LayerPlanes& planes,
                           uint8_t* steps) {
    if (layer.width < 1 || layer.height < 1) return PsdReadResult::kOk;
    PlaneBlock block = {
        .colorMode = document.colorMode,
        .depth = document.depth,
        .width = static_cast<uint32_t>(layer.width),
        .planeCount = planes.planeCount,
        .palette = document.palette.span(),
        .transparencyIndex = document.resources.transparencyIndex,
    };
    const uint32_t height = static_cast<uint32_t>(layer.height);
    layer.image = AllocateZeroed<uint32_t>({block.width, height});
    if (!layer.image) return PsdReadResult::kOutOfMemory;

    const size_t rowBytes = static_cast<size_t>(PlaneRowBytes(block.width, block.depth));
    const size_t stepRows = StepRows(rowBytes), stepBytes = StepBytes(rowBytes);
    for (uint32_t row = 0; row < height; row += block.height) {
        block.height = static_cast<uint32_t>(std::min<size_t>(stepRows, height - row));
        const uint8_t* samples[kSlotMask] = {};
        for (uint32_t slot = 0; slot < kSlotMask; ++slot) {
            Plane& plane = planes.slots[slot];
            // Absent colours are zero, an absent alpha is not.
            if (plane.rows.left != 0 || (slot == kSlotAlpha && plane.channel))
                samples[slot] = TakeRows(plane.rows, block.height, steps + slot * stepBytes);
        }
        block.alpha = samples[kSlotAlpha];
        for (uint32_t i = 0; i < 4; ++i) block.color[i] = samples[kSlotColor + i];
        ConvertPlanes(block, layer.image.get() + size_t{row} * block.width);
    }
    for (uint32_t slot = 0; slot < kSlotMask; ++slot) planes.slots[slot].used = true;
    return PsdReadResult::kOk;
}

PsdReadResult ConvertMask(const PsdDocument& document, PsdLayerMask& mask, Plane& plane, uint8_t* steps) {
    // Without data the default colour holds everywhere.
    const bool hasData = plane.bytes != 0 && plane.channel->dataLength >= 2;
    if (!hasData || document.depth < 8) return PsdReadResult::kOk;
    mask.data = AllocateZeroed<uint8_t>({plane.width, plane.height});
    if (!mask.data) return PsdReadResult::kOutOfMemory;
    ForEachStep(plane, steps, [&](const uint8_t* samples, uint32_t row, uint32_t count) {
        ReduceMaskPlane(samples, document.depth, size_t{count} * plane.width,
                        mask.data.get() + size_t{row} * plane.width);
    });
    return PsdReadResult::kOk;
}

// Room for a step of every plane of pixels at once, or of one mask.
bool MakeRoomForSteps(LayerPixelState& state, const LayerPlanes& planes) {
    uint64_t bytes = 0, colorBytes = 0;
    for (uint32_t slot = 0; slot < kSlotCount; ++slot) {
        const uint64_t step = StepBytes(planes.slots[slot].rows.rowBytes);
        bytes = std::max(bytes, step);
        if (slot < kSlotMask) colorBytes = std::max(colorBytes, kSlotMask * step);
    }
    return Grow(state.steps, std::max(bytes, colorBytes), kLeastInputBytes);
}

}  // namespace

PsdReadResult ReadLayerPixels(PsdDocument& document, PsdLayer& layer, LayerPixelState& state) {
    const bool empty = layer.width < 1 || layer.height < 1;
    if (empty && (layer.mask.width < 1 || layer.mask.height < 1)) {
        for (const PsdChannelInfo& channel : layer.channels.span()) {
            Skip(document, static_cast<int32_t>(channel.dataLength));
        }
        return PsdReadResult::kOk;
    }

    LayerPlanes planes;
    if (!LayOutPlanes(document, layer, planes)) return PsdReadResult::kOutOfMemory;
    // How the data is compressed stands in front of each channel; until then it is worth as much as data can.
    if (!CanFill(planes.planeBytes, planes.inputBytes, kZipExpansion)) return PsdReadResult::kOutOfMemory;
    if (!MakeRoomForSteps(state, planes)) return PsdReadResult::kOutOfMemory;

    for (const PsdChannelInfo& channel : layer.channels.span()) {
        uint32_t slot = SlotOf(channel.id, planes);
        if (slot != kSlotCount && planes.slots[slot].channel != &channel) slot = kSlotCount;
        const PsdReadResult result = ReadChannel(document, channel, slot, planes, state);
        if (result != PsdReadResult::kOk) return result;
    }
    Plane& alpha = planes.slots[kSlotAlpha];
    if (alpha.channel && !alpha.rows.data && alpha.rows.rowBytes > kLongRow) {
        alpha.isCounted = true;
        if (!TakeZeros(alpha, state.slots[kSlotAlpha])) return PsdReadResult::kOutOfMemory;
    }
    uint8_t* const steps = state.steps.get();
    if (!Claim(document, planes, steps)) return PsdReadResult::kOutOfMemory;

    PsdReadResult result = ConvertLayer(document, layer, planes, steps);
    if (result != PsdReadResult::kOk) return result;
    result = ConvertMask(document, layer.mask, planes.slots[kSlotMask], steps);
    document.filledBytes += FilledBytes(planes, document.depth, steps);
    return result;
}

}  // namespace tessary
