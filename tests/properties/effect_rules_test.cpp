// Effects against plain rules, worked out pixel by pixel on the whole plane.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <tuple>
#include <vector>

#include "properties/effect_blur.h"
#include "properties/effect_paint.h"
#include "properties/effect_renderers.h"

namespace tessary::test {
namespace {

constexpr int kWidth = 23, kHeight = 17, kBeside = 64;
constexpr double kPi = 3.14159265358979323846;
constexpr Rect kLayer = {0, 0, kWidth, kHeight};
constexpr Rect GrownRect(int by) { return {-by, -by, kWidth + by, kHeight + by}; }

// Values of the plane around a layer; beyond them all are alike.
class Plane {
public:
    explicit Plane(const std::function<double(int, int)>& at, double outside = 0,
                   const Rect& rect = GrownRect(kBeside))
        : area(rect), beyond(outside) {
        for (int y = area.top; y < area.bottom; ++y) {
            for (int x = area.left; x < area.right; ++x) m_values.push_back(at(x, y));
        }
    }
    double operator()(int x, int y) const {
        if (x < area.left || x >= area.right || y < area.top || y >= area.bottom) return beyond;
        return m_values[size_t((y - area.top) * area.Width() + x - area.left)];
    }
    Rect area;
    double beyond;

private:
    std::vector<double> m_values;
};

double Rounded(double value) { return std::floor(value + 0.5); }
double Limited(double value) { return std::clamp(value, 0.0, 1.0); }

Plane Blurred(const Plane& plane, int radius, bool isRounded = true) {
    if (radius <= 0) return plane;
    const double sigma = 1.4 * radius / std::sqrt(2 * std::log(255.0));
    const int half = int(std::ceil(1.4 * radius));
    std::vector<double> weights;
    for (int i = 0; i <= half; ++i)
        weights.push_back(std::trunc(255 * std::exp(-i * i / (2 * sigma * sigma))));
    const auto along = [&](const Plane& from, int dx, int dy) {
        const auto at = [&, dx, dy](int x, int y) {
            double sum = 0, whole = 0;
            for (int i = -half; i <= half; ++i) {
                sum += weights[size_t(std::abs(i))] * from(x + i * dx, y + i * dy);
                whole += weights[size_t(std::abs(i))];
            }
            return isRounded ? Rounded(sum / whole) : sum / whole;
        };
        return Plane(at, 0, from.area);
    };
    return along(along(plane, 1, 0), 0, 1);
}

// The largest of coverage / 255 + radius - distance over all covered pixels, before it is limited.
Plane Growth(const Plane& coverage, double radius) {
    const int reach = int(std::ceil(radius)) + 1;
    return Plane([&](int x, int y) {
        double most = -1e9;
        for (int j = -reach; j <= reach; ++j) {
            for (int i = -reach; i <= reach; ++i) {
                const double covered = coverage(x + i, y + j);
                if (covered > 0) most = std::max(most, covered / 255 + radius - std::hypot(i, j));
            }
        }
        return most;
    });
}
Plane Grown(const Plane& coverage, double radius) {
    const Plane growth = Growth(coverage, radius);
    return Plane([&](int x, int y) { return Rounded(255 * Limited(growth(x, y))); });
}
Plane Opposite(const Plane& plane) {
    return Plane([&](int x, int y) { return 255 - plane(x, y); }, 255 - plane.beyond);
}

// A layer of random blobs with a mask, in a document with a tile.
struct Scene {
    PsdDocument document;
    PsdLayer layer;
    EffectsRecord effects;
    std::minstd_rand random;
    testing::ScopedTrace trace;

    explicit Scene(unsigned seed, bool isSharp) : random(seed + 1), trace(__FILE__, __LINE__, seed) {
        const auto below = [&](uint32_t limit) { return uint32_t(random() >> 8) % limit; };
        document.width = 60, document.height = 50;
        layer.bounds = {5, 9, 5 + kWidth, 9 + kHeight};
        layer.width = kWidth, layer.height = kHeight;
        layer.referenceX = 7, layer.referenceY = -3;
        layer.image = AllocateZeroed<uint32_t>({kWidth * kHeight});
        for (int i = 0; i < 3; ++i) {
            const int cx = int(below(kWidth)), cy = int(below(kHeight)), radius = 3 + int(below(6));
            for (int at = 0; at < kWidth * kHeight; ++at) {
                const double distance = std::hypot(at % kWidth - cx, at / kWidth - cy);
                const uint32_t alpha = distance > radius ? 0
                                       : isSharp         ? 255
                                                         : std::min(255u, 60 + below(400));
                if (alpha) layer.image[size_t(at)] = alpha << 24 | below(1u << 24);
            }
        }
        if (!isSharp) {
            layer.mask.disabled = false;
            // It enters from another side each time, and hides what is beside it or does not.
            layer.mask.bounds = std::array{Rect{8, 12, 24, 22}, Rect{-2, 5, 14, 15}, Rect{15, 19, 31, 29},
                                           Rect{9, 2, 25, 12}}[seed % 4];
            layer.mask.defaultColor = seed / 4 % 2 ? 0 : 255;
            layer.mask.data = AllocateZeroed<uint8_t>({16, 10});
            for (uint8_t& value : layer.mask.data.span()) value = uint8_t(below(2) ? 255 : below(256));
        }
        document.patterns = AllocateZeroed<PsdPattern>({1});
        document.patternCount = 1;
        PsdPattern& tile = document.patterns[0];
        tile.width = 5, tile.height = 4;
        tile.identifier.length = 1, tile.identifier.text[0] = 'a';
        tile.pixels = AllocateZeroed<uint32_t>({20});
        for (uint32_t& pixel : tile.pixels.span()) pixel = below(1u << 31) * 2 + below(2);
        for (PatternSettings* named :
             {&effects.patternOverlay.pattern, &effects.stroke.pattern, &effects.bevel.texture}) {
            named->identifier.length = 1;
            named->identifier.bytes = AllocateZeroed<uint8_t>({4});
            named->identifier.bytes[1] = 'a';
        }
    }
    uint32_t Pixel(int x, int y) const {
        return x < 0 || x >= kWidth || y < 0 || y >= kHeight ? 0 : layer.image[size_t(y * kWidth + x)];
    }
    Plane Coverage() const {
        return Plane([this](int x, int y) {
            const uint32_t alpha = Alpha(Pixel(x, y));
            if (layer.mask.disabled) return double(alpha);
            const int mx = x + 5 - layer.mask.bounds.left, my = y + 9 - layer.mask.bounds.top;
            const bool isBeside = mx < 0 || mx >= 16 || my < 0 || my >= 10;
            const uint32_t mask = isBeside ? layer.mask.defaultColor : layer.mask.data[size_t(my * 16 + mx)];
            return double(alpha * (mask + (mask == 255)) >> 8);
        });
    }
    template <class Place, class Render>
    EffectBuffer& Draw(Place place, Render render, uint32_t buffer) {
        const EffectPlace at = place(document, effects);
        EXPECT_EQ(render({document, layer, at, effects}), PsdReadResult::kOk);
        return effects.buffers[buffer];
    }
};

// Compares all channels that show.
using Want = std::function<uint32_t(int, int)>;
void ExpectPixels(const EffectBuffer& buffer, const Rect& bounds, const Want& want, int grace = 0) {
    ASSERT_TRUE(buffer.pixels);
    ASSERT_EQ(buffer.bounds, bounds);
    for (int y = bounds.top; y < bounds.bottom; ++y) {
        for (int x = bounds.left; x < bounds.right; ++x) {
            const uint32_t got = buffer.pixels[size_t((y - bounds.top) * bounds.Width() + x - bounds.left)],
                           wanted = want(x, y);
            for (int shift = 24; shift >= 0; shift -= 8) {
                const int apart = int(got >> shift & 255) - int(wanted >> shift & 255);
                ASSERT_LE(std::abs(apart), grace) << x << " " << y << std::hex << " " << got << " " << wanted;
                if (wanted >> 24 == 0) break;
            }
        }
    }
}
uint32_t WithAlpha(uint32_t color, double alpha) { return (color & 0xFFFFFF) | uint32_t(alpha) << 24; }
double CoveredShare(double value, double coverage) { return Rounded(value * coverage / 255); }
std::pair<int, int> FromLight(int degrees, int distance) {
    return {-int(std::lround(std::cos(degrees * kPi / 180) * distance)),
            int(std::lround(std::sin(degrees * kPi / 180) * distance))};
}

std::vector<uint32_t> Distances(const std::vector<uint8_t>& bytes, uint32_t columns, uint32_t halves,
                                bool isBeyond = false, bool stopsEarly = false) {
    CoveragePlane plane;
    plane.bytes = AllocateZeroed<uint8_t>({bytes.size()});
    std::ranges::copy(bytes, plane.bytes.get());
    plane.columns = columns, plane.rows = uint32_t(bytes.size()) / columns, plane.isCoveredBeyond = isBeyond;
    std::vector<uint32_t> distances(bytes.size());
    EXPECT_EQ(MeasureDistances(plane, ReachOfGrowth(halves), stopsEarly ? DistanceOfFullGrowth(halves) : 0,
                               distances.data()),
              PsdReadResult::kOk);
    return distances;
}

TEST(Growing, KeepsTheFractionsOfEdges) {
    for (unsigned seed = 0; seed < 12; ++seed) {
        const bool isSharp = seed % 2 == 0, isBeyond = seed % 4 > 1;
        const uint32_t halves = std::array<uint32_t, 4>{1, 6, 15, 52}[seed % 4];
        const Scene scene(seed, isSharp);
        const Plane covered = isBeyond ? Opposite(scene.Coverage()) : scene.Coverage();
        std::vector<uint8_t> bytes;
        for (int i = 0; i < kWidth * kHeight; ++i) bytes.push_back(uint8_t(covered(i % kWidth, i / kWidth)));
        const auto distances = Distances(bytes, kWidth, halves, isBeyond, seed % 3 == 0);
        const Plane exact = Grown(covered, halves / 2.0);
        double apart = 0;
        for (int i = 0; i < kWidth * kHeight; ++i) {
            const double want = exact(i % kWidth, i / kWidth),
                         got = GrownCoverage(distances[size_t(i)], halves);
            ASSERT_LE(got, want) << i;
            ASSERT_GE(got, isSharp ? want : 0) << i;
            apart += want - got;
        }
        EXPECT_LE(apart / (kWidth * kHeight), 2);  // five steps of coverage stand for all
    }
    std::vector<uint8_t> dot(81), edge = {255, 255, 255, 255, 64, 0, 0, 0, 0};
    dot[40] = 128;
    const std::tuple<uint32_t, std::vector<uint8_t>, uint32_t, size_t, uint32_t> cases[] = {
        // columns, coverage, halves of pixels; a place and what is there
        {9, dot, 6, 42, 255},
        {9, dot, 6, 43, 128},
        {9, dot, 6, 44, 0},
        {9, dot, 6, 60, 172},  // 128 + 255 * (3 - 2 * sqrt(2))
        {9, edge, 2, 5, 64},
        {9, edge, 4, 6, 64},
        {9, edge, 4, 7, 0},
        // Of two pixels of a column that are equally far the fuller one counts.
        {1, {130, 0, 180}, 2, 1, 180},
        {1, {180, 0, 130}, 2, 1, 180},
    };
    for (const auto& [columns, coverage, halves, at, want] : cases)
        EXPECT_EQ(GrownCoverage(Distances(coverage, columns, halves)[at], halves), want) << columns << at;
    std::vector<uint8_t> faint(25);
    faint[2] = 1;
    EXPECT_EQ(Distances(faint, 5, 2, true)[3], 510u) << "what lies beyond is fuller than the pixel beside";
}

TEST(EffectBlur, IsTheConvolutionItClaimsToBe) {
    for (const auto& [width, height, isHalved] :
         {std::tuple{1, 1, false}, {9, 4, false}, {70, 3, false}, {3, 130, false}, {90, 80, true}}) {
        std::vector<uint32_t> pixels;
        for (uint32_t i = 0; i < uint32_t(width * height); ++i) {
            // Or two flat halves, one of them darker on the right.
            const uint32_t flat = i < 40 * 90 ? 255 : i % 90 < 50 ? 0 : 99;
            pixels.push_back((isHalved ? flat : i % 3 ? i * 73 % 256 : 255) << 24 | i);
        }
        const auto at = [&, w = width](int x, int y) { return Alpha(pixels[size_t(y * w + x)]); };
        const Plane alphas(at, 0, {0, 0, width, height});
        for (const int radius : {1, 2, 5, 17, 250}) {
            const Plane want = Blurred(alphas, radius);
            for (const Kernels* kernels : {&sse2::kKernels, &WidestKernels()}) {
                auto got = pixels;
                ASSERT_EQ(BlurAlpha(got.data(), size_t(width), size_t(height), radius, *kernels),
                          PsdReadResult::kOk);
                for (int i = 0; i < width * height; ++i)
                    ASSERT_EQ(got[size_t(i)], uint32_t(want(i % width, i / width)) << 24 | uint32_t(i))
                        << width << " " << radius;
            }
        }
    }
}

TEST(ShadowsAndGlows, SpreadThenSoftenThenAreKnockedOut) {
    // Size, spread, the shadow's place, the range of a glow.
    const int cases[][5] = {{9, 0, 0, 0, 0},     {5, 30, 2, 2, 0},  {5, 9, 0, 4, 0},
                            {10, 100, 0, 0, 50}, {5, 30, 0, 0, 25}, {9, 0, 0, 0, 80}};
    for (unsigned i = 0; i < std::size(cases); ++i) {
        const auto& [size, spread, dx, dy, range] = cases[i];
        Scene scene(i, i % 3 == 0);
        ShadowSettings& shadow = scene.effects.dropShadow;
        GlowSettings& glow = scene.effects.outerGlow;
        shadow.size = glow.size = size, shadow.spreadPercent = glow.spreadPercent = spread;
        shadow.color = glow.color = 0x654321, glow.rangePercent = range, shadow.layerConceals = true;
        glow.technique = i == 4 ? GlowSettings::kPrecise : GlowSettings::kSofter;
        shadow.distance = 4, shadow.angleDegrees = dx ? 150 : 90;
        if (dy == 0) shadow.distance = 0;
        const int grown = (spread * size + 50) / 100;
        const Plane a = scene.Coverage();
        const auto boosted = [](const Plane& from) {
            return Plane([&](int x, int y) { return from(x, y) < 24 ? 10 * from(x, y) : 255; }, 0, from.area);
        };
        const Plane cut(a, 0, GrownRect(size));
        const Plane thick = Blurred(glow.technique ? boosted(cut) : cut, grown);
        const Plane soft = Blurred(grown == 0 ? thick : boosted(thick), size - grown);
        const auto want = [&, dx = dx, dy = dy, range = range](int x, int y) {
            const double alpha = soft(x - dx, y - dy);
            const double ranged = range ? std::min(255.0, std::trunc(alpha * 100 / range)) : alpha;
            return WithAlpha(0x654321, std::trunc((255 - a(x, y)) * ranged / 256));
        };
        const auto& drawn = range ? scene.Draw(PlaceOfOuterGlow, MakeOuterGlow, 2)
                                  : scene.Draw(PlaceOfDropShadow, MakeDropShadow, 0);
        const Rect bounds = {dx - size, dy - size, dx + kWidth + size, dy + kHeight + size};
        ExpectPixels(drawn, bounds, want);
    }
}

TEST(InnerShadow, IsWhatTheMovedLayerLeaves) {
    const int cases[][4] = {{0, 0, 3, 60},   {6, 0, 0, 0},     {9, 0, 30, 200},
                            {8, 40, 4, 120}, {5, 100, 2, -45}, {20, 0, 5, 315}};
    for (unsigned i = 0; i < std::size(cases); ++i) {
        const auto& [size, choke, distance, angle] = cases[i];
        Scene scene(i, choke != 0);
        ShadowSettings& shadow = scene.effects.innerShadow;
        shadow.size = size, shadow.spreadPercent = choke, shadow.distance = distance,
        shadow.angleDegrees = angle;
        shadow.color = 0x123456;
        const int c = (choke * size + 50) / 100;
        const auto [dx, dy] = FromLight(angle, distance);
        const Plane a = scene.Coverage(), soft = Blurred(Opposite(Grown(Opposite(a), c)), size - c);
        const auto want = [&, dx = dx, dy = dy](int x, int y) {
            return WithAlpha(0x123456, CoveredShare(255 - soft(x - dx, y - dy), a(x, y)));
        };
        ExpectPixels(scene.Draw(PlaceOfInnerShadow, MakeInnerShadow, 1), kLayer, want);
    }
}

TEST(InnerGlow, FallsOffFromTheEdgeOrTheCentre) {
    const int cases[][5] = {
        {6, 0, 50, 0, 0}, {9, 30, 80, 1, 0}, {0, 0, 100, 0, 0}, {7, 40, 100, 0, 1}, {4, 100, 50, 1, 1}};
    for (unsigned i = 0; i < std::size(cases); ++i) {
        const auto& [size, choke, range, isCentre, isPrecise] = cases[i];
        Scene scene(i, choke || isPrecise);
        GlowSettings& glow = scene.effects.innerGlow;
        glow.size = size, glow.spreadPercent = choke, glow.rangePercent = range, glow.fromCenter = isCentre,
        glow.color = 0xABCDEF;
        glow.technique = isPrecise ? GlowSettings::kPrecise : GlowSettings::kSofter;
        const int c = (choke * size + 50) / 100;
        const Plane a = scene.Coverage(), rest = Opposite(a);
        const Plane soft = Blurred(Opposite(Grown(rest, c)), size - c), inward = Growth(rest, size + 1);
        const auto want = [&, size = size, range = range, isCentre = isCentre, isPrecise = isPrecise](int x,
                                                                                                      int y) {
            // Growth holds the size and one more less the distance inward.
            double e = isPrecise ? Rounded(255 * Limited((inward(x, y) - 1) / std::max(1, size - c)))
                                 : 255 - soft(x, y);
            e = std::min(255.0, std::trunc(e * 100 / range));
            return WithAlpha(0xABCDEF, CoveredShare(isCentre ? 255 - e : e, a(x, y)));
        };
        ExpectPixels(scene.Draw(PlaceOfInnerGlow, MakeInnerGlow, 3), kLayer, want);
    }
}

TEST(Satin, IsTheDifferenceOfTwoMovedCopies) {
    const int cases[][4] = {{5, 4, 19, 0}, {0, 3, 90, 1}, {10, 40, 200, 0}, {8, 0, 0, 1}};
    for (unsigned i = 0; i < std::size(cases); ++i) {
        Scene scene(i, false);
        SatinSettings& satin = scene.effects.satin;
        satin.size = cases[i][0], satin.distance = cases[i][1], satin.angleDegrees = cases[i][2],
        satin.invert = cases[i][3];
        const auto [dx, dy] = FromLight(satin.angleDegrees, satin.distance);
        const Plane a = scene.Coverage(), soft = Blurred(a, satin.size);
        const auto want = [&, dx = dx, dy = dy](int x, int y) {
            const double apart = std::abs(soft(x - dx, y - dy) - soft(x + dx, y + dy));
            return WithAlpha(0, CoveredShare(satin.invert ? 255 - apart : apart, a(x, y)));
        };
        ExpectPixels(scene.Draw(PlaceOfSatin, MakeSatin, 4), kLayer, want);
    }
}

struct Stop {
    double t, middle;
    std::array<double, 4> values;  // red, green, blue, alpha
};
// Random stops, also as settings; opacities at the same places.
std::vector<Stop> FillGradient(GradientSettings& gradient, std::minstd_rand& random, size_t count) {
    std::vector<Stop> stops;
    uint32_t location = 300;
    for (size_t i = 0; i < count; ++i) {
        GradientColorStop* color = gradient.colorStops.Append();
        GradientOpacityStop* opacity = gradient.opacityStops.Append();
        color->color = uint32_t(random()) | 0xFF000000, opacity->opacity = uint8_t(random() >> 8);
        color->location = opacity->location = location;
        color->midpoint = opacity->midpoint = uint32_t(random() >> 8) % 101;
        stops.push_back({location / 4096.0,
                         color->midpoint / 100.0,
                         {double(Red(color->color)), double(Green(color->color)), double(Blue(color->color)),
                          double(opacity->opacity)}});
        location += uint32_t(random() >> 8) % 1200;
    }
    return stops;
}
uint32_t RampColor(const std::vector<Stop>& stops, double smoothness, double t) {
    size_t j = 0;
    while (j + 1 < stops.size() && stops[j + 1].t <= t) ++j;
    uint32_t color = 0;
    const auto at = [&](size_t i) { return stops[std::min(i, stops.size() - 1)]; };
    for (size_t k = 0; k < 4; ++k) {
        double value = at(j).values[k];
        if (t > stops[0].t && j + 1 < stops.size()) {
            const double p0 = at(j ? j - 1 : 0).values[k], p1 = value, p2 = at(j + 1).values[k],
                         p3 = at(j + 2).values[k];
            const double m = at(j + 1).middle, v = (t - at(j).t) / (at(j + 1).t - at(j).t);
            const double u = v < m ? v / (2 * m) : 0.5 + (v - m) / (2 * (1 - m));
            const double straight = p1 + (p2 - p1) * u;
            const double curved = (2 * u * u * u - 3 * u * u + 1) * p1 +
                                  (u * u * u - 2 * u * u + u) * (p2 - p0) / 2 +
                                  (3 * u * u - 2 * u * u * u) * p2 + (u * u * u - u * u) * (p3 - p1) / 2;
            value = straight + (curved - straight) * smoothness;
        } else if (t <= stops[0].t) {
            value = stops[0].values[k];
        }
        color |= uint32_t(Rounded(std::clamp(value, 0.0, 255.0))) << (k == 3 ? 24 : 16 - 8 * k);
    }
    return color;
}

// The place of a pixel on a gradient that fits into a box of the canvas.
struct Line {
    double left, top, width, height, angle, scale, offsetX, offsetY;
    double At(GradientStyle style, int x, int y) const {
        const auto down = [](double value) { return std::floor(value + 1e-6); };
        const double c = std::cos(angle * kPi / 180), s = std::sin(angle * kPi / 180);
        const double across = std::abs(c) < 1e-9 ? 1e9 : width / std::abs(2 * c),
                     along = std::abs(s) < 1e-9 ? 1e9 : height / std::abs(2 * s);
        const double half = std::min(across, along) * scale / 100, hx = c * half, hy = -s * half;
        const double cx = left + width / 2 + width * offsetX / 100,
                     cy = top + height / 2 + height * offsetY / 100;
        const auto cut = [](double value) { return std::trunc(value + (value < 0 ? -1e-6 : 1e-6)); };
        const bool isWhole = scale == 100;
        double sx = isWhole ? down(cx - hx) : down(cx) - cut(hx),
               sy = isWhole ? down(cy - hy) : down(cy) - cut(hy);
        const double ex = isWhole ? down(cx + hx) : down(cx) + cut(hx),
                     ey = isWhole ? down(cy + hy) : down(cy) + cut(hy);
        if (style != GradientStyle::kLinear) sx = down(cx), sy = down(cy);
        const double vx = ex - sx, vy = ey - sy, square = vx * vx + vy * vy;
        if (square == 0) return 0;
        const double u = ((x - sx) * vx + (y - sy) * vy) / square,
                     v = ((y - sy) * vx - (x - sx) * vy) / square;
        switch (style) {
        case GradientStyle::kRadial: return Limited(std::hypot(u, v));
        case GradientStyle::kReflected: return Limited(std::abs(u));
        case GradientStyle::kDiamond: return Limited(std::abs(u) + std::abs(v));
        case GradientStyle::kAngle: return std::fmod(std::atan2(v, u) / (2 * kPi) + 1, 1);
        default: return Limited(u);
        }
    }
};

TEST(GradientOverlay, LiesInTheBoxOfTheLayerOrTheDocument) {
    const double cases[][4] = {
        {0, 100, 0, 0}, {30, 100, 10, -20}, {90, 150, 0, 0}, {-135, 60, 0, 5}, {60, 99, -30, 0}};
    for (unsigned i = 0; i < 50; ++i) {
        Scene scene(i, false);
        GradientOverlaySettings& overlay = scene.effects.gradientOverlay;
        const auto& [angle, scale, offsetX, offsetY] = cases[i / 10];
        overlay.style = static_cast<GradientStyle>(i % 5), overlay.align = i % 10 < 5,
        overlay.reverse = i % 2;
        overlay.angleDegrees = angle, overlay.scalePercent = scale, overlay.offset = {offsetX, offsetY};
        overlay.gradient.interpolation = i % 3 ? 4096 : 1000;
        const auto stops = FillGradient(overlay.gradient, scene.random, 1 + i % 4);
        Line line = {0, 0, 60, 50, angle, scale, offsetX, offsetY};
        if (overlay.align) {
            int left = 99, top = 99, right = 0, bottom = 0;
            for (int at = 0; at < kWidth * kHeight; ++at) {
                const int x = at % kWidth, y = at / kWidth;
                if (Alpha(scene.Pixel(x, y)) < 128) continue;
                left = std::min(left, x), right = std::max(right, x + 1), top = std::min(top, y),
                bottom = std::max(bottom, y + 1);
            }
            line.left = 5 + left, line.top = 9 + top, line.width = right - left, line.height = bottom - top;
        }
        const Plane a = scene.Coverage();
        const auto want = [&](int x, int y) {
            const double t = line.At(overlay.style, 5 + x, 9 + y);
            const uint32_t color =
                RampColor(stops, overlay.gradient.interpolation / 4096.0, overlay.reverse ? 1 - t : t);
            return WithAlpha(color, CoveredShare(Alpha(color), a(x, y)));
        };
        // Halves of levels may fall to either side.
        ExpectPixels(scene.Draw(PlaceOfGradientOverlay, MakeGradientOverlay, 6), kLayer, want, 1);
    }
}

TEST(GradientRamp, MixesBytesLightOrWhatTheEyeSees) {
    using enum GradientMethod;
    using Stops = std::vector<std::pair<uint32_t, uint32_t>>;
    const Stops gray = {{0xFF000000, 0}, {0xFFFFFFFF, 4096}}, hues = {{0xFF0000FF, 0}, {0xFFFFFF00, 4096}};
    // Of stops at one place the first ends what comes before it, the last begins what comes behind.
    const Stops jump = {{0xFF000000, 0}, {0xFF00FF00, 2048}, {0xFF0000FF, 2048}, {0xFFFFFFFF, 4096}};
    const std::tuple<GradientMethod, Stops, double, uint32_t> cases[] = {
        {kBytes, gray, 0, 0xFF000000},         {kBytes, gray, 0.5, 0xFF808080},
        {kBytes, gray, 1, 0xFFFFFFFF},         {kLinearLight, gray, 0, 0xFF000000},
        {kLinearLight, gray, 0.5, 0xFFBCBCBC}, {kLinearLight, hues, 1, 0xFFFFFF00},
        {kPerceptual, gray, 0.5, 0xFF636363},  {kPerceptual, hues, 0, 0xFF0000FF},
        {kPerceptual, hues, 0.5, 0xFF6CABC7},  {kPerceptual, hues, 1, 0xFFFFFF00},
        {kBytes, jump, 0.25, 0xFF008000},      {kBytes, jump, 0.4999, 0xFF00FF00},
        {kBytes, jump, 0.5, 0xFF0000FF},       {kBytes, jump, 0.75, 0xFF8080FF},
    };
    for (const auto& [method, stops, place, want] : cases) {
        GradientSettings gradient;
        gradient.interpolation = 0;
        for (const auto& [color, location] : stops) *gradient.colorStops.Append() = {color, location, 50, {}};
        GradientRamp ramp;
        ASSERT_EQ(MakeRamp(gradient, method, ramp), PsdReadResult::kOk);
        uint32_t color = 0;
        DrawRamp(ramp, &place, 1, &color);
        EXPECT_EQ(color, want) << int(method) << ' ' << place;
    }
}

// Sums of the tile's channels at places, each with its share.
struct Tile {
    const PsdPattern& pattern;
    uint32_t At(double u, double v) const {
        const auto fold = [](double at, int size) {
            return size_t(((int(std::floor(at)) % size) + size) % size);
        };
        return pattern.pixels[fold(v, 4) * 5 + fold(u, 5)];
    }
    uint32_t Mean(const std::vector<std::pair<uint32_t, double>>& parts) const {
        uint32_t mean = 0;
        for (int shift = 0; shift < 32; shift += 8) {
            double sum = 0;
            for (const auto& [pixel, share] : parts) sum += (pixel >> shift & 255) * share;
            mean |= uint32_t(Rounded(sum)) << shift;
        }
        return mean;
    }
    uint32_t Between(double u, double v) const {
        const double fu = u - std::floor(u), fv = v - std::floor(v);
        return Mean({{At(u, v), (1 - fu) * (1 - fv)},
                     {At(u + 1, v), fu * (1 - fv)},
                     {At(u, v + 1), (1 - fu) * fv},
                     {At(u + 1, v + 1), fu * fv}});
    }
    uint32_t Painted(double x, double y, double scale, double angle) const {
        const double c = std::cos(angle * kPi / 180), s = std::sin(angle * kPi / 180), f = scale / 100;
        const auto u = [&](double px, double py) { return (px * c - py * s) / f; };
        const auto v = [&](double px, double py) { return (px * s + py * c) / f; };
        if (scale >= 100 && angle == 0) return Between(u(x, y), v(x, y));
        if (scale >= 100) return Between(u(x + 0.5, y + 0.5) - 0.5, v(x + 0.5, y + 0.5) - 0.5);
        std::vector<std::pair<uint32_t, double>> parts;
        for (int i = 0; i < 64; ++i) {
            const double px = x + (i % 8 + 0.5) / 8, py = y + (i / 8 + 0.5) / 8;
            parts.push_back({At(u(px, py), v(px, py)), 1.0 / 64});
        }
        return Mean(parts);
    }
};

TEST(PatternOverlay, TilesThePlane) {
    const double cases[][4] = {{100, 0, 3, 7},   {100, 0, -40.5, 0.25}, {200, 0, 1, 1}, {100, 60, 0, 2},
                               {170, -30, 5, 5}, {81, 0, 2, 0},         {7, 0, 0.3, 0}, {50, 30, 3, -8}};
    for (unsigned i = 0; i < 2 * std::size(cases); ++i) {
        Scene scene(i, false);
        PatternOverlaySettings& overlay = scene.effects.patternOverlay;
        const auto& [scale, angle, phaseX, phaseY] = cases[i / 2];
        overlay.scalePercent = scale, overlay.angleDegrees = angle, overlay.phase = {phaseX, phaseY},
        overlay.linked = i % 2;
        const Plane a = scene.Coverage();
        const Tile tile{scene.document.patterns[0]};
        const auto want = [&, scale = scale, angle = angle, phaseX = phaseX, phaseY = phaseY](int x, int y) {
            const double left = phaseX + (overlay.linked ? 7 : 0), top = phaseY + (overlay.linked ? -3 : 0);
            const uint32_t color = tile.Painted(5 + x - left, 9 + y - top, scale, angle);
            return WithAlpha(color, CoveredShare(Alpha(color), a(x, y)));
        };
        ExpectPixels(scene.Draw(PlaceOfPatternOverlay, MakePatternOverlay, 7), kLayer, want, 1);
    }
    Scene scene(0, false);
    scene.effects.patternOverlay.pattern.identifier.bytes[1] = 'b';
    EXPECT_FALSE(scene.Draw(PlaceOfPatternOverlay, MakePatternOverlay, 7).pixels);

    // 49 times the quotient 1 / 49 is less than 1.
    PsdPattern tile;
    tile.width = 49, tile.height = 1;
    tile.pixels = AllocateZeroed<uint32_t>({50});
    for (uint32_t i = 0; i < 50; ++i) tile.pixels[i] = i;
    uint32_t row[120];
    PaintRow(PatternPaint(&tile, {}), -60, 0, 120, row);
    for (uint32_t i = 0; i < 120; ++i) EXPECT_EQ(row[i], (i + 38) % 49) << i;
}

// Whether tables place the samples or not.
TEST(PatternOverlay, TakesTheSameSamplesFromTables) {
    std::minstd_rand random(7);
    const auto below = [&random](uint32_t limit) { return uint32_t(random() >> 8) % limit; };
    // At the last ones samples lie on thresholds, or a row of pixels runs along the tile.
    const double cases[][2] = {{70, 20}, {99, 301},  {45.5, -135}, {28, 45},  {20, 77},
                               {1, 33},  {6.25, 90}, {12.5, -90},  {50, 180}, {87, 1e-7}};
    for (const auto& [scale, angle] : cases) {
        // The last is larger than what is painted, and not repeated for it.
        for (const auto& [width, height] : {std::pair{1u, 1u}, {12u, 9u}, {200u, 3u}, {150u, 180u}}) {
            PsdPattern tile;
            tile.width = width, tile.height = height;
            tile.pixels = AllocateZeroed<uint32_t>({width, height});
            for (uint32_t& pixel : tile.pixels.span()) pixel = below(1u << 16) << 16 | below(1u << 16);
            PatternPlace place = {angle, scale, below(64) / 16.0 - 2, below(1000) / 7.0};
            const Paint plain = PatternPaint(&tile, place);
            place.pixels = height == 180 ? 1 << 14 : 1 << 16;
            const Paint quick = PatternPaint(&tile, place);
            ASSERT_TRUE(quick.turned && !plain.turned);
            for (int i = 0; i < 12; ++i) {
                const int64_t x = int64_t(below(4000)) - 2000, y = i == 0 ? 1 << 24 : int64_t(below(90)) - 45;
                uint32_t want[300], got[300];
                PaintRow(plain, x, y, 300, want);
                PaintRow(quick, x, y, 300, got);
                ASSERT_TRUE(std::ranges::equal(want, got)) << scale << " " << angle << " " << width;
            }
        }
    }
}

TEST(Stroke, RunsAlongTheEdge) {
    for (unsigned i = 0; i < 27; ++i) {
        Scene scene(i, true);
        StrokeSettings& stroke = scene.effects.stroke;
        stroke.position = static_cast<StrokeSettings::Position>(i % 3), stroke.size = 1 + int(i) % 7,
        stroke.color = 0x405060;
        const bool isBurst = i % 9 >= 6, isTiled = i % 9 >= 3 && !isBurst;
        stroke.paint = isBurst   ? StrokeSettings::kGradient
                       : isTiled ? StrokeSettings::kPattern
                                 : StrokeSettings::kColor;
        stroke.style = GradientStyle::kShapeBurst, stroke.reverse = i % 2;
        const auto stops = FillGradient(stroke.gradient, scene.random, 3);
        const int s = stroke.size, margin = i % 3 == 0 ? s : i % 3 == 1 ? 0 : (s + 1) / 2;
        const double r = i % 3 == 2 ? s / 2.0 : s;
        const Plane a = scene.Coverage(), rest = Opposite(a), out = Growth(a, r), in = Growth(rest, r);
        const Tile tile{scene.document.patterns[0]};
        const auto want = [&](int x, int y) {
            const double go = Rounded(255 * Limited(out(x, y))), gi = Rounded(255 * Limited(in(x, y)));
            const double alpha = i % 3 == 0   ? std::min(go, 255 - a(x, y))
                                 : i % 3 == 1 ? std::min(gi, a(x, y))
                                              : std::min(go, gi);
            const double t = i % 3 == 0      ? Limited(out(x, y) / s)
                             : i % 3 == 1    ? 1 - Limited(in(x, y) / s)
                             : a(x, y) < 128 ? std::clamp(out(x, y) / s, 0.0, 0.5)
                                             : std::clamp(1 - in(x, y) / s, 0.5, 1.0);
            const uint32_t paint = isBurst   ? RampColor(stops, 1, stroke.reverse ? 1 - t : t)
                                   : isTiled ? tile.Painted(5 + x - 7, 9 + y + 3, 100, 0)
                                             : 0xFF405060;
            return WithAlpha(paint, CoveredShare(alpha, Alpha(paint)));
        };
        // Distances are rounded up to half a level, of which a gradient may have more.
        ExpectPixels(scene.Draw(PlaceOfStroke, MakeStroke, 8), GrownRect(margin), want, isBurst ? 12 : 0);
    }
}

// Nothing in it is left uncovered, but all around it is.
TEST(Stroke, RunsInsideALayerThatFillsItsRectangle) {
    Scene scene(0, true);
    for (uint32_t& pixel : scene.layer.image.span()) pixel = 0xFF000000;
    scene.effects.stroke.size = 2, scene.effects.stroke.position = StrokeSettings::kInside;
    const auto want = [](int x, int y) {
        const int inward = std::min({x, y, kWidth - 1 - x, kHeight - 1 - y});
        return inward < 2 ? 0xFF000000 : 0;
    };
    ExpectPixels(scene.Draw(PlaceOfStroke, MakeStroke, 8), kLayer, want);
}

TEST(Stroke, HoldsALayerThatIsBlendedAsItIs) {
    for (const bool holds : {true, false}) {
        Scene scene(3, true);
        for (uint32_t& pixel : scene.layer.image.span()) pixel = 0xFF8040C0;
        scene.layer.image[0] = 0x808040C0;
        if (!holds) scene.layer.fillOpacity = 0;
        scene.effects.stroke.size = 2, scene.effects.stroke.color = 0x000000;
        const EffectBuffer& buffer = scene.Draw(PlaceOfStroke, MakeStroke, 8);
        const auto at = [&](int x, int y) { return buffer.pixels[size_t((y + 2) * (kWidth + 4) + x + 2)]; };
        EXPECT_EQ(at(0, 0), holds ? 0xFF402060 : 0x7F000000);
        EXPECT_EQ(at(1, 0) >> 24, 0u);
        EXPECT_EQ(at(1, -1), 0xFF000000);
    }
}

TEST(Bevel, FollowsTheSlopeOfItsSurface) {
    for (unsigned i = 0; i < 24; ++i) {
        const bool isChiselled = i % 3 == 2;
        Scene scene(i, isChiselled);
        BevelSettings& bevel = scene.effects.bevel;
        bevel.style = static_cast<BevelSettings::Style>(i % 4);
        bevel.technique = isChiselled ? (i % 2 ? BevelSettings::kChiselHard : BevelSettings::kChiselSoft)
                                      : BevelSettings::kSmooth;
        bevel.size = 3 + int(i) % 5, bevel.depthPercent = 60 + 20 * int(i % 8), bevel.soften = i % 5 ? 0 : 2;
        bevel.angleDegrees = 120 + 50 * int(i), bevel.altitudeDegrees = i == 9 ? 90 : i == 10 ? 0 : 30;
        bevel.directionDown = i % 7 == 3, bevel.useTexture = i % 8 == 5, bevel.textureDepthPercent = 120,
        bevel.textureInverted = i % 16 == 5;
        bevel.useContour = i % 6 == 1, bevel.rangePercent = 70;
        bevel.highlightColor = 0x112233, bevel.shadowColor = 0x445566;
        if (i % 6 == 1)
            *bevel.contour.points.Append() = {0, 255, true}, *bevel.contour.points.Append() = {255, 0, true};
        if (i % 6 == 4)
            *bevel.glossContour.points.Append() = {0, 255, true},
            *bevel.glossContour.points.Append() = {255, 0, true};
        const bool isInner = bevel.style != BevelSettings::kOuter,
                   isOuter = bevel.style != BevelSettings::kInner;
        const int r = isInner && isOuter ? (bevel.size + 1) / 2 : bevel.size;
        const Plane a = scene.Coverage(), in = Growth(Opposite(a), r), out = Growth(a, r);
        const auto slope = [r](double growth) { return std::clamp(r - growth, 0.0, double(r)) / r; };
        const Plane raised([&](int x, int y) {
            return isChiselled ? isInner * slope(in(x, y)) - isOuter * slope(out(x, y)) : a(x, y) / 255;
        });
        const Plane soft = Blurred(raised,
                                   !isChiselled                                    ? r
                                   : bevel.technique == BevelSettings::kChiselSoft ? 1
                                                                                   : 0,
                                   false);
        const Plane h([&](int x, int y) {
            return bevel.useContour ? 1 - std::min(1.0, Limited(soft(x, y)) / 0.7) : soft(x, y);
        });
        const Tile tile{scene.document.patterns[0]};
        const Plane texture([&](int x, int y) {
            const uint32_t pixel = tile.Painted(5 + x - 7, 9 + y + 3, 100, 0);
            const double light = (Red(pixel) + Green(pixel) + Blue(pixel)) / 765.0;
            return !bevel.useTexture ? 0 : 1.2 * (bevel.textureInverted ? 1 - light : light);
        });
        const double k = r * bevel.depthPercent / 100.0, angle = bevel.angleDegrees * kPi / 180,
                     up = std::sin(bevel.altitudeDegrees * kPi / 180);
        const Plane lit =
            Blurred(Plane([&](int x, int y) {
                        const double zx =
                            (k * (h(x + 1, y) - h(x - 1, y)) + texture(x + 1, y) - texture(x - 1, y)) / 2;
                        const double zy =
                            (k * (h(x, y + 1) - h(x, y - 1)) + texture(x, y + 1) - texture(x, y - 1)) / 2;
                        const double toward = zy * std::sin(angle) - zx * std::cos(angle);
                        double light = Limited((toward * std::sqrt(1 - up * up) + up) /
                                               std::sqrt(1 + zx * zx + zy * zy));
                        if (i % 6 == 4) light = 1 - light;
                        const double share = light >= up ? 1 - up : up;
                        return share < 1e-6 ? 0 : (light - up) / share * (bevel.directionDown ? -1 : 1);
                    }),
                    bevel.soften, false);
        scene.Draw(PlaceOfBevel, MakeBevel, 9);
        for (const uint32_t buffer : {9u, 10u, 11u, 12u}) {
            const bool isInside = buffer % 2 == 0, isBright = buffer < 11;
            if (!(isInside ? isInner : isOuter)) {
                EXPECT_FALSE(scene.effects.buffers[buffer].pixels) << i;
                continue;
            }
            const double sign =
                (isBright ? 1 : -1) * (!isInside && bevel.style == BevelSettings::kPillowEmboss ? -1 : 1);
            const auto want = [&](int x, int y) {
                const double alpha = std::max(0.0, lit(x, y) * sign) * (isInside ? a(x, y) : 255 - a(x, y));
                return WithAlpha(isBright ? 0x112233 : 0x445566, Rounded(alpha));
            };
            ExpectPixels(scene.effects.buffers[buffer], GrownRect(isInside ? 0 : int(std::ceil(1.4 * r))),
                         want, 1);
        }
    }
}

}  // namespace
}  // namespace tessary::test
