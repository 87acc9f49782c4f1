// Writes sample documents: what the README shows, what viewers can be tried on, and what fuzzers start from.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "document/plane_format.h"
#include "tools/bombs.h"
#include "tools/document_builder.h"
#include "tools/sample_blocks.h"
#include "tools/sample_effects.h"
#include "tools/sample_picture.h"
#include "tools/sample_planes.h"
#include "tools/sample_thumbnail.h"

namespace tessary::tools {
namespace {

using namespace test;

// Small documents say the same in fewer pixels.
struct Scale {
    int32_t part;
    int32_t operator()(int32_t pixels) const { return std::max(pixels / part, 1); }
};

LayerBuilder LayerOf(const Picture& picture, std::string_view name, int32_t left = 0, int32_t top = 0) {
    LayerBuilder layer({left, top, left + picture.width, top + picture.height});
    layer.Name(name).Pixels(picture.pixels, kCompressionPackBits);
    return layer;
}

// An adjustment of the whole canvas, or of what `mask` covers.
LayerBuilder Adjustment(std::string_view key, const Bytes& data, const Picture* mask = nullptr) {
    LayerBuilder layer({0, 0, 0, 0});
    layer.Solid(0).Name(key).Block(key, data);
    if (mask) {
        layer.Mask({0, 0, mask->width, mask->height}, 0, 0).Channel(-2, AlphaOf(*mask), kCompressionPackBits);
    }
    return layer;
}

DocumentBuilder& Describe(DocumentBuilder& document) {
    return document.Resolution(144, 1).Resource(1058, TinyExif()).Resource(1060, TinyXmp());
}

// A document that has layers only: its merged image is black and says so.
DocumentBuilder Layered(int32_t width, int32_t height, uint32_t depth = 8) {
    DocumentBuilder document(kColorRgb, depth, 3, static_cast<uint32_t>(width),
                             static_cast<uint32_t>(height));
    document.Resolution(144, 1).HasRealMergedData(false);
    return document.Merged(Bytes(static_cast<size_t>(width) * static_cast<size_t>(height) * 3 * depth / 8),
                           kCompressionPackBits);
}

void WriteFlatSamples(const Writer& write, Scale px) {
    const Picture scene = Scene(px(160), px(120));
    const auto document = [&](PsdColorMode mode, uint32_t depth, uint32_t channels) {
        return DocumentBuilder(mode, depth, channels, static_cast<uint32_t>(px(160)),
                               static_cast<uint32_t>(px(120)));
    };
    const struct {
        const char* name;
        PsdColorMode mode;
        uint32_t depth, channels;
        uint16_t compression;
    } samples[] = {
        {"rgb8-raw", kColorRgb, 8, 3, kCompressionRaw},
        {"rgb8-packbits", kColorRgb, 8, 3, kCompressionPackBits},
        {"rgb8-zip", kColorRgb, 8, 3, kCompressionZip},
        {"rgb8-predicted", kColorRgb, 8, 3, kCompressionZipPrediction},
        {"rgb8-alpha", kColorRgb, 8, 4, kCompressionPackBits},
        {"rgb16", kColorRgb, 16, 3, kCompressionZipPrediction},
        {"rgb32", kColorRgb, 32, 3, kCompressionZip},
        {"gray8", kColorGrayscale, 8, 1, kCompressionPackBits},
        {"gray8-alpha", kColorGrayscale, 8, 2, kCompressionPackBits},
        {"gray16", kColorGrayscale, 16, 1, kCompressionRaw},
        {"gray32", kColorGrayscale, 32, 1, kCompressionRaw},
        {"duotone", kColorDuotone, 8, 1, kCompressionPackBits},
        {"cmyk", kColorCmyk, 8, 4, kCompressionPackBits},
        {"cmyk16-alpha", kColorCmyk, 16, 5, kCompressionZip},
        {"lab", kColorLab, 8, 3, kCompressionPackBits},
        {"lab16-alpha", kColorLab, 16, 4, kCompressionPackBits},
        {"multichannel", kColorMultichannel, 8, 3, kCompressionRaw},
    };
    for (const auto& sample : samples) {
        DocumentBuilder sampled = document(sample.mode, sample.depth, sample.channels);
        Describe(sampled).Merged(PlanesOf(scene, sample.mode, sample.depth, sample.channels),
                                 sample.compression);
        if (sample.mode == kColorRgb) sampled.Resource(1039, TinyProfile());
        if (sample.mode == kColorDuotone) sampled.ColorModeData(ByteWriter().U16(1).U16(1).Zeros(528));
        write(sample.name, sampled.Build());
    }
    DocumentBuilder bitmap = document(kColorBitmap, 1, 1);
    write("bitmap", Describe(bitmap).Merged(BitmapPlane(scene), kCompressionPackBits).Build());
    DocumentBuilder indexed = document(kColorIndexed, 8, 1);
    Describe(indexed).ColorModeData(PaletteTables()).Resource(1046, ByteWriter().U16(217));
    indexed.Resource(1047, ByteWriter().U16(kTransparentEntry));
    write("indexed-transparent", indexed.Merged(IndexedPlane(scene), kCompressionPackBits).Build());
    // A fourth channel with a name is no transparency: the picture stays opaque.
    DocumentBuilder named = document(kColorRgb, 8, 4);
    Describe(named).Resource(1006, ByteWriter().Pascal("oval", 1)).Merged(PlanesOf(scene, kColorRgb, 8, 4));
    write("rgb8-named-alpha", named.Build());
}

void WriteLayeredSamples(const Writer& write, Scale px) {
    constexpr int32_t kColumns = 8;
    const int32_t cell = px(56), gap = px(4), tileSide = px(50);
    const char* const modes[] = {"norm", "diss", "dark", "mul ", "idiv", "lbrn", "lite", "scrn",
                                 "div ", "lddg", "over", "sLit", "hLit", "vLit", "lLit", "pLit",
                                 "hMix", "diff", "smud", "hue ", "sat ", "colr", "lum "};
    Picture back(cell * kColumns, cell * 3);
    for (int32_t row = 0; row < 3; ++row) {
        const double top = row * cell;
        back.Draw(Box(0, top, back.width, top + cell),
                  [=](Point p) { return Mix(Hues(cell, 1)(p), 0xFF000000, (p.y - top) / cell * 1.1 - 0.1); });
    }
    DocumentBuilder blend = Layered(back.width, back.height);
    blend.Layer(LayerOf(back, "background"));
    for (int32_t i = 0; i < static_cast<int32_t>(std::size(modes)); ++i) {
        Picture disc(cell - 2 * gap, cell - 2 * gap);
        disc.Draw(Disc(px(24), px(24), px(23)), Down({0xFFFFF0D0, 0xE0E07030, 0x90203060}, px(48)));
        blend.Layer(
            LayerOf(disc, modes[i], i % kColumns * cell + gap, i / kColumns * cell + gap).Mode(modes[i]));
    }
    write("blend-modes", blend.Build());

    const Picture scene = Scene(px(160), px(120));
    Picture half(px(160), px(120)), spot(px(60), px(60)), tile(tileSide, tileSide);
    half.Draw(Box(px(60), -9, px(200), px(200)), Flat(~0u), px(80));
    spot.Draw(Disc(px(30), px(30), px(20)), Flat(~0u), px(20));
    tile.Draw(Box(px(2), px(2), px(48), px(48), px(9)), Down({0xFFF25C54, 0xFF7A2E8E}, px(50)));

    DocumentBuilder masks = Layered(px(160), px(120));
    masks.Layer(LayerOf(scene, "background"));
    const struct {
        int32_t left;
        uint8_t defaultColor, flags;
    } maskCases[] = {{4, 0, 0}, {54, 255, 0}, {104, 0, 2}};
    for (const auto& test : maskCases) {
        const Rect rect{px(test.left) - px(5), px(30), px(test.left) - px(5) + px(60), px(30) + px(60)};
        masks.Layer(LayerOf(tile, "masked", px(test.left), px(35))
                        .Mask(rect, test.defaultColor, test.flags, AlphaOf(spot)));
    }
    write("masks", masks.Build());

    DocumentBuilder groups = Layered(px(160), px(120));
    groups.Layer(LayerOf(scene, "background"));
    groups.Layer(GroupEnd()).Layer(LayerOf(tile, "passed through", px(4), px(35)).Mode("scrn"));
    groups.Layer(GroupHead("pass", "pass").Opacity(200));
    groups.Layer(GroupEnd())
        .Layer(LayerOf(tile, "multiplied", px(54), px(35)))
        .Layer(GroupHead("mul ", "mul ").Opacity(128));
    groups.Layer(GroupEnd()).Layer(LayerOf(tile, "not shown", px(104), px(35))).Layer(GroupHead().Hidden());
    write("groups", groups.Build());

    // Only the light half of the tile, only where the canvas is dark.
    const Bytes ranges = ByteWriter().U16(0x6060).U16(0xFFFF).U16(0).U16(0xA0A0).Raw(FullRanges(4));
    Picture faded(tileSide, tileSide);
    faded.Draw(Box(px(2), px(2), px(48), px(48), px(9)), Down({0xE0F25C54, 0x207A2E8E}, px(50)));
    DocumentBuilder mixed = Layered(px(160), px(120));
    mixed.Layer(LayerOf(scene, "background"));
    mixed.Layer(LayerOf(faded, "dissolved", px(20), px(35)).Mode("diss"));
    mixed.Layer(LayerOf(tile, "ranges", px(90), px(35)).Ranges(ranges).Block("brst", ByteWriter().U32(2)));
    write("dissolve-and-ranges", mixed.Build());

    for (const AdjustmentSample& sample : AdjustmentSamples()) {
        DocumentBuilder document = Layered(px(160), px(120));
        document.Layer(LayerOf(scene, "background")).Layer(Adjustment(sample.key, sample.data, &half));
        write(std::string("adjustment-") + sample.name, document.Build());
    }
    const std::pair<const char*, Bytes> effects[] = {{"effect-shadow", DropShadow(75, 120, 8, 9)},
                                                     {"effect-glow", OuterGlow()},
                                                     {"effect-gradient-glow", GradientGlow()},
                                                     {"effect-overlay", ColorOverlay()}};
    for (const auto& [name, block] : effects) {
        DocumentBuilder document = Layered(px(160), px(120));
        document.Layer(LayerOf(scene, "background"))
            .Layer(LayerOf(tile, "tile", px(60), px(35)).Block("lfx2", block));
        write(name, document.Build());
    }

    std::vector<EffectSample> alone = EffectSamples();
    alone.push_back({"all", AllEffects()});
    for (const auto& [name, settings] : alone) {
        DocumentBuilder document = Layered(px(160), px(120));
        document.Layer(LayerOf(scene, "background"));
        document.Layer(LayerOf(tile, "tile", px(60), px(35)).Block("lfx2", EffectsBlock(settings)));
        write(std::string("effect-") + name, document.DocumentBlock("Patt", WeaveBlock()).Build());
    }

    DocumentBuilder deep = Layered(px(160), px(120), 16);
    LayerBuilder layer({0, 0, px(160), px(120)});
    const Bytes planes = PlanesOf(scene, kColorRgb, 16, 4);
    const std::ptrdiff_t planeBytes = static_cast<std::ptrdiff_t>(planes.size() / 4);
    for (int16_t i = 0; i < 4; ++i) {
        const auto begin = planes.begin() + i * planeBytes;
        layer.Channel(i < 3 ? i : int16_t{-1}, Bytes(begin, begin + planeBytes), kCompressionZipPrediction);
    }
    write("layers16", deep.Layer(layer).LayersInBlock("Lr16").Build());
}

// What other samples have no use for: every resource that is read, a real mask, fills and the older effects.
void WriteFullSample(const Writer& write, Scale px) {
    const Picture scene = Scene(px(160), px(120));
    const Rect bounds{0, 0, scene.width, scene.height};
    const Bytes text = ByteWriter().Unicode(u"text"), unit = ByteWriter().Fixed(2).U16(1);
    ByteWriter slices = ByteWriter().U32(6).RectTlbr(bounds).Raw(text).U32(1);
    slices.U32(1).U32(0).U32(1).U32(7).Raw(text).U32(1).RectTlbr(bounds).Raw(text).Raw(text).Raw(text).Raw(
        text);
    slices.U8(1).Raw(text).U32(0).U32(0).U32(0xFF102030);
    ByteWriter thumbnail =
        ByteWriter().U32(1).U32(8).U32(6).U32(24).U32(144).U32(20).U16(24).U16(1).Zeros(20);
    const std::pair<uint16_t, Bytes> resources[] = {
        {1006, ByteWriter().Pascal("oval", 1)},
        {1007, ByteWriter().Zeros(8).U16(50).U8(1).U8(0)},
        {1008, ByteWriter().Pascal("a caption", 1)},
        {1009, unit},
        {1011, Bytes(9, 1)},
        {1024, {0, 1}},
        {1026, Bytes(4, 1)},
        {1032, ByteWriter().U32(1).U32(576).U32(576).U32(2).U32(640).U8(0).U32(320).U8(1)},
        {1034, {1}},
        {1036, thumbnail},
        {1037, ByteWriter().U32(120)},
        {1038, ByteWriter().U32(1).U32(1).Zeros(10)},
        {1039, TinyProfile()},
        {1042, {0, 1}},
        {1045, text},
        {1046, {0, 9}},
        {1047, {0, 3}},
        {1049, ByteWriter().U32(30)},
        {1050, slices},
        {1053, ByteWriter().U32(3).U32(4)},
        {1054, ByteWriter().U32(1).U32(2).U32(3).Raw(text)},
        {1057, ByteWriter().U32(1).U8(0).Raw(text).Raw(text).U32(1)},
        {1058, TinyExif()},
        {1060, TinyXmp()},
        {1062, ByteWriter().U16(2).F32(1).F32(2).F32(3)},
        {1064, ByteWriter().U32(1).F64(1.5)},
        {10000, ByteWriter().U16(1).U8(1).U8(0).U32(5).U16(1)},
    };
    DocumentBuilder document(kColorRgb, 8, 4, static_cast<uint32_t>(px(160)), static_cast<uint32_t>(px(120)));
    for (const auto& [id, data] : resources) document.Resource(id, data);
    document.Resolution(144, 2).GlobalMask(ByteWriter().U16(0).U16(1).U16(2).U16(3).U16(4).U16(50).U8(1));

    LayerBuilder masked = LayerOf(scene, "masked");
    masked.RealMask(bounds, 0, 0, bounds, 255, 4).Channel(-2, AlphaOf(scene)).Channel(-3, AlphaOf(scene));
    masked.Ranges(FullRanges(5)).Block("luni", text).Block("lnsr", ByteWriter().Text("layr"));
    masked.Block("lyid", ByteWriter().U32(7)).Block("clbl", Bytes(4, 1)).Block("infx", Bytes(4, 1));
    masked.Block("knko", Bytes(4, 1)).Block("lspf", ByteWriter().U32(7)).Block("lclr", Bytes(8, 1));
    masked.Block("fxrp", ByteWriter().F64(1).F64(2)).Block("tsly", Bytes(4)).Block("lmgm", Bytes(4, 1));
    masked.Block("vmgm", Bytes(4, 1)).Block("lyvr", ByteWriter().U32(70)).Block("iOpa", Bytes(4, 200));
    ByteWriter shadow = ByteWriter().U32(2).Fixed(5).Fixed(10).Fixed(120).Fixed(4).Zeros(10).Text("8BIMmul ");
    ByteWriter old = ByteWriter().U16(0).U16(2).Text("8BIMcmnS").Counted(ByteWriter().U32(0).U8(1).U16(0));
    masked.Block("lrFX", old.Text("8BIMdsdw").Counted(shadow.U8(1).U8(1).U8(75).Zeros(10)));
    document.Layer(masked);
    const auto described = [](const char* key, const ByteWriter& item) {
        return ByteWriter().U32(16).ClassName(key).U32(1).Raw(item).bytes();
    };
    ByteWriter gradient, pattern;
    gradient.ItemHead("Grad", "Objc")
        .ClassName("Grdn")
        .U32(2)
        .Enum("GrdF", "GrdF", "CstS")
        .ItemHead("Clrs", "VlLs");
    gradient.U32(1).Text("Objc").ClassName("Clrt").U32(2).ColorItem("Clr ", 9, 99, 199).Long("Lctn", 2048);
    pattern.ItemHead("Ptrn", "Objc").ClassName("Ptrn").U32(1).ItemHead("Nm  ", "TEXT").Raw(text);
    const std::pair<const char*, Bytes> fills[] = {
        {"SoCo", described("null", ByteWriter().ColorItem("Clr ", 200, 100, 50))},
        {"GdFl", described("null", gradient)},
        {"PtFl", described("null", pattern)},
        {"phfl", ByteWriter().U16(3).Zeros(20)},
        {"TySh", ByteWriter().U16(1).Zeros(48)},
    };
    for (const auto& [key, data] : fills) document.Layer(LayerOf(scene, key).Opacity(128).Block(key, data));
    document.DocumentBlock("Patt", Bytes(12)).Merged(PlanesOf(scene, kColorRgb, 8, 4));
    write("full", document.Build());
}

Shape Hexagon(double cx, double cy, double radius) {
    std::vector<Point> corners;
    for (int i = 0; i < 6; ++i) {
        const double angle = 1.0471975511965976 * i + 0.5235987755982988;
        corners.push_back({cx + radius * std::cos(angle), cy + radius * std::sin(angle)});
    }
    return Polygon(corners);
}

// Two tones of each face of a cube of mosaic stones, 3 x 3 to a face.
Picture MosaicCube(double side) {
    const double half = side * std::sqrt(0.75);
    Picture cube(static_cast<int32_t>(2 * half) + 5, static_cast<int32_t>(2 * side) + 5);
    const Point center{half + 2.5, side + 2.5};
    const Point axes[] = {
        {-half, -side / 2}, {half, -side / 2}, {half, side / 2}, {0, side}, {-half, side / 2}};
    const struct {
        Point u, v;
        uint32_t from, to;
    } faces[] = {
        {axes[0], axes[1], 0xFFFFF1B8, 0xFFF9B453},
        {axes[1], axes[3], 0xFFF4705C, 0xFFB92F63},
        {axes[3], axes[0], 0xFF8C4FB5, 0xFF47328F},
    };
    cube.Draw(Hexagon(center.x, center.y, side), Flat(0xFF2A1D4C));
    for (const auto& face : faces) {
        const auto at = [&](double a, double b) {
            return Point{center.x + (face.u.x * a + face.v.x * b) / 3,
                         center.y + (face.u.y * a + face.v.y * b) / 3};
        };
        for (int i = 0; i < 9; ++i) {
            const double a = i / 3, b = i % 3, gap = 0.05;
            const double tone = (a + b) / 4 * 0.8 + (i * 7 % 5) * 0.05;
            cube.Draw(Polygon({at(a + gap, b + gap), at(a + 1 - gap, b + gap), at(a + 1 - gap, b + 1 - gap),
                               at(a + gap, b + 1 - gap)}),
                      Flat(Mix(face.from, face.to, tone)));
        }
    }
    return cube;
}

// The face of the product: what a document looks like when all of it works.
void WritePicture(const Writer& write) {
    constexpr int32_t kWidth = 480, kHeight = 320;
    const auto canvas = [] { return Picture(kWidth, kHeight); };
    const auto glow = [](Point p) {
        const double near = std::clamp(1 - std::hypot(p.x - 352, p.y - 196) / 190, 0.0, 1.0);
        return static_cast<uint32_t>(near * near * 230) << 24 | 0xFFB060;
    };
    Picture mist = canvas(), vignette = canvas(), stones = canvas(), glints = canvas();
    mist.Draw(Everywhere, Down({~0u, ~0u, ~0u, 0xFFFFFFFFu, 0x30FFFFFF, 0x20FFFFFF}, 262));
    vignette.Draw(Everywhere, [](Point p) {
        return static_cast<uint32_t>(
                   std::clamp(std::hypot(p.x / 240 - 1, p.y / 160 - 1) * 230 - 90, 0.0, 255.0))
               << 24;
    });
    for (int i = 0; i < 60; ++i) {
        const double x = (i % 12) * 41.6 + (i / 12 % 2 ? 20.8 : 0), y = (i / 12) * 36.0;
        const uint32_t alpha = static_cast<uint32_t>(std::max(230 - y * 1.2 - (i * 37 % 11) * 8, 0.0));
        stones.Draw(Hexagon(x, y, 22.4), Flat(alpha << 24 | (i * 53 % 7 < 3 ? 0xFFFFFF : 0xB8A8FF)));
    }
    for (int i = 0; i < 34; ++i) {
        const double y = 246 + i * 2.3, wide = 8 + (i * 29 % 17) * (1 + i * 0.09),
                     x = 352 + (i * 47 % 31 - 15) * (1 + i * 0.06);
        glints.Draw(Box(x - wide, y - 0.9, x + wide, y + 0.9, 0.9), Flat(0xC0FFC070));
    }
    const PictureEffects effects;
    const auto with = [](LayerBuilder layer, const std::vector<EffectItems>& own) {
        return layer.Block("lfx2", EffectsBlock(own));
    };
    DocumentBuilder document = Layered(kWidth, kHeight);
    document.Resource(1058, TinyExif()).Resource(1060, TinyXmp()).DocumentBlock("Patt", WeaveBlock());
    document.Layer(LayerOf(
        canvas().Draw(Everywhere, Down({0xFF161A48, 0xFF4B3A8C, 0xFFB9578F, 0xFFFF9A6B, 0xFFFFD79A}, 250)),
        "sky"));
    document.Layer(LayerOf(canvas().Draw(Everywhere, glow), "glow").Mode("scrn"));
    document.Layer(with(LayerOf(canvas().Draw(Disc(352, 196, 30), Flat(0xFFFFF4D0)), "sun"), effects.sun));
    document.Layer(GroupEnd())
        .Layer(LayerOf(stones, "stones"))
        .Layer(GroupHead("sLit", "sLit").Opacity(110).Name("mosaic"));
    document.Layer(with(LayerOf(canvas().Draw(Hills(206, 17, 62, 0.4), Flat(0xFF7C5AA6)), "far hills")
                            .Mask({0, 0, kWidth, kHeight}, 0, 0)
                            .Channel(-2, AlphaOf(mist), kCompressionPackBits),
                        effects.farHills));
    document.Layer(
        with(LayerOf(canvas().Draw(Hills(226, 11, 41, 2.2), Flat(0xFF4A3178)), "near hills").Opacity(235),
             effects.nearHills));
    document.Layer(
        with(LayerOf(canvas().Draw(Box(-5, 240, 500, 400),
                                   Down({0xFF6A3F86, 0xFF6A3F86, 0xFF6A3F86, 0xFF5A3A84, 0xFF1B1C4E}, 320)),
                     "water"),
             effects.water));
    document.Layer(LayerOf(glints, "glints").Mode("lddg").Opacity(150));
    document.Layer(with(LayerOf(MosaicCube(92), "cube", 74, 62), effects.cube));
    document.Layer(Adjustment("curv", Curve({{0, 0}, {128, 84}, {255, 205}}), &vignette).Name("vignette"));
    const Bytes plain = document.Build();
    write("picture", document.Resource(1036, ThumbnailOf(plain)).Build());
}

Bytes Cut(Bytes bytes, size_t length) {
    return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), length)));
}

void WriteDamagedSamples(const Writer& write, Scale px) {
    const Picture scene = Scene(px(64), px(48));
    const uint32_t width = static_cast<uint32_t>(px(64)), height = static_cast<uint32_t>(px(48));
    const auto flat = [&] {
        return DocumentBuilder(kColorRgb, 8, 3, width, height)
            .Merged(PlanesOf(scene, kColorRgb, 8, 3), kCompressionZip);
    };
    const auto layered = [&](const LayerBuilder& layer) {
        return Layered(px(64), px(48)).Layer(layer).Build();
    };
    const LayerBuilder sound = LayerOf(scene, "layer");
    const Bytes whole = layered(sound);
    ByteWriter nested;
    nested.U32(0).U32(16).ClassName("null").U32(1).ItemHead("deep", "VlLs");
    for (int i = 0; i < px(5000); ++i) nested.U32(1).Text("VlLs");
    nested.U32(0);

    write("bad-signature", flat().Signature("8BPX").Build());
    write("version-2", DocumentBuilder(flat()).Version(2).Build());
    write("depth-24", DocumentBuilder(kColorRgb, 24, 3, width, height).MergedData({}).Build());
    write("short-header", Cut(whole, 20));
    write("truncated-planes", Cut(flat().Build(), flat().Build().size() - 60));
    write("truncated-layers", Cut(whole, whole.size() / 2));
    write("zip-garbage", flat().MergedData(ByteWriter().U16(2).Text("this is no deflate stream")).Build());
    write("unknown-compression", flat().MergedData(ByteWriter().U16(4)).Build());
    write("runs-past-the-row",
          flat().MergedData(ByteWriter().U16(1).Raw(Bytes(2 * 144, 1)).Raw(Bytes(4000, 0x81))).Build());
    write("enormous-and-empty", DocumentBuilder(kColorRgb, 32, 56, 30000, 30000).MergedData({0, 0}).Build());
    write("mask-of-28-bytes", layered(LayerBuilder(sound).MaskBytes(Bytes(28))));
    write("block-signature", layered(LayerBuilder(sound).Block("luni", {}, "8B64")));
    write("extra-length", layered(LayerBuilder(sound).ExtraLength(0x7FFFFFFF)));
    write("huge-bounds",
          layered(LayerBuilder({-2147483647, -2147483647, 2147483647, 2147483647}).ChannelData(0, {0, 0})));
    write("channel-longer-than-file",
          layered(LayerBuilder({0, 0, px(64), px(48)}).ChannelData(0, {0, 0, 1}, 0x7FFFFFFF)));
    write("nested-lists", layered(LayerBuilder(sound).Block("lfx2", nested)));
    write("more-layers-than-records", Layered(px(64), px(48)).Layer(sound).LayerCount(-30000).Build());
}

int Run(const std::filesystem::path& folder, std::string_view what) {
    const auto writerTo = [](const std::filesystem::path& place) -> Writer {
        std::filesystem::create_directories(place);
        return [place](const std::string& name, const Bytes& bytes) {
            std::ofstream file(place / (name + ".psd"), std::ios::binary);
            file.write(reinterpret_cast<const char*>(bytes.data()),
                       static_cast<std::streamsize>(bytes.size()));
            if (!file.flush()) throw std::runtime_error("cannot write " + (place / name).string() + ".psd");
        };
    };
    const Writer write = writerTo(folder);
    if (what == "--bombs") return WriteBombs(write), 0;
    const bool small = what == "--small";
    const Scale scale = {small ? 8 : 1};
    WriteFlatSamples(write, scale);
    WriteLayeredSamples(write, scale);
    WriteFullSample(write, scale);
    if (!small) WritePicture(write);
    WriteDamagedSamples(writerTo(folder / "damaged"), scale);
    return 0;
}

}  // namespace
}  // namespace tessary::tools

int main(int count, char** arguments) {
    const std::string_view what = count == 3 ? arguments[2] : "";
    if (count < 2 || count > 3 || (count == 3 && what != "--small" && what != "--bombs")) {
        std::fputs("usage: make_samples DIR [--small | --bombs]\n", stderr);
        return 2;
    }
    try {
        return tessary::tools::Run(arguments[1], what);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "make_samples: %s\n", exception.what());
        return 1;
    }
}
