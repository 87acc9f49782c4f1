#include "properties/gradient_ramp.h"

#include <algorithm>
#include <cmath>

#include "document/platform.h"

namespace tessary {
namespace {

constexpr double kWhole = 4096;  // of locations and of smoothness

// A stop with its values as they are mixed.
struct RampStop {
    uint32_t location = 0;
    uint32_t order = 0;  // in the file
    double middle = 0.5;
    double values[3] = {};
};

double LightOf(double byte) {
    const double share = byte / 255;
    return share <= 0.04045 ? share / 12.92 : std::pow((share + 0.055) / 1.055, 2.4);
}

// Light and the space in which equal steps look equal: cube roots of cone responses, then lightness and two
// axes.
void PerceptualOfLight(double (&values)[3]) {
    const double r = values[0], g = values[1], b = values[2];
    const double l = std::cbrt(0.4122214708 * r + 0.5363325363 * g + 0.0514459929 * b);
    const double m = std::cbrt(0.2119034982 * r + 0.6806995451 * g + 0.1073969566 * b);
    const double s = std::cbrt(0.0883024619 * r + 0.2817188376 * g + 0.6299787005 * b);
    values[0] = 0.2104542553 * l + 0.7936177850 * m - 0.0040720468 * s;
    values[1] = 1.9779984951 * l - 2.4285922050 * m + 0.4505937099 * s;
    values[2] = 0.0259040371 * l + 0.7827717662 * m - 0.8086757660 * s;
}

void LightOfPerceptual(double (&values)[3]) {
    const double l1 = values[0] + 0.3963377774 * values[1] + 0.2158037573 * values[2];
    const double m1 = values[0] - 0.1055613458 * values[1] - 0.0638541728 * values[2];
    const double s1 = values[0] - 0.0894841775 * values[1] - 1.2914855480 * values[2];
    const double l = l1 * l1 * l1, m = m1 * m1 * m1, s = s1 * s1 * s1;
    values[0] = 4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s;
    values[1] = -1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s;
    values[2] = -0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s;
}

void SetColor(uint32_t color, GradientMethod method, double (&values)[3]) {
    const double bytes[3] = {double(Red(color)), double(Green(color)), double(Blue(color))};
    for (size_t i = 0; i < 3; ++i)
        values[i] = method == GradientMethod::kBytes ? bytes[i] : LightOf(bytes[i]);
    if (method == GradientMethod::kPerceptual) PerceptualOfLight(values);
}

// The straight line from p1 to p2, bent as its neighbours p0 and p3 ask and the smoothness allows.
void SetCubic(double p0, double p1, double p2, double p3, double smoothness, double (&cubic)[4]) {
    const double tangent1 = (p2 - p0) / 2, tangent2 = (p3 - p1) / 2;
    cubic[0] = p1;
    cubic[1] = (p2 - p1) + (tangent1 - (p2 - p1)) * smoothness;
    cubic[2] = (-3 * p1 - 2 * tangent1 + 3 * p2 - tangent2) * smoothness;
    cubic[3] = (2 * p1 + tangent1 - 2 * p2 + tangent2) * smoothness;
}

template <class Stop, class SetValues>
PsdReadResult MakePieces(std::span<const Stop> stops, double smoothness, Owned<RampPiece>& pieces,
                         SetValues setValues) {
    const size_t count = stops.size();
    const Owned<RampStop> sorted = AllocateZeroed<RampStop>({count});
    pieces = AllocateZeroed<RampPiece>({count});
    if (!sorted || !pieces) return PsdReadResult::kOutOfMemory;
    for (size_t i = 0; i < count; ++i) {
        sorted[i].location = stops[i].location;
        sorted[i].order = static_cast<uint32_t>(i);
        sorted[i].middle = stops[i].midpoint / 100.0;
        setValues(stops[i], sorted[i].values);
    }
    std::ranges::sort(sorted.span(), [](const RampStop& a, const RampStop& b) {
        return a.location != b.location ? a.location < b.location : a.order < b.order;
    });
    for (size_t i = 0; i < count; ++i) {
        const size_t last = count - 1, next = std::min(i + 1, last);
        const RampStop &before = sorted[i ? i - 1 : 0], &from = sorted[i], &to = sorted[next],
                       &after = sorted[std::min(i + 2, last)];
        pieces[i].start = from.location / kWhole;
        pieces[i].middle = to.middle;
        // A piece without length is passed over: its end begins the next one.
        if (to.location != from.location) pieces[i].perLength = kWhole / (to.location - from.location);
        for (size_t k = 0; k < 3; ++k) {
            SetCubic(before.values[k], from.values[k], to.values[k], after.values[k],
                     i < last ? smoothness : 0, pieces[i].cubic[k]);
        }
    }
    return PsdReadResult::kOk;
}

void MakeLightTables(GradientRamp& ramp) {
    for (size_t i = 1; i < 256; ++i) ramp.lightOfByte[i] = LightOf(static_cast<double>(i) - 0.5);
    ramp.lightOfByte[0] = -1;
    ramp.lightOfByte[256] = 2;
    size_t byte = 0;
    for (size_t i = 0; i <= GradientRamp::kLightSteps; ++i) {
        while (static_cast<double>(i) / GradientRamp::kLightSteps >= ramp.lightOfByte[byte + 1]) ++byte;
        ramp.byteOfLight[i] = static_cast<uint8_t>(byte);
    }
}

// The piece that a place lies on, and how far along it, 0..1.
struct Spot {
    const RampPiece* piece;
    double way;
};
Spot SpotAt(const Owned<RampPiece>& pieces, double place) {
    const RampPiece* const first = pieces.get();
    const RampPiece* const end = first + pieces.count();
    const RampPiece* const behind = std::upper_bound(
        first, end, place, [](double at, const RampPiece& piece) { return at < piece.start; });
    if (place <= first->start) return {first, 0};
    const RampPiece& piece = behind[-1];
    if (piece.perLength == 0) return {&piece, 0};
    const double way = std::min((place - piece.start) * piece.perLength, 1.0);
    // A middle of 0 or 1 leaves one of the halves without length.
    if (way < piece.middle) return {&piece, way / (2 * piece.middle)};
    if (piece.middle >= 1) return {&piece, 0.5};
    return {&piece, 0.5 + (way - piece.middle) / (2 * (1 - piece.middle))};
}

double ValueAt(const double (&cubic)[4], double u) {
    return cubic[0] + u * (cubic[1] + u * (cubic[2] + u * cubic[3]));
}

uint32_t RoundedByte(double value) { return static_cast<uint32_t>(std::clamp(value, 0.0, 255.0) + 0.5); }

uint32_t ByteOfLight(const GradientRamp& ramp, double light) {
    const double limited = std::clamp(light, 0.0, 1.0);
    size_t byte = ramp.byteOfLight[static_cast<size_t>(limited * GradientRamp::kLightSteps)];
    while (limited >= ramp.lightOfByte[byte + 1]) ++byte;
    return static_cast<uint32_t>(byte);
}

uint32_t ColorAt(const GradientRamp& ramp, double place) {
    const Spot spot = SpotAt(ramp.colors, place);
    const auto& cubic = spot.piece->cubic;
    double values[3] = {ValueAt(cubic[0], spot.way), ValueAt(cubic[1], spot.way),
                        ValueAt(cubic[2], spot.way)};
    if (ramp.method == GradientMethod::kBytes)
        return PackPixel(0, RoundedByte(values[0]), RoundedByte(values[1]), RoundedByte(values[2]));
    if (ramp.method == GradientMethod::kPerceptual) LightOfPerceptual(values);
    return PackPixel(0, ByteOfLight(ramp, values[0]), ByteOfLight(ramp, values[1]),
                     ByteOfLight(ramp, values[2]));
}

}  // namespace

PsdReadResult MakeRamp(const GradientSettings& gradient, GradientMethod method, GradientRamp& ramp) {
    ramp.method = method;
    if (method != GradientMethod::kBytes) MakeLightTables(ramp);
    const double smoothness = gradient.interpolation / kWhole;
    const PsdReadResult result = MakePieces(gradient.colorStops.span(), smoothness, ramp.colors,
                                            [method](const GradientColorStop& stop, double(&values)[3]) {
                                                SetColor(stop.color, method, values);
                                            });
    if (result != PsdReadResult::kOk || gradient.opacityStops.count == 0) return result;
    return MakePieces(gradient.opacityStops.span(), smoothness, ramp.opacities,
                      [](const GradientOpacityStop& stop, double(&values)[3]) { values[0] = stop.opacity; });
}

void DrawRamp(const GradientRamp& ramp, const double* places, size_t count, uint32_t* pixels) {
    for (size_t i = 0; i < count; ++i) pixels[i] = ColorAt(ramp, places[i]) | 0xFF000000;
    if (!ramp.opacities) return;
    for (size_t i = 0; i < count; ++i) {
        const Spot spot = SpotAt(ramp.opacities, places[i]);
        pixels[i] = (pixels[i] & 0x00FFFFFF) | RoundedByte(ValueAt(spot.piece->cubic[0], spot.way)) << 24;
    }
}

}  // namespace tessary
