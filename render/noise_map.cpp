#include "render/noise_map.h"

#include <algorithm>
#include <cstring>

#include "document/platform.h"
#include "render/image_ops.h"

namespace tessary {

TESSARY_WRAPS PsdReadResult EnsureNoiseMap(PsdDocument& document) {
    if (document.noiseMap) return PsdReadResult::kOk;
    document.noiseMap = AllocateZeroed<uint8_t>({document.width, document.height});
    if (!document.noiseMap) return PsdReadResult::kOutOfMemory;
    uint64_t state = document.noiseSeed != 0 ? document.noiseSeed : SystemTimeSeed();
    const size_t count = document.noiseMap.count();
    for (size_t i = 0; i < count; i += 8) {
        // A counter whose bits are mixed: the clock's neighbouring values must give unlike patterns.
        state += 0x9E3779B97F4A7C15u;
        const uint64_t bits = MixBits(state);
        std::memcpy(document.noiseMap.get() + i, &bits, std::min<size_t>(count - i, 8));
    }
    return PsdReadResult::kOk;
}

}  // namespace tessary
