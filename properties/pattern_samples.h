// Tables for tiles that are turned and made smaller, so that a pixel's samples need not be placed one by one.
#pragma once

#include <cmath>
#include <cstdint>

#include "document/psd_document.h"

namespace tessary {

inline constexpr uint32_t kSampleSide =
    8;  // samples of a pixel along each side, where tiles are made smaller
inline constexpr uint32_t kPixelSamples = kSampleSide * kSampleSide;

// The sum of pixels, two channels in a word; at most 256 of them.
struct PixelSum {
    uint32_t even = 0, odd = 0;

    void Add(uint32_t pixel, uint32_t weight) {
        even += (pixel & 0x00FF00FF) * weight;
        odd += (pixel >> 8 & 0x00FF00FF) * weight;
    }
    uint32_t Mean() const {
        constexpr uint32_t kHalves = kPixelSamples / 2 * 0x00010001;
        const auto mean = [](uint32_t sums) { return (sums + kHalves) / kPixelSamples & 0x00FF00FF; };
        return mean(even) | mean(odd) << 8;
    }
};

// The tile's coordinates repeat. Any place that coordinates and phases lead to is exact in a double.
struct TileSide {
    double size, perSize;

    explicit TileSide(uint32_t pixels) : size(pixels), perSize(1.0 / pixels) {}
    // `floored` is a whole number.
    uint32_t Index(double floored) const {
        double rest = floored - std::floor(floored * perSize) * size;
        if (rest < 0) rest += size;
        if (rest >= size) rest -= size;
        return static_cast<uint32_t>(rest);
    }
};

// One coordinate of a pixel's samples. On the way of the pixel's corner from one whole number to the next
// each sample comes to one threshold, where it goes on to the next column (or row) of the tile. Between two
// thresholds nothing changes.
struct SampleAxis {
    static constexpr uint32_t kBins = 1024;
    double thresholds[kPixelSamples +
                      2];  // of the place of the corner, 0..1; around them those of its neighbours
    uint8_t
        passed[kBins];  // the first thresholds of `thresholds` that do not lie behind the begin of the bin
    double lowest;      // column of offset 0, from that of the corner on
    uint32_t highest;   // offset in columns
    // In pixels, those of two samples in a word; by thresholds passed.
    uint64_t offsets[kPixelSamples + 1][kPixelSamples / 2];
};

// What a turned tile needs for all pixels.
struct TurnedTile {
    SampleAxis across, down;
    // The tile with its beginning once more behind its end, all channels apart: those of PixelSum::even below
    // those of PixelSum::odd. Null when that is too large.
    Owned<uint64_t> repeated;
    uint32_t columns, rows;  // of `repeated`, or of the tile
    // How many samples fall on each pixel of the tile that any can fall on, rows of them, by thresholds
    // passed down and across. Null when those pixels are too many.
    Owned<uint8_t> weights;

    // Sums up the samples of a pixel whose corner is at (u, v) of the plane of tiles, give or take `grace`.
    // False where that does not say which pixels they are, and where they go on beyond the tile's end.
    bool SumUp(const PsdPattern& tile, double u, double v, double grace, PixelSum& sum) const;

    uint32_t Cells() const { return (across.highest + 1) * (down.highest + 1); }
};

// Null when so many pixels to be drawn are not worth it, or without memory.
//   cosine, sine  of the angle, divided by the scale
Owned<TurnedTile> MakeTurnedTile(const PsdPattern& tile, double cosine, double sine, uint64_t pixels);

}  // namespace tessary
