#include "frontend/exif_graft.h"

#include <gtest/gtest.h>

#include <vector>

namespace tessary::test {
namespace {

using Bytes = std::vector<uint8_t>;

void Put(Bytes& bytes, bool big, int size, uint32_t value) {
    for (int i = 0; i < size; ++i)
        bytes.push_back(static_cast<uint8_t>(value >> 8 * (big ? size - 1 - i : i)));
}
void PutEntry(Bytes& bytes, bool big, uint32_t tag, uint32_t type, uint32_t count, uint32_t value) {
    Put(bytes, big, 2, tag), Put(bytes, big, 2, type), Put(bytes, big, 4, count), Put(bytes, big, 4, value);
}

// An EXIF block whose directory claims `claimed` entries and holds those of `tags`.
Bytes Exif(bool big, uint32_t claimed, const std::vector<uint16_t>& tags) {
    Bytes bytes = big ? Bytes{'M', 'M'} : Bytes{'I', 'I'};
    Put(bytes, big, 2, 42), Put(bytes, big, 4, 8), Put(bytes, big, 2, claimed);
    for (const uint16_t tag : tags) PutEntry(bytes, big, tag, 2, 0x11223344, 0x55667788);
    return bytes;
}

Bytes Graft(const Bytes& exif, const Bytes& xmp) {
    Owned<uint8_t> grafted;
    EXPECT_EQ(GraftXmp(exif, xmp, grafted), PsdReadResult::kOk);
    return Bytes(grafted.get(), grafted.get() + grafted.count());
}

TEST(ExifGraft, TurnsTheFirstSoftwareEntryIntoTheXmpEntry) {
    for (const bool big : {true, false}) {
        const Bytes exif = Exif(big, 3, {271, 305, 305});
        Bytes want = Exif(big, 3, {271});
        PutEntry(want, big, 700, 1, 3, 46);  // three bytes behind the 46 of the block
        want.insert(want.end(), exif.begin() + 34, exif.end());
        want.insert(want.end(), {'x', 'm', 'p'});
        EXPECT_EQ(Graft(exif, {'x', 'm', 'p'}), want);
        EXPECT_EQ(Graft(exif, {'x', 'm', 'p', 0}), want) << "the packet's closing zero does not count";
        EXPECT_EQ(Graft(exif, {}), exif) << "no packet";
    }
    EXPECT_EQ(ExifByteOrder(Bytes{'I', 'M'}, false), ByteOrder::kBigEndian) << "a guess";
    EXPECT_EQ(ExifByteOrder(Bytes{'I', 'M'}, true), ByteOrder::kLittleEndian);
}

TEST(ExifGraft, ReadsNothingBeyondTheBlock) {
    // The packet looks like an entry: it must not be taken for one.
    const Bytes xmp = {0x01, 0x31, 0x01, 0x31, 0x01, 0x31, 0x01, 0x31, 0x01, 0x31, 0x01, 0x31, 0x01};
    for (const uint32_t claimed : {0u, 1u, 2u, 3u, 0xFFFFu}) {
        const Bytes whole = Exif(true, claimed, {271, 305});
        for (size_t size = 0; size <= whole.size(); ++size) {
            const Bytes exif(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            Bytes unchanged = exif;
            unchanged.insert(unchanged.end(), xmp.begin(), xmp.end());
            const bool found = claimed >= 2 && size == whole.size();
            EXPECT_EQ(Graft(exif, xmp) != unchanged, found) << claimed << " claimed, " << size;
        }
    }
}

}  // namespace
}  // namespace tessary::test
