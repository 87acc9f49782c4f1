#include "document/tagged_blocks.h"

#include <gtest/gtest.h>

#include "document/big_endian.h"
#include "document/blend_keys.h"
#include "tests/support/document_builder.h"

namespace tessary::test {
namespace {

LayerBuilder Small() { return LayerBuilder({0, 0, 1, 1}).Solid(0xFF102030); }

Opened Open(const LayerBuilder& layer) {
    return OpenBytes(DocumentBuilder(kColorRgb, 8, 3, 4, 4).Layer(layer).Build());
}

template <auto Field>
int64_t Get(const PsdLayer& layer) {
    return int64_t{layer.*Field};
}

TEST(TaggedBlocks, EachKeyHasItsField) {
    const Bytes on = {1, 9, 9, 9}, off = {0, 9, 9, 9};
    const Bytes divider = ByteWriter().U32(1).Text("8BIMscrn");
    const struct {
        const char* key;
        Bytes data;
        int64_t (*get)(const PsdLayer&);
        int64_t before, after;
    } cases[] = {
        {"clbl", off, Get<&PsdLayer::blendClippedElements>, 1, 0},
        {"infx", on, Get<&PsdLayer::blendInteriorElements>, 0, 1},
        {"knko", on, Get<&PsdLayer::knockout>, 0, 1},
        {"tsly", off, Get<&PsdLayer::transparencyShapesLayer>, 1, 0},
        {"lmgm", on, Get<&PsdLayer::layerMaskAsGlobalMask>, 0, 1},
        {"vmgm", on, Get<&PsdLayer::vectorMaskAsGlobalMask>, 0, 1},
        {"iOpa", {128, 0, 0, 0}, Get<&PsdLayer::fillOpacity>, 255, 128},
        {"lnsr", ByteWriter().I32(-7), Get<&PsdLayer::nameSourceId>, 0, -7},
        {"lyid", ByteWriter().I32(-8), Get<&PsdLayer::layerId>, 0, -8},
        {"lyvr", ByteWriter().I32(9), Get<&PsdLayer::layerVersion>, 0, 9},
        {"lclr", {1, 2, 3, 4, 5, 6, 7, 8}, Get<&PsdLayer::sheetColor>, 0, 0xFF010203},
        {"lspf", ByteWriter().U32(1), Get<&PsdLayer::protectTransparency>, 0, 1},
        {"lspf", ByteWriter().U32(0x80000002), Get<&PsdLayer::protectComposite>, 0, 1},
        {"lspf", ByteWriter().U32(4), Get<&PsdLayer::protectPosition>, 0, 1},
        {"fxrp", ByteWriter().F64(-1.9).F64(2.9), Get<&PsdLayer::referenceX>, 0, -1},
        {"fxrp", ByteWriter().F64(1e300).F64(2.9), Get<&PsdLayer::referenceY>, 0, 2},
        {"lsct", ByteWriter().U32(1), Get<&PsdLayer::layerKind>, kLayerOrdinary, kLayerGroup},
        {"lsct", ByteWriter().U32(2), Get<&PsdLayer::layerKind>, kLayerOrdinary, kLayerGroup},
        {"lsct", ByteWriter().U32(3), Get<&PsdLayer::layerKind>, kLayerOrdinary, kLayerGroupEnd},
        {"lsct", ByteWriter().U32(4), Get<&PsdLayer::layerKind>, kLayerOrdinary, kLayerOrdinary},
        {"lsct", divider, Get<&PsdLayer::sectionBlendMode>, 23, kBlendScreen},
        {"lsct", ByteWriter().Raw(divider).U32(1), Get<&PsdLayer::sectionBlendMode>, 23, 23},
        {"odd ", Bytes(5), Get<&PsdLayer::knockout>, 0, 0},
    };
    const Opened plain = Open(Small());
    ASSERT_EQ(plain.result, PsdReadResult::kOk);
    for (const auto& test : cases) {
        EXPECT_EQ(test.get(plain.document->layers[0]), test.before) << test.key;
        const Opened opened = Open(Small().Block(test.key, test.data).Block("lyvr", ByteWriter().U32(9)));
        ASSERT_EQ(opened.result, PsdReadResult::kOk) << test.key;
        EXPECT_EQ(test.get(opened.document->layers[0]), test.after) << test.key;
        EXPECT_EQ(opened.document->layers[0].layerVersion, 9) << test.key << ": the next block is found";
    }
}

TEST(TaggedBlocks, UnicodeNamesKeep1024Units) {
    for (const uint32_t units : {3u, 1024u, 5000u}) {
        const Bytes name = ByteWriter().U32(units).Raw(Bytes(2 * units, 'u'));
        const Opened opened = Open(Small().Block("luni", Bytes(4)).Block("luni", name));
        ASSERT_EQ(opened.result, PsdReadResult::kOk) << units;
        const PsdUnicodeString& kept = opened.document->layers[0].unicodeName;
        EXPECT_EQ(kept.length, std::min(units, 1024u));
        ASSERT_EQ(kept.bytes.count(), 2 * (kept.length + 1));
        EXPECT_EQ(LoadU32(kept.bytes.get() + 2 * kept.length - 2), 0x75750000u);
    }
}

TEST(TaggedBlocks, ChannelsAreExcludedById) {
    // 0xFFFF0001 is no channel's id, whatever its low half says.
    const Bytes first = ByteWriter().U32(0).U32(0xFFFF0001);
    const Opened opened = Open(Small().Block("brst", first).Block("brst", ByteWriter().I32(-1)));
    ASSERT_EQ(opened.result, PsdReadResult::kOk);
    for (const PsdChannelInfo& channel : opened.document->layers[0].channels.span()) {
        EXPECT_EQ(channel.excluded, channel.id == 0 || channel.id == -1) << channel.id;
    }
}

TEST(BlendKeys, UnknownKeysAreNormal) {
    EXPECT_EQ(BlendModeFromKey(FourCC("lite")), 6u);
    EXPECT_EQ(BlendModeFromKey(FourCC("smud")), 18u);
    EXPECT_EQ(BlendModeFromKey(FourCC("pass")), 23u);
    for (const uint32_t key : {FourCC("NORM"), FourCC("dkCl"), FourCC("fsub"), 0u}) {
        EXPECT_EQ(BlendModeFromKey(key), kBlendNormal) << std::hex << key;
    }
}

TEST(BlendKeys, TheDividersKeyIsTheGroupsMode) {
    const struct {
        const char *record, *divider;
        PsdBlendMode want;
    } cases[] = {{"norm", "", kBlendPassThrough}, {"pass", "", kBlendPassThrough},
                 {"mul ", "", kBlendMultiply},    {"norm", "pass", kBlendPassThrough},
                 {"norm", "norm", kBlendNormal},  {"mul ", "scrn", kBlendScreen}};
    for (const auto& test : cases) {
        const Opened opened = Open(GroupHead(test.record, test.divider));
        ASSERT_EQ(opened.result, PsdReadResult::kOk);
        EXPECT_EQ(GroupBlendMode(opened.document->layers[0]), test.want) << test.record << test.divider;
    }
}

}  // namespace
}  // namespace tessary::test
