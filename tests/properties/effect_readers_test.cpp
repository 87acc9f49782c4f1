#include <gtest/gtest.h>

#include <limits>
#include <tuple>

#include "document/byte_reader.h"
#include "properties/effect_blocks.h"
#include "properties/effect_records.h"
#include "properties/effect_settings.h"
#include "properties/fill_layers.h"
#include "tests/support/document_builder.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {
namespace {

using Reader = PsdReadResult (*)(PsdDocument&, PsdLayer&);
using Numbers = std::vector<int64_t>;

struct BlockRead {
    BlockRead(const Bytes& block, Reader read) : stream(block) {
        document.reader.stream = &stream;
        result = read(document, layer);
    }
    template <class Record = EffectsRecord>
    const Record& Get(PsdPropertyCode code = kPropertyEffects) {
        return *FindProperty<Record>(layer, code);
    }
    MemoryStream stream;
    PsdDocument document;
    PsdLayer layer;
    PsdReadResult result;
};

ByteWriter Descriptor(uint32_t itemCount) { return ByteWriter().U32(16).ClassName("null").U32(itemCount); }
ByteWriter ObjectEffects(uint32_t itemCount) { return ByteWriter().U32(0).Raw(Descriptor(itemCount)); }

ByteWriter& Object(ByteWriter& out, std::string_view key, std::string_view classId, uint32_t itemCount) {
    return out.ItemHead(key, "Objc").ClassName(classId).U32(itemCount);
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

    BlockRead read(ByteWriter(block).Zeros(9), ReadObjectEffects);
    ASSERT_EQ(read.result, PsdReadResult::kOk);
    EXPECT_EQ(Position(read.document), block.size());
    const EffectsRecord& effects = read.Get();
    EXPECT_TRUE(effects.effectCount == 1 && effects.masterSwitch == 1 && effects.renderPending[0]);
    const ShadowSettings& shadow = effects.dropShadow;
    EXPECT_TRUE(shadow.enabled && shadow.useGlobalLight && shadow.contourAntiAlias && shadow.layerConceals);
    const Numbers numbers = {shadow.blendMode, shadow.color,         shadow.opacity, shadow.angleDegrees,
                             shadow.distance,  shadow.spreadPercent, shadow.size,    shadow.noisePercent};
    EXPECT_EQ(numbers,
              (Numbers{kBlendMultiply, 0xFF0180FF, 191, -60, kMaxEffectDistance, 30, kMaxEffectSize, 0}));
    ASSERT_EQ(shadow.contour.points.count, 1u);
    const auto& point = shadow.contour.points.items[0];
    EXPECT_TRUE(point.x == 20 && point.y == 255 && !point.isSmooth);
}

TEST(ObjectEffects, AllSlotsAreFoundByTheirKeys) {
    const std::string_view keys[] = {"DrSh", "IrSh", "OrGl",        "IrGl", "ChFX",
                                     "SoFi", "GrFl", "patternFill", "FrFX", "ebbl"};
    const EffectSlot slots[] = {kSlotDropShadow, kSlotInnerShadow,  kSlotOuterGlow,       kSlotInnerGlow,
                                kSlotSatin,      kSlotColorOverlay, kSlotGradientOverlay, kSlotPatternOverlay,
                                kSlotStroke,     kSlotBevel};
    for (size_t at = 0; at < kEffectSlotCount; ++at) {
        ByteWriter block = ObjectEffects(2);
        Object(block, keys[at], keys[at], 1).Bool("enab", true);
        Object(block, "else", "else", 1).Bool("enab", true);
        BlockRead read(block, ReadObjectEffects);
        for (uint32_t i = 0; i < kEffectSlotCount; ++i)
            EXPECT_EQ(read.Get().present[i], i == slots[at]) << at;
        EXPECT_TRUE(read.Get().effectCount == 1 && Position(read.document) == block.size()) << at;
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
        BlockRead read(block, ReadObjectEffects);
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
        {"Grsc", {{"Gry ", 0}}, 0xFFFFFFFF},
        {"none", {{"Gry ", 0}}, 0},
    };
    for (const auto& [classId, parts, want] : cases) {
        ByteWriter block = ObjectEffects(1);
        Object(Object(block, "SoFi", "SoFi", 1), "Clr ", classId, static_cast<uint32_t>(parts.size()));
        for (const auto& [key, value] : parts) block.Double(key, value);
        BlockRead read(block, ReadObjectEffects);
        EXPECT_EQ(read.Get().colorOverlay.color, want) << classId;
        EXPECT_EQ(Position(read.document), block.size()) << classId;
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
        BlockRead read(ByteWriter(block).Zeros(5), ReadOldEffects);
        ASSERT_EQ(read.result, PsdReadResult::kOk);
        EXPECT_EQ(Position(read.document), block.size());
        const EffectsRecord& effects = read.Get(kPropertyOldEffects);
        EXPECT_TRUE(effects.effectCount == 7 && effects.masterSwitch == 1);
        for (const ShadowSettings* shown : {&effects.dropShadow, &effects.innerShadow}) {
            const ShadowSettings& s = *shown;
            const Numbers numbers = {s.size,      s.spreadPercent, s.angleDegrees,   s.distance, s.color,
                                     s.blendMode, s.enabled,       s.useGlobalLight, s.opacity};
            EXPECT_EQ(numbers, (Numbers{7, 35, 120, 11, 0xFF010203, kBlendMultiply, 1, 1, 200}));
        }
        const GlowSettings& outer = effects.outerGlow;
        EXPECT_EQ((Numbers{outer.spreadPercent, outer.color, outer.opacity, effects.innerGlow.fromCenter}),
                  (Numbers{100, 0xFF040506, 90, newer}));
        const BevelSettings& b = effects.bevel;
        EXPECT_EQ((Numbers{b.style, b.highlightColor, b.shadowColor, b.highlightOpacity, b.shadowOpacity,
                           b.directionDown, b.useGlobalLight}),
                  (Numbers{BevelSettings::kEmboss, 0xFF070809, 0xFF0A0B0C, 101, 102, 1, 0}));
        const ColorOverlaySettings& overlay = effects.colorOverlay;
        EXPECT_TRUE(overlay.color == 0xFF0D0E0F && overlay.opacity == 77 && overlay.enabled);
        for (const uint32_t slot : {0u, 1u, 2u, 3u, 5u, 9u}) EXPECT_TRUE(effects.renderPending[slot]) << slot;
    }
}

TEST(EffectAndFillBlocks, DamagedOnesAreRefusedWithTheirCode) {
    using enum PsdReadResult;
    const auto old = [](std::string_view text) { return ByteWriter().U16(0).U16(2).Text(text); };
    const std::tuple<Reader, Bytes, PsdReadResult> cases[] = {
        {ReadObjectEffects, ByteWriter().U32(1).U32(16), kBadEffectsVersion},
        {ReadObjectEffects, ByteWriter().U32(0).U32(15), kBadEffectsVersion},
        {ReadObjectEffects, ObjectEffects(0xFFFFFFFF), kOk},
        {ReadOldEffects, ByteWriter().U16(1), kBadEffectsVersion},
        {ReadOldEffects, ByteWriter().U16(0).I16(-1), kOk},
        {ReadOldEffects, old(""), kBadEffectSignature},
        {ReadOldEffects, old("8B64dsdw"), kBadEffectSignature},
        {ReadOldEffects, old("8BIMxxxx"), kBadEffectKey},
        {ReadOldEffects, old("8BIMds"), kBadEffectKey},
        {ReadOldEffects, old("8BIMcmnS").U32(7).U32(1), kBadCommonStateVersion},
        // A common state that lies about its size.
        {ReadOldEffects, old("8BIMcmnS").Zeros(11).Text("8BIMcmnS").U32(7).Zeros(7), kOk},
        {ReadSolidFill, ByteWriter().U32(15), kBadSolidFillVersion},
        {ReadGradientFill, ByteWriter(), kBadGradientFillVersion},
        {ReadPatternFill, ByteWriter().U32(0), kBadPatternFillVersion},
    };
    int row = 0;
    for (const auto& [read, block, want] : cases)
        EXPECT_EQ(BlockRead(block, read).result, want) << "row " << row++;
}

TEST(Fills, SettingsAndDefaultsAreKept) {
    BlockRead solid(Descriptor(1).ColorItem("Clr ", 1, 2, 3), ReadSolidFill);
    EXPECT_EQ(solid.layer.layerKind, kLayerSolidFill);
    EXPECT_EQ(solid.Get<SolidFill>(kPropertySolidFill).color, 0xFF010203u);

    BlockRead plain(Descriptor(0), ReadGradientFill);
    const auto& defaults = plain.Get<GradientFill>(kPropertyGradientFill);
    EXPECT_TRUE(plain.layer.layerKind == kLayerGradientFill && defaults.align &&
                defaults.scalePercent == 100);

    ByteWriter items = Descriptor(7);
    items.Bool("Algn", false).Unit("Angl", "#Ang", 45.5).Bool("Dthr", true).Bool("Rvrs", true);
    Object(items.Unit("Scl ", "#Prc", 150.9).Enum("Type", "GrdT", "Rflc"), "Ofst", "Pnt ", 2);
    BlockRead full(items.Unit("Hrzn", "#Prc", 5).Unit("Vrtc", "#Prc", -5), ReadGradientFill);
    const auto& fill = full.Get<GradientFill>(kPropertyGradientFill);
    EXPECT_TRUE(!fill.align && fill.dither && fill.reverse && fill.angleDegrees == 45.5);
    EXPECT_TRUE(fill.scalePercent == 150 && fill.style == GradientStyle::kReflected &&
                fill.offset.vertical == -5);

    ByteWriter pattern = Descriptor(1);
    Object(pattern, "Ptrn", "Ptrn", 1).ItemHead("Idnt", "TEXT").Unicode(u"ab");
    BlockRead patterned(pattern, ReadPatternFill);
    EXPECT_EQ(patterned.layer.layerKind, kLayerPatternFill);
    EXPECT_EQ(patterned.Get<PatternFill>(kPropertyPatternFill).pattern.identifier.length, 2u);
}

}  // namespace
}  // namespace tessary::test
