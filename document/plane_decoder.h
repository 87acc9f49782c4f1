// Planes from the bytes they are stored as: rows in the order of the file, whatever the compression.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "document/inflater.h"
#include "document/plane_format.h"
#include "document/section_source.h"

namespace tessary {

// Equal planes one after another are one plane of all their rows.
struct PlaneShape {
    uint32_t width = 0;  // samples
    uint64_t rows = 0;
    uint32_t depth = 8;  // bits a sample, as stored
};

struct PlaneDecoder;

// How the rows of a compression come: `count` of them as they are stored, where they are or in rowBuffer.
using StoredRowsFunction = PsdReadResult (*)(PlaneDecoder& decoder, size_t count, const uint8_t*& rows);

// Its buffers stay for the next planes.
struct PlaneDecoder {
    SectionSource source;
    PlaneShape shape;
    StoredRowsFunction storedRows = nullptr;
    size_t storedRowBytes = 0;
    bool isPredicted = false;
    bool endIsSound = false;  // zip data that breaks off has ended
    uint64_t rowsLeft = 0;
    uint64_t filledBytes = 0;  // of stored rows, that really came out of the data

    Owned<uint8_t> rowBuffer;
    Owned<uint8_t> rowCountTable;
    const uint8_t* rowCounts = nullptr;  // of packed rows, 16 bits each; null without the table

    Inflater inflater;
    Owned<uint8_t> piece;  // inflated rows
    size_t pieceRows = 0;  // it has room for
    size_t pieceBegin = 0, pieceEnd = 0;
};

// Begins with the next `sourceBytes` bytes of the document's reader, compressed as `compression` says. Reads
// what stands in front of the rows. kBadCompression, kInflateSetup, kOutOfMemory.
//   endIsSound  zip data that breaks off has ended, instead of being corrupt
PsdReadResult BeginPlanes(PlaneDecoder& decoder, PsdDocument& document, uint64_t sourceBytes,
                          uint16_t compression, const PlaneShape& shape, bool endIsSound = false);

// Rows of planes that are decoded and converted at once, so that they stay in the caches.
size_t RowsAtOnce(uint32_t width, uint32_t depth);

// The next `count` rows, no more than RowsAtOnce and than are left: bits as they are, other samples as one
// byte each (the high one of 16 bits, 255 times a float, cut), zero where the data has ended. They lie in
// place, or in `buffer`, until the next call. kInflateFailed, kOutOfMemory.
PsdReadResult NextRows(PlaneDecoder& decoder, size_t count, const uint8_t*& rows);

// The next of packed rows, with their counts, as it is stored and as far as it comes; until the next call.
// The caller counts rowsLeft.
std::span<const uint8_t> NextPackedRow(PlaneDecoder& decoder);

// Nothing more will come out of the data; rows that are left are zero.
bool HasEnded(const PlaneDecoder& decoder);

// Samples that really came out of the data.
uint64_t FilledSamples(const PlaneDecoder& decoder);

// Passes over what is left, for planes that nobody looks at. Zip is inflated, so that bad data is an error
// wherever it stands. kInflateFailed, kOutOfMemory.
PsdReadResult DropPlanes(PlaneDecoder& decoder);

}  // namespace tessary
