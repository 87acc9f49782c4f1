#include "render/coverage.h"

#include <algorithm>

#include "document/blend_keys.h"
#include "render/pixel.h"

namespace tessary {

namespace {

void CoverByColor(const uint32_t* layer, size_t count, uint32_t color, uint8_t* coverage) {
    const uint32_t factor = color == 255 ? 256 : color;
    for (size_t i = 0; i < count; ++i) coverage[i] = static_cast<uint8_t>((layer[i] >> 24) * factor >> 8);
}

// A mask byte of 255 keeps alpha whole; any other one takes a little more than its share.
void CoverByMask(const uint32_t* layer, size_t count, const uint8_t* mask, uint8_t* coverage) {
    for (size_t i = 0; i < count; ++i) {
        const uint16_t factor = static_cast<uint16_t>(mask[i] + (mask[i] == 255 ? 1 : 0));
        const uint16_t alpha = static_cast<uint16_t>(layer[i] >> 24);
        coverage[i] = static_cast<uint8_t>(static_cast<uint16_t>(alpha * factor) >> 8);
    }
}

// The mask's bytes can be trusted to reach as far as its rectangle says.
bool HasUsableData(const PsdLayerMask& mask) {
    if (!mask.data || mask.bounds.IsEmpty()) return false;
    const uint64_t size =
        static_cast<uint64_t>(mask.bounds.Width()) * static_cast<uint64_t>(mask.bounds.Height());
    return mask.data.count() >= size;
}

bool IsFull(const PsdBlendRanges& ranges) { return ranges.source.IsFull() && ranges.destination.IsFull(); }

bool IsOpen(const PixelSpans& spans) {
    const BlendSpan all[] = {spans.gray, spans.red, spans.green, spans.blue};
    return std::all_of(std::begin(all), std::end(all),
                       [](const BlendSpan& span) { return span.low == 0 && span.high == 255; });
}

BlendSpan SpanOf(const PsdBlendRange& range) {
    return {static_cast<uint8_t>(range.BlackPoint()), static_cast<uint8_t>(range.WhitePoint())};
}

}  // namespace

uint32_t EffectiveOpacity(uint8_t opacity, uint8_t fillOpacity, const PsdLayer* group) {
    const uint32_t own = uint32_t{opacity} * fillOpacity / 255;
    return group ? group->opacity * own / 255 : own;
}

bool GroupPassesThrough(const PsdLayer* group) {
    return !group || GroupBlendMode(*group) == kBlendPassThrough;
}

PsdBlendMode EffectiveMode(PsdBlendMode mode, const PsdLayer* group) {
    return GroupPassesThrough(group) ? mode : GroupBlendMode(*group);
}

bool IsPlain(const PsdDocument& document, const PsdLayer& layer) {
    const PsdLayerMask& mask = layer.mask;
    const bool isMasked = !mask.disabled && (mask.data || mask.defaultColor != 255);
    return !isMasked && layer.blendMode == kBlendNormal && GroupPassesThrough(layer.parent) &&
           EffectiveOpacity(layer.opacity, layer.fillOpacity, layer.parent) == 255 &&
           !(document.colorMode == kColorRgb && NeedsBlendGate(layer));
}

void CoverageRow(const uint32_t* layer, size_t count, const PsdLayerMask& mask, int32_t x, int32_t y,
                 uint8_t* coverage) {
    if (mask.disabled) return CoverByColor(layer, count, 255, coverage);
    const Rect& bounds = mask.bounds;
    if (!HasUsableData(mask) || y < bounds.top || y >= bounds.bottom) {
        return CoverByColor(layer, count, mask.defaultColor, coverage);
    }
    // The row falls into pixels left of the mask, under it, and right of it. The mask's sides can be
    // anywhere.
    const int64_t length = static_cast<int64_t>(count);
    const int64_t begin = std::clamp<int64_t>(int64_t{bounds.left} - x, 0, length);
    const int64_t end = std::clamp<int64_t>(int64_t{bounds.right} - x, begin, length);
    const size_t first = static_cast<size_t>(begin), last = static_cast<size_t>(end);
    CoverByColor(layer, first, mask.defaultColor, coverage);
    if (first < last) {
        const size_t row = static_cast<size_t>(int64_t{y} - bounds.top);
        const size_t column = static_cast<size_t>(x + begin - bounds.left);
        const uint8_t* data = mask.data.get() + row * static_cast<size_t>(bounds.Width()) + column;
        CoverByMask(layer + first, last - first, data, coverage + first);
    }
    CoverByColor(layer + last, count - last, mask.defaultColor, coverage + last);
}

bool NeedsBlendGate(const PsdLayer& layer) {
    if (layer.advancedBlending || !IsFull(layer.grayRanges)) return true;
    const auto ranges = layer.channelRanges.span();
    const auto channels = layer.channels.span();
    return !std::all_of(ranges.begin(), ranges.end(), IsFull) ||
           std::any_of(channels.begin(), channels.end(),
                       [](const PsdChannelInfo& channel) { return channel.excluded; });
}

BlendGate BlendGateOf(const PsdLayer& layer) {
    BlendGate gate;
    for (const PsdChannelInfo& channel : layer.channels.span()) {
        if (channel.excluded && channel.id >= 0 && channel.id <= 2)
            gate.keep |= 0x00FF0000u >> 8 * channel.id;
    }
    gate.layer.gray = SpanOf(layer.grayRanges.source);
    gate.canvas.gray = SpanOf(layer.grayRanges.destination);
    BlendSpan PixelSpans::*const colors[] = {&PixelSpans::red, &PixelSpans::green, &PixelSpans::blue};
    const auto ranges = layer.channelRanges.span();
    for (size_t i = 0; i < std::min(ranges.size(), std::size(colors)); ++i) {
        gate.layer.*colors[i] = SpanOf(ranges[i].source);
        gate.canvas.*colors[i] = SpanOf(ranges[i].destination);
    }
    // Compared as stored: a split point makes a pair of its own even where the first values are equal.
    const bool noWidth = layer.grayRanges.source.black == layer.grayRanges.source.white;
    gate.drawsNothing = gate.keep == 0x00FFFFFF || noWidth;
    gate.open = IsOpen(gate.layer) && IsOpen(gate.canvas);
    return gate;
}

}  // namespace tessary
