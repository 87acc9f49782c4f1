#include "document/read_driver.h"

#include <gtest/gtest.h>

#include "tests/support/document_builder.h"

namespace tessary::test {
namespace {

DocumentBuilder SmallRgb() { return DocumentBuilder(kColorRgb, 8, 3, 2, 2); }

Bytes Head(const Bytes& file, ptrdiff_t size) { return Bytes(file.begin(), file.begin() + size); }

TEST(ReadDriver, HeadersGiveTheirCodes) {
    using enum PsdReadResult;
    const Bytes good = SmallRgb().Build();
    const std::tuple<const char*, Bytes, PsdReadResult> cases[] = {
        {"version 2", SmallRgb().Version(2).Build(), kOk},
        {"version 0", SmallRgb().Version(0).Build(), kBadVersion},
        {"version 3", SmallRgb().Version(3).Build(), kBadVersion},
        {"signature", SmallRgb().Signature("8BPB").Version(3).Build(), kBadSignature},
        {"depth before mode", DocumentBuilder(5, 24, 3, 2, 2).Build(), kBadDepth},
        {"empty", {}, kShortRead},
        {"25 bytes", Head(good, 25), kShortRead},
        {"nothing but the header", Head(good, 26), kOk},
        {"compression 4", SmallRgb().MergedData({0, 4}).Build(), kBadCompression},
        {"no channels", DocumentBuilder(3, 8, 0, 2, 2).Build(), kOk},
        {"rows of nothing", DocumentBuilder(0, 1, 1, 0, 0xFFFFFFFF).MergedData({}).Build(), kOk},
    };
    for (const auto& [what, file, want] : cases) {
        const Opened opened = OpenBytes(file);
        EXPECT_EQ(opened.result, want) << what;
        EXPECT_EQ(static_cast<bool>(opened.document), want == kOk) << what;
    }
    for (uint32_t value = 0; value < 40; ++value) {
        const bool depthFits = value == 1 || value == 8 || value == 16 || value == 32;
        const bool modeFits = value < 10 && value != 5 && value != 6;
        EXPECT_EQ(OpenBytes(DocumentBuilder(3, value, 3, 2, 2).Build(), kReadHeader).result,
                  depthFits ? kOk : kBadDepth);
        EXPECT_EQ(OpenBytes(DocumentBuilder(value, 8, 3, 2, 2).Build(), kReadHeader).result,
                  modeFits ? kOk : kBadColorMode);
    }
    DocumentBuilder boundless(kColorLab, 16, 0xABCD, 0xFEDCBA98, 0x89ABCDEF);
    const Opened opened = OpenBytes(boundless.MergedData({}).Build(), kReadHeader);
    EXPECT_TRUE(opened.document->channels == 0xABCD && opened.document->colorChannels == 0xABCD);
    EXPECT_TRUE(opened.document->width == 0xFEDCBA98 && opened.document->height == 0x89ABCDEF);
}

TEST(ReadDriver, PassesOverPixelsThatNobodyWants) {
    DocumentBuilder large(kColorRgb, 8, 3, 1000, 1000);
    large.Resource(1060, Bytes(100)).Layer(LayerBuilder({0, 0, 1000, 1000}).Solid(7));
    for (const uint32_t mode : {kReadHeader, kReadThumbnail, kReadMetadata, kReadProfile}) {
        MemoryStream stream(large.Build());
        Owned<PsdDocument> document;
        EXPECT_EQ(OpenDocument(document, &stream, mode), PsdReadResult::kOk);
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
        {ByteWriter().Text("hdrt").Zeros(20)},     // tone curves
        {ByteWriter().U32(0x00010001).Zeros(20)},  // duotone
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
    EXPECT_EQ(RunReadStages(staged), PsdReadResult::kUnknownStage);
    staged.stage = kStageDone;
    EXPECT_EQ(RunReadStages(staged), PsdReadResult::kOk);
    MemoryStream damaged(ByteWriter().U32(12).Text("8BIX").Zeros(8));
    staged.reader.stream = &damaged;
    staged.stage = kStageResources;
    EXPECT_EQ(RunReadStages(staged), PsdReadResult::kBadResourceSignature);
    EXPECT_EQ(staged.stage, kStageResources);

    MemoryStream stream(SmallRgb().Build());
    stream.position = 7;  // rewound first
    Owned<PsdDocument> document;
    ASSERT_EQ(OpenDocument(document, &stream, 0), PsdReadResult::kOk);
    EXPECT_FALSE(document->reader.stream || document->reader.buffer);
    EXPECT_EQ(stream.references, 1);
    EXPECT_EQ(OpenDocument(document, nullptr, 0), PsdReadResult::kNoStream);
    EXPECT_FALSE(document);
    EXPECT_EQ(CloseDocument(document), PsdReadResult::kNoDocument);

    constexpr uint64_t kOne = 1;  // sizes are counted in 32 bits
    for (const uint64_t size : {uint64_t{0}, kOne << 31, kOne << 32, (kOne << 32) + 1, kOne << 63, ~kOne}) {
        MemoryStream sized(SmallRgb().Build());
        sized.hasSize = true;
        sized.size = size;
        const bool fits = size > kOne << 32;
        EXPECT_EQ(OpenDocument(document, &sized, 0), fits ? PsdReadResult::kOk : PsdReadResult::kShortRead);
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
        ByteWriter().Raw(Head(header, 26)).U32(0x7FFFFFFF),  // palette
        ByteWriter().Raw(Head(header, 30)).U32(99).Text("8BIM").U16(1039).U16(0).U32(0x7FFFFFF0),
    };
    for (uint32_t i = 0; i < 8 * std::size(files); ++i) {
        MemoryStream stream(ByteWriter().Raw(files[i / 8]).U16(i % 4));  // each compression
        stream.hasSize = i & 4;
        stream.size = ~uint64_t{0};
        FailAllocationNumber(0);
        Owned<PsdDocument> document;
        EXPECT_EQ(OpenDocument(document, &stream, kReadEverything), PsdReadResult::kOutOfMemory) << i;
        EXPECT_LE(LargestAllocation(), stream.hasSize ? 64u << 20 : 4u << 20) << i;
        EXPECT_LE(AllocationCount(), 10u) << i;
    }
}
#endif

}  // namespace
}  // namespace tessary::test
