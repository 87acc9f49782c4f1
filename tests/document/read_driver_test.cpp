#include "document/read_driver.h"

#include <gtest/gtest.h>

#include "document/big_endian.h"
#include "document/byte_reader.h"
#include "document/descriptor.h"
#include "tests/support/document_builder.h"

namespace tessary::test {
namespace {

using W = ByteWriter;
using enum PsdReadResult;

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
    EXPECT_TRUE(ReadU32(cut.document) == 0 && Position(cut.document) == 2);
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

TEST(ByteReader, ColorStructuresTakeTenBytes) {
    const uint32_t cases[][6] = {
        {0, 0xFF12, 0x80FF, 0x0100, 0, 0xFFFF8001u},    {1, 30 << 8, 100 << 8, 50 << 8, 0, 0xFFFF7F00u},
        {2, 0, 0x6400, 0, 0xFF, 0xFFFF00FFu},           {2, 0, 0, 0, 0x0100, 0xFF000000u},
        {7, 54 << 8, 81 << 8, 70 << 8, 0, 0xFFFF0000u}, {5, 1, 2, 3, 4, 0x00FFFFFFu},
    };
    for (const auto& [space, c0, c1, c2, c3, want] : cases) {
        StreamReader over(W().U16(space).U16(c0).U16(c1).U16(c2).U16(c3).U8(77));
        EXPECT_TRUE(ReadColor(over.document) == want && ReadU8(over.document) == 77) << std::hex << want;
    }
}

TEST(Descriptor, WalksConsumeExactlyTheirData) {
    W names, tree, lists;
    names.ItemHead("name", "obj ")
        .U32(8)
        .Text("prop")
        .ClassName("a")
        .Id("longer")
        .Text("Clss")
        .ClassName("bb");
    names.Text("Enmr").ClassName("kind").Id("type").Id("v").Text("rele").ClassName("c").U32(3).Text("Idnt");
    names.U32(7).Text("indx").U32(8).Text("name").Unicode(u"x").Text("none");
    tree.Unicode(u"nn").Id("class").U32(14).Long("l", 1).Double("doub", 2).Bool("on", true).Raw(names);
    tree.Unit("length", "#Pxl", 3).ItemHead("text", "TEXT").Unicode(u"abc").ItemHead("raw", "alis").U32(3);
    tree.Zeros(3)
        .ItemHead("unknown", "nope")
        .Enum("mode", "kind", "longer")
        .ItemHead("g", "GlbC")
        .ClassName("c");
    tree.ItemHead("c", "type").ClassName("c").ItemHead("o", "Objc").ClassName("null").U32(1).Long("in", 5);
    tree.ItemHead("p", "GlbO").ClassName("null").U32(0).ItemHead("list", "VlLs").U32(2).Text("long").U32(9);
    tree.Text("VlLs").U32(1).Text("bool").U8(1);
    for (int i = 0; i < 1 << 17; ++i) lists.U32(1).Text("VlLs");  // depth belongs to the file
    const std::pair<W, void (*)(PsdDocument&)> cases[] = {{tree, SkipDescriptor},
                                                          {lists.U32(0), SkipList},
                                                          {W().Unicode(u"n").Id("k"), SkipClass},
                                                          {W().Id("kkkkk").Id("kkkk"), SkipEnum}};
    for (const auto& [data, walk] : cases) {
        StreamReader over(W(data).Zeros(8));
        walk(over.document);
        EXPECT_EQ(Position(over.document), data.size());
    }
    for (const char* type : {"VlLs", "alis", "TEXT", "enum", "obj ", "Objc"}) {
        StreamReader over(W().I32(-1).Text(type).I32(-1).Text("long"));
        SkipList(over.document);
        EXPECT_EQ(ReadU8(over.document), 0);
        EXPECT_LT(over.stream.calls, 20u) << type << ": counts and lengths end with the stream";
    }
}

TEST(Descriptor, RowsGetTheirItemsAndTheRestIsPassedOver) {
    std::vector<int32_t> seen;
    const DescriptorItemRow rows[] = {{"wanted key", [](PsdDocument& document, uint32_t type, void* record) {
                                           EXPECT_EQ(type, FourCC("long"));
                                           const int32_t value = ReadI32(document);
                                           static_cast<std::vector<int32_t>*>(record)->push_back(value);
                                           return kOk;
                                       }}};
    W data = W().U32(4).Long("wanted", 5).Unit(std::string(300, 'x'), "#Pxl", 3).Long("wanted key", 7);
    data.ItemHead("tree", "Objc").ClassName("null").U32(1).Long("wanted key", 9);
    StreamReader over(W(data).Zeros(8));
    EXPECT_EQ(ReadDescriptorItems(over.document, rows, &seen), kOk);
    EXPECT_EQ(seen, std::vector<int32_t>{7}) << "nested items are not ours";
    EXPECT_EQ(Position(over.document), data.size());
}

DocumentBuilder SmallRgb() { return DocumentBuilder(kColorRgb, 8, 3, 2, 2); }

Bytes Head(const Bytes& file, ptrdiff_t size) { return Bytes(file.begin(), file.begin() + size); }

TEST(ReadDriver, HeadersGiveTheirCodes) {
    const Bytes good = SmallRgb().Build();
    const std::pair<Bytes, PsdReadResult> cases[] = {
        {SmallRgb().Version(2).Build(), kOk},
        {SmallRgb().Version(0).Build(), kBadVersion},
        {SmallRgb().Version(3).Build(), kBadVersion},
        {SmallRgb().Signature("8BPB").Version(3).Build(), kBadSignature},
        {DocumentBuilder(5, 24, 3, 2, 2).Build(), kBadDepth},
        {Head(good, 25), kShortRead},
        {Head(good, 26), kOk},
        {SmallRgb().MergedData({0, 4}).Build(), kBadCompression},
        {DocumentBuilder(3, 8, 0, 2, 2).Build(), kOk},
        {DocumentBuilder(0, 1, 1, 0, 0xFFFFFFFF).MergedData({}).Build(), kOk},
    };
    for (const auto& test : cases) {
        const Opened opened = OpenBytes(test.first);
        EXPECT_EQ(opened.result, test.second) << "row " << &test - cases;
        EXPECT_EQ(static_cast<bool>(opened.document), test.second == kOk);
    }
    for (uint32_t value = 0; value < 40; ++value) {
        const bool depthFits = value == 1 || value == 8 || value == 16 || value == 32;
        const bool modeFits = value < 10 && value != 5 && value != 6;
        EXPECT_EQ(OpenBytes(DocumentBuilder(3, value, 3, 2, 2).Build(), kReadHeader).result,
                  depthFits ? kOk : kBadDepth);
        EXPECT_EQ(OpenBytes(DocumentBuilder(value, 8, 3, 2, 2).Build(), kReadHeader).result,
                  modeFits ? kOk : kBadColorMode);
    }
}

TEST(ReadDriver, PassesOverPixelsThatNobodyWants) {
    DocumentBuilder large(kColorRgb, 8, 3, 1000, 1000);
    large.Resource(1060, Bytes(100)).Layer(LayerBuilder({0, 0, 1000, 1000}).Solid(7));
    for (const uint32_t mode : {kReadHeader, kReadThumbnail, kReadMetadata, kReadProfile}) {
        MemoryStream stream(large.Build());
        Owned<PsdDocument> document;
        EXPECT_EQ(OpenDocument(document, &stream, mode), kOk);
        EXPECT_LE(stream.bytesRead, 2 * PsdByteReader::kBufferSize) << mode;
    }
}

TEST(ReadDriver, ColorModeDataBecomesAPaletteOfPlanarTables) {
    Bytes tables(768);
    for (size_t i = 0; i < 768; ++i) tables[i] = static_cast<uint8_t>(i / 256 + i);
    const struct {
        Bytes data;
        bool hasPalette = false;
        size_t entries = 0;
        uint32_t last = 0, pixel = 0;  // the last entry; the pixel of index 0
    } cases[] = {
        {tables, true, 256, 0xFFFF0001, 0xFF000102},
        {{1, 2}, true, 0, 0, 0xFFFEFEFE},
        {{}},
        {{1, 2, 3, 4, 5, 6, 7}, true, 2, 0xFF020406, 0xFF010305},
        {W().Text("hdrt").Zeros(20)},     // tone curves
        {W().U32(0x00010001).Zeros(20)},  // duotone
    };
    for (const auto& test : cases) {
        DocumentBuilder builder(kColorIndexed, 8, 1, 1, 1);
        const Bytes file = builder.ColorModeData(test.data).Resolution(72, 1).Build();
        for (uint32_t mode = 0; mode <= 6; ++mode) {
            const Opened opened = OpenBytes(file, mode);
            ASSERT_TRUE(opened.document) << mode;
            const Owned<uint32_t>& palette = opened.document->palette;
            const bool wants = mode != kReadHeader && mode != kReadProfile;
            EXPECT_EQ(static_cast<bool>(palette), wants && test.hasPalette) << &test - cases << ' ' << mode;
            ASSERT_EQ(palette.count(), wants ? test.entries : 0u) << mode;
            EXPECT_EQ(palette.count() ? palette[palette.count() - 1] : test.last, test.last);
            EXPECT_EQ(opened.document->resources.resolution.present, mode < 4) << "what follows is found";
            for (const uint32_t pixel : opened.document->mergedPixels.span()) EXPECT_EQ(pixel, test.pixel);
        }
    }
}

TEST(ReadDriver, StagesAdvanceOnSuccessOnlyAndLetGoOfTheStream) {
    PsdDocument staged;
    staged.streamSize = 16;
    staged.stage = kStageDone + 1;
    EXPECT_EQ(RunReadStages(staged), kUnknownStage);
    MemoryStream damaged(W().U32(12).Text("8BIX").Zeros(8)), stream(SmallRgb().Build());
    staged.reader.stream = &damaged;
    staged.stage = kStageResources;
    EXPECT_EQ(RunReadStages(staged), kBadResourceSignature);
    EXPECT_EQ(staged.stage, kStageResources);

    stream.position = 7;  // rewound first
    Owned<PsdDocument> document;
    ASSERT_EQ(OpenDocument(document, &stream, 0), kOk);
    EXPECT_FALSE(document->reader.stream || document->reader.buffer || stream.references != 1);
    EXPECT_EQ(OpenDocument(document, nullptr, 0), kNoStream);
    EXPECT_FALSE(document);
    EXPECT_EQ(CloseDocument(document), kNoDocument);

    constexpr uint64_t kOne = 1;  // sizes are counted in 32 bits
    for (const uint64_t size : {uint64_t{0}, kOne << 31, kOne << 32, (kOne << 32) + 1, kOne << 63, ~kOne}) {
        MemoryStream sized(SmallRgb().Build());
        sized.hasSize = true;
        sized.size = size;
        const bool fits = size > kOne << 32;
        EXPECT_EQ(OpenDocument(document, &sized, 0), fits ? kOk : kShortRead);
        EXPECT_EQ(sized.bytesRead != 0, fits) << std::hex << size;
    }
}

#if defined(TESSARY_FAULT_INJECTION)
TEST(ReadDriver, HugeClaimsFailSmall) {
    const Bytes header = DocumentBuilder(kColorRgb, 32, 56, 30000, 30000).MergedData({}).Build();
    const Bytes files[] = {
        header,
        DocumentBuilder(kColorBitmap, 1, 1, 23000, 23000).MergedData({}).Build(),
        DocumentBuilder(kColorRgb, 8, 0, 30000, 30000).MergedData({}).Build(),
        DocumentBuilder(kColorRgb, 32, 65535, 0xFFFFFFFF, 0xFFFFFFFF).MergedData({}).Build(),
        W().Raw(Head(header, 26)).U32(0x7FFFFFFF),  // palette
        W().Raw(Head(header, 30)).U32(99).Text("8BIM").U16(1039).U16(0).U32(0x7FFFFFF0),
    };
    for (uint32_t i = 0; i < 8 * std::size(files); ++i) {
        MemoryStream stream(W().Raw(files[i / 8]).U16(i % 4));  // each compression
        stream.hasSize = i & 4;
        stream.size = ~uint64_t{0};
        FailAllocationNumber(0);
        Owned<PsdDocument> document;
        EXPECT_EQ(OpenDocument(document, &stream, kReadEverything), kOutOfMemory) << i;
        EXPECT_LE(LargestAllocation(), stream.hasSize ? 64u << 20 : 4u << 20) << i;
        EXPECT_LE(AllocationCount(), 10u) << i;
    }
}
#endif

}  // namespace
}  // namespace tessary::test
