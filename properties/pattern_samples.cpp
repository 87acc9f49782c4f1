#include "properties/pattern_samples.h"

#include <algorithm>
#include <utility>

namespace tessary {
namespace {

constexpr uint64_t kLeastPixels = 1 << 14;   // that tables are worth their time for
constexpr uint64_t kMostRepeated = 1 << 19;  // pixels
constexpr uint32_t kMostCells = 36;
constexpr uint32_t kStates = kPixelSamples + 1;  // of an axis: how many thresholds are passed

// Where the samples lie from the corner of their pixel on, rows of them.
void PlaceSamples(double across, double down, double (&places)[kPixelSamples]) {
    for (uint32_t i = 0; i < kPixelSamples; ++i)
        places[i] = ((i % kSampleSide + 0.5) * across + (i / kSampleSide + 0.5) * down) / kSampleSide;
}

// `order` becomes that in which the samples pass.
void FillAxis(const double (&places)[kPixelSamples], SampleAxis& axis, uint8_t (&order)[kPixelSamples]) {
    double thresholds[kPixelSamples];
    for (uint32_t i = 0; i < kPixelSamples; ++i) {
        order[i] = static_cast<uint8_t>(i);
        thresholds[i] = 1 - (places[i] - std::floor(places[i]));
    }
    std::sort(order, order + kPixelSamples,
              [&](uint8_t a, uint8_t b) { return thresholds[a] < thresholds[b]; });
    for (uint32_t i = 0; i < kPixelSamples; ++i) axis.thresholds[i + 1] = thresholds[order[i]];
    axis.thresholds[0] = axis.thresholds[kPixelSamples] - 1;
    axis.thresholds[kPixelSamples + 1] = axis.thresholds[1] + 1;
    for (uint32_t bin = 0, passed = 0; bin < SampleAxis::kBins; ++bin) {
        while (axis.thresholds[passed + 1] * SampleAxis::kBins <= bin) ++passed;
        axis.passed[bin] = static_cast<uint8_t>(passed);
    }
    const auto [least, most] = std::minmax_element(places, places + kPixelSamples);
    axis.lowest = std::floor(*least);
    axis.highest = static_cast<uint32_t>(std::floor(*most) - axis.lowest) + 1;
    for (uint32_t i = 0; i < kPixelSamples; ++i)
        axis.offsets[0][i / 2] += static_cast<uint64_t>(std::floor(places[i]) - axis.lowest) << i % 2 * 32;
    for (uint32_t passed = 1; passed <= kPixelSamples; ++passed) {
        std::copy_n(axis.offsets[passed - 1], kPixelSamples / 2, axis.offsets[passed]);
        const uint32_t sample = order[passed - 1];
        axis.offsets[passed][sample / 2] += uint64_t{1} << sample % 2 * 32;
    }
}

// The channels of a pixel, each in 16 bits.
uint64_t Apart(uint32_t pixel) { return (pixel & 0x00FF00FF) | uint64_t{pixel >> 8 & 0x00FF00FF} << 32; }

// The tile in both directions until no sample of a pixel that begins in it lies beyond.
bool RepeatTile(const PsdPattern& tile, TurnedTile& turned) {
    turned.repeated = AllocateZeroed<uint64_t>({turned.columns, turned.rows});
    if (!turned.repeated) return false;
    for (uint32_t y = 0; y < turned.rows; ++y) {
        const uint32_t* const from = tile.pixels.get() + size_t{y % tile.height} * tile.width;
        uint64_t* const to = turned.repeated.get() + size_t{y} * turned.columns;
        for (uint32_t x = 0; x < turned.columns; x += tile.width)
            std::transform(from, from + std::min(tile.width, turned.columns - x), to + x, Apart);
    }
    return true;
}

// The offset of a sample in columns or rows.
uint32_t OffsetOf(const SampleAxis& axis, uint32_t passed, uint32_t sample) {
    return static_cast<uint32_t>(axis.offsets[passed][sample / 2] >> sample % 2 * 32);
}

// From one state to the next a single sample goes on by one cell.
bool WeighCells(const uint8_t (&orderAcross)[kPixelSamples], const uint8_t (&orderDown)[kPixelSamples],
                TurnedTile& turned) {
    const uint32_t cells = turned.Cells(), columns = turned.across.highest + 1;
    turned.weights = AllocateZeroed<uint8_t>({kStates, kStates, cells});
    if (!turned.weights) return false;
    uint8_t* weights = turned.weights.get();
    const auto cellOf = [&](uint32_t across, uint32_t down, uint32_t sample) {
        return OffsetOf(turned.down, down, sample) * columns + OffsetOf(turned.across, across, sample);
    };
    for (uint32_t i = 0; i < kPixelSamples; ++i) ++weights[cellOf(0, 0, i)];
    for (uint32_t down = 0; down < kStates; ++down) {
        for (uint32_t across = 0; across < kStates; ++across, weights += cells) {
            if (across != 0) {
                std::copy_n(weights - cells, cells, weights);
                const uint32_t cell = cellOf(across, down, orderAcross[across - 1]);
                --weights[cell - 1];
                ++weights[cell];
            } else if (down != 0) {
                std::copy_n(weights - size_t{kStates} * cells, cells, weights);
                const uint32_t cell = cellOf(0, down, orderDown[down - 1]);
                --weights[cell - columns];
                ++weights[cell];
            }
        }
    }
    return true;
}

// Where the corner of a pixel lies in the tile, with the column of offset 0 for its own.
struct Corner {
    uint32_t index;   // of the column
    uint32_t passed;  // thresholds
    bool isClear;     // of all thresholds

    Corner(const SampleAxis& axis, const TileSide& side, double at, double grace) {
        const double moved = at + axis.lowest;
        // Truncates to a whole number next to the quotient.
        double rest = moved - static_cast<double>(static_cast<int64_t>(moved * side.perSize)) * side.size;
        if (rest < 0) rest += side.size;
        if (rest >= side.size) rest -= side.size;
        index = static_cast<uint32_t>(rest);
        const double place = rest - index;
        passed = axis.passed[static_cast<uint32_t>(place * SampleAxis::kBins)];
        while (place >= axis.thresholds[passed + 1]) ++passed;
        isClear = place - axis.thresholds[passed] > grace && axis.thresholds[passed + 1] - place > grace;
    }
};

// The sums of all samples, even ones in the lower half.
template <class GetApart>
uint64_t SumOfSamples(const TurnedTile& turned, uint32_t across, uint32_t down, const GetApart& getApart) {
    const uint64_t* const toRight = turned.across.offsets[across];
    const uint64_t* const toBelow = turned.down.offsets[down];
    uint64_t sums = 0;
    for (uint32_t i = 0; i < kPixelSamples / 2; ++i) {
        const uint64_t two = toRight[i] + toBelow[i];
        sums += getApart(static_cast<uint32_t>(two)) + getApart(two >> 32);
    }
    return sums;
}

template <class GetApart>
uint64_t SumOfCells(const TurnedTile& turned, uint32_t across, uint32_t down, const GetApart& getApart) {
    const uint8_t* weight = turned.weights.get() + size_t{down * kStates + across} * turned.Cells();
    uint64_t sums = 0, row = 0;
    for (uint32_t j = 0; j <= turned.down.highest; ++j, row += turned.columns) {
        for (uint32_t i = 0; i <= turned.across.highest; ++i) sums += getApart(row + i) * *weight++;
    }
    return sums;
}

}  // namespace

bool TurnedTile::SumUp(const PsdPattern& tile, double u, double v, double grace, PixelSum& sum) const {
    const Corner left(across, TileSide(tile.width), u, grace), top(down, TileSide(tile.height), v, grace);
    if (!left.isClear || !top.isClear || left.index + across.highest >= columns ||
        top.index + down.highest >= rows)
        return false;
    const size_t first = size_t{top.index} * columns + left.index;
    const auto add = [&](const auto& getApart) {
        const uint64_t sums = weights ? SumOfCells(*this, left.passed, top.passed, getApart)
                                      : SumOfSamples(*this, left.passed, top.passed, getApart);
        sum = {static_cast<uint32_t>(sums), static_cast<uint32_t>(sums >> 32)};
    };
    if (repeated) {
        add([apart = repeated.get() + first](uint64_t offset) { return apart[offset]; });
    } else {
        add([packed = tile.pixels.get() + first](uint64_t offset) { return Apart(packed[offset]); });
    }
    return true;
}

Owned<TurnedTile> MakeTurnedTile(const PsdPattern& tile, double cosine, double sine, uint64_t pixels) {
    if (pixels < kLeastPixels) return {};
    Owned<TurnedTile> turned = AllocateZeroed<TurnedTile>({1});
    if (!turned) return {};
    double places[kPixelSamples];
    uint8_t orderAcross[kPixelSamples], orderDown[kPixelSamples];
    PlaceSamples(cosine, -sine, places);
    FillAxis(places, turned->across, orderAcross);
    PlaceSamples(sine, cosine, places);
    FillAxis(places, turned->down, orderDown);
    if (turned->Cells() <= kMostCells && !WeighCells(orderAcross, orderDown, *turned)) return {};
    turned->columns = tile.width + turned->across.highest;
    turned->rows = tile.height + turned->down.highest;
    if (uint64_t{turned->columns} * turned->rows <= std::min(kMostRepeated, pixels)) {
        if (!RepeatTile(tile, *turned)) return {};
    } else {
        turned->columns = tile.width;
        turned->rows = tile.height;
        if (turned->down.highest >= turned->rows) return {};
    }
    for (auto& offsets : turned->down.offsets) {
        for (uint64_t& two : offsets) two *= turned->columns;
    }
    return turned;
}

}  // namespace tessary
