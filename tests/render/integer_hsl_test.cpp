#include "render/integer_hsl.h"

#include <gtest/gtest.h>

#include "tests/render/plain_rule.h"

namespace tessary::test {
namespace {

TEST(IntegerHsl, EveryColorFollowsThePlainRule) {
    int wrong = 0;
    for (uint32_t pixel = 0; pixel < 1 << 24; ++pixel) {
        const PlainColor rgb = ColorOf(pixel), want = PlainToHsl(rgb);
        const IntegerHsl got = RgbToHsl(rgb.c[0], rgb.c[1], rgb.c[2]);
        wrong += got.hue != want.c[0] || got.saturation != want.c[1] || got.lightness != want.c[2];
    }
    EXPECT_EQ(wrong, 0);
}

TEST(IntegerHsl, EveryHueFollowsThePlainRule) {
    int wrong = 0;
    for (int32_t i = 0; i < 360 * 65536; ++i) {
        const int32_t hue = i >> 16, saturation = i >> 8 & 255, lightness = i & 255;
        const PlainColor want = PlainToRgb({{hue, saturation, lightness}});
        const IntegerRgb got = HslToRgb({hue, saturation, lightness});
        wrong += got.red != want.c[0] || got.green != want.c[1] || got.blue != want.c[2];
    }
    EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace tessary::test
