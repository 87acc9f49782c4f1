#include "document/descriptor.h"

#include <gtest/gtest.h>

#include <random>

#include "document/big_endian.h"
#include "document/byte_reader.h"
#include "tests/support/document_builder.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {
namespace {

constexpr size_t kTail = 8;  // what must be left over by a walk

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
        switch (Pick(depth > 0 ? 15 : 11)) {
        case 0: out.Text("long").U32(Pick(9)); break;
        case 1: out.Text("doub").F64(1); break;
        case 2: Enum(out.Text("enum")); break;
        case 3: out.Text("TEXT").Unicode(u"abc"); break;
        case 4: out.Text("bool").U8(1); break;
        case 5: out.Text("UntF").Text("#Prc").F64(50); break;
        case 6: out.Text("alis").Counted(Bytes(Pick(5))); break;
        case 7: Class(out.Text("type")); break;
        case 8: Class(out.Text("GlbC")); break;
        case 9: out.Text("nope"); break;
        case 10: Reference(out.Text("obj ")); break;
        case 11:
        case 12: Items(out.Text("Objc"), depth - 1); break;
        case 13: Items(out.Text("GlbO"), depth - 1); break;
        default: {
            const uint32_t count = Pick(4);
            out.Text("VlLs").U32(count);
            for (uint32_t i = 0; i < count; ++i) Value(out, depth - 1);
        }
        }
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
    StreamReader over(ByteWriter(data).Zeros(kTail));
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
    const Bytes cases[] = {
        ByteWriter().U32(0xFFFFFFFF),
        ByteWriter().U32(0xFFFFFFFF).Text("VlLs").U32(0xFFFFFFFF).Text("long"),
        ByteWriter().U32(2).Text("alis").U32(0xFFFFFFFF),
        ByteWriter().U32(2).Text("TEXT").U32(0xFFFFFFFF),
        ByteWriter().U32(3).Text("enum").U32(0xFFFFFFFF),
    };
    for (const Bytes& data : cases) {
        StreamReader over(data);
        SkipList(over.document);
        EXPECT_EQ(ReadU8(over.document), 0);
        EXPECT_LT(over.stream.calls, 20u);
    }
}

TEST(Descriptor, RowsGetTheirItemsAndTheRestIsPassedOver) {
    struct Seen {
        int32_t wanted = 0, calls = 0;
    } seen;
    const DescriptorItemRow rows[] = {{"wanted key", [](PsdDocument& document, uint32_t type, void* record) {
                                           Seen& here = *static_cast<Seen*>(record);
                                           ++here.calls;
                                           if (type == FourCC("long")) here.wanted = ReadI32(document);
                                           return PsdReadResult::kOk;
                                       }}};
    ByteWriter data;
    data.U32(4).Long("wanted", 5).Unit(std::string(300, 'x'), "#Pxl", 3).Long("wanted key", 7);
    data.ItemHead("tree", "Objc").ClassName("null").U32(1).Long("wanted key", 9);
    StreamReader over(ByteWriter(data).Zeros(kTail));
    EXPECT_EQ(ReadDescriptorItems(over.document, rows, &seen), PsdReadResult::kOk);
    EXPECT_EQ(seen.wanted, 7);
    EXPECT_EQ(seen.calls, 1) << "nested items are not ours";
    EXPECT_EQ(Position(over.document), data.size());
}

}  // namespace
}  // namespace tessary::test
