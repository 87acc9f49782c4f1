#include "document/merged_image.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <optional>
#include <utility>

#include "document/big_endian.h"
#include "document/byte_reader.h"
#include "document/channel_codec.h"
#include "document/inflater.h"
#include "render/color_convert.h"

namespace tessary {
namespace {

// Pieces that the work goes on in: of the input, of inflated rows, and of rows to convert. They stay in the
// caches.
constexpr size_t kInputPiece = 1u << 17;
constexpr size_t kInflatedPiece = 1u << 17;
constexpr size_t kStepBytes = 1u << 14;
constexpr size_t kMostPlanes = 5;  // that a colour mode looks at

bool WantsMergedImage(const PsdDocument& document) {
    switch (document.readMode) {
    case kReadThumbnail:
    case kReadMetadata: return false;
    case kReadNoThumbnail: return document.layerCount == 0;
    default: return true;
    }
}

bool KeepsMergedImage(const PsdDocument& document) {
    switch (document.mergedUse) {
    case kMergedKept: return true;
    case kMergedKeptIfReal: return document.resources.versionInfo.hasRealMergedData;
    default: return false;
    }
}

// The file has the colour planes first and the alpha planes behind them. The first plane behind the colours
// is the transparency only when exactly that one is left once the named alpha channels are taken away.
// `planes` are those that the document has, in that order.
PlaneBlock MergedPlanes(const PsdDocument& document, std::span<const uint8_t* const> planes) {
    const auto plane = [&](uint32_t index) { return index < planes.size() ? planes[index] : nullptr; };
    PlaneBlock block;
    block.colorMode = document.colorMode;
    block.depth = document.depth;
    block.width = document.width;
    block.height = document.height;
    // The names of a multichannel document are those of its colours.
    block.planeCount = document.colorMode == kColorMultichannel ? document.channels : document.colorChannels;
    const uint32_t withTransparency = PlanesWithTransparency(document.colorMode);
    if (withTransparency != 0 && block.planeCount == withTransparency) {
        block.alpha = plane(block.planeCount - 1);
    }
    const uint32_t colors = ColorPlanesUsed(document.colorMode, block.planeCount);
    for (uint32_t i = 0; i < colors; ++i) block.color[i] = plane(i);
    block.palette = document.palette.span();
    block.transparencyIndex = document.resources.transparencyIndex;
    return block;
}

// How many of the first planes the conversion looks at: its colours and, behind them, the transparency.
size_t PlanesUsed(const PsdDocument& document) {
    const PlaneBlock block = MergedPlanes(document, {});
    if (!ConvertsPlanes(block)) return 0;
    const uint32_t withTransparency = PlanesWithTransparency(block.colorMode);
    const bool transparent = withTransparency != 0 && block.planeCount == withTransparency;
    const uint32_t used = ColorPlanesUsed(block.colorMode, block.planeCount) + (transparent ? 1 : 0);
    return std::min<size_t>(used, document.channels);
}

// The data behind the compression code, a piece at a time.
struct MergedInput {
    Owned<uint8_t> bytes;
    size_t begin = 0, end = 0;  // of what has arrived and is not used yet
    uint64_t left = 0;          // that the stream may still be asked for
};

// Makes up to `count` bytes, at most kInputPiece, stand together as far as they arrive, and tells how many
// there are.
size_t Need(PsdDocument& document, MergedInput& input, size_t count) {
    while (input.end - input.begin < count && input.left != 0) {
        const size_t kept = input.end - input.begin;
        if (kept) std::memmove(input.bytes.get(), input.bytes.get() + input.begin, kept);
        input.begin = 0;
        const size_t request = static_cast<size_t>(std::min<uint64_t>(kInputPiece, input.left));
        const size_t arrived = Read(document, input.bytes.get() + kept, request);
        input.end = kept + arrived;
        input.left = arrived == request ? input.left - arrived : 0;
    }
    return std::min(input.end - input.begin, count);
}

// Copies the next bytes and tells how many there were. The larger part goes straight to its place.
size_t Take(PsdDocument& document, MergedInput& input, uint8_t* destination, size_t count) {
    const size_t waiting = std::min(count, input.end - input.begin);
    if (waiting) std::memcpy(destination, input.bytes.get() + input.begin, waiting);
    input.begin += waiting;
    const size_t request = static_cast<size_t>(std::min<uint64_t>(count - waiting, input.left));
    if (request == 0) return waiting;
    const size_t arrived = Read(document, destination + waiting, request);
    input.left = arrived == request ? input.left - arrived : 0;
    return waiting + arrived;
}

// Reads the rest, so that the reader ends up where the data does, and tells how long it was.
uint64_t Drain(PsdDocument& document, MergedInput& input) {
    uint64_t count = 0;
    while (Need(document, input, 1) != 0) count += input.end - std::exchange(input.begin, input.end);
    return count;
}

struct MergedShape {
    uint16_t compression = 0;
    size_t rowBytes = 0;
    size_t totalBytes = 0;  // of all planes
    uint64_t pixels = 0;
    uint32_t pixelsPerByte = 1;  // with 8 bits or more none are worth more than one
};

// `bytes`, each worth `expandedBy`, could fill a hundredth of what is to be allocated. The pixels are counted
// besides the planes: with 1 bit or without channels they are the larger part.
bool IsPlausible(const MergedShape& shape, uint64_t bytes, uint32_t expandedBy) {
    return MayAllocate(shape.totalBytes, bytes, expandedBy) &&
           MayAllocate(4 * shape.pixels, 4 * bytes, shape.pixelsPerByte * expandedBy);
}

// A file of a few kilobytes can pass the hundredth with an image of gigabytes, all of which conversion would
// make real memory. So that such files stay small in a host full of them, pixels beyond a fixed share need a
// byte of the file for every 256 of theirs, or samples that have really been decoded. The least files get
// less for a byte: drawing takes noise and a canvas, which are to stay below 96 MiB together.
constexpr uint64_t kFreePixelBytes = 64u << 20;
constexpr uint64_t kPixelBytesPerInputByte = 256;
constexpr uint64_t kPixelBytesPerByteOfLittle = 64;
constexpr uint64_t kLittleInput = 65536;

bool IsBacked(const MergedShape& shape, uint64_t inputBytes, uint64_t decodedBytes) {
    const uint64_t perByte =
        inputBytes <= kLittleInput ? kPixelBytesPerByteOfLittle : kPixelBytesPerInputByte;
    return 4 * shape.pixels <=
           kFreePixelBytes + perByte * inputBytes + 4 * decodedBytes * shape.pixelsPerByte;
}

// The input that must have arrived before memory is taken for more than a window of it.
uint64_t InputAskedFirst(const MergedShape& shape) {
    const uint32_t expansion = CompressionExpansion(shape.compression);
    const uint64_t hundredth = std::max(shape.totalBytes / 100 / expansion,
                                        shape.pixels / 100 / (uint64_t{shape.pixelsPerByte} * expansion));
    const uint64_t bytes = 4 * shape.pixels;
    const uint64_t backing =
        bytes > kFreePixelBytes ? (bytes - kFreePixelBytes) / kPixelBytesPerInputByte : 0;
    return std::max({hundredth + 1, backing + 1, uint64_t{kInputPiece}});
}

// Decodes all planes in memory: for rows that are longer than any window.
PsdReadResult DecodeWhole(PsdDocument& document, const MergedShape& shape, MergedInput& input) {
    uint64_t size = input.end;
    if (input.left != 0) {
        Owned<uint8_t> rest;
        size_t arrived = 0;
        const PsdReadResult result = ReadUpTo(document, input.left, rest, arrived);
        if (result != PsdReadResult::kOk) return result;
        Owned<uint8_t> both = AllocateZeroed<uint8_t>({size + arrived});
        if (!both) return PsdReadResult::kOutOfMemory;
        std::memcpy(both.get(), input.bytes.get(), input.end);
        if (arrived) std::memcpy(both.get() + input.end, rest.get(), arrived);
        input.bytes = std::move(both);
        size += arrived;
    }
    Owned<uint8_t> planes = AllocateZeroed<uint8_t>({shape.totalBytes});
    if (!planes) return PsdReadResult::kOutOfMemory;
    uint64_t filled = 0;
    const PsdReadResult result = DecodePlanes(
        shape.compression, {input.bytes.get(), static_cast<size_t>(size)},
        {document.width, document.height, document.depth, document.channels}, planes.span(), filled);
    if (result != PsdReadResult::kOk) return result;
    // Planes that nothing was decoded to are no memory yet, the pixels will be.
    if (!IsPlausible(shape, filled, 1) || !IsBacked(shape, size, filled)) return PsdReadResult::kOutOfMemory;
    if (!KeepsMergedImage(document)) return PsdReadResult::kOk;

    document.mergedPixels = AllocateZeroed<uint32_t>({document.width, document.height});
    if (!document.mergedPixels) return PsdReadResult::kOutOfMemory;
    const uint8_t* first[kMostPlanes] = {};
    const size_t count = std::min<size_t>(document.channels, kMostPlanes);
    for (size_t i = 0; i < count; ++i) first[i] = planes.get() + i * (shape.totalBytes / document.channels);
    ConvertPlanes(MergedPlanes(document, {first, count}), document.mergedPixels.get());
    return PsdReadResult::kOk;
}

// Decodes rows in the order of the file.
struct RowSource {
    PsdDocument& document;
    const MergedShape& shape;
    MergedInput& input;
    uint64_t inputBytes = 0;          // all of them, or as many as back the pixels
    Inflater* inflater = nullptr;     // for zip
    const uint8_t* counts = nullptr;  // for PackBits: the counts of the rows to come
    size_t stepRows = 0;              // that are asked for at once, but for the last ones of a plane
    Owned<uint8_t> buffer = {};       // a step, or a piece of inflated rows that is a whole number of steps
    size_t inflated = 0;              // rows in the buffer that were not given out yet
    size_t pieceRows = 0;             // of the piece in the buffer
    uint64_t filled = 0;
};

PsdReadResult InflatePiece(RowSource& source, size_t rows) {
    const MergedShape& shape = source.shape;
    const auto nextPiece = [&]() -> std::span<const uint8_t> {
        Need(source.document, source.input, 1);
        const size_t begin = std::exchange(source.input.begin, source.input.end);
        return {source.input.bytes.get() + begin, source.input.end - begin};
    };
    const std::span<uint8_t> output = {source.buffer.get(), rows * shape.rowBytes};
    size_t produced = 0;
    const PsdReadResult result = source.inflater->Inflate(output, nextPiece, produced);
    if (result != PsdReadResult::kOk) return result;
    source.filled += produced;
    source.inflated = source.pieceRows = rows;
    std::memset(output.data() + produced, 0, output.size() - produced);
    if (shape.compression == kCompressionZipPrediction)
        UndoPrediction(output, produced, source.document.width, source.document.depth);
    return PsdReadResult::kOk;
}

// Gives out the next rows of a plane that has `rowsLeft` more, stepRows or what is left of them.
PsdReadResult NextRows(RowSource& source, uint64_t rowsLeft, const uint8_t*& rows) {
    const size_t rowBytes = source.shape.rowBytes;
    const size_t count = static_cast<size_t>(std::min<uint64_t>(source.stepRows, rowsLeft));
    if (source.inflater) {
        if (source.inflated == 0) {
            const uint64_t most = source.buffer.count() / rowBytes / source.stepRows * source.stepRows;
            const PsdReadResult result =
                InflatePiece(source, static_cast<size_t>(std::min<uint64_t>(most, rowsLeft)));
            if (result != PsdReadResult::kOk) return result;
        }
        rows = source.buffer.get() + (source.pieceRows - source.inflated) * rowBytes;
        source.inflated -= count;
        return PsdReadResult::kOk;
    }
    const auto take = [&](size_t stored, size_t taken, uint8_t* buffer) {
        const size_t there = Need(source.document, source.input, stored);
        PlaneRows plane = {rowBytes, source.counts, source.input.bytes.get() + source.input.begin, there};
        source.input.begin += there;
        const uint8_t* const decoded = TakeRows(plane, taken, buffer);
        source.counts = plane.counts;
        source.filled += plane.filled;
        return decoded;
    };
    rows = source.buffer.get();
    if (!source.counts) {
        rows = take(count * rowBytes, count, source.buffer.get());
    } else {
        for (size_t i = 0; i < count; ++i)
            take(LoadU16(source.counts), 1, source.buffer.get() + i * rowBytes);
    }
    return PsdReadResult::kOk;
}

// Reads the table of row counts. Without it, or without anything behind it, nothing is decoded.
PsdReadResult ReadRowCounts(RowSource& source, Owned<uint8_t>& table) {
    PsdDocument& document = source.document;
    MergedInput& input = source.input;
    const uint64_t tableBytes = uint64_t{2} * document.height * document.channels;
    const uint64_t available = input.end - input.begin + input.left;
    if (tableBytes < available) {
        table = AllocateZeroed<uint8_t>({tableBytes});
        if (!table) return PsdReadResult::kOutOfMemory;
        if (Take(document, input, table.get(), table.count()) == tableBytes &&
            Need(document, input, 1) != 0) {
            source.counts = table.get();
            return PsdReadResult::kOk;
        }
    }
    Drain(document, input);
    return PsdReadResult::kOk;
}

// What the rows of PackBits data that has arrived whole, behind its counts, come to.
uint64_t UnpackedBytes(const RowSource& source) {
    const MergedInput& input = source.input;
    std::span<const uint8_t> packed = {input.bytes.get() + input.begin, input.end - input.begin};
    uint64_t unpacked = 0;
    uint64_t rows = uint64_t{source.document.height} * source.document.channels;
    for (const uint8_t* counts = source.counts; rows != 0 && !packed.empty(); --rows, counts += 2) {
        const size_t stored = std::min<size_t>(LoadU16(counts), packed.size());
        unpacked += UnpackBits(packed.first(stored), {source.buffer.get(), source.shape.rowBytes});
        packed = packed.subspan(stored);
    }
    return unpacked;
}

// A plane that waits until the last one that conversion needs arrives: in samples of one byte, or packed as
// it came. It waits in the memory of the pixels, so far behind that no pixel is written over rows that are
// still needed. What finds no place there is its tail.
struct WaitingPlane {
    uint64_t headRows = 0;  // a whole number of steps, or all rows
    size_t headBytes = 0, tailBytes = 0;
    uint8_t* head = nullptr;
    uint8_t* tail = nullptr;
    size_t tailArrived = 0;
    PlaneRows rows;
};

// Finds the place of a plane below `ceiling`, a byte of the pixels' memory, and lowers that.
//   counts     of its packed rows, or null for rows of rowBytes
//   available  packed bytes that can still arrive; counts beyond them are not believed
WaitingPlane PlaceBelow(int64_t& ceiling, const PsdDocument& document, size_t stepRows, size_t rowBytes,
                        const uint8_t* counts, uint64_t& available) {
    WaitingPlane plane;
    plane.rows.rowBytes = rowBytes;
    plane.rows.counts = counts;
    uint64_t whole = 0, head = 0;
    int64_t lowest = 0;  // of what a step's place in the plane is ahead of its place in the pixels
    bool fits = true;
    for (uint64_t row = 0; row < document.height; row += stepRows) {
        const uint64_t end = std::min<uint64_t>(row + stepRows, document.height);
        uint64_t bytes = (end - row) * rowBytes;
        if (counts) {
            bytes = 0;
            for (uint64_t i = row; i < end; ++i) bytes += LoadU16(counts + 2 * i);
            bytes = std::min(bytes, available);
            available -= bytes;
        }
        lowest =
            std::min(lowest, static_cast<int64_t>(whole) - static_cast<int64_t>(4 * row * document.width));
        whole += bytes;
        fits = fits && ceiling - static_cast<int64_t>(whole) + lowest >= 0;
        if (fits) {
            head = whole;
            plane.headRows = end;
        }
    }
    plane.headBytes = static_cast<size_t>(head);
    plane.tailBytes = static_cast<size_t>(whole - head);
    ceiling -= static_cast<int64_t>(head);
    return plane;
}

// The planes that conversion needs, brought together.
struct Assembly {
    RowSource& source;
    Owned<uint32_t> pixels = {};
    size_t planeCount = 0;
    WaitingPlane waiting[kMostPlanes - 1] = {};
    Owned<uint8_t> tails = {};
    Owned<uint8_t> steps = {};  // room for a step of each plane
    size_t stepBytes = 0;
};

// Rows of bytes for samples that are wider, in `buffer`.
const uint8_t* ReducedRows(const PsdDocument& document, const uint8_t* rows, size_t count, uint8_t* buffer) {
    if (document.depth <= 8) return rows;
    ReduceMaskPlane(rows, document.depth, count * document.width, buffer);
    return buffer;
}

PsdReadResult PlacePlanes(Assembly& assembly) {
    RowSource& source = assembly.source;
    const PsdDocument& document = source.document;
    const size_t rowBytes = document.depth > 8 ? document.width : source.shape.rowBytes;
    assembly.stepBytes = source.stepRows * rowBytes + kUnpackSlack;
    assembly.steps = AllocateZeroed<uint8_t>({assembly.planeCount, assembly.stepBytes});
    assembly.pixels = AllocateZeroed<uint32_t>({document.width, document.height});
    if (!assembly.steps || !assembly.pixels) return PsdReadResult::kOutOfMemory;

    const bool packed = source.counts && document.depth == 8;
    uint64_t available = source.input.end - source.input.begin + source.input.left;
    int64_t ceiling = static_cast<int64_t>(4 * source.shape.pixels) - int64_t{kUnpackSlack};
    uint64_t tailBytes = kUnpackSlack;
    for (size_t i = 0; i + 1 < assembly.planeCount; ++i) {
        const uint8_t* const counts = packed ? source.counts + 2 * i * document.height : nullptr;
        WaitingPlane& plane = assembly.waiting[i];
        plane = PlaceBelow(ceiling, document, source.stepRows, rowBytes, counts, available);
        plane.head = reinterpret_cast<uint8_t*>(assembly.pixels.get()) + std::max<int64_t>(ceiling, 0);
        tailBytes += plane.tailBytes;
    }
    assembly.tails = AllocateZeroed<uint8_t>({tailBytes});
    if (!assembly.tails) return PsdReadResult::kOutOfMemory;
    uint8_t* tail = assembly.tails.get();
    for (WaitingPlane& plane : assembly.waiting) {
        plane.tail = tail;
        tail += plane.tailBytes;
    }
    return PsdReadResult::kOk;
}

// Reads a plane to its place.
PsdReadResult FillWaitingPlane(RowSource& source, WaitingPlane& plane) {
    const PsdDocument& document = source.document;
    plane.rows.data = plane.head;
    if (document.depth == 8 && !source.inflater) {
        plane.rows.left = Take(source.document, source.input, plane.head, plane.headBytes);
        plane.tailArrived = Take(source.document, source.input, plane.tail, plane.tailBytes);
        if (source.counts) source.counts += size_t{2} * document.height;
        return PsdReadResult::kOk;
    }
    const size_t rowBytes = plane.rows.rowBytes;
    uint64_t row = 0;
    for (; row < document.height; row += source.stepRows) {
        // Rows that nothing is decoded to are no memory.
        if (source.inflater && source.inflater->HasEnded() && source.inflated == 0) break;
        const uint8_t* rows = nullptr;
        const PsdReadResult result = NextRows(source, document.height - row, rows);
        if (result != PsdReadResult::kOk) return result;
        const size_t count = static_cast<size_t>(std::min<uint64_t>(source.stepRows, document.height - row));
        uint8_t* const to = row < plane.headRows ? plane.head + row * rowBytes
                                                 : plane.tail + (row - plane.headRows) * rowBytes;
        if (ReducedRows(document, rows, count, to) != to) std::memcpy(to, rows, count * rowBytes);
    }
    const uint64_t arrived = std::min<uint64_t>(row, document.height) * rowBytes;
    plane.rows.left = static_cast<size_t>(std::min<uint64_t>(arrived, plane.headBytes));
    plane.tailArrived = static_cast<size_t>(arrived - plane.rows.left);
    return PsdReadResult::kOk;
}

// Converts step by step while the last plane arrives.
PsdReadResult ConvertWithLastPlane(Assembly& assembly) {
    RowSource& source = assembly.source;
    const PsdDocument& document = source.document;
    const size_t last = assembly.planeCount - 1;
    const uint8_t* planes[kMostPlanes] = {};
    for (uint64_t row = 0; row < document.height; row += source.stepRows) {
        const size_t count = static_cast<size_t>(std::min<uint64_t>(source.stepRows, document.height - row));
        uint32_t* const pixels = assembly.pixels.get() + row * document.width;
        const auto* const written = reinterpret_cast<const uint8_t*>(pixels);
        const size_t writtenBytes = 4 * count * document.width;
        for (size_t i = 0; i < last; ++i) {
            WaitingPlane& plane = assembly.waiting[i];
            uint8_t* const buffer = assembly.steps.get() + i * assembly.stepBytes;
            if (row == plane.headRows) {
                plane.rows.data = plane.tail;
                plane.rows.left = plane.tailArrived;
            }
            planes[i] = TakeRows(plane.rows, count, buffer);
            // The last steps of a plane lie where their own pixels go.
            const size_t bytes = count * plane.rows.rowBytes;
            if (!std::less<>()(planes[i], written + writtenBytes) ||
                !std::less<>()(written, planes[i] + bytes))
                continue;
            std::memcpy(buffer, planes[i], bytes);
            planes[i] = buffer;
        }
        const PsdReadResult result = NextRows(source, document.height - row, planes[last]);
        if (result != PsdReadResult::kOk) return result;
        // Until the end, there are samples for all pixels so far.
        if (source.inflater && source.inflater->HasEnded() &&
            !IsBacked(source.shape, source.inputBytes, source.filled))
            return PsdReadResult::kOutOfMemory;
        planes[last] =
            ReducedRows(document, planes[last], count, assembly.steps.get() + last * assembly.stepBytes);

        PlaneBlock block = MergedPlanes(document, {planes, assembly.planeCount});
        block.height = static_cast<uint32_t>(count);
        block.depth = std::min(block.depth, 8u);
        ConvertPlanes(block, pixels);
    }
    // Rows that were decoded before they were reduced are counted already.
    if (document.depth == 8 && !source.inflater) {
        for (size_t i = 0; i < last; ++i) source.filled += assembly.waiting[i].rows.filled;
    }
    return PsdReadResult::kOk;
}

PsdReadResult AssemblePixels(RowSource& source, size_t planeCount, Owned<uint32_t>& pixels) {
    Assembly assembly{source};
    assembly.planeCount = planeCount;
    PsdReadResult result = PlacePlanes(assembly);
    for (size_t i = 0; i + 1 < planeCount && result == PsdReadResult::kOk; ++i)
        result = FillWaitingPlane(source, assembly.waiting[i]);
    if (result == PsdReadResult::kOk) result = ConvertWithLastPlane(assembly);
    if (result == PsdReadResult::kOk) pixels = std::move(assembly.pixels);
    return result;
}

// Decodes while the data arrives.
PsdReadResult DecodeArriving(PsdDocument& document, const MergedShape& shape, MergedInput& input) {
    Owned<uint8_t> table;
    std::optional<Inflater> inflater;
    RowSource source{document, shape, input, input.end};
    const bool zipped =
        shape.compression == kCompressionZip || shape.compression == kCompressionZipPrediction;
    if (zipped) {
        inflater.emplace();
        if (!inflater->IsCreated()) return PsdReadResult::kInflateSetup;
        source.inflater = &*inflater;
    }
    if (shape.totalBytes != 0) {
        source.stepRows = std::max<size_t>(kStepBytes / shape.rowBytes, 1);
        const size_t steps = zipped ? std::max<size_t>(kInflatedPiece / kStepBytes, 1) : 1;
        source.buffer = AllocateZeroed<uint8_t>({steps * source.stepRows * shape.rowBytes + kUnpackSlack});
        if (!source.buffer) return PsdReadResult::kOutOfMemory;
        if (shape.compression == kCompressionPackBits) {
            const PsdReadResult result = ReadRowCounts(source, table);
            if (result != PsdReadResult::kOk) return result;
        }
    }

    // What does not back the pixels by its size is here whole. No pixel is written before it is known that
    // the decoded samples do, and no memory asked for when they cannot.
    uint64_t known = 0;
    bool isKept = KeepsMergedImage(document);
    if (!IsBacked(shape, source.inputBytes, 0)) {
        if (zipped) {
            isKept = isKept && IsBacked(shape, source.inputBytes, source.inputBytes * kZipExpansion);
        } else {
            known = source.counts ? UnpackedBytes(source)
                                  : std::min<uint64_t>(input.end - input.begin, shape.totalBytes);
            if (!IsPlausible(shape, known, 1) || !IsBacked(shape, source.inputBytes, known))
                return PsdReadResult::kOutOfMemory;
        }
    }
    Owned<uint32_t> pixels;
    size_t plane = isKept && shape.totalBytes != 0 ? PlanesUsed(document) : 0;
    const bool isAssembled = plane != 0;
    if (isAssembled) {
        const PsdReadResult result = AssemblePixels(source, plane, pixels);
        if (result != PsdReadResult::kOk) return result;
    }
    // Of the planes behind only the data's soundness matters, and how much there is of it when that is in
    // doubt.
    for (; plane < document.channels && shape.totalBytes != 0; ++plane) {
        // Behind the end of the data there is nothing left to check or to count.
        const bool isDone = zipped
                                ? inflater->HasEnded()
                                : !source.counts || IsPlausible(shape, std::max(source.filled, known), 1) ||
                                      Need(document, input, 1) == 0;
        if (isDone) break;
        for (uint64_t row = 0; row < document.height; row += source.stepRows) {
            if (zipped && inflater->HasEnded()) break;
            const uint8_t* rows = nullptr;
            const PsdReadResult result = NextRows(source, document.height - row, rows);
            if (result != PsdReadResult::kOk) return result;
        }
    }
    const uint64_t rest = Drain(document, input);
    if (shape.compression == kCompressionRaw) source.filled += rest;
    const uint64_t filled = std::max(source.filled, known);
    if (!IsPlausible(shape, filled, 1) || !IsBacked(shape, source.inputBytes, filled))
        return PsdReadResult::kOutOfMemory;
    if (isKept && !isAssembled) {
        // Without planes there are pixels all the same.
        pixels = AllocateZeroed<uint32_t>({document.width, document.height});
        if (!pixels) return PsdReadResult::kOutOfMemory;
        ConvertPlanes(MergedPlanes(document, {}), pixels.get());
    }
    document.mergedPixels = std::move(pixels);
    return PsdReadResult::kOk;
}

}  // namespace

PsdReadResult ReadMergedImage(PsdDocument& document) {
    if (!WantsMergedImage(document)) return PsdReadResult::kOk;
    const uint32_t position = Position(document);
    MergedInput input;
    MergedShape shape;
    const uint64_t rowBytes = PlaneRowBytes(document.width, document.depth);
    const auto total = CheckedProduct({rowBytes, document.height, document.channels});
    const auto pixelBytes = CheckedProduct({document.width, document.height, 4});
    if (!total || !pixelBytes) return PsdReadResult::kOutOfMemory;
    shape.rowBytes = static_cast<size_t>(rowBytes);
    shape.totalBytes = *total;
    shape.pixels = *pixelBytes / 4;
    shape.pixelsPerByte = document.depth == 1 ? 8 : 1;

    shape.compression = ReadU16(document);
    const uint32_t expansion = CompressionExpansion(shape.compression);
    if (expansion == 0) return PsdReadResult::kBadCompression;
    if (!IsPlausible(shape, InputLeft(document), expansion)) return PsdReadResult::kOutOfMemory;

    // The stream's size is a claim as well, so what has arrived is asked again.
    input.left = shape.compression == kCompressionRaw ? shape.totalBytes : InputLeft(document);
    const uint64_t first = std::min(InputAskedFirst(shape), input.left);
    Owned<uint8_t> head;
    const PsdReadResult result = ReadUpTo(document, first, head, input.end);
    if (result != PsdReadResult::kOk) return result;
    input.left = input.end == first ? input.left - first : 0;
    if (!IsPlausible(shape, input.end, expansion)) return PsdReadResult::kOutOfMemory;
    const uint64_t window = input.left != 0 ? std::max<uint64_t>(input.end, 2 * kInputPiece) : input.end;
    input.bytes = AllocateZeroed<uint8_t>({window + kUnpackSlack});
    if (!input.bytes) return PsdReadResult::kOutOfMemory;
    if (input.end) std::memcpy(input.bytes.get(), head.get(), input.end);
    head.Reset();

    const bool isZip = expansion == kZipExpansion;
    if (isZip && document.soundMergedAt == position && !KeepsMergedImage(document)) {
        // To inflate it once more is the most that opening a document can cost.
        Drain(document, input);
        return PsdReadResult::kOk;
    }
    const PsdReadResult decoded = shape.rowBytes <= kInputPiece ? DecodeArriving(document, shape, input)
                                                                : DecodeWhole(document, shape, input);
    if (decoded == PsdReadResult::kOk) document.soundMergedAt = position;
    return decoded;
}

}  // namespace tessary
