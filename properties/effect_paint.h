// What overlays and strokes paint with: a colour, a gradient or a pattern.
#pragma once

#include <cstddef>
#include <cstdint>

#include "document/psd_document.h"
#include "properties/gradient_ramp.h"
#include "properties/pattern_samples.h"

namespace tessary {

// What a gradient fits into, canvas coordinates. Half of an odd stroke reaches to the middle of pixels.
struct GradientBox {
    double centerX = 0, centerY = 0;
    double width = 0, height = 0;
};

// Where a gradient lies.
struct GradientPlace {
    GradientStyle style = GradientStyle::kLinear;
    double angleDegrees = 0;
    double scalePercent = 100;
    OffsetSettings offset;
    bool reverse = false;
    GradientBox box;
};

// Where the tiles of a pattern lie.
struct PatternPlace {
    double angleDegrees = 0;
    double scalePercent = 100;
    double originX = 0, originY = 0;  // canvas coordinates
    uint64_t pixels = 0;              // about so many will be painted
};

// Made by one of the functions below, which borrow what they are given.
struct Paint {
    enum Kind : uint8_t { kNothing, kColor, kGradient, kPattern };
    Kind kind = kNothing;
    uint32_t color = 0;
    GradientRamp ramp;
    GradientStyle style = GradientStyle::kLinear;
    bool reverse = false;
    double startX = 0, startY = 0;    // of a linear gradient, the centre of the others
    double vectorX = 0, vectorY = 0;  // to its end, divided by the square of its length
    const PsdPattern* tile = nullptr;
    double scale = 1;  // of the tile, 1: its own size
    bool isTurned = false;
    double cosine = 1, sine = 0;
    Owned<TurnedTile> turned;  // null: every sample is placed by itself
    double originX = 0, originY = 0;
};

Paint ColorPaint(uint32_t color);
// kOutOfMemory. Without colours nothing is painted.
PsdReadResult MakeGradientPaint(const GradientSettings& gradient, GradientMethod method,
                                const GradientPlace& place, Paint& paint);
// `tile` null: nothing is painted.
Paint PatternPaint(const PsdPattern* tile, const PatternPlace& place);

inline constexpr size_t kPaintRun = 512;

// `count` pixels from (x, y) of the canvas on, at most kPaintRun; alpha is the paint's own.
void PaintRow(const Paint& paint, int64_t x, int64_t y, size_t count, uint32_t* pixels);

// A gradient's colours at places that are known, 0..1, reversed if it is.
void PaintPlaces(const Paint& paint, double* places, size_t count, uint32_t* pixels);

}  // namespace tessary
