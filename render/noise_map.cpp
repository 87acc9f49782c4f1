#include "render/noise_map.h"

#include <algorithm>

#include "document/platform.h"

namespace tessary {

TESSARY_WRAPS PsdReadResult EnsureNoiseMap(PsdDocument& document, uint64_t seed) {
    if (document.noiseMap) return PsdReadResult::kOk;
    document.noiseMap = AllocateZeroed<uint8_t>({document.width, document.height});
    if (!document.noiseMap) return PsdReadResult::kOutOfMemory;
    uint64_t state = seed != 0 ? seed : SystemTimeSeed();
    const size_t count = document.noiseMap.count();
    for (size_t i = 0; i < count; i += 8) {
        // A counter whose bits are mixed: the clock's neighbouring values must give unlike patterns.
        state += 0x9E3779B97F4A7C15u;
        uint64_t bits = state;
        bits = (bits ^ bits >> 30) * 0xBF58476D1CE4E5B9u;
        bits = (bits ^ bits >> 27) * 0x94D049BB133111EBu;
        bits ^= bits >> 31;
        for (size_t k = i; k < std::min(i + 8, count); ++k, bits >>= 8) {
            document.noiseMap[k] = static_cast<uint8_t>(bits);
        }
    }
    return PsdReadResult::kOk;
}

}  // namespace tessary
