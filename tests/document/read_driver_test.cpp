#include "document/read_driver.h"

#include <gtest/gtest.h>

#include "tests/support/document_builder.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {
namespace {

DocumentBuilder SmallRgb() { return DocumentBuilder(kColorRgb, 8, 3, 2, 2); }

Bytes Head(const Bytes& file, size_t size) {
    return Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size));
}

TEST(ReadDriver, HeadersGiveTheirCodes) {
    const Bytes good = SmallRgb().Build();
    const struct {
        const char* what;
        Bytes file;
        PsdReadResult want;
    } cases[] = {
        {"version 2", SmallRgb().Version(2).Build(), PsdReadResult::kOk},
        {"version 0", SmallRgb().Version(0).Build(), PsdReadResult::kBadVersion},
        {"version 3", SmallRgb().Version(3).Build(), PsdReadResult::kBadVersion},
        {"signature", SmallRgb().Signature("8BPB").Version(3).Build(), PsdReadResult::kBadSignature},
        {"depth before mode", DocumentBuilder(5, 24, 3, 2, 2).Build(), PsdReadResult::kBadDepth},
        {"empty", {}, PsdReadResult::kShortRead},
        {"25 bytes", Head(good, 25), PsdReadResult::kShortRead},
        {"nothing but the header", Head(good, 26), PsdReadResult::kOk},
        {"compression 4", SmallRgb().MergedData({0, 4}).Build(), PsdReadResult::kBadCompression},
        {"no channels", DocumentBuilder(3, 8, 0, 2, 2).Build(), PsdReadResult::kOk},
        {"four billion rows of nothing", DocumentBuilder(0, 1, 1, 0, 0xFFFFFFFF).MergedData({}).Build(),
         PsdReadResult::kOk},
    };
    for (const auto& test : cases) {
        const Opened opened = OpenBytes(test.file);
        EXPECT_EQ(opened.result, test.want) << test.what;
        EXPECT_EQ(static_cast<bool>(opened.document), test.want == PsdReadResult::kOk) << test.what;
    }
    for (uint32_t value = 0; value < 40; ++value) {
        const bool depthFits = value == 1 || value == 8 || value == 16 || value == 32;
        EXPECT_EQ(OpenBytes(DocumentBuilder(3, value, 3, 2, 2).Build(), kReadHeader).result,
                  depthFits ? PsdReadResult::kOk : PsdReadResult::kBadDepth);
        const bool modeFits = value < 10 && value != 5 && value != 6;
        EXPECT_EQ(OpenBytes(DocumentBuilder(value, 8, 3, 2, 2).Build(), kReadHeader).result,
                  modeFits ? PsdReadResult::kOk : PsdReadResult::kBadColorMode);
    }
    DocumentBuilder boundless(kColorLab, 16, 0xABCD, 0xFEDCBA98, 0x89ABCDEF);
    const Opened opened = OpenBytes(boundless.MergedData({}).Build(), kReadHeader);
    const PsdDocument& document = *opened.document;
    EXPECT_TRUE(document.channels == 0xABCD && document.colorChannels == 0xABCD);
    EXPECT_TRUE(document.width == 0xFEDCBA98 && document.height == 0x89ABCDEF);
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
        bool hasPalette;
        size_t entries;
        uint32_t last, pixel;  // the last entry; the pixel of index 0
    } cases[] = {
        {tables, true, 256, 0xFFFF0001, 0xFF000102},
        {{1, 2}, true, 0, 0, 0xFFFEFEFE},
        {{}, false, 0, 0, 0},
        {{1, 2, 3, 4, 5, 6, 7}, true, 2, 0xFF020406, 0xFF010305},
        {ByteWriter().Text("hdrt").Zeros(20), false, 0, 0, 0},     // tone curves
        {ByteWriter().U32(0x00010001).Zeros(20), false, 0, 0, 0},  // duotone
    };
    for (const auto& test : cases) {
        DocumentBuilder builder(kColorIndexed, 8, 1, 1, 1);
        const Bytes file = builder.ColorModeData(test.data).Resolution(72, 1).Build();
        for (uint32_t mode = 0; mode <= 6; ++mode) {
            const Opened opened = OpenBytes(file, mode);
            ASSERT_TRUE(opened.document) << mode;
            const Owned<uint32_t>& palette = opened.document->palette;
            const bool wants = mode != kReadHeader && mode != kReadProfile;
            EXPECT_EQ(static_cast<bool>(palette), wants && test.hasPalette)
                << test.entries << " mode " << mode;
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

// Documents in which every piece of the reader has work.
std::vector<Bytes> RichDocuments() {
    Bytes planes(4 * 6 * 5);
    for (size_t i = 0; i < planes.size(); ++i) planes[i] = static_cast<uint8_t>(i * i >> 3);
    std::vector<Bytes> files;
    for (const uint16_t compression : {uint16_t{0}, uint16_t{1}, uint16_t{3}}) {
        DocumentBuilder builder(kColorRgb, 8, 4, 6, 5);
        builder.Resolution(300, 1).Resource(1053, ByteWriter().U32(3).U32(4)).HasRealMergedData(true);
        builder.Resource(compression ? 1045 : 1006, ByteWriter().U32(1).Zeros(2), "odd");
        builder.Resource(1032, ByteWriter().Zeros(12).U32(2).Zeros(10)).Resource(1036, Bytes(40, 1));
        builder.Resource(1050, ByteWriter().U32(6).Zeros(20).U32(1).Zeros(69)).Resource(1039, Bytes(21, 2));
        builder.Resource(1054, ByteWriter().U32(1).Zeros(8).Unicode(u"u")).Resource(1060, Bytes(9, 3));
        files.push_back(builder.Merged(planes, compression).Build());
    }
    DocumentBuilder indexed(kColorIndexed, 8, 1, 6, 20);
    files.push_back(indexed.ColorModeData(Bytes(768, 5)).Merged(planes, 1).Build());
    return files;
}

TEST(ReadDriver, EveryTruncationAndEveryFailingCallEndsTheRead) {
    for (const Bytes& file : RichDocuments()) {
        for (uint32_t mode = 0; mode <= 6; ++mode) {
            for (size_t size = 0; size < file.size(); ++size) {
                const Opened opened = OpenBytes(Head(file, size), mode);
                EXPECT_EQ(static_cast<bool>(opened.document), opened.result == PsdReadResult::kOk) << size;
                EXPECT_TRUE(size >= 26 || opened.result == PsdReadResult::kShortRead) << size;
            }
            for (uint64_t call = 1, calls = 1; call <= 2 * calls + 1; ++call) {
                MemoryStream stream(file);
                stream.maxBytesPerRead = 64;
                stream.failCall = call / 2;
                stream.failLater = call % 2 == 0;
                Owned<PsdDocument> document;
                const PsdReadResult result = OpenDocument(document, &stream, mode);
                EXPECT_EQ(static_cast<bool>(document), result == PsdReadResult::kOk) << call;
                calls = stream.calls;
            }
        }
        MemoryStream crumbs(file);
        crumbs.maxBytesPerRead = 1;
        Owned<PsdDocument> document;
        ASSERT_EQ(OpenDocument(document, &crumbs, kReadEverything), PsdReadResult::kOk);
        const Opened whole = OpenBytes(file);
        EXPECT_TRUE(std::ranges::equal(document->mergedPixels.span(), whole.document->mergedPixels.span()));
    }
}

#if defined(TESSARY_FAULT_INJECTION)
TEST(ReadDriver, EveryAllocationMayFail) {
    for (const Bytes& file : RichDocuments()) {
        for (uint32_t mode = 0; mode <= 6; ++mode) {
            PsdReadResult result = PsdReadResult::kOutOfMemory;
            for (uint64_t n = 1; result != PsdReadResult::kOk; ++n) {
                MemoryStream stream(file);
                FailAllocationNumber(n);
                Owned<PsdDocument> document;
                result = OpenDocument(document, &stream, mode);
                EXPECT_EQ(result != PsdReadResult::kOk, AllocationCount() >= n)
                    << "mode " << mode << ", " << n;
            }
        }
    }
    FailAllocationNumber(0);
}

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
    for (const Bytes& file : files) {
        for (const uint32_t compression : {0u, 1u, 2u, 3u}) {
            for (const bool sizeUnknown : {false, true}) {
                MemoryStream stream(ByteWriter().Raw(file).U16(compression));
                stream.hasSize = sizeUnknown;
                stream.size = ~uint64_t{0};
                FailAllocationNumber(0);
                Owned<PsdDocument> document;
                EXPECT_EQ(OpenDocument(document, &stream, kReadEverything), PsdReadResult::kOutOfMemory);
                EXPECT_LE(LargestAllocation(), sizeUnknown ? 64u << 20 : 4u << 20);
                EXPECT_LE(AllocationCount(), 10u);
            }
        }
    }
}
#endif

}  // namespace
}  // namespace tessary::test
