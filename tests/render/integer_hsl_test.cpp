#include "render/integer_hsl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

namespace tessary::test {
namespace {

TEST(IntegerHsl, QuotientIsExact) {
    int wrong = 0;
    for (int32_t divisor = 1; divisor <= 511; ++divisor) {
        for (int32_t n = 0; n <= 65535; ++n) wrong += SmallQuotient(n, divisor) != n / divisor;
        for (int32_t n = -15300; n < 0; ++n) wrong += SmallQuotient(n, divisor) != n / divisor;
    }
    EXPECT_EQ(wrong, 0);
}

TEST(IntegerHsl, EveryColorHasTheHueOfTheRule) {
    int wrong = 0;
    for (int r = 0; r < 256; ++r) {
        for (int g = 0; g < 256; ++g) {
            for (int b = 0; b < 256; ++b) {
                const int highest = std::max({r, g, b}), lowest = std::min({r, g, b});
                const int lightness = (highest + lowest + 1) / 2, span = highest - lowest;
                int hue = 0, saturation = 0;
                if (span != 0) {
                    saturation = span * 255 / (lightness >= 128 ? 511 - highest - lowest : highest + lowest);
                    if (r == highest)
                        hue = (g - b) * 60 / span;
                    else if (g == highest)
                        hue = (b - r) * 60 / span + 120;
                    else
                        hue = (r - g) * 60 / span + 240;
                    hue = (hue + 360) % 360;
                }
                const IntegerHsl got = RgbToHsl(r, g, b);
                wrong += got.hue != hue || got.saturation != saturation || got.lightness != lightness;
            }
        }
    }
    EXPECT_EQ(wrong, 0);
}

TEST(IntegerHsl, EveryHueHasTheColorOfTheRule) {
    int wrong = 0, highest = 0;
    for (int saturation = 0; saturation < 256; ++saturation) {
        for (int lightness = 0; lightness < 256; ++lightness) {
            const int t = saturation * lightness / 256;
            const int m2 = lightness < 128 ? lightness + t : lightness + saturation - t;
            const int m1 = 2 * lightness - m2;
            std::array<int, 360> channel{};
            for (int h = 0; h < 360; ++h) {
                if (saturation == 0)
                    channel[static_cast<size_t>(h)] = lightness;
                else if (h < 60)
                    channel[static_cast<size_t>(h)] = m1 + (m2 - m1) * h / 60;
                else if (h < 180)
                    channel[static_cast<size_t>(h)] = m2;
                else if (h < 240)
                    channel[static_cast<size_t>(h)] = m1 + (m2 - m1) * (240 - h) / 60;
                else
                    channel[static_cast<size_t>(h)] = m1;
            }
            for (size_t h = 0; h < 360; ++h) {
                const IntegerRgb got = HslToRgb({static_cast<int32_t>(h), saturation, lightness});
                wrong += got.red != channel[(h + 120) % 360] || got.green != channel[h] ||
                         got.blue != channel[(h + 240) % 360];
                highest = std::max(highest, got.red);
            }
        }
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(highest, 256);
}

}  // namespace
}  // namespace tessary::test
