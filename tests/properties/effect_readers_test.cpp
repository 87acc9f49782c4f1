#include <gtest/gtest.h>

#include "document/byte_reader.h"
#include "properties/effect_blocks.h"
#include "properties/effect_records.h"
#include "properties/effect_settings.h"
#include "properties/fill_layers.h"
#include "tests/support/document_builder.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {
namespace {

struct BlockRead {
    BlockRead(const Bytes& block, PsdReadResult (*read)(PsdDocument&, PsdLayer&)) : stream(block) {
        document.reader.stream = &stream;
        result = read(document, layer);
    }
    MemoryStream stream;
    PsdDocument document;
    PsdLayer layer;
    PsdReadResult result;
};

ByteWriter Descriptor(uint32_t itemCount) { return ByteWriter().U32(16).ClassName("null").U32(itemCount); }
ByteWriter ObjectEffects(uint32_t itemCount) { return ByteWriter().U32(0).Raw(Descriptor(itemCount)); }

ByteWriter& Effect(ByteWriter& out, std::string_view key, uint32_t itemCount) {
    return out.ItemHead(key, "Objc").ClassName(key).U32(itemCount);
}

ByteWriter& ContourItem(ByteWriter& out, std::string_view key) {
    out.ItemHead(key, "Objc").ClassName("ShpC").U32(2).ItemHead("Nm  ", "TEXT").Unicode(u"cone");
    out.ItemHead("Crv ", "VlLs").U32(2);
    for (const double x : {0.0, 255.0}) {
        out.Text("Objc")
            .ClassName("CrPt")
            .U32(3)
            .Double("Hrzn", x)
            .Double("Vrtc", 255 - x)
            .Bool("Cnty", false);
    }
    return out;
}

TEST(ObjectEffects, ReadsADropShadowWhole) {
    ByteWriter block = ObjectEffects(3);
    block.Unit("Scl ", "#Prc", 100).Bool("masterFXSwitch", true);
    Effect(block, "DrSh", 13);
    block.Bool("enab", true)
        .Enum("Md  ", "BlnM", "Mltp")
        .ColorItem("Clr ", 1, 127.5, 300)
        .Unit("Opct", "#Prc", 75);
    block.Bool("uglg", true).Unit("lagl", "#Ang", -60.9).Unit("Dstn", "#Pxl", 1e9).Unit("Ckmt", "#Pxl", 30.9);
    block.Unit("blur", "#Pxl", 999).Unit("Nose", "#Prc", std::numeric_limits<double>::quiet_NaN());
    ContourItem(block.Bool("AntA", true), "TrnS").Bool("layerConceals", true);
    const size_t end = block.size();

    BlockRead read(block.Zeros(9), ReadObjectEffects);
    ASSERT_EQ(read.result, PsdReadResult::kOk);
    EXPECT_EQ(Position(read.document), end);
    const auto* effects = FindProperty<EffectsRecord>(read.layer, kPropertyEffects);
    ASSERT_TRUE(effects);
    EXPECT_EQ(effects->effectCount, 1);
    EXPECT_EQ(effects->masterSwitch, 1);
    EXPECT_TRUE(effects->present[kSlotDropShadow] && effects->renderPending[kSlotDropShadow]);
    const ShadowSettings& shadow = effects->dropShadow;
    EXPECT_TRUE(shadow.enabled && shadow.useGlobalLight && shadow.contourAntiAlias && shadow.layerConceals);
    EXPECT_EQ(shadow.blendMode, kBlendMultiply);
    EXPECT_EQ(shadow.color, 0xFF0180FFu);
    EXPECT_EQ(shadow.opacity, 191);
    EXPECT_EQ(shadow.angleDegrees, -60);
    EXPECT_EQ(shadow.distance, kMaxEffectDistance);
    EXPECT_EQ(shadow.spreadPercent, 30);
    EXPECT_EQ(shadow.size, kMaxEffectSize);
    EXPECT_EQ(shadow.noisePercent, 0);
    ASSERT_EQ(shadow.contour.points.count, 2u);
    EXPECT_EQ(shadow.contour.points.items[1].x, 255);
    EXPECT_EQ(shadow.contour.points.items[0].y, 255);
    EXPECT_FALSE(shadow.contour.points.items[0].isSmooth);
}

TEST(ObjectEffects, AllSlotsAreFoundByTheirKeys) {
    const std::pair<std::string_view, EffectSlot> slots[] = {
        {"DrSh", kSlotDropShadow},      {"IrSh", kSlotInnerShadow},
        {"OrGl", kSlotOuterGlow},       {"IrGl", kSlotInnerGlow},
        {"ChFX", kSlotSatin},           {"SoFi", kSlotColorOverlay},
        {"GrFl", kSlotGradientOverlay}, {"patternFill", kSlotPatternOverlay},
        {"FrFX", kSlotStroke},          {"ebbl", kSlotBevel}};
    for (const auto& [key, slot] : slots) {
        ByteWriter block = ObjectEffects(2);
        Effect(block, key, 1).Bool("enab", true);
        Effect(block, "else", 1).Bool("enab", true);
        BlockRead read(block, ReadObjectEffects);
        const auto* effects = FindProperty<EffectsRecord>(read.layer, kPropertyEffects);
        ASSERT_TRUE(effects) << key;
        for (uint32_t i = 0; i < kEffectSlotCount; ++i) EXPECT_EQ(effects->present[i], i == slot) << key << i;
        EXPECT_EQ(effects->effectCount, 1) << key;
        EXPECT_EQ(Position(read.document), block.size()) << key;
    }
}

TEST(ObjectEffects, GlowsChooseBetweenColorAndGradient) {
    ByteWriter gradient;
    gradient.ItemHead("Grad", "Objc").ClassName("Grdn").U32(4).ItemHead("Nm  ", "TEXT").Unicode(u"g");
    gradient.Enum("GrdF", "GrdF", "CstS").Double("Intr", 4096).ItemHead("Clrs", "VlLs").U32(1);
    gradient.Text("Objc").ClassName("Clrt").U32(4).ColorItem("Clr ", 10, 20, 30).Enum("Type", "Clry", "FrgC");
    gradient.Long("Lctn", 9999).Long("Mdpn", 40);
    for (const bool gradientLast : {false, true}) {
        ByteWriter block = ObjectEffects(1);
        Effect(block, "OrGl", 4).Enum("GlwT", "BETE", "PrBL");
        if (!gradientLast) block.Raw(gradient.bytes());
        block.ColorItem("Clr ", 255, 255, 0);
        if (gradientLast) block.Raw(gradient.bytes());
        block.Unit("Inpr", "#Prc", 250);
        BlockRead read(block, ReadObjectEffects);
        const GlowSettings& glow = FindProperty<EffectsRecord>(read.layer, kPropertyEffects)->outerGlow;
        EXPECT_EQ(glow.useGradient, gradientLast);
        EXPECT_EQ(glow.color, 0xFFFFFF00u);
        EXPECT_EQ(glow.technique, GlowSettings::kPrecise);
        EXPECT_EQ(glow.rangePercent, 100);
        ASSERT_EQ(glow.gradient.colorStops.count, 1u);
        const GradientColorStop& stop = glow.gradient.colorStops.items[0];
        EXPECT_EQ(stop.color, 0xFF0A141Eu);
        EXPECT_EQ(stop.kind, GradientColorStop::kForegroundColor);
        EXPECT_EQ(stop.location, 4096u);
        EXPECT_EQ(stop.midpoint, 40u);
    }
}

TEST(ObjectEffects, ColorClassesGoThroughTheSingleColorConversions) {
    const auto item = [](std::string_view classId, std::vector<std::pair<std::string_view, double>> parts) {
        ByteWriter block = ObjectEffects(1);
        Effect(block, "SoFi", 1)
            .ItemHead("Clr ", "Objc")
            .ClassName(classId)
            .U32(static_cast<uint32_t>(parts.size()));
        for (const auto& [key, value] : parts) block.Double(key, value);
        return block;
    };
    const struct {
        ByteWriter block;
        uint32_t want;
    } cases[] = {
        {item("CMYC", {{"Cyn ", 0}, {"Mgnt", 100}, {"Ylw ", 0}, {"Blck", 0}}), 0xFFFF00FFu},
        {item("HSBC", {{"H   ", 120}, {"Strt", 100}, {"Brgh", 50}}), 0xFF00FF00u},
        {item("LbCl", {{"Lmnc", 0}, {"A   ", 0}, {"B   ", 0}}), 0xFF000000u},
        {item("Grsc", {{"Gry ", 100}}), 0xFF000000u},
        {item("Grsc", {{"Gry ", 0}}), 0xFFFFFFFFu},
        {item("none", {{"Gry ", 0}}), 0u},
    };
    for (const auto& test : cases) {
        BlockRead read(test.block, ReadObjectEffects);
        EXPECT_EQ(FindProperty<EffectsRecord>(read.layer, kPropertyEffects)->colorOverlay.color, test.want);
        EXPECT_EQ(Position(read.document), test.block.size());
    }
}

// The fields of the old blocks, each behind its size and version.
ByteWriter OldBlock(std::string_view key, uint32_t version, const ByteWriter& fields, size_t extraBytes) {
    ByteWriter block;
    block.Text("8BIM").Text(key).U32(static_cast<uint32_t>(4 + fields.size() + extraBytes)).U32(version);
    return block.Raw(fields.bytes()).Zeros(extraBytes);
}

ByteWriter& RgbStructure(ByteWriter& out, uint32_t red, uint32_t green, uint32_t blue) {
    return out.U16(0).U16(red << 8).U16(green << 8).U16(blue << 8).U16(0);
}

TEST(OldEffects, ReadsEveryBlockToTheEndThatItsSizeStates) {
    ByteWriter shadow, glow, bevel, solid;
    RgbStructure(shadow.Fixed(7.9).Fixed(35).Fixed(120).Fixed(11), 1, 2, 3);
    shadow.Text("8BIM").Text("mul ").U8(1).U8(1).U8(200);
    RgbStructure(glow.Fixed(5).Fixed(101), 4, 5, 6).Text("8BIM").Text("scrn").U8(1).U8(90);
    bevel.Fixed(30).Fixed(3).Fixed(6).Text("8BIM").Text("scrn").Text("8BIM").Text("mul ");
    RgbStructure(RgbStructure(bevel, 7, 8, 9), 10, 11, 12).U8(2).U8(101).U8(102).U8(1).U8(0).U8(1);
    RgbStructure(solid.Text("8BIM").Text("diff"), 13, 14, 15).U8(77).U8(1);

    for (const bool newer : {false, true}) {
        const uint32_t version = newer ? 2 : 0;
        const size_t native = newer ? 10 : 0;
        ByteWriter innerGlow = glow;
        if (newer) innerGlow.U8(1);
        ByteWriter block;
        block.U16(0).U16(7);
        block.Raw(OldBlock("cmnS", 0, ByteWriter().U8(1).U16(0), 0));
        block.Raw(OldBlock("dsdw", version, shadow, native)).Raw(OldBlock("isdw", version, shadow, native));
        block.Raw(OldBlock("oglw", version, glow, native)).Raw(OldBlock("iglw", version, innerGlow, native));
        block.Raw(OldBlock("bevl", version, bevel, 2 * native))
            .Raw(OldBlock("sofi", version, solid, native + 3));
        BlockRead read(ByteWriter(block).Zeros(5), ReadOldEffects);
        ASSERT_EQ(read.result, PsdReadResult::kOk);
        EXPECT_EQ(Position(read.document), block.size());
        const EffectsRecord& effects = *FindProperty<EffectsRecord>(read.layer, kPropertyOldEffects);
        EXPECT_EQ(effects.effectCount, 7);
        EXPECT_EQ(effects.masterSwitch, 1);
        EXPECT_EQ(effects.dropShadow.size, 7);
        EXPECT_EQ(effects.dropShadow.spreadPercent, 35);
        EXPECT_EQ(effects.dropShadow.angleDegrees, 120);
        EXPECT_EQ(effects.dropShadow.distance, 11);
        EXPECT_EQ(effects.innerShadow.color, 0xFF010203u);
        EXPECT_EQ(effects.innerShadow.blendMode, kBlendMultiply);
        EXPECT_TRUE(effects.innerShadow.enabled && effects.innerShadow.useGlobalLight);
        EXPECT_EQ(effects.innerShadow.opacity, 200);
        EXPECT_EQ(effects.outerGlow.spreadPercent, 100);
        EXPECT_EQ(effects.outerGlow.color, 0xFF040506u);
        EXPECT_EQ(effects.outerGlow.opacity, 90);
        EXPECT_EQ(effects.innerGlow.fromCenter, newer);
        EXPECT_EQ(effects.bevel.style, BevelSettings::kEmboss);
        EXPECT_EQ(effects.bevel.shadowColor, 0xFF0A0B0Cu);
        EXPECT_EQ(effects.bevel.shadowOpacity, 102);
        EXPECT_TRUE(effects.bevel.directionDown && !effects.bevel.useGlobalLight);
        EXPECT_EQ(effects.colorOverlay.color, 0xFF0D0E0Fu);
        EXPECT_EQ(effects.colorOverlay.opacity, 77);
        EXPECT_TRUE(effects.colorOverlay.enabled);
        for (const uint32_t slot : {0u, 1u, 2u, 3u, 5u, 9u}) EXPECT_TRUE(effects.renderPending[slot]) << slot;
    }
}

TEST(EffectAndFillBlocks, DamagedOnesAreRefusedWithTheirCode) {
    const struct {
        const char* what;
        PsdReadResult (*read)(PsdDocument&, PsdLayer&);
        Bytes block;
        PsdReadResult want;
    } cases[] = {
        {"object version", ReadObjectEffects, ByteWriter().U32(1).U32(16), PsdReadResult::kBadEffectsVersion},
        {"descriptor version", ReadObjectEffects, ByteWriter().U32(0).U32(15),
         PsdReadResult::kBadEffectsVersion},
        {"endless items", ReadObjectEffects, ObjectEffects(0xFFFFFFFF), PsdReadResult::kOk},
        {"old version", ReadOldEffects, ByteWriter().U16(1), PsdReadResult::kBadEffectsVersion},
        {"no effects", ReadOldEffects, ByteWriter().U16(0).I16(-1), PsdReadResult::kOk},
        {"missing effect", ReadOldEffects, ByteWriter().U16(0).U16(1), PsdReadResult::kBadEffectSignature},
        {"signature", ReadOldEffects, ByteWriter().U16(0).U16(1).Text("8B64dsdw"),
         PsdReadResult::kBadEffectSignature},
        {"key", ReadOldEffects, ByteWriter().U16(0).U16(1).Text("8BIMxxxx"), PsdReadResult::kBadEffectKey},
        {"cut key", ReadOldEffects, ByteWriter().U16(0).U16(1).Text("8BIMds"), PsdReadResult::kBadEffectKey},
        {"common state", ReadOldEffects, ByteWriter().U16(0).U16(1).Text("8BIMcmnS").U32(7).U32(1),
         PsdReadResult::kBadCommonStateVersion},
        {"common state that lies about its size", ReadOldEffects,
         ByteWriter().U16(0).U16(2).Text("8BIMcmnS").Zeros(8).Zeros(3).Text("8BIMcmnS").U32(7).Zeros(7),
         PsdReadResult::kOk},
        {"solid", ReadSolidFill, ByteWriter().U32(15), PsdReadResult::kBadSolidFillVersion},
        {"gradient", ReadGradientFill, ByteWriter(), PsdReadResult::kBadGradientFillVersion},
        {"pattern", ReadPatternFill, ByteWriter().U32(0), PsdReadResult::kBadPatternFillVersion},
    };
    for (const auto& test : cases) EXPECT_EQ(BlockRead(test.block, test.read).result, test.want) << test.what;
}

TEST(Fills, SettingsAndDefaultsAreKept) {
    ByteWriter single;
    single.U32(16).Unicode(u"x").U32(0).Text("null").U32(1).ColorItem("Clr ", 1, 2, 3);
    BlockRead solid(single, ReadSolidFill);
    EXPECT_EQ(solid.layer.layerKind, kLayerSolidFill);
    EXPECT_EQ(FindProperty<SolidFill>(solid.layer, kPropertySolidFill)->color, 0xFF010203u);

    BlockRead plain(Descriptor(0), ReadGradientFill);
    const auto* defaults = FindProperty<GradientFill>(plain.layer, kPropertyGradientFill);
    EXPECT_EQ(plain.layer.layerKind, kLayerGradientFill);
    EXPECT_EQ(defaults->scalePercent, 100);
    EXPECT_TRUE(defaults->align);

    ByteWriter items = Descriptor(7);
    items.Bool("Algn", false).Unit("Angl", "#Ang", 45.5).Bool("Dthr", true).Bool("Rvrs", true);
    items.Unit("Scl ", "#Prc", 150.9)
        .Enum("Type", "GrdT", "Rflc")
        .ItemHead("Ofst", "Objc")
        .ClassName("Pnt ")
        .U32(2);
    items.Unit("Hrzn", "#Prc", 5).Unit("Vrtc", "#Prc", -5);
    BlockRead full(items, ReadGradientFill);
    const auto* fill = FindProperty<GradientFill>(full.layer, kPropertyGradientFill);
    EXPECT_FALSE(fill->align);
    EXPECT_TRUE(fill->dither && fill->reverse);
    EXPECT_EQ(fill->angleDegrees, 45.5);
    EXPECT_EQ(fill->scalePercent, 150);
    EXPECT_EQ(fill->style, GradientStyle::kReflected);
    EXPECT_EQ(fill->offset.vertical, -5);

    ByteWriter pattern = Descriptor(2);
    pattern.Unit("Scl ", "#Prc", 80)
        .ItemHead("Ptrn", "Objc")
        .ClassName("Ptrn")
        .U32(1)
        .ItemHead("Idnt", "TEXT");
    pattern.Unicode(u"ab");
    BlockRead patterned(pattern, ReadPatternFill);
    EXPECT_EQ(patterned.layer.layerKind, kLayerPatternFill);
    EXPECT_EQ(FindProperty<PatternFill>(patterned.layer, kPropertyPatternFill)->pattern.identifier.length,
              2u);
}

}  // namespace
}  // namespace tessary::test
