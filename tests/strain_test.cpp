// Small files that claim, repeat or nest much: they are refused or read without more memory than their bytes
// are worth, and what costs them nothing is not drawn without end. Many threads at once get what one gets.
#include <gtest/gtest.h>

#include <thread>

#include "frontend/document_pixels.h"
#include "properties/effect_records.h"
#include "render/render.h"
#include "tests/support/document_builder.h"
#include "tools/sample_blocks.h"

namespace tessary::test {
namespace {

LayerBuilder Layer(int32_t side) { return LayerBuilder({0, 0, side, side}).ChannelData(-1, {0, 0}); }

#if defined(TESSARY_FAULT_INJECTION)
DocumentBuilder Small(uint32_t side = 8) { return DocumentBuilder(kColorRgb, 8, 3, side, side); }

TEST(Bombs, AreRefusedOrReadInLittleMemory) {
    constexpr auto kRefused = PsdReadResult::kOutOfMemory, kRead = PsdReadResult::kOk;
    constexpr uint64_t kLittle = 4u << 20;
    Bytes noRuns(100000, 0x80), earlyEnd = ByteWriter().U16(2).Raw(Zip(Bytes(50)));
    noRuns[0] = 0, noRuns[1] = 1;
    earlyEnd.resize(60000);
    DocumentBuilder resources = Small(), effects = Small(), many(kColorGrayscale, 8, 1, 12000, 12000);
    for (int i = 0; i < 10000; ++i) resources.Resource(i % 2 ? 1036 : 1060, Bytes(40));
    LayerBuilder blocks = Layer(0), channels = Layer(0), repeating({0, 0, 2, 1});
    for (int i = 0; i < 20; ++i) blocks.Block("lrFX", Bytes(4));
    for (int i = 0; i < 1500; ++i) effects.Layer(blocks);
    for (int16_t i = 0; i < 32766; ++i) channels.ChannelData(i, {}), repeating.Channel(0, {1, 2}, 2);
    DocumentBuilder counts = Small();
    for (const uint16_t id : std::initializer_list<uint16_t>{1006, 1026, 1032, 1038, 1045, 1050, 1053, 1054})
        counts.Resource(id, ByteWriter().U32(6).Raw(Bytes(25, 255)));
    Bytes header = Small().Build();
    header.resize(26);
    const struct {
        const char* what;
        Bytes file;
        PsdReadResult want;
        uint64_t largest;
    } cases[] = {
        {"a few samples of many", many.MergedData(ByteWriter().U16(2).Raw(Zip(Bytes(2000000)))).Build(),
         kRefused, UINT64_MAX},
        {"zip that ends", Small(20000).MergedData(earlyEnd).Build(), kRefused, UINT64_MAX},
        {"no runs", Small().Layer(LayerBuilder({0, 0, 20000, 20000}).ChannelData(0, noRuns)).Build(),
         kRefused, UINT64_MAX},
        {"resources", resources.Build(), kRead, kLittle},
        {"counts", counts.Build(), kRead, kLittle},
        {"planes", DocumentBuilder(kColorRgb, 32, 65535, ~0u, ~0u).MergedData({}).Build(), kRefused, kLittle},
        {"palette", ByteWriter().Raw(header).U32(0x7FFFFFFF), kRefused, 64u << 20},
        {"exclusions", Small().Layer(channels.Block("brst", Bytes(1000000))).Build(), kRead, kLittle},
        {"effects of nothing", effects.Build(), kRefused, kLittle},
        // Each decoded channel takes the inflater's memory.
        {"channels", Small().Layer(repeating).Build(), kRead, kLittle},
    };
    for (const auto& test : cases) {
        FailAllocationNumber(0);
        EXPECT_EQ(OpenBytes(test.file).result, test.want) << test.what;
        EXPECT_LE(LargestAllocation(), test.largest) << test.what;
        EXPECT_LE(AllocationCount(), 30000u) << test.what;
    }
}
#endif

TEST(Bombs, DrawingWithoutDataHasAnEnd) {
    // An adjustment that draws nothing in this mode takes its share all the same, and hardly any time.
    DocumentBuilder mixed(kColorGrayscale, 8, 1, 1024, 1024);
    for (int i = 0; i < 300; ++i) mixed.Layer(Layer(0).Block("mixr", ByteWriter().U16(1).Zeros(42)));
    mixed.Layer(Layer(1000).Block("lfx2", tools::DropShadow(75, 0, 0, 250)));
    const Opened many = OpenBytes(mixed.MergedData({0, 0}).Build());
    ASSERT_EQ(many.result, PsdReadResult::kOk);
    ASSERT_EQ(Render(many.document.get(), 0, 0, 1024, 1024), PsdReadResult::kOk);
    EXPECT_LT(many.document->drawingLeft, 6u * 1024u * 1024u);
    auto* effects = FindProperty<EffectsRecord>(many.document->layers[300], kPropertyEffects);
    EXPECT_TRUE(effects->renderPending[kSlotDropShadow]);
}

std::vector<uint32_t> Picture(const Bytes& file) {
    MemoryStream stream(file);
    DocumentPixels picture;
    if (DecodeDocumentPixels(&stream, picture) != PsdReadResult::kOk) return {};
    return {picture.pixels.get(), picture.pixels.get() + picture.pixels.count()};
}

// Meant for the thread sanitizer above all, which sees every table that is built on first use.
TEST(Threads, DecodeAsOneThreadDoes) {
    DocumentBuilder layered(kColorRgb, 8, 3, 16, 16), lab(kColorLab, 8, 3, 16, 16);
    layered.HasRealMergedData(false);
    layered.Layer(
        LayerBuilder({2, 2, 12, 12}).Solid(0xC0406080).Block("lfx2", tools::DropShadow(75, 120, 3, 2)));
    layered.Layer(LayerBuilder({0, 0, 0, 0}).Solid(0).Block("blnc", ByteWriter().I16(40).Zeros(18)));
    layered.Layer(LayerBuilder({0, 0, 16, 16}).Solid(0x80F01020).Mode("hue "));
    Bytes planes(3 * 256);
    for (size_t i = 0; i < planes.size(); ++i) planes[i] = static_cast<uint8_t>(i * 7);
    const Bytes files[] = {layered.Build(), lab.Merged(planes, 3).Build()};

    std::vector<uint32_t> got[8];
    std::vector<std::thread> threads;
    for (size_t i = 0; i < std::size(got); ++i)
        threads.emplace_back([&, i] { got[i] = Picture(files[i % 2]); });
    for (std::thread& thread : threads) thread.join();
    for (size_t i = 0; i < std::size(got); ++i)
        EXPECT_TRUE(got[i].size() == 256 && got[i] == Picture(files[i % 2])) << i;
}

}  // namespace
}  // namespace tessary::test
