#include "document/byte_reader.h"

#include <gtest/gtest.h>

#include "document/channel_codec.h"
#include "tests/support/document_builder.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {
namespace {

struct ReaderOver {
    explicit ReaderOver(Bytes bytes) : stream(std::move(bytes)) { document.reader.stream = &stream; }
    MemoryStream stream;
    PsdDocument document;
};

TEST(ByteReader, ShortFieldsAreZeroAndConsumed) {
    ReaderOver over({1, 2});
    EXPECT_EQ(ReadU32(over.document), 0u);
    EXPECT_EQ(Position(over.document), 2u);
    EXPECT_EQ(ReadU8(over.document), 0u);
}

TEST(ByteReader, RequestsAboveTheBufferGoPastIt) {
    Bytes bytes(200000);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7 >> 3);
    for (const size_t count : {size_t{65536}, size_t{65537}, size_t{199999}}) {
        ReaderOver over(bytes);
        ReadU8(over.document);
        Bytes got(count);
        ASSERT_EQ(Read(over.document, got.data(), count), count);
        EXPECT_TRUE(std::equal(got.begin(), got.end(), bytes.begin() + 1)) << count;
        EXPECT_EQ(Position(over.document), 1 + count);
    }
}

TEST(ByteReader, LongSkipsCountInFullOnStreamsThatCannotSeek) {
    ReaderOver over(Bytes(10));
    over.stream.canSeek = false;
    EXPECT_EQ(Skip(over.document, 65537), 65537);
    EXPECT_EQ(Position(over.document), 65537u);
    EXPECT_EQ(Skip(over.document, 65536), 10) << "the stream never moved";
    EXPECT_EQ(Skip(over.document, -5), 0);
}

TEST(ByteReader, StreamsInCrumbsGiveTheSameBytes) {
    Bytes bytes(1000);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i);
    ReaderOver over(bytes);
    over.stream.maxBytesPerRead = 1;
    Skip(over.document, 3);
    EXPECT_EQ(ReadU32(over.document), 0x03040506u);
    Bytes got(500);
    EXPECT_EQ(Read(over.document, got.data(), 500), 500u);
    EXPECT_EQ(got[499], bytes[506]);
}

TEST(ByteReader, CountsBeyondTheRequestAreNotBelieved) {
    ReaderOver over(Bytes(70000, 9));
    over.stream.claimsMore = true;
    Bytes got(66000);
    EXPECT_LE(Read(over.document, got.data(), got.size()), got.size());
    EXPECT_LE(over.document.reader.filled, PsdByteReader::kBufferSize);
    // Such a stream has no end; the reader does.
    got.resize(size_t{64} << 20);
    for (int i = 0; i < 32; ++i) static_cast<void>(Read(over.document, got.data(), got.size()));
    EXPECT_EQ(Read(over.document, got.data(), got.size()), 0u);
}

TEST(ByteReader, PascalStringsFillTheirAlignment) {
    const struct {
        uint8_t length;
        uint32_t alignment, consumed;
    } cases[] = {{0, 4, 4}, {3, 4, 4},     {4, 4, 8},     {0, 2, 2}, {1, 2, 2},
                 {2, 2, 4}, {254, 4, 256}, {255, 4, 256}, {5, 1, 6}};
    for (const auto& test : cases) {
        ReaderOver over(ByteWriter().U8(test.length).Raw(Bytes(300, 'a')));
        PsdPascalString string;
        EXPECT_EQ(ReadPascalString(over.document, test.alignment, string), test.consumed) << int{test.length};
        EXPECT_EQ(Position(over.document), test.consumed);
        EXPECT_EQ(std::string(string.text), std::string(test.length, 'a'));
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
    for (const auto& test : cases) {
        ReaderOver over(
            ByteWriter().I16(test.space).U16(test.c0).U16(test.c1).U16(test.c2).U16(test.c3).U8(77));
        EXPECT_EQ(ReadColor(over.document), test.want);
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
