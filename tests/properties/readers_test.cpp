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
        {"levl", Levels(2, Bytes(4)), 6, 1, 0, true},
        {"levl", Levels(2, twoLevels), 6, 1, 0, true},
        {"levl", Levels(2, extra("Lvls", 3 << 16 | 65535)), 6, 1, 0, true},
        {"levl", Levels(1), 6, 1, -503},
        {"levl", Levels(2, extra("lvls", 0)), 6, 1, -505},
        {"levl", Levels(2), 6, 1, -505, false, 300},
        {"levl", Levels(2), 6, 1, -506, false, 290},
        {"levl", Levels(2), 6, 1, -506, false, 296},
        {"levl", Levels(2, extra("Lvls", 0)), 6, 1, -507},
        {"curv", Curves(1), 7, 2, 0, true},
        {"curv", Curves(4, "Crv "), 7, 2, 0, true},
        {"curv", Curves(1, "Crv ", 4, 2, 251), 7, 2},  // copies that differ
        {"curv", Curves(1, "Crv ", 4, 3), 7, 2},       // a copy too many
        {"curv", Curves(2), 7, 2, -508},
        {"curv", Curves(1, "Crv_"), 7, 2, -509},
        {"curv", Curves(1, "Crv ", 3), 7, 2, -510},
        {"curv", ByteWriter().U8(0).U16(1).U32(0xFFFFFFFF).U16(65535).U16(1), 7, 2, 0, true},
        {"brit", v(0, 6), 8, 3, 0, true},
        {"blnc", v(0, 18), 9, 4, 0, true},
        {"hue2", v(2, 100), 10, 5, 0, true},
        {"hue2", v(0, 100), 10, 5, -511},
        {"selc", v(1, 82), 11, 6, 0, true},
        {"selc", v(0, 82), 11, 6, -512},
        {"thrs", v(0, 2), 12, 7, 0, true},
        {"nvrt", {}, 13, 8, 0, true},
        {"post", v(0, 2), 14, 9, 0, true},
        {"mixr", v(1, 42), 15, 10, 0, true},
        {"mixr", v(0, 42), 15, 10, -513},
        {"grdm", v(1, 60), 16, 11, 0, true},
        {"grdm", v(1, 2).U32(0xFFFFFFFF), 16, 11, 0, true},
        {"grdm", v(3, 60), 16, 11, -515},
        {"phfl", v(3, 17), 17, 12, 0, true},
        {"phfl", v(0, 18), 17, 12, 0, true},  // of another version
        {"expA", v(0, 18), 0, 0},
        {"SoCo", Descriptor(0), kLayerSolidFill, kPropertySolidFill},
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
        {"lrFX", old("8BIMds"), 0, kPropertyOldEffects, -518},
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

TEST(AdjustmentReaders, KeepTheFieldsInTheirPlaces) {
    BlockRead levels("levl", Levels(2, ByteWriter().Text("Lvls").U16(3).U16(30).Raw(Level(9, 8, 7, 6, 50))));
    const auto& level = levels.Get<LevelsRecord>(kPropertyLevels);
    EXPECT_TRUE(level.levels[3].inputCeiling == 252 && level.extraLevels[0].gamma == 0.5f);
    EXPECT_FLOAT_EQ(level.levels[28].gamma, 1.28f);

    ByteWriter tones;
    for (int32_t i = 1; i <= 9; ++i) tones.I16(-i);
    BlockRead balance("blnc", tones.U16(0x0100));
    const auto& tone = balance.Get<BalanceRecord>(kPropertyBalance);
    EXPECT_TRUE(tone.cyanRed.highlights == -7 && tone.yellowBlue.midtones == -6);
    EXPECT_FALSE(tone.preserveLuminosity) << "only the low byte is the flag";

    ByteWriter map;
    map.U16(1).U16(0x0100).Unicode(u"ab").U16(1).U32(2048).U32(50).U16(0).U16(0x1234).U16(0x5678).U16(0x9ABC);
    BlockRead mapped("grdm", map.Zeros(4).U16(1).U32(7).U32(8).U16(9).Zeros(52), 200);
    const auto& gradient = mapped.Get<GradientMapRecord>(kPropertyGradientMap);
    EXPECT_TRUE(gradient.reverse && gradient.transparencyStops[0].opacity == 9);
    EXPECT_TRUE(gradient.colorStops[0].location == 2048 && gradient.colorStops[0].color == 0xFF12569A);
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

TEST(ObjectEffects, AllSlotsAreFoundByTheirKeys) {
    const std::pair<const char*, EffectSlot> keys[] = {
        {"DrSh", kSlotDropShadow},      {"IrSh", kSlotInnerShadow},
        {"OrGl", kSlotOuterGlow},       {"IrGl", kSlotInnerGlow},
        {"ChFX", kSlotSatin},           {"SoFi", kSlotColorOverlay},
        {"GrFl", kSlotGradientOverlay}, {"patternFill", kSlotPatternOverlay},
        {"FrFX", kSlotStroke},          {"ebbl", kSlotBevel}};
    for (const auto& [key, slot] : keys) {
        ByteWriter block = ObjectEffects(2);
        Object(block, key, key, 1).Bool("enab", true);
        Object(block, "else", "else", 1).Bool("enab", true);
        BlockRead read("lfx2", block);
        for (uint32_t i = 0; i < kEffectSlotCount; ++i) EXPECT_EQ(read.Get().present[i], i == slot) << key;
        EXPECT_TRUE(read.Get().effectCount == 1 && Position(read.document) == block.size()) << key;
    }
}

TEST(ObjectEffects, GlowsChooseBetweenColorAndGradient) {
    ByteWriter gradient;
    Object(gradient, "Grad", "Grdn", 3).Enum("GrdF", "GrdF", "CstS").Double("Intr", 4096);
    gradient.ItemHead("Clrs", "VlLs").U32(1).Text("Objc").ClassName("Clrt").U32(4);
    gradient.ColorItem("Clr ", 10, 20, 30).Enum("Type", "Clry", "FrgC").Long("Lctn", 9999).Long("Mdpn", 40);
    for (const bool last : {false, true}) {
        ByteWriter block = ObjectEffects(1);
        Object(block, "OrGl", "OrGl", 4).Enum("GlwT", "BETE", "PrBL").Raw(last ? Bytes() : gradient.bytes());
        block.ColorItem("Clr ", 255, 255, 0).Raw(last ? gradient.bytes() : Bytes()).Unit("Inpr", "#Prc", 250);
        BlockRead read("lfx2", block);
        const GlowSettings& glow = read.Get().outerGlow;
        ASSERT_EQ(glow.gradient.colorStops.count, 1u);
        const GradientColorStop& stop = glow.gradient.colorStops.items[0];
        const Numbers numbers = {glow.useGradient, glow.color, glow.technique, glow.rangePercent,
                                 stop.color,       stop.kind,  stop.location,  stop.midpoint};
        EXPECT_EQ(numbers, (Numbers{last, 0xFFFFFF00, GlowSettings::kPrecise, 100, 0xFF0A141E,
                                    GradientColorStop::kForegroundColor, 4096, 40}));
    }
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

ByteWriter& RgbStructure(ByteWriter& out, uint32_t red) {
    return out.U16(0).U16(red << 8).U16((red + 1) << 8).U16((red + 2) << 8).U16(0);
}

TEST(OldEffects, ReadsEveryBlockToTheEndThatItsSizeStates) {
    ByteWriter shadow, glow, bevel, solid;
    RgbStructure(shadow.Fixed(7.9).Fixed(35).Fixed(120).Fixed(11), 1).Text("8BIMmul ").U8(1).U8(1).U8(200);
    RgbStructure(glow.Fixed(5).Fixed(101), 4).Text("8BIMscrn").U8(1).U8(90);
    bevel.Fixed(30).Fixed(3).Fixed(6).Text("8BIMscrn8BIMmul ");
    RgbStructure(RgbStructure(bevel, 7), 10).U8(2).U8(101).U8(102).U8(1).U8(0).U8(1);
    RgbStructure(solid.Text("8BIMdiff"), 13).U8(77).U8(1);
    for (const bool newer : {false, true}) {
        const size_t native = newer ? 10 : 0;
        ByteWriter block, innerGlow = glow;
        if (newer) innerGlow.U8(1);
        // The fields of a block stand behind its size and version.
        const auto add = [&](std::string_view key, const ByteWriter& fields, size_t extra, uint32_t version) {
            block.Text("8BIM").Text(key).U32(static_cast<uint32_t>(4 + fields.size() + extra)).U32(version);
            block.Raw(fields).Zeros(extra);
        };
        block.U16(0).U16(7);
        add("cmnS", ByteWriter().U8(1).U16(0), 0, 0);
        for (const char* key : {"dsdw", "isdw"}) add(key, shadow, native, newer * 2u);
        add("oglw", glow, native, newer * 2u);
        add("iglw", innerGlow, native, newer * 2u);
        add("bevl", bevel, 2 * native, newer * 2u);
        add("sofi", solid, native + 3, newer * 2u);
        BlockRead read("lrFX", ByteWriter(block).Zeros(5));
        EXPECT_EQ(Position(read.document), block.size());
        const EffectsRecord& effects = read.Get(kPropertyOldEffects);
        EXPECT_TRUE(effects.effectCount == 7 && effects.masterSwitch == 1);
        for (const ShadowSettings& s : {std::cref(effects.dropShadow), std::cref(effects.innerShadow)}) {
            EXPECT_EQ((Numbers{s.size, s.spreadPercent, s.angleDegrees, s.distance, s.color, s.blendMode,
                               s.enabled, s.useGlobalLight, s.opacity}),
                      (Numbers{7, 35, 120, 11, 0xFF010203, kBlendMultiply, 1, 1, 200}));
        }
        const GlowSettings& glowing = effects.outerGlow;
        const BevelSettings& b = effects.bevel;
        const ColorOverlaySettings& overlay = effects.colorOverlay;
        EXPECT_EQ(
            (Numbers{glowing.spreadPercent, glowing.color, glowing.opacity, effects.innerGlow.fromCenter,
                     b.style, b.highlightColor, b.shadowColor, b.highlightOpacity, b.shadowOpacity,
                     b.directionDown, b.useGlobalLight, overlay.color, overlay.opacity, overlay.enabled}),
            (Numbers{100, 0xFF040506, 90, newer, BevelSettings::kEmboss, 0xFF070809, 0xFF0A0B0C, 101, 102, 1,
                     0, 0xFF0D0E0F, 77, 1}));
        for (const uint32_t slot : {0u, 1u, 2u, 3u, 5u, 9u}) EXPECT_TRUE(effects.renderPending[slot]) << slot;
    }
}

TEST(Fills, SettingsAndDefaultsAreKept) {
    BlockRead plain("GdFl", Descriptor(0));
    const auto& defaults = plain.Get<GradientFill>(kPropertyGradientFill);
    EXPECT_TRUE(defaults.align && defaults.scalePercent == 100);

    ByteWriter items = Descriptor(7), pattern = Descriptor(1);
    items.Bool("Algn", false).Unit("Angl", "#Ang", 45.5).Bool("Dthr", true).Bool("Rvrs", true);
    Object(items.Unit("Scl ", "#Prc", 150.9).Enum("Type", "GrdT", "Rflc"), "Ofst", "Pnt ", 2);
    BlockRead full("GdFl", items.Unit("Hrzn", "#Prc", 5).Unit("Vrtc", "#Prc", -5));
    const auto& fill = full.Get<GradientFill>(kPropertyGradientFill);
    EXPECT_TRUE(!fill.align && fill.dither && fill.reverse && fill.angleDegrees == 45.5);
    EXPECT_TRUE(fill.scalePercent == 150 && fill.style == GradientStyle::kReflected &&
                fill.offset.vertical == -5);

    Object(pattern, "Ptrn", "Ptrn", 1).ItemHead("Idnt", "TEXT").Unicode(u"ab");
    BlockRead patterned("PtFl", pattern);
    EXPECT_EQ(patterned.Get<PatternFill>(kPropertyPatternFill).pattern.identifier.length, 2u);
}

}  // namespace
}  // namespace tessary::test
