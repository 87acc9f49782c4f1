// Small files that claim, repeat or nest much: they are refused or read without more memory than their bytes
// are worth, and what costs them nothing is not drawn without end.
#include <gtest/gtest.h>

#include "properties/effect_records.h"
#include "render/render.h"
#include "tests/support/document_builder.h"
#include "tools/sample_blocks.h"

namespace tessary::test {
namespace {

DocumentBuilder Small(uint32_t side = 8) { return DocumentBuilder(kColorRgb, 8, 3, side, side); }
LayerBuilder Layer(int32_t side) { return LayerBuilder({0, 0, side, side}).ChannelData(-1, {0, 0}); }

#if defined(TESSARY_FAULT_INJECTION)
TEST(Bombs, AreRefusedOrReadInLittleMemory) {
    constexpr auto kRefused = PsdReadResult::kOutOfMemory, kRead = PsdReadResult::kOk;
    constexpr uint64_t kLittle = 4u << 20;
    const LayerBuilder wide({0, 0, 20000, 20000});
    Bytes noRuns(100000, 0x80), earlyEnd = ByteWriter().U16(2).Raw(Zip(Bytes(50)));
    noRuns[0] = 0, noRuns[1] = 1;
    earlyEnd.resize(60000);
    DocumentBuilder repeated = Small(), gray(kColorGrayscale, 8, 1, 8000, 8000),
                    many(kColorGrayscale, 8, 1, 12000, 12000);
    for (int i = 0; i < 10000; ++i) repeated.Resource(i % 2 ? 1036 : 1060, Bytes(40));
    LayerBuilder channels = Layer(0);
    for (int16_t i = 0; i < 32766; ++i) channels.ChannelData(i, {});
    DocumentBuilder crowded = Small();
    LayerBuilder blocks = Layer(0);
    for (int i = 0; i < 20; ++i) blocks.Block("lrFX", Bytes(4));
    for (int i = 0; i < 1500; ++i) crowded.Layer(blocks);
    ByteWriter lists = ByteWriter().U32(0).U32(16).ClassName("null").U32(1).ItemHead("deep", "VlLs");
    for (int i = 0; i < 100000; ++i) lists.U32(1).Text("VlLs");
    const struct {
        const char* what;
        Bytes file;
        PsdReadResult want;
        uint64_t largest;
    } cases[] = {
        {"pixels without data", gray.MergedData({0, 0}).Build(), kRefused, kLittle},
        {"a few samples of many", many.MergedData(ByteWriter().U16(2).Raw(Zip(Bytes(2000000)))).Build(),
         kRefused, UINT64_MAX},
        {"zip that ends", Small(20000).MergedData(earlyEnd).Build(), kRefused, UINT64_MAX},
        {"no runs", Small().Layer(LayerBuilder(wide).ChannelData(0, noRuns)).Build(), kRefused, UINT64_MAX},
        {"repeated resources", repeated.Build(), kRead, kLittle},
        {"exclusions", Small().Layer(channels.Block("brst", Bytes(1000000))).Build(), kRead, kLittle},
        {"effects of nothing", crowded.Build(), kRefused, kLittle},
        {"nested lists", Small().Layer(Layer(0).Block("lfx2", lists.U32(0))).Build(), kRead, kLittle},
    };
    for (const auto& test : cases) {
        FailAllocationNumber(0);
        EXPECT_EQ(OpenBytes(test.file).result, test.want) << test.what;
        EXPECT_LE(LargestAllocation(), test.largest) << test.what;
    }
}
#endif

TEST(Bombs, DrawingWithoutDataHasAnEnd) {
    // An adjustment that draws nothing in this mode takes its share all the same, and hardly any time.
    DocumentBuilder mixed(kColorGrayscale, 8, 1, 1024, 1024);
    const Bytes mixer = ByteWriter().U16(1).Zeros(42);
    for (int i = 0; i < 200; ++i) mixed.Layer(Layer(0).Block("mixr", mixer).Block("iOpa", Bytes(4)));
    const Opened many = OpenBytes(mixed.MergedData({0, 0}).Build());
    ASSERT_EQ(many.result, PsdReadResult::kOk);
    ASSERT_EQ(Render(many.document.get(), 0, 0, 1024, 1024), PsdReadResult::kOk);
    EXPECT_LT(many.document->drawingLeft, 4u * 1024u * 1024u);

    const Opened one =
        OpenBytes(Small().Layer(Layer(4000).Block("lfx2", tools::DropShadow(75, 0, 0, 250))).Build());
    ASSERT_EQ(Render(one.document.get(), 0, 0, 8, 8), PsdReadResult::kOk);
    auto* effects = FindProperty<EffectsRecord>(one.document->layers[0], kPropertyEffects);
    EXPECT_TRUE(effects->renderPending[kSlotDropShadow]);
}

}  // namespace
}  // namespace tessary::test
