#include "document/packbits.h"

#include <algorithm>
#include <cstring>

namespace tessary {
namespace {

// Copies in steps of 16, so up to 15 bytes more than `count`.
void CopyInSteps(uint8_t* to, const uint8_t* from, size_t count) {
    size_t i = 0;
    do std::memcpy(to + i, from + i, 16);
    while ((i += 16) < count);
}

}  // namespace

size_t UnpackBits(std::span<const uint8_t> input, std::span<uint8_t> output) {
    const uint8_t* in = input.data();
    const uint8_t* const inEnd = in + input.size();
    uint8_t* out = output.data();
    uint8_t* const outEnd = out + output.size();
    while (inEnd - in >= 2 && out < outEnd) {
        const uint32_t head = *in++;
        if (head < 128) {
            CopyInSteps(out, in, head + 1);
            in += head + 1;
            out += head + 1;
        } else if (head > 128) {
            uint8_t value[16];
            std::memset(value, *in++, sizeof value);
            size_t i = 0;
            do std::memcpy(out + i, value, 16);
            while ((i += 16) < 257 - head);
            out += 257 - head;
        }
    }
    // Only the last bytes copied can have come from behind the input.
    if (in > inEnd) out -= in - inEnd;
    return static_cast<size_t>(std::min(out, outEnd) - output.data());
}

}  // namespace tessary
