#include "document/read_driver.h"

#include <gtest/gtest.h>

#include "document/byte_reader.h"
#include "tests/support/document_builder.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {
namespace {

DocumentBuilder SmallRgb() { return DocumentBuilder(kColorRgb, 8, 3, 2, 2); }

Bytes Patched(Bytes file, size_t offset, uint16_t value) {
    file[offset] = static_cast<uint8_t>(value >> 8);
    file[offset + 1] = static_cast<uint8_t>(value);
    return file;
}

TEST(ReadDriver, HeadersGiveTheirCodes) {
    const Bytes good = SmallRgb().Build();
    constexpr size_t kDepthAt = 22, kModeAt = 24;
    const struct {
        const char* what;
        Bytes file;
        PsdReadResult want;
    } cases[] = {
        {"sound", good, PsdReadResult::kOk},
        {"version 2", SmallRgb().Version(2).Build(), PsdReadResult::kOk},
        {"version 0", SmallRgb().Version(0).Build(), PsdReadResult::kBadVersion},
        {"version 3", SmallRgb().Version(3).Build(), PsdReadResult::kBadVersion},
        {"signature", SmallRgb().Signature("8BPB").Version(3).Build(), PsdReadResult::kBadSignature},
        {"25 bytes", Bytes(good.begin(), good.begin() + 25), PsdReadResult::kShortRead},
        {"nothing but the header", Bytes(good.begin(), good.begin() + 26), PsdReadResult::kOk},
        {"empty", {}, PsdReadResult::kShortRead},
        {"depth before mode", Patched(Patched(good, kDepthAt, 24), kModeAt, 5), PsdReadResult::kBadDepth},
        {"compression 4", SmallRgb().MergedData(ByteWriter().U16(4)).Build(), PsdReadResult::kBadCompression},
        {"no channels", DocumentBuilder(3, 8, 0, 2, 2).Build(), PsdReadResult::kOk},
    };
    for (const auto& test : cases) {
        const Opened opened = OpenBytes(test.file);
        EXPECT_EQ(opened.result, test.want) << test.what;
        EXPECT_EQ(static_cast<bool>(opened.document), test.want == PsdReadResult::kOk) << test.what;
    }
    for (uint32_t value = 0; value < 40; ++value) {
        const bool depthFits = value == 1 || value == 8 || value == 16 || value == 32;
        EXPECT_EQ(OpenBytes(Patched(good, kDepthAt, static_cast<uint16_t>(value)), kReadHeader).result,
                  depthFits ? PsdReadResult::kOk : PsdReadResult::kBadDepth);
        const bool modeFits = value < 10 && value != 5 && value != 6;
        EXPECT_EQ(OpenBytes(Patched(good, kModeAt, static_cast<uint16_t>(value)), kReadHeader).result,
                  modeFits ? PsdReadResult::kOk : PsdReadResult::kBadColorMode);
    }
}

TEST(ReadDriver, HeaderFieldsAreKeptWithoutBounds) {
    ByteWriter header;
    header.Text("8BPS")
        .U16(1)
        .Raw({9, 9, 9, 9, 9, 9})
        .U16(0xABCD)
        .U32(0x89ABCDEF)
        .U32(0xFEDCBA98)
        .U16(16)
        .U16(9);
    const Opened opened = OpenBytes(header, kReadHeader);
    ASSERT_EQ(opened.result, PsdReadResult::kOk);
    EXPECT_EQ(opened.document->channels, 0xABCD);
    EXPECT_EQ(opened.document->colorChannels, 0xABCD);
    EXPECT_EQ(opened.document->height, 0x89ABCDEFu);
    EXPECT_EQ(opened.document->width, 0xFEDCBA98u);
    EXPECT_EQ(opened.document->depth, 16);
    EXPECT_EQ(opened.document->colorMode, kColorLab);
    EXPECT_EQ(opened.document->stage, kStageDone);
}

TEST(ReadDriver, ColorModeDataBecomesAPaletteOfPlanarTables) {
    Bytes tables(768);
    for (size_t i = 0; i < tables.size(); ++i)
        tables[i] = static_cast<uint8_t>(i < 256 ? i : i < 512 ? 255 - i : i * 3);
    const Bytes hdr = ByteWriter().Text("hdrt").Zeros(20), duotone = ByteWriter().U32(0x00010001).Zeros(20);
    const struct {
        const char* what;
        Bytes data;
        bool hasPalette;
        size_t entries;
        uint32_t last;
    } cases[] = {
        {"768 bytes", tables, true, 256, PackPixel(255, 255, 0, (767 * 3) & 255)},
        {"two bytes", {1, 2}, true, 0, 0},
        {"none", {}, false, 0, 0},
        {"seven bytes", {1, 2, 3, 4, 5, 6, 7}, true, 2, 0xFF020406},
        {"tone curves", hdr, false, 0, 0},
        {"duotone", duotone, false, 0, 0},
    };
    for (const auto& test : cases) {
        const Bytes file =
            DocumentBuilder(kColorIndexed, 8, 1, 1, 1).ColorModeData(test.data).Resolution(72, 1).Build();
        for (uint32_t mode = 0; mode <= 6; ++mode) {
            const Opened opened = OpenBytes(file, mode);
            ASSERT_EQ(opened.result, PsdReadResult::kOk) << test.what;
            const Owned<uint32_t>& palette = opened.document->palette;
            const bool wants = mode != kReadHeader && mode != kReadProfile;
            EXPECT_EQ(static_cast<bool>(palette), wants && test.hasPalette) << test.what << " mode " << mode;
            EXPECT_EQ(palette.count(), wants ? test.entries : 0u) << test.what;
            if (palette.count()) {
                EXPECT_EQ(palette[palette.count() - 1], test.last) << test.what;
            }
            // What follows was found.
            if (mode < 4) {
                EXPECT_EQ(opened.document->resources.resolution.present, true) << test.what;
            }
        }
    }
}

TEST(ReadDriver, ModesDecideWhichSectionsAreRead) {
    LayerBuilder layer({0, 0, 1, 1});
    layer.Solid(0xFF112233);
    const Bytes plain = SmallRgb().Build(), layered = SmallRgb().Layer(layer).Build();
    const bool merged[2][7] = {{true, false, true, true, false, false, false},
                               {true, false, false, true, false, false, false}};
    for (uint32_t mode = 0; mode <= 6; ++mode) {
        const Opened without = OpenBytes(plain, mode), with = OpenBytes(layered, mode);
        ASSERT_TRUE(without.document && with.document) << mode;
        EXPECT_EQ(static_cast<bool>(without.document->mergedPixels), merged[0][mode]) << mode;
        if (mode == kReadNoThumbnail && with.document->layerCount == 0) continue;
        EXPECT_EQ(static_cast<bool>(with.document->mergedPixels), merged[1][mode]) << mode;
    }
}

TEST(ReadDriver, StagesAdvanceOnSuccessOnly) {
    PsdDocument beyond;
    beyond.streamSize = 100;
    beyond.stage = 6;
    EXPECT_EQ(RunReadStages(beyond), PsdReadResult::kUnknownStage);
    beyond.stage = kStageDone;
    EXPECT_EQ(RunReadStages(beyond), PsdReadResult::kOk);

    MemoryStream stream(ByteWriter().U32(12).Text("8BIX").Zeros(8));
    PsdDocument resources;
    resources.reader.stream = &stream;
    resources.streamSize = 16;
    resources.stage = kStageResources;
    EXPECT_EQ(RunReadStages(resources), PsdReadResult::kBadResourceSignature);
    EXPECT_EQ(resources.stage, kStageResources);
}

TEST(ReadDriver, OpeningNeedsAStreamAndLetsGoOfIt) {
    const Bytes file = SmallRgb().Build();
    Owned<PsdDocument> document = std::move(OpenBytes(file).document);
    EXPECT_EQ(OpenDocument(document, nullptr, 0), PsdReadResult::kNoStream);
    EXPECT_FALSE(document);
    EXPECT_EQ(CloseDocument(document), PsdReadResult::kNoDocument);

    MemoryStream stream(file);
    stream.position = 7;  // rewound first
    ASSERT_EQ(OpenDocument(document, &stream, 0), PsdReadResult::kOk);
    EXPECT_EQ(document->reader.stream, nullptr);
    EXPECT_FALSE(document->reader.buffer);
    EXPECT_EQ(stream.references, 1);
    EXPECT_EQ(CloseDocument(document), PsdReadResult::kOk);
    EXPECT_FALSE(document);
}

TEST(ReadDriver, StreamSizesAreCountedIn32Bits) {
    const Bytes file = SmallRgb().Build();
    const struct {
        uint64_t size;
        PsdReadResult want;
    } cases[] = {
        {0, PsdReadResult::kShortRead},
        {uint64_t{1} << 31, PsdReadResult::kShortRead},
        {uint64_t{1} << 32, PsdReadResult::kShortRead},
        {(uint64_t{1} << 32) + 1, PsdReadResult::kOk},
        {uint64_t{1} << 63, PsdReadResult::kOk},
        {~uint64_t{0}, PsdReadResult::kOk},
    };
    for (const auto& test : cases) {
        MemoryStream stream(file);
        stream.hasSize = true;
        stream.size = test.size;
        Owned<PsdDocument> document;
        EXPECT_EQ(OpenDocument(document, &stream, 0), test.want) << std::hex << test.size;
        if (test.want != PsdReadResult::kOk) {
            EXPECT_EQ(stream.bytesRead, 0u);
        }
    }
}

// Documents in which every piece of the reader has work.
std::vector<Bytes> RichDocuments() {
    Bytes planes(4 * 6 * 5);
    for (size_t i = 0; i < planes.size(); ++i) planes[i] = static_cast<uint8_t>(i * i >> 3);
    const Bytes slices = ByteWriter().U32(6).RectTlbr({0, 0, 6, 5}).Unicode(u"s").U32(1).Zeros(69);
    const Bytes urls = ByteWriter().U32(1).U32(1).U32(2).Unicode(u"u");
    std::vector<Bytes> files;
    for (const uint16_t compression : {uint16_t{0}, uint16_t{1}, uint16_t{2}, uint16_t{3}}) {
        files.push_back(DocumentBuilder(kColorRgb, 8, 4, 6, 5)
                            .Resolution(300, 1)
                            .Resource(1053, ByteWriter().U32(3).U32(4))
                            .Resource(1045, ByteWriter().Unicode(u"one"), "odd")
                            .Resource(1006, ByteWriter().Pascal("two", 1))
                            .Resource(1036, Bytes(40, 1))
                            .Resource(1039, Bytes(21, 2))
                            .Resource(1050, slices)
                            .Resource(1054, urls)
                            .Resource(1060, Bytes(9, 3))
                            .HasRealMergedData(true)
                            .Merged(planes, compression)
                            .Build());
    }
    Bytes palette(768, 5);
    files.push_back(DocumentBuilder(kColorIndexed, 8, 1, 6, 20)
                        .ColorModeData(palette)
                        .Resource(1047, ByteWriter().U16(3))
                        .Merged(planes, 1)
                        .Build());
    return files;
}

TEST(ReadDriver, StreamsInCrumbsGiveTheSamePixels) {
    for (const Bytes& file : RichDocuments()) {
        const Opened whole = OpenBytes(file);
        MemoryStream stream(file);
        stream.maxBytesPerRead = 1;
        Owned<PsdDocument> crumbs;
        ASSERT_EQ(OpenDocument(crumbs, &stream, kReadEverything), PsdReadResult::kOk);
        ASSERT_TRUE(crumbs->mergedPixels && whole.document->mergedPixels);
        EXPECT_TRUE(std::ranges::equal(crumbs->mergedPixels.span(), whole.document->mergedPixels.span()));
    }
}

TEST(ReadDriver, EveryTruncationAndFailingCallEndsTheRead) {
    for (const Bytes& file : RichDocuments()) {
        for (uint32_t mode = 0; mode <= 6; ++mode) {
            for (size_t size = 0; size < file.size(); ++size) {
                const Opened opened =
                    OpenBytes(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size)), mode);
                EXPECT_EQ(static_cast<bool>(opened.document), opened.result == PsdReadResult::kOk) << size;
                if (size < 26) {
                    EXPECT_EQ(opened.result, PsdReadResult::kShortRead) << size;
                }
            }
            for (const bool failLater : {false, true}) {
                for (uint64_t call = 1, calls = 1; call <= calls; ++call) {
                    MemoryStream stream(file);
                    stream.maxBytesPerRead = 64;
                    stream.failCall = call;
                    stream.failLater = failLater;
                    Owned<PsdDocument> document;
                    const PsdReadResult result = OpenDocument(document, &stream, mode);
                    EXPECT_EQ(static_cast<bool>(document), result == PsdReadResult::kOk) << call;
                    calls = stream.calls;
                }
            }
        }
    }
}

#if defined(TESSARY_FAULT_INJECTION)
TEST(ReadDriver, EveryAllocationMayFail) {
    for (const Bytes& file : RichDocuments()) {
        for (uint32_t mode = 0; mode <= 6; ++mode) {
            for (uint64_t n = 1;; ++n) {
                MemoryStream stream(file);
                FailAllocationNumber(n);
                Owned<PsdDocument> document;
                const PsdReadResult result = OpenDocument(document, &stream, mode);
                const bool injected = AllocationCount() >= n;
                FailAllocationNumber(0);
                // zlib can do without its window when the output was done already.
                EXPECT_EQ(static_cast<bool>(document), result == PsdReadResult::kOk);
                if (!injected) {
                    EXPECT_EQ(result, PsdReadResult::kOk);
                    break;
                }
                EXPECT_NE(result, PsdReadResult::kOk) << "mode " << mode << " allocation " << n;
            }
        }
    }
}

TEST(ReadDriver, HugeClaimsFailSmall) {
    const Bytes header = DocumentBuilder(kColorRgb, 32, 56, 30000, 30000).MergedData({}).Build();
    const Bytes bits = DocumentBuilder(kColorBitmap, 1, 1, 23000, 23000).MergedData({}).Build();
    const Bytes noPlanes = DocumentBuilder(kColorRgb, 8, 0, 30000, 30000).MergedData({}).Build();
    const Bytes beyond = DocumentBuilder(kColorRgb, 32, 65535, 0xFFFFFFFF, 0xFFFFFFFF).MergedData({}).Build();
    const Bytes palette = ByteWriter().Raw(Bytes(header.begin(), header.begin() + 26)).U32(0x7FFFFFFF);
    const Bytes profile = ByteWriter()
                              .Raw(Bytes(header.begin(), header.begin() + 30))
                              .U32(0x7FFFFFFF)
                              .Text("8BIM")
                              .U16(1039)
                              .U16(0)
                              .U32(0x7FFFFFF0)
                              .U32(0);
    for (const Bytes& file : {header, bits, noPlanes, beyond, palette, profile}) {
        for (const uint32_t compression : {0u, 1u, 2u, 3u}) {
            for (const bool sizeUnknown : {false, true}) {
                MemoryStream stream(ByteWriter().Raw(file).U16(compression).U16(0));
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
