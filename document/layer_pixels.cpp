#include "document/layer_pixels.h"

#include <algorithm>
#include <cstring>

#include "document/byte_reader.h"
#include "document/channel_codec.h"
#include "render/color_convert.h"

namespace tessary {
namespace {

constexpr uint64_t kUnfilledBytes = 64u << 20;  // of planes that are not asked what can fill them

struct LayerPlanes {
    Plane slots[kSlotCount];
    Plane frame;              // of the layer's size
    PlaneBlock block;         // how its planes become pixels
    bool realMask = false;    // channel -3 is the mask
    uint64_t planeBytes = 0;  // of all slots
    uint64_t keptBytes = 0;   // that the layer's pixels and mask take, and its dropped mask
    uint64_t inputBytes = 0;  // of channel data that the stream can still deliver
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
    const uint32_t colors = ColorPlanesUsed(planes.block.colorMode, planes.block.planeCount);
    if (id < 0 || static_cast<uint32_t>(id) >= colors) return kSlotCount;
    return kSlotColor + static_cast<uint32_t>(id);
}

// Whether conversion looks at the plane of a slot.
bool IsWanted(uint32_t slot, const PlaneBlock& block) {
    switch (slot) {
    case kSlotDropped: return false;
    case kSlotMask: return block.depth >= 8;
    case kSlotAlpha:
        return ConvertsPlanes(block) && block.planeCount == PlanesWithTransparency(block.colorMode);
    default: return ConvertsPlanes(block);
    }
}

// Finds the channel of each slot and lays the planes out. False as above.
bool LayOutPlanes(const PsdDocument& document, const PsdLayer& layer, LayerPlanes& planes) {
    PlaneBlock& block = planes.block;
    block.colorMode = document.colorMode;
    block.depth = document.depth;
    block.palette = document.palette.span();
    block.transparencyIndex = document.resources.transparencyIndex;
    for (const PsdChannelInfo& channel : layer.channels.span()) {
        if (!IsMaskId(channel.id)) ++block.planeCount;
        planes.inputBytes += channel.dataLength;
    }
    planes.inputBytes = std::min<uint64_t>(planes.inputBytes, InputLeft(document));

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
        if (IsWanted(slot, block)) plane.waitingBytes = plane.bytes / SampleBytes(document.depth);
        planes.planeBytes += plane.bytes;
        if (slot >= kSlotMask) planes.keptBytes += plane.bytes;
    }
    Plane pixels;
    if (!SetPlaneSize(pixels, layer.width, layer.height, 32)) return false;
    planes.keptBytes += pixels.bytes;
    return SetPlaneSize(planes.frame, layer.width, layer.height, document.depth);
}

// A channel is never cut short, so a large plane that its data cannot fill, whatever is in it, is a lie.
bool CanFill(uint64_t planeBytes, uint64_t dataBytes, uint32_t expansion) {
    return planeBytes <= kUnfilledBytes || planeBytes <= dataBytes * expansion;
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

// Reads one channel's data. `slot` is kSlotCount when it is not wanted; then only its place in the file
// counts.
PsdReadResult ReadChannel(PsdDocument& document, const PsdChannelInfo& channel, uint32_t slot,
                          LayerPlanes& planes, PsdLayer& layer, LayerPixelState& state) {
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
    return ReadPlane(document, compression, length, slot, plane, layer, state);
}

// Takes note whether any of the rows first..end - 1, to which these alphas belong, is covered.
void ExtendCoveredRows(PsdLayer& layer, const uint8_t* alphas, size_t count, uint64_t first, uint64_t end) {
    // All are 0 where the first is and each is as the one before.
    const bool isCovered = !alphas || alphas[0] != 0 || std::memcmp(alphas, alphas + 1, count - 1) != 0;
    if (!isCovered) return;
    if (layer.coveredTop == layer.coveredBottom) layer.coveredTop = static_cast<int32_t>(first);
    layer.coveredBottom = static_cast<int32_t>(end);
}

PsdReadResult ConvertLayer(PsdLayer& layer, LayerPlanes& planes, uint8_t* buffers) {
    const Plane& frame = planes.frame;
    if (frame.bytes == 0) return PsdReadResult::kOk;
    if (!layer.image) layer.image = AllocateZeroed<uint32_t>({frame.width, frame.height});
    if (!layer.image) return PsdReadResult::kOutOfMemory;

    const uint32_t depth = planes.block.depth;
    const PlaneSteps steps = StepsOf(frame);
    uint32_t* pixels = layer.image.get();
    if (!frame.isFlat) layer.coveredBottom = layer.coveredTop = 0;
    for (uint64_t at = 0; at < steps.units; at += steps.unitsPerStep) {
        const uint64_t units = std::min(steps.unitsPerStep, steps.units - at);
        const size_t count = static_cast<size_t>(units * steps.unitSamples);
        const uint8_t* samples[kSlotMask] = {};
        uint8_t* next = buffers;
        for (uint32_t slot = 0; slot < kSlotMask; ++slot) {
            Plane& plane = planes.slots[slot];
            // Absent colours are zero, an absent alpha is not.
            if (plane.waitingBytes == 0 || (plane.rows.left == 0 && slot != kSlotAlpha)) continue;
            uint8_t* const buffer = next;
            next += steps.bytes;
            samples[slot] = TakeSamples(plane, units, depth, buffer);
            if (!plane.inPixels || samples[slot] == buffer) continue;
            std::memcpy(buffer, samples[slot], count);  // pixels may come to lie there
            samples[slot] = buffer;
        }
        PlaneBlock block = planes.block;
        block.depth = std::min(depth, 8u);
        block.width = frame.isFlat ? static_cast<uint32_t>(units) : frame.width;
        block.height = frame.isFlat ? 1 : static_cast<uint32_t>(units);
        block.alpha = samples[kSlotAlpha];
        for (uint32_t i = 0; i < 4; ++i) block.color[i] = samples[kSlotColor + i];
        if (ConvertsPlanes(planes.block)) ConvertPlanes(block, pixels);
        if (!frame.isFlat) ExtendCoveredRows(layer, block.alpha, count, at, at + units);
        pixels += count;
    }
    for (uint32_t slot = 0; slot < kSlotMask; ++slot) planes.slots[slot].used = true;
    return PsdReadResult::kOk;
}

PsdReadResult ConvertMask(PsdLayerMask& mask, Plane& plane, uint32_t depth, uint8_t* buffer) {
    // Without data the default colour holds everywhere.
    if (plane.waitingBytes == 0 || plane.channel->dataLength < 2 || mask.data) return PsdReadResult::kOk;
    mask.data = AllocateZeroed<uint8_t>({plane.width, plane.height});
    if (!mask.data) return PsdReadResult::kOutOfMemory;
    const PlaneSteps steps = StepsOf(plane);
    uint8_t* out = mask.data.get();
    for (uint64_t at = 0; at < steps.units; at += steps.unitsPerStep) {
        const uint64_t units = std::min(steps.unitsPerStep, steps.units - at);
        const size_t count = static_cast<size_t>(units * steps.unitSamples);
        std::memcpy(out, TakeSamples(plane, units, depth, buffer), count);
        out += count;
    }
    plane.used = true;
    return PsdReadResult::kOk;
}

// Room for a step of every plane of pixels at once, or of one mask.
bool MakeRoomForSteps(LayerPixelState& state, const LayerPlanes& planes) {
    uint64_t one = 0, together = 0;
    for (uint32_t slot = 0; slot < kSlotCount; ++slot) {
        const uint64_t bytes = StepsOf(planes.slots[slot]).bytes;
        one = std::max(one, bytes);
        if (slot < kSlotMask && planes.slots[slot].waitingBytes != 0) together += bytes;
    }
    return Grow(state.steps, std::max(one, together));
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
        const PsdReadResult result = ReadChannel(document, channel, slot, planes, layer, state);
        if (result != PsdReadResult::kOk) return result;
    }
    uint8_t* const steps = state.steps.get();
    if (!Claim(document, planes, steps)) return PsdReadResult::kOutOfMemory;

    PsdReadResult result = ConvertLayer(layer, planes, steps);
    if (result != PsdReadResult::kOk) return result;
    result = ConvertMask(layer.mask, planes.slots[kSlotMask], document.depth, steps);
    document.filledBytes += FilledBytes(planes, document.depth, steps);
    return result;
}

}  // namespace tessary
