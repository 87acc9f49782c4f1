#include "document/layer_record.h"

#include <gtest/gtest.h>

#include <limits>

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

}  // namespace
}  // namespace tessary::test
