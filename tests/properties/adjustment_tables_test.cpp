#include "properties/adjustment_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <tuple>
#include <vector>

#include "properties/adjustment_pixels.h"
#include "tests/render/plain_rule.h"

namespace tessary::test {
namespace {

int Byte(double value) { return static_cast<int>(std::min(std::max(value, 0.0), 255.0)); }

TEST(BrightnessTable, NeedsBothSettings) {
    BrightnessRecord record;
    const int16_t unchanged[][3] = {{30, 0, 127}, {0, 30, 127}, {30, 30, 0}};
    for (const auto& [brightness, contrast, mean] : unchanged) {
        record = {brightness, contrast, mean, false, {}};
        BuildBrightnessTable(record);
        for (size_t i = 0; i < 256; ++i) EXPECT_EQ(record.table[i], i);
    }
    record = {50, -50, 100, false, {}};  // half of what is missing is added, then the slope is tan(pi / 8)
    BuildBrightnessTable(record);
    for (int i = 0; i < 256; ++i) {
        const double x = i / 255.0, lighter = x + (1 - x) / 2;
        EXPECT_EQ(record.table[size_t(i)], Byte(((lighter - 0.5) * 0.41421356 + 0.5) * 255 + 0.5));
    }
    record = {-50, 25, 100, false, {}};  // (200 / 255 / 2 - 0.5) * 1.49661 + 0.5 = 0.33860
    BuildBrightnessTable(record);
    EXPECT_EQ(record.table[200], 86);
}

TEST(LevelsTables, FollowCompositeThenChannel) {
    LevelsRecord record;
    for (LevelRecord& level : record.levels) level = {0, 255, 0, 255, 1.0f};
    record.levels[0] = {50, 150, 0, 255, 1.0f};
    record.levels[1] = {0, 255, 255, 0, 1.0f};
    record.levels[2] = {0, 255, 0, 255, 2.0f};
    record.levels[3] = {128, 128, 20, 300, 1.0f};
    BuildLevelsTables(record, false);
    for (int i = 0; i < 256; ++i) {
        const size_t at = static_cast<size_t>(i);
        const int composite = Byte((i - 50) * 255 / 100);
        EXPECT_EQ(record.tables.red[at], std::min(255, 256 - composite)) << i;  // 128 is added, then cut
        EXPECT_EQ(record.tables.green[at], Byte(std::sqrt(composite / 255.0) * 255 + 0.5)) << i;
        EXPECT_EQ(record.tables.blue[at], composite > 128 ? 255 : 20) << i;
    }
    BuildLevelsTables(record, true);
    EXPECT_EQ(record.tables.blue[100], 127);

    const std::tuple<LevelRecord, size_t, int> rows[] = {
        {{0, 255, 0, 255, 0.0f}, 254, 0},     {{0, 255, 0, 255, 0.0f}, 255, 255},
        {{100, 255, 0, 255, 0.5f}, 50, 0},    {{100, 100, 0, 255, 3.0f}, 100, 0},
        {{100, 100, 0, 255, 3.0f}, 101, 255}, {{255, 0, 0, 255, 1.0f}, 55, 200},
        {{0, 255, 100, 50, 1.0f}, 255, 51},  // 100 + (128 - 255 * 50) / 255, toward zero
    };
    for (const auto& [level, index, want] : rows) {
        record.levels[0] = level;
        BuildLevelsTables(record, true);
        EXPECT_EQ(record.tables.red[index], want) << index;
    }
}

CurveRecord Curve(uint16_t channel, std::initializer_list<CurvePoint> points) {
    CurveRecord curve;
    curve.channel = channel;
    for (const CurvePoint& point : points) curve.points[curve.pointCount++] = point;
    return curve;
}

void SetCurves(CurvesRecord& record, std::initializer_list<CurveRecord> curves) {
    record.tables = {};
    record.curves = AllocateZeroed<CurveRecord>({curves.size()});
    std::copy(curves.begin(), curves.end(), record.curves.get());
}

TEST(CurvesTables, DrawSplinesThroughThePoints) {
    CurvesRecord record;
    SetCurves(record, {Curve(0, {{30, 20}, {200, 100}, {90, 160}, {250, 240}})});
    BuildCurvesTables(record, false);
    const double x[] = {20, 20, 100, 160, 240, 240};
    const double y[] = {30, 30, 200, 90, 250, 250};
    int want[256];
    for (int i = 0; i < 256; ++i) want[i] = i < 20 ? 30 : 250;
    for (int segment = 0; segment < 3; ++segment) {
        // The cubic evaluated directly; a column has what the last step that rounds to it gives.
        const auto at = [&](const double* p, double t) {
            return 0.5 * (2 * p[1] + t * (p[2] - p[0] +
                                          t * (2 * p[0] - 5 * p[1] + 4 * p[2] - p[3] +
                                               t * (3 * (p[1] - p[2]) + p[3] - p[0]))));
        };
        for (int step = 1; step <= 512; ++step)
            want[Byte(at(x + segment, step / 512.0) + 0.5)] = Byte(at(y + segment, step / 512.0) + 0.5);
    }
    for (int i = 1; i < 5; ++i) want[int(x[i])] = int(y[i]);
    for (size_t i = 0; i < 256; ++i) EXPECT_EQ(record.tables.green[i], want[i]) << i;
}

TEST(CurvesTables, ChainChannelsAndHonourTheMode) {
    const CurveRecord invert = Curve(0, {{255, 0}, {0, 255}});
    const CurveRecord half = Curve(1, {{0, 0}, {127, 255}});
    CurvesRecord record;
    SetCurves(record, {half, invert, Curve(2, {{99, 9}})});
    BuildCurvesTables(record, false);
    EXPECT_EQ(record.tables.red[0], 127);
    EXPECT_EQ(record.tables.red[255], 0);
    EXPECT_EQ(record.tables.green[9], 246);  // a single point draws nothing
    SetCurves(record, {half, invert});
    BuildCurvesTables(record, true);
    EXPECT_EQ(record.tables.red[0], 255);
    EXPECT_EQ(record.tables.green, ByteTable{});
    SetCurves(record, {Curve(0, {{300, 400}, {9, 65535}})});  // both fall on the last column
    BuildCurvesTables(record, false);
    EXPECT_EQ(record.tables.red[254], 255);
    EXPECT_EQ(record.tables.red[255], 9);
}

TEST(BalanceTables, AddToneAfterTone) {
    BalanceRecord record;
    record.cyanRed = {100, 0, 0};
    record.magentaGreen = {-100, 0, 0};
    record.yellowBlue = {0, -100, 100};
    BuildBalanceTables(record);
    // The hump is 0.667 at 127 and -0.0105 at 255; the fading curve 0.075 at its foot, 0.963 at 127, and for
    // the highlights 1.075 - 1 / (61 / 16 + 1) = 0.867.
    EXPECT_TRUE(record.tables.red[127] == 127 + 66 && record.tables.red[255] == 254);
    EXPECT_TRUE(record.tables.green[127] == 127 - 96 && record.tables.green[255] == 255 - 7);
    EXPECT_TRUE(record.tables.blue[127] == 127 - 66 + 86 && record.tables.blue[0] == 7);
}

TEST(HueWeights, RiseHoldFallAndGoRound) {
    HueRecord record;
    record.ranges[0] = {315, 345, 15, 45, {0, 0, 1}};
    record.ranges[1] = {15, 45, 75, 105, {1, 0, 0}};
    record.ranges[2] = {15, 45, 75, 105, {}};
    record.ranges[3] = {50, 50, 50, 50, {1, 1, 1}};
    record.ranges[4] = {32767, -32768, 32767, -32768, {1, 1, 1}};
    BuildHueWeights(record);
    const int wanted[][3] = {{315, 0, 0},  {316, 8, 0},  {345, 255, 0}, {0, 255, 0},  {14, 255, 0},
                             {15, 255, 0}, {16, 246, 8}, {45, 0, 255},  {75, 0, 255}, {104, 0, 8}};
    for (const auto& [hue, reds, yellows] : wanted) {
        const size_t h = static_cast<size_t>(hue);
        EXPECT_EQ(record.weights[0][h], reds) << hue;
        EXPECT_EQ(record.weights[1][h], yellows) << hue;
        EXPECT_EQ(record.weights[2][h] + record.weights[3][h], 0) << hue;
    }
}

TEST(PosterizeTable, GivesOneMoreThanItsLevels) {
    for (const int levels : {0, 2, 4, 255, 65535}) {
        PosterizeRecord record{uint16_t(levels), {}};
        BuildPosterizeTable(record);
        const uint8_t two[] = {0, 128, 255}, four[] = {0, 64, 128, 191, 255};
        for (size_t i = 0; i < 256; ++i) {
            const size_t few = levels == 2 ? two[(i + 64) / 128] : four[(i * 8 + 255) / 510];
            EXPECT_EQ(record.table[i], levels == 0 ? 0 : levels > 4 ? i : few) << levels << ", " << i;
        }
    }
}

TEST(GradientMapTable, RunsThroughTheAverageAtTheMidpoint) {
    GradientMapRecord record;
    BuildGradientMapTable(record);
    EXPECT_EQ(record.table[77], 0xFF000000u);

    record.colorStops = AllocateZeroed<MapColorStop>({3});
    record.colorStops[0] = {160, 25, 0x00FF0000};
    record.colorStops[1] = {800, 50, 0xFF0000FF};
    record.colorStops[2] = {4000, 500, 0xFF0000FE};
    BuildGradientMapTable(record);
    // 15 is halfway to the average: 255 - 64, 0 + 63; 35 is 127 - 127 * 15 / 30, 127 + 128 * 15 / 30.
    const std::pair<size_t, uint32_t> wanted[] = {{9, 0xFFFF0000},  {10, 0xFFFF0000}, {15, 0xFFBF003F},
                                                  {20, 0xFF7F007F}, {35, 0xFF4000BF}, {50, 0xFF0000FF},
                                                  {255, 0xFF0000FE}};
    for (const auto& [at, want] : wanted) EXPECT_EQ(record.table[at], want) << at;

    record.colorStops[1].location = 0xFFFFFFFF;  // stops out of order, and beyond the end
    record.colorStops[2].location = 320;
    BuildGradientMapTable(record);
    EXPECT_EQ(record.table[19], 0xFFED0012u);  // 9 of 61 steps to the average
    EXPECT_EQ(record.table[200], 0xFF0000FEu);
}

template <class Map>
uint32_t Mapped(const Map& map, uint32_t pixel) {
    if constexpr (requires { map.MapRow(&pixel, &pixel, 1); }) {
        uint32_t mapped = 0, widely = 0;
        map.MapRow(&pixel, &mapped, 1, VectorPath::kSse2);
        map.MapRow(&pixel, &widely, 1);
        EXPECT_EQ(mapped, widely);
        return mapped;
    } else {
        int32_t rgb[3] = {int(Red(pixel)), int(Green(pixel)), int(Blue(pixel))};
        map(rgb[0], rgb[1], rgb[2]);
        return static_cast<uint32_t>(rgb[0] << 16 | rgb[1] << 8 | rgb[2]);
    }
}

TEST(HueMap, MovesHueSaturationAndLightness) {
    const std::tuple<HueSettings, HueSettings, uint32_t, uint32_t> cases[] = {
        {{}, {}, 0x9A123457, 0x9A123457},
        {{120, 0, 0}, {}, 0x9AFF0000, 0x9A01FF01},  // S 254, L 128: high 255, low 1
        {{-32640, 0, 0}, {}, 0xFF0000, 0x01FF01},
        {{360, 0, 0}, {}, 0xFF0000, 0xFF0101},
        {{0, -30000, 0}, {}, 0xFF0000, 0x808080},
        {{0, 0, 100}, {}, 0x404040, 0x808080},
        {{0, 0, 100}, {}, 0xFF8080, 0xFFFEFE},  // high 256, low 254
        {{}, {0, 0, -50}, 0x00FF00, 0x00FF00},
        {{}, {0, 0, -50}, 0x646464, 0x323232},
        {{0, 0, 50}, {0, 0, -50}, 0x646464, 0x646464},
        {{}, {0, 0, -100}, 0xFF8000, 0x834201},
    };
    for (const auto& [master, reds, pixel, want] : cases) {
        HueRecord record;
        record.master = master;
        record.ranges[0] = {315, 345, 15, 45, reds};
        BuildHueWeights(record);
        EXPECT_EQ(Mapped(HueMap(record), pixel), want) << std::hex << pixel << ' ' << want;
    }
}

// The rule in its plainest form, one class after another.
uint32_t SelectivePlainly(const SelectiveRecord& record, uint32_t pixel) {
    const PlainColor rgb = ColorOf(pixel);
    const int black = 255 - std::max({rgb.c[0], rgb.c[1], rgb.c[2]});
    int ink[4] = {0, 0, 0, black};
    for (int i = 0; i < 3 && black < 255; ++i) ink[i] = (255 - rgb.c[i] - black) * 255 / (255 - black);
    const int hue = PlainToHsl(ColorOf(pixel)).c[0];
    int sum[4] = {ink[0], ink[1], ink[2], ink[3]};
    const auto add = [&](const InkAdjustment& change, int weight, int divisor) {
        const int values[4] = {change.cyan, change.magenta, change.yellow, change.black};
        for (int i = 0; i < 4; ++i) sum[i] += values[i] * weight * (record.absolute ? 255 : ink[i]) / divisor;
    };
    for (int i = 0; i < 6; ++i) {
        const int into = hue - (15 + 60 * i - 60);
        if (into < 0 || into >= 90) continue;
        add(record.inks[1 + i], std::min({into * 255 / 30, 255, (90 - into) * 255 / 30}), 25500);
    }
    add(record.inks[black == 0 ? 7 : black < 255 ? 8 : 9], 1, 100);
    for (int& value : sum) value = std::clamp(value, 0, 255);
    const auto back = [&](int i) {
        return static_cast<uint32_t>((65535 - (255 - sum[3]) * sum[i] - 256 * sum[3]) >> 8);
    };
    return PackPixel(Alpha(pixel), back(0), back(1), back(2));
}

TEST(SelectiveMap, FollowsThePlainRule) {
    std::vector<uint32_t> colors;
    for (uint32_t i = 0; i < 52 * 52 * 52; ++i)
        colors.push_back(PackPixel(i & 255, i % 52 * 5, i / 52 % 52 * 5, i / (52 * 52) * 5));
    std::vector<uint32_t> mapped(colors.size());
    for (const int scale : {1, -1, 400}) {
        SelectiveRecord record;
        record.absolute = scale < 0;
        for (int i = 0; i < 10; ++i) {
            if (i == 2) continue;  // a class that is skipped
            record.inks[i] = {int16_t(scale * (i * 17 % 83 - 40)), int16_t(scale * (i * 29 % 79 - 35)),
                              int16_t(scale * (30 - i * 13 % 71)), int16_t(scale * (i * 7 % 61 - 30))};
        }
        for (const VectorPath path : {VectorPath::kSse2, WidestVectorPath()}) {
            SelectiveMap(record).MapRow(colors.data(), mapped.data(), colors.size(), path);
            for (size_t i = 0; i < colors.size(); ++i)
                ASSERT_EQ(mapped[i], SelectivePlainly(record, colors[i])) << std::hex << colors[i];
        }
    }
}

TEST(LightMaps, FollowTheirRules) {
    const uint32_t thresholds[][3] = {{0, 0, 0xFFFFFF},   {128, 0x808080, 0xFFFFFF}, {129, 0x808080, 0},
                                      {256, 0xFFFFFF, 0}, {65535, 0xFFFFFF, 0},      {76, 0xFF0000, 0xFFFFFF},
                                      {77, 0xFF0000, 0},  {28, 0x0000FF, 0}};
    for (const auto& [level, pixel, want] : thresholds)
        EXPECT_EQ(Mapped(ThresholdMap(ThresholdRecord{uint16_t(level)}), pixel), want) << level;

    MixerRecord mixer;
    mixer.rows[MixerRecord::kRed] = {50, 50, 50, 100, 1};
    mixer.rows[MixerRecord::kGreen] = {0, 100, 0, 0, 0};
    mixer.rows[MixerRecord::kBlue] = {-200, 0, 300, 0, -33};
    EXPECT_EQ(Mapped(MixerMap(mixer), 0x010305), 0x050300u);  // 0 + 1 + 2 + 2; 3; -2 + 15 - 84
    EXPECT_EQ(Mapped(MixerMap(mixer), 0x10FFFF), 0xFFFFFFu);
    mixer.monochrome = true;
    EXPECT_EQ(Mapped(MixerMap(mixer), 0x010305), 0x050505u);

    GradientMapRecord gradient;
    for (uint32_t i = 0; i < 256; ++i) gradient.table[i] = 0xFF000000 | i << 8 | 7;
    EXPECT_EQ(Mapped(GradientMapMap(gradient), 0xFF0000), 76u << 8 | 7);
    gradient.reverse = true;
    EXPECT_EQ(Mapped(GradientMapMap(gradient), 0xFF0000), 179u << 8 | 7);
}

}  // namespace
}  // namespace tessary::test
