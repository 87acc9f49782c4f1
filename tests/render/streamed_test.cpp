// Layers drawn while the document is read, against the same document read whole and then rendered.
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

#include "document/plane_format.h"
#include "render/streamed_render.h"
#include "tests/render/random_document.h"
#include "tools/sample_effects.h"

namespace tessary::test {
namespace {

using Pixels = std::vector<uint32_t>;

Pixels CanvasOf(const PsdDocument& document) {
    return {document.canvas.get(), document.canvas.get() + document.canvas.count()};
}

Pixels RenderedWhole(const Bytes& file) {
    const Opened opened = OpenBytes(file);
    if (opened.result != PsdReadResult::kOk) return {};
    PsdDocument& document = *opened.document;
    const PsdReadResult result = Render(&document, 0, 0, static_cast<int32_t>(document.width),
                                        static_cast<int32_t>(document.height), 7);
    return result == PsdReadResult::kOk ? CanvasOf(document) : Pixels();
}

PsdReadResult RenderStreamed(const Bytes& file, Pixels& picture, uint64_t* steps = nullptr) {
    MemoryStream stream(file);
    StreamedRender render;
    render.seed = 7;
    const LayerSink sink = SinkOf(render);
    Owned<PsdDocument> document;
    PsdReadResult result = OpenDocument(document, &stream, kReadEverything, {kMergedChecked, 0, &sink});
    if (result == PsdReadResult::kOk) result = EndStreamedRender(render, *document);
    if (result == PsdReadResult::kOk) picture = CanvasOf(*document);
    if (document && steps) *steps = document->allowance.stepsSpent;
    return result;
}

TEST(StreamedRender, DrawsWhatTheWholeDocumentGives) {
    for (uint32_t seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE(seed);
        const Bytes file = RandomDocument(seed, 33, 29, false).File();
        const Pixels want = RenderedWhole(file);
        ASSERT_EQ(want.size(), 33u * 29u);
        Pixels got;
        ASSERT_EQ(RenderStreamed(file, got), PsdReadResult::kOk);
        ASSERT_TRUE(got == want);
    }
    // Nothing at all, and layers that are drawn by nobody.
    for (const bool hasLayer : {false, true}) {
        DocumentBuilder document(kColorRgb, 8, 3, 2, 1);
        if (hasLayer) document.Layer(LayerBuilder({0, 0, 2, 1}).Solid(0xFF102030).Hidden());
        Pixels got;
        ASSERT_EQ(RenderStreamed(document.Build(), got), PsdReadResult::kOk);
        EXPECT_EQ(got, Pixels(2, kBackground)) << hasLayer;
    }
}

// A lowest layer of the canvas's size gives its pixels away where that is all that drawing it would do.
TEST(StreamedRender, LowestLayerOfCanvasSize) {
    const Rect whole = {0, 0, 256, 2};
    Pixels pixels(512);
    for (uint32_t i = 0; i < 512; ++i) pixels[i] = PackPixel(i & 255, i * 7 & 255, i * 31 & 255, i * 3 & 255);
    const LayerBuilder plain = LayerBuilder(whole).Pixels(pixels);
    const auto with = [&](auto change) {
        LayerBuilder layer = plain;
        change(layer);
        return layer;
    };
    const std::tuple<const char*, LayerBuilder> lowest[] = {
        {"plain", plain},
        {"hidden", with([](LayerBuilder& layer) { layer.Hidden(); })},
        {"not quite opaque", with([](LayerBuilder& layer) { layer.Opacity(254); })},
        {"multiplied", with([](LayerBuilder& layer) { layer.Mode("mul "); })},
        {"masked", with([&](LayerBuilder& layer) {
             layer.Mask({3, 0, 90, 1}, 255, 0, Bytes(87, 20));
         })},
        {"inverted", with([](LayerBuilder& layer) { layer.Block("nvrt", {}); })},
        {"overlaid", with([](LayerBuilder& layer) { layer.Block("lfx2", tools::ColorOverlay()); })},
        {"cut", LayerBuilder(whole).ChannelData(0, {0, 0, 255})},
        {"beside", LayerBuilder({1, 0, 257, 2}).Pixels(pixels)},
        {"higher", LayerBuilder({0, 0, 256, 4}).Pixels(Pixels(1024, 0x80123456))},
    };
    for (const auto& [label, layer] : lowest) {
        DocumentBuilder document(kColorRgb, 8, 3, 256, 2);
        document.Layer(layer).Layer(LayerBuilder({5, 0, 200, 2}).Solid(0x80C08040)).Layer(plain);
        for (const bool comesAgain : {false, true}) {
            if (comesAgain) document.DocumentBlock("Lr16", document.LayerInfo());
            Pixels got;
            ASSERT_EQ(RenderStreamed(document.Build(), got), PsdReadResult::kOk) << label;
            EXPECT_TRUE(got == RenderedWhole(document.Build())) << label << comesAgain;
        }
    }
}

// What one layer leaves in the memory that the next one takes shows nowhere, and costs it nothing.
TEST(StreamedRender, LayersDoNotFeelThoseBefore) {
    const Rect tall = {0, 0, 64, 600};  // the colour that comes first ends with a step of rows
    DocumentBuilder cut(kColorRgb, 8, 3, 65, 600), large(kColorRgb, 8, 3, 1, 1);
    LayerBuilder layer(tall);
    layer.ChannelData(0, ByteWriter().U16(0).Raw(Bytes(64 * 256, 200)));
    for (const int16_t id : {int16_t{1}, int16_t{2}, int16_t{-1}}) layer.Channel(id, Bytes(64 * 600, 99));
    Pixels got;
    const Bytes file = cut.Layer(LayerBuilder(tall).Solid(~0u)).Layer(layer).Build();
    ASSERT_EQ(RenderStreamed(file, got), PsdReadResult::kOk);
    EXPECT_TRUE(got == RenderedWhole(file));
    // Either of these is as large as all of them may be together.
    for (const int16_t id : {int16_t{1}, int16_t{0}})
        large.Layer(LayerBuilder({0, 0, 5700, 5700}).ChannelData(id, {0, 0, 255}));
    ASSERT_EQ(RenderStreamed(large.Build(), got), PsdReadResult::kOk);
    EXPECT_EQ(got, Pixels{0xFFFF0000});
    // Of many layer infos the first is drawn as it comes, and the last.
    DocumentBuilder adjusted(kColorRgb, 8, 3, 1, 1);
    adjusted.Layer(LayerBuilder(Rect{}).ChannelData(0, {}).Block("nvrt", {}).Opacity(9));
    uint64_t steps[2] = {};
    for (uint64_t& spent : steps) {
        for (int i = 0; i < 3; ++i) adjusted.DocumentBlock("Lr16", adjusted.LayerInfo());
        ASSERT_EQ(RenderStreamed(adjusted.Build(), got, &spent), PsdReadResult::kOk);
    }
    EXPECT_GT(steps[0], 0u);
    EXPECT_EQ(steps[0], steps[1]);
}

// A layer waits where it needs a pattern, or there is nothing yet that vouches for a large canvas.
TEST(StreamedRender, LayersWaitNoLongerThanTheyMust) {
    constexpr uint32_t kSide = 5800, kRed = 0xFFFF0000;
    const auto patterned = [](LayerBuilder layer, uint32_t percent) {
        const tools::EffectItems overlay = {"patternFill", tools::Items().Shown("Nrml", percent)};
        return layer.Block("lfx2", tools::EffectsBlock({&overlay, 1}));
    };
    const Rect small = {0, 0, 4, 4};
    const LayerBuilder dot = LayerBuilder(small).Solid(0xFF00FF00);
    const std::tuple<const char*, LayerBuilder, bool> lowest[] = {
        {"end of a group", GroupEnd(), false},
        {"dot", dot, false},
        {"pattern that does not show", patterned(dot, 0), false},
        {"pattern of nothing", patterned(LayerBuilder(small).ChannelData(0, {0, 0}), 100), false},
        {"pattern", patterned(dot, 100), true},
    };
    LayerBuilder paper({0, 0, kSide, kSide});
    paper.ChannelData(0, ByteWriter().U16(kCompressionZip).Raw(Zip(Bytes(size_t{kSide} * kSide, 255))));
    for (const auto& [label, layer, waits] : lowest) {
        MemoryStream stream(DocumentBuilder(kColorRgb, 8, 3, kSide, kSide).Layer(layer).Layer(paper).Build());
        StreamedRender render;
        const LayerSink sink = SinkOf(render);
        Owned<PsdDocument> document;
        ASSERT_EQ(OpenDocument(document, &stream, kReadEverything, {kMergedChecked, 0, &sink}),
                  PsdReadResult::kOk);
        EXPECT_EQ(render.firstWaiting != nullptr, waits) << label;
        ASSERT_EQ(EndStreamedRender(render, *document), PsdReadResult::kOk);
        EXPECT_EQ(document->canvas[4], kRed) << label;
    }
}

}  // namespace
}  // namespace tessary::test
