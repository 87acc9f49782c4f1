#include "document/byte_reader.h"

#include <gtest/gtest.h>

#include "document/big_endian.h"
#include "document/channel_codec.h"
#include "tests/support/document_builder.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {
namespace {

TEST(ByteReader, GivesTheBytesHoweverTheyAreDelivered) {
    Bytes bytes(200000);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7 >> 3);
    for (const uint32_t crumb : {1u, 1000000u}) {
        for (const size_t count : {500u, 65536u, 65537u, 199000u}) {
            StreamReader over(bytes);
            over.stream.maxBytesPerRead = crumb;
            Skip(over.document, 3);
            EXPECT_EQ(ReadU32(over.document), LoadU32(&bytes[3]));
            Bytes got(count);
            ASSERT_EQ(Read(over.document, got.data(), count), count);
            EXPECT_TRUE(std::equal(got.begin(), got.end(), bytes.begin() + 7)) << count;
            EXPECT_EQ(Position(over.document), 7 + count);
        }
    }
    StreamReader cut({1, 2});
    EXPECT_EQ(ReadU32(cut.document), 0u);
    EXPECT_EQ(Position(cut.document), 2u);
    StreamReader boasting(Bytes(70000, 9));
    boasting.stream.claimsMore = true;
    EXPECT_LE(Read(boasting.document, bytes.data(), 66000), 66000u);
    EXPECT_LE(boasting.document.reader.filled, PsdByteReader::kBufferSize);
}

TEST(ByteReader, LongSkipsCountInFullOnStreamsThatCannotSeek) {
    StreamReader over(Bytes(10));
    over.stream.canSeek = false;
    EXPECT_EQ(Skip(over.document, 65537), 65537);
    EXPECT_EQ(Position(over.document), 65537u);
    EXPECT_EQ(Skip(over.document, 65536), 10) << "the stream never moved";
    EXPECT_EQ(Skip(over.document, -5), 0);
}

TEST(ByteReader, StreamsThatClaimMoreAreNotBelievedForEver) {
    StreamReader over(Bytes(70000, 9));
    over.stream.claimsMore = true;
    Bytes got(size_t{64} << 20);
    EXPECT_EQ(Read(over.document, got.data(), 66000), 66000u);
    for (int i = 0; i < 32; ++i) EXPECT_LE(Read(over.document, got.data(), got.size()), got.size());
    EXPECT_EQ(Read(over.document, got.data(), got.size()), 0u);
}

TEST(ByteReader, PascalStringsFillTheirAlignment) {
    for (const uint32_t alignment : {1u, 2u, 4u}) {
        for (uint32_t length = 0; length < 256; ++length) {
            StreamReader over(ByteWriter().U8(length).Raw(Bytes(300, 'a')));
            PsdPascalString string;
            const uint32_t consumed = (length + alignment) / alignment * alignment;
            EXPECT_EQ(ReadPascalString(over.document, alignment, string), consumed) << length;
            EXPECT_EQ(Position(over.document), consumed);
            EXPECT_EQ(std::string(string.text), std::string(length, 'a'));
        }
    }
}

TEST(ByteReader, ColorStructuresTakeTenBytes) {
    const struct {
        int space;
        uint32_t c0, c1, c2, c3, want;
    } cases[] = {
        {0, 0xFF12, 0x80FF, 0x0100, 0, 0xFFFF8001u},    {1, 30 << 8, 100 << 8, 50 << 8, 0, 0xFFFF7F00u},
        {2, 0, 0x6400, 0, 0xFF, 0xFFFF00FFu},           {2, 0, 0, 0, 0x0100, 0xFF000000u},
        {7, 54 << 8, 81 << 8, 70 << 8, 0, 0xFFFF0000u}, {5, 1, 2, 3, 4, 0x00FFFFFFu},
    };
    for (const auto& [space, c0, c1, c2, c3, want] : cases) {
        StreamReader over(ByteWriter().I16(space).U16(c0).U16(c1).U16(c2).U16(c3).U8(77));
        EXPECT_EQ(ReadColor(over.document), want);
        EXPECT_EQ(ReadU8(over.document), 77u);
    }
}

TEST(ByteReader, NothingLargeIsAllocatedOnAFieldsWord) {
    EXPECT_TRUE(MayAllocate(64u << 20, 0, kRawExpansion));
    EXPECT_FALSE(MayAllocate((64u << 20) + 1, 26, kZipExpansion));
    EXPECT_TRUE(MayAllocate(1u << 30, 11u << 20, kRawExpansion));
    EXPECT_FALSE(MayAllocate(1u << 30, 10u << 20, kRawExpansion));
}

}  // namespace
}  // namespace tessary::test
