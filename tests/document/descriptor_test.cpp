#include "document/descriptor.h"

#include <gtest/gtest.h>

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
