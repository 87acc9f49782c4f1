#include <gtest/gtest.h>

#include "tests/support/com_host.h"

namespace tessary::test {
namespace {

// 300 x 300 pixels without a pattern, larger than the read-ahead buffer.
DocumentBuilder LargeDocument() {
    ByteWriter planes;
    for (uint32_t i = 0; i < 3u * 300 * 300; ++i) planes.U8((i * 2654435761u) >> 24);
    return DocumentBuilder(kColorRgb, 8, 3, 300, 300).Merged(planes);
}

TEST(BufferedStream, ReadsAheadInLargePieces) {
    MemoryStream stream(LargeDocument().Build());
    const auto decoder = OpenDecoder(stream);
    // The header, the resources and the way back: one piece serves them all.
    EXPECT_EQ(stream.bytesRead, kReadAheadBytes);
    const auto frame = FrameOf(decoder.get());
    const uint64_t calls = stream.calls;
    EXPECT_FALSE(PixelsOf(frame.get()).empty());
    EXPECT_LE(stream.calls - calls, 10u);
}

TEST(BufferedStream, GivesTheSamePixelsForAnySource) {
    const Bytes file = LargeDocument().Build();
    MemoryStream whole(file), crumbs(file), elsewhere(file);
    crumbs.maxBytesPerRead = 1;
    elsewhere.position = 500;
    const Bytes want = PixelsOf(FrameOf(OpenDecoder(whole).get()).get());
    ASSERT_EQ(want.size(), 300u * 300 * 4);
    EXPECT_EQ(want[4 * 7 + 2], file[40 + 7]) << "red comes first behind the 40 bytes of the sections";
    EXPECT_EQ(PixelsOf(FrameOf(OpenDecoder(crumbs).get()).get()), want);
    EXPECT_EQ(PixelsOf(FrameOf(OpenDecoder(elsewhere).get()).get()), want);
    EXPECT_EQ(whole.references, 1);
}

}  // namespace
}  // namespace tessary::test
