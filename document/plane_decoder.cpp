#include "document/plane_decoder.h"

#include <emmintrin.h>

#include <algorithm>
#include <cstring>

#include "document/big_endian.h"
#include "render/color_convert.h"

namespace tessary {
namespace {

constexpr size_t kPieceBytes = 1u << 17;  // that are inflated at once; they stay in the caches
constexpr size_t kStepBytes = 1u << 14;
constexpr uint64_t kLeastBytes = 12288;

// Copies in steps of 16, so up to 15 bytes more than `count`.
void CopyInSteps(uint8_t* to, const uint8_t* from, size_t count) {
    size_t i = 0;
    do std::memcpy(to + i, from + i, 16);
    while ((i += 16) < count);
}

void StoreU16(uint8_t* to, uint32_t value) {
    to[0] = static_cast<uint8_t>(value >> 8);
    to[1] = static_cast<uint8_t>(value);
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

// Adds up the differences in one row of big-endian samples, in place. 32-bit samples are treated one by one,
// as this format's readers do, and bits stay as they are.
void UndoPrediction(uint8_t* row, size_t rowBytes, uint32_t depth) {
    switch (depth) {
    case 8:
        for (size_t i = std::max<size_t>(SumBytes(row, rowBytes), 1); i < rowBytes; ++i)
            row[i] = static_cast<uint8_t>(row[i] + row[i - 1]);
        break;
    case 16:
        for (size_t i = std::max<size_t>(SumBigEndian16(row, rowBytes), 2); i < rowBytes; i += 2)
            StoreU16(row + i, uint32_t{LoadU16(row + i)} + LoadU16(row + i - 2));
        break;
    case 32:
        // Nothing is carried from one sample to the next: each gets its own high half added to its low half,
        // and the row's last sample stays as it is.
        for (size_t i = 0; i + 4 < rowBytes; i += 4)
            StoreU16(row + i + 2, uint32_t{LoadU16(row + i)} + LoadU16(row + i + 2));
        break;
    default: break;
    }
}

// Makes room for `need` bytes. Grows by doubling; what the buffer held is lost.
bool Grow(Owned<uint8_t>& buffer, uint64_t need) {
    if (buffer && need <= buffer.count()) return true;
    const uint64_t size = std::max({need, uint64_t{2} * buffer.count(), kLeastBytes});
    buffer.Reset();
    buffer = AllocateZeroed<uint8_t>({size});
    return static_cast<bool>(buffer);
}

// Unpacks one PackBits row. Runs are cut at the end of the row and of their bytes. May read and write
// SectionSource::kSlackBytes behind both. Returns the bytes that came.
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

// --- the four ways to stored rows; zip and predicted zip are one but for what follows inflating

PsdReadResult RawRows(PlaneDecoder& decoder, size_t count, const uint8_t*& rows) {
    uint8_t* const buffer = decoder.rowBuffer.get();
    const size_t wanted = count * decoder.storedRowBytes;
    size_t arrived = 0;
    rows = buffer;
    if (wanted <= SectionSource::kWindowBytes) {
        const std::span<const uint8_t> there = Peek(decoder.source, wanted);
        Use(decoder.source, there.size());
        arrived = there.size();
        if (arrived == wanted) {
            rows = there.data();
        } else if (arrived != 0) {
            std::memcpy(buffer, there.data(), arrived);
        }
    } else {
        arrived = CopyTo(decoder.source, buffer, wanted);
    }
    decoder.filledBytes += arrived;
    if (arrived != wanted) std::memset(buffer + arrived, 0, wanted - arrived);
    return PsdReadResult::kOk;
}

PsdReadResult PackedRows(PlaneDecoder& decoder, size_t count, const uint8_t*& rows) {
    uint8_t* const buffer = decoder.rowBuffer.get();
    const size_t rowBytes = decoder.storedRowBytes;
    uint8_t* out = buffer;
    for (size_t row = 0; row < count; ++row, out += rowBytes) {
        size_t written = 0;
        if (decoder.hasRowCounts) {
            const size_t stored = LoadU16(decoder.rowCounts.get() + 2 * decoder.rowCountsUsed++);
            const std::span<const uint8_t> packed = Peek(decoder.source, stored);
            written = UnpackBits(packed, {out, rowBytes});
            Use(decoder.source, packed.size());
        }
        decoder.filledBytes += written;
        std::memset(out + written, 0, rowBytes - written);
    }
    rows = buffer;
    return PsdReadResult::kOk;
}

// Inflates as many rows as there is room for behind those that wait in the piece.
PsdReadResult InflatePiece(PlaneDecoder& decoder) {
    const size_t rowBytes = decoder.storedRowBytes, waiting = decoder.pieceEnd - decoder.pieceBegin;
    // Nothing waits when the first piece is made.
    if (!Grow(decoder.piece, uint64_t{decoder.pieceRows} * rowBytes)) return PsdReadResult::kOutOfMemory;
    uint8_t* const piece = decoder.piece.get();
    if (waiting) std::memmove(piece, piece + decoder.pieceBegin, waiting);
    const uint64_t rows = std::min<uint64_t>(decoder.pieceRows, decoder.rowsLeft);
    const std::span<uint8_t> output = {piece + waiting, static_cast<size_t>(rows) * rowBytes - waiting};
    size_t produced = 0;
    const PsdReadResult result =
        decoder.inflater.Inflate(decoder.source, output, decoder.endIsSound, produced);
    if (result != PsdReadResult::kOk) return result;
    decoder.filledBytes += produced;
    // Behind an end in the middle of a row that row is there, and none behind it.
    const size_t reached = (produced + rowBytes - 1) / rowBytes * rowBytes;
    std::memset(output.data() + produced, 0, reached - produced);
    if (decoder.isPredicted) {
        for (size_t at = 0; at < reached; at += rowBytes)
            UndoPrediction(output.data() + at, rowBytes, decoder.shape.depth);
        // Sums run on behind an early end; what the input did not reach stays zero.
        std::memset(output.data() + produced, 0, reached - produced);
    }
    decoder.pieceBegin = 0;
    decoder.pieceEnd = waiting + reached;
    return PsdReadResult::kOk;
}

PsdReadResult InflatedRows(PlaneDecoder& decoder, size_t count, const uint8_t*& rows) {
    uint8_t* const buffer = decoder.rowBuffer.get();
    const size_t wanted = count * decoder.storedRowBytes;
    if (decoder.pieceEnd - decoder.pieceBegin < wanted && !decoder.inflater.HasEnded()) {
        const PsdReadResult result = InflatePiece(decoder);
        if (result != PsdReadResult::kOk) return result;
    }
    const size_t there = std::min(decoder.pieceEnd - decoder.pieceBegin, wanted);
    rows = decoder.piece.get() + decoder.pieceBegin;
    decoder.pieceBegin += there;
    if (there == wanted) return PsdReadResult::kOk;
    if (there) std::memcpy(buffer, rows, there);
    std::memset(buffer + there, 0, wanted - there);
    rows = buffer;
    return PsdReadResult::kOk;
}

// --- what stands in front of the rows

// The table of row counts. Without it, or without anything behind it, nothing is decoded.
PsdReadResult BeginPacked(PlaneDecoder& decoder) {
    const uint64_t tableBytes = 2 * decoder.shape.rows;
    decoder.rowCountsUsed = 0;
    decoder.hasRowCounts = false;
    if (tableBytes >= decoder.source.left) {
        Drain(decoder.source);
        return PsdReadResult::kOk;
    }
    if (!Grow(decoder.rowCounts, tableBytes)) return PsdReadResult::kOutOfMemory;
    const size_t arrived = CopyTo(decoder.source, decoder.rowCounts.get(), static_cast<size_t>(tableBytes));
    decoder.hasRowCounts = arrived == tableBytes && !Peek(decoder.source, 1).empty();
    return PsdReadResult::kOk;
}

PsdReadResult BeginZip(PlaneDecoder& decoder) {
    const uint64_t atOnce = RowsAtOnce(decoder.shape.width, decoder.shape.depth);
    const uint64_t rows = std::max(kPieceBytes / std::max<uint64_t>(decoder.storedRowBytes, 1), atOnce);
    decoder.pieceRows = static_cast<size_t>(std::min(rows, decoder.shape.rows));
    decoder.pieceBegin = decoder.pieceEnd = 0;
    return decoder.inflater.Begin();
}

}  // namespace

PsdReadResult BeginPlanes(PlaneDecoder& decoder, PsdDocument& document, uint64_t sourceBytes,
                          uint16_t compression, const PlaneShape& shape, bool endIsSound) {
    if (CompressionExpansion(compression) == 0) return PsdReadResult::kBadCompression;
    if (!BeginSection(decoder.source, document, sourceBytes)) return PsdReadResult::kOutOfMemory;
    decoder.shape = shape;
    decoder.storedRowBytes = static_cast<size_t>(PlaneRowBytes(shape.width, shape.depth));
    decoder.isPredicted = compression == kCompressionZipPrediction;
    decoder.endIsSound = endIsSound;
    decoder.rowsLeft = decoder.storedRowBytes == 0 ? 0 : shape.rows;
    decoder.filledBytes = 0;
    switch (compression) {
    case kCompressionRaw: decoder.storedRows = RawRows; return PsdReadResult::kOk;
    case kCompressionPackBits: decoder.storedRows = PackedRows; return BeginPacked(decoder);
    default: decoder.storedRows = InflatedRows; return BeginZip(decoder);
    }
}

size_t RowsAtOnce(uint32_t width, uint32_t depth) {
    const uint64_t rowBytes = PlaneRowBytes(width, depth);
    if (rowBytes == 0) return size_t{1} << 30;  // without samples there can be four billion rows
    return static_cast<size_t>(std::max<uint64_t>(kStepBytes / rowBytes, 1));
}

PsdReadResult NextRows(PlaneDecoder& decoder, size_t count, const uint8_t*& rows) {
    const uint64_t atOnce = RowsAtOnce(decoder.shape.width, decoder.shape.depth);
    if (!Grow(decoder.rowBuffer, atOnce * decoder.storedRowBytes + SectionSource::kSlackBytes))
        return PsdReadResult::kOutOfMemory;
    const PsdReadResult result = decoder.storedRows(decoder, count, rows);
    if (result != PsdReadResult::kOk) return result;
    decoder.rowsLeft -= count;
    if (decoder.shape.depth <= 8) return PsdReadResult::kOk;
    ReduceSamples(rows, decoder.shape.depth, count * decoder.shape.width, decoder.rowBuffer.get());
    rows = decoder.rowBuffer.get();
    return PsdReadResult::kOk;
}

bool HasEnded(const PlaneDecoder& decoder) {
    if (decoder.rowsLeft == 0) return true;
    if (decoder.storedRows == InflatedRows)
        return decoder.inflater.HasEnded() && decoder.pieceBegin == decoder.pieceEnd;
    return IsExhausted(decoder.source) || (decoder.storedRows == PackedRows && !decoder.hasRowCounts);
}

uint64_t FilledSamples(const PlaneDecoder& decoder) {
    return SamplesIn(decoder.filledBytes, decoder.shape.depth);
}

PsdReadResult DropPlanes(PlaneDecoder& decoder) {
    PsdReadResult result = PsdReadResult::kOk;
    if (decoder.storedRows == InflatedRows) {
        uint64_t left = CheckedProduct({decoder.rowsLeft, decoder.storedRowBytes}).value_or(SIZE_MAX);
        left -= std::min<uint64_t>(left, decoder.pieceEnd - decoder.pieceBegin);
        if (!Grow(decoder.piece, kPieceBytes)) return PsdReadResult::kOutOfMemory;
        while (left != 0 && !decoder.inflater.HasEnded() && result == PsdReadResult::kOk) {
            const size_t wanted = static_cast<size_t>(std::min<uint64_t>(left, decoder.piece.count()));
            size_t produced = 0;
            result = decoder.inflater.Inflate(decoder.source, decoder.piece.span().first(wanted),
                                              decoder.endIsSound, produced);
            left -= produced;
        }
    }
    decoder.rowsLeft = 0;
    Drain(decoder.source);
    return result;
}

}  // namespace tessary
