// Where something has been drawn onto the canvas, tile by tile. Adjustments leave empty pixels as they are:
// they pass over tiles that hold nothing else, and a large canvas with little on it costs them little.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "document/psd_document.h"

namespace tessary {

inline constexpr int32_t kTileColumns = 256;
inline constexpr int32_t kTileRows = 64;

// Makes the document's tiles, if they are not there, and unmarks all. False without memory.
bool ClearTiles(PsdDocument& document);

// Takes note that pixels inside the area (canvas coordinates, clipped to the canvas) may not be empty.
void MarkPainted(PsdDocument& document, const Rect& area);

// Tiles in a row of the canvas.
inline int32_t TilesAcross(const PsdDocument& document) {
    return (static_cast<int32_t>(document.width) - 1) / kTileColumns + 1;
}

// Calls use(rect) for each stretch of marked tiles, cut to the area, which is clipped to the canvas: from the
// top, and from left to right. None is higher than a tile.
template <class Use>
void EachPainted(const PsdDocument& document, const Rect& area, const Use& use) {
    if (area.IsEmpty()) return;
    const uint8_t* const tiles = document.paintedTiles.get();
    const int32_t across = TilesAcross(document);
    const int32_t last = (area.right - 1) / kTileColumns;
    for (int32_t row = area.top / kTileRows; row <= (area.bottom - 1) / kTileRows; ++row) {
        const uint8_t* const marks = tiles + ptrdiff_t{row} * across;
        const int32_t top = std::max(row * kTileRows, area.top);
        const int32_t bottom =
            static_cast<int32_t>(std::min((int64_t{row} + 1) * kTileRows, int64_t{area.bottom}));
        for (int32_t begin = area.left / kTileColumns; begin <= last; ++begin) {
            int32_t end = begin;
            while (end <= last && marks[end]) ++end;
            if (end == begin) continue;
            const int64_t right = std::min(int64_t{end} * kTileColumns, int64_t{area.right});
            use(Rect{std::max(begin * kTileColumns, area.left), top, static_cast<int32_t>(right), bottom});
            begin = end;
        }
    }
}

}  // namespace tessary
