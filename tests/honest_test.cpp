// Large documents as people make them. What each must look like follows from how it is made: nothing that
// keeps hostile files from taking too much may cost these a pixel.
#include <gtest/gtest.h>

#include "document/plane_format.h"
#include "frontend/document_pixels.h"
#include "render/render.h"
#include "tools/document_builder.h"
#include "tools/sample_blocks.h"

#if !defined(TESSARY_HONEST_PART)
#define TESSARY_HONEST_PART 1  // sides are divided by it where the build is slow
#endif

namespace tessary::test {
namespace {

constexpr int32_t Px(int32_t pixels) { return pixels / TESSARY_HONEST_PART; }
constexpr uint32_t kNone = 0, kPaper = 0xFF808080, kInk = 0xFF2040C0, kRed = 0xFFFF0101, kOpaque = 0xFF000000;
const Rect kAll = {0, 0, Px(6000), Px(6000)};

struct Pixels {
    const uint32_t* data;
    int32_t width, height;
    uint32_t At(int32_t x, int32_t y) const { return data[static_cast<ptrdiff_t>(y) * width + x]; }
};

// Expects every pixel to be what want(pixels, x, y) says; tells the first that is not.
template <class Want>
void ExpectPixels(const Pixels& pixels, Want want, const char* how) {
    for (int32_t y = 0; y < pixels.height; ++y) {
        for (int32_t x = 0; x < pixels.width; ++x) {
            if (pixels.At(x, y) == want(pixels, x, y)) continue;
            ADD_FAILURE() << how << std::hex << pixels.At(x, y) << " and not " << want(pixels, x, y)
                          << std::dec << " at " << x << ", " << y;
            return;
        }
    }
}

// Draws the document as clients do, and also from all its layers in memory when they fit.
template <class Want>
void Check(Bytes file, bool fits, Want want) {
    MemoryStream stream(std::move(file));
    DocumentPixels picture;
    ASSERT_EQ(DecodeDocumentPixels(&stream, picture), PsdReadResult::kOk);
    const int32_t width = static_cast<int32_t>(picture.width), height = static_cast<int32_t>(picture.height);
    ExpectPixels({picture.pixels.get(), width, height}, want, "");
    picture = {};
    if (!fits) return;
    Owned<PsdDocument> document;
    ASSERT_EQ(OpenDocument(document, &stream, kReadEverything), PsdReadResult::kOk);
    ASSERT_EQ(Render(document.get(), 0, 0, width, height), PsdReadResult::kOk);
    ExpectPixels({document->canvas.get(), width, height}, want, "read whole: ");
}

auto All(uint32_t color) {
    return [=](const Pixels&, int32_t, int32_t) { return color; };
}
// The same in all cells, and something in the upper middle of the first, `top` below its edge.
auto EqualCells(const Rect& cell, int32_t top) {
    return [=](const Pixels& p, int32_t x, int32_t y) {
        const bool isEmpty = p.At(cell.right / 2, top) == kBackground;
        return isEmpty ? ~p.At(x, y) : p.At(x % cell.right, y % cell.bottom);
    };
}

// Rows of bytes of one value, compression code included.
Bytes Flat(int64_t width, int64_t height, uint32_t value, uint16_t compression = kCompressionPackBits) {
    ByteWriter row, packed = ByteWriter().U16(compression);
    if (compression != kCompressionPackBits) {
        const Bytes plane(static_cast<size_t>(width * height), static_cast<uint8_t>(value));
        return packed.Raw(compression == kCompressionZip ? Zip(plane) : plane);
    }
    for (int64_t left = width; left > 0; left -= 128)
        row.U8(static_cast<uint32_t>(257 - std::min<int64_t>(left, 128))).U8(value);
    for (int64_t y = 0; y < height; ++y) packed.U16(static_cast<uint32_t>(row.size()));
    for (int64_t y = 0; y < height; ++y) packed.Raw(row.bytes());
    return packed;
}
// Packed planes that end behind so many of their rows.
Bytes FirstRows(int64_t rows, int64_t width, int64_t height, uint32_t value) {
    const Bytes all = Flat(width, height, value);
    return Bytes(all.begin(), all.begin() + 2 + 2 * height + rows * ((width + 127) / 128 * 2));
}
LayerBuilder Shape(const Rect& bounds, uint32_t argb, uint16_t compression = kCompressionPackBits) {
    LayerBuilder layer(bounds);
    for (int16_t id = -1; id <= 2; ++id) {
        const uint32_t value = argb >> (16 - 8 * id) & 255;
        layer.ChannelData(id, Flat(bounds.Width(), bounds.Height(), value, compression));
    }
    return layer;
}
// A rectangle none of whose channels has data.
LayerBuilder Empty(const Rect& bounds) {
    LayerBuilder layer(bounds);
    for (int16_t id = -1; id <= 2; ++id) layer.ChannelData(id, {0, 0});
    return layer;
}
// Shows its layers, the lowest of one colour if any; the merged image is black.
DocumentBuilder Canvas(int32_t width, int32_t height, uint32_t paper = kPaper, uint32_t depth = 8) {
    DocumentBuilder document(kColorRgb, depth, 3, uint32_t(width), uint32_t(height));
    document.HasRealMergedData(false).MergedData(Flat(int64_t{width} * depth / 8, 3 * height, 0));
    return paper ? document.Layer(Shape({0, 0, width, height}, paper)) : document;
}
using Stack = std::vector<std::pair<int, LayerBuilder>>;
Bytes Piled(DocumentBuilder document, const Stack& layers) {
    for (const auto& [count, layer] : layers) {
        for (int i = 0; i < count; ++i) document.Layer(layer);
    }
    return document.Build();
}
std::pair<int, LayerBuilder> Adjust(int count, std::string_view key, const Bytes& block = {}) {
    return {count, Empty({}).Block(key, block)};
}
// Cells on nothing with an equal shape in each.
Bytes Grid(int32_t columns, int32_t rows, const Rect& cell, const Rect& r, const Bytes& effects) {
    DocumentBuilder document = Canvas(columns * cell.right, rows * cell.bottom, kNone);
    for (int32_t i = 0; i < columns * rows; ++i) {
        const int32_t x = i % columns * cell.right, y = i / columns * cell.bottom;
        const Rect bounds = {r.left + x, r.top + y, r.right + x, r.bottom + y};
        document.Layer(Shape(bounds, kInk).Block("lfx2", effects));
    }
    return document.Build();
}

// The grains of a glow lie elsewhere for each shape; the rest must be there everywhere.
TEST(Honest, ThousandShapesHaveThreeEffectsEach) {
    const Rect cell = {0, 0, Px(400), Px(150)}, shape = {Px(50), Px(32), Px(350), Px(92)};
    const Bytes effects = tools::Together(
        {tools::DropShadow(75, 90, Px(44), Px(8)), tools::OuterGlow(Px(28), 20), tools::ColorOverlay(100)});
    Check(Grid(25, 40, cell, shape, effects), true, [=](const Pixels& p, int32_t x, int32_t y) {
        const int32_t inX = x % cell.right, inY = y % cell.bottom;
        const uint32_t pixel = p.At(x, y), blue = pixel & 255;
        const bool between = inX > shape.left + 9 && inX < shape.right - 9;
        if (inX >= shape.left && inX < shape.right && inY >= shape.top && inY < shape.bottom)
            return 0xFF3CA05A;
        if (inX == 0 || inY == 0) return kBackground;
        // A bright glow right above, a dark shadow further below.
        if (between && inY == shape.top - 1) return pixel >> 24 && blue > 100 ? pixel : 1;
        if (between && inY == Px(128)) return pixel >> 24 && blue < 60 ? pixel : 2;
        return pixel;
    });
}

TEST(Honest, ShadowsAreDrawnBelowAllEqualShapes) {
    const Rect line = {0, 0, Px(8000), Px(380)}, square = {0, 0, Px(2560), Px(2560)};
    const Rect text = {Px(150), Px(130), Px(7850), Px(250)}, tile = {Px(280), Px(280), Px(2280), Px(2280)};
    Check(Grid(1, 20, line, text, tools::DropShadow(75, 120, 0, Px(120))), true,
          EqualCells(line, text.top - 1));
    Check(Grid(5, 4, square, tile, tools::DropShadow(75, 120, 0, Px(250))), false,
          EqualCells(square, tile.top - 1));
}

TEST(Honest, InvertsAndMixersAreAllApplied) {
    ByteWriter mixer = ByteWriter().U16(1).U16(0);  // red from green, green from blue, blue from red
    for (const int from : {1, 2, 0, 3}) {
        for (int i = 0; i < 5; ++i) mixer.U16(i == from ? 100 : 0);
    }
    const Stack layers = {Adjust(8, "nvrt"), Adjust(8, "mixr", mixer), Adjust(1, "nvrt")};
    Check(Piled(Canvas(Px(8000), Px(8000), 0xFF102030), layers), false, All(0xFFCFEFDF));
    // What is empty costs nothing.
    const Stack sparse = {{1, Shape({0, 0, Px(6000), Px(6000)}, 0xFF102030)}, Adjust(131, "nvrt")};
    Check(Piled(Canvas(Px(8000), Px(8000), kNone), sparse), false, [](const Pixels&, int32_t x, int32_t y) {
        return x < Px(6000) && y < Px(6000) ? 0xFFEFDFCF : kBackground;
    });
}

TEST(Honest, SixHundredCurvesAddOrTakeOne) {
    const Bytes up = tools::Curve({{0, 1}, {254, 255}}), down = tools::Curve({{1, 0}, {255, 254}});
    const Stack layers = {Adjust(200, "curv", up), Adjust(200, "curv", down), Adjust(200, "curv", up)};
    Check(Piled(Canvas(512, 512, 0xFF030201), layers), true, All(0xFFCBCAC9));
}

TEST(Honest, LevelsAddOneAndHuesTurnAThird) {
    ByteWriter levels = ByteWriter().U16(2).U16(0).U16(255).U16(1).U16(255).U16(100);
    for (int i = 1; i < 29; ++i) levels.U16(0).U16(255).U16(0).U16(255).U16(100);
    const Stack hues = {Adjust(13, "hue2", tools::Hue(120, 0, 0)), Adjust(11, "levl", levels)};
    Check(Piled(Canvas(Px(6000), Px(4000), kRed), hues), false, All(0xFF0CFF0C));
    Check(Piled(Canvas(Px(10000), Px(10000), 0xFF102030), {Adjust(60, "levl", levels)}), false,
          All(0xFF4C5C6C));
}

TEST(Honest, LayersAndMasksWithoutDataCostNothing) {
    const Bytes fill = ByteWriter().U32(16).ClassName("null").U32(1).ColorItem("Clr ", 255, 0, 0);
    const Stack layers = {{1, Empty({0, 0, Px(4100), Px(4100)}).Block("SoCo", fill)},
                          {4, Empty({0, 0, Px(3000), Px(3000)}).Block("lfx2", tools::ColorOverlay())},
                          {1, Empty({-100000, -100000, 100000, 100000})},
                          {1, Shape({0, 0, Px(4100), 7}, kInk)}};
    Check(Piled(Canvas(Px(4100), Px(4100)), layers), true,
          [](const Pixels&, int32_t, int32_t y) { return y < 7 ? kInk : kPaper; });
    // Then the mask's default colour holds.
    const Rect small = {0, 0, 600, 600}, far = {0, 0, 9000, 9000};
    const Stack masked = {{1, Shape(small, kInk).Mask(far, 255, 0).ChannelData(-2, {0, 0})},
                          {1, Shape(small, kRed).Mask(far, 0, 0).ChannelData(-2, {0, 0})}};
    Check(Piled(Canvas(600, 600), masked), true, All(kInk));
}

TEST(Honest, LayersAreDrawnWhateverTheMergedImage) {
    Check(Canvas(Px(5000), Px(5000)).MergedData({}).Build(), true, All(kPaper));
    for (const uint16_t compression : {kCompressionRaw, kCompressionPackBits, kCompressionZip}) {
        SCOPED_TRACE(compression);
        Bytes merged = Flat(Px(6000), 3 * Px(6000), 9, compression);
        merged.resize(merged.size() / 3);
        Check(Canvas(Px(6000), Px(6000)).MergedData(merged).Build(), true, All(kPaper));
    }
}

TEST(Honest, PlanesThatEndEarlyAreBlackFromThere) {
    const int32_t side = Px(9088), half = side / 2, large = Px(11000), part = large / 100 * 38;
    const std::tuple<int32_t, int32_t, Bytes> cases[] = {
        {side, side - 1, Flat(side, side - 1, 200, kCompressionRaw)},
        {side, half, FirstRows(half, side, side, 200)},
        {large, part, FirstRows(part, large, large, 200)}};  // it takes every byte to be enough
    const auto until = [](int32_t end, uint32_t color) {
        return [=](const Pixels&, int32_t, int32_t y) { return y < end ? color : kOpaque; };
    };
    for (const auto& [size, rows, plane] : cases) {
        SCOPED_TRACE(rows);
        DocumentBuilder document(kColorGrayscale, 8, 1, uint32_t(size), uint32_t(size));
        document.HasRealMergedData(false).MergedData(Flat(size, size, 0));
        Check(document.Layer(LayerBuilder({0, 0, size, size}).ChannelData(0, plane)).Build(), true,
              until(rows, 0xFFC8C8C8));
    }
    DocumentBuilder merged(kColorRgb, 8, 3, Px(12000), Px(12000));
    merged.MergedData(FirstRows(Px(6000), Px(12000), 3 * Px(12000), 200));
    Check(merged.Build(), false, until(Px(6000), 0xFFC80000));
}

TEST(Honest, ChannelsOfEveryKindArePlaced) {
    const Bytes spot = Flat(kAll.right, kAll.bottom, 255);  // does not fill what is transparent
    const DocumentBuilder paper = Canvas(kAll.right, kAll.bottom);
    Check(Piled(paper, {{1, Shape(kAll, kInk & ~kOpaque).ChannelData(3, spot)}}), true, All(kPaper));
    Check(Piled(paper, {{2, Shape(kAll, kInk, kCompressionZip)}}), true, All(kInk));
    DocumentBuilder deep = Canvas(kAll.right, kAll.bottom, kNone, 16);
    LayerBuilder layer(kAll);
    for (int16_t id = 0; id <= 2; ++id) layer.ChannelData(id, Flat(2 * kAll.Width(), kAll.bottom, 128));
    Check(deep.Layer(layer).LayersInBlock("Lr16").Build(), true, All(kPaper));
    DocumentBuilder merged(kColorRgb, 8, 3, Px(10000), Px(10000));
    Check(merged.MergedData(Flat(Px(10000), 3 * Px(10000), 128, kCompressionZip)).Build(), false,
          All(kPaper));
    DocumentBuilder inks(kColorMultichannel, 16, 3, Px(6000), Px(6000));  // are not converted
    Check(inks.MergedData(Flat(2 * Px(6000), 3 * Px(6000), 128)).Build(), false, All(kNone));
}

TEST(Honest, ManyLayersShowWhatIsLeftOfThem) {
    const Stack hidden = {
        {8, Shape(kAll, kRed).Hidden()}, {1, GroupEnd()}, {8, Shape(kAll, kRed)}, {1, GroupHead().Hidden()}};
    Check(Piled(Canvas(kAll.right, kAll.bottom), hidden), false, All(kPaper));
    DocumentBuilder patchwork = Canvas(4096, 4096, kNone), stripes = Canvas(Px(4000), Px(3000));
    const auto color = [](int32_t i) { return kOpaque | static_cast<uint32_t>(i) * 4001; };
    for (int32_t i = 0; i < 4096; ++i) {
        const int32_t x = i % 64 * 64, y = i / 64 * 64;
        patchwork.Layer(Shape({x, y, x + 64, y + 64}, color(i)));
    }
    Check(patchwork.Build(), true,
          [=](const Pixels&, int32_t x, int32_t y) { return color(y / 64 * 64 + x / 64); });
    for (int32_t i = 0; i < 50; ++i) {  // each covers all, and its mask leaves a stripe of it
        LayerBuilder layer = Shape({0, 0, Px(4000), Px(3000)}, color(i));
        layer.Mask({0, i * Px(60), Px(4000), (i + 1) * Px(60)}, 0, 0);
        stripes.Layer(layer.ChannelData(-2, Flat(Px(4000), Px(60), 255)));
    }
    Check(stripes.Build(), false,
          [=](const Pixels&, int32_t, int32_t y) { return y < 50 * Px(60) ? color(y / Px(60)) : kPaper; });
}

}  // namespace
}  // namespace tessary::test
