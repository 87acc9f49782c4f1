#include "document/channel_codec.h"

#include <emmintrin.h>

#include <algorithm>
#include <cstring>

#include "document/big_endian.h"
#include "document/inflater.h"
#include "document/platform.h"
#include "render/color_convert.h"

namespace tessary {
namespace {

voidpf AllocateForZlib(voidpf, uInt items, uInt size) {
    const auto bytes = CheckedProduct({items, size});
    return bytes ? AllocateZeroedBytes(*bytes) : nullptr;
}

void FreeForZlib(voidpf, voidpf memory) { FreeBytes(memory); }

// Inflates one zlib stream and tells how many bytes came out. A stream that ends before the output is full
// leaves the rest as it is, one that goes on is cut.
PsdReadResult InflateAll(std::span<const uint8_t> input, std::span<uint8_t> output, size_t& produced) {
    produced = 0;
    Inflater inflater;
    if (!inflater.IsCreated()) return PsdReadResult::kInflateSetup;
    const auto nextPiece = [&] {
        const auto piece = input.first(std::min(input.size(), Inflater::kMostBytes));
        input = input.subspan(piece.size());
        return piece;
    };
    return inflater.Inflate(output, nextPiece, produced);
}

// Returns the bytes written.
uint64_t UnpackRows(std::span<const uint8_t> input, uint64_t rows, size_t rowBytes, uint8_t* planes) {
    const uint64_t tableBytes = 2 * rows;
    if (rowBytes == 0 || tableBytes >= input.size()) return 0;
    uint64_t written = 0;
    std::span<const uint8_t> packed = input.subspan(static_cast<size_t>(tableBytes));
    for (size_t row = 0; row < rows && !packed.empty(); ++row) {
        const size_t stored = std::min<size_t>(LoadU16(input.data() + 2 * row), packed.size());
        written += UnpackBits(packed.first(stored), {planes + row * rowBytes, rowBytes});
        packed = packed.subspan(stored);
    }
    return written;
}

// Copies in steps of 16, so up to 15 bytes more than `count`.
void CopyInSteps(uint8_t* to, const uint8_t* from, size_t count) {
    size_t i = 0;
    do std::memcpy(to + i, from + i, 16);
    while ((i += 16) < count);
}

// UnpackBits that may read and write kUnpackSlack bytes behind its input and output.
size_t UnpackBitsWithSlack(const uint8_t* in, size_t inputBytes, uint8_t* const output, size_t outputBytes) {
    const uint8_t* const inEnd = in + inputBytes;
    uint8_t* out = output;
    uint8_t* const outEnd = output + outputBytes;
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
    return static_cast<size_t>(std::min(out, outEnd) - output);
}

// How far a row can be summed up in steps of one register; the caller goes on behind that.
size_t SumBytes(uint8_t* row, size_t count) {
    __m128i carry = _mm_setzero_si128();
    size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        __m128i* const at = reinterpret_cast<__m128i*>(row + i);
        __m128i sum = _mm_loadu_si128(at);
        sum = _mm_add_epi8(sum, _mm_slli_si128(sum, 1));
        sum = _mm_add_epi8(sum, _mm_slli_si128(sum, 2));
        sum = _mm_add_epi8(sum, _mm_slli_si128(sum, 4));
        sum = _mm_add_epi8(sum, _mm_slli_si128(sum, 8));
        _mm_storeu_si128(at, _mm_add_epi8(sum, carry));
        // The step's own total goes to every byte of the carry, so that steps wait for one addition only.
        __m128i last = _mm_srli_si128(sum, 15);
        last = _mm_unpacklo_epi8(last, last);
        last = _mm_shuffle_epi32(_mm_shufflelo_epi16(last, 0), 0);
        carry = _mm_add_epi8(carry, last);
    }
    return i;
}

__m128i SwapBytes16(__m128i words) {
    return _mm_or_si128(_mm_slli_epi16(words, 8), _mm_srli_epi16(words, 8));
}

size_t SumBigEndian16(uint8_t* row, size_t bytes) {
    __m128i carry = _mm_setzero_si128();
    size_t i = 0;
    for (; i + 16 <= bytes; i += 16) {
        __m128i* const at = reinterpret_cast<__m128i*>(row + i);
        __m128i sum = SwapBytes16(_mm_loadu_si128(at));
        sum = _mm_add_epi16(sum, _mm_slli_si128(sum, 2));
        sum = _mm_add_epi16(sum, _mm_slli_si128(sum, 4));
        sum = _mm_add_epi16(sum, _mm_slli_si128(sum, 8));
        _mm_storeu_si128(at, SwapBytes16(_mm_add_epi16(sum, carry)));
        __m128i last = _mm_srli_si128(sum, 14);
        last = _mm_shuffle_epi32(_mm_shufflelo_epi16(last, 0), 0);
        carry = _mm_add_epi16(carry, last);
    }
    return i;
}

void SumRow(uint8_t* row, uint32_t width, uint32_t depth) {
    const size_t rowBytes = static_cast<size_t>(PlaneRowBytes(width, depth));
    switch (depth) {
    case 8: {
        const size_t done = SumBytes(row, width);
        for (size_t i = std::max<size_t>(done, 1); i < width; ++i)
            row[i] = static_cast<uint8_t>(row[i] + row[i - 1]);
        break;
    }
    case 16: {
        const size_t done = std::max<size_t>(SumBigEndian16(row, rowBytes), 2);
        for (size_t i = done; i < rowBytes; i += 2) {
            const uint32_t sum = uint32_t{LoadU16(row + i)} + LoadU16(row + i - 2);
            row[i] = static_cast<uint8_t>(sum >> 8);
            row[i + 1] = static_cast<uint8_t>(sum);
        }
        break;
    }
    case 32:
        // Nothing is carried from one sample to the next: each gets its own high half added to its low half,
        // and the row's last sample stays as it is.
        for (size_t i = 0; i + 4 < rowBytes; i += 4) {
            const uint32_t sum = uint32_t{LoadU16(row + i)} + LoadU16(row + i + 2);
            row[i + 2] = static_cast<uint8_t>(sum >> 8);
            row[i + 3] = static_cast<uint8_t>(sum);
        }
        break;
    default: break;
    }
}

}  // namespace

Inflater::Inflater() {
    m_stream.zalloc = AllocateForZlib;
    m_stream.zfree = FreeForZlib;
    m_created = inflateInit2(&m_stream, 15) == Z_OK;
}

uint32_t CompressionExpansion(uint16_t compression) {
    switch (compression) {
    case kCompressionRaw: return kRawExpansion;
    case kCompressionPackBits: return kPackBitsExpansion;
    case kCompressionZip:
    case kCompressionZipPrediction: return kZipExpansion;
    default: return 0;
    }
}

PsdReadResult DecodePlanes(uint16_t compression, std::span<const uint8_t> input, const PlaneShape& shape,
                           std::span<uint8_t> planes, uint64_t& filled) {
    filled = 0;
    const uint64_t rowBytes = PlaneRowBytes(shape.width, shape.depth);
    const uint64_t rows = uint64_t{shape.height} * shape.planeCount;
    const auto total = CheckedProduct({rowBytes, rows});
    if (!total || *total > planes.size()) return PsdReadResult::kOutOfMemory;
    planes = planes.first(*total);

    size_t produced = 0;
    PsdReadResult result = PsdReadResult::kOk;
    switch (compression) {
    case kCompressionRaw:
        filled = std::min(input.size(), planes.size());
        if (filled != 0) std::memcpy(planes.data(), input.data(), static_cast<size_t>(filled));
        break;
    case kCompressionPackBits:
        filled = UnpackRows(input, rows, static_cast<size_t>(rowBytes), planes.data());
        break;
    case kCompressionZip:
    case kCompressionZipPrediction:
        result = InflateAll(input, planes, produced);
        filled = produced;
        if (result == PsdReadResult::kOk && compression == kCompressionZipPrediction)
            UndoPrediction(planes, produced, shape.width, shape.depth);
        break;
    default: return PsdReadResult::kBadCompression;
    }
    return result;
}

size_t UnpackBits(std::span<const uint8_t> input, std::span<uint8_t> output) {
    const uint8_t* in = input.data();
    const uint8_t* const inEnd = in + input.size();
    uint8_t* out = output.data();
    uint8_t* const outEnd = out + output.size();
    while (inEnd - in >= 2 && out < outEnd) {
        const uint32_t head = *in++;
        if (head < 128) {
            const size_t count = std::min(
                {size_t{head} + 1, static_cast<size_t>(inEnd - in), static_cast<size_t>(outEnd - out)});
            std::memcpy(out, in, count);
            in += count;
            out += count;
        } else if (head > 128) {
            const size_t count = std::min<size_t>(257 - head, static_cast<size_t>(outEnd - out));
            std::memset(out, *in++, count);
            out += count;
        }
    }
    return static_cast<size_t>(out - output.data());
}

const uint8_t* TakeRows(PlaneRows& plane, size_t rows, uint8_t* buffer) {
    const size_t wanted = rows * plane.rowBytes;
    if (!plane.counts) {
        const size_t taken = std::min(plane.left, wanted);
        const uint8_t* const from = plane.data;
        if (taken) plane.data += taken;
        plane.left -= taken;
        plane.filled += taken;
        if (taken == wanted) return from;
        if (taken) std::memcpy(buffer, from, taken);
        std::memset(buffer + taken, 0, wanted - taken);
        return buffer;
    }
    uint8_t* out = buffer;
    for (size_t row = 0; row < rows; ++row, plane.counts += 2, out += plane.rowBytes) {
        const size_t stored = std::min<size_t>(LoadU16(plane.counts), plane.left);
        size_t written = 0;
        if (stored) {
            written = UnpackBitsWithSlack(plane.data, stored, out, plane.rowBytes);
            plane.data += stored;
            plane.left -= stored;
            plane.filled += written;
        }
        std::memset(out + written, 0, plane.rowBytes - written);
    }
    return buffer;
}

void UndoPrediction(std::span<uint8_t> rows, size_t produced, uint32_t width, uint32_t depth) {
    const size_t rowBytes = static_cast<size_t>(PlaneRowBytes(width, depth));
    if (width < 2 || produced == 0) return;
    const size_t reached = (produced + rowBytes - 1) / rowBytes;
    const std::span<uint8_t> unreached = rows.first(reached * rowBytes).subspan(produced);
    std::ranges::fill(unreached, uint8_t{0});  // half a sample may be there
    uint8_t* row = rows.data();
    for (size_t i = 0; i < reached; ++i, row += rowBytes) SumRow(row, width, depth);
    // Sums run on behind an early end; what the input did not reach stays zero.
    std::ranges::fill(unreached, uint8_t{0});
}

}  // namespace tessary
