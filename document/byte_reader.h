// The buffered, forward-only reader inside PsdDocument and the primitive reads on it. All file integers are
// big-endian. What returns no result does not fail: a short read gives 0 and the bytes that did arrive are
// consumed.
#pragma once

#include <cstddef>
#include <cstdint>

#include "document/psd_document.h"

namespace tessary {

// Copies up to `count` bytes to `destination` and returns how many. Null destination: 0, nothing consumed.
// Requests above 64 KiB go past the buffer into the caller's memory.
size_t Read(PsdDocument& document, void* destination, size_t count);

// Consumes `count` bytes without copying and returns how many; below 1 nothing happens. A skip of more than
// 64 KiB behind the buffered bytes becomes one seek and counts in full whether or not the seek succeeded.
int32_t Skip(PsdDocument& document, int32_t count);

// Skips forward to a position; does nothing when the reader is there already or beyond.
void SkipTo(PsdDocument& document, uint32_t position);

inline uint32_t Position(const PsdDocument& document) { return document.reader.position; }

// Bytes from here to `end`; negative when the reader is beyond.
inline int32_t BytesUntil(const PsdDocument& document, uint32_t end) {
    return static_cast<int32_t>(WrapSubtract(end, document.reader.position));
}

// Bytes the stream's own size leaves; 0 when the reader is beyond it.
uint32_t InputLeft(const PsdDocument& document);

// Bytes of the file that have been read or passed over, as far as they can be there.
uint64_t InputSeen(const PsdDocument& document);

// Allocates and reads up to `size` bytes of the file as they are. `bytes` holds `size` of them, zero where
// the stream ended early; `arrived` tells where. kOutOfMemory, also for a size that is not believed and for
// bytes that may not be kept.
PsdReadResult ReadBytes(PsdDocument& document, uint64_t size, Owned<uint8_t>& bytes, size_t& arrived);
inline PsdReadResult ReadBytes(PsdDocument& document, uint64_t size, Owned<uint8_t>& bytes) {
    size_t arrived = 0;
    return ReadBytes(document, size, bytes, arrived);
}

bool ReadBool(PsdDocument& document);
uint8_t ReadU8(PsdDocument& document);
uint16_t ReadU16(PsdDocument& document);
inline int16_t ReadI16(PsdDocument& document) { return static_cast<int16_t>(ReadU16(document)); }
uint32_t ReadU32(PsdDocument& document);
inline int32_t ReadI32(PsdDocument& document) { return static_cast<int32_t>(ReadU32(document)); }
float ReadFloat(PsdDocument& document);
double ReadDouble(PsdDocument& document);

// Signed 16.16 fixed point.
float ReadFixed(PsdDocument& document);

// Reads a signature or key; false (and 0) when fewer than four bytes are left.
bool ReadKey(PsdDocument& document, uint32_t& key);

// The 10-byte colour structure as 0xAARRGGBB; unknown colour spaces give 0x00FFFFFF.
uint32_t ReadColor(PsdDocument& document);

// Four 32-bit sides in file order: top, left, bottom, right.
Rect ReadRect(PsdDocument& document);

// A length byte L, then text so that the whole fills a multiple of `alignment` bytes, of which at most 255
// are read. Returns the bytes consumed.
uint32_t ReadPascalString(PsdDocument& document, uint32_t alignment, PsdPascalString& string);

// A 32-bit length in UTF-16 units, clamped to `maxUnits`, and that many units. kOutOfMemory when they cannot
// be kept.
PsdReadResult ReadUnicodeString(PsdDocument& document, uint32_t maxUnits, PsdUnicodeString& string);
inline constexpr uint32_t kMaxUnicodeUnits = 1024;

}  // namespace tessary
