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
constexpr uint64_t kUnfilledBytes = 64u << 20;  // that layers may claim without data

// The planes that a layer can have a use for. Other channels are passed over, as are those that repeat an id.
enum PlaneSlot : uint32_t {
    kSlotAlpha,
    kSlotColor,
    kSlotMask = kSlotColor + 4,
    kSlotDropped,  // the user mask beside a real one
    kSlotCount,
};

struct Plane {
    const PsdChannelInfo* channel = nullptr;  // null: the layer has no such plane
    uint32_t width = 0;
    uint32_t height = 0;
    size_t offset = 0;  // in the scratch buffer
    size_t bytes = 0;
    uint64_t filled = 0;  // bytes that came out of the channel's data
    size_t dirty = 0;     // bytes behind which all are zero
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
        plane.offset = static_cast<size_t>(planes.planeBytes);
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

// Bytes of pixels and masks that the layer's data has filled. One full plane is enough for a pixel.
uint64_t FilledBytes(const LayerPlanes& planes, uint32_t depth) {
    uint64_t samples = 0;
    for (uint32_t i = 0; i < kSlotMask; ++i) samples = std::max(samples, planes.slots[i].filled * 8 / depth);
    return 4 * samples + planes.slots[kSlotMask].filled + planes.slots[kSlotDropped].filled;
}

// Claims what the layer keeps. A small file must not make much of nothing: beyond a fixed share all layers
// up to this one may take twice what they have filled, for there are sound layers without data.
bool Claim(LayerPixelState& state, const LayerPlanes& planes, uint32_t depth) {
    state.claimedBytes += planes.keptBytes;
    state.filledBytes += FilledBytes(planes, depth);
    return state.claimedBytes <= kUnfilledBytes + 2 * state.filledBytes;
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

// Reads one channel's data. `plane` is null when it is not wanted; then only its place in the file counts.
PsdReadResult ReadChannel(PsdDocument& document, const PsdChannelInfo& channel, Plane* plane,
                          LayerPixelState& state) {
    if (channel.dataLength > InputLeft(document)) return PsdReadResult::kShortRead;
    const bool wanted = plane && plane->bytes != 0;
    if (channel.dataLength < 2) {
        Skip(document, static_cast<int32_t>(channel.dataLength));
        return PsdReadResult::kOk;
    }
    const uint16_t compression = ReadU16(document);
    const uint32_t length = channel.dataLength - 2;
    const uint32_t expansion = CompressionExpansion(compression);
    if (expansion == 0) return PsdReadResult::kBadCompression;
    if (!wanted) {
        Skip(document, static_cast<int32_t>(length));
        return PsdReadResult::kOk;
    }
    if (!CanFill(plane->bytes, length, expansion)) return PsdReadResult::kOutOfMemory;
    if (!Grow(state.input, length, kLeastInputBytes)) return PsdReadResult::kOutOfMemory;
    if (Read(document, state.input.get(), length) != length) return PsdReadResult::kShortRead;
    const PsdReadResult result =
        DecodePlanes(compression, {state.input.get(), length},
                     {.width = plane->width, .height = plane->height, .depth = document.depth},
                     {state.planes.get() + plane->offset, plane->bytes}, &plane->filled);
    // Packed rows may be short anywhere.
    plane->dirty = compression == kCompressionPackBits ? plane->bytes : static_cast<size_t>(plane->filled);
    return result;
}

PsdReadResult ConvertLayer(const PsdDocument& document, PsdLayer& layer, const LayerPlanes& planes,
                           const uint8_t* samples) {
    if (layer.width < 1 || layer.height < 1) return PsdReadResult::kOk;
    const auto samplesOf = [&](const Plane& plane) {
        return plane.channel ? samples + plane.offset : nullptr;
    };
    PlaneBlock block = {
        .colorMode = document.colorMode,
        .depth = document.depth,
        .width = static_cast<uint32_t>(layer.width),
        .height = static_cast<uint32_t>(layer.height),
        .alpha = samplesOf(planes.slots[kSlotAlpha]),
        .planeCount = planes.planeCount,
        .palette = document.palette.span(),
        .transparencyIndex = document.resources.transparencyIndex,
    };
    for (uint32_t i = 0; i < 4; ++i) block.color[i] = samplesOf(planes.slots[kSlotColor + i]);
    layer.image = AllocateZeroed<uint32_t>({block.width, block.height});
    if (!layer.image) return PsdReadResult::kOutOfMemory;
    ConvertPlanes(block, 0, block.height, layer.image.get());
    return PsdReadResult::kOk;
}

PsdReadResult ConvertMask(const PsdDocument& document, PsdLayerMask& mask, const Plane& plane,
                          const uint8_t* samples) {
    // Without data the default colour holds everywhere.
    const bool hasData = plane.bytes != 0 && plane.channel->dataLength >= 2;
    if (!hasData || document.depth < 8) return PsdReadResult::kOk;
    mask.data = AllocateZeroed<uint8_t>({plane.width, plane.height});
    if (!mask.data) return PsdReadResult::kOutOfMemory;
    ReduceMaskPlane(samples + plane.offset, document.depth, mask.data.count(), mask.data.get());
    return PsdReadResult::kOk;
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
    if (!Grow(state.planes, planes.planeBytes, kLeastPlaneBytes)) return PsdReadResult::kOutOfMemory;

    for (const PsdChannelInfo& channel : layer.channels.span()) {
        const uint32_t slot = SlotOf(channel.id, planes);
        Plane* const plane =
            slot != kSlotCount && planes.slots[slot].channel == &channel ? &planes.slots[slot] : nullptr;
        const PsdReadResult result = ReadChannel(document, channel, plane, state);
        if (result != PsdReadResult::kOk) return result;
    }
    if (!Claim(state, planes, document.depth)) return PsdReadResult::kOutOfMemory;

    uint8_t* const samples = state.planes.get();
    PsdReadResult result = ConvertLayer(document, layer, planes, samples);
    if (result != PsdReadResult::kOk) return result;
    result = ConvertMask(document, layer.mask, planes.slots[kSlotMask], samples);
    // Only what was written: the system has no memory yet behind the rest of a large buffer.
    for (const Plane& plane : planes.slots) {
        if (plane.dirty != 0) std::memset(samples + plane.offset, 0, plane.dirty);
    }
    return result;
}

}  // namespace tessary
