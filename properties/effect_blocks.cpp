#include "properties/effect_blocks.h"

#include <algorithm>
#include <iterator>

#include "document/big_endian.h"
#include "document/blend_keys.h"
#include "document/byte_reader.h"
#include "properties/effect_records.h"
#include "properties/setting_readers.h"

namespace tessary {
namespace {

int32_t ReadFixedInteger(PsdDocument& document, int32_t low, int32_t high) {
    return LimitSetting(ReadFixed(document), low, high);
}
int32_t ReadSize(PsdDocument& document) { return ReadFixedInteger(document, 0, kMaxEffectSize); }
int32_t ReadShare(PsdDocument& document) { return ReadFixedInteger(document, 0, 100); }
int32_t ReadAngle(PsdDocument& document) { return ReadFixedInteger(document, -0x8000, 0x7FFF); }

// A blend mode stands behind a signature, which says nothing more.
PsdBlendMode ReadSignedBlendKey(PsdDocument& document) {
    Skip(document, 4);
    return ReadBlendKey(document);
}

void ReadShadow(PsdDocument& document, ShadowSettings& shadow) {
    shadow.size = ReadSize(document);
    shadow.spreadPercent = ReadShare(document);
    shadow.angleDegrees = ReadAngle(document);
    shadow.distance = ReadFixedInteger(document, 0, kMaxEffectDistance);
    shadow.color = ReadColor(document);
    shadow.blendMode = ReadSignedBlendKey(document);
    shadow.enabled = ReadBool(document);
    shadow.useGlobalLight = ReadBool(document);
    shadow.opacity = ReadU8(document);
}

void ReadGlow(PsdDocument& document, GlowSettings& glow) {
    glow.size = ReadSize(document);
    glow.spreadPercent = ReadShare(document);
    glow.color = ReadColor(document);
    glow.blendMode = ReadSignedBlendKey(document);
    glow.enabled = ReadBool(document);
    glow.opacity = ReadU8(document);
}

void ReadDropShadow(PsdDocument& document, EffectsRecord& effects, uint32_t) {
    ReadShadow(document, effects.dropShadow);
}
void ReadInnerShadow(PsdDocument& document, EffectsRecord& effects, uint32_t) {
    ReadShadow(document, effects.innerShadow);
}
void ReadOuterGlow(PsdDocument& document, EffectsRecord& effects, uint32_t) {
    ReadGlow(document, effects.outerGlow);
}

void ReadInnerGlow(PsdDocument& document, EffectsRecord& effects, uint32_t version) {
    ReadGlow(document, effects.innerGlow);
    if (version >= 2) effects.innerGlow.fromCenter = ReadBool(document);
}

// The style is stored by a number of its own, and the depth as a height in pixels. Half of the blur of an
// emboss lies on each side of the edge.
void ReadBevel(PsdDocument& document, EffectsRecord& effects, uint32_t) {
    constexpr BevelSettings::Style kStyles[] = {BevelSettings::kOtherStyle, BevelSettings::kOuter,
                                                BevelSettings::kInner, BevelSettings::kEmboss,
                                                BevelSettings::kPillowEmboss};
    BevelSettings& bevel = effects.bevel;
    bevel.angleDegrees = ReadAngle(document);
    bevel.altitudeDegrees = 30;
    const double strength = std::max(double{ReadFixed(document)}, 0.0);
    const double blur = std::max(double{ReadFixed(document)}, 0.0);
    bevel.depthPercent = blur == 0 ? 100 : LimitSetting(100 * strength / std::min(blur, 20.0) + 0.5, 0, 1000);
    bevel.highlightMode = ReadSignedBlendKey(document);
    bevel.shadowMode = ReadSignedBlendKey(document);
    bevel.highlightColor = ReadColor(document);
    bevel.shadowColor = ReadColor(document);
    const uint8_t style = ReadU8(document);
    bevel.style = style < std::size(kStyles) ? kStyles[style] : BevelSettings::kOtherStyle;
    const bool isEmboss =
        bevel.style == BevelSettings::kEmboss || bevel.style == BevelSettings::kPillowEmboss;
    bevel.size = LimitSetting(blur + 0.5, 0, kMaxEffectSize) * (isEmboss ? 2 : 1);
    bevel.highlightOpacity = ReadU8(document);
    bevel.shadowOpacity = ReadU8(document);
    bevel.enabled = ReadBool(document);
    bevel.useGlobalLight = ReadBool(document);
    bevel.directionDown = ReadBool(document);
}

void ReadSolidOverlay(PsdDocument& document, EffectsRecord& effects, uint32_t) {
    ColorOverlaySettings& overlay = effects.colorOverlay;
    overlay.blendMode = ReadSignedBlendKey(document);
    overlay.color = ReadColor(document);
    overlay.opacity = ReadU8(document);
    overlay.enabled = ReadBool(document);
}

constexpr struct OldEffectRow {
    uint32_t key;
    EffectSlot slot;
    void (*read)(PsdDocument& document, EffectsRecord& effects, uint32_t version);
} kOldEffects[] = {
    {FourCC("dsdw"), kSlotDropShadow, ReadDropShadow}, {FourCC("isdw"), kSlotInnerShadow, ReadInnerShadow},
    {FourCC("oglw"), kSlotOuterGlow, ReadOuterGlow},   {FourCC("iglw"), kSlotInnerGlow, ReadInnerGlow},
    {FourCC("bevl"), kSlotBevel, ReadBevel},           {FourCC("sofi"), kSlotColorOverlay, ReadSolidOverlay},
};

}  // namespace

PsdReadResult ReadOldEffects(PsdDocument& document, PsdLayer& layer) {
    EffectsRecord* effects = AppendProperty<EffectsRecord>(layer, kPropertyOldEffects);
    if (!effects) return PsdReadResult::kOutOfMemory;
    if (ReadU16(document) != 0) return PsdReadResult::kBadEffectsVersion;
    const int16_t count = ReadI16(document);
    effects->effectCount = static_cast<uint16_t>(count);

    for (int32_t i = 0; i < count; ++i) {
        uint32_t signature, key;
        if (!ReadKey(document, signature) || signature != FourCC("8BIM"))
            return PsdReadResult::kBadEffectSignature;
        if (!ReadKey(document, key)) return PsdReadResult::kBadEffectKey;
        const bool isCommonState = key == FourCC("cmnS");
        const auto row = std::ranges::find(kOldEffects, key, &OldEffectRow::key);
        if (!isCommonState && row == std::end(kOldEffects)) return PsdReadResult::kBadEffectKey;

        const uint32_t size = ReadU32(document);
        const uint32_t end = WrapAdd(Position(document), size);
        const uint32_t version = ReadU32(document);
        if (isCommonState) {
            if (version != 0) return PsdReadResult::kBadCommonStateVersion;
            effects->masterSwitch = ReadU8(document);
            Skip(document, 2);
        } else {
            effects->MarkRead(row->slot);
            row->read(document, *effects, version);
        }
        SkipTo(document, end);
    }
    return PsdReadResult::kOk;
}

}  // namespace tessary
