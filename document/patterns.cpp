#include "document/patterns.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "document/big_endian.h"
#include "document/byte_reader.h"
#include "document/plane_decoder.h"
#include "render/color_convert.h"

namespace tessary {
namespace {

constexpr uint32_t kSmallestPattern = 20;
constexpr uint32_t kPaletteEntries = 256;
constexpr uint32_t kMostColors = 4;

// The pattern that is being read. Whatever does not make sense in it makes it malformed.
struct PatternReader {
    PsdDocument& document;
    uint32_t end;  // of the pattern
    PsdPattern pattern = {};
    uint32_t mode = 0;
    uint32_t palette[kPaletteEntries] = {};
    Rect bounds = {};
    uint32_t colors = 0;                          // planes; 0: the mode is not drawn
    Owned<uint8_t> planes[kMostColors + 1] = {};  // colours, then the alpha
    KeptPixels kept = {};
    PlaneDecoder decoder = {};
};

// Bytes of the pattern that are left; the stream may end before.
uint32_t Left(const PatternReader& reader) {
    const int32_t left = BytesUntil(reader.document, reader.end);
    return left < 0 ? 0 : std::min(static_cast<uint32_t>(left), InputLeft(reader.document));
}

bool SkipWithin(PatternReader& reader, uint64_t bytes) {
    if (bytes > Left(reader)) return false;
    Skip(reader.document, static_cast<int32_t>(bytes));
    return true;
}

bool ReadPalette(PatternReader& reader) {
    constexpr uint32_t kBytes = 3 * kPaletteEntries + 4;
    uint8_t bytes[kBytes];
    if (Left(reader) < kBytes || Read(reader.document, bytes, kBytes) != kBytes) return false;
    for (uint32_t i = 0; i < kPaletteEntries; ++i)
        reader.palette[i] = PackPixel(255, bytes[3 * i], bytes[3 * i + 1], bytes[3 * i + 2]);
    return true;
}

// What stands in front of the planes.
bool ReadHead(PatternReader& reader, uint32_t& lastChannel) {
    PsdDocument& document = reader.document;
    if (ReadU32(document) != 1) return false;
    reader.mode = ReadU32(document);
    Skip(document, 4);  // the size once more
    const uint32_t nameUnits = ReadU32(document);
    if (!SkipWithin(reader, uint64_t{nameUnits} * 2)) return false;
    ReadPascalString(document, 1, reader.pattern.identifier);
    if (reader.mode == kColorIndexed && !ReadPalette(reader)) return false;
    if (ReadU32(document) != 3) return false;
    Skip(document, 4);  // the length of what follows
    reader.bounds = ReadRect(document);
    lastChannel = ReadU32(document);
    const Rect& bounds = reader.bounds;
    if (bounds.IsEmpty()) return false;
    // Each side is below 2^32, so the product does not wrap.
    if (static_cast<uint64_t>(bounds.Width()) * static_cast<uint64_t>(bounds.Height()) > kMostTilePixels)
        return false;
    const PlaneBlock block = {.colorMode = reader.mode, .depth = 8};
    if (reader.mode != kColorMultichannel && reader.mode != kColorDuotone && ConvertsPlanes(block))
        reader.colors = ColorPlanesUsed(reader.mode, 0);
    reader.pattern.width = static_cast<uint32_t>(bounds.Width());
    reader.pattern.height = static_cast<uint32_t>(bounds.Height());
    return true;
}

// Rows of the stored size lie in the data, and can be full.
bool HasItsRows(const PlaneDecoder& decoder, uint16_t compression, uint64_t dataBytes) {
    const uint64_t rows = decoder.shape.rows;
    if (compression == kCompressionRaw) return dataBytes >= decoder.storedRowBytes * rows;
    uint64_t need = 2 * rows;
    for (uint64_t row = 0; row < rows && decoder.rowCounts; ++row)
        need += LoadU16(decoder.rowCounts + 2 * row);
    return decoder.rowCounts && dataBytes >= need &&
           dataBytes * CompressionExpansion(compression) >= decoder.storedRowBytes * rows;
}

// Reads one plane of `length` bytes, into `plane` if there is one to keep. Without memory the plane stays
// empty.
bool ReadPlaneData(PatternReader& reader, uint32_t length, Owned<uint8_t>* plane) {
    PsdDocument& document = reader.document;
    constexpr uint32_t kHeadBytes = 4 + 16 + 2 + 1;
    if (length < kHeadBytes || length > Left(reader)) return false;
    Skip(document, 4);
    const Rect bounds = ReadRect(document);
    const uint32_t depth = ReadU16(document);
    const uint16_t compression = ReadU8(document);
    if (bounds != reader.bounds || (depth != 8 && depth != 16) || compression > kCompressionPackBits)
        return false;
    const uint32_t dataBytes = length - kHeadBytes;
    if (!plane) return SkipWithin(reader, dataBytes);

    const PlaneShape shape = {reader.pattern.width, reader.pattern.height, depth};
    PlaneDecoder& decoder = reader.decoder;
    if (BeginPlanes(decoder, document, dataBytes, compression, shape) != PsdReadResult::kOk ||
        !HasItsRows(decoder, compression, dataBytes))
        return false;
    Owned<uint8_t> samples = AllocateZeroed<uint8_t>({shape.width, shape.rows});
    uint8_t* out = samples.get();
    while (out && decoder.rowsLeft != 0) {
        const uint8_t* row = nullptr;
        if (NextRows(decoder, 1, row) != PsdReadResult::kOk) return false;
        std::memcpy(out, row, shape.width);
        out += shape.width;
    }
    reader.kept = reader.kept + KeptPixels{0, decoder.source.arrived, 0};
    reader.kept.filledPixels = std::max(reader.kept.filledPixels, FilledSamples(decoder));
    *plane = std::move(samples);
    return DropPlanes(decoder) == PsdReadResult::kOk;
}

// Reads the planes there are, of which those behind the colours and before the alpha are not looked at.
bool ReadPatternPlanes(PatternReader& reader, uint32_t lastChannel) {
    const uint64_t count = uint64_t{lastChannel} + 2;
    for (uint64_t i = 0; i < count; ++i) {
        if (Left(reader) < 4) return i >= reader.colors;
        const bool isWritten = ReadU32(reader.document) != 0;
        const uint32_t length = isWritten ? ReadU32(reader.document) : 0;
        const bool isColor = i < reader.colors, isAlpha = i + 1 == count;
        if (length == 0) {
            if (isColor) return false;
            continue;
        }
        const uint32_t start = Position(reader.document);
        if (length > Left(reader)) return false;
        Owned<uint8_t>* const plane = isColor   ? &reader.planes[i]
                                      : isAlpha ? &reader.planes[kMostColors]
                                                : nullptr;
        if (!ReadPlaneData(reader, length, reader.colors ? plane : nullptr)) return false;
        SkipTo(reader.document, WrapAdd(start, length));
    }
    return true;
}

bool IsComplete(const PatternReader& reader) {
    return reader.colors != 0 && std::all_of(reader.planes, reader.planes + reader.colors,
                                             [](const auto& plane) { return !!plane; });
}

bool MakePixels(PatternReader& reader) {
    PsdPattern& pattern = reader.pattern;
    pattern.pixels = AllocateZeroed<uint32_t>({pattern.width, pattern.height});
    if (!pattern.pixels) return false;
    PlaneBlock block = {
        .colorMode = reader.mode, .depth = 8, .width = pattern.width, .height = pattern.height};
    block.planeCount = reader.colors;
    block.palette = reader.palette;
    for (uint32_t i = 0; i < reader.colors; ++i) block.color[i] = reader.planes[i].get();
    ConvertPlanes(block, pattern.pixels.get());
    const uint8_t* const alphas = reader.planes[kMostColors].get();
    if (!alphas) return true;
    for (size_t i = 0; i < pattern.pixels.count(); ++i)
        pattern.pixels[i] = (pattern.pixels[i] & 0x00FFFFFF) | uint32_t{alphas[i]} << 24;
    return true;
}

// Also one without pixels: its identifier is taken. False when there are too many, or without memory.
bool Keep(PsdDocument& document, PsdPattern&& pattern) {
    if (!TakeRecord(document.allowance, sizeof pattern, document.reader.delivered)) return false;
    const uint32_t count = document.patternCount;
    if (count == document.patterns.count()) {
        Owned<PsdPattern> larger = AllocateZeroed<PsdPattern>({count ? uint64_t{2} * count : 4});
        if (!larger) return false;
        std::move(document.patterns.get(), document.patterns.get() + count, larger.get());
        document.patterns = std::move(larger);
    }
    document.patterns[document.patternCount++] = std::move(pattern);
    return true;
}

}  // namespace

void ReadPatterns(PsdDocument& document, uint32_t end) {
    while (BytesUntil(document, end) >= 4 && InputLeft(document) >= 4) {
        const uint32_t length = ReadU32(document);
        const uint32_t start = Position(document);
        const int32_t left = BytesUntil(document, end);
        if (length < kSmallestPattern || left < 0 || length > static_cast<uint32_t>(left)) return;
        PatternReader reader{.document = document, .end = WrapAdd(start, length)};
        uint32_t lastChannel = 0;
        const bool isSound = ReadHead(reader, lastChannel) && ReadPatternPlanes(reader, lastChannel);
        reader.kept.bytes = uint64_t{reader.pattern.width} * reader.pattern.height * sizeof(uint32_t);
        const KeptPixels all = document.allowance.patterns + reader.kept;
        const bool isDrawn = isSound && IsComplete(reader) && MayKeepPixels(all) && MakePixels(reader);
        if (!Keep(document, std::move(reader.pattern)) || !isSound) return;
        if (isDrawn) document.allowance.patterns = all;
        SkipTo(document, WrapAdd(start, length + (4 - length % 4) % 4));
    }
}

const PsdPattern* FindPattern(const PsdDocument& document, const PsdUnicodeString& identifier) {
    // Descriptors count a closing zero, patterns do not.
    uint32_t length = identifier.length;
    const uint8_t* const units = identifier.bytes.get();
    while (length > 0 && units[2 * length - 2] == 0 && units[2 * length - 1] == 0) --length;
    if (length == 0) return nullptr;
    for (uint32_t i = 0; i < document.patternCount; ++i) {
        const PsdPascalString& own = document.patterns[i].identifier;
        if (own.length != length) continue;
        uint32_t same = 0;
        while (same < length && units[2 * same] == 0 &&
               units[2 * same + 1] == static_cast<uint8_t>(own.text[same]))
            ++same;
        if (same == length) return document.patterns[i].pixels ? &document.patterns[i] : nullptr;
    }
    return nullptr;
}

}  // namespace tessary
