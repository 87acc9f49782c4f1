#include "render/composite.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <limits>
#include <random>
#include <vector>

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
    for (size_t i = 0; i < layer.channelRanges.count() && i < 3; ++i) {
        passes = passes && holds(layer.channelRanges[i].source, s.c[i]) &&
                 holds(layer.channelRanges[i].destination, d.c[i]);
    }
    return passes;
}

PlainLayer PlainLayerOf(const PsdDocument& document, const PsdLayer& layer) {
    PlainLayer rule{.mode = layer.blendMode, .fast = layer.blendMode == kBlendNormal};
    rule.opacity = layer.opacity * layer.fillOpacity / 255;
    if (const PsdLayer* group = layer.parent) {
        rule.opacity = group->opacity * rule.opacity / 255;
        PsdBlendMode mode = group->hasSectionBlendMode ? group->sectionBlendMode : group->blendMode;
        if (!group->hasSectionBlendMode && mode == kBlendNormal) mode = kBlendPassThrough;
        if (mode != kBlendPassThrough) {
            rule.mode = mode;
            rule.fast = false;
        }
    }
    if (document.colorMode != kColorRgb) return rule;
    rule.ranges =
        layer.advancedBlending || !layer.grayRanges.source.IsFull() || !layer.grayRanges.destination.IsFull();
    for (const PsdBlendRanges& range : layer.channelRanges.span()) {
        rule.ranges = rule.ranges || !range.source.IsFull() || !range.destination.IsFull();
    }
    for (const PsdChannelInfo& channel : layer.channels.span()) {
        if (!channel.excluded) continue;
        rule.ranges = true;
        if (channel.id == 0) rule.keep |= 0xFF0000;
        if (channel.id == 1) rule.keep |= 0x00FF00;
        if (channel.id == 2) rule.keep |= 0x0000FF;
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
        if (rule.ranges &&
            (rule.keep == 0xFFFFFF || layer.grayRanges.source.black == layer.grayRanges.source.white)) {
            continue;
        }
        const int noise = document.noiseMap[static_cast<size_t>(y * document.width + x)];
        canvas = PlainPixel(rule, pixel, PlainCoverage(layer, pixel, x, y), canvas,
                            !rule.ranges || PlainPasses(layer, pixel, canvas), noise);
    }
    return canvas;
}

class RandomDocument {
public:
    explicit RandomDocument(uint32_t seed, uint32_t width, uint32_t height) : m_random(seed) {
        document.width = width;
        document.height = height;
        document.colorMode = Below(5) == 0 ? kColorCmyk : kColorRgb;
        document.layers = AllocateZeroed<PsdLayer>({2 + Below(6)});
        const size_t count = document.layers.count();
        for (size_t i = 0; i < count; ++i) FillLayer(document.layers[i], i);
    }
    PsdDocument document;

private:
    uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(m_random()) % limit; }
    bool Sometimes() { return Below(4) == 0; }
    int32_t Near(uint32_t size) { return static_cast<int32_t>(Below(size + 8)) - 4; }
    uint8_t Byte() {
        return Sometimes() ? 0 : Sometimes() ? 128 : static_cast<uint8_t>(255 - Below(256) % 99);
    }
    uint16_t Point(bool high) {
        const uint32_t value = Sometimes() ? Below(0x8000) : 0;
        return static_cast<uint16_t>(high ? 0xFFFF - value / 2 : value / 2);
    }
    PsdBlendRange Range() { return {Point(false), Point(true)}; }
    Rect Bounds() {
        const int32_t left = Near(document.width), top = Near(document.height);
        return {left, top, left + Near(document.width), top + Near(document.height)};
    }
    uint32_t Pixel() {
        const uint32_t alpha = Sometimes() ? 0 : Sometimes() ? Below(256) : 255;
        return alpha << 24 | (static_cast<uint32_t>(m_random()) & 0xFFFFFF);
    }

    void FillLayer(PsdLayer& layer, size_t index) {
        if (Sometimes())
            layer.bounds = {0, 0, static_cast<int32_t>(document.width),
                            static_cast<int32_t>(document.height)};
        else
            layer.bounds = Bounds();
        layer.width = WrapSubtract(layer.bounds.right, layer.bounds.left);
        layer.height = WrapSubtract(layer.bounds.bottom, layer.bounds.top);
        layer.blendMode = Sometimes() ? kBlendNormal : static_cast<PsdBlendMode>(Below(24));
        layer.visible = Below(10) != 0;
        layer.opacity = Below(2) ? 255 : Byte();
        layer.fillOpacity = Below(2) ? 255 : Byte();
        layer.clipping = Sometimes();
        layer.hasSectionBlendMode = Sometimes();
        layer.sectionBlendMode = Sometimes() ? kBlendPassThrough : static_cast<PsdBlendMode>(Below(23));
        if (Below(3) == 0)
            layer.parent = &document.layers[Below(static_cast<uint32_t>(document.layers.count()))];
        if (layer.width > 0 && layer.height > 0 && (index == 0 || Below(8) != 0)) {
            layer.image = AllocateZeroed<uint32_t>(
                {static_cast<uint64_t>(layer.width), static_cast<uint64_t>(layer.height)});
            for (uint32_t& pixel : layer.image.span()) pixel = Pixel();
        }
        FillMask(layer.mask);
        if (!Sometimes()) return;
        if (Below(2)) layer.grayRanges = {Range(), Range()};
        if (Below(20) == 0) layer.grayRanges.source = {0x8040, 0x8040};
        if (Below(2)) {
            layer.channelRanges = AllocateZeroed<PsdBlendRanges>({1 + Below(5)});
            for (PsdBlendRanges& range : layer.channelRanges.span()) range = {Range(), Range()};
        }
        layer.advancedBlending = Sometimes();
        layer.channels = AllocateZeroed<PsdChannelInfo>({4});
        const int16_t ids[] = {-1, 0, 1, 2};
        for (size_t i = 0; i < 4; ++i) {
            layer.channels[i].id = ids[i];
            layer.channels[i].excluded = Below(3) == 0;
        }
    }

    void FillMask(PsdLayerMask& mask) {
        mask.disabled = Below(2) == 0;
        mask.defaultColor = Below(2) ? 0 : 255;
        switch (Below(5)) {
        case 0: mask.bounds = {kLowest, kLowest, kHighest, kHighest}; return;  // no data can fill this
        case 1: mask.bounds = {kLowest, kLowest, kLowest + 3, kHighest}; return;
        case 2: mask.bounds = {kHighest - 2, 0, kHighest, 2}; break;
        default: mask.bounds = Bounds();
        }
        if (mask.bounds.IsEmpty()) return;
        mask.data = AllocateZeroed<uint8_t>(
            {static_cast<uint64_t>(mask.bounds.Width()), static_cast<uint64_t>(mask.bounds.Height())});
        for (uint8_t& byte : mask.data.span()) byte = Byte();
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
        for (int32_t y = 0; y < height; ++y) {
            for (int32_t x = 0; x < width; ++x) {
                wrong += document.canvas[static_cast<size_t>(y * width + x)] != PlainRender(document, x, y);
            }
        }
        ASSERT_EQ(wrong, 0) << "document " << seed;
    }
}

// An effect's buffer: its own place, row length, mode and opacities, no mask; the layer's group and channels.
TEST(Composite, ABufferTakesOnlyGroupAndRangesFromItsLayer) {
    PsdDocument document;
    document.width = 3;
    document.height = 2;
    document.colorMode = kColorRgb;
    document.layers = AllocateZeroed<PsdLayer>({2});
    document.canvas = AllocateZeroed<uint32_t>({6});
    for (uint32_t& pixel : document.canvas.span()) pixel = 0xFF808080;
    PsdLayer& layer = document.layers[0];
    layer.parent = &document.layers[1];
    document.layers[1].opacity = 128;
    layer.opacity = 7;
    layer.fillOpacity = 0;
    layer.mask.disabled = false;
    layer.mask.defaultColor = 0;
    layer.channels = AllocateZeroed<PsdChannelInfo>({1});
    layer.channels[0].excluded = true;  // red
    const uint32_t pixels[] = {0, 0xFF000000, 0xFF0000FF, 9, 9, 9};
    const CompositeSource source = {.pixels = pixels,
                                    .rowPixels = 3,
                                    .bounds = {-1, 1, 2, 3},
                                    .blendMode = kBlendMultiply,
                                    .opacity = 200,
                                    .layer = &layer};
    CompositeLayer(document, source, {0, 1, 2, 2});
    // Opacity 200 * 128 / 255 = 100; A = 255 * 100 >> 8 = 99; (128 * 256 - 128 * 99) >> 8 = 78 for black, and
    // 128 by 255 is 127: (128 * 256 - 99) >> 8 = 127.
    const std::vector<uint32_t> want = {0xFF808080, 0xFF808080, 0xFF808080,
                                        0xFF804E4E, 0xFF804E7F, 0xFF808080};
    EXPECT_EQ(std::vector<uint32_t>(document.canvas.get(), document.canvas.get() + 6), want);
}

}  // namespace
}  // namespace tessary::test
