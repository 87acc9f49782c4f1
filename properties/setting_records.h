// Values that fills and effects share: gradients, contours, patterns, offsets.
#pragma once

#include <cstdint>

#include "document/psd_document.h"

namespace tessary {

enum class GradientStyle : uint32_t {
    kLinear = 0,
    kRadial = 1,
    kAngle = 2,
    kReflected = 3,
    kDiamond = 4,
    kShapeBurst = 5,  // strokes only: from edge to edge
};

// What is mixed between two stops: bytes, light, or what the eye makes of it.
enum class GradientMethod : uint8_t { kBytes, kLinearLight, kPerceptual };

struct GradientColorStop {
    enum Kind : uint8_t { kUserColor, kForegroundColor, kBackgroundColor };
    uint32_t color = 0;      // ARGB
    uint32_t location = 0;   // 0..4096
    uint32_t midpoint = 50;  // percent of the way from the stop before
    Kind kind = kUserColor;
};

struct GradientOpacityStop {
    uint8_t opacity = 255;
    uint32_t location = 0;   // 0..4096
    uint32_t midpoint = 50;  // as above
};

// A list that grows while it is read.
template <class T>
struct SettingList {
    Owned<T> items;  // `count` of them are in use
    size_t count = 0;

    // Null without memory.
    T* Append() {
        if (count == items.count()) {
            Owned<T> larger = AllocateZeroed<T>({count ? 2 * count : 8});
            if (!larger) return nullptr;
            for (size_t i = 0; i < count; ++i) larger[i] = std::move(items[i]);
            items = std::move(larger);
        }
        return &items[count++];
    }
    std::span<const T> span() const { return {items.get(), count}; }
};

struct GradientSettings {
    PsdUnicodeString name;
    bool isNoise = false;          // a noise gradient has no stops
    int32_t interpolation = 4096;  // smoothness, 0..4096
    SettingList<GradientColorStop> colorStops;
    SettingList<GradientOpacityStop> opacityStops;
};

struct ContourPoint {
    uint8_t x = 0;
    uint8_t y = 0;
    bool isSmooth = true;  // false: a corner
};

// Without points the contour is the straight line from (0, 0) to (255, 255).
struct ContourSettings {
    PsdUnicodeString name;
    SettingList<ContourPoint> points;
};

struct PatternSettings {
    PsdUnicodeString name;
    PsdUnicodeString identifier;
};

struct OffsetSettings {
    double horizontal = 0;  // percent of a gradient's box, pixels of a pattern
    double vertical = 0;
};

}  // namespace tessary
