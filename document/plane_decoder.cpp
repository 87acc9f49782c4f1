#include "document/plane_decoder.h"

#include <algorithm>
#include <cstring>

#include "document/big_endian.h"
#include "document/packbits.h"
#include "document/prediction.h"
#include "render/color_convert.h"

namespace tessary {
namespace {

constexpr size_t kPieceBytes = 1u << 17;  // that are inflated at once; they stay in the caches
constexpr size_t kStepBytes = 1u << 14;
constexpr uint64_t kLeastBytes = 12288;

// Makes room for `need` bytes. Grows by doubling; what the buffer held is lost.
bool Grow(Owned<uint8_t>& buffer, uint64_t need) {
    if (buffer && need <= buffer.count()) return true;
    const uint64_t size = std::max({need, uint64_t{2} * buffer.count(), kLeastBytes});
    buffer.Reset();
    buffer = AllocateZeroed<uint8_t>({size});
    return static_cast<bool>(buffer);
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
        if (decoder.rowCounts) written = UnpackBits(NextPackedRow(decoder), {out, rowBytes});
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
    decoder.rowCounts = nullptr;
    if (tableBytes >= decoder.source.left) {
        Drain(decoder.source);
        return PsdReadResult::kOk;
    }
    if (!Grow(decoder.rowCountTable, tableBytes)) return PsdReadResult::kOutOfMemory;
    uint8_t* const table = decoder.rowCountTable.get();
    const size_t arrived = CopyTo(decoder.source, table, static_cast<size_t>(tableBytes));
    if (arrived == tableBytes && !Peek(decoder.source, 1).empty()) decoder.rowCounts = table;
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

std::span<const uint8_t> NextPackedRow(PlaneDecoder& decoder) {
    const std::span<const uint8_t> packed = Peek(decoder.source, LoadU16(decoder.rowCounts));
    decoder.rowCounts += 2;
    Use(decoder.source, packed.size());
    return packed;
}

bool HasEnded(const PlaneDecoder& decoder) {
    if (decoder.rowsLeft == 0) return true;
    if (decoder.storedRows == InflatedRows)
        return decoder.inflater.HasEnded() && decoder.pieceBegin == decoder.pieceEnd;
    return IsExhausted(decoder.source) || (decoder.storedRows == PackedRows && !decoder.rowCounts);
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
