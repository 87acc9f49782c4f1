// The limits themselves, and documents on both sides of them.
#include "document/allowance.h"

#include <gtest/gtest.h>

#include "document/plane_format.h"
#include "tools/document_builder.h"

namespace tessary::test {
namespace {

constexpr uint64_t kMiB = 1 << 20, kFree = 128 * kMiB;

TEST(Allowance, HoldsUpToItsLimitsAndNotBeyond) {
    const auto allowance = [](uint64_t filled) {
        Allowance filling;
        CountFilled(filling, filled);
        return filling;
    };
    const auto spends = [&](uint64_t filled, uint64_t steps, uint64_t then = 0) {
        Allowance spending = allowance(filled);
        return SpendSteps(spending, steps) && SpendSteps(spending, then);
    };
    const auto records = [](uint64_t bytes, uint64_t then, uint64_t delivered) {
        Allowance taking;
        return TakeRecord(taking, bytes, delivered) && TakeRecord(taking, then, delivered);
    };
    const auto effects = [](uint64_t bytes, uint64_t then) {
        Allowance keeping;
        return KeepEffect(keeping, bytes) && KeepEffect(keeping, then);
    };
    constexpr uint64_t kSeconds = 1000 * 1000 * 1000;
    const struct {
        const char* what;
        bool atLimit, beyond;
    } cases[] = {
        {"a size", IsBelieved(kFree, 0, 1), IsBelieved(kFree + 1, 0, 1)},
        {"a size that input may fill", IsBelieved(1000 * kMiB, kMiB, 1000),
         IsBelieved(1000 * kMiB + 1, kMiB, 1000)},
        {"a size that was cut", IsBelieved(kFree + 2560, 10, 1), IsBelieved(kFree + 2561, 10, 1)},
        {"pixels", MayKeepPixels(kFree, 0, 0), MayKeepPixels(kFree + 1, 0, 0)},
        {"pixels of input", MayKeepPixels(kFree + 2560, 10, 0), MayKeepPixels(kFree + 2561, 10, 0)},
        {"filled pixels", MayKeepPixels(kFree + 2960, 10, 100), MayKeepPixels(kFree + 2961, 10, 100)},
        {"work", MayWorkOn(allowance(0), 3 * kFree + 2, 4, 0), MayWorkOn(allowance(0), 3 * kFree + 3, 4, 0)},
        {"filled work", MayWorkOn(allowance(12), 3 * (kFree + 20), 5, 0),
         MayWorkOn(allowance(12), 3 * (kFree + 21), 5, 0)},
        {"steps", spends(0, 10 * kSeconds - 1, 1), spends(0, 10 * kSeconds - 1, 2)},
        {"steps for pixels", spends(4, 10 * kSeconds, 1000), spends(4, 10 * kSeconds, 1001)},
        {"records", records(16 * kMiB - 9, 9, 0), records(16 * kMiB - 9, 10, 0)},
        {"records of input", records(16 * kMiB, 240, 10), records(16 * kMiB, 241, 10)},
        {"bytes", MayKeepBytes(4 * kMiB, 0), MayKeepBytes(4 * kMiB + 1, 0)},
        {"bytes of input", MayKeepBytes(500 * kMiB, 5 * kMiB), MayKeepBytes(500 * kMiB, 5 * kMiB - 1)},
        {"effects", effects(8 * kMiB - 5, 5), effects(8 * kMiB - 5, 6)},
    };
    for (const auto& test : cases) {
        EXPECT_TRUE(test.atLimit) << test.what;
        EXPECT_FALSE(test.beyond) << test.what;
    }
    Allowance refused;
    EXPECT_FALSE(SpendSteps(refused, UINT64_MAX));
    EXPECT_EQ(refused.stepsSpent, 0u) << "what is refused costs nothing";
    EXPECT_EQ(StepsOver(10, 3, 5), 3u * (200 + 50));
    EXPECT_EQ(StepsOver(uint64_t{1} << 40, uint64_t{1} << 40, 1), UINT64_MAX);
}

#if defined(TESSARY_FAULT_INJECTION)
DocumentBuilder Gray(uint32_t side) { return {kColorGrayscale, 8, 1, side, side}; }
LayerBuilder Empty(int32_t side) { return LayerBuilder({0, 0, side, side}).ChannelData(0, {0, 0, 255}); }
LayerBuilder Masked(int32_t side) {
    return LayerBuilder({0, 0, 1, 1}).Mask({0, 0, side, side}, 0, 0).ChannelData(-2, {0, 0, 255});
}
Bytes Layers(int count, const LayerBuilder& layer) {
    DocumentBuilder document = Gray(8);
    for (int i = 0; i < count; ++i) document.Layer(layer);
    return document.Build();
}
// Twenty records of a hundred bytes each, as many as a layer takes.
LayerBuilder Crowded() {
    LayerBuilder layer(Rect{});
    layer.ChannelData(0, {});
    for (int i = 0; i < 20; ++i) layer.Block("lrFX", Bytes(4));
    return layer;
}
Bytes Palette(uint32_t bytes) {
    Bytes head = DocumentBuilder(kColorRgb, 8, 3, 8, 8).Build();
    head.resize(26);
    return ByteWriter().Raw(head).U32(bytes).Zeros(1000);
}
// A pattern of gray rows without runs; one byte of data for every 64 samples follows.
Bytes Tile(int32_t side) {
    const Rect bounds = {0, 0, side, side};
    const size_t rows = static_cast<size_t>(side);
    const ByteWriter plane =
        ByteWriter().U32(8).RectTlbr(bounds).U16(8).U8(1).Zeros(2 * rows + rows * rows / 64 + 64);
    const ByteWriter planes = ByteWriter().RectTlbr(bounds).U32(1).U32(1).Counted(plane).U32(0).U32(0);
    ByteWriter pattern = ByteWriter().U32(1).U32(kColorGrayscale).U32(0).Unicode(u"").Pascal("a", 1);
    pattern.U32(3).Counted(planes);
    return Gray(8).Layer(Empty(1)).DocumentBlock("Patt", ByteWriter().Counted(pattern)).Build();
}

// What small files make of memory at once, whatever they claim.
TEST(Allowance, BoundsWhatDocumentsTake) {
    using enum PsdReadResult;
    const struct {
        const char* what;
        Bytes file;
        PsdReadResult result;
        uint64_t least, most;  // bytes of the largest allocation
    } cases[] = {
        {"merged image", Gray(5792).MergedData({0, 0}).Build(), kOk, 5792 * 5792 * 4, kFree},
        {"merged image, larger", Gray(5793).MergedData({0, 0}).Build(), kOutOfMemory, 0, kMiB},
        {"layer", Layers(1, Empty(5792)), kOk, 5792 * 5792 * 4, kFree},
        {"layer, larger", Layers(1, Empty(5800)), kOk, 0, kMiB},
        {"mask", Layers(1, Masked(11585)), kOk, 11585 * 11585, kFree},
        {"mask, larger", Layers(1, Masked(11600)), kOk, 0, kMiB},
        {"palette", Palette(3 << 20), kOk, 4 << 20, 5 << 20},
        {"palette, larger", Palette(5 << 20), kOutOfMemory, 5 << 20, 6 << 20},
        {"palette that cannot be", Palette(100 << 20), kOutOfMemory, 0, kMiB},
        {"names", Gray(8).Resource(1006, Bytes(60000)).Build(), kOk, kMiB, 4 * kMiB},
        {"records", Layers(20, Crowded()), kOk, 0, kMiB},
        {"records, more", Layers(2000, Crowded()), kOutOfMemory, 0, 3 * kMiB},
        {"tile", Tile(4096), kOk, 64 * kMiB, 65 * kMiB},
        {"tile, larger", Tile(4097), kOk, 0, kMiB},
    };
    for (const auto& test : cases) {
        FailAllocationNumber(0);
        EXPECT_EQ(OpenBytes(test.file).result, test.result) << test.what;
        EXPECT_GE(LargestAllocation(), test.least) << test.what;
        EXPECT_LE(LargestAllocation(), test.most) << test.what;
    }
    // Layers that take the place of others do not pay for these.
    const Bytes again = Gray(8).Layer(Empty(5700)).LayerInfo();
    const Opened opened = OpenBytes(Gray(8).Layer(Empty(5700)).DocumentBlock("Lr16", again).Build());
    ASSERT_EQ(opened.result, kOk);
    EXPECT_TRUE(opened.document->layers[0].image);
}
#endif

}  // namespace
}  // namespace tessary::test
