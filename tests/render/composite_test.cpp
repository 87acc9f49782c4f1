#include "render/composite.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <vector>

#include "render/blend_rows.h"
#include "render/integer_hsl.h"
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

        const auto canvas = document.canvas.span();
        std::vector<uint32_t> drawn[2];
        for (const bool wide : {false, true}) {
            std::ranges::fill(canvas, 0);
            for (const PsdLayer& layer : document.layers.span()) {
                const Rect area = Intersect({0, 0, width, height}, layer.bounds);
                const VectorPath path = wide ? WidestVectorPath() : VectorPath::kSse2;
                if (layer.image) CompositeLayer(document, CompositeSourceOf(layer), area, path);
            }
            drawn[wide].assign(canvas.begin(), canvas.end());
        }
        ASSERT_EQ(drawn[0], drawn[1]) << "document " << seed;
    }
}

// Draws `layer` over `canvas` both ways and counts the pixels that differ.
int Differences(const PlainLayer& rule, const std::vector<uint32_t>& layer,
                const std::vector<uint8_t>& coverage, const std::vector<uint32_t>& canvas,
                const std::vector<uint8_t>& noise) {
    int wrong = 0;
    for (const VectorPath path : {VectorPath::kSse2, WidestVectorPath()}) {
        std::vector<uint32_t> drawn = canvas;
        SelectBlendRow(static_cast<PsdBlendMode>(rule.mode), rule.fast, rule.ranges,
                       path)({drawn.data(), layer.data(), coverage.data(), noise.data(), drawn.size()},
                             {static_cast<uint32_t>(rule.opacity), rule.keep});
        for (size_t i = 0; i < drawn.size(); ++i) {
            wrong += drawn[i] != PlainPixel(rule, layer[i], coverage[i], canvas[i], true, noise[i]);
        }
    }
    return wrong;
}

// Over a canvas alpha of 1 the layer weighs 256, and what is stored is the mode's own result.
TEST(BlendModes, EveryPairOfChannelsFollowsTheFormula) {
    for (uint32_t mode = 0; mode <= kBlendPassThrough; ++mode) {
        if (mode == kBlendDissolve) continue;
        int wrong = 0;
        for (uint32_t s = 0; s < 256; ++s) {
            std::vector<uint32_t> layer, canvas;
            for (uint32_t d = 0; d < 256; ++d) {
                layer.push_back(PackPixel(255, s, d, 255 - s));
                canvas.push_back(PackPixel(1, d, s, d));
            }
            const std::vector<uint8_t> full(256, 255);
            wrong += Differences({.mode = mode}, layer, full, canvas, full);
        }
        EXPECT_EQ(wrong, 0) << "mode " << mode;
    }
}

TEST(IntegerHsl, EveryColorAndEveryHueFollowThePlainRule) {
    int wrong = 0;
    for (uint32_t i = 0; i < 360 << 16; ++i) {
        const PlainColor hsl = {{int(i >> 16), int(i >> 8 & 255), int(i & 255)}}, rgb = PlainToRgb(hsl);
        const IntegerRgb color = HslToRgb({hsl.c[0], hsl.c[1], hsl.c[2]});
        wrong += color.red != rgb.c[0] || color.green != rgb.c[1] || color.blue != rgb.c[2];
        if (i >> 24 != 0) continue;
        const PlainColor pixel = ColorOf(i), want = PlainToHsl(pixel);
        const IntegerHsl got = RgbToHsl(pixel.c[0], pixel.c[1], pixel.c[2]);
        wrong += got.hue != want.c[0] || got.saturation != want.c[1] || got.lightness != want.c[2];
    }
    EXPECT_EQ(wrong, 0);
}

TEST(BlendModes, EveryWeightFollowsTheRule) {
    std::mt19937 random(5);
    for (PlainLayer rule : {PlainLayer{kBlendNormal, true},
                            {kBlendNormal, true, true},
                            {kBlendDissolve},
                            {kBlendDissolve, false, true},
                            {kBlendColorDodge},
                            {kBlendLuminosity, false, true}}) {
        for (const int variant : {0, 1, 2, 3, 4, 5, 6, 7}) {
            const int opacities[] = {255, 254, 100, 0};
            rule.opacity = opacities[variant / 2];
            rule.keep = rule.ranges && variant % 2 ? 0xFF00FF : 0;
            int wrong = 0;
            // Once with one canvas alpha in all the row, once with one coverage.
            for (uint32_t row = 0; row < 512; ++row) {
                std::vector<uint32_t> layer, canvas;
                std::vector<uint8_t> coverage, noise;
                for (uint32_t i = 0; i < 256; ++i) {
                    const uint32_t covered = row < 256 ? i : row - 256, under = row < 256 ? row : i;
                    // Where a mask lowered the coverage the pixel's own alpha is higher.
                    const uint32_t alpha = covered == 0 ? 9 : std::max<uint32_t>(covered, random() & 255);
                    layer.push_back(alpha << 24 | (random() & 0xFFFFFF));
                    canvas.push_back(under << 24 | (random() & 0xFFFFFF));
                    coverage.push_back(static_cast<uint8_t>(covered));
                    noise.push_back(static_cast<uint8_t>(random()));
                }
                wrong += Differences(rule, layer, coverage, canvas, noise);
            }
            EXPECT_EQ(wrong, 0) << rule.mode << rule.fast << rule.ranges << ' ' << variant;
        }
    }
}

}  // namespace
}  // namespace tessary::test
