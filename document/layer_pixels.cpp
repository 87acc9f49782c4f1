#include "document/layer_pixels.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "document/byte_reader.h"
#include "document/pixel_assembly.h"

namespace tessary {
namespace {

constexpr uint32_t kCodeBytes = 2;  // in front of a channel's data

// What a layer's channels are for. The first of those with the same id counts.
struct ChannelPlan {
    PixelAssembly assembly;
    bool hasRealMask = false;  // channel -3 is the mask; the user mask is only there to be edited
    bool wantsMask = false;
    uint32_t rolesLeft = 0;  // a bit for each that is still to come
};

bool IsMaskId(int16_t id) { return id == -2 || id == -3; }

// kRoleCount for masks.
uint32_t RoleOf(int16_t id, const PlaneBlock& block) {
    if (IsMaskId(id)) return kRoleCount;
    if (!ConvertsPlanes(block)) return kRoleOther;
    if (id == -1)
        return block.planeCount == PlanesWithTransparency(block.colorMode) ? kRoleAlpha : kRoleOther;
    const bool isColor =
        id >= 0 && static_cast<uint32_t>(id) < ColorPlanesUsed(block.colorMode, block.planeCount);
    return isColor ? kRoleColor + static_cast<uint32_t>(id) : uint32_t{kRoleOther};
}

// The number of planes that the mode's conversion goes by. A transparency counts beside the mode's full set
// of colours, whatever spot colours and saved selections there are besides.
uint32_t PlaneCountOf(const PsdLayer& layer, uint32_t colorMode) {
    const uint32_t withTransparency = PlanesWithTransparency(colorMode);
    uint32_t count = 0, found = 0;  // found: bit 0 for the transparency, those above for the colours
    for (const PsdChannelInfo& channel : layer.channels.span()) {
        if (!IsMaskId(channel.id)) ++count;
        if (channel.id >= -1 && channel.id < 4) found |= 1u << (channel.id + 1);
    }
    if (withTransparency == 0) return count;
    const uint32_t full = (1u << withTransparency) - 1;
    return (found & full) == full ? withTransparency : withTransparency - 1;
}

// Whether there is data for pixels of the layer's size, as far as can be told before it is decoded.
bool MayHavePixels(const PsdLayer& layer, const PlaneBlock& block) {
    uint64_t input = 0;
    bool hasData = false;
    for (const PsdChannelInfo& channel : layer.channels.span()) {
        if (IsMaskId(channel.id)) continue;
        hasData = hasData || channel.dataLength > kCodeBytes;
        input += channel.dataLength;
    }
    return hasData && block.width != 0 && block.height != 0 && MayBecomePixels(block, input, kMostExpansion);
}

ChannelPlan PlanOf(const PsdDocument& document, const PsdLayer& layer, bool isWanted) {
    ChannelPlan plan;
    PixelAssembly& assembly = plan.assembly;
    PlaneBlock& block = assembly.block;
    block.colorMode = document.colorMode;
    block.depth = document.depth;
    block.width = static_cast<uint32_t>(std::max(layer.width, 0));
    block.height = static_cast<uint32_t>(std::max(layer.height, 0));
    block.palette = document.palette.span();
    block.transparencyIndex = document.resources.transparencyIndex;
    block.planeCount = PlaneCountOf(layer, document.colorMode);
    for (const PsdChannelInfo& channel : layer.channels.span()) {
        plan.hasRealMask = plan.hasRealMask || (channel.id == -3 && layer.mask.hasReal);
        const uint32_t role = RoleOf(channel.id, block);
        if (role < kRoleOther) plan.rolesLeft |= 1u << role;
    }
    if (plan.rolesLeft == 0) plan.rolesLeft = 1u << kRoleOther;
    assembly.planeCount = static_cast<uint32_t>(std::popcount(plan.rolesLeft));
    plan.wantsMask = isWanted && document.depth >= 8;
    assembly.isKept = isWanted && MayHavePixels(layer, block);
    return plan;
}

// The rectangle of a channel; without sides it has no samples.
PlaneShape ShapeOf(const PsdDocument& document, const PsdLayer& layer, int16_t id, const ChannelPlan& plan) {
    const bool isUserMask = id == -2 && plan.hasRealMask;
    const Rect& bounds = isUserMask ? layer.mask.userBounds : IsMaskId(id) ? layer.mask.bounds : layer.bounds;
    const int64_t width = bounds.Width(), height = bounds.Height();
    const bool isEmpty = width < 1 || height < 1 || width > INT32_MAX || height > INT32_MAX;
    if (isEmpty) return {.depth = document.depth};
    return {static_cast<uint32_t>(width), static_cast<uint64_t>(height), document.depth};
}

bool IsBelieved(const PlaneShape& shape, uint32_t dataLength, uint16_t compression) {
    const uint32_t expansion = CompressionExpansion(compression);
    const uint64_t rowBytes = PlaneRowBytes(shape.width, shape.depth);
    const auto bytes = CheckedProduct({rowBytes, shape.rows});
    return bytes && tessary::IsBelieved(*bytes, dataLength, expansion) &&
           IsRowBelieved(rowBytes, dataLength, expansion);
}

PsdReadResult ReadMask(PlaneDecoder& decoder, PsdLayerMask& mask, Allowance& allowance) {
    const PlaneShape& shape = decoder.shape;
    mask.data = AllocateZeroed<uint8_t>({shape.width, shape.rows});
    if (!mask.data) return PsdReadResult::kOutOfMemory;
    KeptPixels own;
    uint64_t chargedBytes = 0;
    for (uint64_t row = 0; row < shape.rows && !HasEnded(decoder);) {
        const uint64_t left = shape.rows - row;
        const size_t count =
            static_cast<size_t>(std::min<uint64_t>(RowsAtOnce(shape.width, shape.depth), left));
        const uint8_t* rows = nullptr;
        const PsdReadResult result = NextRows(decoder, count, rows);
        if (result != PsdReadResult::kOk) return result;
        std::memcpy(mask.data.get() + row * shape.width, rows, count * shape.width);
        row += count;
        own = {row * shape.width, decoder.source.arrived, FilledSamples(decoder) / sizeof(uint32_t)};
        if (MayFill(allowance, own, chargedBytes)) continue;
        mask.data.Reset();
        return DropPlanes(decoder);
    }
    allowance.kept = allowance.kept + own;
    return PsdReadResult::kOk;
}

PsdReadResult ReadChannel(PsdDocument& document, PsdLayer& layer, const PsdChannelInfo& channel,
                          ChannelPlan& plan, PlaneDecoder& decoder) {
    if (channel.dataLength > InputLeft(document)) return PsdReadResult::kShortRead;
    const uint32_t end = WrapAdd(Position(document), channel.dataLength);
    uint16_t compression = kCompressionRaw;
    uint32_t length = 0;
    if (channel.dataLength < kCodeBytes) {
        Skip(document, static_cast<int32_t>(channel.dataLength));
    } else {
        compression = ReadU16(document);
        length = channel.dataLength - kCodeBytes;
    }
    const PlaneShape shape = ShapeOf(document, layer, channel.id, plan);
    PsdReadResult result = BeginPlanes(decoder, document, length, compression, shape);
    if (result != PsdReadResult::kOk) return result;

    const bool isMask = channel.id == (plan.hasRealMask ? -3 : -2);
    const uint32_t role = RoleOf(channel.id, plan.assembly.block);
    const bool isBelieved = IsBelieved(shape, length, compression);
    if (isMask && plan.wantsMask && length != 0 && shape.rows != 0 && isBelieved) {
        plan.wantsMask = false;
        result = ReadMask(decoder, layer.mask, document.allowance);
    } else if (plan.rolesLeft >> role & 1) {
        plan.rolesLeft ^= 1u << role;
        plan.assembly.isKept = plan.assembly.isKept && isBelieved;
        result = AddPlane(plan.assembly, decoder, static_cast<uint8_t>(role), document.allowance,
                          document.sparePixels);
    }
    if (result == PsdReadResult::kOk) result = DropPlanes(decoder);
    const bool isShort =
        decoder.source.isShort || (result == PsdReadResult::kOk && Position(document) != end);
    return isShort ? PsdReadResult::kShortRead : result;
}

}  // namespace

PsdReadResult ReadLayerPixels(PsdDocument& document, PsdLayer& layer, PlaneDecoder& decoder, bool isWanted) {
    const bool isEmpty = layer.width < 1 || layer.height < 1;
    if (isEmpty && (layer.mask.width < 1 || layer.mask.height < 1)) {
        for (const PsdChannelInfo& channel : layer.channels.span())
            Skip(document, static_cast<int32_t>(channel.dataLength));
        return PsdReadResult::kOk;
    }
    ChannelPlan plan = PlanOf(document, layer, isWanted);
    for (const PsdChannelInfo& channel : layer.channels.span()) {
        const PsdReadResult result = ReadChannel(document, layer, channel, plan, decoder);
        if (result != PsdReadResult::kOk) return result;
    }
    PixelAssembly& assembly = plan.assembly;
    if (!assembly.isKept) return PsdReadResult::kOk;
    layer.image = std::move(assembly.pixels);
    const uint64_t pixels = uint64_t{assembly.block.width} * assembly.block.height;
    layer.filledPixels = std::min(assembly.filledPixels, pixels);
    CountFilled(document.allowance, layer.filledPixels);
    KeptPixels& kept = document.allowance.kept;
    kept = kept + KeptPixels{pixels * sizeof(uint32_t), assembly.inputBytes, layer.filledPixels};
    layer.coveredTop = static_cast<int32_t>(assembly.coveredTop);
    layer.coveredBottom = static_cast<int32_t>(assembly.coveredBottom);
    return PsdReadResult::kOk;
}

}  // namespace tessary
