#include "document/channel_codec.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>

#include "document/big_endian.h"
#include "document/platform.h"
#include "render/color_convert.h"

namespace tessary {
namespace {

// zlib's memory comes from where all memory of the engine comes from.
voidpf AllocateForZlib(voidpf, uInt items, uInt size) {
    const auto bytes = CheckedProduct({items, size});
    return bytes ? AllocateZeroedBytes(*bytes) : nullptr;
}

void FreeForZlib(voidpf, voidpf memory) { FreeBytes(memory); }

class Inflater {
public:
    Inflater() {
        stream.zalloc = AllocateForZlib;
        stream.zfree = FreeForZlib;
        m_created = inflateInit2(&stream, 15) == Z_OK;
    }
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;
    ~Inflater() {
        if (m_created) inflateEnd(&stream);
    }
    bool IsCreated() const { return m_created; }

    z_stream stream = {};

private:
    bool m_created = false;
};

// zlib counts in 32 bits, so both ends are handed over in pieces.
uInt NextPiece(size_t& left) {
    const size_t piece = std::min<size_t>(left, 1u << 30);
    left -= piece;
    return static_cast<uInt>(piece);
}

// InflateAll that also tells how many bytes came out.
PsdReadResult Inflate(std::span<const uint8_t> input, std::span<uint8_t> output, size_t& produced) {
    produced = 0;
    Inflater inflater;
    if (!inflater.IsCreated()) return PsdReadResult::kInflateSetup;
    if (output.empty()) return PsdReadResult::kOk;

    z_stream& stream = inflater.stream;
    size_t inputLeft = input.size();
    size_t outputLeft = output.size();
    stream.next_in = const_cast<Bytef*>(input.data());  // zlib does not write through it
    stream.next_out = output.data();
    for (;;) {
        if (stream.avail_in == 0) stream.avail_in = NextPiece(inputLeft);
        if (stream.avail_out == 0) stream.avail_out = NextPiece(outputLeft);
        const int code = stream.next_in ? inflate(&stream, Z_NO_FLUSH) : Z_BUF_ERROR;
        produced = output.size() - outputLeft - stream.avail_out;
        if (code == Z_STREAM_END) return PsdReadResult::kOk;
        if (code == Z_MEM_ERROR) return PsdReadResult::kOutOfMemory;
        if (code != Z_OK && code != Z_BUF_ERROR) return PsdReadResult::kInflateFailed;
        if (produced == output.size()) return PsdReadResult::kOk;
        if (stream.avail_in == 0 && inputLeft == 0) return PsdReadResult::kInflateFailed;
    }
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

}  // namespace

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
                           std::span<uint8_t> planes, uint64_t* filled) {
    const uint64_t rowBytes = PlaneRowBytes(shape.width, shape.depth);
    const uint64_t rows = uint64_t{shape.height} * shape.planeCount;
    const auto total = CheckedProduct({rowBytes, rows});
    if (!total || *total > planes.size()) return PsdReadResult::kOutOfMemory;
    planes = planes.first(*total);

    uint64_t written = 0;
    size_t produced = 0;
    PsdReadResult result = PsdReadResult::kOk;
    switch (compression) {
    case kCompressionRaw:
        written = std::min(input.size(), planes.size());
        if (written != 0) std::memcpy(planes.data(), input.data(), static_cast<size_t>(written));
        break;
    case kCompressionPackBits:
        written = UnpackRows(input, rows, static_cast<size_t>(rowBytes), planes.data());
        break;
    case kCompressionZip:
    case kCompressionZipPrediction:
        result = Inflate(input, planes, produced);
        written = produced;
        if (result == PsdReadResult::kOk && compression == kCompressionZipPrediction && produced != 0) {
            const uint64_t reached = (produced + rowBytes - 1) / rowBytes;
            UndoPrediction(planes.data(), shape.width, reached, shape.depth);
            // Sums run on behind an early end; what the input did not reach stays zero.
            std::memset(planes.data() + produced, 0, static_cast<size_t>(reached * rowBytes) - produced);
        }
        break;
    default: return PsdReadResult::kBadCompression;
    }
    if (filled) *filled = written;
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

PsdReadResult InflateAll(std::span<const uint8_t> input, std::span<uint8_t> output) {
    size_t produced = 0;
    return Inflate(input, output, produced);
}

void UndoPrediction(uint8_t* planes, uint32_t width, uint64_t rows, uint32_t depth) {
    const size_t rowBytes = static_cast<size_t>(PlaneRowBytes(width, depth));
    if (width < 2) return;
    for (uint64_t row = 0; row < rows; ++row, planes += rowBytes) {
        switch (depth) {
        case 8: {
            uint8_t sum = planes[0];
            for (size_t i = 1; i < width; ++i) planes[i] = sum = static_cast<uint8_t>(sum + planes[i]);
            break;
        }
        case 16: {
            uint16_t sum = LoadU16(planes);
            for (size_t i = 2; i < rowBytes; i += 2) {
                sum = static_cast<uint16_t>(sum + LoadU16(planes + i));
                planes[i] = static_cast<uint8_t>(sum >> 8);
                planes[i + 1] = static_cast<uint8_t>(sum);
            }
            break;
        }
        case 32:
            // Nothing is carried from one sample to the next: each gets its own high half added to its low
            // half, and the row's last sample stays as it is.
            for (size_t i = 0; i + 4 < rowBytes; i += 4) {
                const uint32_t sum = uint32_t{LoadU16(planes + i)} + LoadU16(planes + i + 2);
                planes[i + 2] = static_cast<uint8_t>(sum >> 8);
                planes[i + 3] = static_cast<uint8_t>(sum);
            }
            break;
        default: return;
        }
    }
}

}  // namespace tessary
