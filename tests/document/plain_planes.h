// Stored planes decoded as plainly as can be: whole, byte by byte. The decoder that works row by row while
// data arrives is compared with it.
#pragma once

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace tessary::test {

// `rows` rows of samples as they are stored, zero where the data does not reach. `data` stands behind the
// compression code and is sound.
inline std::vector<uint8_t> PlainPlanes(uint16_t compression, const std::vector<uint8_t>& data, size_t width,
                                        size_t rows, uint32_t depth) {
    const size_t rowBytes = (width * depth + 7) / 8;
    std::vector<uint8_t> planes(rowBytes * rows);
    size_t produced = planes.size();
    if (compression == 0) {
        std::copy_n(data.begin(), std::min(data.size(), planes.size()), planes.begin());
    } else if (compression == 1) {
        for (size_t row = 0, at = 2 * rows; row < rows && at < data.size(); ++row) {
            const size_t end = std::min(at + data[2 * row] * 256u + data[2 * row + 1], data.size());
            size_t to = row * rowBytes;
            const auto put = [&](uint8_t byte) {
                if (to < (row + 1) * rowBytes) planes[to++] = byte;
            };
            while (at + 1 < end) {
                const int head = static_cast<int8_t>(data[at++]);
                for (int i = 0; head >= 0 && i <= head && at < end; ++i) put(data[at++]);
                for (int i = head; head < 0 && head != -128 && i <= 0; ++i) put(data[at]);
                at += head < 0 && head != -128;
            }
            at = end;
        }
    } else {
        z_stream stream = {};
        inflateInit(&stream);
        stream.next_in = const_cast<Bytef*>(data.data());
        stream.avail_in = static_cast<uInt>(data.size());
        stream.next_out = planes.data();
        stream.avail_out = static_cast<uInt>(planes.size());
        inflate(&stream, Z_FINISH);
        produced -= stream.avail_out;
        inflateEnd(&stream);
    }
    if (compression != 3) return planes;
    const size_t sample = depth / 8;
    for (size_t at = 0; at < (produced + sample - 1) / sample * sample; ++at) {
        const size_t x = at % rowBytes;
        if (depth == 8 && x != 0) planes[at] = static_cast<uint8_t>(planes[at] + planes[at - 1]);
        if (depth < 16 || x % sample != sample - 1 || (depth == 16 && x < 2) ||
            (depth == 32 && x + 1 == rowBytes))
            continue;
        const uint32_t sum = planes[at - 3] * 256u + planes[at - 2] + planes[at - 1] * 256u + planes[at];
        planes[at - 1] = static_cast<uint8_t>(sum >> 8);
        planes[at] = static_cast<uint8_t>(sum);
    }
    std::fill(planes.begin() + static_cast<ptrdiff_t>(produced), planes.end(), uint8_t{0});
    return planes;
}

}  // namespace tessary::test
