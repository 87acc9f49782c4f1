#include "properties/adjustment_pixels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "properties/adjustment_tables.h"

namespace tessary::test {
namespace {

template <class Map>
uint32_t Mapped(const Map& map, uint32_t pixel) {
    if constexpr (requires { map.MapRow(&pixel, &pixel, 1); }) {
        uint32_t mapped = 0;
        map.MapRow(&pixel, &mapped, 1);
        return mapped;
    } else {
        int32_t rgb[3] = {int(Red(pixel)), int(Green(pixel)), int(Blue(pixel))};
        map(rgb[0], rgb[1], rgb[2]);
        return static_cast<uint32_t>(rgb[0] << 16 | rgb[1] << 8 | rgb[2]);
    }
}

TEST(HueMap, MovesHueSaturationAndLightness) {
    const struct {
        HueSettings master, reds;
        uint32_t pixel, want;
    } cases[] = {
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
    for (const auto& test : cases) {
        HueRecord record;
        record.master = test.master;
        record.ranges[0] = {315, 345, 15, 45, test.reds};
        BuildHueWeights(record);
        EXPECT_EQ(Mapped(HueMap(record), test.pixel), test.want) << "row " << &test - cases;
    }
}

// The rule in its plainest form, one class after another.
uint32_t SelectivePlainly(const SelectiveRecord& record, uint32_t pixel) {
    const int rgb[3] = {int(Red(pixel)), int(Green(pixel)), int(Blue(pixel))};
    const int highest = std::max({rgb[0], rgb[1], rgb[2]}), lowest = std::min({rgb[0], rgb[1], rgb[2]});
    const int black = 255 - highest;
    int ink[4] = {0, 0, 0, black};
    for (int i = 0; i < 3 && black < 255; ++i) ink[i] = (255 - rgb[i] - black) * 255 / (255 - black);
    int hue = 0;
    if (highest != lowest) {
        const int largest = rgb[0] == highest ? 0 : rgb[1] == highest ? 1 : 2;
        hue = 120 * largest + 60 * (rgb[(largest + 1) % 3] - rgb[(largest + 2) % 3]) / (highest - lowest);
        hue = (hue + 360) % 360;
    }
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
        SelectiveMap(record).MapRow(colors.data(), mapped.data(), colors.size());
        for (size_t i = 0; i < colors.size(); ++i)
            ASSERT_EQ(mapped[i], SelectivePlainly(record, colors[i])) << std::hex << colors[i];
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
