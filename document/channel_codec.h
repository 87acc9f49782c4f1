// Channel data to planes: raw, PackBits, zlib, and prediction. Works on memory only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "document/psd_result.h"

namespace tessary {

enum ChannelCompression : uint16_t {
    kCompressionRaw = 0,
    kCompressionPackBits = 1,
    kCompressionZip = 2,
    kCompressionZipPrediction = 3,
};

// The planes of a block of data: equal planes one after another.
struct PlaneShape {
    uint32_t width = 0;   // samples
    uint32_t height = 0;  // rows
    uint32_t depth = 8;   // bits a sample
    uint32_t planeCount = 1;
};

// How many bytes one stored byte can become at most.
inline constexpr uint32_t kRawExpansion = 1;
inline constexpr uint32_t kPackBitsExpansion = 64;
inline constexpr uint32_t kZipExpansion = 1032;

// The same by compression code; 0 for a code that does not exist.
uint32_t CompressionExpansion(uint16_t compression);

// Decodes `input` (behind the compression code) into `planes`, planeCount x height rows. Bytes that the input
// does not reach are 0 afterwards. kBadCompression, kInflateSetup, kInflateFailed, and kOutOfMemory, also
// when `planes` are too small.
//   input   PackBits: the row count table first, planeCount x height 16-bit counts
//   planes  at least planeCount x height x PlaneRowBytes bytes, zero-filled by the caller
//   filled  the number of bytes that came out of the input
PsdReadResult DecodePlanes(uint16_t compression, std::span<const uint8_t> input, const PlaneShape& shape,
                           std::span<uint8_t> planes, uint64_t& filled);

// Unpacks one PackBits row.
//   input    the compressed bytes of this row only
//   output   one plane row; bytes that the input does not reach stay as they are
// A run that would pass the end of the row is cut there. Returns the bytes written.
size_t UnpackBits(std::span<const uint8_t> input, std::span<uint8_t> output);

// What TakeRows may read behind a plane's data and write behind its buffer.
inline constexpr size_t kUnpackSlack = 128;

// The rows of one plane that are still to come, from data in memory.
struct PlaneRows {
    size_t rowBytes = 0;
    // PackBits: the 16-bit counts of the rows; null: the data is the rows themselves.
    const uint8_t* counts = nullptr;
    const uint8_t* data = nullptr;
    size_t left = 0;      // bytes of data
    uint64_t filled = 0;  // bytes of the rows so far that came out of the data
};

// The next rows, zero where the data does not reach: in place, or else in `buffer`, which has room for them.
// Both the buffer and the data of packed rows have kUnpackSlack bytes behind them.
const uint8_t* TakeRows(PlaneRows& plane, size_t rows, uint8_t* buffer);

// Adds up the differences in whole rows of big-endian samples, in place, as far as `produced` bytes of them
// reach; what lies behind those bytes in their last row is 0 afterwards. 32-bit samples are treated one by
// one, as this format's readers do, and 1-bit ones stay as they are.
void UndoPrediction(std::span<uint8_t> rows, size_t produced, uint32_t width, uint32_t depth);

}  // namespace tessary
