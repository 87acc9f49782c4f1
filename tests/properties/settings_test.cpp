#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <limits>
#include <tuple>

#include "document/big_endian.h"
#include "document/byte_reader.h"
#include "properties/adjustment_pixels.h"
#include "properties/adjustment_tables.h"
#include "properties/apply_adjustment.h"
#include "properties/effect_records.h"
#include "properties/fill_layers.h"
#include "properties/property_readers.h"
#include "render/kernels.h"
#include "tests/render/plain_rule.h"
#include "tests/support/text_picture.h"
#include "tools/document_builder.h"
#include "tools/sample_effects.h"

namespace tessary::test {
namespace {

using Values = std::vector<int64_t>;

struct BlockRead : StreamReader {
    BlockRead(std::string_view key, const ByteWriter& block, uint32_t length = 0) : StreamReader(block) {
        result = Read(key, length ? length : static_cast<uint32_t>(block.size()));
    }
    PsdReadResult Read(std::string_view key, uint32_t length) {
        const auto* bytes = reinterpret_cast<const uint8_t*>(key.data());
        return ReadPropertyBlock(document, layer, LoadU32(bytes), length);
    }
    template <class Record = EffectsRecord>
    const Record& Get(PsdPropertyCode code = kPropertyEffects) {
        return *FindProperty<Record>(layer, code);
    }
    PsdLayer layer;
    PsdReadResult result;
};

using Numbers = std::vector<int>;

ByteWriter Words(const Numbers& values, size_t zeros = 0) {
    ByteWriter out;
    for (const int value : values) out.I16(value);
    return out.Zeros(zeros);
}
// Composite first; channels that are not given stay as they are.
ByteWriter Levels(const std::vector<Numbers>& levels, int version = 2) {
    ByteWriter out = Words({version});
    for (size_t i = 0; i < 29; ++i)
        out.Raw(Words(i < levels.size() ? levels[i] : Numbers{0, 255, 0, 255, 100}));
    return out;
}
// The composite's curve first; points of output and input.
ByteWriter Curves(uint32_t channels, const std::vector<Numbers>& curves, uint32_t version = 1) {
    ByteWriter out = ByteWriter().U8(0).U16(version).U32(channels);
    for (const Numbers& points : curves) out.U16(static_cast<uint32_t>(points.size() / 2)).Raw(Words(points));
    return out;
}

ByteWriter Descriptor(uint32_t itemCount) { return ByteWriter().U32(16).ClassName("null").U32(itemCount); }
ByteWriter ObjectEffects(uint32_t itemCount) { return ByteWriter().U32(0).Raw(Descriptor(itemCount)); }

ByteWriter& Object(ByteWriter& out, std::string_view key, std::string_view classId, uint32_t itemCount) {
    return out.ItemHead(key, "Objc").ClassName(classId).U32(itemCount);
}

TEST(PropertyReaders, TurnBlocksIntoKindsAndCodes) {
    const auto extra = [](std::string_view text, uint32_t n) { return ByteWriter().Text(text).U32(n); };
    // Composite and blue, and both again behind a signature.
    const auto curves = [](uint32_t version, std::string_view text = {}, int extraVersion = 4, int n = 2) {
        const Numbers points = {10, 20, 200, 250}, again = {1, 2, 10, 20, 200, 250, 2, 2, 10, 20, 200, 250};
        ByteWriter block = Curves(9, {points, points}, version);
        if (text.empty()) return block.U32(0);
        return block.Text(text).Raw(Words({extraVersion, 0, n})).Raw(Words(again));
    };
    const auto v = [](uint32_t version, size_t zeros) { return ByteWriter().U16(version).Zeros(zeros); };
    const auto old = [](std::string_view text) { return ByteWriter().U16(0).U16(2).Text(text); };
    const struct {
        const char* key;
        ByteWriter block;
        uint32_t kind, property;
        int32_t result = 0;
        bool rebuild = false;
        uint32_t length = 0;  // 0: the block's own
    } cases[] = {
        {"levl", Levels({}).Raw(extra("Lvls", 3 << 16 | 65535)), 6, 1, 0, true},
        {"levl", Levels({}, 1), 6, 1, -503},
        {"levl", Levels({}).Raw(extra("lvls", 0)), 6, 1, -505},
        {"levl", Levels({}), 6, 1, -506, false, 296},
        {"levl", Levels({}).Raw(extra("Lvls", 0)), 6, 1, -507},
        {"curv", curves(4, "Crv "), 7, 2, 0, true},
        {"curv", curves(1, "Crv ", 4, 3), 7, 2},  // a copy too many
        {"curv", curves(2), 7, 2, -508},
        {"curv", curves(1, "Crv_"), 7, 2, -509},
        {"curv", curves(1, "Crv ", 3), 7, 2, -510},
        {"curv", ByteWriter().U8(0).U16(1).U32(0xFFFFFFFF).U16(65535).U16(1), 7, 2, 0, true},
        {"hue2", v(0, 100), 10, 5, -511},
        {"selc", v(1, 82), 11, 6, 0, true},
        {"selc", v(0, 82), 11, 6, -512},
        {"mixr", v(0, 42), 15, 10, -513},
        {"grdm", v(1, 2).U32(0xFFFFFFFF), 16, 11, 0, true},
        {"grdm", v(3, 60), 16, 11, -515},
        {"phfl", v(0, 18), 17, 12, 0, true},  // of another version
        {"expA", v(0, 18), 0, 0},
        {"SoCo", ByteWriter().U32(15), kLayerSolidFill, kPropertySolidFill, -525},
        {"GdFl", ByteWriter(), kLayerGradientFill, kPropertyGradientFill, -526},
        {"PtFl", ByteWriter().U32(0), kLayerPatternFill, kPropertyPatternFill, -530},
        {"lfx2", ByteWriter().U32(0).U32(15), 0, kPropertyEffects, -516},
        {"lfx2", ObjectEffects(0xFFFFFFFF), 0, kPropertyEffects},
        {"lrFX", v(1, 0), 0, kPropertyOldEffects, -516},
        {"lrFX", old(""), 0, kPropertyOldEffects, -517},
        {"lrFX", old("8BIMxxxx"), 0, kPropertyOldEffects, -518},
        {"lrFX", old("8BIMcmnS").U32(7).U32(1), 0, kPropertyOldEffects, -519},
        // A common state that lies about its size.
        {"lrFX", old("8BIMcmnS").Zeros(11).Text("8BIMcmnS").U32(7).Zeros(7), 0, kPropertyOldEffects},
    };
    for (const auto& test : cases) {
        BlockRead read(test.key, test.block, test.length);
        EXPECT_EQ(static_cast<int32_t>(read.result), test.result) << &test - cases;
        EXPECT_EQ(read.layer.layerKind, test.kind) << &test - cases;
        EXPECT_EQ(read.layer.propertyList.entries[0].propertyCode, test.property) << &test - cases;
        EXPECT_EQ(read.layer.rebuildTables, test.rebuild) << &test - cases;
        EXPECT_LT(read.stream.calls, 1000u);
    }
}

TEST(AdjustmentReaders, CurvesKeepNineteenPointsAndTheirLaterChannel) {
    for (const bool differs : {false, true}) {
        ByteWriter curves;
        curves.U8(0).U16(1).U32(2).U16(25);
        for (uint32_t i = 0; i < 25; ++i) curves.U16(i).U16(i * 10);
        curves.Text("Crv ").U16(4).U32(1).U16(2).U16(25);
        for (uint32_t i = 0; i < 25; ++i) curves.U16(differs && i == 18 ? 99 : i).U16(i * 10);
        BlockRead read("curv", curves);
        const CurveRecord& curve = read.Get<CurvesRecord>(kPropertyCurves).curves[0];
        EXPECT_EQ(All(curve.channel, curve.points[18]), All(2, (CurvePoint{18, 180})));
        EXPECT_EQ(read.layer.rebuildTables, !differs);
        EXPECT_EQ(Position(read.document), curves.size() - (differs ? 6 * 4 : 0));
    }
}

TEST(AdjustmentReaders, OneMethodOfSelectiveColorIsAbsolute) {
    for (const uint32_t method : {0u, 1u, 2u, 255u, 256u, 257u}) {
        BlockRead read("selc", ByteWriter().U16(1).U16(method).Zeros(80));
        EXPECT_EQ(read.Get<SelectiveRecord>(kPropertySelective).absolute, method == 1) << method;
    }
}

TEST(AdjustmentReaders, AFullListDropsTheBlockWhole) {
    BlockRead read("thrs", ByteWriter().U16(1).Zeros(40), 4);
    for (uint32_t i = 0; i < 19; ++i) ASSERT_EQ(read.Read("nvrt", 0), PsdReadResult::kOk);
    const uint32_t before = Position(read.document);
    EXPECT_EQ(read.Read("levl", 292), PsdReadResult::kOk);  // not even its wrong version is seen
    EXPECT_EQ(Position(read.document), before);
    EXPECT_EQ(All(read.layer.layerKind, read.layer.propertyList.count), All(kLayerInvert, 20));
}

TEST(ObjectEffects, ReadsADropShadowWhole) {
    ByteWriter block = ObjectEffects(3);
    block.Unit("Scl ", "#Prc", 100).Bool("masterFXSwitch", true);
    Object(block, "DrSh", "DrSh", 13).Bool("enab", true).Enum("Md  ", "BlnM", "Mltp");
    block.ColorItem("Clr ", 1, 127.5, 300).Unit("Opct", "#Prc", 75);
    block.Bool("uglg", true).Unit("lagl", "#Ang", -60.9).Unit("Dstn", "#Pxl", 1e9).Unit("Ckmt", "#Pxl", 30.9);
    block.Unit("blur", "#Pxl", 999).Unit("Nose", "#Prc", std::numeric_limits<double>::quiet_NaN());
    Object(block.Bool("AntA", true), "TrnS", "ShpC", 0).Bool("layerConceals", true);

    BlockRead read("lfx2", ByteWriter(block).Zeros(9));
    EXPECT_EQ(Position(read.document), block.size());
    const EffectsRecord& effects = read.Get();
    EXPECT_EQ(All(effects.effectCount, effects.masterSwitch, effects.isPending[0]), All(1, 1, true));
    const ShadowSettings& s = effects.dropShadow;
    EXPECT_EQ(All(s.enabled, s.useGlobalLight, s.contourAntiAlias, s.layerConceals),
              All(true, true, true, true));
    EXPECT_EQ((Values{s.blendMode, s.color, s.opacity, s.angleDegrees, s.distance, s.spreadPercent, s.size,
                      s.noisePercent}),
              (Values{kBlendMultiply, 0xFF0180FF, 191, -60, kMaxEffectDistance, 30, kMaxEffectSize, 0}));
}

TEST(ObjectEffects, ReadWhatPaintsAndWhatShapes) {
    tools::Items bevel, stroke;
    bevel.Choice("bvlS", "none").Choice("bvlT", "Slmt").Choice("bvlD", "Out ").Percent("srgR", 5000);
    bevel.Angle("Angl", 11).Angle("lagl", 77.7).Angle("Angl", 12).Angle("Lald", 120).Pixels("Sftn", -4);
    bevel.Flag("antialiasGloss").Flag("useShape").Flag("useTexture").Percent("textureDepth", -2000);
    bevel.Percent("Scl ", 0).Flag("Algn", false).Offset("phase", 2.5, -3);
    stroke.Percent("Scl ", 33.3).Choice("gradientsInterpolationMethod", "Lnr ");
    stroke.Choice("Type", "shapeburst").Offset("phase", 1.5, 2);
    const auto gradient = tools::Items().Choice("gs99", "Smoo").Percent("Scl ", 9999);
    const auto pattern = tools::Items().Flag("Algn", false).Offset("phase", 7, 8.25).Angle("Angl", 0.5);
    const std::vector<tools::EffectItems> effects = {
        {"ebbl", bevel}, {"FrFX", stroke}, {"GrFl", gradient}, {"patternFill", pattern}};
    BlockRead read("lfx2", ByteWriter().Raw(tools::EffectsBlock(effects)));
    const BevelSettings& b = read.Get().bevel;
    EXPECT_EQ(All(b.style, b.technique, b.directionDown, b.angleDegrees, b.altitudeDegrees),
              All(BevelSettings::kOtherStyle, BevelSettings::kChiselSoft, true, 77, 90));
    EXPECT_EQ(All(b.depthPercent, b.soften, b.textureDepthPercent, b.rangePercent), All(1000, 0, -1000, 100));
    EXPECT_EQ(All(b.glossAntiAlias, b.useContour, b.useTexture, b.textureLinked, b.textureScalePercent,
                  b.texturePhase.horizontal),
              All(true, true, true, false, 1, 2.5));
    const StrokeSettings& s = read.Get().stroke;
    EXPECT_EQ(All(s.scalePercent, s.method, s.linked, s.style, s.phase.horizontal),
              All(33.3, GradientMethod::kLinearLight, true, GradientStyle::kShapeBurst, 1.5));
    const GradientOverlaySettings& g = read.Get().gradientOverlay;
    EXPECT_EQ(All(g.method, g.scalePercent, g.align), All(GradientMethod::kPerceptual, 1000, true));
    const PatternOverlaySettings& p = read.Get().patternOverlay;
    EXPECT_EQ(All(p.linked, p.phase.vertical, p.angleDegrees, p.scalePercent), All(false, 8.25, 0.5, 100));
}

TEST(ObjectEffects, FindTheirSlots) {
    ByteWriter block = ObjectEffects(10);
    for (const char* key : {"DrSh", "IrSh", "IrGl", "ChFX", "SoFi", "GrFl", "patternFill", "FrFX", "ebbl"})
        Object(block, key, key, 1).Bool("enab", true);
    Object(block, "OrGl", "OrGl", 2);
    BlockRead read("lfx2", block.Unit("Inpr", "#Prc", 250).Long("else", 1));
    EXPECT_EQ(read.Get().effectCount, 10);
    for (const bool present : read.Get().present) EXPECT_TRUE(present);
    EXPECT_EQ(All(read.Get().outerGlow.rangePercent, Position(read.document)), All(100, block.size()));
}

TEST(ObjectEffects, ColorClassesGoThroughTheSingleColorConversions) {
    using Parts = std::vector<std::pair<std::string_view, double>>;
    const std::tuple<std::string_view, Parts, uint32_t> cases[] = {
        {"CMYC", {{"Cyn ", 0}, {"Mgnt", 100}, {"Ylw ", 0}, {"Blck", 0}}, 0xFFFF00FF},
        {"HSBC", {{"H   ", 120}, {"Strt", 100}, {"Brgh", 50}}, 0xFF00FF00},
        {"LbCl", {{"Lmnc", 0}, {"A   ", 0}, {"B   ", 0}}, 0xFF000000},
        {"Grsc", {{"Gry ", 100}}, 0xFF000000},
        {"RGBC", {{"redFloat", 1}, {"greenFloat", 0.5}, {"blueFloat", 7}}, 0xFFFF80FF},
        {"RGBC", {{"redFloat", 1}, {"Rd  ", 9}, {"Bl  ", 3}}, 0xFF090003},
        {"none", {{"Gry ", 0}}, 0},
    };
    for (const auto& [classId, parts, want] : cases) {
        ByteWriter fill = Descriptor(1);
        Object(fill, "Clr ", classId, static_cast<uint32_t>(parts.size()));
        for (const auto& [key, value] : parts) fill.Double(key, value);
        BlockRead read("SoCo", fill);
        EXPECT_EQ(read.Get<SolidFill>(kPropertySolidFill).color, want) << classId;
        EXPECT_EQ(Position(read.document), fill.size()) << classId;
    }
}

TEST(OldEffects, ReadsEveryBlockToTheEndThatItsSizeStates) {
    const auto color = [](uint32_t red) {
        return ByteWriter().U16(0).U16(red << 8).U16((red + 1) << 8).U16((red + 2) << 8).U16(0);
    };
    ByteWriter shadow, glow, solid;
    shadow.Fixed(7.9).Fixed(35).Fixed(120).Fixed(11).Raw(color(1)).Text("8BIMmul ").U8(1).U8(1).U8(200);
    glow.Fixed(5).Fixed(101).Raw(color(4)).Text("8BIMscrn").U8(1).U8(90);
    solid.Text("8BIMdiff").Raw(color(13)).U8(77).U8(1);
    for (const bool newer : {false, true}) {
        const size_t native = newer ? 10 : 0;
        ByteWriter block;
        // The fields of a block stand behind its size and version.
        const auto add = [&](std::string_view key, const ByteWriter& fields, size_t extra) {
            block.Text("8BIM").Text(key).U32(static_cast<uint32_t>(4 + fields.size() + extra));
            block.U32(newer && key != "cmnS" ? 2 : 0).Raw(fields).Zeros(extra);
        };
        block.U16(0).U16(7);
        add("cmnS", ByteWriter().U8(1).U16(0), 0);
        for (const char* key : {"dsdw", "isdw"}) add(key, shadow, native);
        add("oglw", glow, native);
        add("iglw", ByteWriter(glow).Zeros(newer), native);
        add("bevl", ByteWriter().Zeros(12).Text("8BIMscrn8BIMmul ").Zeros(26), 2 * native);
        add("sofi", solid, native + 3);
        BlockRead read("lrFX", ByteWriter(block).Zeros(5));
        EXPECT_EQ(Position(read.document), block.size());
        const EffectsRecord& effects = read.Get(kPropertyOldEffects);
        const ShadowSettings& s = effects.dropShadow;
        EXPECT_EQ((Values{effects.effectCount, s.size, s.spreadPercent, s.angleDegrees, s.distance, s.color,
                          s.blendMode, s.useGlobalLight, s.opacity, effects.outerGlow.spreadPercent,
                          effects.colorOverlay.color}),
                  (Values{7, 7, 35, 120, 11, 0xFF010203, kBlendMultiply, 1, 200, 100, 0xFF0D0E0F}));
    }
}

// Blur and strength in pixels; the style has numbers of its own, and half of an emboss lies on each side.
TEST(OldEffects, BevelsAreStoredInTheirOwnUnits) {
    const struct {
        double strength, blur;
        uint8_t style;
        BevelSettings::Style want;
        int depth, size;
    } cases[] = {
        {5, 10, 2, BevelSettings::kInner, 50, 10},     {9.9, 3.4, 1, BevelSettings::kOuter, 291, 3},
        {7, 40, 3, BevelSettings::kEmboss, 35, 80},    {-2, 7, 4, BevelSettings::kPillowEmboss, 0, 14},
        {4, 0, 0, BevelSettings::kOtherStyle, 100, 0}, {900, 1, 5, BevelSettings::kOtherStyle, 1000, 1}};
    for (const auto& test : cases) {
        ByteWriter fields = ByteWriter().U32(2).Fixed(110).Fixed(test.strength).Fixed(test.blur);
        fields.Text("8BIMscrn8BIMmul ").Zeros(20).U8(test.style).U8(190).U8(90).U8(1).U8(0).U8(1);
        BlockRead read("lrFX", ByteWriter().U16(0).U16(1).Text("8BIMbevl").Counted(fields));
        const BevelSettings& b = read.Get(kPropertyOldEffects).bevel;
        EXPECT_EQ(All(b.style, b.depthPercent, b.size), All(test.want, test.depth, test.size))
            << int{test.style};
        EXPECT_EQ(All(b.enabled, b.directionDown, b.highlightOpacity, b.altitudeDegrees),
                  All(true, true, 190, 30));
    }
}

ByteWriter Hue(const Numbers& master, const Numbers& reds) {
    ByteWriter out =
        Words({2, 0, 0, 0, 0}).Raw(Words(master)).Raw(Words({315, 345, 15, 45})).Raw(Words(reds));
    return out.Zeros(5 * 14);
}
// Stops of location, midpoint and 24-bit colour.
ByteWriter GradientMap(int reverse, const std::vector<std::array<int, 3>>& stops) {
    ByteWriter out = Words({1, reverse << 8, 0, 0, static_cast<int>(stops.size())});
    for (const auto& [location, midpoint, rgb] : stops) {
        out.I32(location).I32(midpoint).U16(0);
        for (const int shift : {16, 8, 0}) out.I16((rgb >> shift & 255) << 8);
        out.U32(0);
    }
    return out.Zeros(60);
}

TEST(Adjustments, TurnPixelsIntoOthers) {
    const std::vector<std::array<int, 3>> stops = {{160, 25, 0xFF0000}, {800, 50, 0xFF}, {4000, 500, 0xFE}};
    const std::vector<std::array<int, 3>> mixedStops = {stops[0], {-1, 50, 0xFF}, {320, 500, 0xFE}};
    const Numbers none = {0, 0, 0};
    const Numbers wave = {30, 20, 200, 100, 90, 160, 250, 240}, invert = {255, 0, 0, 255},
                  half = {0, 0, 127, 255};
    const Numbers rows = {50, 50, 50, 100, 1, 0, 100, 0, 0, 0, -200, 0, 300, 0, -33};
    const struct {
        std::string_view key;
        ByteWriter block;
        std::vector<std::pair<uint32_t, uint32_t>> pixels;  // before and after
        uint32_t mode = kColorRgb;
    } cases[] = {
        {"brit", Words({30, 0, 127, 0}), {{0x123456, 0x123456}}},
        {"brit", Words({50, -50, 100, 0}), {{0x004080, 0x808D9A}, {0xC0E0FF, 0xA7AEB4}}},
        {"brit", Words({-50, 25, 100, 0}), {{0x004080, 0x000020}, {0xC8E0FF, 0x566880}}},
        {"levl",
         Levels({{50, 150, 0, 255, 100},
                 {0, 255, 255, 0, 100},
                 {0, 255, 0, 255, 200},
                 {128, 128, 20, 300, 100}}),
         {{0x323232, 0xFF0014},
          {0x505050, 0xB48B14},
          {0x646464, 0x81B414},
          {0x656565, 0x7EB6FF},
          {0x969696, 0x01FFFF}}},
        {"levl", Levels({{0, 255, 0, 255, 0}}), {{0x00FEFF, 0x0000FF}}},
        {"levl", Levels({{100, 100, 0, 255, 300}}), {{0x6465FF, 0x00FFFF}}},
        {"levl",
         Levels({{0, 255, 0, 254, 100}}),
         {{0x7F8081, 0x7F8080}}},  // 128 * 254 is half away from 127 * 255
        {"levl",
         Levels({{50, 150, 0, 255, 100}, {0, 255, 255, 0, 100}}),
         {{0x646464, 0x7F7F7F}},
         kColorGrayscale},
        // Samples of splines, which have been compared with the cubics evaluated directly.
        {"curv", Curves(1, {wave}), {{0x001314, 0x1E1E1E}, {0x15283C, 0x215284}, {0x506364, 0xAFC8C8}}},
        {"curv", Curves(1, {wave}), {{0xDCEFFF, 0xCBF9FA}}},
        {"curv", Curves(15, {invert, half, {99, 9}, half}), {{0x0009FF, 0x7FF600}, {0xFF0000, 0x00FF7F}}},
        {"curv", Curves(3, {invert, half}), {{0x000000, 0xFF0000}}, kColorGrayscale},
        {"curv", Curves(1, {{300, 400, 9, -1}}), {{0xFEFFFF, 0xFF0909}}},  // both fall on the last column
        // The hump is 0.667 at 127 and -0.0105 at 255; the fading curve 0.075 at its foot, 0.963 at 127, and
        // for the highlights 1.075 - 1 / (61 / 16 + 1) = 0.867.
        {"blnc",
         Words({100, -100, 0, 0, 0, -100, 0, 0, 100, 0}),
         {{0x7F7F7F, 0xC11F93}, {0xFFFF00, 0xFEF807}}},
        {"post", Words({2, 0}), {{0x3F40BF, 0x008080}, {0xC000FF, 0xFF00FF}}},
        {"post", Words({4, 0}), {{0x1F205F, 0x004040}, {0x60A0DF, 0x80BFBF}, {0x9FE0FF, 0x80FFFF}}},
        {"post", Words({-1, 0}), {{0x123456, 0x123456}}},
        {"hue2", Hue(none, none), {{0x123457, 0x123457}}},
        {"hue2", Hue({120, 0, 0}, none), {{0xFF0000, 0x01FF01}}},  // S 254, L 128: high 255, low 1
        {"hue2", Hue({0, 0, 100}, none), {{0x404040, 0x808080}, {0xFF8080, 0xFFFEFE}}},  // high 256, low 254
        {"thrs", Words({128, 0}), {{0x808080, 0xFFFFFF}, {0x7F7F7F, 0}}},
        {"thrs", Words({76, 0}), {{0xFF0000, 0xFFFFFF}, {0x0000FF, 0}, {0x00FF00, 0xFFFFFF}}},
        {"mixr", Words({1, 0}).Raw(Words(rows, 10)), {{0x010305, 0x050300}, {0x10FFFF, 0xFFFFFF}}},
        {"mixr", Words({1, 1}).Raw(Words(rows, 10)), {{0x010305, 0x050505}}},
        {"grdm", GradientMap(0, {}), {{0x777777, 0}}},
        // 15 is halfway to the average: 255 - 64, 0 + 63; 35 is 127 - 127 * 15 / 30, 127 + 128 * 15 / 30.
        {"grdm", GradientMap(0, stops), {{0x090909, 0xFF0000}, {0x0A0A0A, 0xFF0000}, {0x0F0F0F, 0xBF003F}}},
        {"grdm", GradientMap(0, stops), {{0x141414, 0x7F007F}, {0x232323, 0x4000BF}, {0x323232, 0x0000FF}}},
        {"grdm", GradientMap(1, stops), {{0xF0F0F0, 0xBF003F}, {0, 0x0000FE}}},
        {"grdm", GradientMap(0, mixedStops), {{0x131313, 0xED0012}, {0xC8C8C8, 0x0000FE}}},  // 9 of 61 steps
    };
    for (const auto& [key, block, pixels, mode] : cases) {
        BlockRead over(key, block);
        ASSERT_EQ(over.result, PsdReadResult::kOk);
        over.document.width = over.document.height = 1;
        over.document.colorMode = mode;
        over.document.canvas = AllocateZeroed<uint32_t>({1});
        for (const auto& [before, after] : pixels) {
            over.document.canvas[0] = 0x9A000000 | before;
            ASSERT_TRUE(ApplyAdjustment(over.document, over.layer, {0, 0, 1, 1}));
            EXPECT_EQ(over.layer.image[0], 0x9A000000 | after)
                << key << std::hex << ' ' << before << ' ' << over.layer.image[0];
        }
    }
}

// The rule in its plainest form, one class after another.
uint32_t SelectivePlainly(const SelectiveRecord& record, uint32_t pixel) {
    const PlainColor rgb = ColorOf(pixel);
    const int black = 255 - std::max({rgb.c[0], rgb.c[1], rgb.c[2]}), hue = PlainToHsl(rgb).c[0];
    int ink[4] = {0, 0, 0, black};
    for (int i = 0; i < 3 && black < 255; ++i) ink[i] = (255 - rgb.c[i] - black) * 255 / (255 - black);
    int sum[4] = {ink[0], ink[1], ink[2], ink[3]};
    const auto add = [&](const InkAdjustment& change, int weight, int divisor) {
        const int values[4] = {change.cyan, change.magenta, change.yellow, change.black};
        for (int i = 0; i < 4; ++i) sum[i] += values[i] * weight * (record.absolute ? 255 : ink[i]) / divisor;
    };
    for (int i = 0; i < 6; ++i) {
        const int into = hue - (15 + 60 * i - 60);
        if (into < 0 || into >= 90) continue;
        add(record.inks[1 + i], std::min({into * 255 / 30, 255, (90 - into) * 255 / 30}), 25500);
    }
    add(record.inks[black == 0 ? 7 : black < 255 ? 8 : 9], 1, 100);
    for (int& value : sum) value = std::clamp(value, 0, 255);
    const auto back = [&](int i) {
        return static_cast<uint32_t>((65535 - (255 - sum[3]) * sum[i] - 256 * sum[3]) >> 8);
    };
    return PackPixel(Alpha(pixel), back(0), back(1), back(2));
}

uint32_t HuePlainly(const HueRecord& record, uint32_t pixel) {
    const PlainColor hsl = PlainToHsl(ColorOf(pixel));
    int sums[] = {record.master.hue, record.master.saturation, record.master.lightness};
    for (size_t r = 0; r < HueRecord::kRangeCount; ++r) {
        const HueSettings& range = record.ranges[r].settings;
        const int values[] = {range.hue, range.saturation, range.lightness};
        for (int i = 0; i < 3; ++i) sums[i] += values[i] * record.weights[r][size_t(hsl.c[0])] / 255;
    }
    if (sums[0] == 0 && sums[1] == 0 && sums[2] == 0) return pixel;
    const auto scaled = [&](int i) {
        return std::clamp(hsl.c[i] + std::clamp(sums[i], -100, 100) * hsl.c[i] / 100, 0, 255);
    };
    const PlainColor rgb = PlainToRgb({{(hsl.c[0] + 2160 + sums[0]) % 360, scaled(1), scaled(2)}});
    const auto byte = [&](int i) { return static_cast<uint32_t>(std::clamp(rgb.c[i], 0, 255)); };
    return PackPixel(Alpha(pixel), byte(0), byte(1), byte(2));
}

// The kernels of both instruction sets over many colours.
template <class Map, auto Kernels::*mapRow, class Record, class Plain>
void ExpectMapped(const Record& record, Plain plain) {
    std::vector<uint32_t> colors(52 * 52 * 52), mapped(colors.size());
    for (uint32_t i = 0; i < colors.size(); ++i)
        colors[i] = PackPixel(i & 255, i % 52 * 5, i / 52 % 52 * 5, i / (52 * 52) * 5);
    for (const Kernels* kernels : {&sse2::kKernels, &WidestKernels()}) {
        (kernels->*mapRow)(Map(record), colors.data(), mapped.data(), colors.size());
        for (size_t i = 0; i < colors.size(); ++i)
            ASSERT_EQ(mapped[i], plain(record, colors[i])) << std::hex << colors[i];
    }
}

TEST(AdjustmentMaps, FollowThePlainRules) {
    for (const HueSettings& master :
         {HueSettings{0, 0, 0}, {40, 30, -20}, {-1170, -90, 101}, {719, 250, -250}}) {
        HueRecord record;
        record.master = master;
        record.ranges[0] = {315, 345, 15, 45, {20, -40, 30}};
        record.ranges[1] = {50, 50, 50, 50, {1, 1, 1}};  // nothing
        record.ranges[3] = {75, 105, 135, 165, {-90, 60, -10}};
        BuildHueWeights(record);
        EXPECT_EQ(record.weights[1], HueWeights{});
        const HueWeights& reds = record.weights[0];  // half on the way up and down, full across 0
        EXPECT_EQ(All(reds[330], reds[350], reds[0], reds[30], reds[100]), All(127, 255, 255, 127, 0));
        ExpectMapped<HueMap, &Kernels::mapHueRow>(record, HuePlainly);
    }
    for (const int scale : {1, -1, 400}) {
        SelectiveRecord record;
        record.absolute = scale < 0;
        for (int i = 0; i < 10; ++i) {
            if (i == 2) continue;  // a class that is skipped
            record.inks[i] = {int16_t(scale * (i * 17 % 83 - 40)), int16_t(scale * (i * 29 % 79 - 35)),
                              int16_t(scale * (30 - i * 13 % 71)), int16_t(scale * (i * 7 % 61 - 30))};
        }
        ExpectMapped<SelectiveMap, &Kernels::mapSelectiveRow>(record, SelectivePlainly);
    }
}

// A 4 x 3 document whose canvas pixels differ in alpha and colour, and one layer.
struct Scene {
    explicit Scene(uint32_t layerKind, uint32_t mode = kColorRgb) {
        document.width = 4, document.height = 3, document.colorMode = mode;
        document.canvas = AllocateZeroed<uint32_t>({4, 3});
        for (uint32_t i = 0; i < 12; ++i) document.canvas[i] = i * 20 << 24 | (0x102030 + i);
        layer.layerKind = layerKind, layer.rebuildTables = true;
    }
    bool Apply(const Rect& area = {0, 0, 4, 3}) { return ApplyAdjustment(document, layer, area); }
    PsdDocument document;
    PsdLayer layer;
};

TEST(ApplyAdjustment, RecoloursTheAreaInsideTheLayerAndKeepsAlpha) {
    const std::tuple<Rect, Rect, const char*> cases[] = {
        // the layer and what it becomes, which is all when it has no pixels; letters for those of the canvas
        {{-2, -1, 3, 2}, {-2, -1, 3, 2}, "...../...bc/...fg"},
        {{2, 1, 6, 4}, {2, 1, 6, 4}, "g.../k.../...."},
        {{4, 0, 9, 3}, {4, 0, 9, 3}, "...../...../....."},
        {{7, 7, 7, 7}, {0, 0, 4, 3}, ".bc./.fg./.jk."},
    };
    for (const auto& [bounds, after, picture] : cases) {
        Scene scene(kLayerInvert);
        PsdLayer& layer = scene.layer;
        layer.bounds = bounds;
        layer.width = static_cast<int32_t>(bounds.Width());
        layer.height = static_cast<int32_t>(bounds.Height());
        if (layer.width)
            layer.image = AllocateZeroed<uint32_t>({uint64_t(layer.width), uint64_t(layer.height)});
        ASSERT_TRUE(scene.Apply({1, 0, 3, 3}));
        EXPECT_EQ(All(layer.bounds, layer.width, layer.height, layer.rebuildTables),
                  All(after, after.Width(), after.Height(), false));
        std::map<uint32_t, char> letters = {{0, '.'}};
        for (char c = 'a'; c <= 'l'; ++c) letters[scene.document.canvas[size_t(c - 'a')] ^ 0xFFFFFF] = c;
        EXPECT_EQ(TextOf(layer.image.span(), size_t(layer.width), letters), picture);
    }
}

TEST(ApplyAdjustment, KnowsWhatItCannotDraw) {
    const std::tuple<uint32_t, uint32_t, uint32_t, bool> cases[] = {
        {kLayerLevels, kPropertyLevels, kColorGrayscale, true},
        {kLayerLevels, kPropertyLevels, kColorCmyk, false},
        {kLayerLevels, kPropertyCurves, kColorRgb, false},
        {kLayerMixer, kPropertyMixer, kColorGrayscale, false},
        {kLayerPhotoFilter, kPropertyPhotoFilter, kColorRgb, false},
        {kLayerInvert, kPropertyTypeTool, kColorLab, true},
    };
    for (const auto& [kind, code, mode, drawn] : cases) {
        Scene scene(kind, mode);
        AppendProperty<LevelsRecord>(scene.layer, code);
        EXPECT_EQ(scene.Apply(), drawn) << kind;
        ASSERT_EQ(scene.layer.image.count(), 12u) << kind;
        EXPECT_EQ(All(scene.layer.rebuildTables, scene.layer.image[5] != 0), All(!drawn, drawn)) << kind;
    }
}

TEST(ApplyAdjustment, BuildsTablesOnceFromTheFirstRecord) {
    Scene scene(kLayerPosterize);
    auto* first = AppendProperty<PosterizeRecord>(scene.layer, kPropertyPosterize);
    AppendProperty<PosterizeRecord>(scene.layer, kPropertyPosterize)->levels = 1;
    for (const uint16_t later : {uint16_t{255}, uint16_t{0}}) {
        first->levels = later;
        ASSERT_TRUE(scene.Apply());
        EXPECT_EQ(scene.layer.image[3], scene.document.canvas[3]);
    }
}

}  // namespace
}  // namespace tessary::test
