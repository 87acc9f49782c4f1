#include "properties/effect_distance.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>

#include "document/platform.h"
#include "render/pixel_vectors.h"

namespace tessary {
namespace {

// How far down or up the nearest covered pixel of a column is, times 256, and what of it is not covered: the
// nearest is the least, and of two that are as near the one that is covered more.
constexpr uint16_t kOnePixel = 256;
constexpr uint16_t kNone = 255 * kOnePixel;  // no covered pixel in the column; distances end before
constexpr uint32_t kSteps[] = {255, 192, 128, 64, 1};
constexpr uint32_t kOpened = kOutOfReach - 1;  // within reach, not yet measured
constexpr size_t kArcsOfPixel = 16;            // in the time of a pixel that is measured by itself
constexpr size_t kBlock = 16;                  // columns

// One column's nearest pixel, which wins along the row from `begin` on.
struct Arc {
    int32_t column;
    int32_t begin;
    int32_t square;  // of its distance down or up the column
    uint32_t coverage;
};

// How far along the row pixels are near enough to the nearest pixel of a column, and within its reach, by how
// far down or up the column that one is; below 0 where none is.
struct Widths {
    struct {
        int16_t close, within, unused[6];
    } halves[256];

    Widths(int32_t closeSquare, int32_t withinSquare) {
        const auto half = [](int32_t square) {
            return static_cast<int16_t>(square < 0 ? -1 : static_cast<int32_t>(std::sqrt(square)));
        };
        for (int32_t down = 0; down < 256; ++down)
            halves[down] = {half(closeSquare - down * down), half(withinSquare - down * down), {}};
    }
};

struct Measuring {
    const CoveragePlane& plane;
    int32_t reach;
    uint32_t enough;
    uint32_t* distances;
    Owned<uint16_t> nearest = {};  // by pixel, in its column
    Owned<uint16_t> beyond = {};   // a row of them, where the plane ends
    // Of one row and a column beside the plane on each side: the squares of the distances down or up the
    // columns, and the least of each block of them.
    Owned<uint16_t> squares = {};
    Owned<uint16_t> leastSquares = {};
    Owned<uint8_t> openCounts = {};  // by row and block
    Owned<uint8_t> marks = {};       // of one row, from both of its ends
    Owned<Arc> arcs = {};            // of one row
    Owned<double> halves = {};       // 1 / (2 * i), by i

    size_t Row(size_t y) const { return y * plane.columns; }
    size_t Blocks() const { return (plane.columns + kBlock - 1) / kBlock; }
    // A pixel that is open may find a nearer one. Those that are covered are near enough to themselves.
    int32_t LeastOpen() const { return static_cast<int32_t>(std::max(enough + 1, kDistanceUnits)); }
    bool IsOpen(uint32_t distance) const {
        return static_cast<int32_t>(distance) >= LeastOpen() && distance < kOutOfReach;
    }
};

// One pixel farther down or up the column.
uint16_t Farther(uint16_t nearest) {
    return static_cast<uint16_t>(nearest < kNone ? nearest + kOnePixel : nearest);
}
int32_t DistanceOf(uint16_t nearest) { return nearest / kOnePixel; }

// Rows of nearest pixels, from above and then also from below.
void LookDown(const Measuring& m, uint32_t step) {
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

void LookUp(const Measuring& m) {
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

// The square of a distance that is near enough for every pixel of a step; below 0 for none.
int32_t SquareOfEnough(uint32_t enough, uint32_t step) {
    const double pixels = (static_cast<double>(enough) + 2.0 * step) / kDistanceUnits - 1;
    return pixels < 0 ? -1 : static_cast<int32_t>(pixels * pixels);
}

// Goes along a row from one end to the other with what is left of the widths of the columns behind.
struct Sweep {
    const Widths& widths;
    sse2::Words left;

    Sweep(const Widths& all, bool isCoveredBeyond)
        : widths(all), left(isCoveredBeyond ? Of(all, 0) : sse2::Words(-1)) {}
    static sse2::Words Of(const Widths& all, uint16_t nearest) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(&all.halves[nearest / kOnePixel]));
    }
    // Takes in a pixel's own column. kFar is set where none is near enough to it, kApart where it is within
    // reach of none.
    static constexpr uint8_t kFar = 2, kApart = 8;
    uint8_t Next(uint16_t nearest) {
        left = HigherOf(left - sse2::Words(1), Of(widths, nearest));
        return static_cast<uint8_t>(_mm_movemask_epi8(left.bits));
    }
};

// Settles the pixels of a row that are near enough, and opens the others within reach.
void SettleRow(const Measuring& m, size_t y, const Widths& widths) {
    const size_t columns = m.plane.columns;
    const uint16_t* const nearest = m.nearest.get() + m.Row(y);
    uint8_t *const right = m.marks.get(), *const left = right + columns;
    // Both at a time, as they wait for themselves only.
    Sweep toRight(widths, m.plane.isCoveredBeyond), toLeft(widths, m.plane.isCoveredBeyond);
    for (size_t x = 0; x < columns; ++x) {
        right[x] = toRight.Next(nearest[x]);
        left[columns - 1 - x] = toLeft.Next(nearest[columns - 1 - x]);
    }
    uint32_t* const distances = m.distances + m.Row(y);
    const uint32_t enough = m.enough;
    for (size_t x = 0; x < columns; ++x) {
        const uint32_t mark = left[x] & right[x];
        const uint32_t within = mark & Sweep::kApart ? kOutOfReach : kOpened;
        const uint32_t distance = mark & Sweep::kFar ? within : enough;
        distances[x] = distances[x] == kOutOfReach ? distance : distances[x];
    }
}

// Counts the open pixels of a row by blocks. None is opened later.
void CountOpen(const Measuring& m, size_t y) {
    const uint32_t* const distances = m.distances + m.Row(y);
    uint8_t* const counts = m.openCounts.get() + y * m.Blocks();
    const size_t columns = m.plane.columns;
    for (size_t first = 0; first < columns; first += kBlock) {
        uint32_t count = 0;
        for (size_t x = first; x < std::min(first + kBlock, columns); ++x)
            count += m.IsOpen(distances[x]) ? 1u : 0u;
        counts[first / kBlock] = static_cast<uint8_t>(count);
    }
}

// The open pixels of a row: where they are, in whole blocks, and how many at most.
struct OpenPixels {
    size_t begin, end, count;
};

OpenPixels FindOpen(const Measuring& m, size_t y) {
    const uint8_t* const counts = m.openCounts.get() + y * m.Blocks();
    uint32_t count = 0;
    for (size_t block = 0; block < m.Blocks(); ++block) count += counts[block];
    if (count == 0) return {0, 0, 0};
    size_t first = 0, last = m.Blocks() - 1;
    while (counts[first] == 0) ++first;
    while (counts[last] == 0) --last;
    return {first * kBlock, std::min((last + 1) * kBlock, m.plane.columns), count};
}

// A pixel that a covered one was found for.
void Approach(uint32_t& distance, int32_t square, uint32_t coverage) {
    const double units = std::sqrt(static_cast<double>(square)) * kDistanceUnits;
    distance = std::min(distance, static_cast<uint32_t>(std::ceil(units)) + kDistanceUnits - 2 * coverage);
}

// The square of a distance from which on no pixel is nearer than that.
int32_t SquareOfNone(uint32_t distance) {
    constexpr uint64_t kSquare = uint64_t{kDistanceUnits} * kDistanceUnits;
    return static_cast<int32_t>((uint64_t{distance} * distance + kSquare - 1) / kSquare);
}

void MeasureByArcs(const Measuring& m, size_t y, const OpenPixels& open) {
    const uint16_t* const nearest = m.nearest.get() + m.Row(y);
    uint32_t* const distances = m.distances + m.Row(y);
    const int32_t columns = static_cast<int32_t>(m.plane.columns), farthest = m.reach * m.reach;
    const int32_t first = static_cast<int32_t>(open.begin), last = static_cast<int32_t>(open.end);
    size_t count = 0;
    if (m.plane.isCoveredBeyond) count = AddArc(m, count, {-1, -1, 0, 255});
    for (int32_t x = std::max(first - m.reach, 0); x < std::min(last + m.reach, columns); ++x) {
        const int32_t distance = DistanceOf(nearest[x]);
        // One that is covered itself is behind its neighbours when these are covered too.
        const bool isBetween = distance == 0 && x > 0 && x + 1 < columns && nearest[x - 1] < kOnePixel &&
                               nearest[x + 1] < kOnePixel;
        if (distance <= m.reach && !isBetween)
            count = AddArc(m, count, {x, -1, distance * distance, 255u - nearest[x] % kOnePixel});
    }
    if (m.plane.isCoveredBeyond) count = AddArc(m, count, {columns, -1, 0, 255});
    for (size_t i = 0; i < count; ++i) {
        const Arc& arc = m.arcs[i];
        const int32_t next = i + 1 < count ? m.arcs[i + 1].begin : last;
        const int32_t begin = std::max({arc.begin, arc.column - m.reach, first});
        const int32_t end = std::min({next, arc.column + m.reach + 1, last});
        for (int32_t x = begin; x < end; ++x) {
            const int32_t square = (x - arc.column) * (x - arc.column) + arc.square;
            if (square <= farthest && distances[x] >= kDistanceUnits)
                Approach(distances[x], square, arc.coverage);
        }
    }
}

// The squares of some blocks of a row.
void FillSquares(const Measuring& m, size_t y, size_t fromBlock, size_t toBlock) {
    const uint16_t* const nearest = m.nearest.get() + m.Row(y);
    uint16_t* const squares = m.squares.get();
    const size_t begin = std::max<size_t>(fromBlock * kBlock, 1) - 1;
    const size_t end = std::min(toBlock * kBlock - 1, m.plane.columns);
    for (size_t x = begin; x < end; ++x) {
        const uint16_t down = static_cast<uint16_t>(nearest[x] / kOnePixel);
        squares[x + 1] = static_cast<uint16_t>(down * down);
    }
    for (size_t block = fromBlock; block < toBlock; ++block) {
        uint16_t least = UINT16_MAX;
        for (size_t i = 0; i < kBlock; ++i) least = std::min(least, squares[block * kBlock + i]);
        m.leastSquares[block] = least;
    }
}

// Takes the nearest of all columns around a pixel, and of several the first.
void MeasurePixel(const Measuring& m, size_t y, size_t x, int32_t enough) {
    uint32_t& distance = m.distances[m.Row(y) + x];
    const uint16_t* const squares = m.squares.get();
    const int32_t block = kBlock, at = static_cast<int32_t>(x) + 1;
    const int32_t last = std::min((at + m.reach) / block, static_cast<int32_t>(m.leastSquares.count()) - 1);
    // It is sought below this one; the pixel's own column has one at least as near.
    const int32_t farthest = std::min({m.reach * m.reach + 1, squares[at] + 1, SquareOfNone(distance)});
    int32_t square = farthest, column = 0;
    for (int32_t i = std::max(at - m.reach, 0) / block; i <= last; ++i) {
        const int32_t first = i * block, apart = std::max({first - at, at - (first + block - 1), 0});
        if (m.leastSquares[static_cast<size_t>(i)] + apart * apart >= square) continue;
        for (int32_t other = first; other < first + block; ++other) {
            const int32_t found = squares[other] + (other - at) * (other - at);
            if (found < square) square = found, column = other;
        }
    }
    if (square == farthest) return;
    if (square <= enough) {
        distance = m.enough;
        return;
    }
    const bool isInside = column > 0 && static_cast<size_t>(column) <= m.plane.columns;
    const size_t found = m.Row(y) + static_cast<size_t>(column);  // behind it
    Approach(distance, square, isInside ? 255u - m.nearest[found - 1] % kOnePixel : 255);
}

void MeasureRow(const Measuring& m, size_t y, int32_t enough) {
    const OpenPixels open = FindOpen(m, y);
    if (open.count == 0) return;
    const size_t span = open.end - open.begin + 2 * static_cast<size_t>(m.reach);
    if (open.count * kArcsOfPixel > span) return MeasureByArcs(m, y, open);
    const size_t reach = static_cast<size_t>(m.reach);
    size_t filled = 0;  // blocks, of those that are needed
    for (size_t first = open.begin; first < open.end; first += kBlock) {
        if (m.openCounts[y * m.Blocks() + first / kBlock] == 0) continue;
        const size_t last = std::min(first + kBlock, open.end);
        const size_t from = std::max(filled, (std::max(first + 1, reach) - reach) / kBlock);
        const size_t to = std::min((last + reach) / kBlock + 1, m.leastSquares.count());
        if (from < to) FillSquares(m, y, from, to);
        filled = std::max(filled, to);
        for (size_t x = first; x < last; ++x) {
            if (m.IsOpen(m.distances[m.Row(y) + x])) MeasurePixel(m, y, x, enough);
        }
    }
}

void MeasureStep(const Measuring& m, uint32_t step, bool isFirst) {
    LookDown(m, step);
    LookUp(m);
    const int32_t enough = SquareOfEnough(m.enough, step);
    const Widths widths(enough, m.reach * m.reach);
    for (size_t y = 0; y < m.plane.rows; ++y) {
        if (isFirst) {
            SettleRow(m, y, widths);
            CountOpen(m, y);
        }
        MeasureRow(m, y, enough);
    }
}

bool Prepare(Measuring& m) {
    const uint64_t columns = m.plane.columns;
    m.nearest = AllocateZeroed<uint16_t>({columns, m.plane.rows});
    m.beyond = AllocateZeroed<uint16_t>({columns});
    m.leastSquares = AllocateZeroed<uint16_t>({(columns + 2 + kBlock - 1) / kBlock});
    m.squares = AllocateZeroed<uint16_t>({m.leastSquares.count(), kBlock});
    m.openCounts = AllocateZeroed<uint8_t>({m.plane.rows, m.Blocks()});
    m.marks = AllocateZeroed<uint8_t>({2, columns});
    m.arcs = AllocateZeroed<Arc>({columns + 2});
    m.halves = AllocateZeroed<double>({2 * static_cast<uint64_t>(m.reach) + 1});
    if (!m.nearest || !m.beyond || !m.leastSquares || !m.squares || !m.openCounts || !m.marks || !m.arcs ||
        !m.halves)
        return false;
    const bool isCoveredBeyond = m.plane.isCoveredBeyond;
    std::fill_n(m.beyond.get(), columns, isCoveredBeyond ? uint16_t{0} : kNone);
    std::ranges::fill(m.squares.span(), uint16_t{UINT16_MAX});
    if (isCoveredBeyond) m.squares[0] = m.squares[columns + 1] = 0;
    for (size_t i = 1; i < m.halves.count(); ++i) m.halves[i] = 0.5 / static_cast<double>(i);
    return true;
}

// The steps that add pixels to those before them, which may be those beyond the plane. Returns how many.
size_t ChooseSteps(const CoveragePlane& plane, uint32_t (&steps)[std::size(kSteps)]) {
    size_t count = 0;
    uint32_t before = 256;
    for (const uint32_t step : kSteps) {
        const uint8_t least = static_cast<uint8_t>(step), most = static_cast<uint8_t>(before - 1);
        uint8_t any = step == 255 && plane.isCoveredBeyond;
        for (const uint8_t coverage : plane.bytes.span())
            any |= static_cast<uint8_t>(coverage >= least) & static_cast<uint8_t>(coverage <= most);
        if (any) steps[count++] = step;
        before = step;
    }
    return count;
}

}  // namespace

PsdReadResult MeasureDistances(const CoveragePlane& plane, uint32_t reach, uint32_t enough,
                               uint32_t* distances) {
    Measuring m{
        .plane = plane, .reach = static_cast<int32_t>(reach), .enough = enough, .distances = distances};
    if (!Prepare(m)) return PsdReadResult::kOutOfMemory;
    for (size_t i = 0; i < plane.columns * plane.rows; ++i)
        distances[i] = plane.bytes[i] ? 2 * (255u - plane.bytes[i]) : kOutOfReach;
    uint32_t steps[std::size(kSteps)];
    const size_t count = ChooseSteps(plane, steps);
    // The last one has all pixels and leaves few open.
    for (size_t i = count; i > 0; --i) MeasureStep(m, steps[i - 1], i == count);
    return PsdReadResult::kOk;
}

}  // namespace tessary
