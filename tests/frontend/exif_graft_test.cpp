#include "frontend/exif_graft.h"

#include <gtest/gtest.h>

#include <vector>

namespace tessary::test {
namespace {

using Bytes = std::vector<uint8_t>;

// An EXIF block whose directory claims `claimed` entries and holds those of `tags`.
Bytes Exif(bool big, uint16_t claimed, const std::vector<uint16_t>& tags) {
    Bytes bytes;
    const auto put = [&](uint32_t value, int size) {
        for (int i = 0; i < size; ++i)
            bytes.push_back(static_cast<uint8_t>(value >> 8 * (big ? size - 1 - i : i)));
    };
    bytes = big ? Bytes{'M', 'M'} : Bytes{'I', 'I'};
    put(42, 2);
    put(8, 4);
    put(claimed, 2);
    for (const uint16_t tag : tags) {
        put(tag, 2);
        put(2, 2);
        put(0x11223344, 4);
        put(0x55667788, 4);
    }
    return bytes;
}

Bytes Graft(const Bytes& exif, const Bytes& xmp) {
    Owned<uint8_t> grafted;
    EXPECT_EQ(GraftXmp(exif, xmp, grafted), PsdReadResult::kOk);
    return Bytes(grafted.get(), grafted.get() + grafted.count());
}

TEST(ExifGraft, TurnsTheFirstSoftwareEntryIntoTheXmpEntry) {
    const Bytes entries[] = {
        {0x02, 0xBC, 0, 1, 0, 0, 0, 3, 0, 0, 0, 46},  // tag 700, BYTE, 3 of them, behind the 46 bytes
        {0xBC, 0x02, 1, 0, 3, 0, 0, 0, 46, 0, 0, 0},
    };
    for (const bool big : {true, false}) {
        const Bytes exif = Exif(big, 3, {271, 305, 305});
        ASSERT_EQ(exif.size(), 46u);
        Bytes want(exif.begin(), exif.begin() + 22);
        for (const uint8_t byte : entries[big ? 0 : 1]) want.push_back(byte);
        want.insert(want.end(), exif.begin() + 34, exif.end());
        want.insert(want.end(), {'x', 'm', 'p'});
        EXPECT_EQ(Graft(exif, {'x', 'm', 'p'}), want);
        EXPECT_EQ(Graft(exif, {'x', 'm', 'p', 0}), want) << "the packet's closing zero does not count";
        EXPECT_EQ(Graft(exif, {}), exif) << "no packet";
    }
}

TEST(ExifGraft, ReadsNothingBeyondTheBlock) {
    for (const uint16_t claimed : std::vector<uint16_t>{0, 1, 2, 3, 0xFFFF}) {
        const Bytes whole = Exif(true, claimed, {271, 305});
        for (size_t size = 0; size <= whole.size(); ++size) {
            const Bytes exif(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            // The packet looks like an entry: it must not be taken for one.
            Bytes unchanged = exif;
            const Bytes xmp = {0x01, 0x31, 0x01, 0x31, 0x01, 0x31, 0x01, 0x31, 0x01, 0x31, 0x01, 0x31, 0x01};
            unchanged.insert(unchanged.end(), xmp.begin(), xmp.end());
            const bool found = claimed >= 2 && size == whole.size();
            EXPECT_EQ(Graft(exif, xmp) != unchanged, found) << claimed << " claimed, " << size;
        }
    }
}

TEST(ExifGraft, GuessesTheByteOrderOfUnmarkedBlocks) {
    EXPECT_EQ(ExifByteOrder(Bytes{'I', 'M'}, false), ByteOrder::kBigEndian);
    EXPECT_EQ(ExifByteOrder(Bytes{'I', 'M'}, true), ByteOrder::kLittleEndian);
}

}  // namespace
}  // namespace tessary::test
