// Layers drawn while the document is read, against the same document read whole and then rendered.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "render/streamed_render.h"
#include "tests/support/document_builder.h"
#include "tools/sample_blocks.h"

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

// Layers of all kinds and modes, larger and smaller in turn, so that memory is handed on.
class RandomLayers {
public:
    explicit RandomLayers(uint32_t seed) : m_random(seed) {}

    LayerBuilder Next() {
        static constexpr const char* kModes[] = {"norm", "diss", "mul ", "scrn",
                                                 "over", "vLit", "hue ", "diff"};
        const uint32_t kind = Below(8);
        const int32_t left = static_cast<int32_t>(Below(30)) - 5, top = static_cast<int32_t>(Below(30)) - 5;
        const Rect bounds = {left, top, left + static_cast<int32_t>(Below(40)),
                             top + static_cast<int32_t>(Below(40))};
        LayerBuilder layer(kind == 0 ? Rect{} : bounds);
        layer.Mode(kModes[Below(8)]).Opacity(Byte());
        if (kind < 2 || bounds.IsEmpty()) {
            layer.ChannelData(-1, {}).ChannelData(0, {0, 0});
        } else {
            layer.Pixels(Picture(bounds), static_cast<uint16_t>(Below(4)));
        }
        if (Below(3) == 0) {
            const Rect mask = {left + 2, top, left + 12, top + 9};
            layer.Mask(mask, Below(2) ? 255 : 0, 0, Bytes(90, Byte()));
        }
        if (kind == 0 || Below(5) == 0)
            layer.Block(Below(2) ? "nvrt" : "blnc", ByteWriter().I16(40).Zeros(18));
        if (Below(4) == 0) layer.Block("lfx2", tools::DropShadow(75, 120, 4, static_cast<int>(Below(9))));
        if (Below(4) == 0) layer.Block("lfx2", tools::ColorOverlay());
        if (Below(9) == 0) layer.Hidden();
        return layer;
    }
    uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(m_random()) % limit; }

private:
    uint8_t Byte() { return Below(2) ? 255 : static_cast<uint8_t>(Below(256)); }
    Pixels Picture(const Rect& bounds) {
        Pixels pixels(static_cast<size_t>(bounds.Width() * bounds.Height()));
        for (uint32_t& pixel : pixels) pixel = PackPixel(Byte(), Below(256), Below(256), Below(256));
        return pixels;
    }
    std::mt19937 m_random;
};

Bytes RandomFile(uint32_t seed) {
    RandomLayers random(seed);
    DocumentBuilder document(kColorRgb, 8, 3, 33, 29), second = document;
    for (uint32_t i = 0; i < 6; ++i) {
        const bool isGroup = random.Below(4) == 0;
        if (isGroup) document.Layer(GroupEnd()).Layer(random.Next());
        document.Layer(random.Next());
        if (isGroup) document.Layer(GroupHead("norm", random.Below(2) ? "mul " : "pass"));
        second.Layer(random.Next());
    }
    if (seed % 3 == 0) document.LayersInBlock("Lr16");
    if (seed % 5 == 0) document.DocumentBlock("Lr16", second.LayerInfo());
    return document.MergedData({}).Build();
}

TEST(StreamedRender, DrawsWhatTheWholeDocumentGives) {
    for (uint32_t seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE(seed);
        const Bytes file = RandomFile(seed);
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

// What one layer leaves in the memory that the next one takes shows nowhere, and costs it nothing.
TEST(StreamedRender, LayersDoNotFeelThoseBefore) {
    const Rect tall = {0, 0, 64, 600};  // the colour that comes first ends with a step of rows
    DocumentBuilder cut(kColorRgb, 8, 3, 64, 600), large(kColorRgb, 8, 3, 1, 1);
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

}  // namespace
}  // namespace tessary::test
