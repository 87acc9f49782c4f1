#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <tuple>

#include "properties/adjustment_pixels.h"
#include "properties/adjustment_tables.h"
#include "properties/apply_adjustment.h"
#include "render/render.h"
#include "tests/render/plain_rule.h"
#include "tests/support/document_builder.h"

namespace tessary::test {
namespace {

int Byte(double value) { return static_cast<int>(std::clamp(value, 0.0, 255.0)); }

TEST(AdjustmentTables, BrightnessNeedsBothSettings) {
    const int16_t cases[][3] = {{30, 0, 127}, {0, 30, 127}, {30, 30, 0}, {50, -50, 100}, {-50, 25, 100}};
    for (const auto& [brightness, contrast, mean] : cases) {
        BrightnessRecord record{brightness, contrast, mean, false, {}};
        BuildBrightnessTable(record);
        const double share = brightness / 100.0, angle = (contrast / 100.0 + 1) * std::numbers::pi / 4;
        for (int i = 0; i < 256; ++i) {
            const double x = i / 255.0, lighter = x + share * (share < 0 ? x : 1 - x);
            const int want = Byte(((lighter - 0.5) * std::tan(angle) + 0.5) * 255 + 0.5);
            EXPECT_EQ(record.table[size_t(i)], brightness && contrast && mean ? want : i) << mean;
        }
    }
}

TEST(AdjustmentTables, LevelsFollowCompositeThenChannel) {
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

using Points = std::vector<CurvePoint>;

// The tables of these curves, each a channel and its points.
ChannelTables CurveTables(const std::vector<std::pair<uint16_t, Points>>& curves, bool grayscale = false) {
    CurvesRecord record;
    record.curves = AllocateZeroed<CurveRecord>({curves.size()});
    for (CurveRecord* curve = record.curves.get(); const auto& [channel, points] : curves) {
        curve->channel = channel;
        curve->pointCount = static_cast<uint16_t>(points.size());
        std::ranges::copy(points, curve++->points);
    }
    BuildCurvesTables(record, grayscale);
    return record.tables;
}

TEST(AdjustmentTables, CurvesDrawSplinesThroughThePoints) {
    const double x[] = {20, 20, 100, 160, 240, 240}, y[] = {30, 30, 200, 90, 250, 250};
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
    const ChannelTables tables = CurveTables({{0, {{30, 20}, {200, 100}, {90, 160}, {250, 240}}}});
    for (size_t i = 0; i < 256; ++i) EXPECT_EQ(tables.green[i], want[i]) << i;
}

TEST(AdjustmentTables, CurvesChainChannelsAndHonourTheMode) {
    const Points invert = {{255, 0}, {0, 255}}, half = {{0, 0}, {127, 255}};
    const ChannelTables color = CurveTables({{1, half}, {0, invert}, {2, {{99, 9}}}});
    EXPECT_TRUE(color.red[0] == 127 && color.red[255] == 0);
    EXPECT_EQ(color.green[9], 246) << "a single point draws nothing";
    const ChannelTables gray = CurveTables({{1, half}, {0, invert}}, true);
    EXPECT_TRUE(gray.red[0] == 255 && gray.green == ByteTable{});
    const ChannelTables last = CurveTables({{0, {{300, 400}, {9, 65535}}}});  // both fall on the last column
    EXPECT_TRUE(last.red[254] == 255 && last.red[255] == 9);
}

TEST(AdjustmentTables, BalanceAddsToneAfterTone) {
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

TEST(AdjustmentTables, HueWeightsRiseHoldFallAndGoRound) {
    HueRecord record;
    record.ranges[0] = {315, 345, 15, 45, {0, 0, 1}};
    record.ranges[1] = {15, 45, 75, 105, {1, 0, 0}};
    record.ranges[2] = {15, 45, 75, 105, {}};
    record.ranges[3] = {50, 50, 50, 50, {1, 1, 1}};
    record.ranges[4] = {32767, -32768, 32767, -32768, {1, 1, 1}};
    BuildHueWeights(record);
    for (int hue = 0; hue < 360; ++hue) {
        const auto weight = [&](int begin) {  // 30 degrees up, 30 full, 30 down
            const int into = (hue - begin + 360) % 360;
            return into > 90 ? 0 : std::min({into * 255 / 30, 255, (90 - into) * 255 / 30});
        };
        const size_t at = static_cast<size_t>(hue);
        EXPECT_EQ(record.weights[0][at], weight(315)) << hue;
        EXPECT_EQ(record.weights[1][at], weight(15)) << hue;
        EXPECT_EQ(record.weights[2][at] + record.weights[3][at], 0) << hue;
    }
}

TEST(AdjustmentTables, PosterizeGivesOneMoreThanItsLevels) {
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

TEST(AdjustmentTables, GradientMapRunsThroughTheAverageAtTheMidpoint) {
    using Stops = std::vector<MapColorStop>;
    const MapColorStop red = {160, 25, 0x00FF0000};
    const Stops inOrder = {red, {800, 50, 0xFF0000FF}, {4000, 500, 0xFF0000FE}};
    const Stops mixed = {red, {0xFFFFFFFF, 50, 0xFF0000FF}, {320, 500, 0xFF0000FE}};  // and beyond the end
    // 15 is halfway to the average: 255 - 64, 0 + 63; 35 is 127 - 127 * 15 / 30, 127 + 128 * 15 / 30.
    const std::tuple<Stops, size_t, uint32_t> cases[] = {
        {{}, 77, 0xFF000000},      {inOrder, 9, 0xFFFF0000},
        {inOrder, 10, 0xFFFF0000}, {inOrder, 15, 0xFFBF003F},
        {inOrder, 20, 0xFF7F007F}, {inOrder, 35, 0xFF4000BF},
        {inOrder, 50, 0xFF0000FF}, {inOrder, 255, 0xFF0000FE},
        {mixed, 19, 0xFFED0012},  // 9 of 61 steps to the average
        {mixed, 200, 0xFF0000FE}};
    for (const auto& [stops, at, want] : cases) {
        GradientMapRecord record;
        record.colorStops = AllocateZeroed<MapColorStop>({stops.size()});
        std::ranges::copy(stops, record.colorStops.get());
        BuildGradientMapTable(record);
        EXPECT_EQ(record.table[at], want) << at;
    }
}

template <class Map>
uint32_t Mapped(const Map& map, uint32_t pixel) {
    int32_t rgb[3] = {int(Red(pixel)), int(Green(pixel)), int(Blue(pixel))};
    map(rgb[0], rgb[1], rgb[2]);
    return static_cast<uint32_t>(rgb[0] << 16 | rgb[1] << 8 | rgb[2]);
}

TEST(AdjustmentMaps, HueMovesHueSaturationAndLightness) {
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
        uint32_t mapped = 0;
        HueMap(record).MapRow(&pixel, &mapped, 1);
        EXPECT_EQ(mapped, want) << std::hex << pixel << ' ' << want;
    }
}

// The rule in its plainest form, one class after another.
uint32_t SelectivePlainly(const SelectiveRecord& record, uint32_t pixel) {
    const PlainColor rgb = ColorOf(pixel);
    const int black = 255 - std::max({rgb.c[0], rgb.c[1], rgb.c[2]}), hue = PlainToHsl(rgb).c[0];
    int ink[4] = {0, 0, 0, black};
    for (int i = 0; i < 3 && black < 255; ++i) ink[i] = (255 - rgb.c[i] - black) * 255 / (255 - black);
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

TEST(AdjustmentMaps, SelectiveFollowsThePlainRule) {
    std::vector<uint32_t> colors(52 * 52 * 52), mapped(colors.size());
    for (uint32_t i = 0; i < colors.size(); ++i)
        colors[i] = PackPixel(i & 255, i % 52 * 5, i / 52 % 52 * 5, i / (52 * 52) * 5);
    for (const int scale : {1, -1, 400}) {
        SelectiveRecord record;
        record.absolute = scale < 0;
        for (int i = 0; i < 10; ++i) {
            if (i == 2) continue;  // a class that is skipped
            record.inks[i] = {int16_t(scale * (i * 17 % 83 - 40)), int16_t(scale * (i * 29 % 79 - 35)),
                              int16_t(scale * (30 - i * 13 % 71)), int16_t(scale * (i * 7 % 61 - 30))};
        }
        SelectiveMap(record).MapRow(colors.data(), mapped.data(), colors.size());
        for (size_t i = 0; i < colors.size(); ++i)
            ASSERT_EQ(mapped[i], SelectivePlainly(record, colors[i])) << std::hex << colors[i];
    }
}

TEST(AdjustmentMaps, ThresholdMixerAndGradientMap) {
    const uint32_t thresholds[][3] = {{0, 0, 0xFFFFFF},   {128, 0x808080, 0xFFFFFF}, {129, 0x808080, 0},
                                      {256, 0xFFFFFF, 0}, {65535, 0xFFFFFF, 0},      {76, 0xFF0000, 0xFFFFFF},
                                      {77, 0xFF0000, 0},  {28, 0x0000FF, 0}};
    for (const auto& [level, pixel, want] : thresholds)
        EXPECT_EQ(Mapped(ThresholdMap(ThresholdRecord{uint16_t(level)}), pixel), want) << level;

    MixerRecord mixer{false, {{50, 50, 50, 100, 1}, {0, 100, 0, 0, 0}, {-200, 0, 300, 0, -33}}};
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

// A 4 x 3 document whose canvas pixels differ in alpha and colour, and one layer.
struct Scene {
    explicit Scene(uint32_t layerKind, uint32_t mode = kColorRgb) {
        document.width = 4, document.height = 3, document.colorMode = mode;
        document.canvas = AllocateZeroed<uint32_t>({4, 3});
        for (uint32_t i = 0; i < 12; ++i) document.canvas[i] = i * 20 << 24 | (0x102030 + i);
        layer.layerKind = layerKind, layer.rebuildTables = true;
    }
    bool Apply(const Rect& area = {0, 0, 4, 3}) { return ApplyAdjustment(document, layer, area); }
    PsdDocument document;
    PsdLayer layer;
};

TEST(ApplyAdjustment, RecoloursTheAreaInsideTheLayerAndKeepsAlpha) {
    const Rect whole = {0, 0, 4, 3};  // what a layer without pixels of its own becomes
    for (const Rect& bounds :
         {Rect{-2, -1, 3, 2}, Rect{2, 1, 6, 9}, whole, Rect{4, 0, 9, 3}, Rect{7, 7, 7, 7}}) {
        Scene scene(kLayerInvert);
        PsdLayer& layer = scene.layer;
        layer.bounds = bounds;
        layer.width = static_cast<int32_t>(bounds.Width()),
        layer.height = static_cast<int32_t>(bounds.Height());
        if (layer.width)
            layer.image = AllocateZeroed<uint32_t>({uint64_t(layer.width), uint64_t(layer.height)});
        ASSERT_TRUE(scene.Apply({1, 0, 3, 3}));
        EXPECT_EQ(layer.bounds, bounds.IsEmpty() ? whole : bounds);
        EXPECT_TRUE(layer.width == layer.bounds.Width() && layer.height == layer.bounds.Height());
        EXPECT_FALSE(layer.rebuildTables);
        for (int i = 0; i < layer.width * layer.height; ++i) {
            const int x = layer.bounds.left + i % layer.width, y = layer.bounds.top + i / layer.width;
            const bool inside = x >= 1 && x < 3 && y >= 0 && y < 3;
            const uint32_t want = inside ? scene.document.canvas[size_t(y * 4 + x)] ^ 0xFFFFFF : 0;
            EXPECT_EQ(layer.image[size_t(i)], want) << bounds.left << ' ' << i;
        }
    }
}

TEST(ApplyAdjustment, KnowsWhatItCannotDraw) {
    const std::tuple<uint32_t, uint32_t, uint32_t, bool> cases[] = {
        {kLayerLevels, kPropertyLevels, kColorGrayscale, true},
        {kLayerLevels, kPropertyLevels, kColorCmyk, false},
        {kLayerLevels, kPropertyCurves, kColorRgb, false},
        {kLayerMixer, kPropertyMixer, kColorGrayscale, false},
        {kLayerPhotoFilter, kPropertyPhotoFilter, kColorRgb, false},
        {kLayerPatternFill, kPropertyPatternFill, kColorRgb, false},
        {kLayerInvert, kPropertyTypeTool, kColorLab, true},
    };
    for (const auto& [kind, code, mode, drawn] : cases) {
        Scene scene(kind, mode);
        AppendProperty<LevelsRecord>(scene.layer, code);
        EXPECT_EQ(scene.Apply(), drawn) << kind;
        ASSERT_EQ(scene.layer.image.count(), 12u) << kind;
        EXPECT_TRUE(scene.layer.rebuildTables != drawn && (scene.layer.image[5] != 0) == drawn) << kind;
    }
}

TEST(ApplyAdjustment, BuildsTablesOnceFromTheFirstRecord) {
    Scene scene(kLayerPosterize), balanced(kLayerBalance), neverBuilt(kLayerCurves);
    auto* first = AppendProperty<PosterizeRecord>(scene.layer, kPropertyPosterize);
    AppendProperty<PosterizeRecord>(scene.layer, kPropertyPosterize)->levels = 1;
    for (const uint16_t later : {uint16_t{255}, uint16_t{0}}) {
        first->levels = later;
        ASSERT_TRUE(scene.Apply());
        EXPECT_EQ(scene.layer.image[3], scene.document.canvas[3]);
    }
    auto* balance = AppendProperty<BalanceRecord>(balanced.layer, kPropertyBalance);
    balance->cyanRed.highlights = 100;      // + 100 * (1.075 - 1 / (16 / 16 + 1)) = 57
    balance->magentaGreen.highlights = 50;  // + 50 * (1.075 - 1 / 3) = 37
    ASSERT_TRUE(balanced.Apply());
    EXPECT_EQ(balanced.layer.image[0], balanced.document.canvas[0] + 0x392500);

    AppendProperty<CurvesRecord>(neverBuilt.layer, kPropertyCurves);
    neverBuilt.layer.rebuildTables = false;
    ASSERT_TRUE(neverBuilt.Apply());
    EXPECT_EQ(neverBuilt.layer.image[11], neverBuilt.document.canvas[11] & 0xFF000000);
}

TEST(ApplyAdjustment, ReachesTheCanvasFromAFile) {
    DocumentBuilder file(kColorRgb, 8, 3, 2, 1);
    file.Layer(LayerBuilder({0, 0, 2, 1}).Solid(0xFF204060));
    file.Layer(LayerBuilder({}).Channel(-1, {}).Block("thrs", ByteWriter().U16(65).U16(0)).Block("nvrt", {}));
    LayerBuilder masked = LayerBuilder({}).Channel(-1, {}).Block("post", ByteWriter().U16(1).U16(0));
    const Opened opened = OpenBytes(file.Layer(masked.Mask({1, 0, 2, 1}, 0, 0, Bytes{255})).Build());
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(Render(opened.document.get(), 0, 0, 2, 1), PsdReadResult::kOk);
        EXPECT_EQ(opened.document->canvas[0], 0xFFDFBF9Fu);  // the later block makes the kind
        EXPECT_EQ(opened.document->canvas[1], 0xFFFFFFFFu);
    }
}

}  // namespace
}  // namespace tessary::test
