#include "properties/adjustment_pixels.h"

#include <algorithm>

// Rows are mapped in chunks by loops that each do one thing: those that only compute vectorise, and the
// lookups stand between them.

namespace tessary {
namespace {

constexpr size_t kChunk = 256;

struct HslChunk {
    int32_t hue[kChunk];
    int32_t saturation[kChunk];
    int32_t lightness[kChunk];
};

IntegerHsl HslOf(uint32_t pixel) {
    return RgbToHsl(static_cast<int32_t>(Red(pixel)), static_cast<int32_t>(Green(pixel)),
                    static_cast<int32_t>(Blue(pixel)));
}

uint32_t PackOver(uint32_t alphaOf, int32_t red, int32_t green, int32_t blue) {
    return (alphaOf & 0xFF000000) | static_cast<uint32_t>(red << 16 | green << 8 | blue);
}

// The weight of class `index` (reds to magentas) at a hue: rises over 30 degrees, holds for 30 and falls over
// 30. The reds do not go round: 345 to 359 degrees belong to no class.
int32_t ClassWeight(int32_t index, int32_t hue) {
    const int32_t center = 15 + 60 * index;
    if (hue < center - 60 || hue >= center + 30) return 0;
    if (hue < center - 30) return (hue - (center - 60)) * 255 / 30;
    return hue < center ? 255 : (center + 30 - hue) * 255 / 30;
}

}  // namespace

HueMap::HueMap(const HueRecord& record) {
    for (size_t h = 0; h < m_shifts.size(); ++h) {
        int32_t hue = record.master.hue;
        int32_t saturation = record.master.saturation;
        int32_t lightness = record.master.lightness;
        for (size_t r = 0; r < HueRecord::kRangeCount; ++r) {
            const HueSettings& settings = record.ranges[r].settings;
            const int32_t weight = record.weights[r][h];
            hue += settings.hue * weight / 255;
            saturation += settings.saturation * weight / 255;
            lightness += settings.lightness * weight / 255;
        }
        const int32_t turned = hue % 360;
        m_shifts[h] = {static_cast<int16_t>(turned < 0 ? turned + 360 : turned),
                       static_cast<int16_t>(std::clamp(saturation, -100, 100)),
                       static_cast<int16_t>(std::clamp(lightness, -100, 100)),
                       hue != 0 || saturation != 0 || lightness != 0};
    }
}

void HueMap::MapRow(const uint32_t* in, uint32_t* out, size_t count) const {
    HslChunk color;
    HslChunk shift;
    uint32_t changed[kChunk];  // all ones where the pixel changes
    for (size_t begin = 0; begin < count; begin += kChunk) {
        const uint32_t* from = in + begin;
        uint32_t* to = out + begin;
        const size_t n = std::min(kChunk, count - begin);
        for (size_t i = 0; i < n; ++i) {
            const IntegerHsl hsl = HslOf(from[i]);
            color.hue[i] = hsl.hue;
            color.saturation[i] = hsl.saturation;
            color.lightness[i] = hsl.lightness;
        }
        for (size_t i = 0; i < n; ++i) {
            const Shift& entry = m_shifts[static_cast<size_t>(color.hue[i])];
            shift.hue[i] = entry.hue;
            shift.saturation[i] = entry.saturation;
            shift.lightness[i] = entry.lightness;
            changed[i] = entry.any ? 0xFFFFFFFF : 0;
        }
        for (size_t i = 0; i < n; ++i) {
            const int32_t hue = color.hue[i] + shift.hue[i];
            const int32_t saturation = color.saturation[i];
            const int32_t lightness = color.lightness[i];
            const IntegerRgb rgb =
                HslToRgb({hue >= 360 ? hue - 360 : hue,
                          ClampToByte(saturation + SmallQuotient(shift.saturation[i] * saturation, 100)),
                          ClampToByte(lightness + SmallQuotient(shift.lightness[i] * lightness, 100))});
            const uint32_t mapped =
                PackOver(from[i], ClampToByte(rgb.red), ClampToByte(rgb.green), ClampToByte(rgb.blue));
            // The way there and back is not exact, so pixels that nothing applies to must not take it.
            to[i] = (mapped & changed[i]) | (from[i] & ~changed[i]);
        }
    }
}

SelectiveMap::SelectiveMap(const SelectiveRecord& record) : m_whole(record.absolute ? 255 : 0) {
    const auto valuesOf = [&](int32_t ink, int32_t weight) {
        const InkAdjustment& values = record.inks[ink];
        return InkValues{values.cyan * weight, values.magenta * weight, values.yellow * weight,
                         values.black * weight};
    };
    for (int32_t hue = 0; hue < 360; ++hue) {
        HueValues& entry = m_hues[static_cast<size_t>(hue)];
        bool hasFirst = false;
        for (int32_t i = 0; i < 6; ++i) {
            const int32_t ink = SelectiveRecord::kReds + i;
            const int32_t weight = ClassWeight(i, hue);
            if (weight == 0 || record.inks[ink].IsZero()) continue;
            // No hue lies in more than two classes.
            (hasFirst ? entry.second : entry.first) = valuesOf(ink, weight);
            entry.hasSecond = hasFirst;
            hasFirst = true;
        }
    }
    for (int32_t i = 0; i < 3; ++i)
        m_tones[static_cast<size_t>(i)] = valuesOf(SelectiveRecord::kWhites + i, 1);
}

void SelectiveMap::MapRow(const uint32_t* in, uint32_t* out, size_t count) const {
    int32_t hues[kChunk];
    int32_t inks[kInks][kChunk];
    for (size_t begin = 0; begin < count; begin += kChunk) {
        const uint32_t* from = in + begin;
        uint32_t* to = out + begin;
        const size_t n = std::min(kChunk, count - begin);
        for (size_t i = 0; i < n; ++i) {
            const int32_t red = static_cast<int32_t>(Red(from[i]));
            const int32_t green = static_cast<int32_t>(Green(from[i]));
            const int32_t blue = static_cast<int32_t>(Blue(from[i]));
            hues[i] = RgbToHsl(red, green, blue).hue;
            const int32_t brighter = red > green ? red : green;
            const int32_t brightest = brighter > blue ? brighter : blue;
            // Black has no other ink: its three dividends are 0, and only the divisor must not be.
            const int32_t divisor = brightest > 1 ? brightest : 1;
            inks[0][i] = SmallQuotient((brightest - red) * 255, divisor);
            inks[1][i] = SmallQuotient((brightest - green) * 255, divisor);
            inks[2][i] = SmallQuotient((brightest - blue) * 255, divisor);
            inks[3][i] = 255 - brightest;
        }
        for (size_t i = 0; i < n; ++i) {
            const HueValues& values = m_hues[static_cast<size_t>(hues[i])];
            const int32_t black = inks[3][i];
            const InkValues& tone = m_tones[black == 0 ? 0 : black < 255 ? 1 : 2];
            // The largest product is 32768 x 255 x 255, which 32 bits hold. Each part is cut by itself.
            InkValues share;
            InkValues sum;
            for (size_t k = 0; k < kInks; ++k) share[k] = inks[k][i] | m_whole;
            for (size_t k = 0; k < kInks; ++k)
                sum[k] = inks[k][i] + values.first[k] * share[k] / 25500 + tone[k] * share[k] / 100;
            if (values.hasSecond) {
                for (size_t k = 0; k < kInks; ++k) sum[k] += values.second[k] * share[k] / 25500;
            }
            for (size_t k = 0; k < kInks; ++k) inks[k][i] = ClampToByte(sum[k]);
        }
        for (size_t i = 0; i < n; ++i) {
            const int32_t black = inks[3][i];
            const auto back = [&](int32_t ink) { return (65535 - (255 - black) * ink - 256 * black) >> 8; };
            to[i] = PackOver(from[i], back(inks[0][i]), back(inks[1][i]), back(inks[2][i]));
        }
    }
}

}  // namespace tessary
