#include "render/render.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string_view>
#include <vector>

#include "document/platform.h"
#include "tests/support/document_builder.h"

namespace tessary::test {
namespace {

constexpr int32_t kLowest = std::numeric_limits<int32_t>::min(),
                  kHighest = std::numeric_limits<int32_t>::max();
constexpr Rect kWhole = {0, 0, 4, 3};

DocumentBuilder SmallDocument() { return DocumentBuilder(kColorRgb, 8, 3, 4, 3).HasRealMergedData(false); }

// Opens and renders the whole of a 4 x 3 document.
std::vector<uint32_t> Rendered(const DocumentBuilder& builder) {
    Opened opened = OpenBytes(builder.Build());
    EXPECT_EQ(opened.result, PsdReadResult::kOk);
    if (!opened.document) return {};
    EXPECT_EQ(Render(opened.document.get(), 0, 0, 4, 3, 1), PsdReadResult::kOk);
    return {opened.document->canvas.get(), opened.document->canvas.get() + 12};
}

TEST(Render, AnswersForWhatItCannotDraw) {
    EXPECT_EQ(Render(nullptr, 0, 0, 1, 1), PsdReadResult::kNoDocument);
    PsdDocument document;
    document.width = 4;
    document.height = 3;
    const Rect outside[] = {{4, 0, 1, 1},       {0, 3, 1, 1},
                            {0, 0, 0, 1},       {0, 0, 1, -1},
                            {-5, 0, 5, 1},      {0, -9, 1, 9},
                            {kLowest, 0, 9, 9}, {kHighest, 0, kHighest, 9},
                            {0, 0, kLowest, 9}, {0, kHighest, 9, kHighest}};
    for (const Rect& r : outside) {  // x, y, width, height
        EXPECT_EQ(Render(&document, r.left, r.top, r.right, r.bottom), PsdReadResult::kEmptyArea)
            << r.left << ", " << r.top;
    }
    EXPECT_FALSE(document.canvas);
#if defined(TESSARY_FAULT_INJECTION)
    PsdDocument other;
    other.width = 4;
    other.height = 3;
    for (int i = 0; i < 2; ++i) {  // the noise map, then the canvas
        FailAllocationNumber(1);
        EXPECT_EQ(Render(&other, 0, 0, 4, 3), PsdReadResult::kOutOfMemory);
    }
    FailAllocationNumber(0);
    EXPECT_EQ(Render(&other, 0, 0, 4, 3), PsdReadResult::kOk);
#endif
}

TEST(Render, DrawsInsideTheClampedRectangleOnly) {
    const struct {
        Rect asked;  // x, y, width, height
        Rect drawn;
    } cases[] = {{{0, 0, 4, 3}, kWhole},
                 {{1, 1, 2, 1}, {1, 1, 3, 2}},
                 {{-2, -1, 3, 3}, {0, 0, 1, 2}},
                 {{3, 2, kHighest, kHighest}, {3, 2, 4, 3}}};
    for (const auto& test : cases) {
        const auto opened = OpenBytes(SmallDocument().Layer(LayerBuilder(kWhole).Solid(0xFF102030)).Build());
        ASSERT_TRUE(opened.document);
        PsdDocument& document = *opened.document;
        // A second call draws over the first in its own rectangle and leaves the rest.
        for (const uint32_t color : {0xFF102030u, 0xFF405060u}) {
            std::fill_n(document.layers[0].image.get(), 12, color);
            ASSERT_EQ(Render(&document, test.asked.left, test.asked.top, test.asked.right, test.asked.bottom),
                      PsdReadResult::kOk);
            for (int32_t i = 0; i < 12; ++i) {
                const Rect pixel = {i % 4, i / 4, i % 4 + 1, i / 4 + 1};
                const uint32_t want = Intersect(pixel, test.drawn) == pixel ? color : kBackground;
                EXPECT_EQ(document.canvas[static_cast<size_t>(i)], want) << i;
            }
            document.canvas[0] = Intersect(test.drawn, {0, 0, 1, 1}).IsEmpty() ? kBackground : 7;
        }
    }
}

TEST(Render, NoiseIsSharedAndFixedByItsSeed) {
    PsdDocument a, b, c;
    for (PsdDocument* document : {&a, &b, &c}) {
        document->width = 101;
        document->height = 97;
        ASSERT_EQ(Render(document, 0, 0, 1, 1, document == &c ? 2 : 1), PsdReadResult::kOk);
    }
    ASSERT_EQ(Render(&a, 0, 0, 101, 97, 9), PsdReadResult::kOk);  // the first pattern stays
    const auto mapA = a.noiseMap.span(), mapB = b.noiseMap.span(), mapC = c.noiseMap.span();
    EXPECT_TRUE(std::equal(mapA.begin(), mapA.end(), mapB.begin(), mapB.end()));
    EXPECT_FALSE(std::equal(mapA.begin(), mapA.end(), mapC.begin(), mapC.end()));
    int counts[256] = {};
    for (const uint8_t byte : mapA) ++counts[byte];
    // 38 of each byte are expected.
    EXPECT_GT(*std::min_element(counts, counts + 256), 10);
    EXPECT_LT(*std::max_element(counts, counts + 256), 76);
}

// One layer of a red over a background of grey, read from a file: what the picture's first pixel becomes.
TEST(Render, DrawsDocumentsAsTheirRecordsSay) {
    const LayerBuilder grey = LayerBuilder(kWhole).Solid(0xFF808080);
    const LayerBuilder red = LayerBuilder(kWhole).Solid(0xFFFF0000);
    const auto group = [&](std::string_view recordKey, std::string_view dividerKey,
                           const LayerBuilder& member) {
        return SmallDocument()
            .Layer(grey)
            .Layer(GroupEnd())
            .Layer(member)
            .Layer(GroupHead(recordKey, dividerKey));
    };
    const auto hiddenGroup = [&] {
        return SmallDocument().Layer(grey).Layer(GroupEnd()).Layer(red).Layer(GroupHead().Hidden());
    };
    // The inner group's end marker ends the outer group for what follows it.
    const auto nested = [&](bool innerHidden) {
        LayerBuilder inner = GroupHead(), outer = GroupHead();
        (innerHidden ? inner : outer).Hidden();
        return SmallDocument()
            .Layer(grey)
            .Layer(GroupEnd())
            .Layer(GroupEnd())
            .Layer(red)
            .Layer(inner)
            .Layer(outer);
    };
    const auto masked = [&](uint8_t color, uint8_t flags, uint8_t byte) {
        return SmallDocument().Layer(grey).Layer(
            LayerBuilder(red).Mask({0, 0, 2, 1}, color, flags, Bytes{byte, byte}));
    };
    const auto one = [&](const LayerBuilder& layer) { return SmallDocument().Layer(grey).Layer(layer); };
    const struct {
        const char* what;
        DocumentBuilder document;
        uint32_t first;  // pixel (0, 0)
        uint32_t last;   // pixel (3, 2)
    } cases[] = {
        {"normal copies", one(red), 0xFFFF0000, 0xFFFF0000},
        {"hidden", one(LayerBuilder(red).Hidden()), 0xFF808080, 0xFF808080},
        {"opacity 0", one(LayerBuilder(red).Opacity(0)), 0xFF808080, 0xFF808080},
        {"fill 0", one(LayerBuilder(red).Block("iOpa", {0, 0, 0, 0})), 0xFF808080, 0xFF808080},
        // A = 255 * 128 >> 8 = 127
        {"opacity 128", one(LayerBuilder(red).Opacity(128)), 0xFFBF4040, 0xFFBF4040},
        {"clipped over nothing", SmallDocument().Layer(LayerBuilder(red).Clipping(1)), 0xFFFF0000,
         0xFFFF0000},
        // 255 * 128 >> 8 = 127, weighed by A = 254; 0 stays 0 but for what 2 / 256 leave of 128
        {"multiply", one(LayerBuilder(red).Mode("mul ")), 0xFF7F0101, 0xFF7F0101},
        {"any mode over nothing", SmallDocument().Layer(LayerBuilder(red).Mode("mul ")), 0xFEFF0000,
         0xFEFF0000},
        {"pass-through group", group("norm", "pass", red), 0xFFFF0000, 0xFFFF0000},
        {"group without a divider key", group("norm", "", red), 0xFFFF0000, 0xFFFF0000},
        // (128 * 256 + 127 * 254) >> 8 = 254
        {"normal group", group("norm", "norm", red), 0xFFFE0101, 0xFFFE0101},
        {"multiplying group", group("mul ", "", red), 0xFF7F0101, 0xFF7F0101},
        {"hidden group", hiddenGroup(), 0xFF808080, 0xFF808080},
        {"hidden group in a group", nested(true), 0xFF808080, 0xFF808080},
        {"group in a hidden group", nested(false), 0xFFFF0000, 0xFFFF0000},
        {"mask 128, black around", masked(0, 0, 128), 0xFFBF4040, 0xFF808080},
        {"mask 0, white around", masked(255, 0, 0), 0xFF808080, 0xFFFF0000},
        {"disabled mask", masked(0, 2, 0), 0xFFFF0000, 0xFFFF0000},
        {"mask beside the layer", one(LayerBuilder(red).Mask({9, 9, 10, 10}, 0, 0, Bytes{255})), 0xFF808080,
         0xFF808080},
        {"excluded red", one(LayerBuilder(red).Block("brst", {0, 0, 0, 0})), 0xFF800000, 0xFF800000},
        {"grey of the canvas out of range",
         one(LayerBuilder(red).Ranges({0, 0, 255, 255, 129, 129, 255, 255, 0, 0, 255, 255, 0, 0, 255, 255})),
         0xFF808080, 0xFF808080},
        {"grey of the canvas just in range",
         one(LayerBuilder(red).Ranges({0, 0, 255, 255, 128, 200, 255, 255, 0, 0, 255, 255, 0, 0, 255, 255})),
         0xFFFF0000, 0xFFFF0000},
        {"grey of the layer out of range",
         one(LayerBuilder(red).Ranges({0, 0, 84, 255, 0, 0, 255, 255, 0, 0, 255, 255, 0, 0, 255, 255})),
         0xFF808080, 0xFF808080},
    };
    for (const auto& test : cases) {
        const std::vector<uint32_t> canvas = Rendered(test.document);
        ASSERT_EQ(canvas.size(), 12u) << test.what;
        EXPECT_EQ(canvas.front(), test.first) << test.what;
        EXPECT_EQ(canvas.back(), test.last) << test.what;
    }
}

}  // namespace
}  // namespace tessary::test
