#include "properties/effect_paint.h"

#include <algorithm>
#include <cmath>

#include "properties/pattern_rows.h"

namespace tessary {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kFarthest = 1e6;  // pixels or percent that anything is moved by

// What a file says may be no number at all.
double Tamed(double value) { return std::isfinite(value) ? std::clamp(value, -kFarthest, kFarthest) : 0; }
double Radians(double degrees) { return std::isfinite(degrees) ? std::fmod(degrees, 360) * kPi / 180 : 0; }

// Sums of angles and halves come out a little below what they stand for.
constexpr double kGrace = 1e-6;
double Floor(double value) { return std::floor(value + kGrace); }
double Truncate(double value) { return std::copysign(std::floor(std::abs(value) + kGrace), value); }

struct Vector {
    double x, y;
};

// From the centre of the box to its edge in the direction of the gradient; y grows downward.
Vector HalfOf(const GradientPlace& place) {
    constexpr double kAlong = 1e-9;
    const double radians = Radians(place.angleDegrees);
    const double cosine = std::cos(radians), sine = std::sin(radians);
    double length = HUGE_VAL;
    if (std::abs(cosine) >= kAlong) length = place.box.width / (2 * std::abs(cosine));
    if (std::abs(sine) >= kAlong) length = std::min(length, place.box.height / (2 * std::abs(sine)));
    length *= place.scalePercent / 100;
    return {cosine * length, -sine * length};
}

// The ends fall on whole pixels, by one rule at full size and by another at all others.
void PlaceGradient(const GradientPlace& place, Paint& paint) {
    const double centerX = place.box.centerX + place.box.width * Tamed(place.offset.horizontal) / 100;
    const double centerY = place.box.centerY + place.box.height * Tamed(place.offset.vertical) / 100;
    const Vector half = HalfOf(place);
    const Vector center = {Floor(centerX), Floor(centerY)};
    Vector start, end;
    if (place.scalePercent == 100) {
        start = {Floor(centerX - half.x), Floor(centerY - half.y)};
        end = {Floor(centerX + half.x), Floor(centerY + half.y)};
    } else {
        start = {center.x - Truncate(half.x), center.y - Truncate(half.y)};
        end = {center.x + Truncate(half.x), center.y + Truncate(half.y)};
    }
    paint.style = place.style;
    if (place.style == GradientStyle::kShapeBurst) paint.style = GradientStyle::kLinear;
    if (paint.style != GradientStyle::kLinear) start = center;
    const Vector way = {end.x - start.x, end.y - start.y};
    const double square = way.x * way.x + way.y * way.y;
    paint.startX = start.x;
    paint.startY = start.y;
    paint.vectorX = square > 0 ? way.x / square : 0;
    paint.vectorY = square > 0 ? way.y / square : 0;
}

// The arc tangent of 0..1, to the last bits of a double and the same in every library: a quotient of
// polynomials.
double ArcTangent(double x) {
    const bool isHigh = x > 0.41421356237309503;
    const double t = isHigh ? (x - 1) / (x + 1) : x;
    const double z = t * t;
    const double above =
        (((-8.750608600031904122785e-1 * z - 1.615753718733365076637e1) * z - 7.500855792314704667340e1) * z -
         1.228866684490136173410e2) *
            z -
        6.485021904942025371773e1;
    const double below =
        ((((z + 2.485846490142306297962e1) * z + 1.650270098316988542046e2) * z + 4.328810604912902668951e2) *
             z +
         4.853903996359136964868e2) *
            z +
        1.945506571482613964425e2;
    return (isHigh ? kPi / 4 : 0) + (t * (z * above / below) + t);
}

// The angle of (u, v) as a share of the circle, 0..1, growing from the direction of u to that of v.
double Turn(double u, double v) {
    const double x = std::abs(u), y = std::abs(v);
    if (x == 0 && y == 0) return 0;
    double angle = y <= x ? ArcTangent(y / x) : kPi / 2 - ArcTangent(x / y);
    if (u < 0) angle = kPi - angle;
    const double turn = angle / (2 * kPi);
    return v < 0 ? 1 - turn : turn;
}

// Calls put(u, v) for pixels of a row: along the gradient and across it, in lengths of its vector.
template <class ToPlace>
void FillPlaces(const Paint& paint, int64_t x, int64_t y, size_t count, double* places, ToPlace toPlace) {
    const double down = static_cast<double>(y) - paint.startY, right = static_cast<double>(x) - paint.startX;
    for (size_t i = 0; i < count; ++i) {
        const double across = right + static_cast<double>(static_cast<int32_t>(i));
        places[i] = toPlace(across * paint.vectorX + down * paint.vectorY,
                            down * paint.vectorX - across * paint.vectorY);
    }
}

void PaintGradient(const Paint& paint, int64_t x, int64_t y, size_t count, uint32_t* pixels) {
    double places[kPaintRun];
    const auto fill = [&](auto toPlace) { FillPlaces(paint, x, y, count, places, toPlace); };
    const bool hasLength = paint.vectorX != 0 || paint.vectorY != 0;
    switch (hasLength ? paint.style : GradientStyle::kLinear) {
    case GradientStyle::kRadial: fill([](double u, double v) { return std::sqrt(u * u + v * v); }); break;
    case GradientStyle::kAngle: fill(Turn); break;
    case GradientStyle::kReflected: fill([](double u, double) { return std::abs(u); }); break;
    case GradientStyle::kDiamond: fill([](double u, double v) { return std::abs(u) + std::abs(v); }); break;
    default: fill([](double u, double) { return u; });
    }
    PaintPlaces(paint, places, count, pixels);
}

}  // namespace

Paint ColorPaint(uint32_t color) {
    Paint paint;
    paint.kind = Paint::kColor;
    paint.color = color | 0xFF000000;
    return paint;
}

PsdReadResult MakeGradientPaint(const GradientSettings& gradient, GradientMethod method,
                                const GradientPlace& place, Paint& paint) {
    if (!HasRamp(gradient)) return PsdReadResult::kOk;
    const PsdReadResult result = MakeRamp(gradient, method, paint.ramp);
    if (result != PsdReadResult::kOk) return result;
    PlaceGradient(place, paint);
    paint.reverse = place.reverse;
    paint.kind = Paint::kGradient;
    return PsdReadResult::kOk;
}

Paint PatternPaint(const PsdPattern* tile, const PatternPlace& place) {
    Paint paint;
    if (!tile) return paint;
    paint.kind = Paint::kPattern;
    paint.tile = tile;
    paint.scale = place.scalePercent / 100;
    paint.isTurned = std::isfinite(place.angleDegrees) && place.angleDegrees != 0;
    if (paint.isTurned) {
        paint.cosine = std::cos(Radians(place.angleDegrees));
        paint.sine = std::sin(Radians(place.angleDegrees));
        if (paint.scale < 1)
            paint.turned =
                MakeTurnedTile(*tile, paint.cosine / paint.scale, paint.sine / paint.scale, place.pixels);
    }
    paint.originX = Tamed(place.originX);
    paint.originY = Tamed(place.originY);
    return paint;
}

void PaintPlaces(const Paint& paint, double* places, size_t count, uint32_t* pixels) {
    for (size_t i = 0; i < count; ++i) {
        const double place = std::clamp(places[i], 0.0, 1.0);
        places[i] = paint.reverse ? 1 - place : place;
    }
    DrawRamp(paint.ramp, places, count, pixels);
}

void PaintRow(const Paint& paint, int64_t x, int64_t y, size_t count, uint32_t* pixels) {
    switch (paint.kind) {
    case Paint::kColor: std::fill_n(pixels, count, paint.color); break;
    case Paint::kGradient: PaintGradient(paint, x, y, count, pixels); break;
    case Paint::kPattern: PatternRow(paint, x, y, count, pixels); break;
    case Paint::kNothing: std::fill_n(pixels, count, 0u); break;
    }
}

}  // namespace tessary
