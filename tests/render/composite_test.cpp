#include "render/composite.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <vector>

#include "render/noise_map.h"
#include "render/render.h"
#include "tests/render/plain_rule.h"

namespace tessary::test {
namespace {

constexpr int32_t kLowest = std::numeric_limits<int32_t>::min(),
                  kHighest = std::numeric_limits<int32_t>::max();

// Coverage of the layer pixel at a canvas position, after the mask.
int PlainCoverage(const PsdLayer& layer, uint32_t pixel, int64_t x, int64_t y) {
    const PsdLayerMask& mask = layer.mask;
    const int alpha = static_cast<int>(Alpha(pixel));
    if (mask.disabled) return alpha;
    const Rect& r = mask.bounds;
    int m = mask.defaultColor;
    if (mask.data && x >= r.left && x < r.right && y >= r.top && y < r.bottom) {
        m = mask.data[static_cast<size_t>((y - r.top) * (int64_t{r.right} - r.left) + x - r.left)];
    }
    return m == 255 ? alpha : alpha * m / 256;
}

bool PlainPasses(const PsdLayer& layer, uint32_t source, uint32_t canvas) {
    const auto holds = [](const PsdBlendRange& range, int value) {
        return value >= range.black / 256 && value <= range.white / 256;
    };
    const PlainColor s = ColorOf(source), d = ColorOf(canvas);
    bool passes = holds(layer.grayRanges.source, (s.c[0] + s.c[1] + s.c[2]) / 3) &&
                  holds(layer.grayRanges.destination, (d.c[0] + d.c[1] + d.c[2]) / 3);
    for (size_t i = 0; i < layer.channelRanges.count() && i < 3; ++i)
        passes &=
            holds(layer.channelRanges[i].source, s.c[i]) && holds(layer.channelRanges[i].destination, d.c[i]);
    return passes;
}

PlainLayer PlainLayerOf(const PsdDocument& document, const PsdLayer& layer) {
    PlainLayer rule{.mode = layer.blendMode, .fast = layer.blendMode == kBlendNormal};
    rule.opacity = layer.opacity * layer.fillOpacity / 255;
    if (const PsdLayer* group = layer.parent) {
        rule.opacity = group->opacity * rule.opacity / 255;
        PsdBlendMode mode = group->hasSectionBlendMode ? group->sectionBlendMode : group->blendMode;
        if (!group->hasSectionBlendMode && mode == kBlendNormal) mode = kBlendPassThrough;
        if (mode != kBlendPassThrough) rule = {mode, false, false, rule.opacity};
    }
    if (document.colorMode != kColorRgb) return rule;
    const auto narrow = [](const PsdBlendRanges& r) { return !r.source.IsFull() || !r.destination.IsFull(); };
    rule.ranges = layer.advancedBlending || narrow(layer.grayRanges) ||
                  std::ranges::any_of(layer.channelRanges.span(), narrow);
    for (const PsdChannelInfo& channel : layer.channels.span()) {
        if (!channel.excluded) continue;
        rule.ranges = true;
        if (channel.id >= 0 && channel.id < 3) rule.keep |= 0xFF0000u >> (8 * channel.id);
    }
    return rule;
}

uint32_t PlainRender(const PsdDocument& document, int64_t x, int64_t y) {
    uint32_t canvas = kBackground;
    for (const PsdLayer& layer : document.layers.span()) {
        const PsdLayer* group = layer.parent;
        if (!layer.visible || layer.opacity == 0 || layer.fillOpacity == 0 || !layer.image) continue;
        if (group && (!group->visible || group->opacity == 0)) continue;
        const Rect& r = layer.bounds;
        if (x < r.left || x >= r.right || y < r.top || y >= r.bottom) continue;
        const uint32_t pixel = layer.image[static_cast<size_t>((y - r.top) * layer.width + x - r.left)];
        const PlainLayer rule = PlainLayerOf(document, layer);
        const PsdBlendRange& gray = layer.grayRanges.source;
        if (rule.ranges && (rule.keep == 0xFFFFFF || gray.black == gray.white)) continue;
        const int noise = document.noiseMap[static_cast<size_t>(y * document.width + x)];
        canvas = PlainPixel(rule, pixel, PlainCoverage(layer, pixel, x, y), canvas,
                            !rule.ranges || PlainPasses(layer, pixel, canvas), noise);
    }
    return canvas;
}

// A document whose layers have some of everything, extreme rectangles included.
class RandomDocument {
public:
    RandomDocument(uint32_t seed, uint32_t width, uint32_t height) : m_random(seed) {
        document.width = width;
        document.height = height;
        document.colorMode = Below(5) == 0 ? kColorCmyk : kColorRgb;
        document.layers = AllocateZeroed<PsdLayer>({2 + Below(6)});
        for (PsdLayer& layer : document.layers.span()) FillLayer(layer);
    }
    PsdDocument document;

private:
    uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(m_random()) % limit; }
    bool Sometimes() { return Below(4) == 0; }
    uint8_t Byte() { return Below(3) ? 255 : static_cast<uint8_t>(Below(2) * Below(256)); }
    int32_t Near(uint32_t size) { return static_cast<int32_t>(Below(size + 8)) - 4; }
    Rect Bounds() {
        const int32_t left = Near(document.width), top = Near(document.height);
        return {left, top, left + Near(document.width), top + Near(document.height)};
    }
    PsdBlendRange Range() {
        const uint32_t black = Below(2) * Below(0x3000), white = 0xFFFF - Below(2) * Below(0x3000);
        return {static_cast<uint16_t>(black), static_cast<uint16_t>(white)};
    }
    template <class T>
    Owned<T> Allocate(const Rect& rect) {
        if (rect.IsEmpty()) return {};
        return AllocateZeroed<T>({static_cast<uint64_t>(rect.Width()), static_cast<uint64_t>(rect.Height())});
    }

    void FillLayer(PsdLayer& layer) {
        layer.bounds = Sometimes() ? Rect{-1, 0, 2000, 20} : Bounds();
        layer.width = WrapSubtract(layer.bounds.right, layer.bounds.left);
        layer.height = WrapSubtract(layer.bounds.bottom, layer.bounds.top);
        layer.image = Allocate<uint32_t>(layer.bounds);
        for (uint32_t& pixel : layer.image.span())
            pixel = PackPixel(Byte(), Below(256), Below(256), Below(256));
        layer.blendMode = Sometimes() ? kBlendNormal : static_cast<PsdBlendMode>(Below(24));
        layer.visible = Below(10) != 0;
        layer.opacity = Byte();
        layer.fillOpacity = Byte();
        layer.clipping = Sometimes();
        layer.hasSectionBlendMode = Sometimes();
        layer.sectionBlendMode = static_cast<PsdBlendMode>(Sometimes() ? kBlendPassThrough : Below(23));
        if (Sometimes())
            layer.parent = &document.layers[Below(static_cast<uint32_t>(document.layers.count()))];
        const Rect everywhere = {kLowest, kLowest, kHighest, kHighest},
                   distant = {kHighest - 2, 0, kHighest, 2};
        const uint32_t which = Below(4);
        layer.mask.bounds = which == 0 ? everywhere : which == 1 ? distant : Bounds();
        layer.mask.disabled = Below(2) == 0;
        layer.mask.defaultColor = Below(2) ? 0 : 255;
        if (which != 0) layer.mask.data = Allocate<uint8_t>(layer.mask.bounds);  // nothing can fill the first
        for (uint8_t& byte : layer.mask.data.span()) byte = Byte();
        if (!Sometimes()) return;
        if (Below(2)) layer.grayRanges = {Range(), Range()};
        if (Below(20) == 0) layer.grayRanges.source = {0x8040, 0x8040};
        layer.channelRanges = AllocateZeroed<PsdBlendRanges>({1 + Below(5)});
        for (PsdBlendRanges& range : layer.channelRanges.span()) range = {Range(), Range()};
        layer.advancedBlending = Sometimes();
        layer.channels = AllocateZeroed<PsdChannelInfo>({4});
        int16_t id = -1;
        for (PsdChannelInfo& channel : layer.channels.span()) {
            channel.id = id++;
            channel.excluded = Below(3) == 0;
        }
    }

    std::mt19937 m_random;
};

TEST(Composite, RandomDocumentsFollowThePlainRule) {
    for (uint32_t seed = 1; seed <= 600; ++seed) {
        // The last few are wider than a run of the blend rows.
        RandomDocument random(seed, seed > 590 ? 1100 : 23, seed > 590 ? 3 : 9);
        PsdDocument& document = random.document;
        const int32_t width = static_cast<int32_t>(document.width),
                      height = static_cast<int32_t>(document.height);
        ASSERT_EQ(Render(&document, 0, 0, width, height, seed), PsdReadResult::kOk);
        int wrong = 0;
        for (int32_t i = 0; i < width * height; ++i)
            wrong += document.canvas[static_cast<size_t>(i)] != PlainRender(document, i % width, i / width);
        ASSERT_EQ(wrong, 0) << "document " << seed;
    }
}

TEST(Composite, EveryVectorPathGivesTheSamePixels) {
    for (uint32_t seed = 1; seed <= 300; ++seed) {
        std::vector<uint32_t> canvases[2];
        for (const VectorPath path : {VectorPath::kSse2, WidestVectorPath()}) {
            RandomDocument random(seed, 37, 9);
            PsdDocument& document = random.document;
            ASSERT_EQ(EnsureNoiseMap(document, seed), PsdReadResult::kOk);
            document.canvas = AllocateZeroed<uint32_t>({document.width, document.height});
            for (const PsdLayer& layer : document.layers.span()) {
                const Rect area = Intersect({0, 0, 37, 9}, layer.bounds);
                if (layer.image) CompositeLayer(document, CompositeSourceOf(layer), area, path);
            }
            const auto pixels = document.canvas.span();
            canvases[path != VectorPath::kSse2].assign(pixels.begin(), pixels.end());
            if (WidestVectorPath() == VectorPath::kSse2) canvases[1] = canvases[0];
        }
        ASSERT_EQ(canvases[0], canvases[1]) << "document " << seed;
    }
}

}  // namespace
}  // namespace tessary::test
