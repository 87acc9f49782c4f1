#include <gtest/gtest.h>

#include <array>
#include <iterator>
#include <optional>
#include <tuple>

#include "document/big_endian.h"
#include "document/blend_keys.h"
#include "document/plane_decoder.h"
#include "render/color_convert.h"
#include "tests/document/plain_planes.h"
#include "tools/document_builder.h"

namespace tessary::test {
namespace {

using enum PsdReadResult;
constexpr Rect kTwo = {0, 0, 2, 1};  // two pixels
using Channels = std::vector<std::pair<int16_t, Bytes>>;
using Pixels = std::vector<uint32_t>;

LayerBuilder Small() { return LayerBuilder(kTwo).Solid(0xFF102030); }
DocumentBuilder Rgb(uint32_t depth = 8) { return {kColorRgb, depth, 3, 4, 4}; }
Opened Open(const LayerBuilder& layer) { return OpenBytes(Rgb().Layer(layer).Build()); }

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

TEST(LayerRecord, RefusesDamagedRecordsAndChannels) {
    const Rect large = {0, 0, 4000, 4000}, widest = {0, 0, 1 << 30, 1 << 30};
    const Bytes zipped = ByteWriter().U16(2).Raw(Zip({7})).Zeros(100000);
    const auto with = [](int16_t id, Bytes data, std::optional<uint32_t> claimed = {}) {
        return Raw({{-3, {}}}).RealMask(kTwo, 0, 0, kTwo, 0, 0).ChannelData(id, std::move(data), claimed);
    };
    const struct {
        LayerBuilder layer;
        PsdReadResult want;
        int times = 1;
    } cases[] = {
        {Small().ChannelCount(0xFFFF), kBadLayer},
        {Small().ChannelCount(5), kBadLayerSignature},
        {Small().Filler(1), kBadLayer},
        {Small().MaskBytes(Bytes(28)), kBadLayer},
        {Small().Ranges(Bytes(8)), kEmptyBlendRanges},
        {Small().Block("lyid", Bytes(4), "8B64"), kBadBlockSignature},
        {Small().Block("knko", Bytes(1)), kBadLayer},
        {Small().Block("lsct", Bytes(12)), kBadDividerSignature},
        {with(9, {0, 4, 1, 2}), kBadCompression},  // of no use
        {with(0, {0, 0, 1, 2}, 0xFFFFFFFF), kShortRead},
        {with(0, {0, 2, 1, 2, 3, 4}), kInflateFailed},
        // What no data backs has no pixels, and never refuses the document.
        {Raw({{0, {1}}}, widest), kOk},
        {Raw({{-2, {1}}, {-3, {1}}}, {}).RealMask(large, 0, 0, kTwo, 0, 0), kOk, 9},
        // Neither the difference of the sides nor their product may decide by wrapping: these have no pixels.
        {Raw({{0, {1, 2}}}, {INT32_MIN, 0, INT32_MAX, 1}), kOk},
        {Raw({{0, {1, 2}}}, {INT32_MAX, INT32_MAX, INT32_MIN, INT32_MIN}), kOk},
        {LayerBuilder({0, 0, 8000, 8000}).ChannelData(0, zipped), kOk},  // it does not expand
        // Nobody looks at these.
        {with(9, {0, 2, 1, 2, 3, 4}), kInflateFailed},
        {with(-2, {0, 3, 1, 2, 3, 4}), kInflateFailed},
    };
    for (const auto& test : cases) {
        DocumentBuilder document = Rgb();
        for (int i = 0; i < test.times; ++i) document.Layer(test.layer);
        EXPECT_EQ(OpenBytes(document.MergedData({}).Build()).result, test.want) << "row " << &test - cases;
    }
}

TEST(LayerRecord, KeepsItsFields) {
    const Bytes ranges = {0x10, 0x11, 0xE0, 0xE1, 0x20, 0x21, 0xD0, 0xD1, 1, 2, 3, 4, 5, 6, 7, 8};
    LayerBuilder record({-5, 7, 20, 9});
    record.ChannelData(2, {0, 0}).Mode("lum ").Opacity(77).Clipping(2).Flags(0x1A).Ranges(ranges);
    record.RealMask({1, 2, 3, 4}, 255, 7, {5, 6, 15, 26}, 0, 2);
    const Opened opened = Open(record);
    const PsdLayer& layer = opened.document->layers[0];
    EXPECT_EQ(All(layer.bounds, layer.width, layer.channels[0].id), All((Rect{-5, 7, 20, 9}), 25, 2));
    EXPECT_EQ(All(layer.blendMode, layer.opacity, layer.clipping), All(kBlendLuminosity, 77, true));
    EXPECT_EQ(All(layer.visible, layer.obsolete, layer.pixelDataIrrelevant), All(false, false, true));
    EXPECT_EQ(All(layer.grayRanges.source.white, layer.grayRanges.destination.black), All(0xE0E1, 0x2021));
    ASSERT_EQ(layer.channelRangeCount, 1);
    EXPECT_EQ(layer.channelRanges[0].destination.WhitePoint(), 7u);
    EXPECT_EQ(All(layer.mask.bounds, layer.mask.defaultColor), All((Rect{5, 6, 15, 26}), 0));
    EXPECT_EQ(All(layer.mask.disabled, layer.mask.relativeToLayer, layer.mask.inverted),
              All(true, false, false));
}

TEST(LayerRecord, NamesFillMultiplesOfFourAndKeep1024Units) {
    for (const uint32_t length : {3u, 4u, 255u, 1024u, 5000u}) {
        const Bytes unicode = ByteWriter().U32(length).Raw(Bytes(2 * length, 'u'));
        const std::string name(std::min(length, 255u), 'n');
        const Opened opened = Open(Small().Name(name).Block("luni", Bytes(4)).Block("luni", unicode));
        const PsdUnicodeString& kept = opened.document->layers[0].unicodeName;
        EXPECT_EQ(opened.document->layers[0].name.text, name);
        ASSERT_EQ(kept.bytes.count(), 2 * (std::min(length, 1024u) + 1));
        EXPECT_EQ(LoadU32(kept.bytes.get() + 2 * kept.length - 2), 0x75750000u);
    }
}

TEST(TaggedBlocks, EachKeyHasItsField) {
    using W = ByteWriter;
    // Effects whose lengths no file can have do not take the blocks behind them along.
    W huge = W().U32(0).U32(16).ClassName("null").U32(2).U32(1u << 31).Text("TEXT").U32(~0u);
    LayerBuilder record = Small().Block("lfx2", huge.Bool("on", true)).Block("odd ", Bytes(5));
    record.Block("knko", {1, 9, 9, 9}).Block("iOpa", {128, 0, 0, 0});
    record.Block("lclr", {1, 2, 3, 4, 5, 6, 7, 8}).Block("lspf", W().U32(0x80000002)).Block("tsly", Bytes(4));
    record.Block("fxrp", W().F64(1e300).F64(-2.9)).Block("lyid", W().I32(-8));
    // 0xFFFF0001 is no channel's id, whatever its low half says.
    const Opened plain = Open(Small()),
                 opened = Open(record.Block("brst", W().U32(2).U32(0xFFFF0001).I32(-1)));
    for (const bool set : {false, true}) {
        const PsdLayer& layer = (set ? opened : plain).document->layers[0];
        EXPECT_EQ(All(layer.knockout, layer.protectComposite, layer.protectPosition), All(set, set, false));
        EXPECT_EQ(All(layer.fillOpacity, layer.transparencyShapesLayer), All(set ? 128 : 255, !set));
        EXPECT_EQ(All(layer.sheetColor, layer.referenceY), All(set ? 0xFF010203 : 0, -2 * set));
        EXPECT_EQ(layer.layerId, -8 * set);
        for (const PsdChannelInfo& channel : layer.channels.span())
            EXPECT_EQ(channel.excluded, set && (channel.id < 0 || channel.id == 2));
    }
    const std::tuple<W, uint32_t, uint32_t> dividers[] = {
        {W().U32(1), kLayerGroup, kBlendMultiply},
        {W().U32(2).Text("8BIMscrn"), kLayerGroup, kBlendScreen},
        {W().U32(1).Text("8BIMnorm"), kLayerGroup, kBlendNormal},
        {W().U32(3).Text("8BIMscrn").U32(1), kLayerGroupEnd, kBlendMultiply},
        {W().U32(4), kLayerOrdinary, kBlendMultiply},
    };
    for (const auto& [divider, kind, mode] : dividers) {
        const Opened grouped = Open(Small().Mode("mul ").Block("lsct", divider).Block("lyvr", W().U32(9)));
        const PsdLayer& layer = grouped.document->layers[0];
        EXPECT_EQ(All(layer.layerKind, GroupBlendMode(layer), layer.layerVersion), All(kind, mode, 9))
            << kind;
    }
    EXPECT_EQ(All(BlendModeFromKey(FourCC("lite")), BlendModeFromKey(FourCC("pass"))), All(6, 23));
}

TEST(LayerPixels, ChannelsArePlacedById) {
    const Pixels want = {0x09010305, 0x0A020406}, opaque = {0xFF010000, 0xFF020000};
    const Channels inks = {{0, {255, 0}}, {1, {255, 0}}, {2, {255, 0}}, {3, {255, 255}}, {-1, {9, 10}}};
    const Channels wide = {{0, {1, 255, 2, 0}}, {1, {3, 0, 4, 0}}, {2, {5, 0, 6, 0}}, {-1, {9, 0, 10, 0}}};
    const Bytes half = ByteWriter().U16(3).Raw(Zip({0, 255, 16}));
    const std::tuple<uint32_t, uint32_t, LayerBuilder, Pixels> cases[] = {
        {3, 8, Raw({{2, {5, 6}}, {1, {3, 4}}, {0, {1, 2}}, {-1, {9, 10}}}), want},
        {3, 16, Raw(wide), want},
        {3, 8, Raw({{0, {1, 2}}, {0, {3, 4}}}), opaque},
        // And a spot colour; blue is missing.
        {3, 8, Raw({{3, {7}}, {-1, {9}}, {0, {1, 2}}, {1, {}}, {2, {}}}), {0x09010000, 0x00020000}},
        {3, 8, Raw({{3, {7, 7}}, {-1, {9, 9}}, {0, {1, 2}}, {1, {3, 4}}}), {0xFF010300, 0xFF020400}},
        {4, 8, Raw(inks), {0x09FFFFFF, 0x0A010101}},
        {0, 1, Raw({{0, {0x80}}}), {0xFF000000, 0xFFFFFFFF}},
        {7, 16, Raw({{0, {1, 2, 3, 4}}}), {0, 0}},  // no such pixels
        {3, 8, Raw({{2, {5, 6}}, {1, {}}}).ChannelData(-1, {}).ChannelData(0, {1}), {5, 6}},
        {3, 8, LayerBuilder({-9, -9, -7, -8}).Pixels(want, 3), want},
        // Half a sample, behind which nothing of the layer before it is left.
        {3, 16, LayerBuilder(kTwo).ChannelData(0, half), {0xFF000000, 0xFF100000}},
    };
    for (const auto& [mode, depth, layer, pixels] : cases) {
        DocumentBuilder document(mode, depth, 1, 2, 1);
        const Opened opened = OpenBytes(document.Layer(Raw({{0, Bytes(4, 255)}})).Layer(layer).Build());
        EXPECT_EQ(Values(opened.document->layers[1].image), pixels) << mode << ' ' << depth;
    }
}

TEST(LayerPixels, MasksAreChosenById) {
    const Rect one = {5, 5, 6, 6};
    const std::pair<LayerBuilder, Bytes> cases[] = {
        {Raw({{-2, {1, 2}}}).Mask(kTwo, 0, 0), {1, 2}},
        {Raw({{-2, {1, 2}}, {-3, {7}}}).RealMask(kTwo, 0, 0, one, 0, 0), {7}},
        {Raw({{-2, {3, 4}}}).RealMask(one, 0, 0, kTwo, 0, 0), {3, 4}},
        {Raw({{-3, {7, 8}}, {-2, {1, 2}}}).Mask(kTwo, 0, 0), {1, 2}},
    };
    for (const auto& test : cases) {
        const Opened opened = OpenBytes(Rgb().Layer(test.first).Layer(Raw({{2, {5, 6}}})).Build());
        ASSERT_EQ(opened.result, kOk) << "row " << &test - cases;
        EXPECT_EQ(Values(opened.document->layers[0].mask.data), test.second) << "row " << &test - cases;
        EXPECT_EQ(Values(opened.document->layers[1].image), (Pixels{0xFF000005, 0xFF000006}));
    }
}

TEST(LayerPixels, WideRowsNeedDataThatFillsThem) {
    const Rect row = {0, 0, 3 << 20, 1};
    const Bytes nothing = {0, 0, 7}, zeros = ByteWriter().U16(2).Raw(Zip(Bytes(3 << 20)));
    const std::tuple<const char*, LayerBuilder, bool, bool> cases[] = {
        {"full", LayerBuilder(row).ChannelData(0, zeros), true, false},
        {"given up behind a full one", LayerBuilder(row).ChannelData(-1, zeros).ChannelData(0, nothing),
         false, false},
        {"full mask", Raw({{0, {1, 2}}}).Mask(row, 0, 0).ChannelData(-2, zeros), true, true},
        {"mask of nothing", Raw({{0, {1, 2}}}).Mask(row, 0, 0).ChannelData(-2, nothing), true, false},
    };
    for (const auto& [what, builder, hasImage, hasMask] : cases) {
        const Opened opened = OpenBytes(Rgb().Layer(builder).Build());
        ASSERT_EQ(opened.result, kOk) << what;
        const PsdLayer& layer = opened.document->layers[0];
        EXPECT_TRUE(!!layer.image == hasImage && !!layer.mask.data == hasMask) << what;
    }
}

TEST(LayerSection, CountsAreTakenWithoutSign) {
    for (const auto& [count, layers] : {std::pair{-3, 3}, {-32768, 32768}, {2, 1}}) {
        DocumentBuilder document = Rgb().LayerCount(static_cast<int16_t>(count));
        for (int i = 0; i < layers; ++i) document.Layer(Raw({{0, {}}}, {}).Name(""));
        const Opened opened = OpenBytes(document.Build());
        EXPECT_EQ(opened.document ? opened.document->layerCount : -2, count > 0 ? -2 : layers) << count;
    }
    EXPECT_EQ(OpenBytes(Rgb().LayerCount(0).Build()).result, kBadLayer);
}

TEST(LayerSection, DocumentBlocksCarryLayers) {
    const Bytes one = Rgb(16).Layer(Raw({{0, {1, 0, 1, 0}}})).LayerInfo();
    const Bytes three = Rgb(16).Layer(Raw({{0, {3, 0, 3, 0}}})).LayerInfo();
    DocumentBuilder plain = Rgb(16).GlobalMask({0, 0, 0xFF, 0, 0x80, 0, 0, 0, 0, 0, 0, 50, 128, 9, 9, 9});
    plain.DocumentBlock("Patt", Bytes(21, 'p')).DocumentBlock("Lr16", one);
    for (const uint32_t pixel : {0xFF010000u, 0xFF030000u}) {
        const Opened opened = OpenBytes(plain.Build());
        ASSERT_TRUE(opened.document);
        ASSERT_EQ(opened.document->layerCount, 1);
        EXPECT_EQ(opened.document->layers[0].image[0], pixel);
        EXPECT_EQ(All(opened.document->globalMaskColor, opened.document->globalMaskKind),
                  All(0xFFFF8000, 128));
        plain.DocumentBlock("Lr16", three).DocumentBlock("Lr16", {}).DocumentBlock("Lr32", one);
    }
}

TEST(LayerSection, GroupsHoldOneLevel) {
    const LayerBuilder layer = Raw({{0, {}}}, {});
    DocumentBuilder document = Rgb().Layer(layer).Layer(GroupEnd()).Layer(layer).Layer(GroupEnd());
    document.Layer(layer).Layer(GroupHead()).Layer(layer).Layer(GroupHead()).Layer(layer);
    const Opened opened = OpenBytes(document.Build());
    // The member of the outer group that lies below the inner one has lost it.
    const int parents[] = {-1, -1, -1, -1, 5, -1, 7, -1, -1};
    const Owned<PsdLayer>& layers = opened.document->layers;
    for (size_t i = 0; i < std::size(parents); ++i)
        EXPECT_EQ(layers[i].parent ? layers[i].parent - layers.get() : -1, parents[i]) << i;
}

TEST(LayerSection, ReadModesDecideWhatIsRead) {
    for (const int layers : {0, 1}) {
        DocumentBuilder builder = Rgb().Merged(Bytes(48, 7));
        if (layers) builder.Layer(Small());
        for (uint32_t mode = 0; mode < 7; ++mode) {
            const Opened opened = OpenBytes(builder.Build(), mode);
            ASSERT_EQ(opened.result, kOk) << mode;
            EXPECT_EQ(opened.document->layerCount, mode == 0 || mode == 2 ? layers : 0) << mode;
            const bool merged = mode == 0 || mode == 3 || (mode == 2 && !layers);
            EXPECT_EQ(Values(opened.document->mergedPixels), Pixels(merged ? 16 : 0, 0xFF070707)) << mode;
        }
    }
}

// Rows of bytes, two at a time.
PsdReadResult Decode(uint16_t compression, const Bytes& input, PlaneShape shape, Bytes* decoded = nullptr) {
    StreamReader reader(input);
    reader.document.streamSize = static_cast<int32_t>(input.size());
    PlaneDecoder decoder;
    PsdReadResult result = BeginPlanes(decoder, reader.document, input.size(), compression, shape);
    const uint8_t* rows = nullptr;
    while (decoder.rowsLeft != 0 && result == kOk) {
        const size_t count = static_cast<size_t>(std::min<uint64_t>(2, decoder.rowsLeft));
        result = NextRows(decoder, count, rows);
        if (result == kOk && decoded) decoded->insert(decoded->end(), rows, rows + count * shape.width);
    }
    return result;
}

TEST(PlaneDecoder, EveryCompressionGivesThePlanesBack) {
    const Bytes deltas = Zip({0x00, 0x01, 0xFF, 0xFF, 0x10, 0xF0, 0x00, 0x20});
    const Bytes floats = Zip({0x3F, 0x40, 0x83, 0, 0x3F, 0x40, 0x83, 0});
    const struct {
        const char* what;
        PlaneShape shape;
        uint16_t compression;
        Bytes input, want;
    } cases[] = {
        {"raw, short", {3, 2, 8}, 0, {1, 2}, {1, 2, 0, 0, 0, 0}},
        {"packed, rest of a row", {2, 2, 8}, 1, {0, 5, 0, 2, 0xFF, 8, 9, 9, 9, 0xFF, 4}, {8, 8, 4, 4}},
        {"packed, short row", {3, 2, 8}, 1, {0, 2, 0, 2, 0, 5, 0xFE, 6}, {5, 0, 0, 6, 6, 6}},
        {"packed, data ends", {2, 2, 8}, 1, {0, 2, 0, 9, 0xFF, 5, 1, 3}, {5, 5, 3, 0}},
        {"packed, only counts", {2, 2, 8}, 1, {0, 2, 0, 2}, {0, 0, 0, 0}},
        {"zip ends early", {4, 1, 8}, 2, Zip({1, 2}), {1, 2, 0, 0}},
        {"predicted", {4, 2, 8}, 3, deltas, {0x00, 0x01, 0x00, 0xFF, 0x10, 0x00, 0x00, 0x20}},
        {"predicted 16", {2, 2, 16}, 3, deltas, {0x00, 0x00, 0x10, 0x11}},
        {"predicted 32, the last stays", {2, 1, 32}, 3, floats, {192, 191}},
        {"predicted, ends early", {4, 3, 8}, 3, Zip({1, 1}), {1, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        // Runs are clipped at the row and at their bytes; 0x80 says nothing.
        {"run too long", {3, 1, 8}, 1, {0, 2, 0x81, 5}, {5, 5, 5}},
        {"bytes too many", {3, 1, 8}, 1, {0, 7, 5, 1, 2, 3, 4, 5, 6}, {1, 2, 3}},
        {"no run", {3, 1, 8}, 1, {0, 3, 0x80, 0xFE, 5}, {5, 5, 5}},
        {"2^48 rows of no width, predicted", {0, uint64_t{1} << 48, 8}, 3, Zip({1}), {}},
    };
    for (const auto& test : cases) {
        Bytes planes;
        EXPECT_EQ(Decode(test.compression, test.input, test.shape, &planes), kOk);
        EXPECT_EQ(planes, test.want) << test.what;
    }
}

TEST(PlaneDecoder, RefusesWhatCannotBeDecoded) {
    const Bytes zipped = Zip(Bytes(300, 7));
    Bytes corrupt = zipped, badSum = zipped;
    corrupt[0] ^= 0xFF;
    badSum.back() ^= 1;
    for (const Bytes& bytes : {corrupt, badSum, Bytes(zipped.begin(), zipped.begin() + 6), Bytes()})
        EXPECT_EQ(Decode(3, bytes, {300, 1, 8}), kInflateFailed);
    EXPECT_EQ(Decode(4, zipped, {300, 1, 8}), kBadCompression);
#if defined(TESSARY_FAULT_INJECTION)
    FailAllocationNumber(2);  // behind the window
    EXPECT_EQ(Decode(2, zipped, {300, 1, 8}), kInflateSetup) << "zlib allocates as we do";
    FailAllocationNumber(0);
#endif
}

TEST(MergedImage, EveryModeDepthAndCompression) {
    Bytes palette(768, 9);
    palette[1] = 0x11, palette[257] = 0x22, palette[513] = 0x33;
    constexpr uint32_t kBlack = 0xFF000000;
    const Bytes floats = {0x3F, 0x80, 0, 0, 0x3F, 0xC0, 0, 0, 0xBF, 0, 0, 0};  // 1, 1.5, -0.5
    // NaN, -infinity, 2^24 * 1.0078125, 2^23 + 1
    const Bytes beyond = {0x7F, 0xC0, 0, 0, 0xFF, 0x80, 0, 0, 0x4B, 0x81, 0, 0, 0x4B, 0, 0, 1};
    const Bytes rgba = {0x3F, 0x80, 0, 0, 0, 0, 0, 0, 0x3F, 0, 0, 0, 0x3E, 0x80, 0, 0};
    const Bytes inks = {255, 0, 9, 255, 255, 9, 255, 255, 9, 255, 255, 0};
    const struct {
        const char* what;
        uint32_t mode, depth, channels, width;
        Bytes names, planes;  // names: resource 1006
        Pixels want;
    } cases[] = {
        {"bitmap", 0, 1, 1, 9, {}, {0xA5, 0x7F}, {kBlack, ~0u, kBlack, ~0u, ~0u, kBlack, ~0u, kBlack, ~0u}},
        {"gray of 16 bits", 1, 16, 1, 2, {}, {0x12, 0xFF, 0xFE, 0}, {0xFF121212, 0xFFFEFEFE}},
        {"gray of 32 bits", 1, 32, 1, 3, {}, floats, {~0u, 0xFF7E7E7E, 0xFF818181}},
        {"gray beyond bytes", 8, 32, 1, 4, {}, beyond, {kBlack, kBlack, kBlack, ~0u}},
        {"gray, no alpha is named", 1, 8, 3, 1, {}, {5, 6, 7}, {0xFF050505}},
        {"gray, alpha is named", 1, 8, 2, 2, {1, 'a'}, {10, 250, 128, 1}, {0xFF0A0A0A, 0xFFFAFAFA}},
        {"gray, second alpha is named", 8, 8, 3, 1, {0}, {10, 128, 77}, {0x800A0A0A}},
        {"indexed", 2, 8, 1, 3, {}, {1, 2, 200}, {0xFF112233, 0x00090909, 0xFF090909}},
        {"rgb and alpha", 3, 8, 4, 1, {}, {1, 2, 3, 4}, {0x04010203}},
        {"rgb of 32 bits and alpha", 3, 32, 4, 1, {}, rgba, {0x3FFF007F}},
        {"rgb and two", 3, 8, 5, 1, {}, {1, 2, 3, 4, 5}, {0xFF010203}},
        {"rgb and two, one named", 3, 8, 5, 1, {0}, {1, 2, 3, 4, 5}, {0x04010203}},
        {"cmyk", 4, 8, 4, 3, {}, inks, {~0u, 0xFF01FFFF, kBlack}},
        {"cmyk of 16 bits", 4, 16, 4, 1, {}, {255, 0, 128, 255, 0, 255, 255, 1}, {0xFFFF8101}},
        {"cmyk and alpha", 4, 8, 5, 1, {}, {0, 255, 128, 255, 7}, {0x0701FF81}},
        {"multichannel", 7, 8, 3, 2, {}, {0, 255, 1, 128, 100, 254}, {0xFF010265, 0xFFFF81FF}},
        {"lab", 9, 8, 3, 2, {}, {2, 255, 128, 128, 128, 128}, {kBlack, 0xFFFCFCFC}},
        {"multichannel, names are colours", 7, 8, 4, 1, {0, 0}, {0, 255, 128, 255}, {0xFF01FF81}},
    };
    for (const auto& test : cases) {
        for (uint16_t compression = 0; compression < (test.depth % 31 == 1 ? 3 : 4); ++compression) {
            DocumentBuilder builder(test.mode, test.depth, test.channels, test.width, 1);
            if (test.mode == kColorIndexed) builder.ColorModeData(palette).Resource(1047, {0, 2});
            builder.Resource(1006, test.names).Resource(1053, Bytes(4)).Merged(test.planes, compression);
            const Opened opened = OpenBytes(builder.Build(), kReadMerged);
            ASSERT_TRUE(opened.document) << test.what << compression;
            EXPECT_EQ(Values(opened.document->mergedPixels), test.want)
                << test.what << ", compression " << compression;
        }
    }
}

// Samples that repeat here and there.
Bytes Picture(size_t size) {
    Bytes picture(size);
    uint32_t state = 1;
    for (size_t i = 0; i < picture.size(); ++i) {
        state = state * 1664525 + 1013904223;
        const bool repeats = state >> 16 & 64 || i % 9000 < 4000;
        picture[i] = repeats ? picture[i - (i != 0)] : static_cast<uint8_t>(state >> 24);
    }
    return picture;
}

// Planes that are cut to bytes piece by piece, which end within rows of the wide ones; and masks, of which
// one is of no use. All of a plane decoded first gives the samples that are wanted.
TEST(LayerPixels, AreTheSameInPieces) {
    for (uint32_t run = 0; run < 2 * 2 * 3 * 4; ++run) {
        SCOPED_TRACE(run);
        const bool isWide = run & 1, hasInk = run & 2;
        const uint32_t depth = 8u << run / 4 % 3, part = 8 - run % 5;
        const uint16_t compression = static_cast<uint16_t>(run / 12);
        const uint32_t wide = 8 * (hasInk && depth == 8 ? 525003 : 140003) / depth;
        const uint32_t width = isWide ? wide : 333, height = isWide ? 2 : 251;
        const uint32_t colors = hasInk ? 4 : 3, count = width * height;
        const size_t rowBytes = width * depth / 8, planeBytes = rowBytes * height;
        const Bytes picture = Picture(planeBytes + 5);
        const Rect bounds = {0, 0, static_cast<int32_t>(width), static_cast<int32_t>(height)};
        LayerBuilder layer(bounds);
        std::vector<Bytes> planes;
        for (uint32_t i = 0; i < colors + 3; ++i) {
            const auto from = picture.begin() + static_cast<ptrdiff_t>(i);
            const Bytes there(from, from + static_cast<ptrdiff_t>(planeBytes * part / 8 - 1));
            Bytes data = ByteWriter().U16(compression).Raw(compression == 0 ? there : Zip(there));
            // Rows of no more than 64 KiB of data.
            if (compression == 1)
                data = EncodePlanes(1, isWide ? Bytes(planeBytes, 5) : picture, rowBytes, depth);
            planes.push_back(PlainPlanes(compression, {data.begin() + 2, data.end()}, width, height, depth));
            // The last colour does not come last.
            layer.ChannelData(
                static_cast<int16_t>(static_cast<int32_t>(colors) - 1 - static_cast<int32_t>(i)), data);
        }
        layer.RealMask(bounds, 0, 0, bounds, 0, 0);
        const Opened opened =
            OpenBytes(DocumentBuilder(hasInk ? kColorCmyk : kColorRgb, depth, 3, 1, 1).Layer(layer).Build());
        ASSERT_EQ(opened.result, kOk);

        PlaneBlock block = {hasInk ? kColorCmyk : kColorRgb, depth, width, height};
        block.planeCount = colors + 1;
        for (uint32_t i = 0; i < colors; ++i) block.color[colors - 1 - i] = planes[i].data();
        block.alpha = planes[colors].data();
        Pixels want(count);
        ConvertPlanes(block, want.data());
        EXPECT_TRUE(Values(opened.document->layers[0].image) == want);
        Bytes mask(count);
        ReduceSamples(planes[colors + 2].data(), depth, count, mask.data());
        EXPECT_TRUE(Values(opened.document->layers[0].mask.data) == mask);
    }
}

// Of a stream that does not know where it ends; also when nobody looks at the channel.
TEST(LayerPixels, ChannelsThatAreCutShortEndTheOpen) {
    const auto open = [](Bytes file) {
        MemoryStream stream(std::move(file));
        stream.hasSize = true;
        stream.size = uint64_t{1} << 63;
        Owned<PsdDocument> opened;
        return OpenDocument(opened, &stream, 0);
    };
    for (uint16_t compression = 0; compression < 4; ++compression) {
        for (const int16_t id : {int16_t{0}, int16_t{9}}) {
            LayerBuilder layer({0, 0, 500, 500});
            layer.ChannelData(1, {0, 0}).Channel(id, Picture(250000), compression);
            Bytes file = Rgb().Layer(layer).MergedData({}).Build();
            file.erase(file.end() - 40000, file.end());
            EXPECT_EQ(open(file), kShortRead) << id << ", " << compression;
        }
    }
    // In the middle of a code that nothing follows.
    LayerBuilder bare({0, 0, 2, 2});
    bare.ChannelData(0, ByteWriter().U16(0).Text("MARK")).ChannelData(9, {0, 0});
    Bytes file = Rgb().Layer(bare).MergedData({}).Build();
    const std::string_view mark = "MARK";
    file.erase(std::search(file.begin(), file.end(), mark.begin(), mark.end()) + 5, file.end());
    EXPECT_EQ(open(file), kShortRead);
}

// Large enough that planes wait for one another in several places, and that input, inflated rows and steps
// end in the middle of each other; and rows that are too long for it. All planes decoded first give the
// pixels that are wanted.
TEST(MergedImage, IsTheSameWhileItArrives) {
    const Bytes picture = Picture(1000000);
    const std::pair<uint32_t, uint32_t> cases[] = {{kColorGrayscale, 2}, {kColorIndexed, 1}, {kColorRgb, 2},
                                                   {kColorRgb, 3},       {kColorRgb, 4},     {kColorCmyk, 5},
                                                   {kColorLab, 5}};
    // Depth and compression; the part of the data that is there, in eighths, which zip data must be in full.
    for (uint32_t run = 0; run < std::size(cases) * 3 * 4 * 3; ++run) {
        const auto& [mode, channels] = cases[run / 36];
        const uint32_t depth = 8u << run % 3, part = std::array{8u, 7u, 1u}[run / 12 % 3];
        const uint16_t compression = static_cast<uint16_t>(run / 3 % 4);
        const bool isWide = mode == kColorRgb && channels == 2;
        const uint32_t width = isWide ? 8 * 140000 / depth : 500, height = isWide ? 2 : 100;
        // The builder cannot take these differences, nor a row count these rows.
        if ((depth == 32 && compression == 3) || (isWide && compression == 1)) continue;
        if (part != 8 && compression > 1) continue;
        SCOPED_TRACE(run);
        const size_t rowBytes = width * depth / 8, planeBytes = rowBytes * height;
        Bytes planes(picture.begin(), picture.begin() + static_cast<ptrdiff_t>(planeBytes * channels));
        Bytes data = EncodePlanes(compression, planes, rowBytes, depth);
        data.resize(data.size() * part / 8);
        DocumentBuilder document(mode, depth, channels, width, height);
        MemoryStream stream(document.MergedData(data).Build());
        stream.hasSize = run % 5 == 0;  // without a size to go by the data is read into a buffer that grows
        stream.size = uint64_t{1} << 63;
        Owned<PsdDocument> opened;
        ASSERT_EQ(OpenDocument(opened, &stream, kReadMerged), kOk);

        if (data.size() >= 2)
            planes =
                PlainPlanes(compression, {data.begin() + 2, data.end()}, width, height * channels, depth);
        EXPECT_TRUE(part != 8 || std::ranges::equal(planes, std::span(picture).first(planes.size())));
        PlaneBlock block = {mode, depth, width, height};
        block.planeCount = channels;
        for (uint32_t i = 0; i < std::min(channels, ColorPlanesUsed(mode, channels)); ++i)
            block.color[i] = planes.data() + i * planeBytes;
        block.alpha = planes.data() + (channels - 1) * planeBytes;
        Pixels want(width * height);
        ConvertPlanes(block, want.data());
        EXPECT_TRUE(Values(opened->mergedPixels) == want);
        EXPECT_TRUE(part != 8 || opened->allowance.stepsSpent == 0) << "nothing is unfilled";
    }
}

// Packed rows wait where pixels go. One row's are longer than its pixels, by bytes that stand for nothing.
TEST(MergedImage, MayHavePackedRowsOfAnyLength) {
    constexpr uint32_t kWidth = 16384, kHeight = 8;
    for (const uint32_t padding : {0u, 20000u, 60000u}) {
        ByteWriter counts, rows;
        counts.U16(1);
        Pixels want(kWidth * kHeight, 0xFF000000);
        for (uint32_t i = 0; i < 3 * kHeight; ++i) {
            const uint32_t unused = i % kHeight == kHeight - 1 ? padding : 0, value = 7 * i + 1;
            rows.Raw(Bytes(unused, 0x80));
            for (uint32_t x = 0; x < kWidth; x += 128) rows.U8(0x81).U8(value);
            counts.U16(unused + kWidth / 64);
            for (uint32_t x = 0; x < kWidth; ++x)
                want[i % kHeight * kWidth + x] |= value << (16 - i / kHeight * 8);
        }
        DocumentBuilder document(kColorRgb, 8, 3, kWidth, kHeight);
        document.Resource(1057, {0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1});
        const Opened opened = OpenBytes(document.MergedData(counts.Raw(rows)).Build(), kReadMerged);
        ASSERT_TRUE(opened.document);
        EXPECT_TRUE(Values(opened.document->mergedPixels) == want) << padding;
    }
}

}  // namespace
}  // namespace tessary::test
