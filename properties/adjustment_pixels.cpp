#include "properties/adjustment_pixels.h"

#include <algorithm>

namespace tessary {

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

}  // namespace tessary
