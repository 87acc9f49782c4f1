#include "document/image_resources.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <tuple>

#include "tests/support/document_builder.h"

namespace tessary::test {
namespace {

using W = ByteWriter;
using R = PsdImageResources;

DocumentBuilder Rgb(uint32_t channels = 3) { return DocumentBuilder(kColorRgb, 8, channels, 1, 1); }

// An element, or one as it is before anything is read.
template <class T>
const T& At(const Owned<T>& list, size_t index) {
    static const T none{};
    return index < list.count() ? list[index] : none;
}

// Values as text, each with a blank behind it.
std::ostream& operator<<(std::ostream& out, const PsdPascalString& value) { return out << value.text; }
std::ostream& operator<<(std::ostream& out, const PsdUnicodeString& value) {
    for (uint32_t i = 0; i < value.length; ++i) out << static_cast<char>(value.bytes[2 * i + 1]);
    return out;
}
template <class T>
std::ostream& operator<<(std::ostream& out, const Owned<T>& list) {
    for (const T value : list.span()) out << '.' << +value;
    return out;
}
template <class... T>
std::string Say(const T&... values) {
    std::ostringstream text;
    const auto put = [&](const auto& value) {
        if constexpr (requires { +value; })
            text << +value << ' ';
        else
            text << value << ' ';
    };
    return (put(values), ...), '|' + text.str();
}

// What the document holds, behind the numbers of the resources it comes from.
std::string Describe(const PsdDocument& d) {
    const R& r = d.resources;
    const auto& [present, width, widthUnit, widthShown, height, heightUnit, heightShown] = r.resolution;
    const PsdAlphaChannel &a = At(r.alphas, 0), &b = At(r.alphas, 1);
    const PsdThumbnail& t = r.thumbnail;
    const PsdSlice& s = At(r.slices.slices, 0);
    const PsdVersionInfo& v = r.versionInfo;
    const Rect &all = r.slices.bounds, &part = s.bounds;
    const auto& [line, direction] = At(r.gridAndGuides.guides, 1);
    const auto& [x, y, space, depth] = At(r.colorSamplers, 1);
    return Say(1005, present, width, widthUnit, widthShown, height, heightUnit, heightShown) +
           Say(1006, r.alphaCount, d.colorChannels, a.name, b.name, a.unicodeName, b.unicodeName, a.id,
               b.id) +
           Say(1007, r.displayInfo.color, r.displayInfo.opacity, r.displayInfo.kind) + Say(1008, r.caption) +
           Say(1009, r.border.width, r.border.unit) + Say(1024, r.targetLayer) + Say(1026, r.layerGroupIds) +
           Say(1011, r.printFlags.flags[0], r.printFlags.flags[1], r.printFlags.flags[7]) +
           Say(1032, r.gridAndGuides.horizontalGrid, r.gridAndGuides.verticalGrid, line, direction) +
           Say(1036, t.redFirst, t.format, t.width, t.height, t.rowBytes, t.totalSize, t.compressedSize,
               t.bitsPerPixel, t.planes, t.data) +
           Say(1034, r.rightsMarked) + Say(1037, r.globalAngle) + Say(1038, x, y, space, depth) +
           Say(1039, r.profile.bytes) + Say(1042, r.resource1042) + Say(1046, r.paletteCount) +
           Say(1047, r.transparencyIndex) + Say(1049, r.globalAltitude) +
           Say(1050, all.left, all.top, all.right, all.bottom, r.slices.name, s.id, s.groupId, s.origin,
               s.associatedLayerId, s.name, s.type, part.left, part.top, part.right, part.bottom, s.url,
               s.target, s.message, s.altTag, s.cellTextIsHtml, s.cellText, s.horizontalAlignment,
               s.verticalAlignment, s.color) +
           Say(1054, At(r.urls, 0).operation, At(r.urls, 0).id, At(r.urls, 0).text) +
           Say(1057, v.present, v.hasRealMergedData, v.writer, v.reader, v.fileVersion) +
           Say(1058, r.exif.bytes) + Say(1060, r.xmp.bytes) + Say(1064, r.pixelAspectRatio) +
           Say(1062, r.printScale.style, r.printScale.x, r.printScale.y, r.printScale.scale) +
           Say(10000, r.printFlagsInfo.centerCropMarks, r.printFlagsInfo.bleedWidth,
               r.printFlagsInfo.bleedWidthScale);
}
bool Contains(const std::string& all, const std::string& text) { return all.find('|' + text) != all.npos; }

TEST(ImageResources, EachIsReadInItsModes) {
    const W thumbnail = W().U32(1).U32(20).U32(10).U32(60).U32(600).U32(3).U16(24).U16(1).Raw({7, 8, 9});
    const W slice = W().U32(1).U32(2).U32(1).U32(77).Unicode(u"n").U32(3).RectTlbr({2, 1, 4, 3});
    W slices;
    slices.U32(6).RectTlbr({1, 2, 3, 4}).Unicode(u"s").U32(1).Raw(slice).Unicode(u"url").U32(0).U32(0);
    slices.Unicode(u"alt").U8(1).Unicode(u"t").U32(4).U32(2).U32(0xFF102030);
    const struct {
        uint16_t id;
        const char *modes, *want;  // modes in which the resource is parsed
        Bytes data;
    } cases[] = {
        {1005, "0123", "1005 1 72.5 1 2 -1.5 2 3 ", W().Fixed(72.5).U16(1).U16(2).I32(-98304).U16(2).U16(3)},
        {1006, "023", "1006 3 2 one x   0 0 ", W().Pascal("one", 1).Pascal("x", 1).Pascal("", 1)},
        {1007, "02", "1007 4279312947 50 1 ",
         W().U16(0).U16(0x1100).U16(0x2200).U16(0x3300).U32(50).U16(256)},
        {1008, "02", "1008 caption ", W().Pascal("caption", 1)},
        {1009, "02", "1009 0.5 4 ", W().Fixed(0.5).U16(4)},
        {1011, "02", "1011 0 1 1 ", {0, 1, 0, 0, 0, 0, 0, 2, 0}},
        {1024, "02", "1024 9 ", W().U16(9)},
        {1026, "02", "1026 .1.65535 ", W().U16(1).U16(0xFFFF).U8(3)},
        {1032, "02", "1032 576 577 -64 1 ", W().U32(1).U32(576).U32(577).U32(2).U32(32).U8(0).I32(-64).U8(1)},
        {1033, "04", "1036 1 1 20 10 60 600 3 24 1 .7.8.9 ", thumbnail},
        {1034, "02", "1034 1 ", W().U16(1)},
        {1036, "04", "1036 0 1 20 10 60 600 3 24 1 .7.8.9 ", thumbnail},
        {1037, "02", "1037 -90 ", W().I32(-90)},
        {1038, "02", "1038 5 6 1 16 ", W().U32(2).U32(2).Zeros(12).U32(5).U32(6).U16(1).U16(16)},
        {1038, "02", "1038 5 6 7 0 ", W().U32(1).U32(2).Zeros(10).U32(5).U32(6).U16(7)},
        {1039, "026", "1039 .1.2.3 ", {1, 2, 3}},
        {1042, "02", "1042 3 ", W().U16(3)},
        {1045, "023", "1006 2 3   ab c 0 0 ", W().Unicode(u"ab").Unicode(u"c").U16(0)},
        {1046, "023", "1046 200 ", W().U16(200)},
        {1047, "023", "1047 255 ", W().U16(255)},
        {1049, "02", "1049 60 ", W().U32(60)},
        {1050, "02", "1050 1 2 3 4 s 1 2 1 77 n 3 1 2 3 4 url   alt 1 t 4 2 4279246896 ", slices},
        {1053, "023", "1006 2 5     3 8 ", W().U32(3).U32(8).U16(1)},
        {1054, "02", "1054 1 2 http ", W().U32(1).U32(1).U32(2).Unicode(u"http")},
        {1057, "023", "1057 1 0 ab c 5 ", W().U32(1).U8(0).Unicode(u"ab").Unicode(u"c").U32(5)},
        {1058, "025", "1058 .4.5 ", {4, 5}},
        {1059, "025", "1058 .4.5 ", {4, 5}},
        {1060, "025", "1060 .6 ", {6}},
        {1062, "02", "1062 2 1.5 2.5 0.25 ", W().U16(2).F32(1.5f).F32(2.5f).F32(0.25f)},
        {1064, "02", "1064 1.0666 ", W().U32(1).F64(1.0666)},
        {10000, "02", "10000 1 7 2 ", W().U16(1).U8(1).U8(0).U32(7).U16(2)},
    };
    for (const auto& test : cases) {
        // Strangers around it: names of both parities, odd sizes, every signature.
        DocumentBuilder builder = Rgb(5);
        builder.Resource(4000, {1, 2, 3}, "odd", "MeSa").Resource(2500, {1, 2}, "even", "PHUT");
        builder.Resource(1050, W().U32(7).Zeros(40)).Resource(test.id, test.data);
        builder.Resource(4001, {1}, "", "AgHg").Resource(4002, {}, std::string(255, 'n'), "DCSR");
        const Bytes file = builder.Build();
        for (char mode = '0'; mode <= '6'; ++mode) {
            const Opened opened = OpenBytes(file, static_cast<uint32_t>(mode - '0'));
            ASSERT_EQ(opened.result, PsdReadResult::kOk) << test.id;
            const std::string got = Describe(*opened.document);
            EXPECT_EQ(Contains(got, test.want), std::strchr(test.modes, mode) != nullptr)
                << test.id << " mode " << mode << ": " << got;
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
}

TEST(ImageResources, OnlyRgbDocumentsUseTheirProfile) {
    const Bytes file = DocumentBuilder(kColorCmyk, 8, 4, 1, 1).Resource(1039, {1, 2}).Build();
    for (const uint32_t mode : {kReadEverything, kReadHeader, kReadProfile}) {
        const Opened cmyk = OpenBytes(file, mode);
        EXPECT_FALSE(cmyk.document->resources.profile.present) << mode;
        EXPECT_EQ(cmyk.document->resources.profile.bytes.count(), mode == kReadHeader ? 0u : 2u);
    }
}

TEST(ImageResources, TheFirstOfSeveralWinsForNamesAndExif) {
    DocumentBuilder builder = Rgb(5);
    builder.Resource(1045, W().Unicode(u"a").Unicode(u"b")).Resource(1053, W().U32(11).U32(12).U32(13));
    builder.Resource(1006, W().Pascal("x", 1)).Resource(1058, {1}).Resource(1059, {2});
    const std::string names = Describe(*OpenBytes(builder.Build()).document);
    EXPECT_TRUE(Contains(names, "1006 2 3   a b 11 12 ") && Contains(names, "1058 .1 ")) << names;
    const Opened many = OpenBytes(Rgb(3).Resource(1006, Bytes(9)).Resource(1057, {}).Build());
    EXPECT_EQ(many.document->colorChannels, 0) << "more names than channels";
    EXPECT_TRUE(Contains(Describe(*many.document), "1057 0 1   0 "));
}

TEST(ImageResources, DamagedSectionsGiveTheirCodes) {
    const Bytes document = Rgb().Build(), front(document.begin(), document.begin() + 30);
    const W sound = W().Text("8BIM").U16(1).U16(0).U32(0);
    const std::tuple<const char*, Bytes, bool> cases[] = {
        {"no length", {0, 0, 0}, true},
        {"negative length", W().I32(-1).Text("junk"), true},
        {"bad signature", W().U32(12).Text("8BIT").Zeros(8), false},
        {"half a signature", W().U32(12).Text("8B"), false},
        {"bytes behind the last one", W().U32(13).Raw(sound).U8(0), false},
        {"data ends with the file", W().U32(912).Text("8BIM").U16(1039).U16(0).U32(900), true},
        {"short fields", W().U32(14).Text("8BIM").U16(1005).U16(0).U32(2).U16(1), true},
    };
    for (const auto& [what, section, sane] : cases) {
        EXPECT_EQ(OpenBytes(W().Raw(front).Raw(section)).result,
                  sane ? PsdReadResult::kOk : PsdReadResult::kBadResourceSignature)
            << what;
    }
}

#if defined(TESSARY_FAULT_INJECTION)
TEST(ImageResources, ClaimedCountsAreBoundedByTheBytes) {
    for (const uint32_t claim : {0x7FFFFFFFu, 0xFFFFFFFFu, 0x80000000u}) {
        const W claims = W().U32(6).U32(claim).U32(claim).U32(claim).U32(claim).U32(claim).U32(claim);
        for (const int id : {1006, 1008, 1026, 1032, 1038, 1045, 1050, 1053, 1054, 1057}) {
            const Bytes file = Rgb().Resource(static_cast<uint16_t>(id), claims).Build();
            FailAllocationNumber(0);
            EXPECT_EQ(OpenBytes(file).result, PsdReadResult::kOk) << id;
            EXPECT_LE(LargestAllocation(), 65536u) << id;
            EXPECT_LE(AllocationCount(), 40u) << id;
        }
    }
}
#endif

}  // namespace
}  // namespace tessary::test
