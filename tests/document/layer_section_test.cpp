#include "document/layer_section.h"

#include <gtest/gtest.h>

#include <iterator>
#include <tuple>

#include "document/channel_codec.h"
#include "tests/support/document_builder.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {
namespace {

constexpr Rect kTwo = {0, 0, 2, 1};  // two pixels
using Channels = std::vector<std::pair<int16_t, Bytes>>;
using Pixels = std::vector<uint32_t>;

DocumentBuilder Rgb(uint32_t depth = 8) { return {kColorRgb, depth, 3, 4, 4}; }

// Two pixels, or none, with raw channels.
LayerBuilder Raw(const Channels& channels, const Rect& bounds = kTwo) {
    LayerBuilder layer(bounds);
    for (const auto& [id, samples] : channels) layer.ChannelData(id, ByteWriter().U16(0).Raw(samples));
    return layer;
}

template <class T>
std::vector<T> Values(const Owned<T>& values) {
    return {values.get(), values.get() + values.count()};
}

// What must hold of every open, and of every document that opens.
void CheckWhole(const Opened& opened) {
    ASSERT_EQ(opened.result == PsdReadResult::kOk, static_cast<bool>(opened.document));
    if (!opened.document) return;
    ASSERT_EQ(opened.document->layers.count(), static_cast<size_t>(opened.document->layerCount));
    for (const PsdLayer& layer : opened.document->layers.span()) {
        const int64_t pixels = layer.width < 1 || layer.height < 1 ? 0 : int64_t{layer.width} * layer.height;
        EXPECT_EQ(layer.image.count(), static_cast<size_t>(pixels));
        const int64_t masked = layer.mask.data ? int64_t{layer.mask.width} * layer.mask.height : 0;
        EXPECT_EQ(layer.mask.data.count(), static_cast<size_t>(masked));
        EXPECT_TRUE(!layer.parent || layer.parent->layerKind == kLayerGroup);
    }
}

TEST(LayerPixels, ChannelsArePlacedById) {
    const Pixels want = {0x09010305, 0x0A020406}, opaque = {0xFF010000, 0xFF020000};
    const Channels inks = {{0, {255, 0}}, {1, {255, 0}}, {2, {255, 0}}, {3, {255, 255}}, {-1, {9, 10}}};
    const Channels wide = {{0, {1, 255, 2, 0}}, {1, {3, 0, 4, 0}}, {2, {5, 0, 6, 0}}, {-1, {9, 0, 10, 0}}};
    const Bytes fill = ByteWriter().U32(16).ClassName("null").U32(1).ColorItem("Clr ", 7, 8, 9);
    const std::tuple<uint32_t, uint32_t, LayerBuilder, Pixels> cases[] = {
        {3, 8, Raw({{2, {5, 6}}, {1, {3, 4}}, {0, {1, 2}}, {-1, {9, 10}}}), want},
        {3, 8, Raw({{-2, {}}, {-1, {9, 10}}, {2, {5, 6}}, {1, {3, 4}}, {0, {1, 2}}}), want},
        {3, 16, Raw(wide), want},
        {3, 8, Raw({{3, {7}}, {-1, {9}}, {0, {1, 2}}, {1, {}}, {2, {}}}), opaque},  // five channels
        {3, 8, Raw({{0, {1, 2}}, {0, {3, 4}}}), opaque},
        {3, 32, Raw({{0, ByteWriter().F32(1).F32(0.5)}}), {0xFFFF0000, 0xFF7F0000}},
        {1, 8, Raw({{0, {1, 2}}, {-1, {9, 10}}}), {0x09010101, 0x0A020202}},
        {4, 8, Raw(inks), {0x09FFFFFF, 0x0A010101}},
        {0, 1, Raw({{0, {0x80}}}), {0xFF000000, 0xFFFFFFFF}},
        {3, 8, Raw({{0, {8}}, {1, {7, 7, 7}}}), {0xFF080700, 0xFF000700}},
        {3, 8, Raw({{2, {5, 6}}, {1, {}}}).ChannelData(-1, {}).ChannelData(0, {1}), {5, 6}},
        {3, 8, Raw({{0, {1, 2}}}).Block("SoCo", fill), opaque},
    };
    for (const auto& [mode, depth, layer, pixels] : cases) {
        const Opened opened = OpenBytes(DocumentBuilder(mode, depth, 1, 2, 1).Layer(layer).Build());
        ASSERT_EQ(opened.result, PsdReadResult::kOk) << mode << ' ' << depth;
        EXPECT_EQ(Values(opened.document->layers[0].image), pixels) << mode << ' ' << depth;
    }
}

TEST(LayerPixels, EveryCompressionGivesTheSamePixels) {
    Pixels pixels;
    for (uint32_t i = 0; i < 17 * 5; ++i) pixels.push_back(i % 7 < 4 ? 0xFF332211 : i * 0x01030507);
    for (uint16_t code = 0; code <= 3; ++code) {
        const LayerBuilder layer = LayerBuilder({-3, -2, 14, 3}).Pixels(pixels, code);
        // The second layer finds the first one's samples in the scratch buffers.
        const Opened opened = OpenBytes(Rgb().Layer(layer).Layer(Raw({{0, {8}}})).Layer(layer).Build());
        ASSERT_EQ(opened.result, PsdReadResult::kOk) << code;
        EXPECT_EQ(Values(opened.document->layers[1].image), (Pixels{0xFF080000, 0xFF000000}));
        EXPECT_EQ(Values(opened.document->layers[2].image), pixels) << code;
    }
}

TEST(LayerPixels, MasksAreChosenById) {
    const Rect one = {5, 5, 6, 6};
    const std::pair<LayerBuilder, Bytes> cases[] = {
        {Raw({{-2, {1, 2}}}).Mask(kTwo, 0, 0), {1, 2}},
        {Raw({{0, {1, 2}}}).Mask(kTwo, 0, 0), {}},
        {LayerBuilder(kTwo).ChannelData(-2, {}).Mask(kTwo, 0, 0), {}},
        {Raw({{-2, {1, 2}}}), {}},
        {Raw({{-2, {1, 2}}, {-3, {7}}}).RealMask(kTwo, 0, 0, one, 0, 0), {7}},
        {Raw({{-3, {7, 8}}, {-2, {1}}}).RealMask(one, 0, 0, kTwo, 0, 0), {7, 8}},
        {Raw({{-2, {3, 4}}}).RealMask(one, 0, 0, kTwo, 0, 0), {3, 4}},
        {Raw({{-3, {7, 8}}, {-2, {1, 2}}}).Mask(kTwo, 0, 0), {1, 2}},
        {Raw({{0, {}}, {-2, {1, 2}}}, {}).Mask(kTwo, 0, 0), {1, 2}},
    };
    for (const auto& test : cases) {
        const Opened opened = OpenBytes(Rgb().Layer(test.first).Layer(Raw({{2, {5, 6}}})).Build());
        ASSERT_EQ(opened.result, PsdReadResult::kOk) << "row " << &test - cases;
        EXPECT_EQ(Values(opened.document->layers[0].mask.data), test.second) << "row " << &test - cases;
        EXPECT_EQ(Values(opened.document->layers[1].image), (Pixels{0xFF000005, 0xFF000006}));
        CheckWhole(opened);
    }
}

TEST(LayerPixels, RefusesDamagedChannels) {
    using enum PsdReadResult;
    // Channel 9 has no use.
    const std::tuple<int16_t, Bytes, uint32_t, PsdReadResult> cases[] = {
        {0, {0, 4, 1, 2}, 4, kBadCompression},     {9, {0, 4, 1, 2}, 4, kBadCompression},
        {0, {0, 0, 1, 2}, 500, kShortRead},        {9, {0, 0, 1, 2}, 0x7FFFFFFF, kShortRead},
        {0, {0, 0, 1, 2}, 0xFFFFFFFF, kShortRead}, {0, {0, 2, 1, 2, 3, 4}, 6, kInflateFailed},
        {-2, {0, 2, 1, 1}, 4, kInflateFailed},  // beside a sound real mask
    };
    for (const auto& [id, data, claimed, want] : cases) {
        LayerBuilder layer = Raw({{-3, {}}}).RealMask(kTwo, 0, 0, kTwo, 0, 0).ChannelData(id, data, claimed);
        EXPECT_EQ(OpenBytes(Rgb().Layer(layer).MergedData({}).Build()).result, want) << id << ' ' << claimed;
    }
}

TEST(LayerPixels, ClaimsThatNoDataBacksAreRefused) {
    const Rect huge = {0, 0, 30000, 30000}, large = {0, 0, 4000, 4000}, widest = {0, 0, 1 << 30, 1 << 30};
    const Bytes zipped = ByteWriter().U16(2).Raw(Zip({7})).Zeros(100000);
    const std::pair<LayerBuilder, int> cases[] = {
        {Raw({{0, {}}}, widest), 1},
        {Raw({{-2, {}}}, widest), 1},
        {Raw({{-2, {}}}, {}).Mask(huge, 0, 0), 1},
        {Raw({{-2, {}}, {-3, {}}}, {}).RealMask(large, 0, 0, kTwo, 0, 0), 9},
        {LayerBuilder({0, 0, 8000, 8000}).ChannelData(0, zipped), 1},  // it may expand, but does not
        {Raw({{0, Bytes(4000)}}, {0, 0, 10000, 10000}), 1},
        {Raw({{0, {}}}, large), 9},
        {Raw({{0, {}}}, huge).Name(""), 32767},
    };
    for (const auto& test : cases) {
        DocumentBuilder document = Rgb();
        for (int i = 0; i < test.second; ++i) document.Layer(test.first);
        EXPECT_EQ(OpenBytes(document.Build()).result, PsdReadResult::kOutOfMemory) << "row " << &test - cases;
    }
}

TEST(LayerSection, CountsAreTakenWithoutSign) {
    const std::pair<int16_t, int> cases[] = {{int16_t{-3}, 3}, {int16_t{-32768}, 32768}, {int16_t{2}, 1}};
    for (const auto& [count, layers] : cases) {
        DocumentBuilder document = Rgb().LayerCount(count);
        for (int i = 0; i < layers; ++i) document.Layer(Raw({{0, {}}}, {}).Name(""));
        const Opened opened = OpenBytes(document.Build());
        CheckWhole(opened);
        EXPECT_EQ(opened.document ? opened.document->layerCount : -2, count > 0 ? -2 : layers) << count;
    }
    EXPECT_EQ(OpenBytes(Rgb().LayerCount(0).Build()).result, PsdReadResult::kBadLayer);
}

TEST(LayerSection, DocumentBlocksCarryLayers) {
    const Bytes one = Rgb(16).Layer(Raw({{0, {1, 0, 1, 0}}})).LayerInfo();
    const Bytes three = Rgb(16).Layer(Raw({{0, {3, 0, 3, 0}}})).LayerInfo();
    const Bytes mask = {0, 0, 0xFF, 0, 0x80, 0, 0, 0, 0, 0, 0, 50, 128, 9, 9, 9};
    const auto plain = [&] { return Rgb(16).GlobalMask(mask).DocumentBlock("Patt", Bytes(21, 'p')); };
    const auto seven = [&] { return plain().Layer(Raw({{0, {7, 0, 7, 0}}})); };
    const std::pair<DocumentBuilder, uint32_t> cases[] = {
        {plain().DocumentBlock("Lr16", one), 0xFF010000},
        {plain().DocumentBlock("Lr16", one).DocumentBlock("Lr16", three), 0xFF030000},
        {seven().DocumentBlock("Lr16", three), 0xFF030000},
        {seven().DocumentBlock("Lr16", {}).DocumentBlock("Lr32", one), 0xFF070000},
    };
    for (const auto& [builder, pixel] : cases) {
        const Opened opened = OpenBytes(builder.Build());
        ASSERT_TRUE(opened.document && opened.document->layerCount == 1);
        const PsdDocument& document = *opened.document;
        EXPECT_EQ(document.layers[0].image[0], pixel);
        EXPECT_EQ(document.globalMaskColor, 0xFFFF8000u);
        EXPECT_TRUE(document.globalMaskOpacity == 50 && document.globalMaskKind == 128);
    }
}

TEST(LayerSection, GroupsHoldOneLevel) {
    const LayerBuilder layer = Raw({{0, {}}}, {});
    DocumentBuilder document = Rgb().Layer(layer).Layer(GroupEnd()).Layer(layer).Layer(GroupEnd());
    document.Layer(layer).Layer(GroupHead()).Layer(layer).Layer(GroupHead()).Layer(layer);
    const Opened opened = OpenBytes(document.Build());
    ASSERT_EQ(opened.result, PsdReadResult::kOk);
    // The member of the outer group that lies below the inner one has lost it.
    const int parents[] = {-1, -1, -1, -1, 5, -1, 7, -1, -1};
    const Owned<PsdLayer>& layers = opened.document->layers;
    for (size_t i = 0; i < std::size(parents); ++i)
        EXPECT_EQ(layers[i].parent ? layers[i].parent - layers.get() : -1, parents[i]) << i;
}

TEST(LayerSection, ReadModesDecideWhatIsRead) {
    const Bytes file = Rgb().Layer(Raw({{0, {1, 2}}})).Merged(Bytes(48, 7)).Build();
    for (uint32_t mode = 0; mode < 7; ++mode) {
        const Opened opened = OpenBytes(file, mode);
        ASSERT_EQ(opened.result, PsdReadResult::kOk) << mode;
        EXPECT_EQ(opened.document->layerCount, mode == 0 || mode == 2) << mode;
        const Owned<uint32_t>& merged = opened.document->mergedPixels;
        EXPECT_EQ(merged ? merged[0] : 0, mode == 0 || mode == 3 ? 0xFF070707 : 0) << mode;
    }
}

TEST(LayerSection, SurvivesEveryFault) {
    const Bytes samples = {1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6, 0};
    LayerBuilder layer({0, 0, 3, 2});
    layer.Channel(0, samples, kCompressionZip).Channel(1, samples, kCompressionPackBits);
    layer.Channel(2, samples, kCompressionZipPrediction).RealMask(kTwo, 0, 0, {0, 0, 3, 2}, 255, 0);
    layer.Channel(-2, {1, 2, 3, 4}).Channel(-3, samples).Ranges(Bytes(32, 1));
    layer.Block("luni", ByteWriter().Unicode(u"name")).Block("brst", ByteWriter().U32(1));
    const Bytes info = Rgb(16).Layer(GroupEnd()).Layer(layer).Layer(GroupHead("norm", "mul ")).LayerInfo();
    const Bytes file = Rgb(16).Layer(layer).GlobalMask(Bytes(13)).DocumentBlock("Lr16", info).Build();
    const Opened whole = OpenBytes(file);
    ASSERT_EQ(whole.result, PsdReadResult::kOk);
    ASSERT_EQ(whole.document->layers[1].parent, &whole.document->layers[2]);

    for (size_t at = 0; at < file.size(); ++at) {
        CheckWhole(OpenBytes(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(at))));
        Bytes damaged = file;
        damaged[at] ^= 0x80;
        CheckWhole(OpenBytes(damaged));
    }
    for (uint64_t call = 1, calls = call; call <= calls; ++call) {
        MemoryStream stream(file);
        stream.maxBytesPerRead = 7;
        stream.failCall = call;
        Opened opened;
        opened.result = OpenDocument(opened.document, &stream, kReadEverything);
        CheckWhole(opened);
        calls = stream.calls;
    }
#if defined(TESSARY_FAULT_INJECTION)
    for (uint64_t n = 1, count = n; n <= count; ++n) {
        FailAllocationNumber(n);
        const PsdReadResult result = OpenBytes(file).result;
        count = AllocationCount();
        EXPECT_EQ(result == PsdReadResult::kOk, n > count) << n;
    }
    // Each decoded channel takes the inflater's memory; channels that repeat an id are not decoded.
    LayerBuilder repeating(kTwo);
    for (int i = 0; i < 32767; ++i) repeating.Channel(0, {1, 2}, kCompressionZip);
    const Bytes repeated = Rgb().Layer(repeating).Build();
    FailAllocationNumber(0);
    EXPECT_EQ(OpenBytes(repeated).result, PsdReadResult::kOk);
    EXPECT_LT(AllocationCount(), 30u);
#endif
}

}  // namespace
}  // namespace tessary::test
