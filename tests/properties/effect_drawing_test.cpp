#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <tuple>

#include "properties/effect_blur.h"
#include "properties/effect_records.h"
#include "render/render.h"
#include "tests/support/document_builder.h"
#include "tools/sample_effects.h"

namespace tessary::test {
namespace {

using Layers = std::vector<LayerBuilder>;
constexpr int kSide = 48;
constexpr Rect kTile = {20, 20, 26, 27};

struct Effect {
    std::string_view key;
    std::vector<std::pair<std::string_view, double>> numbers = {};
    std::string_view flag = "none";
    double opacity = 100;
    bool enabled = true;
    uint32_t color = 0xC81E3C;
};

Bytes EffectsBlock(const std::vector<Effect>& effects, bool masterSwitch = true) {
    ByteWriter out;
    out.U32(0).U32(16).ClassName("null").U32(static_cast<uint32_t>(2 + effects.size()));
    out.Unit("Scl ", "#Prc", 100).Bool("masterFXSwitch", masterSwitch);
    for (const Effect& effect : effects) {
        out.ItemHead(effect.key, "Objc")
            .ClassName("null")
            .U32(4 + static_cast<uint32_t>(effect.numbers.size()));
        out.Bool("enab", effect.enabled).Unit("Opct", "#Prc", effect.opacity).Bool(effect.flag, true);
        out.ColorItem("Clr ", Red(effect.color), Green(effect.color), Blue(effect.color));
        for (const auto& [key, value] : effect.numbers) out.Unit(key, "#Pxl", value);
    }
    return out;
}

// A layer of which only the effects show.
LayerBuilder Unfilled() { return LayerBuilder(kTile).Solid(0xFF5060F0).Block("iOpa", Bytes(4)); }

struct Drawing {
    explicit Drawing(const Layers& layers, const std::function<void(DocumentBuilder&)>& change = {},
                     DocumentBuilder builder = DocumentBuilder(kColorRgb, 8, 3, kSide, kSide)) {
        for (const LayerBuilder& layer : layers) builder.Layer(layer);
        if (change) change(builder);
        document = std::move(OpenBytes(builder.Resource(1037, ByteWriter().U32(90)).Build()).document);
        EXPECT_EQ(Render(document.get(), 0, 0, kSide, kSide, 1), PsdReadResult::kOk);
    }
    explicit Drawing(const std::vector<Effect>& effects, LayerBuilder layer = Unfilled())
        : Drawing(Layers{layer.Block("lfx2", EffectsBlock(effects))}) {}

    std::vector<uint32_t> Canvas() const {
        return {document->canvas.get(), document->canvas.get() + kSide * kSide};
    }
    const EffectBuffer& Buffer(EffectSlot slot) const {
        return FindProperty<EffectsRecord>(document->layers[0], kPropertyEffects)->buffers[slot];
    }
    Owned<PsdDocument> document;
};

// The alpha of an image, and the blur done the slow way.
struct Plane {
    int width, height;
    std::vector<uint32_t> alphas;

    Plane& Blur(int radius) {
        const double sigma = 1.4 * radius / std::sqrt(2 * std::log(255.0));
        const int half = static_cast<int>(std::ceil(1.4 * radius));
        for (const int vertical : {0, 1}) {
            const std::vector<uint32_t> before = alphas;
            for (int at = 0; at < width * height; ++at) {
                double sum = 0, whole = 0;
                for (int i = -half; i <= half; ++i) {
                    const double weight = std::trunc(255 * std::exp(-i * i / (2 * sigma * sigma)));
                    const int x = at % width + i * (1 - vertical), y = at / width + i * vertical;
                    whole += weight;
                    if (x >= 0 && x < width && y >= 0 && y < height)
                        sum += weight * before[static_cast<size_t>(y * width + x)];
                }
                alphas[static_cast<size_t>(at)] = static_cast<uint32_t>(sum / whole + 0.5);
            }
        }
        return *this;
    }
};

TEST(EffectBlur, IsTheConvolutionItClaimsToBe) {
    for (const auto& [width, height, isHalved] :
         {std::tuple{1, 1, false}, {9, 4, false}, {70, 3, false}, {3, 130, false}, {90, 80, true}}) {
        for (const int radius : {1, 2, 5, 17, 250}) {
            Plane plane{width, height, {}};
            std::vector<uint32_t> pixels;
            for (uint32_t i = 0; i < uint32_t(width * height); ++i) {
                // Or two flat halves, one of them darker on the right.
                const uint32_t flat = i < 40 * 90 ? 255 : i % 90 < 50 ? 0 : 99;
                plane.alphas.push_back(isHalved ? flat : i % 3 ? i * 73 % 256 : 255);
                pixels.push_back(plane.alphas.back() << 24 | i);
            }
            auto narrowly = pixels;
            for (const bool isNarrow : {true, false}) {
                auto& image = isNarrow ? narrowly : pixels;
                const auto result = BlurAlpha(image.data(), size_t(width), size_t(height), radius,
                                              isNarrow ? sse2::kKernels : WidestKernels());
                ASSERT_EQ(result, PsdReadResult::kOk);
            }
            EXPECT_EQ(narrowly, pixels);
            plane.Blur(radius);
            for (uint32_t i = 0; i < pixels.size(); ++i)
                ASSERT_EQ(pixels[i], plane.alphas[i] << 24 | i) << width << " " << radius;
        }
    }
}

TEST(DropShadow, LiesOppositeTheLight) {
    const int cases[][5] = {
        {0, 10, 0, -10, 0}, {180, 9, 0, 8, 0}, {120, 10, 0, 4, 9}, {-45, 10, 0, -7, -6}, {0, 10, 1, 0, 10}};
    for (const auto& [angle, distance, global, dx, dy] : cases) {
        const Rect place = {kTile.left + dx, kTile.top + dy, kTile.right + dx, kTile.bottom + dy};
        const Drawing drawing({{"DrSh", {{"lagl", angle}, {"Dstn", distance}}, global ? "uglg" : "none"}});
        EXPECT_EQ(drawing.Canvas(), Drawing(Layers{LayerBuilder(place).Solid(0xFFC81E3C)}).Canvas()) << angle;
    }
}

// Pixel by pixel: the spread's share, what is left of the size, the range, and what the layer takes out.
TEST(ShadowsAndGlows, SpreadThenSoftenThenAreKnockedOut) {
    const int cases[][6] = {{0, 9, 0, 50, 0, 0},     {30, 5, 2, 50, 4, 0}, {9, 5, 0, 50, 4, 0},
                            {100, 10, 10, 50, 0, 1}, {30, 5, 2, 25, 4, 1}, {0, 9, 0, 80, 0, 1}};
    for (const auto& [spread, s, grown, range, distance, glow] : cases) {
        const Drawing drawing(
            {{glow ? "OrGl" : "DrSh",
              {{"Ckmt", spread}, {"blur", s}, {"Inpr", range}, {"lagl", 150}, {"Dstn", distance}},
              "layerConceals"}});
        const EffectBuffer& buffer = drawing.Buffer(glow ? kSlotOuterGlow : kSlotDropShadow);
        const int offset = distance && !glow ? 2 : 0, width = 6 + 2 * s;
        ASSERT_EQ(buffer.bounds, (Rect{offset - s, offset - s, offset + 6 + s, offset + 7 + s}));
        const auto isInTile = [](int x, int y) { return x >= 0 && x < 6 && y >= 0 && y < 7; };
        Plane plane{width, 7 + 2 * s, {}};
        for (int i = 0; i < width * plane.height; ++i)
            plane.alphas.push_back(isInTile(i % width - s, i / width - s) ? 255 : 0);
        if (grown > 0) {
            for (uint32_t& alpha : plane.Blur(grown).alphas) alpha = alpha < 24 ? 10 * alpha : 255;
        }
        if (s > grown) plane.Blur(s - grown);
        for (int i = 0; i < width * plane.height; ++i) {
            const uint32_t alpha = plane.alphas[size_t(i)];
            const uint32_t ranged = glow ? std::min(alpha * 100 / uint32_t(range), 255u) : alpha;
            const bool covered = isInTile(i % width - s + offset, i / width - s + offset);
            const uint32_t want = (covered ? 0 : 255 * ranged >> 8) << 24 | 0xC81E3C;
            ASSERT_EQ(buffer.pixels[size_t(i)], want) << spread << " " << i;
        }
    }
}

TEST(Effects, AMaskTakesItsShareOnce) {
    constexpr Rect kMask = {18, 18, 24, 24};  // over the layer's corner; nothing is left beside it
    Bytes mask(36);
    std::vector<uint32_t> pixels(42);
    for (uint32_t i = 0; i < 36; ++i) {
        mask[i] = static_cast<uint8_t>(i * 7);
        if (i % 6 > 1 && i / 6 > 1) pixels[(i / 6 - 2) * 6 + i % 6 - 2] = (255 * i * 7 >> 8) << 24 | 0xC81E3C;
    }
    const LayerBuilder hidden = LayerBuilder(kTile).Pixels(pixels).Block("iOpa", Bytes(4));
    for (const std::string_view key : {"DrSh", "OrGl", "SoFi"}) {
        const std::vector<Effect> effects = {{key, {{"blur", 3}, {"Dstn", 2}}}};
        const Drawing masked(effects, Unfilled().Mask(kMask, 0, 0, mask));
        const Drawing disabled(effects, Unfilled().Mask(kMask, 0, 2, mask));
        EXPECT_EQ(masked.Canvas(), Drawing(effects, hidden).Canvas()) << key;
        EXPECT_EQ(disabled.Canvas(), Drawing(effects).Canvas()) << key;
    }
}

// The same picture comes out of plain layers that stack in the order of the effects. All fade with the layer,
// and none with what fills it.
TEST(Effects, StackInTheirOrderAndFadeWithTheLayer) {
    auto effects = tools::AllEffects();
    effects.back().second.Choice("bvlS", "Embs");
    const LayerBuilder layer = LayerBuilder(kTile).Pixels(std::vector<uint32_t>(42, 0xE0C0C000)).Opacity(128);
    for (const bool isFilled : {true, false}) {
        LayerBuilder shown = layer;
        if (!isFilled) shown.Block("iOpa", Bytes(4));
        const auto draw = [](const Layers& layers) {
            return Drawing(
                layers, [](DocumentBuilder& builder) { builder.DocumentBlock("Patt", tools::WeaveBlock()); });
        };
        Drawing drawing = draw({LayerBuilder(shown).Block("lfx2", tools::EffectsBlock(effects))});
        Layers stack;
        for (const uint32_t number : {9u, 11u, 0u, 99u, 10u, 12u, 8u, 7u, 6u, 5u, 4u, 3u, 2u, 1u}) {
            if (number == 99) {
                stack.push_back(shown);
                continue;
            }
            const EffectBuffer& buffer = drawing.Buffer(static_cast<EffectSlot>(number));
            ASSERT_TRUE(buffer.pixels) << number;
            ASSERT_NE(buffer.opacity, 0) << number;
            const auto* const pixels = buffer.pixels.get();
            const auto count = buffer.bounds.Width() * buffer.bounds.Height();
            const Rect at = {kTile.left + buffer.bounds.left, kTile.top + buffer.bounds.top,
                             kTile.left + buffer.bounds.right, kTile.top + buffer.bounds.bottom};
            const char* const mode = buffer.blendMode == kBlendMultiply    ? "mul "
                                     : buffer.blendMode == kBlendScreen    ? "scrn"
                                     : buffer.blendMode == kBlendSoftLight ? "sLit"
                                                                           : "norm";
            stack.push_back(LayerBuilder(at)
                                .Pixels({pixels, pixels + count})
                                .Mode(mode)
                                .Opacity(static_cast<uint8_t>(buffer.opacity * 128 / 255)));
        }
        const std::vector<uint32_t> canvas = drawing.Canvas();
        EXPECT_EQ(draw(stack).Canvas(), canvas) << isFilled;
        EXPECT_EQ(Render(drawing.document.get(), 0, 0, kSide, kSide, 1), PsdReadResult::kOk);
        EXPECT_EQ(drawing.Canvas(), canvas) << isFilled;
    }
}

// Of any size, on layers of one pixel and beside the canvas, and on adjustments, which cover the canvas.
TEST(Effects, AreDrawnWhereverLayersLie) {
    auto effects = tools::AllEffects();
    const Rect places[] = {{47, 47, 48, 48}, {-4, -3, -1, 90}, {500, 500, 510, 510}, {-30000, 10, 30000, 11}};
    for (const double size : {0.0, 250.0}) {
        for (auto& [key, items] : effects)
            items.Pixels("blur", size).Pixels("Sz  ", size).Pixels("Dstn", 100 * size);
        const Bytes block = tools::EffectsBlock(effects);
        for (const Rect& place : places) {
            const Drawing drawing(Layers{LayerBuilder(place).Solid(0xC0808080).Block("lfx2", block)});
            const bool shows = place.left < kSide && (place.right > 0 || size > 0);
            EXPECT_EQ(drawing.Canvas() != std::vector<uint32_t>(kSide * kSide, kBackground), shows)
                << place.left;
        }
        const LayerBuilder below = LayerBuilder(kTile).Solid(0xFF204080);
        const LayerBuilder adjustment = LayerBuilder({0, 0, 0, 0}).Solid(0).Block("nvrt", {});
        EXPECT_NE(Drawing(Layers{below, LayerBuilder(adjustment).Block("lfx2", block)}).Canvas(),
                  Drawing(Layers{below, adjustment}).Canvas());
    }
}

// Drawn from coverage, they look the same whatever the layer's colours are stored as.
TEST(Effects, AreTheSameInAllColorModes) {
    const auto draw = [](uint32_t mode, uint32_t depth, int16_t colors, bool isOpaque) {
        LayerBuilder layer(kTile);
        Bytes samples(42 * depth / 8, 0x90);  // gray in RGB, of any depth
        for (int16_t id = 0; id < colors; ++id) layer.Channel(id, samples);
        for (size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<uint8_t>(i * 8 / depth * 6);
        if (!isOpaque) layer.Channel(-1, samples);
        layer.Opacity(200).Block("lfx2", tools::EffectsBlock(tools::AllEffects()));
        DocumentBuilder document(mode, depth, static_cast<uint32_t>(colors), kSide, kSide);
        if (mode == kColorIndexed) document.ColorModeData(Bytes(768, 0x90));
        const auto addPattern = [](DocumentBuilder& builder) {
            builder.DocumentBlock("Patt", tools::WeaveBlock());
        };
        return Drawing(Layers{layer}, addPattern, document);
    };
    constexpr struct {
        const char* name;
        uint32_t mode, depth;
        int16_t colors;
        bool isSameGray;
    } kModes[] = {{"RGB, 16 bits", kColorRgb, 16, 3, true},        {"gray", kColorGrayscale, 8, 1, true},
                  {"gray, 16 bits", kColorGrayscale, 16, 1, true}, {"duotone", kColorDuotone, 8, 1, true},
                  {"indexed", kColorIndexed, 8, 1, true},          {"CMYK", kColorCmyk, 8, 4, false},
                  {"CMYK, 16 bits", kColorCmyk, 16, 4, false},     {"Lab", kColorLab, 8, 3, false},
                  {"Lab, 16 bits", kColorLab, 16, 3, false}};
    for (const auto& [name, mode, depth, colors, isSameGray] : kModes) {
        const bool isOpaque = mode == kColorIndexed;  // without alpha
        const Drawing plain = draw(kColorRgb, 8, 3, isOpaque), other = draw(mode, depth, colors, isOpaque);
        EXPECT_EQ(other.Canvas() == plain.Canvas(), isSameGray) << name;
        for (uint32_t i = 0; i < kEffectBufferCount; ++i) {
            const EffectBuffer &a = plain.Buffer(EffectSlot(i)), &b = other.Buffer(EffectSlot(i));
            EXPECT_TRUE(a.bounds == b.bounds && std::ranges::equal(a.pixels.span(), b.pixels.span()) &&
                        a.blendMode == b.blendMode && a.opacity == b.opacity)
                << name << ", buffer " << i;
        }
    }
}

// Those of adjustments follow what the canvas shows at the time.
TEST(Effects, OfAdjustmentsAreDrawnAnew) {
    const LayerBuilder adjustment =
        LayerBuilder({0, 0, 48, 48}).Solid(0).Block("nvrt", {}).Block("lfx2", EffectsBlock({{"SoFi"}}));
    Drawing drawing(Layers{LayerBuilder(kTile).Solid(0xFF204080), adjustment});
    const std::vector<uint32_t> before = drawing.Canvas();
    drawing.document->layers[0].visible = false;
    ASSERT_EQ(Render(drawing.document.get(), 0, 0, kSide, kSide, 1), PsdReadResult::kOk);
    EXPECT_NE(drawing.Canvas(), before);
    EXPECT_EQ(drawing.Canvas(), Drawing(Layers{adjustment}).Canvas());
}

TEST(Effects, AreDrawnOnlyWhereTheyAreSwitchedOn) {
    const std::vector<uint32_t> nothing(kSide * kSide, kBackground);
    for (const std::string_view key : {"DrSh", "IrSh", "OrGl", "IrGl", "ChFX", "SoFi", "FrFX"}) {
        const auto effect = [&](double opacity, bool enabled, bool master) {
            const Bytes block = EffectsBlock(
                {{key, {{"blur", 3}, {"Sz  ", 2}, {"Dstn", 2}}, "none", opacity, enabled}}, master);
            return Drawing(Layers{Unfilled().Block("lfx2", block)}).Canvas();
        };
        EXPECT_NE(effect(100, true, true), nothing) << key;
        EXPECT_EQ(effect(0, true, true), nothing) << key;
        EXPECT_EQ(effect(100, false, true), nothing) << key;
        EXPECT_EQ(effect(100, true, false), nothing) << key;
    }
    ByteWriter old;
    old.U16(0).U16(2).Text("8BIMcmnS").U32(7).U32(0).U8(1).U16(0).Text("8BIMsofi").U32(24).U32(0);
    old.Text("8BIMnorm").U16(0).U16(0).U16(0).U16(0xFFFF).U16(0).U8(255).U8(1);
    const auto center = [](const Drawing& drawing) { return drawing.Canvas()[23 * kSide + 23] & 0xFFFFFF; };
    const LayerBuilder both = Unfilled().Block("lrFX", old);
    EXPECT_EQ(center(Drawing(Layers{both})), 0x0000FFu);
    EXPECT_EQ(center(Drawing({{"SoFi"}}, both)), 0xC81E3Cu);
    EXPECT_EQ(Drawing({{"SoFi", {}, "none", 100, false}}, both).Canvas(), nothing);
}

}  // namespace
}  // namespace tessary::test
