#include "document/image_resources.h"

#include <gtest/gtest.h>

#include "tests/support/document_builder.h"

namespace tessary::test {
namespace {

using W = ByteWriter;
using R = PsdImageResources;

DocumentBuilder Rgb(uint32_t channels = 3) { return DocumentBuilder(kColorRgb, 8, channels, 1, 1); }

bool Holds(const Owned<uint8_t>& bytes, const Bytes& want) { return std::ranges::equal(bytes.span(), want); }

TEST(ImageResources, EachIsReadInItsModes) {
    const Bytes thumbnail = W().U32(1).U32(20).U32(10).U32(60).U32(600).U32(3).U16(24).U16(1).Raw({7, 8, 9});
    const Bytes resolution = W().Fixed(72.5).U16(1).U16(2).I32(-98304).U16(2).U16(3);
    const Bytes info = W().U32(1).U8(0).Unicode(u"ab").Unicode(u"c").U32(5);
    const W slice = W().U32(1).U32(2).U32(1).U32(77).Unicode(u"n").U32(3).RectTlbr({2, 1, 4, 3});
    const Bytes slices = W().U32(6)
                             .RectTlbr({1, 2, 3, 4})
                             .Unicode(u"s")
                             .U32(1)
                             .Raw(slice)
                             .Unicode(u"url")
                             .U32(0)
                             .U32(0)
                             .Unicode(u"alt")
                             .U8(1)
                             .Unicode(u"t")
                             .U32(1)
                             .U32(2)
                             .U32(0xFF102030);
    const struct {
        uint16_t id;
        Bytes data;
        const char* modes;  // in which the resource is parsed
        bool (*isRead)(const PsdDocument& document, const R& r);
    } cases[] = {
        {1005, resolution, "0123",
         [](auto&, auto& r) {
             return r.resolution.present && r.resolution.horizontal == 72.5f &&
                    r.resolution.vertical == -1.5f && r.resolution.horizontalUnit == 1 &&
                    r.resolution.widthUnit == 2 && r.resolution.verticalUnit == 2 &&
                    r.resolution.heightUnit == 3;
         }},
        {1006, W().Pascal("one", 1).Pascal("", 1).Pascal("x", 1), "023",
         [](auto& d, auto& r) {
             return r.alphaCount == 3 && d.colorChannels == 2 &&
                    std::string(r.alphas[0].name.text) == "one" && r.alphas[2].name.text[0] == 'x';
         }},
        {1007, W().U16(0).U16(0x1100).U16(0x2200).U16(0x3300).U16(0).U16(50).U8(1).U8(0), "02",
         [](auto&, auto& r) {
             return r.displayInfo.present && r.displayInfo.color == 0xFF112233 &&
                    r.displayInfo.opacity == 50 && r.displayInfo.kind == 1;
         }},
        {1008, W().Pascal("caption", 1), "02",
         [](auto&, auto& r) { return std::string(r.caption.text) == "caption"; }},
        {1009, W().Fixed(0.5).U16(4), "02",
         [](auto&, auto& r) { return r.border.present && r.border.width == 0.5f && r.border.unit == 4; }},
        {1011,
         {0, 1, 0, 0, 0, 0, 0, 2, 0},
         "02",
         [](auto&, auto& r) {
             return r.printFlags.present && !r.printFlags.flags[0] && r.printFlags.flags[1] &&
                    r.printFlags.flags[7];
         }},
        {1024, W().U16(9), "02", [](auto&, auto& r) { return r.targetLayer == 9; }},
        {1026, W().U16(1).U16(0xFFFF).U8(3), "02",
         [](auto&, auto& r) { return r.layerGroupIds.count() == 2 && r.layerGroupIds[1] == 0xFFFF; }},
        {1032, W().U32(1).U32(576).U32(577).U32(2).U32(32).U8(0).I32(-64).U8(1), "02",
         [](auto&, auto& r) {
             const PsdGridAndGuides& grid = r.gridAndGuides;
             return grid.present && grid.horizontalGrid == 576 && grid.verticalGrid == 577 &&
                    grid.guides.count() == 2 && grid.guides[1].location == -64 &&
                    grid.guides[1].direction == 1;
         }},
        {1033, thumbnail, "04",
         [](auto&, auto& r) {
             return r.thumbnail.present && r.thumbnail.redFirst && Holds(r.thumbnail.data, {7, 8, 9});
         }},
        {1034, W().U16(1), "02", [](auto&, auto& r) { return r.rightsMarked; }},
        {1036, thumbnail, "04",
         [](auto&, auto& r) {
             const PsdThumbnail& t = r.thumbnail;
             return t.present && !t.redFirst && t.format == 1 && t.width == 20 && t.height == 10 &&
                    t.rowBytes == 60 && t.totalSize == 600 && t.compressedSize == 3 && t.bitsPerPixel == 24 &&
                    t.planes == 1 && Holds(t.data, {7, 8, 9});
         }},
        {1037, W().I32(-90), "02", [](auto&, auto& r) { return r.globalAngle == -90; }},
        {1038, W().U32(2).U32(2).Zeros(12).U32(5).U32(6).U16(1).U16(16), "02",
         [](auto&, auto& r) {
             return r.colorSamplers.count() == 2 && r.colorSamplers[1].x == 5 && r.colorSamplers[1].y == 6 &&
                    r.colorSamplers[1].colorSpace == 1 && r.colorSamplers[1].depth == 16;
         }},
        {1038, W().U32(1).U32(2).Zeros(10).U32(5).U32(6).U16(7), "02",
         [](auto&, auto& r) {
             return r.colorSamplers.count() == 2 && r.colorSamplers[1].y == 6 &&
                    r.colorSamplers[1].colorSpace == 7;
         }},
        {1039,
         {1, 2, 3},
         "026",
         [](auto&, auto& r) {
             return r.profile.present && Holds(r.profile.bytes, {1, 2, 3});
         }},
        {1042, W().U16(3), "02", [](auto&, auto& r) { return r.resource1042 == 3; }},
        {1045, W().Unicode(u"ab").Unicode(u"c").U16(0), "023",
         [](auto& d, auto& r) {
             return r.alphaCount == 2 && d.colorChannels == 3 && r.alphas[0].unicodeName.length == 2 &&
                    r.alphas[1].unicodeName.bytes[1] == 'c';
         }},
        {1046, W().U16(200), "023", [](auto&, auto& r) { return r.paletteCount == 200; }},
        {1047, W().U16(255), "023", [](auto&, auto& r) { return r.transparencyIndex == 255; }},
        {1049, W().U32(60), "02", [](auto&, auto& r) { return r.globalAltitude == 60; }},
        {1050, slices, "02",
         [](auto&, auto& r) {
             if (!r.slices.present || r.slices.slices.count() != 1) return false;
             const PsdSlice& s = r.slices.slices[0];
             return r.slices.bounds == Rect{1, 2, 3, 4} && s.id == 1 && s.groupId == 2 &&
                    s.associatedLayerId == 77 && s.type == 3 && s.bounds == Rect{1, 2, 3, 4} &&
                    s.url.length == 3 && s.altTag.length == 3 && s.cellTextIsHtml &&
                    s.verticalAlignment == 2 && s.color == 0xFF102030;
         }},
        {1050, W().U32(7).Zeros(40), "", [](auto&, auto& r) { return r.slices.present; }},
        {1053, W().U32(3).U32(8).U16(1), "023",
         [](auto& d, auto& r) { return r.alphaCount == 2 && d.colorChannels == 5 && r.alphas[1].id == 8; }},
        {1054, W().U32(1).U32(1).U32(2).Unicode(u"http"), "02",
         [](auto&, auto& r) {
             return r.urls.count() == 1 && r.urls[0].operation == 1 && r.urls[0].id == 2 &&
                    r.urls[0].text.length == 4;
         }},
        {1057, info, "023",
         [](auto&, auto& r) {
             return r.versionInfo.present && !r.versionInfo.hasRealMergedData &&
                    r.versionInfo.writer.length == 2 && r.versionInfo.reader.bytes[1] == 'c' &&
                    r.versionInfo.fileVersion == 5;
         }},
        {1058,
         {4, 5},
         "025",
         [](auto&, auto& r) {
             return r.exif.present && Holds(r.exif.bytes, {4, 5});
         }},
        {1059,
         {4, 5},
         "025",
         [](auto&, auto& r) {
             return r.exif.present && Holds(r.exif.bytes, {4, 5});
         }},
        {1060, {6}, "025", [](auto&, auto& r) { return r.xmp.present && Holds(r.xmp.bytes, {6}); }},
        {1062, W().U16(2).F32(1.5f).F32(2.5f).F32(0.25f), "02",
         [](auto&, auto& r) {
             return r.printScale.present && r.printScale.style == 2 && r.printScale.x == 1.5f &&
                    r.printScale.y == 2.5f && r.printScale.scale == 0.25f;
         }},
        {1064, W().U32(1).F64(1.0666), "02", [](auto&, auto& r) { return r.pixelAspectRatio == 1.0666; }},
        {10000, W().U16(1).U8(1).U8(0).U32(7).U16(2), "02",
         [](auto&, auto& r) {
             return r.printFlagsInfo.present && r.printFlagsInfo.centerCropMarks &&
                    r.printFlagsInfo.bleedWidth == 7 && r.printFlagsInfo.bleedWidthScale == 2;
         }},
    };
    for (const auto& test : cases) {
        // Strangers around it: names of both parities, odd sizes, every signature.
        const Bytes file = Rgb(5)
                               .Resource(4000, {1, 2, 3}, "odd", "MeSa")
                               .Resource(2500, {1, 2}, "even", "PHUT")
                               .Resource(test.id, test.data)
                               .Resource(4001, {1}, "", "AgHg")
                               .Resource(4002, {}, std::string(255, 'n'), "DCSR")
                               .Build();
        for (uint32_t mode = 0; mode <= 6; ++mode) {
            const Opened opened = OpenBytes(file, mode);
            ASSERT_EQ(opened.result, PsdReadResult::kOk) << test.id;
            const bool want =
                std::string(test.modes).find(static_cast<char>('0' + mode)) != std::string::npos;
            EXPECT_EQ(test.isRead(*opened.document, opened.document->resources), want)
                << test.id << " mode " << mode;
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
        EXPECT_FALSE(r.profile.bytes || r.thumbnail.data || r.exif.bytes || r.xmp.bytes);
        // What stands behind the last one is looked at only while something is missing.
        const Bytes damaged = builder.Resource(1, {}, "", "8BIX").Build();
        const bool served[] = {false, left == 5, false, false, left != 2, false, left != 1};
        for (uint32_t mode = 0; mode <= 6; ++mode) {
            EXPECT_EQ(OpenBytes(damaged, mode).result == PsdReadResult::kOk, served[mode])
                << left << " mode " << mode;
        }
    }
}

TEST(ImageResources, OnlyRgbDocumentsUseTheirProfile) {
    for (const uint32_t mode : {kReadEverything, kReadHeader, kReadProfile}) {
        const Opened cmyk =
            OpenBytes(DocumentBuilder(kColorCmyk, 8, 4, 1, 1).Resource(1039, {1, 2}).Build(), mode);
        ASSERT_TRUE(cmyk.document);
        EXPECT_FALSE(cmyk.document->resources.profile.present) << mode;
        EXPECT_EQ(cmyk.document->resources.profile.bytes.count(), mode == kReadHeader ? 0u : 2u);
    }
}

TEST(ImageResources, TheFirstOfSeveralWinsForNamesAndExif) {
    const Opened names = OpenBytes(Rgb(5)
                                       .Resource(1053, W().U32(11).U32(12).U32(13))
                                       .Resource(1045, W().Unicode(u"a").Unicode(u"b"))
                                       .Resource(1006, W().Pascal("x", 1))
                                       .Resource(1058, {1})
                                       .Resource(1059, {2})
                                       .Build());
    ASSERT_TRUE(names.document);
    const R& r = names.document->resources;
    EXPECT_EQ(names.document->colorChannels, 3);
    EXPECT_EQ(r.alphaCount, 2);
    EXPECT_EQ(r.alphas[1].id, 12);
    EXPECT_EQ(r.alphas[0].name.length, 0);
    EXPECT_TRUE(Holds(r.exif.bytes, {1}));
    const Opened many = OpenBytes(Rgb(3).Resource(1006, Bytes(9)).Build());
    EXPECT_EQ(many.document->colorChannels, 0) << "more names than channels";
    const Opened empty = OpenBytes(Rgb(3).Resource(1057, {}).Build());
    EXPECT_TRUE(empty.document->resources.versionInfo.hasRealMergedData);
    EXPECT_FALSE(empty.document->resources.versionInfo.present);
}

// The section as it stands behind the colour mode data.
PsdReadResult OpenSection(const Bytes& section) {
    const Bytes file = Rgb().Build();
    return OpenBytes(W().Raw(Bytes(file.begin(), file.begin() + 30)).Raw(section)).result;
}

TEST(ImageResources, DamagedSectionsGiveTheirCodes) {
    const W sound = W().Text("8BIM").U16(1).U16(0).U32(0);
    const struct {
        const char* what;
        Bytes section;
        PsdReadResult want;
    } cases[] = {
        {"no length", {0, 0, 0}, PsdReadResult::kOk},
        {"negative length", W().I32(-1).Text("junk"), PsdReadResult::kOk},
        {"bad signature", W().U32(12).Text("8BIT").Zeros(8), PsdReadResult::kBadResourceSignature},
        {"half a signature", W().U32(12).Text("8B"), PsdReadResult::kBadResourceSignature},
        {"bytes behind the last one", W().U32(13).Raw(sound).U8(0), PsdReadResult::kBadResourceSignature},
        {"data ends with the file", W().U32(912).Text("8BIM").U16(1039).U16(0).U32(900), PsdReadResult::kOk},
        {"short fields", W().U32(14).Text("8BIM").U16(1005).U16(0).U32(2).U16(1), PsdReadResult::kOk},
    };
    for (const auto& test : cases) EXPECT_EQ(OpenSection(test.section), test.want) << test.what;
}

#if defined(TESSARY_FAULT_INJECTION)
TEST(ImageResources, ClaimedCountsAreBoundedByTheBytes) {
    for (const uint32_t claim : {0x7FFFFFFFu, 0xFFFFFFFFu, 0x80000000u}) {
        const W claims = W().U32(6).U32(claim).U32(claim).U32(claim).U32(claim).U32(claim).U32(claim);
        for (const int id : {1006, 1008, 1026, 1032, 1038, 1045, 1050, 1053, 1054, 1057}) {
            FailAllocationNumber(0);
            EXPECT_EQ(OpenBytes(Rgb().Resource(static_cast<uint16_t>(id), claims).Build()).result,
                      PsdReadResult::kOk)
                << id;
            EXPECT_LE(LargestAllocation(), 65536u) << id;
            EXPECT_LE(AllocationCount(), 40u) << id;
        }
    }
}
#endif

}  // namespace
}  // namespace tessary::test
