// How far pixels are from what a plane covers, and what shapes become when they grow.
#pragma once

#include <cstddef>
#include <cstdint>

#include "document/psd_document.h"

namespace tessary {

// Columns x rows bytes of coverage; beyond them every pixel is covered or none.
struct CoveragePlane {
    Owned<uint8_t> bytes;
    size_t columns = 0;
    size_t rows = 0;
    bool isCoveredBeyond = false;
};

// A distance d is stored as (d + 1) * kDistanceUnits, rounded up: pixels that are covered in part are that
// much farther, so d is -1 on a pixel that is covered and 0 where the edge is.
inline constexpr uint32_t kDistanceUnits = 510;
inline constexpr uint32_t kOutOfReach = 1u << 24;

// Measures how far each pixel is from the nearest covered one, less the share of that one which is covered,
// and takes the least over five steps of coverage from which on a pixel counts. Linear in the pixels.
//   reach      pixels, at most 252; what is farther is kOutOfReach
//   enough     distances up to this one may be any up to it
//   distances  columns x rows
// kOutOfMemory.
PsdReadResult MeasureDistances(const CoveragePlane& plane, uint32_t reach, uint32_t enough,
                               uint32_t* distances);

// The coverage 0..255 when what is covered grows by so many half pixels, at most 500.
inline uint32_t GrownCoverage(uint32_t distance, uint32_t halfPixels) {
    // Half levels; the last term rounds.
    const int32_t level =
        static_cast<int32_t>(255 * halfPixels + kDistanceUnits + 1) - static_cast<int32_t>(distance);
    return level <= 0 ? 0 : level >= 510 ? 255 : static_cast<uint32_t>(level) / 2;
}

// What that takes: bytes a pixel beside the distances, and nanoseconds.
inline constexpr uint32_t kDistanceBytes = 3;
inline constexpr uint32_t kDistanceSteps = 45;

// The distance up to which GrownCoverage is 255.
inline uint32_t DistanceOfFullGrowth(uint32_t halfPixels) { return 255 * halfPixels + 1; }

// The reach within which GrownCoverage is not 0.
inline uint32_t ReachOfGrowth(uint32_t halfPixels) { return halfPixels / 2 + halfPixels % 2 + 1; }

inline double DistanceInPixels(uint32_t distance) {
    return static_cast<double>(distance) / kDistanceUnits - 1;
}

}  // namespace tessary
