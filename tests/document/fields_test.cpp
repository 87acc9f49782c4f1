#include <gtest/gtest.h>

#include <random>

#include "document/big_endian.h"
#include "document/byte_reader.h"
#include "document/channel_codec.h"
#include "document/descriptor.h"
#include "tests/support/document_builder.h"

namespace tessary::test {
namespace {

TEST(ByteReader, GivesTheBytesHoweverTheyAreDelivered) {
    Bytes bytes(200000), got(bytes.size());
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7 >> 3);
    for (const uint32_t crumb : {1u, 1000000u}) {
        for (const size_t count : {500u, 65536u, 65537u, 199000u}) {
            StreamReader over(bytes);
            over.stream.maxBytesPerRead = crumb;
            Skip(over.document, 3);
            EXPECT_EQ(ReadU32(over.document), LoadU32(&bytes[3]));
            ASSERT_EQ(Read(over.document, got.data(), count), count);
            EXPECT_TRUE(std::equal(bytes.begin() + 7, bytes.begin() + 7 + ptrdiff_t(count), got.begin()));
            EXPECT_EQ(Position(over.document), 7 + count);
        }
    }
    StreamReader cut({1, 2});
    EXPECT_EQ(ReadU32(cut.document), 0u);
    EXPECT_EQ(Position(cut.document), 2u);
}

TEST(ByteReader, IsNotLedAstrayByItsStream) {
    StreamReader stuck(Bytes(10)), boasting(Bytes(70000, 9));
    stuck.stream.canSeek = false;
    EXPECT_EQ(Skip(stuck.document, 65537), 65537) << "long skips count in full";
    EXPECT_EQ(Position(stuck.document), 65537u);
    EXPECT_EQ(Skip(stuck.document, 65536), 10) << "the stream never moved";
    EXPECT_EQ(Skip(stuck.document, -5), 0);

    boasting.stream.claimsMore = true;
    Bytes got(size_t{64} << 20);
    EXPECT_EQ(Read(boasting.document, got.data(), 66000), 66000u);
    EXPECT_LE(boasting.document.reader.filled, PsdByteReader::kBufferSize);
    for (int i = 0; i < 32; ++i) EXPECT_LE(Read(boasting.document, got.data(), got.size()), got.size());
    EXPECT_EQ(Read(boasting.document, got.data(), got.size()), 0u) << "not believed for ever";
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
    const uint32_t cases[][6] = {
        {0, 0xFF12, 0x80FF, 0x0100, 0, 0xFFFF8001u},    {1, 30 << 8, 100 << 8, 50 << 8, 0, 0xFFFF7F00u},
        {2, 0, 0x6400, 0, 0xFF, 0xFFFF00FFu},           {2, 0, 0, 0, 0x0100, 0xFF000000u},
        {7, 54 << 8, 81 << 8, 70 << 8, 0, 0xFFFF0000u}, {5, 1, 2, 3, 4, 0x00FFFFFFu},
    };
    for (const auto& [space, c0, c1, c2, c3, want] : cases) {
        StreamReader over(ByteWriter().U16(space).U16(c0).U16(c1).U16(c2).U16(c3).U8(77));
        EXPECT_EQ(ReadColor(over.document), want);
        EXPECT_EQ(ReadU8(over.document), 77u);
    }
}

TEST(ByteReader, NothingLargeIsAllocatedOnAFieldsWord) {
    EXPECT_TRUE(MayAllocate(64u << 20, 0, kRawExpansion) && MayAllocate(1u << 30, 11u << 20, kRawExpansion));
    EXPECT_FALSE(MayAllocate((64u << 20) + 1, 26, kZipExpansion));
    EXPECT_FALSE(MayAllocate(1u << 30, 10u << 20, kRawExpansion));
}

// Random trees, of every type and every form of reference sooner or later.
class RandomTree {
public:
    explicit RandomTree(uint32_t number) : m_random(number) {}

    void Items(ByteWriter& out, int depth) {
        Class(out);
        const uint32_t count = Pick(4);
        out.U32(count);
        for (uint32_t i = 0; i < count; ++i) Value(out.Id(Key()), depth);
    }
    void Value(ByteWriter& out, int depth) {
        const uint32_t type = Pick(depth > 0 ? 14 : 11), count = Pick(4);
        out.Text(
            std::string_view("longdoubboolUntFTEXTalisnopeenumtypeGlbCobj ObjcGlbOVlLs").substr(4 * type, 4));
        const size_t sizes[] = {4, 8, 1, 12};
        if (type < 4) out.Zeros(sizes[type]);
        if (type == 4) out.Unicode(u"abc");
        if (type == 5) out.Counted(Bytes(count));
        if (type == 7) Enum(out);  // after a type that nobody knows
        if (type == 8 || type == 9) Class(out);
        if (type == 10) Reference(out);
        if (type == 11 || type == 12) Items(out, depth - 1);
        if (type < 13) return;
        out.U32(count);
        for (uint32_t i = 0; i < count; ++i) Value(out, depth - 1);
    }
    void Class(ByteWriter& out) { out.Unicode(std::u16string(Pick(3), u'n')).Id(Key()); }
    void Enum(ByteWriter& out) { out.Id(Key()).Id(Key()); }

private:
    void Reference(ByteWriter& out) {
        const uint32_t count = Pick(5);
        out.U32(count);
        for (uint32_t i = 0; i < count; ++i) {
            const uint32_t form = Pick(8);
            out.Text(std::string_view("propClssEnmrreleIdntindxnamenone").substr(4 * form, 4));
            if (form < 4) Class(out);
            if (form == 0) out.Id(Key());
            if (form == 2) Enum(out);
            if (form >= 3 && form <= 5) out.U32(form);
            if (form == 6) out.Unicode(u"x");
        }
    }
    uint32_t Pick(uint32_t below) { return std::uniform_int_distribution<uint32_t>(0, below - 1)(m_random); }
    std::string Key() { return std::string(1 + Pick(6), 'k'); }
    std::mt19937 m_random;
};

void ExpectConsumed(const ByteWriter& data, void (*walk)(PsdDocument&), const std::string& what) {
    StreamReader over(ByteWriter(data).Zeros(8));
    walk(over.document);
    EXPECT_EQ(Position(over.document), data.size()) << what;
}

TEST(Descriptor, WalksConsumeExactlyTheirData) {
    for (uint32_t number = 0; number < 3000; ++number) {
        ByteWriter tree, name, value;
        RandomTree(number).Items(tree, 6);
        RandomTree(number).Class(name);
        RandomTree(number).Enum(value);
        ExpectConsumed(tree, SkipDescriptor, "tree " + std::to_string(number));
        ExpectConsumed(name, SkipClass, "class");
        ExpectConsumed(value, SkipEnum, "enumeration");
    }
    ByteWriter nested;
    for (int i = 0; i < 1 << 17; ++i) nested.U32(1).Text("VlLs");
    ExpectConsumed(nested.U32(0), SkipList, "depth belongs to the file");
}

TEST(Descriptor, CountsAndLengthsEndWithTheStream) {
    for (const char* type : {"VlLs", "alis", "TEXT", "enum", "obj ", "Objc"}) {
        StreamReader over(ByteWriter().I32(-1).Text(type).I32(-1).Text("long"));
        SkipList(over.document);
        EXPECT_EQ(ReadU8(over.document), 0);
        EXPECT_LT(over.stream.calls, 20u) << type;
    }
}

TEST(Descriptor, RowsGetTheirItemsAndTheRestIsPassedOver) {
    std::vector<int32_t> seen;
    const DescriptorItemRow rows[] = {{"wanted key", [](PsdDocument& document, uint32_t type, void* record) {
                                           EXPECT_EQ(type, FourCC("long"));
                                           static_cast<std::vector<int32_t>*>(record)->push_back(
                                               ReadI32(document));
                                           return PsdReadResult::kOk;
                                       }}};
    ByteWriter data;
    data.U32(4).Long("wanted", 5).Unit(std::string(300, 'x'), "#Pxl", 3).Long("wanted key", 7);
    data.ItemHead("tree", "Objc").ClassName("null").U32(1).Long("wanted key", 9);
    StreamReader over(ByteWriter(data).Zeros(8));
    EXPECT_EQ(ReadDescriptorItems(over.document, rows, &seen), PsdReadResult::kOk);
    EXPECT_EQ(seen, std::vector<int32_t>{7}) << "nested items are not ours";
    EXPECT_EQ(Position(over.document), data.size());
}

}  // namespace
}  // namespace tessary::test
