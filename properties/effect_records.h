// The effects of a layer as read, and the buffers they are drawn into.
#pragma once

#include <cstdint>

#include "document/psd_document.h"
#include "properties/setting_records.h"

namespace tessary {

inline constexpr int32_t kMaxEffectSize = 250;                // pixels, of sizes and blurs
inline constexpr int32_t kMaxEffectDistance = 30000;          // pixels
inline constexpr int32_t kLeastScale = 1, kMostScale = 1000;  // percent, of gradients and patterns

// Drop shadow and inner shadow.
struct ShadowSettings {
    bool enabled = false;
    PsdBlendMode blendMode = kBlendNormal;
    uint32_t color = 0;  // ARGB
    uint8_t opacity = 0;
    bool useGlobalLight = false;
    int32_t angleDegrees = 0;
    int32_t distance = 0;       // pixels, 0..kMaxEffectDistance
    int32_t spreadPercent = 0;  // of an inner shadow: choke
    int32_t size = 0;           // pixels, 0..kMaxEffectSize
    int32_t noisePercent = 0;
    bool contourAntiAlias = false;
    ContourSettings contour;
    bool layerConceals = false;  // the layer knocks its shadow out
};

// Outer glow and inner glow.
struct GlowSettings {
    enum Technique : uint8_t { kSofter = 0, kPrecise = 1, kLimited = 2 };
    bool enabled = false;
    PsdBlendMode blendMode = kBlendNormal;
    bool useGradient = false;
    uint32_t color = 0;  // ARGB
    GradientSettings gradient;
    uint8_t opacity = 0;
    Technique technique = kSofter;
    bool fromCenter = false;  // inner glow only
    int32_t spreadPercent = 0;
    int32_t size = 0;  // pixels, 0..kMaxEffectSize
    int32_t noisePercent = 0;
    int32_t jitterPercent = 0;
    bool contourAntiAlias = false;
    ContourSettings contour;
    int32_t rangePercent = 50;  // 100 changes nothing
};

struct SatinSettings {
    bool enabled = false;
    PsdBlendMode blendMode = kBlendNormal;
    uint32_t color = 0;
    uint8_t opacity = 0;
    int32_t angleDegrees = 0;
    int32_t distance = 0;
    int32_t size = 0;
    bool invert = false;
    bool contourAntiAlias = false;
    ContourSettings contour;
};

struct ColorOverlaySettings {
    bool enabled = false;
    PsdBlendMode blendMode = kBlendNormal;
    uint32_t color = 0;
    uint8_t opacity = 0;
};

struct GradientOverlaySettings {
    bool enabled = false;
    PsdBlendMode blendMode = kBlendNormal;
    uint8_t opacity = 0;
    GradientSettings gradient;
    double angleDegrees = 0;
    GradientStyle style = GradientStyle::kLinear;
    bool reverse = false;
    bool align = true;
    double scalePercent = 100;  // kLeastScale..kMostScale
    OffsetSettings offset;
    GradientMethod method = GradientMethod::kBytes;
};

struct PatternOverlaySettings {
    bool enabled = false;
    PsdBlendMode blendMode = kBlendNormal;
    uint8_t opacity = 0;
    PatternSettings pattern;
    double angleDegrees = 0;
    double scalePercent = 100;  // kLeastScale..kMostScale
    bool linked = true;         // moves with the layer
    OffsetSettings phase;
};

struct StrokeSettings {
    enum Position : uint8_t { kOutside, kInside, kCenter };
    enum Paint : uint8_t { kColor, kGradient, kPattern };
    bool enabled = false;
    PsdBlendMode blendMode = kBlendNormal;
    uint8_t opacity = 0;
    int32_t size = 0;
    Position position = kOutside;
    Paint paint = kColor;
    uint32_t color = 0;
    GradientSettings gradient;
    PatternSettings pattern;
    GradientStyle style = GradientStyle::kLinear;
    double angleDegrees = 0;
    bool reverse = false;
    bool align = true;
    double scalePercent = 100;
    OffsetSettings offset;
    GradientMethod method = GradientMethod::kBytes;
    bool linked = true;
    OffsetSettings phase;
};

struct BevelSettings {
    // Of a style that is not one of these nothing is drawn.
    enum Style : uint8_t { kInner, kOuter, kEmboss, kPillowEmboss, kOtherStyle };
    enum Technique : uint8_t { kSmooth, kChiselHard, kChiselSoft };
    bool enabled = false;
    Style style = kInner;
    Technique technique = kSmooth;
    bool directionDown = false;
    PsdBlendMode highlightMode = kBlendNormal;
    uint32_t highlightColor = 0;
    uint8_t highlightOpacity = 0;
    PsdBlendMode shadowMode = kBlendNormal;
    uint32_t shadowColor = 0;
    uint8_t shadowOpacity = 0;
    bool useGlobalLight = false;
    bool hasLocalAngle = false;  // else the angle is that of an older key
    int32_t angleDegrees = 0;
    int32_t altitudeDegrees = 0;  // 0..90
    int32_t depthPercent = 0;     // 0..1000
    int32_t size = 0;             // 0..2 * kMaxEffectSize, of an emboss on both sides of the edge
    int32_t soften = 0;           // 0..kMaxEffectSize
    bool glossAntiAlias = false;
    ContourSettings glossContour;
    bool useContour = false;
    bool contourAntiAlias = false;
    ContourSettings contour;
    int32_t rangePercent = 100;  // of the contour
    bool useTexture = false;
    PatternSettings texture;
    int32_t textureDepthPercent = 0;  // -1000..1000
    bool textureInverted = false;
    double textureScalePercent = 100;
    bool textureLinked = true;
    OffsetSettings texturePhase;
};

// The order in which the passes go through them is from the last to the first.
enum EffectSlot : uint32_t {
    kSlotDropShadow = 0,
    kSlotInnerShadow = 1,
    kSlotOuterGlow = 2,
    kSlotInnerGlow = 3,
    kSlotSatin = 4,
    kSlotColorOverlay = 5,
    kSlotGradientOverlay = 6,
    kSlotPatternOverlay = 7,
    kSlotStroke = 8,
    kSlotBevel = 9,
    kEffectSlotCount = 10,
};

// Buffers 0 to 8 belong to the slots of these numbers, the last five to the bevel.
inline constexpr uint32_t kEffectBufferCount = 14;

struct EffectBuffer {
    Owned<uint32_t> pixels;  // bounds.Width() x bounds.Height() words, or null
    Rect bounds;             // relative to the layer's upper left corner
    PsdBlendMode blendMode = kBlendNormal;
    uint8_t opacity = 0;
};

struct EffectsRecord {
    uint16_t effectCount = 0;
    uint8_t masterSwitch = 0;  // effects are drawn only when it is not 0
    ShadowSettings dropShadow;
    ShadowSettings innerShadow;
    GlowSettings outerGlow;
    GlowSettings innerGlow;
    BevelSettings bevel;
    SatinSettings satin;
    ColorOverlaySettings colorOverlay;
    GradientOverlaySettings gradientOverlay;
    PatternOverlaySettings patternOverlay;
    StrokeSettings stroke;
    bool present[kEffectSlotCount] = {};
    bool isPending[kEffectSlotCount] = {};
    EffectBuffer buffers[kEffectBufferCount];
    bool isHeld[kEffectSlotCount] = {};  // the buffers wait for the second pass

    void MarkRead(EffectSlot slot) { present[slot] = isPending[slot] = true; }
};

}  // namespace tessary
