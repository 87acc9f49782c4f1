#include "document/descriptor.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "document/big_endian.h"
#include "document/byte_reader.h"
#include "tests/support/document_builder.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {
namespace {

struct ReaderOver {
    explicit ReaderOver(Bytes bytes) : stream(std::move(bytes)) { document.reader.stream = &stream; }
    MemoryStream stream;
    PsdDocument document;
};

constexpr size_t kTail = 8;  // what must be left over by a walk

TEST(Descriptor, WalksConsumeExactlyTheirData) {
    const Bytes empty = ByteWriter().ClassName("null").U32(0);
    const struct {
        const char* what;
        void (*walk)(PsdDocument&);
        Bytes data;
    } cases[] = {
        {"no items", SkipDescriptor, empty},
        {"key as id", SkipIdString, ByteWriter().U32(0).Text("abcd")},
        {"id of five", SkipIdString, ByteWriter().U32(5).Text("abcde")},
        {"three numbers", SkipList,
         ByteWriter().U32(3).Text("long").U32(1).Text("long").U32(2).Text("long").U32(3)},
        {"every type", SkipDescriptor,
         ByteWriter()
             .Unicode(u"name")
             .Id("some class")
             .U32(13)
             .Bool("a   ", true)
             .Long("b   ", -1)
             .Double("c   ", 1.5)
             .Unit("d   ", "#Prc", 50)
             .Enum("e   ", "BlnM", "a long value")
             .ItemHead("f   ", "TEXT")
             .Unicode(u"text")
             .ItemHead("g   ", "alis")
             .Counted({1, 2, 3})
             .ItemHead("h   ", "type")
             .ClassName("cls ")
             .ItemHead("i   ", "GlbC")
             .ClassName("a class")
             .ItemHead("j   ", "Objc")
             .Raw(empty)
             .ItemHead("k   ", "GlbO")
             .Raw(empty)
             .ItemHead("l   ", "VlLs")
             .U32(1)
             .Text("bool")
             .U8(1)
             .ItemHead("m   ", "nope")},
        {"every form", SkipReference,
         ByteWriter()
             .U32(8)
             .Text("prop")
             .ClassName("Lyr ")
             .Id("Md  ")
             .Text("Clss")
             .ClassName("Lyr ")
             .Text("Enmr")
             .ClassName("Lyr ")
             .Id("Ordn")
             .Id("Trgt")
             .Text("rele")
             .ClassName("Lyr ")
             .U32(4)
             .Text("Idnt")
             .U32(1)
             .Text("indx")
             .U32(1)
             .Text("name")
             .Unicode(u"x")
             .Text("none")},
        {"class", SkipClass, ByteWriter().ClassName("abcdef")},
        {"enumeration", SkipEnum, ByteWriter().Id("BlnM").Id("linearBurn")},
    };
    for (const auto& test : cases) {
        ReaderOver over(ByteWriter().Raw(test.data).Zeros(kTail));
        test.walk(over.document);
        EXPECT_EQ(Position(over.document), test.data.size()) << test.what;
    }
}

// Every walk against a plain recursive one, over random trees.
class RandomTree {
public:
    explicit RandomTree(uint32_t number) : m_random(number) {}

    void Items(ByteWriter& out, int depth) {
        out.Unicode(std::u16string(Pick(3), u'n')).Id(Key());
        const uint32_t count = Pick(4);
        out.U32(count);
        for (uint32_t i = 0; i < count; ++i) Value(out.Id(Key()), depth);
    }
    void Value(ByteWriter& out, int depth) {
        switch (Pick(depth > 0 ? 7 : 5)) {
        case 0: out.Text("long").U32(Pick(9)); break;
        case 1: out.Text("doub").F64(1); break;
        case 2: out.Text("enum").Id(Key()).Id(Key()); break;
        case 3: out.Text("TEXT").Unicode(u"abc"); break;
        case 4: out.Text("obj ").U32(1).Text("Enmr").ClassName(Key()).Id(Key()).Id(Key()); break;
        case 5: Items(out.Text("Objc"), depth - 1); break;
        default: {
            const uint32_t count = Pick(4);
            out.Text("VlLs").U32(count);
            for (uint32_t i = 0; i < count; ++i) Value(out, depth - 1);
        }
        }
    }

private:
    uint32_t Pick(uint32_t below) { return std::uniform_int_distribution<uint32_t>(0, below - 1)(m_random); }
    std::string Key() { return std::string(1 + Pick(6), 'k'); }
    std::mt19937 m_random;
};

TEST(Descriptor, RandomTreesAreConsumedWhole) {
    for (uint32_t number = 0; number < 2000; ++number) {
        ByteWriter data;
        RandomTree(number).Items(data, 6);
        ReaderOver over(ByteWriter(data).Zeros(kTail));
        SkipDescriptor(over.document);
        ASSERT_EQ(Position(over.document), data.size()) << "tree " << number;
    }
}

TEST(Descriptor, DepthBelongsToTheFile) {
    ByteWriter nested;
    for (int i = 0; i < 1 << 17; ++i) nested.U32(1).Text("VlLs");
    nested.U32(0);
    ReaderOver over(ByteWriter(nested).Zeros(kTail));
    SkipList(over.document);
    EXPECT_EQ(Position(over.document), nested.size());
}

TEST(Descriptor, CountsAndLengthsEndWithTheStream) {
    const Bytes cases[] = {
        ByteWriter().U32(0xFFFFFFFF),
        ByteWriter().U32(0xFFFFFFFF).Text("VlLs").U32(0xFFFFFFFF).Text("long"),
        ByteWriter().U32(2).Text("alis").U32(0xFFFFFFFF),
        ByteWriter().U32(2).Text("TEXT").U32(0xFFFFFFFF),
        ByteWriter().U32(3).Text("enum").U32(0xFFFFFFFF),
    };
    for (const Bytes& data : cases) {
        ReaderOver over(data);
        SkipList(over.document);
        EXPECT_EQ(ReadU8(over.document), 0);
        EXPECT_LT(over.stream.calls, 20u);
    }
}

TEST(Descriptor, RowsGetTheirItemsAndTheRestIsPassedOver) {
    struct Seen {
        int32_t wanted = 0;
        int calls = 0;
    };
    const DescriptorItemRow rows[] = {{"wanted key", [](PsdDocument& document, uint32_t type, void* record) {
                                           Seen& seen = *static_cast<Seen*>(record);
                                           ++seen.calls;
                                           if (type == FourCC("long")) seen.wanted = ReadI32(document);
                                           return PsdReadResult::kOk;
                                       }}};
    const std::string longKey(300, 'x');
    const ByteWriter data = ByteWriter()
                                .U32(4)
                                .Long("wanted", 5)
                                .Unit(longKey, "#Pxl", 3)
                                .Long("wanted key", 7)
                                .ItemHead("tree", "Objc")
                                .ClassName("null")
                                .U32(1)
                                .Long("wanted key", 9);
    ReaderOver over(ByteWriter(data).Zeros(kTail));
    Seen seen;
    EXPECT_EQ(ReadDescriptorItems(over.document, rows, &seen), PsdReadResult::kOk);
    EXPECT_EQ(seen.wanted, 7);
    EXPECT_EQ(seen.calls, 1) << "nested items are not ours";
    EXPECT_EQ(Position(over.document), data.size());
}

}  // namespace
}  // namespace tessary::test
