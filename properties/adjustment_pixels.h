// The adjustments that look at whole pixels. Each is made once a layer and then maps pixels: the light ones
// are callables that take the colour bytes of one pixel as integers 0..255 and rewrite them, the heavy ones
// have kernels that map whole rows.
#pragma once

#include <array>
#include <cstdint>

#include "properties/adjustment_records.h"
#include "render/pixel.h"

namespace tessary {

// Hue, saturation and lightness. All that depends on a pixel's hue alone is summed up beforehand.
struct HueMap {
    struct Shift {
        int16_t hue;        // 0..359
        int8_t saturation;  // -100..100
        int8_t lightness;   // -100..100
    };
    // Of hues at which none of the three is set; where they merely come to nothing the pixel still goes the
    // way there and back, which is not exact.
    static constexpr int16_t kUnchanged = -1;

    explicit HueMap(const HueRecord& record);

    Shift shifts[360];
};

// Inks added to the colours of a class. Greys have hue 0 and so count as reds too.
struct SelectiveMap {
    static constexpr size_t kInks = 4;  // cyan, magenta, yellow, black
    struct InkValues {
        double of[kInks];
    };

    explicit SelectiveMap(const SelectiveRecord& record);

    // What a hue's classes, of which there are at most two, add for each step of what is there.
    struct HueValues {
        InkValues first{};
        InkValues second{};
    };
    HueValues hues[360];
    InkValues tones[3];  // whites, neutrals, blacks; percent
    uint8_t whole;       // 255 when amounts are absolute and not shares of what is there, else 0
};

// What each value of each input channel adds to the three output channels.
class MixerMap {
public:
    explicit MixerMap(const MixerRecord& record);

    void operator()(int32_t& red, int32_t& green, int32_t& blue) const {
        const Sums& ofRed = m_ofRed[static_cast<size_t>(red)];
        const Sums& ofGreen = m_ofGreen[static_cast<size_t>(green)];
        const Sums& ofBlue = m_ofBlue[static_cast<size_t>(blue)];
        red = ClampToByte(ofRed.red + ofGreen.red + ofBlue.red);
        green = ClampToByte(ofRed.green + ofGreen.green + ofBlue.green);
        blue = ClampToByte(ofRed.blue + ofGreen.blue + ofBlue.blue);
    }

private:
    struct Sums {
        int32_t red, green, blue;
    };
    std::array<Sums, 256> m_ofRed;  // and the constants
    std::array<Sums, 256> m_ofGreen;
    std::array<Sums, 256> m_ofBlue;
};

}  // namespace tessary
