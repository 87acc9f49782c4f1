#include "render/painted_tiles.h"

#include <cstring>

namespace tessary {

bool ClearTiles(PsdDocument& document) {
    if (document.paintedTiles) {
        std::memset(document.paintedTiles.get(), 0, document.paintedTiles.count());
    } else {
        const uint64_t down = (uint64_t{document.height} - 1) / kTileRows + 1;
        document.paintedTiles = AllocateZeroed<uint8_t>({static_cast<uint64_t>(TilesAcross(document)), down});
    }
    return static_cast<bool>(document.paintedTiles);
}

void MarkPainted(PsdDocument& document, const Rect& area) {
    if (area.IsEmpty()) return;
    const int32_t first = area.left / kTileColumns, last = (area.right - 1) / kTileColumns;
    uint8_t* marks =
        document.paintedTiles.get() + ptrdiff_t{area.top / kTileRows} * TilesAcross(document) + first;
    for (int32_t row = area.top / kTileRows; row <= (area.bottom - 1) / kTileRows; ++row) {
        std::memset(marks, 1, static_cast<size_t>(last - first) + 1);
        marks += TilesAcross(document);
    }
}

}  // namespace tessary
