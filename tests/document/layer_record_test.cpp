#include "document/layer_record.h"

#include <gtest/gtest.h>

#include <limits>
#include <tuple>

#include "document/big_endian.h"
#include "document/blend_keys.h"
#include "tests/support/document_builder.h"

namespace tessary::test {
namespace {

LayerBuilder Small() { return LayerBuilder({0, 0, 2, 1}).Solid(0xFF102030); }

Opened Open(const LayerBuilder& layer) {
    return OpenBytes(DocumentBuilder(kColorRgb, 8, 3, 4, 4).Layer(layer).Build());
}

TEST(LayerRecord, RefusesDamagedRecords) {
    using enum PsdReadResult;
    const Rect rect = {0, 0, 1, 1};
    const std::pair<LayerBuilder, PsdReadResult> cases[] = {
        {Small().ChannelCount(0xFFFF), kBadLayer},
        {Small().ChannelCount(5), kBadLayerSignature},
        {Small().BlendSignature("8B64"), kBadLayerSignature},
        {Small().Filler(1), kBadLayer},
        {Small().ExtraLength(0), kBadLayer},
        {Small().ExtraLength(14), kBadLayer},
        {Small().ExtraLength(17), kBadBlockSignature},
        {Small().MaskBytes(Bytes(28)), kBadLayer},
        {Small().RealMask(rect, 128, 0, rect, 255, 0), kBadLayer},
        {Small().RealMask(rect, 255, 0, rect, 128, 0), kBadLayer},
        {Small().Ranges(Bytes(8)), kEmptyBlendRanges},
        {Small().Ranges(Bytes(16)), kOk},
        {Small().Block("lyid", Bytes(4), "8B64"), kBadBlockSignature},
        {Small().Block("lyid", Bytes(4)).ExtraLength(28), kBadLayer},
        {Small().Block("knko", Bytes(1)), kBadLayer},
        {Small().Block("lsct", Bytes(12)), kBadDividerSignature},
    };
    for (const auto& test : cases) EXPECT_EQ(Open(test.first).result, test.second) << "row " << &test - cases;
}

TEST(LayerRecord, KeepsItsFields) {
    const Bytes ranges = {0x10, 0x11, 0xE0, 0xE1, 0x20, 0x21, 0xD0, 0xD1, 1, 2, 3, 4, 5, 6, 7, 8};
    LayerBuilder record({-5, 7, 20, 9});
    record.ChannelData(2, {0, 0}).Mode("lum ").Opacity(77).Clipping(2).Flags(0x1A).Ranges(ranges);
    record.RealMask({1, 2, 3, 4}, 255, 7, {5, 6, 15, 26}, 0, 2);
    const Opened opened = Open(record);
    ASSERT_EQ(opened.result, PsdReadResult::kOk);
    const PsdLayer& layer = opened.document->layers[0];
    EXPECT_EQ(layer.bounds, (Rect{-5, 7, 20, 9}));
    EXPECT_TRUE(layer.width == 25 && layer.height == 2 && layer.channels[0].id == 2);
    EXPECT_TRUE(layer.blendMode == kBlendLuminosity && layer.opacity == 77);
    EXPECT_TRUE(layer.clipping && !layer.visible && !layer.obsolete && layer.pixelDataIrrelevant);
    EXPECT_EQ(layer.grayRanges.source.white, 0xE0E1);
    EXPECT_EQ(layer.grayRanges.destination.black, 0x2021);
    ASSERT_EQ(layer.channelRangeCount, 1);
    EXPECT_EQ(layer.channelRanges[0].destination.WhitePoint(), 7u);
    EXPECT_EQ(layer.mask.bounds, (Rect{5, 6, 15, 26}));
    EXPECT_TRUE(layer.mask.height == 20 && layer.mask.defaultColor == 0);
    EXPECT_TRUE(layer.mask.disabled && !layer.mask.relativeToLayer && !layer.mask.inverted);
}

TEST(LayerRecord, NamesFillMultiplesOfFour) {
    for (const size_t length : {0u, 3u, 4u, 254u, 255u}) {
        const std::string name(length, 'n');
        const Opened opened = Open(Small().Name(name).Flags(16).Block("lyid", ByteWriter().U32(42)));
        ASSERT_EQ(opened.result, PsdReadResult::kOk) << length;
        const PsdLayer& layer = opened.document->layers[0];
        EXPECT_TRUE(layer.name.text == name && layer.layerId == 42) << length;
        EXPECT_TRUE(layer.mask.disabled && layer.visible && !layer.pixelDataIrrelevant);
    }
}

// Neither the difference of the sides nor their product may decide by wrapping.
TEST(LayerRecord, RectanglesWithoutAreaHaveNoPixels) {
    constexpr int32_t kLow = std::numeric_limits<int32_t>::min(), kHigh = ~kLow;
    const Rect cases[] = {{0, 0, -3, -3},      {kLow, 0, kHigh, 1},
                          {kHigh, 0, kLow, 1}, {kHigh, kHigh, kLow, kLow},
                          {0, kHigh, 4, kLow}, {kLow, 0, 0, 1}};
    for (const Rect& rect : cases) {
        const Opened opened = Open(LayerBuilder(rect).ChannelData(0, {0, 0, 1, 2}).ChannelData(-1, {0, 0}));
        ASSERT_EQ(opened.result, PsdReadResult::kOk) << rect.left << ' ' << rect.top;
        EXPECT_FALSE(opened.document->layers[0].image);
    }
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
    using Getter = int64_t (*)(const PsdLayer&);
    const std::tuple<const char*, Bytes, Getter, int64_t, int64_t> cases[] = {
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
    const Opened plain = Open(Small().Mode("mul "));
    for (const auto& [key, data, get, before, after] : cases) {
        const Opened opened = Open(Small().Mode("mul ").Block(key, data).Block("lyvr", type(9)));
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
