#include "document/byte_reader.h"

#include <algorithm>
#include <cstring>

#include "document/big_endian.h"
#include "render/color_convert.h"

namespace tessary {
namespace {

constexpr uint32_t kBufferSize = PsdByteReader::kBufferSize;

bool EnsureBuffer(PsdByteReader& reader) {
    if (!reader.buffer) {
        reader.buffer = AllocateZeroed<uint8_t>({kBufferSize});
        reader.filled = reader.cursor = 0;
    }
    return static_cast<bool>(reader.buffer);
}

// One call to the stream. Its result code says nothing that the count does not. A count beyond what was asked
// for is taken for 0: such a stream would seem to have all that a file can claim.
uint32_t ReadStream(PsdByteReader& reader, void* destination, uint32_t count) {
    ULONG delivered = 0;
    if (reader.stream && reader.delivered < kMostDeliveredBytes)
        reader.stream->Read(destination, count, &delivered);
    if (delivered > count) return 0;
    reader.delivered += delivered;
    return static_cast<uint32_t>(delivered);
}

void Refill(PsdByteReader& reader) {
    reader.cursor = 0;
    reader.filled = ReadStream(reader, reader.buffer.get(), kBufferSize);
}

// Hands out up to `count` buffered bytes; a null destination drops them.
uint32_t TakeBuffered(PsdByteReader& reader, uint8_t* destination, size_t count) {
    const uint32_t taken = static_cast<uint32_t>(std::min<size_t>(reader.filled - reader.cursor, count));
    if (destination && taken) std::memcpy(destination, reader.buffer.get() + reader.cursor, taken);
    reader.cursor += taken;
    return taken;
}

// Takes from the buffer until `count` is reached or the stream delivers nothing more. A stream that fills
// what it is asked for is refilled once; one that delivers in crumbs is asked again.
size_t TakeWithRefills(PsdByteReader& reader, uint8_t* destination, size_t count) {
    size_t done = TakeBuffered(reader, destination, count);
    while (done < count) {
        Refill(reader);
        if (reader.filled == 0) break;
        done += TakeBuffered(reader, destination ? destination + done : nullptr, count - done);
    }
    return done;
}

}  // namespace

size_t Read(PsdDocument& document, void* destination, size_t count) {
    PsdByteReader& reader = document.reader;
    if (!destination || !EnsureBuffer(reader)) return 0;
    uint8_t* out = static_cast<uint8_t*>(destination);

    size_t done = TakeBuffered(reader, out, count);
    if (count - done <= kBufferSize) {
        done += TakeWithRefills(reader, out + done, count - done);
    } else {
        constexpr size_t kMaxRequest = 1u << 30;
        while (done < count) {
            const uint32_t request = static_cast<uint32_t>(std::min(count - done, kMaxRequest));
            const uint32_t delivered = ReadStream(reader, out + done, request);
            if (delivered == 0) break;
            done += delivered;
        }
    }
    reader.position = WrapAdd(reader.position, static_cast<uint32_t>(done));
    return done;
}

int32_t Skip(PsdDocument& document, int32_t count) {
    PsdByteReader& reader = document.reader;
    if (count < 1 || !EnsureBuffer(reader)) return 0;
    const uint32_t wanted = static_cast<uint32_t>(count);

    uint32_t done = TakeBuffered(reader, nullptr, wanted);
    if (wanted - done > kBufferSize) {
        LARGE_INTEGER move;
        move.QuadPart = wanted - done;
        if (reader.stream) reader.stream->Seek(move, STREAM_SEEK_CUR, nullptr);
        done = wanted;
    } else {
        done += static_cast<uint32_t>(TakeWithRefills(reader, nullptr, wanted - done));
    }
    reader.position = WrapAdd(reader.position, done);
    return static_cast<int32_t>(done);
}

void SkipTo(PsdDocument& document, uint32_t position) { Skip(document, BytesUntil(document, position)); }

uint32_t InputLeft(const PsdDocument& document) {
    const uint32_t size = static_cast<uint32_t>(std::max(document.streamSize, 0));
    const uint32_t position = document.reader.position;
    return position < size ? size - position : 0;
}

uint64_t InputSeen(const PsdDocument& document) {
    // A stream that does not know its end can be skipped beyond it.
    if (document.streamSize == INT32_MAX) return document.reader.delivered;
    return std::min(document.reader.position, static_cast<uint32_t>(std::max(document.streamSize, 0)));
}

PsdReadResult ReadBytes(PsdDocument& document, uint64_t size, Owned<uint8_t>& bytes, size_t& arrived) {
    arrived = 0;
    if (!IsBelieved(size, InputLeft(document), 1)) return PsdReadResult::kOutOfMemory;
    bytes = AllocateZeroed<uint8_t>({size});
    if (!bytes) return PsdReadResult::kOutOfMemory;
    arrived = Read(document, bytes.get(), bytes.count());
    return MayKeepBytes(size, arrived) ? PsdReadResult::kOk : PsdReadResult::kOutOfMemory;
}

bool ReadBool(PsdDocument& document) { return ReadU8(document) != 0; }

uint8_t ReadU8(PsdDocument& document) {
    uint8_t byte = 0;
    return Read(document, &byte, 1) == 1 ? byte : uint8_t{0};
}

uint16_t ReadU16(PsdDocument& document) {
    uint8_t bytes[2];
    return Read(document, bytes, 2) == 2 ? LoadU16(bytes) : uint16_t{0};
}

uint32_t ReadU32(PsdDocument& document) {
    uint8_t bytes[4];
    return Read(document, bytes, 4) == 4 ? LoadU32(bytes) : 0;
}

float ReadFloat(PsdDocument& document) { return std::bit_cast<float>(ReadU32(document)); }

double ReadDouble(PsdDocument& document) {
    uint8_t bytes[8];
    return Read(document, bytes, 8) == 8 ? LoadDouble(bytes) : 0.0;
}

float ReadFixed(PsdDocument& document) { return static_cast<float>(ReadI32(document) * (1.0 / 65536)); }

bool ReadKey(PsdDocument& document, uint32_t& key) {
    uint8_t bytes[4];
    const bool complete = Read(document, bytes, 4) == 4;
    key = complete ? LoadU32(bytes) : 0;
    return complete;
}

uint32_t ReadColor(PsdDocument& document) {
    const int16_t space = ReadI16(document);
    // Only the high byte of a component counts, and it keeps its sign.
    int32_t c[4];
    for (int32_t& component : c) component = static_cast<int16_t>(ReadU16(document)) >> 8;
    switch (space) {
    case 0: {
        const auto low = [&](int i) { return static_cast<uint32_t>(c[i]) & 255; };
        return PackPixel(255, low(0), low(1), low(2));
    }
    case 1: return HsbToArgb(255, c[0], c[1] * 0.01, c[2] * 0.01);
    case 2: return CmykToArgb(c[0] * 0.01, c[1] * 0.01, c[2] * 0.01, c[3] * 0.01);
    case 7: return LabToArgb(255, c[0], c[1], c[2]);
    default: return kBackground;
    }
}

Rect ReadRect(PsdDocument& document) {
    Rect rect;
    rect.top = ReadI32(document);
    rect.left = ReadI32(document);
    rect.bottom = ReadI32(document);
    rect.right = ReadI32(document);
    return rect;
}

uint32_t ReadPascalString(PsdDocument& document, uint32_t alignment, PsdPascalString& string) {
    string = {};
    const uint32_t length = ReadU8(document);
    const uint32_t whole = (length + alignment) / alignment * alignment;  // 1 + length, rounded up
    const uint32_t stored = std::min(whole - 1, 255u);
    Read(document, string.text, stored);
    // What follows the text is padding, whatever its bytes are.
    std::memset(string.text + length, 0, sizeof string.text - length);
    string.length = static_cast<uint8_t>(length);
    return 1 + stored;
}

PsdReadResult ReadUnicodeString(PsdDocument& document, uint32_t maxUnits, PsdUnicodeString& string) {
    const uint32_t length = std::min(ReadU32(document), maxUnits);
    string.length = 0;
    string.bytes = AllocateZeroed<uint8_t>({length + uint64_t{1}, 2});
    if (!string.bytes) return PsdReadResult::kOutOfMemory;
    Read(document, string.bytes.get(), size_t{2} * length);
    string.length = length;
    return PsdReadResult::kOk;
}

}  // namespace tessary
