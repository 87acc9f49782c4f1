#include "properties/pattern_rows.h"

#include <algorithm>
#include <cmath>

namespace tessary {
namespace {

// The two neighbours of a place and the share of the second.
struct Neighbors {
    uint32_t first, second;
    double share;

    Neighbors(const TileSide& side, double at) {
        const double floored = std::floor(at);
        first = side.Index(floored);
        second = first + 1 < static_cast<uint32_t>(side.size) ? first + 1 : 0;
        share = at - floored;
    }
};

// All four channels by themselves.
uint32_t Mixed(const PsdPattern& tile, const Neighbors& x, const Neighbors& y) {
    const uint32_t* const above = tile.pixels.get() + size_t{y.first} * tile.width;
    if (x.share == 0 && y.share == 0) return above[x.first];
    const uint32_t* const below = tile.pixels.get() + size_t{y.second} * tile.width;
    uint32_t mixed = 0;
    for (int shift = 0; shift < 32; shift += 8) {
        const auto channel = [shift](uint32_t pixel) { return static_cast<int32_t>(pixel >> shift & 255); };
        const int32_t topLeft = channel(above[x.first]), bottomLeft = channel(below[x.first]);
        const double top = topLeft + (channel(above[x.second]) - topLeft) * x.share;
        const double bottom = bottomLeft + (channel(below[x.second]) - bottomLeft) * x.share;
        mixed |= static_cast<uint32_t>(top + (bottom - top) * y.share + 0.5) << shift;
    }
    return mixed;
}

// The indices that the samples of one pixel fall on, and how many fall on each.
struct Samples {
    uint32_t count = 0;
    uint32_t indices[kSampleSide];
    uint8_t weights[kSampleSide];

    void Place(const TileSide& side, double first, double step) {
        const double floored = std::floor(first);
        const uint32_t start = side.Index(floored), size = static_cast<uint32_t>(side.size);
        count = 0;
        for (uint32_t i = 0; i < kSampleSide; ++i) {
            uint32_t index = start + static_cast<uint32_t>(first - floored + (i + 0.5) * step / kSampleSide);
            if (index >= size) index %= size;
            if (count == 0 || indices[count - 1] != index) {
                indices[count] = index;
                weights[count++] = 0;
            }
            ++weights[count - 1];
        }
    }
};

// The tile's columns, summed up over the samples of a row of pixels.
struct ColumnSums {
    static constexpr uint32_t kMost = 4 * kPaintRun;
    uint32_t even[kMost], odd[kMost];  // as in PixelSum

    void Take(const PsdPattern& tile, const Samples& down) {
        for (uint32_t x = 0; x < tile.width; ++x) even[x] = odd[x] = 0;
        for (uint32_t j = 0; j < down.count; ++j) {
            const uint32_t* const row = tile.pixels.get() + size_t{down.indices[j]} * tile.width;
            const uint32_t weight = down.weights[j];
            for (uint32_t x = 0; x < tile.width; ++x) {
                even[x] += (row[x] & 0x00FF00FF) * weight;
                odd[x] += (row[x] >> 8 & 0x00FF00FF) * weight;
            }
        }
    }
    void AddTo(PixelSum& sum, uint32_t x, uint32_t weight) const {
        sum.even += even[x] * weight;
        sum.odd += odd[x] * weight;
    }
};

void ShrunkRow(const Paint& paint, double x, double y, size_t count, uint32_t* pixels) {
    const PsdPattern& tile = *paint.tile;
    const TileSide columns(tile.width), rows(tile.height);
    const double step = 1 / paint.scale;
    Samples down, across;
    down.Place(rows, y / paint.scale, step);
    // Narrow tiles repeat, so that their columns need to be summed up but once.
    ColumnSums columnSums;
    const bool isNarrow = tile.width <= std::min<size_t>(ColumnSums::kMost, 4 * count);
    if (isNarrow) columnSums.Take(tile, down);
    for (size_t i = 0; i < count; ++i) {
        across.Place(columns, (x + static_cast<double>(i)) / paint.scale, step);
        PixelSum sum;
        for (uint32_t k = 0; isNarrow && k < across.count; ++k)
            columnSums.AddTo(sum, across.indices[k], across.weights[k]);
        for (uint32_t j = 0; !isNarrow && j < down.count; ++j) {
            const uint32_t* const row = tile.pixels.get() + size_t{down.indices[j]} * tile.width;
            for (uint32_t k = 0; k < across.count; ++k)
                sum.Add(row[across.indices[k]], uint32_t{down.weights[j]} * across.weights[k]);
        }
        pixels[i] = sum.Mean();
    }
}

// The whole place at or below all samples of a pixel, and the tile's index there.
struct SampleBase {
    double floored;
    uint32_t index, size;

    SampleBase(const TileSide& side, double center, double reach)
        : floored(std::floor(center - reach)), index(side.Index(floored)),
          size(static_cast<uint32_t>(side.size)) {}
    uint32_t Index(double at) const {
        const uint32_t moved = index + static_cast<uint32_t>(at - floored);
        return moved < size ? moved : moved % size;
    }
};

uint32_t TurnedMean(const Paint& paint, const TileSide& columns, const TileSide& rows, double x, double y) {
    const PsdPattern& tile = *paint.tile;
    const double cosine = paint.cosine / paint.scale, sine = paint.sine / paint.scale;
    const double reach = (std::abs(cosine) + std::abs(sine)) / 2;
    const SampleBase across(columns, (x + 0.5) * cosine - (y + 0.5) * sine, reach);
    const SampleBase down(rows, (x + 0.5) * sine + (y + 0.5) * cosine, reach);
    PixelSum sum;
    for (uint32_t j = 0; j < kSampleSide; ++j) {
        for (uint32_t i = 0; i < kSampleSide; ++i) {
            const double sx = x + (i + 0.5) / kSampleSide, sy = y + (j + 0.5) / kSampleSide;
            const uint32_t column = across.Index(sx * cosine - sy * sine),
                           row = down.Index(sx * sine + sy * cosine);
            sum.Add(tile.pixels[size_t{row} * tile.width + column], 1);
        }
    }
    return sum.Mean();
}

// The same by the tile's tables, and otherwise only where they do not say which samples to take.
void ShrunkTurnedRow(const Paint& paint, double x, double y, size_t count, uint32_t* pixels) {
    const PsdPattern& tile = *paint.tile;
    const TileSide columns(tile.width), rows(tile.height);
    const double cosine = paint.cosine / paint.scale, sine = paint.sine / paint.scale;
    // Places of samples and corners are sums of two products, all below `farthest`, that are rounded less
    // than sixteen times.
    constexpr double kRounding = 1.0 / (uint64_t{1} << 49), kMostGrace = 1e-4;
    const double farthest =
        (std::abs(x) + std::abs(y) + static_cast<double>(count) + 1) * (std::abs(cosine) + std::abs(sine)) +
        1;
    const double grace = farthest * kRounding;
    const bool hasTables = paint.turned && grace < kMostGrace;
    for (size_t i = 0; i < count; ++i) {
        const double at = x + static_cast<double>(i);
        PixelSum sum;
        const bool isSummedUp = hasTables && paint.turned->SumUp(tile, at * cosine - y * sine,
                                                                 at * sine + y * cosine, grace, sum);
        pixels[i] = isSummedUp ? sum.Mean() : TurnedMean(paint, columns, rows, at, y);
    }
}

void TurnedRow(const Paint& paint, double x, double y, size_t count, uint32_t* pixels) {
    const TileSide columns(paint.tile->width), rows(paint.tile->height);
    for (size_t i = 0; i < count; ++i) {
        const double at = x + static_cast<double>(i);
        const double u = ((at + 0.5) * paint.cosine - (y + 0.5) * paint.sine) / paint.scale - 0.5;
        const double v = ((at + 0.5) * paint.sine + (y + 0.5) * paint.cosine) / paint.scale - 0.5;
        pixels[i] = Mixed(*paint.tile, Neighbors(columns, u), Neighbors(rows, v));
    }
}

}  // namespace

void PatternRow(const Paint& paint, int64_t x, int64_t y, size_t count, uint32_t* pixels) {
    const double fromX = static_cast<double>(x) - paint.originX,
                 fromY = static_cast<double>(y) - paint.originY;
    if (paint.isTurned && paint.scale < 1) return ShrunkTurnedRow(paint, fromX, fromY, count, pixels);
    if (paint.isTurned) return TurnedRow(paint, fromX, fromY, count, pixels);
    if (paint.scale < 1) return ShrunkRow(paint, fromX, fromY, count, pixels);
    const TileSide columns(paint.tile->width);
    const Neighbors down(TileSide(paint.tile->height), fromY / paint.scale);
    for (size_t i = 0; i < count; ++i) {
        const double at = (fromX + static_cast<double>(i)) / paint.scale;
        pixels[i] = Mixed(*paint.tile, Neighbors(columns, at), down);
    }
}

}  // namespace tessary
