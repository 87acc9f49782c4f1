#include "document/layer_plane.h"

#include <algorithm>
#include <cstring>

#include "document/big_endian.h"
#include "document/byte_reader.h"
#include "document/inflater.h"
#include "render/color_convert.h"

namespace tessary {
namespace {

constexpr uint64_t kLeastBytes = 12288;
constexpr size_t kStepBytes = 1u << 14;     // of the rows that are converted at once
constexpr size_t kPieceBytes = 1u << 17;    // that are decoded at once to be cut
constexpr size_t kWholeBytes = 1u << 20;    // of data, and of planes, that need no pieces
constexpr size_t kLongRow = kPieceBytes;    // longer rows are worked on in parts
constexpr size_t kMostUnpacked = 1u << 22;  // more than the data of one row, up to 64 KiB, can become
constexpr size_t kMostSampleBytes = 4;
constexpr uint64_t kLargePlane = 64u << 20;

// The data of one channel as it arrives.
struct ChannelInput {
    PsdDocument& document;
    uint64_t left;             // that was not taken yet
    Owned<uint8_t> head = {};  // what was read to see that there is something
    size_t headBegin = 0, headEnd = 0;
    bool isShort = false;
};

// Copies the next bytes and tells how many there were.
size_t Take(ChannelInput& input, uint8_t* to, uint64_t count) {
    const size_t wanted = static_cast<size_t>(std::min(count, input.left));
    const size_t fromHead = std::min(wanted, input.headEnd - input.headBegin);
    if (fromHead) std::memcpy(to, input.head.get() + input.headBegin, fromHead);
    input.headBegin += fromHead;
    size_t taken = fromHead;
    if (taken < wanted) taken += Read(input.document, to + taken, wanted - taken);
    input.isShort |= taken < wanted;
    input.left = input.isShort ? 0 : input.left - taken;
    return taken;
}

// Before memory is taken for a large plane a hundredth of what fills it has to arrive.
PsdReadResult TakeHead(ChannelInput& input, const Plane& plane, uint32_t expansion) {
    uint64_t wanted = HeadBytes(input.left);
    if (plane.waitingBytes > kLargePlane)
        wanted = std::max(wanted, std::min(input.left, plane.waitingBytes / 100 / expansion + 1));
    if (wanted == 0) return PsdReadResult::kOk;
    const PsdReadResult result = ReadUpTo(input.document, wanted, input.head, input.headEnd);
    if (result != PsdReadResult::kOk) return result;
    return input.headEnd < wanted ? PsdReadResult::kShortRead : PsdReadResult::kOk;
}

// Samples to bytes, as many as `count` bytes of them begin.
void KeepSamples(const uint8_t* samples, uint32_t depth, size_t count, uint8_t* destination) {
    const size_t sampleBytes = SampleBytes(depth);
    if (depth > 8)
        ReduceMaskPlane(samples, depth, (count + sampleBytes - 1) / sampleBytes, destination);
    else
        std::memcpy(destination, samples, count);
}

// Adds up the differences in a piece that begins at byte `at` of the plane: whole rows, or a part of a long
// one behind whose predecessor's last sample it stands. Four bytes behind it are free.
void UndoPieceOfPrediction(const Plane& plane, uint32_t depth, size_t at, std::span<uint8_t> piece,
                           size_t produced) {
    if (plane.rowBytes <= kLongRow) return UndoPrediction(piece, produced, plane.width, depth);
    const size_t sampleBytes = SampleBytes(depth);
    const size_t before = at % plane.rowBytes != 0 ? sampleBytes : 0;
    // The last of 32-bit samples stays as it is, so that of a part must not be the last.
    const size_t behind = depth == 32 && (at + piece.size()) % plane.rowBytes != 0 ? sampleBytes : 0;
    const size_t size = before + piece.size() + behind;
    UndoPrediction({piece.data() - before, size}, before + produced,
                   static_cast<uint32_t>(size / sampleBytes), depth);
}

// Decodes data that is not packed in rows.
//   destination  waitingBytes, written as far as the data goes; or null
//   next         fills a piece as far as the data goes, and tells how far
template <class Next>
PsdReadResult DecodePieces(Plane& plane, uint32_t depth, bool isPredicted, uint8_t* buffer,
                           uint8_t* destination, Next next) {
    const size_t sampleBytes = SampleBytes(depth);
    const bool inPlace = destination && depth <= 8;
    for (size_t at = 0; at < plane.bytes;) {
        size_t size = std::min(inPlace ? kWholeBytes : kPieceBytes, plane.bytes - at);
        if (isPredicted && plane.rowBytes <= kLongRow) size -= size % plane.rowBytes;
        if (isPredicted && plane.rowBytes > kLongRow)
            size = std::min(size, plane.rowBytes - at % plane.rowBytes);
        uint8_t* const piece = destination && inPlace ? destination + at : buffer + kMostSampleBytes;
        size_t produced = 0;
        const PsdReadResult result = next(std::span(piece, size), produced);
        if (result != PsdReadResult::kOk) return result;
        plane.filled += produced;
        if (destination && produced != 0) {
            if (isPredicted) UndoPieceOfPrediction(plane, depth, at, {piece, size}, produced);
            if (!inPlace) {
                if (produced % sampleBytes != 0) std::memset(piece + produced, 0, sampleBytes);
                KeepSamples(piece, depth, produced, destination + at / sampleBytes);
                std::memcpy(piece - sampleBytes, piece + size - sampleBytes, sampleBytes);
            }
        }
        if (produced < size) break;
        at += size;
    }
    return PsdReadResult::kOk;
}

// Decodes packed rows; parameters as above, but for `buffer`, which has room for such a row.
PsdReadResult DecodePacked(Plane& plane, uint32_t depth, ChannelInput& input, uint8_t* packed,
                           uint8_t* buffer, uint8_t* destination) {
    const uint64_t tableBytes = uint64_t{2} * plane.height;
    if (tableBytes >= input.left) return PsdReadResult::kOk;
    Owned<uint8_t> table = AllocateZeroed<uint8_t>({tableBytes});
    if (!table) return PsdReadResult::kOutOfMemory;
    Take(input, table.get(), tableBytes);
    const size_t waitingRow = plane.isFlat ? plane.width : plane.rows.rowBytes;
    const size_t unpackedRow = std::min(plane.rowBytes, kMostUnpacked);
    const bool isLong = plane.rowBytes > kLongRow;
    uint32_t row = 0;
    for (; row < plane.height && input.left != 0; ++row) {
        PlaneRows one;
        one.rowBytes = unpackedRow;
        one.counts = table.get() + size_t{2} * row;
        one.data = packed;
        one.left = Take(input, packed, LoadU16(one.counts));
        // The memory of long rows is zero already, and must not become real for what is not there.
        if (one.left == 0 && (isLong || !destination)) continue;
        TakeRows(one, 1, buffer);
        plane.filled += one.filled;
        if (destination)
            KeepSamples(buffer, depth, isLong ? static_cast<size_t>(one.filled) : unpackedRow,
                        destination + row * waitingRow);
    }
    if (destination) plane.rows.left = row * waitingRow;
    return PsdReadResult::kOk;
}

PsdReadResult Decode(uint16_t compression, Plane& plane, uint32_t depth, ChannelInput& input,
                     LayerPixelState& state, uint8_t* destination) {
    uint8_t* const arrived = state.input.get();
    uint8_t* const buffer = state.pieces.get();
    if (compression == kCompressionPackBits)
        return DecodePacked(plane, depth, input, arrived, buffer, destination);
    if (compression == kCompressionRaw) {
        return DecodePieces(plane, depth, false, buffer, destination, [&](auto piece, size_t& produced) {
            produced = Take(input, piece.data(), piece.size());
            return PsdReadResult::kOk;
        });
    }
    Inflater inflater;
    if (!inflater.IsCreated()) return PsdReadResult::kInflateSetup;
    const auto refill = [&] { return std::span<const uint8_t>(arrived, Take(input, arrived, kWholeBytes)); };
    const bool isPredicted = compression == kCompressionZipPrediction && depth >= 8;
    return DecodePieces(plane, depth, isPredicted, buffer, destination, [&](auto piece, size_t& produced) {
        return inflater.Inflate(piece, refill, produced);
    });
}

// The last of four colours, if it is large, takes the last quarter of the pixels: conversion gets there when
// it has gone through the samples.
bool WaitsInPixels(const Plane& plane, uint32_t slot) {
    return slot == kSlotBlack && plane.waitingBytes > kWholeBytes;
}

// The memory that a plane waits in once it is decoded. A mask has its own.
uint8_t* WaitingPlace(uint32_t slot, bool isPacked, Plane& plane, PsdLayer& layer, LayerPixelState& state) {
    if (WaitsInPixels(plane, slot)) {
        if (!layer.image) layer.image = AllocateZeroed<uint32_t>({plane.width, plane.height});
        plane.inPixels = true;
        uint8_t* const bytes = reinterpret_cast<uint8_t*>(layer.image.get());
        return bytes ? bytes + 3 * plane.waitingBytes : nullptr;
    }
    if (slot == kSlotMask) {
        layer.mask.data = AllocateZeroed<uint8_t>({plane.width, plane.height});
        return layer.mask.data.get();
    }
    Owned<uint8_t>& memory = state.slots[slot];
    if (isPacked && plane.rowBytes > kLongRow) memory.Reset();
    return Grow(memory, plane.waitingBytes) ? memory.get() : nullptr;
}

// Lets a plane wait as it came.
PsdReadResult KeepStored(ChannelInput& input, bool isPacked, Plane& plane, Owned<uint8_t>& memory) {
    const size_t length = static_cast<size_t>(input.left);
    if (!Grow(memory, uint64_t{length} + kUnpackSlack)) return PsdReadResult::kOutOfMemory;
    if (Take(input, memory.get(), length) != length) return PsdReadResult::kShortRead;
    plane.rows.data = memory.get();
    plane.rows.left = isPacked ? length : std::min(length, plane.bytes);
    if (!isPacked) return PsdReadResult::kOk;
    const uint64_t tableBytes = uint64_t{2} * plane.height;
    if (tableBytes >= length) {
        plane.rows.left = 0;
        return PsdReadResult::kOk;
    }
    plane.rows.rowBytes = plane.rowBytes;
    plane.rows.counts = memory.get();
    plane.rows.data += tableBytes;
    plane.rows.left -= tableBytes;
    return PsdReadResult::kOk;
}

}  // namespace

size_t SampleBytes(uint32_t depth) { return std::max<size_t>(depth / 8, 1); }

bool SetPlaneSize(Plane& plane, int64_t width, int64_t height, uint32_t depth) {
    if (width < 1 || height < 1) return true;
    plane.width = static_cast<uint32_t>(width);
    plane.height = static_cast<uint32_t>(height);
    const auto bytes = CheckedProduct({PlaneRowBytes(plane.width, depth), plane.height});
    // Far above what passes MayAllocate, and small enough to be summed up and multiplied.
    if (!bytes || *bytes > uint64_t{1} << 52) return false;
    plane.bytes = *bytes;
    plane.rowBytes = static_cast<size_t>(PlaneRowBytes(plane.width, depth));
    plane.isFlat = depth >= 8 && plane.rowBytes > kLongRow;
    plane.rows.rowBytes =
        plane.isFlat ? 1 : static_cast<size_t>(PlaneRowBytes(plane.width, std::min(depth, 8u)));
    return true;
}

PlaneSteps StepsOf(const Plane& plane) {
    if (plane.isFlat) return {uint64_t{plane.width} * plane.height, kStepBytes, 1, kStepBytes + kUnpackSlack};
    const size_t rows = std::max<size_t>(kStepBytes / std::max<size_t>(plane.rowBytes, 1), 1);
    return {plane.height, rows, plane.width, rows * plane.rowBytes + kUnpackSlack};
}

const uint8_t* TakeSamples(Plane& plane, uint64_t units, uint32_t depth, uint8_t* buffer) {
    const uint8_t* const samples = TakeRows(plane.rows, static_cast<size_t>(units), buffer);
    if (!plane.rows.counts || depth <= 8) return samples;
    ReduceMaskPlane(samples, depth, static_cast<size_t>(units) * plane.width, buffer);
    return buffer;
}

uint64_t FilledBytes(Plane plane, uint8_t* buffer) {
    if (plane.isCounted || !plane.rows.data) return plane.filled;
    const PlaneSteps steps = StepsOf(plane);
    for (uint64_t at = 0; at < steps.units && !plane.used; at += steps.unitsPerStep)
        TakeRows(plane.rows, static_cast<size_t>(std::min(steps.unitsPerStep, steps.units - at)), buffer);
    return plane.rows.filled;
}

bool Grow(Owned<uint8_t>& buffer, uint64_t need) {
    if (buffer && need <= buffer.count()) return true;
    const uint64_t size = std::max({need, uint64_t{2} * buffer.count(), kLeastBytes});
    buffer.Reset();
    buffer = AllocateZeroed<uint8_t>({size});
    return static_cast<bool>(buffer);
}

PsdReadResult ReadPlane(PsdDocument& document, uint16_t compression, uint32_t length, uint32_t slot,
                        Plane& plane, PsdLayer& layer, LayerPixelState& state) {
    ChannelInput input{document, length};
    const uint32_t depth = document.depth;
    if (const auto result = TakeHead(input, plane, CompressionExpansion(compression));
        result != PsdReadResult::kOk)
        return result;
    const bool isPacked = compression == kCompressionPackBits;
    const bool isStored =
        isPacked || (compression == kCompressionRaw && depth <= 8 && !WaitsInPixels(plane, slot));
    const bool isShorter = length <= plane.waitingBytes + plane.waitingBytes / 16 + kStepBytes;
    if (isStored && isShorter && plane.waitingBytes != 0 && plane.rowBytes <= kLongRow)
        return KeepStored(input, isPacked, plane, state.slots[slot]);

    const size_t pieceBytes = isPacked ? std::min(plane.rowBytes, kMostUnpacked) : kPieceBytes;
    if (!Grow(state.input, std::clamp<size_t>(length, kPieceBytes, kWholeBytes) + kUnpackSlack) ||
        !Grow(state.pieces, std::max(pieceBytes, kPieceBytes) + kUnpackSlack))
        return PsdReadResult::kOutOfMemory;
    uint8_t* const destination =
        plane.waitingBytes != 0 ? WaitingPlace(slot, isPacked, plane, layer, state) : nullptr;
    if (plane.waitingBytes != 0 && !destination) return PsdReadResult::kOutOfMemory;
    const PsdReadResult result = Decode(compression, plane, depth, input, state, destination);
    while (input.left != 0) Take(input, state.input.get(), kWholeBytes);
    if (input.isShort) return PsdReadResult::kShortRead;
    plane.isCounted = true;
    plane.rows.data = destination;
    const size_t sampleBytes = SampleBytes(depth);
    if (destination && !isPacked)
        plane.rows.left = static_cast<size_t>((plane.filled + sampleBytes - 1) / sampleBytes);
    return result;
}

}  // namespace tessary
