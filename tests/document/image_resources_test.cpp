#include "document/image_resources.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/document_builder.h"

namespace tessary::test {
namespace {

using W = ByteWriter;
using R = PsdImageResources;

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
        all.Resource(1007, W().U16(0).U16(0x1100).U16(0x2200).U16(0x3300).U32(50).U16(256));
        all.Resource(1011, {0, 1, 0, 0, 0, 0, 0, 2, 0}).Resource(1026, W().U16(1).U16(0xFFFF).U8(3));
        all.Resource(1032, W().U32(1).U32(576).U32(577).U32(2).U32(32).U8(0).I32(-64).U8(1));
        all.Resource(1037, W().I32(-90)).Resource(1046, {0, 200}).Resource(1047, {0, 255});
        all.Resource(1038, W().U32(2).U32(2).Zeros(12).U32(5).U32(6).U16(1).U16(16));
        all.Resource(1050, slices).Resource(1053, W().U32(3).U32(8).U16(1));
        all.Resource(1054, W().U32(1).U32(1).U32(2).Unicode(u"http"));
        all.Resource(1057, W().U32(1).U8(0).Unicode(u"ab").Unicode(u"c").U32(5)).Resource(1060, {6});
        all.Resource(exif, {4, 5}, std::string(255, 'n'), "8BIM").Resource(4002, {}, "", "DCSR");
        all.Resource(jpeg, thumbnail).Resource(1039, {1, 2, 3});
        const Bytes file = all.Build();
        for (char mode = '0'; mode <= '6'; ++mode) {
            const Opened opened = OpenBytes(file, static_cast<uint32_t>(mode - '0'));
            ASSERT_EQ(opened.result, PsdReadResult::kOk) << mode;
            const R& r = opened.document->resources;
            const auto expect = [&](int id, const char* modes, bool got) {
                EXPECT_EQ(got, std::strchr(modes, mode) != nullptr) << id << " in mode " << mode;
            };
            expect(1005, "0123", r.resolution.horizontal == 72.5f && r.resolution.vertical == -1.5f);
            expect(1006, "023", r.alphaCount == 3 && r.alphas[1].name.text == std::string("x"));
            expect(1007, "02", r.displayInfo.color == 0xFF112233 && r.displayInfo.opacity == 50);
            expect(1011, "02", r.printFlags.flags[1] && r.printFlags.flags[7]);
            expect(1026, "02", r.layerGroupIds.count() == 2 && r.layerGroupIds[1] == 0xFFFF);
            expect(1032, "02", r.gridAndGuides.guides && r.gridAndGuides.guides[1].location == -64);
            expect(1036, "04", r.thumbnail.rowBytes == 60 && r.thumbnail.data.count() == 3);
            EXPECT_EQ(r.thumbnail.redFirst, jpeg == 1033 && r.thumbnail.data);
            expect(1037, "02", r.globalAngle == -90);
            expect(1038, "02", r.colorSamplers && r.colorSamplers[1].depth == 16);
            expect(1039, "026", r.profile.bytes.count() == 3);
            expect(1046, "023", r.paletteCount == 200 && r.transparencyIndex == 255);
            expect(1050, "02", r.slices.slices && r.slices.slices[0].color == 0xFF102030);
            expect(1053, "023", r.alphas && r.alphas[1].id == 8);
            expect(1054, "02", r.urls && r.urls[0].text.length == 4);
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
        EXPECT_FALSE(r.profile.bytes || r.thumbnail.data || r.exif.bytes || r.xmp.bytes);
        // What stands behind the last one is looked at only while something is missing.
        const Bytes damaged = builder.Resource(1, {}, "", "8BIX").Build();
        const bool served[] = {false, left == 5, false, false, left != 2, false, left != 1};
        for (uint32_t mode = 0; mode <= 6; ++mode)
            EXPECT_EQ(OpenBytes(damaged, mode).result == PsdReadResult::kOk, served[mode]) << left << mode;
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
    EXPECT_TRUE(r.alphaCount == 2 && opened.document->colorChannels == 3 && r.exif.bytes[0] == 1);
    EXPECT_TRUE(!r.alphas[0].name.length && r.alphas[0].unicodeName.length == 1 && r.alphas[1].id == 12);
    const Opened many = OpenBytes(Rgb(3).Resource(1006, Bytes(9)).Resource(1057, {}).Build());
    EXPECT_EQ(many.document->colorChannels, 0) << "more names than channels";
    EXPECT_TRUE(many.document->resources.versionInfo.hasRealMergedData);
}

TEST(ImageResources, DamagedSectionsGiveTheirCodes) {
    const Bytes document = Rgb().Build(), front(document.begin(), document.begin() + 30);
    const std::pair<Bytes, bool> cases[] = {
        {{0, 0, 0}, true},
        {W().I32(-1).Text("junk"), true},
        {W().U32(12).Text("8BIT").Zeros(8), false},
        {W().U32(12).Text("8B"), false},
        {W().U32(13).Text("8BIM").U16(1).Zeros(7), false},                // a byte behind the last one
        {W().U32(912).Text("8BIM").U16(1039).U16(0).U32(900), true},      // data ends with the file
        {W().U32(14).Text("8BIM").U16(1005).U16(0).U32(2).U16(1), true},  // short fields
    };
    for (const auto& test : cases) {
        EXPECT_EQ(OpenBytes(W().Raw(front).Raw(test.first)).result,
                  test.second ? PsdReadResult::kOk : PsdReadResult::kBadResourceSignature)
            << "row " << &test - cases;
    }
}

#if defined(TESSARY_FAULT_INJECTION)
TEST(ImageResources, ClaimedCountsAreBoundedByTheBytes) {
    for (const uint32_t claim : {0x7FFFFFFFu, 0xFFFFFFFFu, 0x80000000u}) {
        const W claims = W().U32(6).U32(claim).U32(claim).U32(claim).U32(claim).U32(claim).U32(claim);
        for (const uint16_t id :
             std::initializer_list<uint16_t>{1006, 1026, 1032, 1038, 1045, 1050, 1053, 1054}) {
            const Bytes file = Rgb().Resource(id, claims).Build();
            FailAllocationNumber(0);
            EXPECT_EQ(OpenBytes(file).result, PsdReadResult::kOk) << id;
            EXPECT_TRUE(LargestAllocation() <= 65536 && AllocationCount() <= 40) << id;
        }
    }
}
#endif

}  // namespace
}  // namespace tessary::test
