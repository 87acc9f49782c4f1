#include "properties/effect_settings.h"

#include <algorithm>
#include <iterator>

#include "document/byte_reader.h"
#include "properties/effect_records.h"
#include "properties/setting_readers.h"

namespace tessary {
namespace {

constexpr auto ReadSizeValue = ReadLimited<0, kMaxEffectSize>;
constexpr auto ReadDistanceValue = ReadLimited<0, kMaxEffectDistance>;
constexpr auto ReadShareValue = ReadLimited<0, 100>;
constexpr auto ReadScaleValue = ReadNumberWithin<kLeastScale, kMostScale>;

// Values of an enumeration by their place in a list.
template <auto& values, class Enumeration>
PsdReadResult ReadChoice(PsdDocument& document, uint32_t type, Enumeration& choice,
                         Enumeration other = Enumeration{}) {
    PsdItemKey key;
    if (!ReadEnumValue(document, type, key)) return PsdReadResult::kOk;
    choice = other;
    for (size_t i = 0; i < std::size(values); ++i) {
        if (key == values[i]) choice = static_cast<Enumeration>(i);
    }
    return PsdReadResult::kOk;
}

constexpr std::string_view kTechniques[] = {"SfBL", "PrBL", "Slmt"};
constexpr std::string_view kGlowSources[] = {"SrcE", "SrcC"};
constexpr std::string_view kStrokePositions[] = {"OutF", "InsF", "CtrF"};
constexpr std::string_view kStrokePaints[] = {"SClr", "GrFl", "Ptrn"};
constexpr std::string_view kBevelStyles[] = {"InrB", "OtrB", "Embs", "PlEb"};
constexpr std::string_view kBevelDirections[] = {"In  ", "Out "};

PsdReadResult ReadTechnique(PsdDocument& document, uint32_t type, GlowSettings::Technique& value) {
    return ReadChoice<kTechniques>(document, type, value);
}
PsdReadResult ReadGlowSource(PsdDocument& document, uint32_t type, bool& fromCenter) {
    return ReadChoice<kGlowSources>(document, type, fromCenter);
}
PsdReadResult ReadStrokePosition(PsdDocument& document, uint32_t type, StrokeSettings::Position& value) {
    return ReadChoice<kStrokePositions>(document, type, value);
}
PsdReadResult ReadStrokePaint(PsdDocument& document, uint32_t type, StrokeSettings::Paint& value) {
    return ReadChoice<kStrokePaints>(document, type, value);
}
PsdReadResult ReadBevelStyle(PsdDocument& document, uint32_t type, BevelSettings::Style& value) {
    return ReadChoice<kBevelStyles>(document, type, value, BevelSettings::kOtherStyle);
}
PsdReadResult ReadBevelTechnique(PsdDocument& document, uint32_t type, BevelSettings::Technique& value) {
    return ReadChoice<kTechniques>(document, type, value);
}
PsdReadResult ReadBevelDirection(PsdDocument& document, uint32_t type, bool& down) {
    return ReadChoice<kBevelDirections>(document, type, down);
}

// A glow takes its colours from what was stored last, a single colour or a gradient.
PsdReadResult ReadGlowColor(PsdDocument& document, uint32_t type, void* record) {
    GlowSettings& glow = *static_cast<GlowSettings*>(record);
    glow.useGradient = false;
    return ReadColorObject(document, type, glow.color);
}
PsdReadResult ReadGlowGradient(PsdDocument& document, uint32_t type, void* record) {
    GlowSettings& glow = *static_cast<GlowSettings*>(record);
    glow.useGradient = true;
    return ReadGradientObject(document, type, glow.gradient);
}

// The angle of a bevel has an older key as well, which counts only alone.
PsdReadResult ReadBevelAngle(PsdDocument& document, uint32_t type, void* record) {
    BevelSettings& bevel = *static_cast<BevelSettings*>(record);
    bevel.hasLocalAngle = true;
    return ReadIntegerValue(document, type, bevel.angleDegrees);
}
PsdReadResult ReadOldBevelAngle(PsdDocument& document, uint32_t type, void* record) {
    BevelSettings& bevel = *static_cast<BevelSettings*>(record);
    int32_t passedOver = 0;
    return ReadIntegerValue(document, type, bevel.hasLocalAngle ? passedOver : bevel.angleDegrees);
}

// Of both shadows; an inner shadow has no "layerConceals".
constexpr DescriptorItemRow kShadowItems[] = {
    {"enab", Into<&ShadowSettings::enabled, ReadFlagValue>},
    {"Md  ", Into<&ShadowSettings::blendMode, ReadBlendModeValue>},
    {"Clr ", Into<&ShadowSettings::color, ReadColorObject>},
    {"Opct", Into<&ShadowSettings::opacity, ReadPercentValue>},
    {"uglg", Into<&ShadowSettings::useGlobalLight, ReadFlagValue>},
    {"lagl", Into<&ShadowSettings::angleDegrees, ReadIntegerValue>},
    {"Dstn", Into<&ShadowSettings::distance, ReadDistanceValue>},
    {"Ckmt", Into<&ShadowSettings::spreadPercent, ReadShareValue>},
    {"blur", Into<&ShadowSettings::size, ReadSizeValue>},
    {"Nose", Into<&ShadowSettings::noisePercent, ReadShareValue>},
    {"AntA", Into<&ShadowSettings::contourAntiAlias, ReadFlagValue>},
    {"TrnS", Into<&ShadowSettings::contour, ReadContourObject>},
    {"layerConceals", Into<&ShadowSettings::layerConceals, ReadFlagValue>},
};

// Of both glows; only an inner glow has a source.
constexpr DescriptorItemRow kGlowItems[] = {
    {"enab", Into<&GlowSettings::enabled, ReadFlagValue>},
    {"Md  ", Into<&GlowSettings::blendMode, ReadBlendModeValue>},
    {"Clr ", ReadGlowColor},
    {"Grad", ReadGlowGradient},
    {"Opct", Into<&GlowSettings::opacity, ReadPercentValue>},
    {"GlwT", Into<&GlowSettings::technique, ReadTechnique>},
    {"glwS", Into<&GlowSettings::fromCenter, ReadGlowSource>},
    {"Ckmt", Into<&GlowSettings::spreadPercent, ReadShareValue>},
    {"blur", Into<&GlowSettings::size, ReadSizeValue>},
    {"Nose", Into<&GlowSettings::noisePercent, ReadShareValue>},
    {"ShdN", Into<&GlowSettings::jitterPercent, ReadShareValue>},
    {"AntA", Into<&GlowSettings::contourAntiAlias, ReadFlagValue>},
    {"TrnS", Into<&GlowSettings::contour, ReadContourObject>},
    {"Inpr", Into<&GlowSettings::rangePercent, ReadShareValue>},
};

constexpr DescriptorItemRow kSatinItems[] = {
    {"enab", Into<&SatinSettings::enabled, ReadFlagValue>},
    {"Md  ", Into<&SatinSettings::blendMode, ReadBlendModeValue>},
    {"Clr ", Into<&SatinSettings::color, ReadColorObject>},
    {"Opct", Into<&SatinSettings::opacity, ReadPercentValue>},
    {"lagl", Into<&SatinSettings::angleDegrees, ReadIntegerValue>},
    {"Dstn", Into<&SatinSettings::distance, ReadDistanceValue>},
    {"blur", Into<&SatinSettings::size, ReadSizeValue>},
    {"Invr", Into<&SatinSettings::invert, ReadFlagValue>},
    {"AntA", Into<&SatinSettings::contourAntiAlias, ReadFlagValue>},
    {"MpgS", Into<&SatinSettings::contour, ReadContourObject>},
};

constexpr DescriptorItemRow kColorOverlayItems[] = {
    {"enab", Into<&ColorOverlaySettings::enabled, ReadFlagValue>},
    {"Md  ", Into<&ColorOverlaySettings::blendMode, ReadBlendModeValue>},
    {"Clr ", Into<&ColorOverlaySettings::color, ReadColorObject>},
    {"Opct", Into<&ColorOverlaySettings::opacity, ReadPercentValue>},
};

constexpr DescriptorItemRow kGradientOverlayItems[] = {
    {"enab", Into<&GradientOverlaySettings::enabled, ReadFlagValue>},
    {"Md  ", Into<&GradientOverlaySettings::blendMode, ReadBlendModeValue>},
    {"Opct", Into<&GradientOverlaySettings::opacity, ReadPercentValue>},
    {"Grad", Into<&GradientOverlaySettings::gradient, ReadGradientObject>},
    {"Angl", Into<&GradientOverlaySettings::angleDegrees, ReadNumberValue>},
    {"Type", Into<&GradientOverlaySettings::style, ReadGradientStyleValue>},
    {"Rvrs", Into<&GradientOverlaySettings::reverse, ReadFlagValue>},
    {"Algn", Into<&GradientOverlaySettings::align, ReadFlagValue>},
    {"Scl ", Into<&GradientOverlaySettings::scalePercent, ReadScaleValue>},
    {"Ofst", Into<&GradientOverlaySettings::offset, ReadOffsetObject>},
    {"gs99", Into<&GradientOverlaySettings::method, ReadGradientMethodValue>},
};

constexpr DescriptorItemRow kPatternOverlayItems[] = {
    {"enab", Into<&PatternOverlaySettings::enabled, ReadFlagValue>},
    {"Md  ", Into<&PatternOverlaySettings::blendMode, ReadBlendModeValue>},
    {"Opct", Into<&PatternOverlaySettings::opacity, ReadPercentValue>},
    {"Ptrn", Into<&PatternOverlaySettings::pattern, ReadPatternObject>},
    {"Angl", Into<&PatternOverlaySettings::angleDegrees, ReadNumberValue>},
    {"Scl ", Into<&PatternOverlaySettings::scalePercent, ReadScaleValue>},
    {"Algn", Into<&PatternOverlaySettings::linked, ReadFlagValue>},
    {"phase", Into<&PatternOverlaySettings::phase, ReadOffsetObject>},
};

constexpr DescriptorItemRow kStrokeItems[] = {
    {"enab", Into<&StrokeSettings::enabled, ReadFlagValue>},
    {"Md  ", Into<&StrokeSettings::blendMode, ReadBlendModeValue>},
    {"Opct", Into<&StrokeSettings::opacity, ReadPercentValue>},
    {"Sz  ", Into<&StrokeSettings::size, ReadSizeValue>},
    {"Styl", Into<&StrokeSettings::position, ReadStrokePosition>},
    {"PntT", Into<&StrokeSettings::paint, ReadStrokePaint>},
    {"Clr ", Into<&StrokeSettings::color, ReadColorObject>},
    {"Grad", Into<&StrokeSettings::gradient, ReadGradientObject>},
    {"Ptrn", Into<&StrokeSettings::pattern, ReadPatternObject>},
    {"Type", Into<&StrokeSettings::style, ReadGradientStyleValue>},
    {"Angl", Into<&StrokeSettings::angleDegrees, ReadNumberValue>},
    {"Rvrs", Into<&StrokeSettings::reverse, ReadFlagValue>},
    {"Algn", Into<&StrokeSettings::align, ReadFlagValue>},
    {"Scl ", Into<&StrokeSettings::scalePercent, ReadScaleValue>},
    {"Ofst", Into<&StrokeSettings::offset, ReadOffsetObject>},
    {"gradientsInterpolationMethod", Into<&StrokeSettings::method, ReadGradientMethodValue>},
    {"Lnkd", Into<&StrokeSettings::linked, ReadFlagValue>},
    {"phase", Into<&StrokeSettings::phase, ReadOffsetObject>},
};

constexpr DescriptorItemRow kBevelItems[] = {
    {"enab", Into<&BevelSettings::enabled, ReadFlagValue>},
    {"bvlS", Into<&BevelSettings::style, ReadBevelStyle>},
    {"bvlT", Into<&BevelSettings::technique, ReadBevelTechnique>},
    {"bvlD", Into<&BevelSettings::directionDown, ReadBevelDirection>},
    {"hglM", Into<&BevelSettings::highlightMode, ReadBlendModeValue>},
    {"hglC", Into<&BevelSettings::highlightColor, ReadColorObject>},
    {"hglO", Into<&BevelSettings::highlightOpacity, ReadPercentValue>},
    {"sdwM", Into<&BevelSettings::shadowMode, ReadBlendModeValue>},
    {"sdwC", Into<&BevelSettings::shadowColor, ReadColorObject>},
    {"sdwO", Into<&BevelSettings::shadowOpacity, ReadPercentValue>},
    {"uglg", Into<&BevelSettings::useGlobalLight, ReadFlagValue>},
    {"lagl", ReadBevelAngle},
    {"Angl", ReadOldBevelAngle},
    {"Lald", Into<&BevelSettings::altitudeDegrees, ReadLimited<0, 90>>},
    {"srgR", Into<&BevelSettings::depthPercent, ReadLimited<0, 1000>>},
    {"blur", Into<&BevelSettings::size, ReadSizeValue>},
    {"Sftn", Into<&BevelSettings::soften, ReadSizeValue>},
    {"antialiasGloss", Into<&BevelSettings::glossAntiAlias, ReadFlagValue>},
    {"TrnS", Into<&BevelSettings::glossContour, ReadContourObject>},
    {"useShape", Into<&BevelSettings::useContour, ReadFlagValue>},
    {"AntA", Into<&BevelSettings::contourAntiAlias, ReadFlagValue>},
    {"MpgS", Into<&BevelSettings::contour, ReadContourObject>},
    {"Inpr", Into<&BevelSettings::rangePercent, ReadShareValue>},
    {"useTexture", Into<&BevelSettings::useTexture, ReadFlagValue>},
    {"Ptrn", Into<&BevelSettings::texture, ReadPatternObject>},
    {"textureDepth", Into<&BevelSettings::textureDepthPercent, ReadLimited<-1000, 1000>>},
    {"InvT", Into<&BevelSettings::textureInverted, ReadFlagValue>},
    {"Scl ", Into<&BevelSettings::textureScalePercent, ReadScaleValue>},
    {"Algn", Into<&BevelSettings::textureLinked, ReadFlagValue>},
    {"phase", Into<&BevelSettings::texturePhase, ReadOffsetObject>},
};

struct EffectRow {
    std::string_view key;
    EffectSlot slot;
    std::span<const DescriptorItemRow> items;
    void* (*settings)(EffectsRecord& effects);
};

template <auto member>
void* SettingsOf(EffectsRecord& effects) {
    return &(effects.*member);
}

constexpr EffectRow kEffects[] = {
    {"DrSh", kSlotDropShadow, kShadowItems, SettingsOf<&EffectsRecord::dropShadow>},
    {"IrSh", kSlotInnerShadow, kShadowItems, SettingsOf<&EffectsRecord::innerShadow>},
    {"OrGl", kSlotOuterGlow, kGlowItems, SettingsOf<&EffectsRecord::outerGlow>},
    {"IrGl", kSlotInnerGlow, kGlowItems, SettingsOf<&EffectsRecord::innerGlow>},
    {"ChFX", kSlotSatin, kSatinItems, SettingsOf<&EffectsRecord::satin>},
    {"SoFi", kSlotColorOverlay, kColorOverlayItems, SettingsOf<&EffectsRecord::colorOverlay>},
    {"GrFl", kSlotGradientOverlay, kGradientOverlayItems, SettingsOf<&EffectsRecord::gradientOverlay>},
    {"patternFill", kSlotPatternOverlay, kPatternOverlayItems, SettingsOf<&EffectsRecord::patternOverlay>},
    {"FrFX", kSlotStroke, kStrokeItems, SettingsOf<&EffectsRecord::stroke>},
    {"ebbl", kSlotBevel, kBevelItems, SettingsOf<&EffectsRecord::bevel>},
};

}  // namespace

PsdReadResult ReadObjectEffects(PsdDocument& document, PsdLayer& layer) {
    EffectsRecord* effects = AppendProperty<EffectsRecord>(layer, kPropertyEffects);
    if (!effects) return PsdReadResult::kOutOfMemory;
    if (ReadU32(document) != 0 || ReadU32(document) != kDescriptorVersion)
        return PsdReadResult::kBadEffectsVersion;
    SkipNameAndClass(document);
    for (uint32_t remaining = ReadU32(document); remaining > 0; --remaining) {
        const uint32_t start = Position(document);
        PsdItemKey key;
        ReadItemKey(document, key);
        const uint32_t type = ReadU32(document);
        if (Position(document) == start) break;
        if (key == "Scl ") {
            // The scale, which is not used, and the master switch behind it are one thing in two items.
            Skip(document, 4 + 8);
            if (remaining == 1) break;
            --remaining;
            ReadItemKey(document, key);
            bool isOn = effects->masterSwitch != 0;
            if (const auto result = ReadFlagValue(document, ReadU32(document), isOn);
                result != PsdReadResult::kOk) {
                return result;
            }
            effects->masterSwitch = isOn;
            continue;
        }
        const auto row =
            std::ranges::find_if(kEffects, [&](const EffectRow& entry) { return key == entry.key; });
        if (row == std::end(kEffects)) {
            SkipItem(document, type);
            continue;
        }
        effects->MarkRead(row->slot);
        ++effects->effectCount;
        if (const auto result = ReadObject(document, type, row->items, row->settings(*effects));
            result != PsdReadResult::kOk) {
            return result;
        }
    }
    return PsdReadResult::kOk;
}

}  // namespace tessary
