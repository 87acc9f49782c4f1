#include "tools/bombs.h"

#include <tuple>

#include "document/plane_format.h"
#include "tools/sample_blocks.h"
#include "tools/sample_effects.h"

namespace tessary::tools {
namespace {

using namespace test;

constexpr size_t kBytes = 1000000;
constexpr int32_t kBelieved = 5792;       // sides of a picture whose size is believed
constexpr int32_t kBelievedMask = 11585;  // and of a mask

DocumentBuilder Small(uint32_t side = 8) { return DocumentBuilder(kColorRgb, 8, 3, side, side); }
DocumentBuilder Gray(uint32_t side) { return DocumentBuilder(kColorGrayscale, 8, 1, side, side); }

// Zip data of fifty samples.
Bytes EarlyEnd() { return ByteWriter().U16(kCompressionZip).Raw(Zip(Bytes(50))); }
Bytes Padded(Bytes bytes, size_t size = kBytes, uint8_t value = 0) {
    return bytes.resize(size, value), bytes;
}
// Runs that say nothing.
Bytes NoRuns() { return Padded({0, 1}, kBytes, 0x80); }
Bytes Head(const Bytes& document) { return {document.begin(), document.begin() + 26}; }

LayerBuilder Bare(int32_t width, int32_t height) { return LayerBuilder({0, 0, width, height}).Name(""); }
// A layer with a single sample, of its transparency or, half opaque, of its first colour.
LayerBuilder Thin(int32_t side) { return Bare(side, side).ChannelData(-1, {0, 0, 255}); }
LayerBuilder Half(int32_t width, int32_t height) {
    return Bare(width, height).ChannelData(0, {0, 0, 255}).Opacity(128);
}
// All of one colour: every 128 pixels are two bytes of the file.
LayerBuilder Full(int32_t side) {
    const size_t count = static_cast<size_t>(side) * static_cast<size_t>(side);
    return Bare(side, side).Pixels(std::vector<uint32_t>(count, 0xC0804020), kCompressionPackBits);
}
LayerBuilder Ends(int32_t side) { return Bare(side, side).ChannelData(0, EarlyEnd()); }
LayerBuilder Adjustment(std::string_view key, const Bytes& block) {
    return Bare(0, 0).ChannelData(-1, {0, 0}).Block(key, block);
}

DocumentBuilder Shown(uint32_t side) { return Small(side).HasRealMergedData(false).MergedData({0, 0}); }
Bytes Layered(uint32_t side, int count, const LayerBuilder& layer) {
    DocumentBuilder document = Shown(side);
    for (int i = 0; i < count; ++i) document.Layer(layer);
    return document.Build();
}
size_t InfoBytes(const LayerBuilder& layer) { return Small().Layer(layer).LayerInfo().size(); }
// As many of these layers as a mebibyte holds.
Bytes Filled(uint32_t side, const LayerBuilder& layer) {
    return Layered(side, static_cast<int>(kBytes / InfoBytes(layer)), layer);
}

void WriteMergedBombs(const Writer& write) {
    write("pixels-without-data", Gray(30000).MergedData({0, 0}).Build());
    write("mebibyte-of-nothing", Small(18000).MergedData(NoRuns()).Build());
    write("zip-that-ends", Small(18000).MergedData(Padded(EarlyEnd())).Build());
    write("zip-that-ends-at-once", Gray(30000).MergedData(EarlyEnd()).Build());
    write("zip-of-many-planes",
          DocumentBuilder(kColorRgb, 8, 65535, 1200, 1200).MergedData(Padded(EarlyEnd())).Build());
    write("zip-of-zeros", Small(10000).Merged(Bytes(300000000), kCompressionZip).Build());
    write("zip-of-few-rows",
          Gray(12000).MergedData(EncodePlanes(kCompressionZip, Bytes(2000000), 0, 8)).Build());
    write("one-bit",
          DocumentBuilder(kColorBitmap, 1, 1, 30000, 30000).MergedData(Padded({0, 1}, kBytes, 0x81)).Build());
    write("planes", DocumentBuilder(kColorRgb, 32, 65535, ~0u, ~0u).MergedData({}).Build());
    const Bytes emptyRows = Padded({0, 1}, 2 + 2 * 3 * 30000);
    for (const bool real : {false, true}) {
        const std::string name = real ? "empty-rows" : "empty-rows-and-layer";
        write(name, Small(30000).HasRealMergedData(real).Layer(Thin(8)).MergedData(emptyRows).Build());
    }
}

// Layers and masks of up to 128 MiB with next to nothing in them.
void WriteLayerBombs(const Writer& write) {
    const Bytes shadow = DropShadow(75, 0, 0, 250);
    const Rect mask = {0, 0, kBelievedMask, kBelievedMask};
    const auto masked = [&](const Bytes& data) {
        return Half(1, 1).RealMask(mask, 0, 0, mask, 0, 0).ChannelData(-2, data).ChannelData(-3, data);
    };
    const Bytes emptyRows = Padded({0, 1}, 2 + 2 * kBelieved);
    const LayerBuilder nothing = Bare(kBelieved, kBelieved).ChannelData(0, {0, 0});
    const std::pair<const char*, LayerBuilder> layers[] = {
        {"layers-without-data", nothing},
        {"layers-that-end", Ends(kBelieved)},
        {"layers-of-empty-rows", Bare(kBelieved, kBelieved).ChannelData(0, emptyRows)},
        {"layers-that-end-with-shadows", Ends(kBelieved).Block("lfx2", shadow)},
        {"layers-that-end-with-glows", Ends(kBelieved).Block("lfx2", GradientGlow())},
        {"masks-without-data", masked({0, 0})},
        {"masks-that-end", masked(EarlyEnd())},
    };
    for (const auto& [name, layer] : layers) write(name, Filled(kBelieved, layer));
    // The widest rows that are believed, and wider ones.
    for (const int32_t width : {300000, 1 << 25}) {
        const std::string wide = width == 300000 ? "wide" : "widest";
        const Rect rows = {0, 0, width, 4};
        const Bytes empty = Padded({0, 1}, 11);
        LayerBuilder layer = Bare(width, 1);
        for (int16_t id = -1; id < 3; ++id) layer.ChannelData(id, {0, 1, 0, 0, 0});
        const Bytes one = Shown(8).Layer(layer).LayerInfo();
        DocumentBuilder floats(kColorRgb, 32, 3, 8, 8);
        for (size_t left = kBytes / one.size(); left > 0; --left) floats.Layer(layer);
        write(wide + "-layers", floats.HasRealMergedData(false).MergedData({0, 0}).Build());
        write(wide + "-masks", Filled(8, Half(1, 1).RealMask(rows, 0, 0, rows, 0, 0).ChannelData(-3, empty)));
        ByteWriter pattern = ByteWriter().U32(1).U32(kColorGrayscale).U32(0).U32(0).Pascal("p", 1).U32(3);
        pattern.U32(0).RectTlbr({0, 0, width / 2, 1}).U32(0).U32(1);
        pattern.Counted(ByteWriter().U32(8).RectTlbr({0, 0, width / 2, 1}).U16(8).U8(1).Zeros(3));
        ByteWriter patterns;
        while (patterns.size() < kBytes) patterns.Counted(pattern).Zeros((4 - pattern.size() % 4) % 4);
        write(wide + "-patterns", Shown(8).Layer(Thin(1)).DocumentBlock("Patt", patterns).Build());
    }
    // Each layer info replaces the one before it.
    for (const auto& [name, layer] : {std::pair{"layer-infos", Ends(kBelieved)},
                                      {"layer-infos-with-shadows", Ends(kBelieved).Block("lfx2", shadow)}}) {
        DocumentBuilder document = Shown(kBelieved);
        const Bytes info = Small().Layer(layer).LayerInfo();
        for (size_t left = kBytes / (info.size() + 12); left > 0; --left)
            document.DocumentBlock("Lr16", info);
        write(name, document.Build());
    }
    write("no-runs", Small().Layer(Bare(20000, 20000).ChannelData(0, NoRuns())).Build());
    write("all-layers", Small().Layer(Thin(0)).LayerCount(32767).Build());
    write("empty-layers", Layered(30000, 12000, Thin(0)));
}

// Planes of zeros, which zip makes a thousand times smaller, and channels without end.
void WriteChannelBombs(const Writer& write) {
    const auto zeros = [](int32_t side, uint32_t sampleBytes) {
        const size_t count = static_cast<size_t>(side) * static_cast<size_t>(side);
        return ByteWriter().U16(kCompressionZipPrediction).Raw(Zip(Bytes(count * sampleBytes))).bytes();
    };
    LayerBuilder deep = Bare(6900, 6900), inks = Bare(9500, 9500);
    const Bytes floats = zeros(6900, 4), words = zeros(9500, 2);
    for (int16_t id = -1; id < 3; ++id) deep.ChannelData(id, floats);
    for (int16_t id = -1; id < 4; ++id) inks.ChannelData(id, words);
    const Rect bounds = {0, 0, 6900, 6900};
    LayerBuilder masks = Bare(1, 1).RealMask(bounds, 0, 0, bounds, 0, 0).ChannelData(0, {0, 0});
    masks.ChannelData(-2, floats).ChannelData(-3, floats);
    for (const auto& [name, mode, depth, layer] : {std::tuple{"zip-of-floats", kColorRgb, 32u, deep},
                                                   {"zip-of-masks", kColorRgb, 32u, masks},
                                                   {"zip-of-inks", kColorCmyk, 16u, inks}})
        write(name, DocumentBuilder(mode, depth, 4, 8, 8).Layer(layer).MergedData({0, 0}).Build());
    LayerBuilder channels = Thin(0), repeating = Bare(2, 1);
    for (int16_t i = 0; i < 32766; ++i) channels.ChannelData(i, {}), repeating.Channel(0, {1, 2}, 2);
    write("exclusions", Small().Layer(channels.Block("brst", Bytes(700000))).Build());
    write("repeated-channels", Small().Layer(repeating).Build());
}

// Resources and blocks that claim, repeat or nest much.
void WriteRecordBombs(const Writer& write) {
    DocumentBuilder counts = Small(), repeated = Small();
    for (const uint16_t id :
         std::initializer_list<uint16_t>{1006, 1026, 1032, 1038, 1045, 1050, 1053, 1054, 1060}) {
        write("resource-" + std::to_string(id), Small().Resource(id, Bytes(kBytes)).Build());
        counts.Resource(id, ByteWriter().U32(6).Raw(Bytes(25, 255)));
    }
    write("resource-counts", counts.Build());
    for (int i = 0; i < 10000; ++i) repeated.Resource(i % 2 ? 1036 : 1060, Bytes(80));
    write("repeated-resources", repeated.Build());
    ByteWriter lists = ByteWriter().U32(0).U32(16).ClassName("null").U32(1).ItemHead("deep", "VlLs");
    for (size_t i = 0; i < kBytes / 8; ++i) lists.U32(1).Text("VlLs");
    write("nested-lists", Small().Layer(Thin(8).Block("lfx2", lists.U32(0))).Build());
    LayerBuilder crowded = Thin(0);
    for (int i = 0; i < 20; ++i) crowded.Block("lrFX", Bytes(4));
    write("effect-blocks", Layered(8, 2200, crowded));
    write("palette", ByteWriter().Raw(Head(Small().Build())).U32(0x7FFFFFFF));
    // Up to 64 KiB, of which a host may have a folder full.
    write("palette-without-data", ByteWriter().Raw(Head(Small(4096).Build())).U32(48 << 20));
    write("names-of-nothing", Small(4090).Resource(1006, Bytes(64000)).MergedData({0, 0}).Build());
}

// Adjustments without data over canvases without any.
void WriteAdjustmentBombs(const Writer& write) {
    const Bytes mixer = ByteWriter().U16(1).Zeros(42);
    ByteWriter curves = ByteWriter().U8(0).U16(1).U32(0xF);
    for (int i = 0; i < 4; ++i) {
        curves.U16(19);
        for (uint16_t x = 0; x < 19; ++x) curves.U16(x % 2 ? 0 : 255).U16(13 * x);
    }
    write("curves", Filled(2000, Adjustment("curv", curves)));
    write("adjustments", Filled(kBelieved, Adjustment("mixr", mixer)));
    write("adjustments-hue", Filled(4000, Adjustment("hue2", Hue(40, 20, 90))));
    // Half opaque, so that every pixel has to be blended; and rows of a single pixel.
    const Bytes ranges = ByteWriter().U16(0x0100).U16(0xFFFF).U16(0).U16(0xFEFF).Raw(FullRanges(4));
    for (const auto& [name, width, height, key, data] :
         {std::tuple{"adjustments-blended", 1000, 1000, "mixr", mixer},
          {"adjustments-narrow", 1, 30000, "nvrt", Bytes()}}) {
        DocumentBuilder document(kColorRgb, 8, 3, static_cast<uint32_t>(width),
                                 static_cast<uint32_t>(height));
        document.HasRealMergedData(false).MergedData({0, 0}).Layer(Half(width, height));
        const LayerBuilder layer = Adjustment(key, data).Mode("sLit").Opacity(90).Ranges(ranges);
        for (int i = 0; i < 4000; ++i) document.Layer(layer);
        write(name, document.Build());
    }
    write("adjustment-and-blur",
          Layered(4000, 1, Adjustment("nvrt", {}).Block("lfx2", DropShadow(75, 0, 0, 250))));
    write("dissolves", Layered(4000, 5000, Thin(4000).Mode("diss")));
    write("narrow-layers", Layered(4000, 5000, Half(1, 4000).Mode("lum ").Ranges(ranges)));
}

void WriteEffectBombs(const Writer& write) {
    const Bytes blur = DropShadow(75, 0, 0, 250), slight = DropShadow(75, 0, 0, 1);
    const std::tuple<const char*, uint32_t, int, LayerBuilder> bombs[] = {
        {"thin-shadows", 1000, 1000, Thin(1000).Block("lfx2", blur)},
        {"one-blur", 8, 1, Thin(2300).Block("lfx2", blur)},
        {"tall-blur", 8, 1, Bare(1, 3000000).ChannelData(-1, {0, 0, 255}).Block("lfx2", slight)},
        {"wide-blur", 8, 1, Bare(3000000, 1).ChannelData(-1, {0, 0, 255}).Block("lfx2", slight)},
        {"canvas-and-blur", 4000, 1, Thin(800).Block("lfx2", blur)},
        {"canvas-and-layer", 4000, 1, Thin(4000)},
        {"narrow-effects", 8, 10, Half(1, 1000000).Block("lfx2", slight)},
        {"opaque-glows", 1000, 11, Half(1000, 1000).Block("lfx2", OuterGlow())},
        {"true-blurs", 1000, 10, Full(1000).Block("lfx2", blur)},
        {"true-glows", 1000, 10, Full(1000).Block("lfx2", OuterGlow())},
        {"true-layers", 1000, 14, Full(1000).Mode("sLit")},
    };
    for (const auto& [name, side, count, layer] : bombs) write(name, Layered(side, count, layer));
}

// Effects of the largest sizes, which paint with a pattern where they can.
Bytes LargestEffect(const char* name) {
    const Items items = Items().Shown().Pixels("blur", 250).Pixels("Dstn", 30000);
    const Items lit = Items(items).Percent("hglO", 100).Percent("sdwO", 100).Percent("srgR", 1000);
    const Items textured = Items(lit).Flag("useTexture").Percent("textureDepth", 1000);
    const Items glow = Items(items).Choice("GlwT", "PrBL").Percent("Nose", 50);
    const Items stroke = Items(items).Pixels("Sz  ", 250).Choice("Styl", "CtrF");
    const Items turned = Items(items).Angle("Angl", 30).Object("Ptrn", WeavePattern()).Percent("Scl ", 9);
    const Items burst = Items(stroke).Choice("PntT", "GrFl").Choice("Type", "shapeburst");
    const std::pair<std::string_view, EffectItems> effects[] = {
        {"strokes", {"FrFX", stroke}},
        {"bursts", {"FrFX", Items(burst).Object("Grad", Gradient({~0u, 0, 0xFF00FF00}))}},
        {"satins", {"ChFX", items}},
        {"precise-glows", {"IrGl", glow}},
        {"inner-shadows", {"IrSh", Items(items).Pixels("Ckmt", 50)}},
        {"turned-patterns", {"patternFill", turned}},
        {"bevels", {"ebbl", Items(lit).Choice("bvlS", "Embs").Pixels("Sftn", 250)}},
        {"chisels",
         {"ebbl",
          Items(textured).Choice("bvlS", "PlEb").Choice("bvlT", "Slmt").Object("Ptrn", WeavePattern())}},
    };
    for (const auto& [key, effect] : effects) {
        if (key == name) return EffectsBlock({&effect, 1});
    }
    return {};
}

void WriteLargestEffects(const Writer& write) {
    for (const char* const name : {"strokes", "bursts", "satins", "precise-glows", "inner-shadows",
                                   "turned-patterns", "bevels", "chisels"}) {
        const Bytes block = LargestEffect(name);
        // Layers without data, one that is as large as may be, and some of a byte for many pixels.
        for (const auto& [prefix, side, count, layer] : {std::tuple{"thin-", 1000, 600, Thin(1000)},
                                                         {"one-of-", 3000, 1, Thin(3000)},
                                                         {"true-", 1000, 10, Full(1000)}}) {
            DocumentBuilder document = Shown(static_cast<uint32_t>(side));
            for (int i = 0; i < count; ++i) document.Layer(LayerBuilder(layer).Block("lfx2", block));
            write(std::string(prefix) + name, document.DocumentBlock("Patt", WeaveBlock()).Build());
        }
    }
}

// Tiles of the largest size: row counts of 0, and a byte behind them that no row takes.
void WritePatternBombs(const Writer& write) {
    constexpr int32_t kSide = 4096;
    const Bytes plane = ByteWriter().U32(8).RectTlbr({0, 0, kSide, kSide}).U16(8).U8(1).Zeros(2 * kSide + 1);
    for (const uint32_t mode : {uint32_t{kColorGrayscale}, uint32_t{kColorCmyk}}) {
        const uint32_t colors = mode == kColorCmyk ? 4 : 1;
        ByteWriter planes = ByteWriter().RectTlbr({0, 0, kSide, kSide}).U32(colors);
        for (uint32_t i = 0; i < colors + 2; ++i) planes.U32(1).Counted(plane);
        ByteWriter tiles;
        for (uint32_t i = 0; tiles.size() < kBytes; ++i) {
            const std::string name = std::to_string(i);
            ByteWriter tile = ByteWriter().U32(1).U32(mode).U32(0).Unicode(u"").Pascal(name, 1).U32(3);
            tile.Counted(planes);
            tiles.Counted(tile).Zeros((4 - tile.size() % 4) % 4);
        }
        write(mode == kColorCmyk ? "tiles-of-inks" : "tiles",
              Small().Layer(Thin(8)).DocumentBlock("Patt", tiles).Build());
    }
}

// Of up to 64 KiB, but with large canvases.
void WriteCanvasBombs(const Writer& write) {
    Bytes sparse = Padded({0, 1}, 2 + 2 * 4560);
    for (size_t row = 0; row < 50; ++row) {
        sparse[3 + 2 * row] = 72;
        for (int i = 0; i < 36; ++i) sparse.insert(sparse.end(), {0x81, 0x55});
    }
    write("sparse-rows", Gray(4560).MergedData(Padded(sparse, 65000, 0x80)).Build());
    // Samples in full depth are as much as the pixels.
    const Bytes zeros = EncodePlanes(kCompressionZip, Bytes(60000000), 0, 8);
    write("zip-of-deep-zeros", DocumentBuilder(kColorRgb, 32, 3, 4230, 4230).MergedData(zeros).Build());
    write("claimed-canvas-of-zeros", Small(30000).HasRealMergedData(false).MergedData(zeros).Build());
    write("claimed-canvas", Shown(30000).Layer(Thin(8)).Resource(4000, Bytes(64000)).Build());
}

}  // namespace

void WriteBombs(const Writer& write) {
    WriteMergedBombs(write);
    WriteLayerBombs(write);
    WriteChannelBombs(write);
    WriteRecordBombs(write);
    WriteAdjustmentBombs(write);
    WriteEffectBombs(write);
    WriteLargestEffects(write);
    WritePatternBombs(write);
    WriteCanvasBombs(write);
}

}  // namespace tessary::tools
