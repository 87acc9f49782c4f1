#include "document/tagged_blocks.h"

#include <gtest/gtest.h>

#include "document/big_endian.h"
#include "document/blend_keys.h"
#include "tests/support/document_builder.h"

namespace tessary::test {
namespace {

LayerBuilder Small() { return LayerBuilder({0, 0, 1, 1}).Solid(0xFF102030).Mode("mul "); }

Opened Open(const LayerBuilder& layer) {
    return OpenBytes(DocumentBuilder(kColorRgb, 8, 3, 4, 4).Layer(layer).Build());
}

template <auto Field>
int64_t Get(const PsdLayer& layer) {
    return int64_t{layer.*Field};
}

int64_t Excluded(const PsdLayer& layer) {
    int64_t ids = 0;
    for (const PsdChannelInfo& channel : layer.channels.span()) ids = ids * 10 + channel.excluded;
    return ids;
}

TEST(TaggedBlocks, EachKeyHasItsField) {
    const Bytes on = {1, 9, 9, 9}, off = {0, 9, 9, 9};
    const auto type = [](uint32_t value) { return ByteWriter().U32(value); };
    const auto group = [](const PsdLayer& layer) { return int64_t{GroupBlendMode(layer)}; };
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
        {"lspf", type(1), Get<&PsdLayer::protectTransparency>, 0, 1},
        {"lspf", type(0x80000002), Get<&PsdLayer::protectComposite>, 0, 1},
        {"lspf", type(4), Get<&PsdLayer::protectPosition>, 0, 1},
        {"fxrp", ByteWriter().F64(-1.9).F64(2.9), Get<&PsdLayer::referenceX>, 0, -1},
        {"fxrp", ByteWriter().F64(1e300).F64(2.9), Get<&PsdLayer::referenceY>, 0, 2},
        {"lsct", type(1), Get<&PsdLayer::layerKind>, kLayerOrdinary, kLayerGroup},
        {"lsct", type(2), Get<&PsdLayer::layerKind>, kLayerOrdinary, kLayerGroup},
        {"lsct", type(3), Get<&PsdLayer::layerKind>, kLayerOrdinary, kLayerGroupEnd},
        {"lsct", type(4), Get<&PsdLayer::layerKind>, kLayerOrdinary, kLayerOrdinary},
        {"lsct", type(1), group, kBlendMultiply, kBlendMultiply},
        {"lsct", type(1).Text("8BIMscrn"), group, kBlendMultiply, kBlendScreen},
        {"lsct", type(1).Text("8BIMnorm"), group, kBlendMultiply, kBlendNormal},
        {"lsct", type(1).Text("8BIMscrn").U32(1), group, kBlendMultiply, kBlendMultiply},
        // 0xFFFF0001 is no channel's id, whatever its low half says.
        {"brst", ByteWriter().U32(2).U32(0xFFFF0001).I32(-1), Excluded, 0, 1001},
        {"odd ", Bytes(5), Get<&PsdLayer::knockout>, 0, 0},
    };
    const Opened plain = Open(Small());
    for (const auto& [key, data, get, before, after] : cases) {
        const Opened opened = Open(Small().Block(key, data).Block("lyvr", type(9)));
        ASSERT_TRUE(opened.document) << key;
        EXPECT_EQ(get(plain.document->layers[0]), before) << key;
        EXPECT_EQ(get(opened.document->layers[0]), after) << key;
        EXPECT_EQ(opened.document->layers[0].layerVersion, 9) << key << ": the next block is found";
    }
}

TEST(TaggedBlocks, UnicodeNamesKeep1024Units) {
    for (const uint32_t units : {3u, 1024u, 5000u}) {
        const Bytes name = ByteWriter().U32(units).Raw(Bytes(2 * units, 'u'));
        const Opened opened = Open(Small().Block("luni", Bytes(4)).Block("luni", name));
        ASSERT_EQ(opened.result, PsdReadResult::kOk) << units;
        const PsdUnicodeString& kept = opened.document->layers[0].unicodeName;
        ASSERT_EQ(kept.bytes.count(), 2 * (std::min(units, 1024u) + 1));
        EXPECT_EQ(LoadU32(kept.bytes.get() + 2 * kept.length - 2), 0x75750000u);
    }
}

TEST(BlendKeys, UnknownKeysAreNormal) {
    EXPECT_EQ(BlendModeFromKey(FourCC("lite")), 6u);
    EXPECT_EQ(BlendModeFromKey(FourCC("smud")), 18u);
    EXPECT_EQ(BlendModeFromKey(FourCC("pass")), 23u);
    EXPECT_EQ(BlendModeFromKey(FourCC("NORM")), kBlendNormal);
    EXPECT_EQ(GroupBlendMode(PsdLayer()), kBlendPassThrough);
}

}  // namespace
}  // namespace tessary::test
