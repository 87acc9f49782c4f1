#include <gtest/gtest.h>

#include <algorithm>

#include "properties/effect_records.h"
#include "render/render.h"
#include "tools/document_builder.h"
#include "tools/sample_blocks.h"
#include "tools/sample_effects.h"

namespace tessary::test {
namespace {

using tools::Items;
using Effects = std::vector<tools::EffectItems>;
using Layers = std::vector<LayerBuilder>;
constexpr int kSide = 48;
constexpr Rect kTile = {20, 20, 26, 27};

Items Red() { return Items().Shown().Color("Clr ", 0xC81E3C); }
// A layer of which only the effects show.
LayerBuilder Unfilled() { return LayerBuilder(kTile).Solid(0xFF5060F0).Block("iOpa", Bytes(4)); }

struct Drawing {
    explicit Drawing(const Layers& layers, DocumentBuilder builder = {kColorRgb, 8, 3, kSide, kSide}) {
        for (const LayerBuilder& layer : layers) builder.Layer(layer);
        builder.DocumentBlock("Patt", tools::WeaveBlock()).Resource(1037, ByteWriter().U32(90));
        document = std::move(OpenBytes(builder.Build()).document);
        EXPECT_EQ(Render(document.get(), 0, 0, kSide, kSide, 1), PsdReadResult::kOk);
    }
    explicit Drawing(const Effects& effects, LayerBuilder layer = Unfilled())
        : Drawing(Layers{layer.Block("lfx2", tools::EffectsBlock(effects))}) {}

    std::vector<uint32_t> Canvas() const {
        return {document->canvas.get(), document->canvas.get() + kSide * kSide};
    }
    const EffectBuffer& Buffer(EffectSlot slot) const {
        return FindProperty<EffectsRecord>(document->layers[0], kPropertyEffects)->buffers[slot];
    }
    Owned<PsdDocument> document;
};

TEST(DropShadow, LiesOppositeTheLight) {
    const int cases[][5] = {
        {0, 10, 0, -10, 0}, {180, 9, 0, 8, 0}, {120, 10, 0, 4, 9}, {-45, 10, 0, -7, -6}, {0, 10, 1, 0, 10}};
    for (const auto& [angle, distance, global, dx, dy] : cases) {
        const Rect place = {kTile.left + dx, kTile.top + dy, kTile.right + dx, kTile.bottom + dy};
        const Items shadow = Red().Angle("lagl", angle).Pixels("Dstn", distance).Flag("uglg", global);
        const Drawing drawing(Effects{{"DrSh", shadow}});
        EXPECT_EQ(drawing.Canvas(), Drawing(Layers{LayerBuilder(place).Solid(0xFFC81E3C)}).Canvas()) << angle;
    }
}

// The same picture comes out of plain layers that stack in the order of the effects. All fade with the layer,
// and none with what fills it; the mask has taken its share of each already.
TEST(Effects, StackInTheirOrderAndFadeWithTheLayer) {
    auto effects = tools::AllEffects();
    effects.back().second.Choice("bvlS", "Embs");
    Bytes mask(36);
    for (size_t i = 0; i < mask.size(); ++i) mask[i] = static_cast<uint8_t>(i * 7);
    for (const bool isFilled : {true, false}) {
        LayerBuilder shown = LayerBuilder(kTile).Pixels(std::vector<uint32_t>(42, 0xE0C0C000)).Opacity(128);
        shown.Mask({18, 18, 24, 24}, 0, 0, mask);
        if (!isFilled) shown.Block("iOpa", Bytes(4));
        Drawing drawing(effects, shown);
        Layers stack;
        for (const uint32_t number : {9u, 11u, 0u, 99u, 10u, 12u, 8u, 7u, 6u, 5u, 4u, 3u, 2u, 1u}) {
            if (number == 99) {
                stack.push_back(shown);
                continue;
            }
            const EffectBuffer& buffer = drawing.Buffer(static_cast<EffectSlot>(number));
            ASSERT_TRUE(buffer.pixels) << number;
            ASSERT_NE(buffer.opacity, 0) << number;
            const auto& [left, top, right, bottom] = buffer.bounds;
            LayerBuilder layer({kTile.left + left, kTile.top + top, kTile.left + right, kTile.top + bottom});
            const auto pixels = buffer.pixels.span();
            stack.push_back(layer.Pixels({pixels.begin(), pixels.end()})
                                .Mode(buffer.blendMode == kBlendMultiply    ? "mul "
                                      : buffer.blendMode == kBlendScreen    ? "scrn"
                                      : buffer.blendMode == kBlendSoftLight ? "sLit"
                                                                            : "norm")
                                .Opacity(static_cast<uint8_t>(buffer.opacity * 128 / 255)));
        }
        const std::vector<uint32_t> canvas = drawing.Canvas();
        EXPECT_EQ(Drawing(stack).Canvas(), canvas) << isFilled;
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
            const Drawing drawing(effects, LayerBuilder(place).Solid(0xC0808080));
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
        return Drawing(Layers{layer}, document);
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
    const LayerBuilder adjustment = LayerBuilder({0, 0, 48, 48})
                                        .Solid(0)
                                        .Block("nvrt", {})
                                        .Block("lfx2", tools::EffectsBlock(Effects{{"SoFi", Red()}}));
    Drawing drawing(Layers{LayerBuilder(kTile).Solid(0xFF204080), adjustment});
    const std::vector<uint32_t> before = drawing.Canvas();
    drawing.document->layers[0].visible = false;
    ASSERT_EQ(Render(drawing.document.get(), 0, 0, kSide, kSide, 1), PsdReadResult::kOk);
    EXPECT_NE(drawing.Canvas(), before);
    EXPECT_EQ(drawing.Canvas(), Drawing(Layers{adjustment}).Canvas());
}

TEST(Effects, AreDrawnOnlyWhereTheyAreSwitchedOn) {
    const std::vector<uint32_t> nothing(kSide * kSide, kBackground);
    for (const char* key : {"DrSh", "IrSh", "OrGl", "IrGl", "ChFX", "SoFi", "FrFX"}) {
        const auto draws = [&](Items items, bool master = true) {
            items.Pixels("blur", 3).Pixels("Sz  ", 2).Pixels("Dstn", 2);
            Bytes block = tools::EffectsBlock(Effects{{key, items}});
            block[tools::EffectsHead(1).size() - 1] = master;
            return Drawing(Layers{Unfilled().Block("lfx2", block)}).Canvas() != nothing;
        };
        EXPECT_EQ(All(draws(Red()), draws(Red(), false)), All(true, false)) << key;
        EXPECT_EQ(All(draws(Red().Percent("Opct", 0)), draws(Red().Flag("enab", false))), All(false, false))
            << key;
    }
    ByteWriter old;
    old.U16(0).U16(2).Text("8BIMcmnS").U32(7).U32(0).U8(1).U16(0).Text("8BIMsofi").U32(24).U32(0);
    old.Text("8BIMnorm").U16(0).U16(0).U16(0).U16(0xFFFF).U16(0).U8(255).U8(1);
    const auto center = [](const Drawing& drawing) { return drawing.Canvas()[23 * kSide + 23] & 0xFFFFFF; };
    const LayerBuilder both = Unfilled().Block("lrFX", old);
    EXPECT_EQ(center(Drawing(Layers{both})), 0x0000FFu);
    EXPECT_EQ(center(Drawing(Effects{{"SoFi", Red()}}, both)), 0xC81E3Cu);
    EXPECT_EQ(Drawing(Effects{{"SoFi", Red().Flag("enab", false)}}, both).Canvas(), nothing);
}

}  // namespace
}  // namespace tessary::test
