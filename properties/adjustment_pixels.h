// The adjustments that look at whole pixels: each is a callable that takes the colour bytes of a pixel as
// integers 0..255 and rewrites them. Making one does what can be done once a layer.
#pragma once

#include <array>
#include <cstdint>

#include "properties/adjustment_records.h"
#include "render/integer_hsl.h"
#include "render/pixel.h"

namespace tessary {

// Hue, saturation and lightness. All that depends on a pixel's hue alone is summed up beforehand.
class HueMap {
public:
    explicit HueMap(const HueRecord& record);

    void operator()(int32_t& red, int32_t& green, int32_t& blue) const {
        const IntegerHsl from = RgbToHsl(red, green, blue);
        const Shift& shift = m_shifts[static_cast<size_t>(from.hue)];
        const int32_t hue = from.hue + shift.hue;
        const IntegerRgb to =
            HslToRgb({hue >= 360 ? hue - 360 : hue,
                      ClampToByte(from.saturation + shift.saturation * from.saturation / 100),
                      ClampToByte(from.lightness + shift.lightness * from.lightness / 100)});
        // The way there and back is not exact, so pixels that nothing applies to must not take it.
        red = shift.any ? ClampToByte(to.red) : red;
        green = shift.any ? ClampToByte(to.green) : green;
        blue = shift.any ? ClampToByte(to.blue) : blue;
    }

private:
    struct Shift {
        int16_t hue;         // 0..359
        int16_t saturation;  // -100..100
        int16_t lightness;   // -100..100
        bool any;            // one of the three was set, even where it comes to a shift of nothing
    };
    std::array<Shift, 360> m_shifts;
};

// Inks added to the colours of a class. Greys have hue 0 and so count as reds too.
class SelectiveMap {
public:
    explicit SelectiveMap(const SelectiveRecord& record) : m_record(record) {
        for (size_t i = 0; i < kClassCount; ++i)
            m_active[i] = !record.inks[SelectiveRecord::kReds + i].IsZero();
    }

    void operator()(int32_t& red, int32_t& green, int32_t& blue) const {
        const Inks inks = InksOf(red, green, blue);
        Inks sums = inks;
        const int32_t hue = RgbToHsl(red, green, blue).hue;
        // At most two classes reach a hue: the one whose span begins here or before, and its neighbour.
        const int32_t upper = (hue + 45) / 60;
        for (int32_t i = upper > 0 ? upper - 1 : 0; i <= upper && i < kClassCount; ++i) {
            const int32_t weight = ClassWeight(i, hue);
            if (m_active[static_cast<size_t>(i)] && weight > 0)
                AddWeighted(sums, m_record.inks[SelectiveRecord::kReds + i], weight, inks);
        }
        const auto tone = inks.black == 0    ? SelectiveRecord::kWhites
                          : inks.black < 255 ? SelectiveRecord::kNeutrals
                                             : SelectiveRecord::kBlacks;
        AddPlain(sums, m_record.inks[tone], inks);

        const int32_t black = ClampToByte(sums.black);
        const auto back = [&](int32_t ink) {
            return (65535 - (255 - black) * ClampToByte(ink) - 256 * black) >> 8;
        };
        red = back(sums.cyan);
        green = back(sums.magenta);
        blue = back(sums.yellow);
    }

private:
    static constexpr int32_t kClassCount = 6;  // reds to magentas

    struct Inks {
        int32_t cyan;
        int32_t magenta;
        int32_t yellow;
        int32_t black;
    };

    static Inks InksOf(int32_t red, int32_t green, int32_t blue) {
        const int32_t brighter = red > green ? red : green;
        const int32_t brightest = brighter > blue ? brighter : blue;
        // Black has no other ink: its three dividends are 0, and so only the divisor must not be.
        const int32_t divisor = brightest > 0 ? brightest : 1;
        return {SmallQuotient((brightest - red) * 255, divisor),
                SmallQuotient((brightest - green) * 255, divisor),
                SmallQuotient((brightest - blue) * 255, divisor), 255 - brightest};
    }

    // Rises over 30 degrees, holds for 30 and falls over 30. The reds do not go round: 345 to 359 degrees
    // belong to no class.
    static int32_t ClassWeight(int32_t index, int32_t hue) {
        const int32_t center = 15 + 60 * index;
        if (hue < center - 60 || hue >= center + 30) return 0;
        if (hue < center - 30) return (hue - (center - 60)) * 255 / 30;
        return hue < center ? 255 : (center + 30 - hue) * 255 / 30;
    }

    void AddWeighted(Inks& sums, const InkAdjustment& ink, int32_t weight, const Inks& inks) const {
        // The largest product is 32768 x 255 x 255, which 32 bits hold.
        const auto part = [&](int32_t value, int32_t share) {
            return value * weight * (m_record.absolute ? 255 : share) / 25500;
        };
        sums.cyan += part(ink.cyan, inks.cyan);
        sums.magenta += part(ink.magenta, inks.magenta);
        sums.yellow += part(ink.yellow, inks.yellow);
        sums.black += part(ink.black, inks.black);
    }

    void AddPlain(Inks& sums, const InkAdjustment& ink, const Inks& inks) const {
        const auto part = [&](int32_t value, int32_t share) {
            return value * (m_record.absolute ? 255 : share) / 100;
        };
        sums.cyan += part(ink.cyan, inks.cyan);
        sums.magenta += part(ink.magenta, inks.magenta);
        sums.yellow += part(ink.yellow, inks.yellow);
        sums.black += part(ink.black, inks.black);
    }

    const SelectiveRecord& m_record;
    bool m_active[kClassCount];
};

class ThresholdMap {
public:
    explicit ThresholdMap(const ThresholdRecord& record) : m_level(record.level) {}

    void operator()(int32_t& red, int32_t& green, int32_t& blue) const {
        const int32_t luminance = (28 * blue + 151 * green + 77 * red) >> 8;
        red = green = blue = luminance >= m_level ? 255 : 0;
    }

private:
    int32_t m_level;
};

class MixerMap {
public:
    explicit MixerMap(const MixerRecord& record)
        : m_red(record.rows[MixerRecord::kRed]),
          m_green(record.rows[record.monochrome ? MixerRecord::kRed : MixerRecord::kGreen]),
          m_blue(record.rows[record.monochrome ? MixerRecord::kRed : MixerRecord::kBlue]) {}

    void operator()(int32_t& red, int32_t& green, int32_t& blue) const {
        const int32_t r = red, g = green, b = blue;
        red = Mix(m_red, r, g, b);
        green = Mix(m_green, r, g, b);
        blue = Mix(m_blue, r, g, b);
    }

private:
    // Each part is cut before the sum. A row that takes 100 from its own channel gives that channel back.
    static int32_t Mix(const MixerRow& row, int32_t red, int32_t green, int32_t blue) {
        return ClampToByte(row.red * red / 100 + row.green * green / 100 + row.blue * blue / 100 +
                           row.constant * 255 / 100);
    }

    MixerRow m_red;
    MixerRow m_green;
    MixerRow m_blue;
};

class GradientMapMap {
public:
    explicit GradientMapMap(const GradientMapRecord& record)
        : m_table(record.table), m_flip(record.reverse ? 255 : 0) {}

    void operator()(int32_t& red, int32_t& green, int32_t& blue) const {
        const int32_t luminance = (77 * red + 151 * green + 28 * blue) >> 8;
        const uint32_t color = m_table[static_cast<size_t>(luminance ^ m_flip)];  // ^ 255 is 255 - luminance
        red = static_cast<int32_t>(Red(color));
        green = static_cast<int32_t>(Green(color));
        blue = static_cast<int32_t>(Blue(color));
    }

private:
    const std::array<uint32_t, 256>& m_table;
    int32_t m_flip;
};

}  // namespace tessary
