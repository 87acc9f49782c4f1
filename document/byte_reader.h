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

// True when `wanted` bytes may be allocated because a field of the file says so. Up to 64 MiB always may;
// more only when `inputBytes` of stored data, each worth at most `expansion` bytes, could fill a hundredth of
// it.
bool MayAllocate(uint64_t wanted, uint64_t inputBytes, uint32_t expansion);

// Allocates and reads `size` bytes of the file as they are. On success `bytes` holds `size` bytes, zero where
// the stream ended early; kOutOfMemory when they cannot be had, and when of more than 4 MiB not even a
// hundredth arrives. More than 64 MiB are allocated only after that.
PsdReadResult ReadBytes(PsdDocument& document, uint64_t size, Owned<uint8_t>& bytes);

// Buffers of more than 64 MiB wait for the stream to show that it has something to put into them: the first
// hundredth of `size` bytes, HeadBytes, is read into `head`, `arrived` bytes of it. 0 of smaller ones.
uint64_t HeadBytes(uint64_t size);
PsdReadResult ReadHead(PsdDocument& document, uint64_t size, Owned<uint8_t>& head, size_t& arrived);

// Reads up to `limit` bytes, as many as the stream delivers, into a buffer that grows with what arrives once
// the limit is above 64 MiB. `bytes` may hold more than `delivered` bytes, zero behind them.
PsdReadResult ReadUpTo(PsdDocument& document, uint64_t limit, Owned<uint8_t>& bytes, size_t& delivered);

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
