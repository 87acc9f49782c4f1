#include "properties/effect_distance.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "document/platform.h"

namespace tessary {
namespace {

// How far down or up the nearest covered pixel of a column is, times 256, and what of it is not covered: the
// nearest is the least, and of two that are as near the one that is covered more.
constexpr uint16_t kOnePixel = 256;
constexpr uint16_t kNone = 255 * kOnePixel;            // no covered pixel in the column; distances end before
constexpr uint32_t kSteps[] = {255, 192, 128, 64, 1};  // the first ones settle most

// One column's nearest pixel, which wins along the row from `begin` on.
struct Arc {
    int32_t column;
    int32_t begin;
    int32_t square;  // of its distance down or up the column
    uint32_t coverage;
};

struct Measuring {
    const CoveragePlane& plane;
    int32_t reach;
    uint32_t enough;
    uint32_t* distances;
    Owned<uint16_t> nearest = {};  // by pixel, in its column
    Owned<uint16_t> beyond = {};   // a row of them, where the plane ends
    Owned<Arc> arcs = {};          // of one row
    Owned<double> halves = {};     // 1 / (2 * i), by i

    size_t Row(size_t y) const { return y * plane.columns; }
};

// One pixel farther down or up the column.
uint16_t Farther(uint16_t nearest) {
    return static_cast<uint16_t>(nearest < kNone ? nearest + kOnePixel : nearest);
}
int32_t DistanceOf(uint16_t nearest) { return nearest / kOnePixel; }

// Rows of nearest pixels, from above and then also from below.
void LookDown(Measuring& m, uint32_t step) {
    const size_t columns = m.plane.columns;
    const uint16_t* above = m.beyond.get();
    const uint8_t least = static_cast<uint8_t>(step);
    for (size_t y = 0; y < m.plane.rows; ++y) {
        const uint8_t* const covered = m.plane.bytes.get() + m.Row(y);
        uint16_t* const nearest = m.nearest.get() + m.Row(y);
        for (size_t x = 0; x < columns; ++x) {
            const uint16_t farther = Farther(above[x]), here = static_cast<uint16_t>(255 - covered[x]);
            nearest[x] = covered[x] >= least ? here : farther;
        }
        above = nearest;
    }
}

void LookUp(Measuring& m) {
    const size_t columns = m.plane.columns;
    const uint16_t* below = m.beyond.get();
    for (size_t left = m.plane.rows; left > 0; --left) {
        uint16_t* const nearest = m.nearest.get() + m.Row(left - 1);
        for (size_t x = 0; x < columns; ++x) nearest[x] = std::min(nearest[x], Farther(below[x]));
        below = nearest;
    }
}

// Adds a column to the arcs of a row; the last arcs give way as long as it is nearer where they begin.
// Returns the number of arcs.
size_t AddArc(const Measuring& m, size_t count, Arc added) {
    Arc* const arcs = m.arcs.get();
    // Beyond its reach it does not matter to which arc a pixel falls.
    added.begin = added.column - m.reach;
    for (; count > 0; --count) {
        const Arc& last = arcs[count - 1];
        const int32_t apart = added.column - last.column;
        if (apart > 2 * m.reach) break;
        const int32_t fromLast = last.begin - last.column, fromAdded = last.begin - added.column;
        if (fromAdded * fromAdded + added.square < fromLast * fromLast + last.square) continue;
        // From here on the added one is nearer. The quotient is a whole number or at least 1 / (4 * reach)
        // from one, so that the grace is not felt but by rounding, and not below the offset.
        constexpr double kGrace = 1e-6;
        constexpr int32_t kOffset = 1 << 20;
        const double quotient =
            (apart * apart + added.square - last.square) * m.halves[static_cast<size_t>(apart)];
        const int32_t begin = last.column + static_cast<int32_t>(quotient + (kOffset + kGrace)) - kOffset + 1;
        added.begin = std::clamp(begin, added.column - m.reach, added.column + m.reach + 1);
        break;
    }
    arcs[count] = added;
    return count + 1;
}

// What is near enough for every pixel of a step: the square of a distance, and one straight down or up.
struct Enough {
    int32_t square = -1;
    uint32_t down = 0;

    Enough(uint32_t enough, uint32_t step) {
        const double pixels = (static_cast<double>(enough) + 2.0 * step) / kDistanceUnits - 1;
        if (pixels < 0) return;
        square = static_cast<int32_t>(pixels * pixels);
        down = static_cast<uint32_t>(std::min(pixels, 254.0));
    }
};

// Columns of a row from the first pixel that is still open to behind the last.
struct OpenRun {
    size_t begin, end;
};

// Settles the pixels of a row that their own columns are near enough for.
OpenRun SettleRow(const Measuring& m, size_t y, uint32_t enoughDown) {
    const size_t columns = m.plane.columns;
    const uint16_t* const nearest = m.nearest.get() + m.Row(y);
    uint32_t* const distances = m.distances + m.Row(y);
    for (size_t x = 0; enoughDown != 0 && x < columns; ++x) {
        // Wraps for pixels that are covered themselves.
        const bool isNear = nearest[x] / kOnePixel - 1u < enoughDown;
        distances[x] = isNear ? std::min(distances[x], m.enough) : distances[x];
    }
    const auto isOpen = [&](size_t x) { return distances[x] > m.enough && nearest[x] >= kOnePixel; };
    OpenRun run{0, columns};
    while (run.begin < run.end && !isOpen(run.begin)) ++run.begin;
    while (run.begin < run.end && !isOpen(run.end - 1)) --run.end;
    return run;
}

// The arcs of a row that reach open pixels. A column whose own pixel is settled does not matter when both of
// its neighbours are as near: they are nearer to all pixels on their sides.
size_t CollectArcs(const Measuring& m, size_t y, OpenRun run, uint32_t enoughDown) {
    const uint16_t* const nearest = m.nearest.get() + m.Row(y);
    const int32_t columns = static_cast<int32_t>(m.plane.columns);
    const int32_t begin = std::max(static_cast<int32_t>(run.begin) - m.reach, 0);
    const int32_t end = std::min(static_cast<int32_t>(run.end) + m.reach, columns);
    size_t count = 0;
    if (m.plane.isCoveredBeyond) count = AddArc(m, count, {-1, -1, 0, 255});
    for (int32_t x = begin; x < end; ++x) {
        const int32_t distance = DistanceOf(nearest[x]);
        if (distance > m.reach) continue;
        const bool isBetween = static_cast<uint32_t>(distance) <= enoughDown && x > 0 && x + 1 < columns &&
                               DistanceOf(nearest[x - 1]) <= distance &&
                               DistanceOf(nearest[x + 1]) <= distance;
        if (!isBetween) count = AddArc(m, count, {x, -1, distance * distance, 255u - nearest[x] % kOnePixel});
    }
    if (m.plane.isCoveredBeyond) count = AddArc(m, count, {columns, -1, 0, 255});
    return count;
}

void MeasureRow(const Measuring& m, size_t y, const Enough& enough) {
    const OpenRun run = SettleRow(m, y, enough.down);
    if (run.begin == run.end) return;
    const uint16_t* const nearest = m.nearest.get() + m.Row(y);
    uint32_t* const distances = m.distances + m.Row(y);
    const size_t count = CollectArcs(m, y, run, enough.down);
    const int32_t first = static_cast<int32_t>(run.begin), last = static_cast<int32_t>(run.end),
                  farthest = m.reach * m.reach;
    for (size_t i = 0; i < count; ++i) {
        const Arc& arc = m.arcs[i];
        const int32_t next = i + 1 < count ? m.arcs[i + 1].begin : last;
        const int32_t begin = std::max({arc.begin, arc.column - m.reach, first});
        const int32_t end = std::min({next, arc.column + m.reach + 1, last});
        for (int32_t x = begin; x < end; ++x) {
            const int32_t square = (x - arc.column) * (x - arc.column) + arc.square;
            if (square > farthest || distances[x] <= m.enough || nearest[x] < kOnePixel) continue;
            if (square <= enough.square) {
                distances[x] = m.enough;
                continue;
            }
            const double units = std::sqrt(static_cast<double>(square)) * kDistanceUnits;
            const uint32_t distance =
                static_cast<uint32_t>(std::ceil(units)) + kDistanceUnits - 2 * arc.coverage;
            distances[x] = std::min(distances[x], distance);
        }
    }
}

void MeasureStep(Measuring& m, uint32_t step) {
    LookDown(m, step);
    LookUp(m);
    const Enough enough(m.enough, step);
    for (size_t y = 0; y < m.plane.rows; ++y) MeasureRow(m, y, enough);
}

}  // namespace

PsdReadResult MeasureDistances(const CoveragePlane& plane, uint32_t reach, uint32_t enough,
                               uint32_t* distances) {
    Measuring m{
        .plane = plane, .reach = static_cast<int32_t>(reach), .enough = enough, .distances = distances};
    m.nearest = AllocateZeroed<uint16_t>({plane.columns, plane.rows});
    m.beyond = AllocateZeroed<uint16_t>({plane.columns});
    m.arcs = AllocateZeroed<Arc>({plane.columns + 2});
    m.halves = AllocateZeroed<double>({2 * uint64_t{reach} + 1});
    if (!m.nearest || !m.beyond || !m.arcs || !m.halves) return PsdReadResult::kOutOfMemory;
    for (size_t i = 1; i < m.halves.count(); ++i) m.halves[i] = 0.5 / static_cast<double>(i);

    std::fill_n(m.beyond.get(), plane.columns, plane.isCoveredBeyond ? uint16_t{0} : kNone);

    bool has[256] = {};
    for (size_t i = 0; i < plane.columns * plane.rows; ++i) {
        const uint8_t coverage = plane.bytes[i];
        has[coverage] = true;
        distances[i] = coverage ? 2 * (255u - coverage) : kOutOfReach;
    }
    // A step that adds no pixel to the one before tells nothing new.
    size_t before = 256;
    for (const uint32_t step : kSteps) {
        if (std::find(has + step, has + before, true) != has + before) MeasureStep(m, step);
        before = step;
    }
    return PsdReadResult::kOk;
}

}  // namespace tessary
