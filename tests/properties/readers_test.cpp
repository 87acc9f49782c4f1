#include <gtest/gtest.h>

#include <limits>
#include <tuple>

#include "document/big_endian.h"
#include "document/byte_reader.h"
#include "properties/adjustment_records.h"
#include "properties/effect_records.h"
#include "properties/fill_layers.h"
#include "properties/property_readers.h"
#include "tests/support/document_builder.h"

namespace tessary::test {
namespace {

using Numbers = std::vector<int64_t>;

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

ByteWriter Level(uint32_t floor, uint32_t ceiling, uint32_t outFloor, uint32_t outCeiling, uint32_t gamma) {
    return ByteWriter().U16(floor).U16(ceiling).U16(outFloor).U16(outCeiling).U16(gamma);
}

ByteWriter Levels(uint32_t version, const Bytes& extra = {}) {
    ByteWriter levels;
    levels.U16(version);
    for (uint32_t i = 0; i < 29; ++i) levels.Raw(Level(i, 255 - i, 1, 254, 100 + i));
    return levels.Raw(extra);
}

// Composite and blue, two points each; `bluePoint` is the input of the last point of blue's second copy.
ByteWriter Curves(uint32_t version, std::string_view signature = "", uint32_t extraVersion = 4,
                  uint32_t count = 2, uint32_t bluePoint = 250) {
    ByteWriter curves;
    curves.U8(0).U16(version).U32(1 << 0 | 1 << 3);
    for (int i = 0; i < 2; ++i) curves.U16(2).U16(10).U16(20).U16(200).U16(250);
    if (signature.empty()) return curves.U32(0);
    curves.Text(signature).U16(extraVersion).U32(count);
    curves.U16(1).U16(2).U16(10).U16(20).U16(200).U16(250);
    return curves.U16(2).U16(2).U16(10).U16(20).U16(200).U16(bluePoint);
}

ByteWriter Descriptor(uint32_t itemCount) { return ByteWriter().U32(16).ClassName("null").U32(itemCount); }
ByteWriter ObjectEffects(uint32_t itemCount) { return ByteWriter().U32(0).Raw(Descriptor(itemCount)); }

ByteWriter& Object(ByteWriter& out, std::string_view key, std::string_view classId, uint32_t itemCount) {
    return out.ItemHead(key, "Objc").ClassName(classId).U32(itemCount);
}

TEST(PropertyReaders, TurnBlocksIntoKindsAndCodes) {
    const Bytes twoLevels = ByteWriter().Text("Lvls").U16(3).U16(31).Raw(Level(9, 8, 7, 6, 50)).Zeros(10);
    const auto extra = [](std::string_view text, uint32_t n) { return ByteWriter().Text(text).U32(n); };
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
        {"levl", Levels(2), 6, 1, 0, true},
        {"levl", Levels(2, twoLevels), 6, 1, 0, true},
        {"levl", Levels(2, extra("Lvls", 3 << 16 | 65535)), 6, 1, 0, true},
        {"levl", Levels(1), 6, 1, -503},
        {"levl", Levels(2, extra("lvls", 0)), 6, 1, -505},
        {"levl", Levels(2), 6, 1, -505, false, 300},
        {"levl", Levels(2), 6, 1, -506, false, 296},
        {"levl", Levels(2, extra("Lvls", 0)), 6, 1, -507},
        {"curv", Curves(4, "Crv "), 7, 2, 0, true},
        {"curv", Curves(1, "Crv ", 4, 2, 251), 7, 2},  // copies that differ
        {"curv", Curves(1, "Crv ", 4, 3), 7, 2},       // a copy too many
        {"curv", Curves(2), 7, 2, -508},
        {"curv", Curves(1, "Crv_"), 7, 2, -509},
        {"curv", Curves(1, "Crv ", 3), 7, 2, -510},
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
        {"lfx2", ByteWriter().U32(1).U32(16), 0, kPropertyEffects, -516},
        {"lfx2", ByteWriter().U32(0).U32(15), 0, kPropertyEffects, -516},
        {"lfx2", ObjectEffects(0xFFFFFFFF), 0, kPropertyEffects},
        {"lrFX", v(1, 0), 0, kPropertyOldEffects, -516},
        {"lrFX", v(0, 0).I16(-1), 0, kPropertyOldEffects},
        {"lrFX", old(""), 0, kPropertyOldEffects, -517},
        {"lrFX", old("8B64dsdw"), 0, kPropertyOldEffects, -517},
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
        EXPECT_TRUE(curve.channel == 2 && curve.points[18] == (CurvePoint{18, 180}));
        EXPECT_EQ(read.layer.rebuildTables, !differs);
        EXPECT_EQ(Position(read.document), curves.size() - (differs ? 6 * 4 : 0));
    }
}

TEST(AdjustmentReaders, AFullListDropsTheBlockWhole) {
    BlockRead read("thrs", ByteWriter().U16(1).Zeros(40), 4);
    for (uint32_t i = 0; i < 19; ++i) ASSERT_EQ(read.Read("nvrt", 0), PsdReadResult::kOk);
    const uint32_t before = Position(read.document);
    EXPECT_EQ(read.Read("levl", 292), PsdReadResult::kOk);  // not even its wrong version is seen
    EXPECT_EQ(Position(read.document), before);
    EXPECT_TRUE(read.layer.layerKind == kLayerInvert && read.layer.propertyList.count == 20);
}

TEST(ObjectEffects, ReadsADropShadowWhole) {
    ByteWriter block = ObjectEffects(3);
    block.Unit("Scl ", "#Prc", 100).Bool("masterFXSwitch", true);
    Object(block, "DrSh", "DrSh", 13).Bool("enab", true).Enum("Md  ", "BlnM", "Mltp");
    block.ColorItem("Clr ", 1, 127.5, 300).Unit("Opct", "#Prc", 75);
    block.Bool("uglg", true).Unit("lagl", "#Ang", -60.9).Unit("Dstn", "#Pxl", 1e9).Unit("Ckmt", "#Pxl", 30.9);
    block.Unit("blur", "#Pxl", 999).Unit("Nose", "#Prc", std::numeric_limits<double>::quiet_NaN());
    Object(block.Bool("AntA", true), "TrnS", "ShpC", 2).ItemHead("Nm  ", "TEXT").Unicode(u"cone");
    block.ItemHead("Crv ", "VlLs").U32(1).Text("Objc").ClassName("CrPt").U32(3);
    block.Double("Hrzn", 20).Double("Vrtc", 255).Bool("Cnty", false).Bool("layerConceals", true);

    BlockRead read("lfx2", ByteWriter(block).Zeros(9));
    EXPECT_EQ(Position(read.document), block.size());
    const EffectsRecord& effects = read.Get();
    EXPECT_TRUE(effects.effectCount == 1 && effects.masterSwitch == 1 && effects.renderPending[0]);
    const ShadowSettings& s = effects.dropShadow;
    EXPECT_TRUE(s.enabled && s.useGlobalLight && s.contourAntiAlias && s.layerConceals);
    EXPECT_EQ((Numbers{s.blendMode, s.color, s.opacity, s.angleDegrees, s.distance, s.spreadPercent, s.size,
                       s.noisePercent}),
              (Numbers{kBlendMultiply, 0xFF0180FF, 191, -60, kMaxEffectDistance, 30, kMaxEffectSize, 0}));
    ASSERT_EQ(s.contour.points.count, 1u);
    const auto& point = s.contour.points.items[0];
    EXPECT_TRUE(point.x == 20 && point.y == 255 && !point.isSmooth);
}

TEST(ObjectEffects, FindTheirSlotsAndKeepGradients) {
    ByteWriter block = ObjectEffects(10);
    for (const char* key : {"DrSh", "IrSh", "IrGl", "ChFX", "SoFi", "GrFl", "patternFill", "FrFX", "ebbl"})
        Object(block, key, key, 1).Bool("enab", true);
    Object(block, "OrGl", "OrGl", 3).ColorItem("Clr ", 255, 255, 0);
    Object(block, "Grad", "Grdn", 3).Enum("GrdF", "GrdF", "CstS").Double("Intr", 4096);
    block.ItemHead("Clrs", "VlLs").U32(1).Text("Objc").ClassName("Clrt").U32(4);
    block.ColorItem("Clr ", 10, 20, 30).Enum("Type", "Clry", "FrgC").Long("Lctn", 9999).Long("Mdpn", 40);
    BlockRead read("lfx2", block.Unit("Inpr", "#Prc", 250));
    EXPECT_EQ(read.Get().effectCount, 10);
    for (const bool present : read.Get().present) EXPECT_TRUE(present);
    EXPECT_EQ(Position(read.document), block.size());
    const GlowSettings& glow = read.Get().outerGlow;
    ASSERT_EQ(glow.gradient.colorStops.count, 1u);
    const GradientColorStop& stop = glow.gradient.colorStops.items[0];
    EXPECT_EQ((Numbers{glow.useGradient, glow.color, glow.rangePercent, stop.color, stop.location}),
              (Numbers{true, 0xFFFFFF00, 100, 0xFF0A141E, 4096}));
}

TEST(ObjectEffects, ColorClassesGoThroughTheSingleColorConversions) {
    using Parts = std::vector<std::pair<std::string_view, double>>;
    const std::tuple<std::string_view, Parts, uint32_t> cases[] = {
        {"CMYC", {{"Cyn ", 0}, {"Mgnt", 100}, {"Ylw ", 0}, {"Blck", 0}}, 0xFFFF00FF},
        {"HSBC", {{"H   ", 120}, {"Strt", 100}, {"Brgh", 50}}, 0xFF00FF00},
        {"LbCl", {{"Lmnc", 0}, {"A   ", 0}, {"B   ", 0}}, 0xFF000000},
        {"Grsc", {{"Gry ", 100}}, 0xFF000000},
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
        const GlowSettings& g = effects.outerGlow;
        const ColorOverlaySettings& overlay = effects.colorOverlay;
        EXPECT_EQ((Numbers{effects.effectCount, effects.masterSwitch, s.size, s.spreadPercent, s.angleDegrees,
                           s.distance, s.color, s.blendMode, s.enabled, s.useGlobalLight, s.opacity,
                           g.spreadPercent, g.color, g.opacity, overlay.color, overlay.opacity}),
                  (Numbers{7, 1, 7, 35, 120, 11, 0xFF010203, kBlendMultiply, 1, 1, 200, 100, 0xFF040506, 90,
                           0xFF0D0E0F, 77}));
    }
}

TEST(Fills, SettingsAndDefaultsAreKept) {
    BlockRead plain("GdFl", Descriptor(0));
    const auto& defaults = plain.Get<GradientFill>(kPropertyGradientFill);
    EXPECT_TRUE(defaults.align && defaults.scalePercent == 100);
    ByteWriter items = Descriptor(3);
    BlockRead full("GdFl", items.Bool("Algn", false).Unit("Angl", "#Ang", 45.5).Enum("Type", "GrdT", "Rflc"));
    const auto& fill = full.Get<GradientFill>(kPropertyGradientFill);
    EXPECT_TRUE(!fill.align && fill.angleDegrees == 45.5 && fill.style == GradientStyle::kReflected);
}

}  // namespace
}  // namespace tessary::test
