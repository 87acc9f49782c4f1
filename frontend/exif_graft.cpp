#include "frontend/exif_graft.h"

#include <algorithm>
#include <limits>

namespace tessary {
namespace {

// The first directory is looked for where writers put it, right behind the 8 bytes of the block's header.
constexpr size_t kDirectoryStart = 8;
constexpr size_t kFirstEntry = kDirectoryStart + 2;
constexpr size_t kEntryBytes = 12;
constexpr uint16_t kTagSoftware = 305;
constexpr uint16_t kTagXmp = 700;
constexpr uint16_t kTypeByte = 1;

bool BeginsWith(std::span<const uint8_t> bytes, char mark) {
    return bytes.size() >= 2 && bytes[0] == mark && bytes[1] == mark;
}

uint16_t LoadOrdered(const uint8_t* bytes, ByteOrder order) {
    const bool big = order == ByteOrder::kBigEndian;
    return static_cast<uint16_t>(bytes[big ? 0 : 1] << 8 | bytes[big ? 1 : 0]);
}

void StoreOrdered(uint8_t* bytes, size_t size, uint32_t value, ByteOrder order) {
    for (size_t i = 0; i < size; ++i) {
        const size_t place = order == ByteOrder::kBigEndian ? size - 1 - i : i;
        bytes[place] = static_cast<uint8_t>(value >> 8 * i);
    }
}

// The Software entry, or null. Only entries that lie wholly in the block count, whatever the directory says.
uint8_t* FindSoftwareEntry(std::span<uint8_t> exif, ByteOrder order) {
    if (exif.size() < kFirstEntry) return nullptr;
    const size_t stated = LoadOrdered(exif.data() + kDirectoryStart, order);
    const size_t count = std::min(stated, (exif.size() - kFirstEntry) / kEntryBytes);
    for (size_t i = 0; i < count; ++i) {
        uint8_t* entry = exif.data() + kFirstEntry + i * kEntryBytes;
        if (LoadOrdered(entry, order) == kTagSoftware) return entry;
    }
    return nullptr;
}

}  // namespace

ByteOrder ExifByteOrder(std::span<const uint8_t> exif, bool withXmp) {
    if (withXmp) return BeginsWith(exif, 'M') ? ByteOrder::kBigEndian : ByteOrder::kLittleEndian;
    return BeginsWith(exif, 'I') ? ByteOrder::kLittleEndian : ByteOrder::kBigEndian;
}

PsdReadResult GraftXmp(std::span<const uint8_t> exif, std::span<const uint8_t> xmp, Owned<uint8_t>& grafted) {
    const bool withXmp = !xmp.empty();
    if (withXmp && xmp.back() == 0) xmp = xmp.first(xmp.size() - 1);
    const uint64_t size = static_cast<uint64_t>(exif.size()) + xmp.size();
    if (size > std::numeric_limits<uint32_t>::max()) return PsdReadResult::kOutOfMemory;
    grafted = AllocateZeroed<uint8_t>({size});
    if (!grafted) return PsdReadResult::kOutOfMemory;
    std::ranges::copy(exif, grafted.get());
    std::ranges::copy(xmp, grafted.get() + exif.size());
    if (!withXmp) return PsdReadResult::kOk;

    const ByteOrder order = ExifByteOrder(exif, withXmp);
    if (uint8_t* entry = FindSoftwareEntry(grafted.span().first(exif.size()), order)) {
        StoreOrdered(entry, 2, kTagXmp, order);
        StoreOrdered(entry + 2, 2, kTypeByte, order);
        StoreOrdered(entry + 4, 4, static_cast<uint32_t>(xmp.size()), order);
        StoreOrdered(entry + 8, 4, static_cast<uint32_t>(exif.size()), order);
    }
    return PsdReadResult::kOk;
}

}  // namespace tessary
