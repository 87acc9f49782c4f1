#include "document/read_driver.h"

#include <gtest/gtest.h>

#include <cstring>

#include "document/big_endian.h"
#include "document/byte_reader.h"
#include "document/descriptor.h"
#include "tools/document_builder.h"

namespace tessary::test {
namespace {

using W = ByteWriter;
using R = PsdImageResources;
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
    StreamReader cut({1, 2}), stuck(Bytes(10)), boasting(Bytes(10));
    boasting.stream.claimsMore = true;
    EXPECT_EQ(Read(boasting.document, got.data(), 4), 0u);
    EXPECT_EQ(boasting.document.reader.delivered, 0u);
    StreamReader endless(Bytes(1 << 17, 7));
    endless.document.reader.delivered = (uint64_t{1} << 31) - 1;
    EXPECT_EQ(ReadU8(endless.document), 7) << "not yet two gigabytes";
    endless.document.reader.buffer.Reset();
    EXPECT_EQ(ReadU8(endless.document), 0) << "no file is so long";
    EXPECT_EQ(ReadU32(cut.document), 0u);
    EXPECT_EQ(Position(cut.document), 2u);
    stuck.stream.canSeek = false;
    EXPECT_EQ(Skip(stuck.document, 65537), 65537) << "in full";
    EXPECT_EQ(Position(stuck.document), 65537u);
    EXPECT_EQ(Skip(stuck.document, 65536), 10) << "the stream never moved";
    EXPECT_EQ(Skip(stuck.document, -5), 0);
}

TEST(ByteReader, ColorStructuresTakeTenBytes) {
    const uint32_t cases[][6] = {
        {0, 0xFF12, 0x80FF, 0x0100, 0, 0xFFFF8001u},    {1, 30 << 8, 100 << 8, 50 << 8, 0, 0xFFFF7F00u},
        {2, 0, 0x6400, 0, 0xFF, 0xFFFF00FFu},           {2, 0, 0, 0, 0x0100, 0xFF000000u},
        {7, 54 << 8, 81 << 8, 70 << 8, 0, 0xFFFF0000u}, {5, 1, 2, 3, 4, 0x00FFFFFFu},
    };
    for (const auto& [space, c0, c1, c2, c3, want] : cases) {
        StreamReader over(W().U16(space).U16(c0).U16(c1).U16(c2).U16(c3).U8(77));
        EXPECT_EQ(ReadColor(over.document), want);
        EXPECT_EQ(ReadU8(over.document), 77) << std::hex << want;
    }
}

TEST(Descriptor, WalksConsumeExactlyTheirData) {
    W names, tree, lists;
    const W huge = W().U32(2).Text("alis").U32(0x80000003).Text("long").U32(1);
    names.ItemHead("name", "obj ").U32(8).Text("prop").ClassName("a").Id("longer").Text("Clss");
    names.ClassName("bb");
    names.Text("Enmr").ClassName("kind").Id("type").Id("v").Text("rele").ClassName("c").U32(3).Text("Idnt");
    names.U32(7).Text("indx").U32(8).Text("name").Unicode(u"x").Text("none");
    tree.Unicode(u"nn").Id("class").U32(14).Long("l", 1).Double("doub", 2).Bool("on", true).Raw(names);
    tree.Unit("length", "#Pxl", 3).ItemHead("text", "TEXT").Unicode(u"abc").ItemHead("raw", "alis").U32(3);
    tree.Zeros(3).ItemHead("unknown", "nope").Enum("mode", "kind", "longer");
    tree.ItemHead("g", "GlbC").ClassName("c");
    tree.ItemHead("c", "type").ClassName("c").ItemHead("o", "Objc").ClassName("null").U32(1).Long("in", 5);
    tree.ItemHead("p", "GlbO").ClassName("null").U32(0).ItemHead("list", "VlLs").U32(2).Text("long").U32(9);
    tree.Text("VlLs").U32(1).Text("bool").U8(1);
    for (int i = 0; i < 1 << 17; ++i) lists.U32(1).Text("VlLs");  // depth belongs to the file
    const std::pair<W, void (*)(PsdDocument&)> cases[] = {{tree, SkipDescriptor},
                                                          {lists.U32(0), SkipList},
                                                          {W().Unicode(u"n").Id("k"), SkipClass},
                                                          {W().Id("kkkkk").Id("kkkk"), SkipEnum},
                                                          // Lengths that no file can have.
                                                          {W().U32(1u << 31), SkipIdString},
                                                          {W().U32(1u << 30), SkipUnicodeString},
                                                          {W().U32(~0u).U32(~0u), SkipClass},
                                                          {huge, SkipList}};
    for (const auto& [data, walk] : cases) {
        StreamReader over(W(data).Zeros(8));
        walk(over.document);
        EXPECT_EQ(Position(over.document), data.size());
    }
}

DocumentBuilder Rgb(uint32_t channels = 3) { return DocumentBuilder(kColorRgb, 8, channels, 1, 1); }

TEST(ImageResources, EachIsReadInItsModes) {
    const W thumbnail = W().U32(1).U32(20).U32(10).U32(60).U32(600).U32(3).U16(24).U16(1).Raw({7, 8, 9});
    W slices = W().U32(6).RectTlbr({1, 2, 3, 4}).Unicode(u"s").U32(1);
    slices.U32(1).U32(2).U32(1).U32(77).Unicode(u"n").U32(3).RectTlbr({2, 1, 4, 3}).Unicode(u"url").U32(0);
    slices.U32(0).Unicode(u"alt").U8(1).Unicode(u"t").U32(4).U32(5).U32(0xFF102030);
    for (const auto& [exif, jpeg] : {std::pair<uint16_t, uint16_t>{1058, 1036}, {1059, 1033}}) {
        // Strangers around them: names of both parities, odd sizes, every signature.
        DocumentBuilder all = Rgb(5);
        all.Resource(4000, {1, 2, 3}, "odd", "MeSa").Resource(2500, {1, 2}, "even", "PHUT");
        all.Resource(1050, W().U32(7).Zeros(40)).Resource(4001, {1}, "", "AgHg");
        all.Resource(1005, W().Fixed(72.5).U16(1).U16(2).I32(-98304).U16(2).U16(3));
        all.Resource(1006, W().Pascal("one", 1).Pascal("x", 1).Pascal("", 1));
        all.Resource(1037, W().I32(-90)).Resource(1046, {0, 200}).Resource(1047, {0, 255});
        all.Resource(1050, slices).Resource(1053, W().U32(3).U32(8).U16(1));
        all.Resource(1057, W().U32(1).U8(0).Unicode(u"ab").Unicode(u"c").U32(5)).Resource(1060, {6});
        all.Resource(exif, {4, 5}, std::string(255, 'n'), "8BIM").Resource(4002, {}, "", "DCSR");
        all.Resource(jpeg, thumbnail).Resource(1039, {1, 2, 3});
        const Bytes file = all.Build();
        for (char mode = '0'; mode <= '6'; ++mode) {
            const Opened opened = OpenBytes(file, static_cast<uint32_t>(mode - '0'));
            ASSERT_EQ(opened.result, kOk) << mode;
            const R& r = opened.document->resources;
            const auto expect = [&](int id, const char* modes, bool got) {
                EXPECT_EQ(got, std::strchr(modes, mode) != nullptr) << id << " in mode " << mode;
            };
            expect(1005, "0123", r.resolution.horizontal == 72.5f && r.resolution.vertical == -1.5f);
            expect(1006, "023", r.alphaCount == 3 && r.alphas[1].name.text == std::string("x"));
            expect(1036, "04", r.thumbnail.rowBytes == 60 && r.thumbnail.data.count() == 3);
            EXPECT_EQ(r.thumbnail.redFirst, jpeg == 1033 && r.thumbnail.data);
            expect(1037, "02", r.globalAngle == -90);
            expect(1039, "026", r.profile.bytes.count() == 3);
            expect(1046, "023", r.paletteCount == 200 && r.transparencyIndex == 255);
            expect(1050, "02", r.slices.slices && r.slices.slices[0].color == 0xFF102030);
            expect(1053, "023", r.alphas && r.alphas[1].id == 8);
            expect(1057, "023", !r.versionInfo.hasRealMergedData && r.versionInfo.fileVersion == 5);
            expect(1058, "025", r.exif.bytes.count() == 2);
            expect(1060, "025", r.xmp.bytes.count() == 1);
        }
    }
}

TEST(ImageResources, PresenceIsNotedAndTheWalkStopsWhereTheModeIsServed) {
    const uint16_t kinds[] = {1005, 1039, 1036, 1058, 1060};
    for (size_t left = 0; left <= 5; ++left) {
        DocumentBuilder builder = Rgb();
        for (size_t i = 0; i < 5; ++i) builder.Resource(kinds[i], i == left ? Bytes() : Bytes(16, 1));
        const Opened opened = OpenBytes(builder.Build(), kReadHeader);
        ASSERT_TRUE(opened.document);
        const R& r = opened.document->resources;
        const bool seen[] = {r.resolution.present, r.profile.present, r.thumbnail.present, r.exif.present,
                             r.xmp.present};
        for (size_t i = 0; i < 5; ++i) EXPECT_EQ(seen[i], i != left) << "size 0 for " << kinds[left % 5];
        EXPECT_EQ(All(!r.profile.bytes, !r.thumbnail.data, !r.exif.bytes, !r.xmp.bytes),
                  All(true, true, true, true));
        // What stands behind the last one is looked at only while something is missing.
        const Bytes damaged = builder.Resource(1, {}, "", "8BIX").Build();
        const bool served[] = {false, left == 5, false, false, left != 2, false, left != 1};
        for (uint32_t mode = 0; mode <= 6; ++mode)
            EXPECT_EQ(OpenBytes(damaged, mode).result == kOk, served[mode]) << left << mode;
    }
    for (const uint32_t mode : {kReadEverything, kReadHeader, kReadProfile}) {
        const Opened cmyk = OpenBytes(DocumentBuilder(4, 8, 4, 1, 1).Resource(1039, {1, 2}).Build(), mode);
        EXPECT_FALSE(cmyk.document->resources.profile.present) << "only RGB documents use it";
        EXPECT_EQ(cmyk.document->resources.profile.bytes.count(), mode == kReadHeader ? 0u : 2u);
    }
}

TEST(ImageResources, TheFirstOfSeveralWinsForNamesAndExif) {
    DocumentBuilder builder = Rgb(5);
    builder.Resource(1045, W().Unicode(u"a").Unicode(u"b")).Resource(1053, W().U32(11).U32(12).U32(13));
    builder.Resource(1006, W().Pascal("x", 1)).Resource(1058, {1}).Resource(1059, {2});
    const Opened opened = OpenBytes(builder.Build());
    const R& r = opened.document->resources;
    EXPECT_EQ(All(r.alphaCount, opened.document->colorChannels, r.exif.bytes[0]), All(2, 3, 1));
    EXPECT_EQ(All(r.alphas[0].name.length, r.alphas[0].unicodeName.length, r.alphas[1].id), All(0, 1, 12));
    const Opened many = OpenBytes(Rgb(3).Resource(1006, Bytes(9)).Resource(1057, {}).Build());
    EXPECT_EQ(many.document->colorChannels, 0) << "more names than channels";
    EXPECT_TRUE(many.document->resources.versionInfo.hasRealMergedData);
}

Bytes Head(const Bytes& file, ptrdiff_t size) { return Bytes(file.begin(), file.begin() + size); }

TEST(ReadDriver, HeadersGiveTheirCodes) {
    const Bytes good = Rgb().Build();
    const std::pair<Bytes, PsdReadResult> cases[] = {
        {Rgb().Version(2).Build(), kOk},
        {Rgb().Version(3).Build(), kBadVersion},
        {Rgb().Signature("8BPB").Version(3).Build(), kBadSignature},
        {DocumentBuilder(5, 24, 3, 2, 2).Build(), kBadDepth},
        {Head(good, 25), kShortRead},
        {Head(good, 26), kOk},
        {Rgb().MergedData({0, 4}).Build(), kBadCompression},
        {Rgb(0).Build(), kOk},
        // Sections of resources: a negative length, bytes behind the last, data that ends early.
        {W().Raw(Head(good, 30)).I32(-1).Text("junk"), kOk},
        {W().Raw(Head(good, 30)).U32(12).Text("8BIT").Zeros(8), kBadResourceSignature},
        {W().Raw(Head(good, 30)).U32(13).Text("8BIM").U16(1).Zeros(7), kBadResourceSignature},
        {W().Raw(Head(good, 30)).U32(912).Text("8BIM").U16(1039).U16(0).U32(900), kOk},
        {DocumentBuilder(0, 1, 1, 0, 0xFFFFFFFF).MergedData({}).Build(), kOk},
        {DocumentBuilder(7, 16, 3, 6000, 6000).MergedData({0, 0}).Build(), kOutOfMemory},  // nothing there
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

TEST(ReadDriver, ColorModeDataBecomesAPaletteOfPlanarTables) {
    Bytes tables(768);
    for (size_t i = 0; i < 768; ++i) tables[i] = static_cast<uint8_t>(i / 256 + i);
    // The number of entries, -1 without a palette; the last of them; the pixel of index 0.
    const std::tuple<Bytes, int, uint32_t, uint32_t> cases[] = {
        {tables, 256, 0xFFFF0001, 0xFF000102},
        {{1, 2}, 0, 0, 0xFFFEFEFE},
        {{1, 2, 3, 4, 5, 6, 7}, 2, 0xFF020406, 0xFF010305},
        {W().Text("hdrt").Zeros(20), -1, 0, 0},  // tone curves
    };
    for (uint32_t mode = 0; mode <= 6; ++mode) {
        for (const auto& [data, entries, last, pixel] : cases) {
            DocumentBuilder builder(kColorIndexed, 8, 1, 1, 1);
            const Opened opened = OpenBytes(builder.ColorModeData(data).Resolution(72, 1).Build(), mode);
            ASSERT_TRUE(opened.document) << mode;
            const Owned<uint32_t>& palette = opened.document->palette;
            const bool wants = mode != kReadHeader && mode != kReadProfile;
            ASSERT_EQ(palette ? static_cast<int>(palette.count()) : -1, wants ? entries : -1) << mode;
            EXPECT_EQ(palette.count() ? palette[palette.count() - 1] : last, last);
            EXPECT_EQ(opened.document->resources.resolution.present, mode < 4) << "what follows is found";
            for (const uint32_t got : opened.document->mergedPixels.span()) EXPECT_EQ(got, pixel);
        }
    }
}

TEST(ReadDriver, StagesAdvanceOnSuccessOnlyAndLetGoOfTheStream) {
    PsdDocument staged;
    staged.streamSize = 16;
    staged.stage = kStageDone + 1;
    EXPECT_EQ(RunReadStages(staged), kUnknownStage);
    MemoryStream damaged(W().U32(12).Text("8BIX").Zeros(8)), stream(Rgb().Build());
    staged.reader.stream = &damaged;
    staged.stage = kStageResources;
    EXPECT_EQ(RunReadStages(staged), kBadResourceSignature);
    EXPECT_EQ(staged.stage, kStageResources);

    stream.position = 7;  // rewound first
    Owned<PsdDocument> document;
    ASSERT_EQ(OpenDocument(document, &stream, 0), kOk);
    EXPECT_EQ(All(!document->reader.stream, !document->reader.buffer, stream.references.load()),
              All(true, true, 1));
    EXPECT_EQ(OpenDocument(document, nullptr, 0), kNoStream);
    EXPECT_FALSE(document);
    EXPECT_EQ(CloseDocument(document), kNoDocument);

    constexpr uint64_t kOne = 1;  // sizes are counted in 32 bits
    for (const uint64_t size : {uint64_t{0}, kOne << 31, kOne << 32, (kOne << 32) + 1, kOne << 63, ~kOne}) {
        stream.hasSize = true;
        stream.size = size;
        stream.bytesRead = 0;
        const bool fits = size > kOne << 32;
        EXPECT_EQ(OpenDocument(document, &stream, 0), fits ? kOk : kShortRead);
        EXPECT_EQ(stream.bytesRead != 0, fits) << std::hex << size;
    }
    EXPECT_EQ(CloseDocument(document), kOk);
    EXPECT_FALSE(document);

    // A stream that does not tell its size: where its end is, else as much as there can be.
    const struct {
        const char* what;
        bool canSeek;
        int32_t want;
    } unasked[] = {{"seeks to its end", true, 43}, {"cannot seek", false, INT32_MAX}};
    for (const auto& test : unasked) {
        MemoryStream silent(Rgb().Build());
        silent.statFails = true;
        silent.canSeek = test.canSeek;
        silent.position = test.canSeek ? 7 : 0;
        EXPECT_EQ(OpenDocument(document, &silent, 0), kOk) << test.what;
        EXPECT_EQ(document ? document->streamSize : 0, test.want) << test.what;
    }
}

}  // namespace
}  // namespace tessary::test
