// The adjustments that look at whole pixels. Each is made once a layer and then maps pixels: the light ones
// are callables that take the colour bytes of one pixel as integers 0..255 and rewrite them, the heavy ones
// map whole rows and keep the alpha bytes.
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
    void MapRow(const uint32_t* in, uint32_t* out, size_t count) const;

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
    explicit SelectiveMap(const SelectiveRecord& record);
    void MapRow(const uint32_t* in, uint32_t* out, size_t count) const;

private:
    static constexpr size_t kInks = 4;  // cyan, magenta, yellow, black
    using InkValues = std::array<int32_t, kInks>;

    // What a hue's one or two classes add: percent times weight 0..255.
    struct HueValues {
        InkValues first{};
        InkValues second{};
        bool hasSecond = false;
    };
    std::array<HueValues, 360> m_hues;
    std::array<InkValues, 3> m_tones;  // whites, neutrals, blacks; percent
    int32_t m_whole;  // 255 when amounts are absolute and not shares of what is there, else 0
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
