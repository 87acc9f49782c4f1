// Tables of what lies between the stops of a gradient.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tessary {

// A stop of either kind: a colour, or an opacity in the lowest byte.
struct TableStop {
    int32_t index = 0;     // 0..256
    int32_t midpoint = 0;  // percent of the way to the next stop, 0..100
    uint32_t value = 0;
};

// Entries `start` to `end` run from one value towards the other, component by component.
inline void DrawStopRun(std::span<uint32_t, 256> table, int32_t start, int32_t end, uint32_t from,
                        uint32_t to) {
    for (int32_t i = start; i < std::min(end, 256); ++i) {
        uint32_t mixed = 0;
        for (int shift = 0; shift < 32; shift += 8) {
            const int32_t a = static_cast<int32_t>(from >> shift & 255);
            const int32_t b = static_cast<int32_t>(to >> shift & 255);
            mixed |= static_cast<uint32_t>(a + (b - a) * (i - start) / (end - start)) << shift;
        }
        table[static_cast<size_t>(i)] = mixed;
    }
}

// Fills a table from stops in the order of the file: before the first its value, then from each to the next
// by way of their average at the midpoint, behind the last its value. Without stops all entries are `none`.
template <class Stops, class ToTableStop>
void BuildStopTable(std::span<uint32_t, 256> table, const Stops& stops, uint32_t none,
                    ToTableStop toTableStop) {
    TableStop here = {0, 0, none};
    if (!stops.empty()) here = toTableStop(stops[0]);
    std::ranges::fill(table, here.value);
    for (size_t k = 1; k < stops.size(); ++k) {
        const TableStop next = toTableStop(stops[k]);
        const int32_t middle = here.index + (next.index - here.index) * here.midpoint / 100;
        // The component average: a + b is twice what both have plus what only one has.
        const uint32_t average = (here.value & next.value) + ((here.value ^ next.value) >> 1 & 0x7F7F7F7F);
        DrawStopRun(table, here.index, middle, here.value, average);
        DrawStopRun(table, middle, next.index, average, next.value);
        std::fill(table.begin() + std::min(next.index, 256), table.end(), next.value);
        here = next;
    }
}

}  // namespace tessary
