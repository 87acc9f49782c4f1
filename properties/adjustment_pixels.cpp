#include "properties/adjustment_pixels.h"

#include <algorithm>
#include <iterator>

namespace tessary {

namespace {

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
    for (size_t h = 0; h < std::size(shifts); ++h) {
        int32_t hue = record.master.hue;
        int32_t saturation = record.master.saturation;
        int32_t lightness = record.master.lightness;
        for (size_t r = 0; r < HueRecord::kRangeCount; ++r) {
            const HueSettings& settings = record.ranges[r].settings;
            const int32_t weight = record.weights[r][h];
            if (weight == 0) continue;
            hue += settings.hue * weight / 255;
            saturation += settings.saturation * weight / 255;
            lightness += settings.lightness * weight / 255;
        }
        const bool any = hue != 0 || saturation != 0 || lightness != 0;
        const int32_t turned = hue % 360;
        shifts[h] = {any ? static_cast<int16_t>(turned < 0 ? turned + 360 : turned) : kUnchanged,
                     static_cast<int8_t>(std::clamp(saturation, -100, 100)),
                     static_cast<int8_t>(std::clamp(lightness, -100, 100))};
    }
}

SelectiveMap::SelectiveMap(const SelectiveRecord& record) : hues{}, whole(record.absolute ? 255 : 0) {
    // A little more than the quotient keeps whole products whole. Others, of at most 32768 x 255 x 255, are
    // away from whole numbers by 1 part in 2 thousand million.
    constexpr double kMore = 1.0 + 1.0 / (int64_t{1} << 40);
    const auto valuesOf = [&](int32_t ink, int32_t weight, double divisor) {
        const InkAdjustment& values = record.inks[ink];
        const double share = weight * (kMore / divisor);
        return InkValues{
            {values.cyan * share, values.magenta * share, values.yellow * share, values.black * share}};
    };
    for (int32_t hue = 0; hue < 360; ++hue) {
        HueValues& entry = hues[static_cast<size_t>(hue)];
        bool hasFirst = false;
        for (int32_t i = 0; i < 6; ++i) {
            const int32_t ink = SelectiveRecord::kReds + i;
            const int32_t weight = ClassWeight(i, hue);
            if (weight == 0 || record.inks[ink].IsZero()) continue;
            // No hue lies in more than two classes.
            (hasFirst ? entry.second : entry.first) = valuesOf(ink, weight, 25500);
            hasFirst = true;
        }
    }
    for (int32_t i = 0; i < 3; ++i)
        tones[static_cast<size_t>(i)] = valuesOf(SelectiveRecord::kWhites + i, 1, 100);
}

MixerMap::MixerMap(const MixerRecord& record) {
    const MixerRow& red = record.rows[MixerRecord::kRed];
    const MixerRow& green = record.rows[record.monochrome ? MixerRecord::kRed : MixerRecord::kGreen];
    const MixerRow& blue = record.rows[record.monochrome ? MixerRecord::kRed : MixerRecord::kBlue];
    // Each part is cut before the sum. A row that takes 100 from its own channel gives that channel back.
    for (int32_t i = 0; i < 256; ++i) {
        const size_t index = static_cast<size_t>(i);
        m_ofRed[index] = {red.red * i / 100 + red.constant * 255 / 100,
                          green.red * i / 100 + green.constant * 255 / 100,
                          blue.red * i / 100 + blue.constant * 255 / 100};
        m_ofGreen[index] = {red.green * i / 100, green.green * i / 100, blue.green * i / 100};
        m_ofBlue[index] = {red.blue * i / 100, green.blue * i / 100, blue.blue * i / 100};
    }
}

}  // namespace tessary
