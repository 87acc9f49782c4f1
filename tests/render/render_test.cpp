#include "render/render.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <tuple>
#include <vector>

#include "document/platform.h"
#include "properties/effect_records.h"
#include "render/color_convert.h"
#include "render/coverage.h"
#include "render/hsl_vectors.h"
#include "render/kernels.h"
#include "render/pixel_vectors.h"
#include "tests/render/plain_rule.h"
#include "tests/render/random_document.h"
#include "tests/support/text_picture.h"
#include "tools/document_builder.h"
#include "tools/sample_blocks.h"

namespace tessary::test {
namespace {

constexpr int32_t kHighest = std::numeric_limits<int32_t>::max();
using Pixels = std::vector<uint32_t>;
constexpr Rect kWhole = {0, 0, 4, 3};

DocumentBuilder SmallDocument() { return DocumentBuilder(kColorRgb, 8, 3, 4, 3).HasRealMergedData(false); }

TEST(Render, DrawsInsideTheClampedRectangleOnly) {
    const std::pair<Rect, const char*> cases[] = {
        // x, y, width, height; what is drawn
        {{4, 0, 1, 1}, ""},
        {{0, 3, 1, 1}, ""},
        {{0, 0, 1, -1}, ""},
        {{-5, 0, 5, 1}, ""},
        {{kHighest, 0, kHighest, 9}, ""},
        {{0, 0, 4, 3}, "####/####/####"},
        {{1, 1, 2, 1}, "..../.##./...."},
        {{-2, -1, 3, 3}, "#.../#.../...."},
        {{3, 2, kHighest, kHighest}, "..../..../...#"},
    };
    const auto opened = OpenBytes(SmallDocument().Layer(LayerBuilder(kWhole).Solid(0xFF102030)).Build());
    PsdDocument& document = *opened.document;
    for (const auto& [asked, drawn] : cases) {
        // A second call draws over the first in its own rectangle and leaves the rest.
        std::ranges::fill(document.canvas.span(), 7u);
        EXPECT_EQ(Render(&document, asked.left, asked.top, asked.right, asked.bottom),
                  *drawn ? PsdReadResult::kOk : PsdReadResult::kEmptyArea);
        EXPECT_EQ(TextOf(document.canvas.span(), 4, {{7, '.'}, {0xFF102030, '#'}}), drawn);
    }
    EXPECT_EQ(Render(nullptr, 0, 0, 1, 1), PsdReadResult::kNoDocument);
}

TEST(Render, NoiseIsFixedByItsSeed) {
    const auto draw = [](const char* mode, std::initializer_list<uint64_t> seeds) {
        DocumentBuilder builder(kColorRgb, 8, 3, 99, 99);
        Opened opened = OpenBytes(builder.Layer(LayerBuilder({0, 0, 1, 1}).Solid(~0u).Mode(mode)).Build());
        for (const uint64_t seed : seeds)
            EXPECT_EQ(Render(opened.document.get(), 0, 0, 1, 1, seed), PsdReadResult::kOk);
        const auto noise = opened.document->noiseMap.span();
        return std::vector<uint8_t>(noise.begin(), noise.end());
    };
    const auto noise = draw("diss", {1, 9});
    EXPECT_EQ(noise, draw("diss", {1})) << "the first pattern stays";
    EXPECT_TRUE(draw("norm", {1}).empty()) << "nothing dissolves";
    // Five standard deviations are 3.7.
    EXPECT_NEAR(std::accumulate(noise.begin(), noise.end(), 0.0) / double(noise.size()), 127.5, 4);
}

// Records over a background of grey, read from a file.
TEST(Render, DrawsDocumentsAsTheirRecordsSay) {
    const auto red = [] { return LayerBuilder(kWhole).Solid(0xFFFF0000); };
    const auto masked = [&](uint8_t color, uint8_t flags, uint8_t byte) {
        return red().Mask({0, 0, 2, 1}, color, flags, Bytes{byte, byte});
    };
    constexpr uint32_t kGrey = 0xFF808080;
    const std::tuple<std::vector<LayerBuilder>, uint32_t, uint32_t> cases[] = {
        // pixels (0, 0) and (3, 2)
        {{red().Opacity(128)}, 0xFFBF4040, 0xFFBF4040},
        // 255 by 128 is 127 and weighs 254; 0 stays 0 but for what 2 / 256 leave of 128.
        {{red().Mode("mul ")}, 0xFF7F0101, 0xFF7F0101},
        {{GroupEnd(), red(), GroupHead("norm", "norm")}, 0xFFFE0101, 0xFFFE0101},
        {{masked(0, 0, 128)}, 0xFFBF4040, kGrey},
        {{red().Block("brst", {0, 0, 0, 0})}, 0xFF800000, 0xFF800000},
    };
    for (const auto& test : cases) {
        const auto& [layers, first, last] = test;
        DocumentBuilder builder = SmallDocument();
        builder.Layer(LayerBuilder(kWhole).Solid(kGrey));
        for (const LayerBuilder& layer : layers) builder.Layer(layer);
        const Opened opened = OpenBytes(builder.Build());
        ASSERT_EQ(Render(opened.document.get(), 0, 0, 4, 3, 1), PsdReadResult::kOk);
        EXPECT_EQ(All(opened.document->canvas[0], opened.document->canvas[11]), All(first, last))
            << "row " << &test - cases;
    }
}

// Rows that are known to be transparent are passed over, and no others; a second layer inverts the canvas in
// pixels of its own, which are transparent in the file.
TEST(Render, DrawsEveryCoveredRow) {
    constexpr int32_t kWidth = 64, kHeight = 5000;
    constexpr Rect kTall = {0, 0, kWidth, kHeight};
    for (const int32_t row : {0, 1023, 1024, 2500, kHeight - 1}) {
        Pixels pixels(size_t{kWidth} * kHeight, 0x00FF0000);
        pixels[static_cast<size_t>(row * kWidth + kWidth - 1)] = 0xFF102030;
        DocumentBuilder builder(kColorRgb, 8, 3, kWidth, kHeight);
        builder.Layer(LayerBuilder({0, -1, kWidth, kHeight - 1}).Pixels(pixels, 1));
        builder.Layer(LayerBuilder(kTall).Solid(0).Block("nvrt", {}));
        const Opened opened = OpenBytes(builder.Build());
        ASSERT_EQ(Render(opened.document.get(), 0, 0, kWidth, kHeight, 1), PsdReadResult::kOk);
        for (int32_t i = 0; i < kWidth * kHeight; ++i) {
            const bool isDrawn = i == row * kWidth - 1;
            ASSERT_EQ(opened.document->canvas[static_cast<size_t>(i)], isDrawn ? 0xFFEFDFCF : kBackground)
                << i;
        }
    }
}

// Of the buffers of four layers one is kept, one takes too much to be kept, and two, of layers that their
// data does not fill, are not drawn.
TEST(Render, EffectsTakeLittleMemory) {
    DocumentBuilder builder = SmallDocument();
    builder.Layer(LayerBuilder(kWhole).Solid(~0u).Block("lfx2", tools::ColorOverlay()));
    builder.Layer(LayerBuilder({-1500, 0, 1500, 1000})
                      .Pixels(Pixels(3000000, ~0u), 1)
                      .Block("lfx2", tools::ColorOverlay()));
    builder.Layer(LayerBuilder({0, 0, 2800, 2800})
                      .ChannelData(-1, {0, 0})
                      .Block("lfx2", tools::DropShadow(75, 0, 0, 250)));
    builder.Layer(LayerBuilder({0, 0, 1500000, 1})
                      .ChannelData(-1, {0, 0})
                      .Block("lfx2", tools::DropShadow(75, 0, 0, 1)));
    const Opened opened = OpenBytes(builder.Build());
    ASSERT_EQ(opened.result, PsdReadResult::kOk);
    PsdDocument& document = *opened.document;
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(Render(&document, 0, 0, 4, 3), PsdReadResult::kOk);
        EXPECT_NE(document.canvas[5], ~0u);
        EXPECT_EQ(document.allowance.keptEffectBytes, 48u);
        for (size_t k = 0; k < 4; ++k) {
            const auto* effects = FindProperty<EffectsRecord>(document.layers[k], kPropertyEffects);
            EXPECT_EQ(effects->isPending[k > 1 ? kSlotDropShadow : kSlotColorOverlay], k != 0) << k;
        }
    }
}

TEST(ConvertPlanes, LabBytesGiveWhatTheFormulaGives) {
    constexpr uint32_t kCount = 65536 + 3;
    std::vector<uint8_t> high(kCount), low(kCount);
    Pixels pixels(kCount);
    for (uint32_t i = 0; i < kCount; ++i) high[i] = static_cast<uint8_t>(i >> 8);
    for (uint32_t i = 0; i < kCount; ++i) low[i] = static_cast<uint8_t>(i);
    for (int32_t lightness = 0; lightness < 100; ++lightness) {
        const std::vector<uint8_t> light(kCount, static_cast<uint8_t>((lightness * 256 + 99) / 100));
        PlaneBlock block = {.colorMode = kColorLab, .depth = 8, .width = kCount, .height = 1};
        block.planeCount = 3;
        block.color[0] = light.data(), block.color[1] = high.data(), block.color[2] = low.data();
        ConvertPlanes(block, pixels.data());
        for (uint32_t i = 0; i < kCount; ++i) {
            const uint32_t want = LabToArgb(255, lightness, high[i] - 128, low[i] - 128);
            ASSERT_EQ(pixels[i], want) << lightness << ' ' << i;
        }
    }
}

TEST(ReduceSamples, InPlaceAtEveryDepth) {
    for (const uint32_t depth : {8u, 16u, 32u}) {
        std::vector<uint8_t> samples;
        for (uint32_t i = 0; i < 256; ++i) {
            const float value = (static_cast<float>(i) + 0.5f) / 255;
            const uint32_t word = depth == 32 ? std::bit_cast<uint32_t>(value) : i << 24 | 0xFFFFFF;
            for (uint32_t bit = 0; bit < depth; bit += 8)
                samples.push_back(static_cast<uint8_t>(word >> (24 - bit)));
        }
        ReduceSamples(samples.data(), depth, 250, samples.data());
        for (uint32_t i = 0; i < 250; ++i) ASSERT_EQ(samples[i], i) << depth;
    }
}

TEST(SingleColors, AreCutBeforeTheyAreScaled) {
    EXPECT_EQ(LabToArgb(255, 54, 81, 70), 0xFFFF0000u);
    EXPECT_EQ(CmykToArgb(-1.28, -0.01, 1e300, 0), 0xFFFFFF00u);
    EXPECT_EQ(CmykToArgb(std::nan(""), 0.01, 0, 0), 0xFF0000FFu);
    EXPECT_EQ(HsbToArgb(255, 0, 0, 1.27), 0xFFFFFFFFu);
    EXPECT_EQ(HsbToArgb(255, 30, 1, 0.5), 0xFFFF7F00u);
    EXPECT_EQ(HsbToArgb(255, 90, 0.5, 0.75), 0xFFBFDF7Fu);
    EXPECT_EQ(HsbToArgb(255, -128, 1, 0.5), 0xFF000000u);
}

// Coverage of the layer pixel at a canvas position, after the mask.
int PlainCoverage(const PsdLayer& layer, uint32_t pixel, int64_t x, int64_t y) {
    const PsdLayerMask& mask = layer.mask;
    const int alpha = static_cast<int>(Alpha(pixel));
    if (mask.disabled) return alpha;
    const Rect& r = mask.bounds;
    int m = mask.defaultColor;
    if (mask.data && x >= r.left && x < r.right && y >= r.top && y < r.bottom) {
        m = mask.data[static_cast<size_t>((y - r.top) * (int64_t{r.right} - r.left) + x - r.left)];
    }
    return m == 255 ? alpha : alpha * m / 256;
}

bool PlainPasses(const PsdLayer& layer, uint32_t source, uint32_t canvas) {
    const auto holds = [](const PsdBlendRange& range, int value) {
        return value >= range.black / 256 && value <= range.white / 256;
    };
    const PlainColor s = ColorOf(source), d = ColorOf(canvas);
    bool passes = holds(layer.grayRanges.source, (s.c[0] + s.c[1] + s.c[2]) / 3) &&
                  holds(layer.grayRanges.destination, (d.c[0] + d.c[1] + d.c[2]) / 3);
    for (size_t i = 0; i < layer.channelRanges.count() && i < 3; ++i)
        passes &=
            holds(layer.channelRanges[i].source, s.c[i]) && holds(layer.channelRanges[i].destination, d.c[i]);
    return passes;
}

PlainLayer PlainLayerOf(const PsdDocument& document, const PsdLayer& layer) {
    PlainLayer rule{.mode = layer.blendMode, .fast = layer.blendMode == kBlendNormal};
    rule.opacity = layer.opacity * layer.fillOpacity / 255;
    if (const PsdLayer* group = layer.parent) {
        rule.opacity = group->opacity * rule.opacity / 255;
        PsdBlendMode mode = group->hasSectionBlendMode ? group->sectionBlendMode : group->blendMode;
        if (!group->hasSectionBlendMode && mode == kBlendNormal) mode = kBlendPassThrough;
        if (mode != kBlendPassThrough) rule = {mode, false, false, rule.opacity};
    }
    if (document.colorMode != kColorRgb) return rule;
    const auto narrow = [](const PsdBlendRanges& r) { return !r.source.IsFull() || !r.destination.IsFull(); };
    rule.ranges = layer.advancedBlending || narrow(layer.grayRanges) ||
                  std::ranges::any_of(layer.channelRanges.span(), narrow);
    for (const PsdChannelInfo& channel : layer.channels.span()) {
        if (!channel.excluded) continue;
        rule.ranges = true;
        if (channel.id >= 0 && channel.id < 3) rule.keep |= 0xFF0000u >> (8 * channel.id);
    }
    return rule;
}

uint32_t PlainRender(const PsdDocument& document, int64_t x, int64_t y) {
    uint32_t canvas = kBackground;
    for (const PsdLayer& layer : document.layers.span()) {
        const PsdLayer* group = layer.parent;
        if (!layer.visible || layer.opacity == 0 || layer.fillOpacity == 0 || !layer.image) continue;
        if (group && (!group->visible || group->opacity == 0)) continue;
        const Rect& r = layer.bounds;
        if (x < r.left || x >= r.right || y < r.top || y >= r.bottom) continue;
        const uint32_t pixel = layer.image[static_cast<size_t>((y - r.top) * layer.width + x - r.left)];
        const PlainLayer rule = PlainLayerOf(document, layer);
        const PsdBlendRange& gray = layer.grayRanges.source;
        if (rule.ranges && (rule.keep == 0xFFFFFF || gray.black == gray.white)) continue;
        const int noise =
            document.noiseMap ? document.noiseMap[static_cast<size_t>(y * document.width + x)] : 0;
        canvas = PlainPixel(rule, pixel, PlainCoverage(layer, pixel, x, y), canvas,
                            !rule.ranges || PlainPasses(layer, pixel, canvas), noise);
    }
    return canvas;
}

TEST(Composite, RandomDocumentsFollowThePlainRule) {
    for (uint32_t seed = 1; seed <= 600; ++seed) {
        // The last ones are wider than a run of the blend rows.
        const int32_t width = seed > 540 ? 1100 : 23, height = 9;
        const Opened opened = OpenBytes(RandomDocument(seed, uint32_t(width), height, true).File());
        ASSERT_EQ(Render(opened.document.get(), 0, 0, width, height, seed), PsdReadResult::kOk);
        int wrong = 0;
        for (int32_t i = 0; i < width * height; ++i)
            wrong +=
                opened.document->canvas[size_t(i)] != PlainRender(*opened.document, i % width, i / width);
        ASSERT_EQ(wrong, 0) << "document " << seed;
    }
}

// Row y of the mask is full of y, which takes its share of the alphas 0 to 255.
TEST(Coverage, IsEveryMaskByteOfEveryAlpha) {
    PsdLayerMask mask;
    mask.disabled = false;
    mask.bounds = {0, 0, 256, 256};
    mask.data = AllocateZeroed<uint8_t>({256, 256});
    for (uint32_t i = 0; i < mask.data.count(); ++i) mask.data[i] = static_cast<uint8_t>(i / 256);
    Pixels layer(256);
    for (uint32_t alpha = 0; alpha < 256; ++alpha) layer[alpha] = alpha << 24;
    uint8_t coverage[256];
    for (uint32_t y = 0; y < 256; ++y) {
        CoverageRow(layer.data(), 256, mask, 0, static_cast<int32_t>(y), coverage);
        for (uint32_t alpha = 0; alpha < 256; ++alpha)
            ASSERT_EQ(coverage[alpha], y == 255 ? alpha : alpha * y / 256) << alpha << " of row " << y;
    }
}

// Draws `layer` over `canvas` both ways and counts the pixels that differ.
int Differences(const PlainLayer& rule, const std::vector<uint32_t>& layer,
                const std::vector<uint8_t>& coverage, const std::vector<uint32_t>& canvas,
                const std::vector<uint8_t>& noise) {
    int wrong = 0;
    for (const Kernels* kernels : {&sse2::kKernels, &WidestKernels()}) {
        std::vector<uint32_t> drawn = canvas;
        const auto row =
            kernels->selectBlendRow(static_cast<PsdBlendMode>(rule.mode), rule.fast, rule.ranges);
        row({drawn.data(), layer.data(), coverage.data(), noise.data(), drawn.size()},
            {static_cast<uint32_t>(rule.opacity), rule.keep});
        for (size_t i = 0; i < drawn.size(); ++i) {
            wrong += drawn[i] != PlainPixel(rule, layer[i], coverage[i], canvas[i], true, noise[i]);
        }
    }
    return wrong;
}

// Grey is a third of the sum, cut: pixels whose sum is just below, at, and just above the ends of a range.
TEST(BlendRanges, HoldTheirEndsAndNothingBeyond) {
    for (const Kernels* kernels : {&sse2::kKernels, &WidestKernels()}) {
        const auto row = kernels->selectBlendRow(kBlendNormal, false, true);
        for (uint8_t end = 3; end < 255; ++end) {
            const uint32_t grey = 0xFF000000 | end * 0x010101u;
            const Pixels layer = {grey - 1, grey, grey + 0x0101, grey + 0x010101};
            for (const bool isUpper : {false, true}) {
                BlendGate gate;
                gate.layer.gray = isUpper ? BlendSpan{0, end} : BlendSpan{end, 255};
                Pixels canvas(4, 0xFF000000);
                row({.canvas = canvas.data(), .layer = layer.data(), .count = 4}, {255, 0, &gate, false});
                for (size_t i = 0; i < 4; ++i)
                    EXPECT_EQ(canvas[i] != 0xFF000000, i != (isUpper ? 3 : 0)) << int{end} << ' ' << i;
            }
        }
    }
}

// Over a canvas alpha of 1 the layer weighs 256, and what is stored is the mode's own result.
TEST(BlendModes, EveryPairOfChannelsFollowsTheFormula) {
    for (uint32_t mode = 0; mode <= kBlendPassThrough; ++mode) {
        if (mode == kBlendDissolve) continue;
        int wrong = 0;
        for (uint32_t s = 0; s < 256; ++s) {
            std::vector<uint32_t> layer, canvas;
            for (uint32_t d = 0; d < 256; ++d) {
                layer.push_back(PackPixel(255, s, d, 255 - s));
                canvas.push_back(PackPixel(1, d, s, d));
            }
            const std::vector<uint8_t> full(256, 255);
            wrong += Differences({.mode = mode}, layer, full, canvas, full);
        }
        EXPECT_EQ(wrong, 0) << "mode " << mode;
    }
}

TEST(WholeHsl, EveryColorAndEveryHueFollowThePlainRule) {
    using namespace sse2;
    const auto compare = [](const auto& numbers, uint32_t first, auto plain) {
        const auto& [a, b, c] = numbers;
        uint32_t got[3][kPixels];
        Store(got[0], Truncate(a)), Store(got[1], Truncate(b)), Store(got[2], Truncate(c));
        bool differs = false;
        for (uint32_t i = 0; i < kPixels; ++i) {
            const PlainColor want =
                plain({{int(first + i) >> 16, int(first + i) >> 8 & 255, int(first + i) & 255}});
            for (size_t k = 0; k < 3; ++k) differs |= static_cast<int>(got[k][i]) != want.c[k];
        }
        return differs;
    };
    int wrong = 0;
    for (uint32_t i = 0; i < 360 << 16; i += kPixels) {
        const uint32_t all[] = {i, i + 1, i + 2, i + 3};
        const Rgb<Floats> bytes = ChannelsOf(Load(all));
        wrong += compare(HslToRgb<Floats>({float(i >> 16), bytes.green, bytes.blue}), i, PlainToRgb);
        if (i >> 24 == 0) wrong += compare(RgbToHsl(bytes), i, PlainToHsl);
    }
    EXPECT_EQ(wrong, 0);
}

// What the blend modes make of colours without their hues.
TEST(BlendModes, EveryColorKeepsItsHue) {
    using namespace sse2;
    const auto at = [](ChannelWords words, size_t i) {  // 0 and 1 of the lower words, 2 and 3 of the higher
        uint16_t all[2][8];
        Store(reinterpret_cast<uint32_t*>(all[0]), words.low.bits);
        Store(reinterpret_cast<uint32_t*>(all[1]), words.high.bits);
        const uint16_t* const pixel = all[i / 2] + i % 2 * 4;
        return PlainColor{{pixel[2], pixel[1], pixel[0]}};
    };
    int wrong = 0;
    for (uint32_t i = 0; i < 1 << 24; i += kPixels) {
        const uint32_t colors[] = {i, i + 1, i + 2, i + 3};
        const ChannelExtremes extremes(Load(colors));
        const ChannelWords sixtieths = SixtiethsOf(Load(colors), extremes);
        const ChannelWords distinct = ColorOf(sixtieths, 255, 127);  // channels 1..253 tell sixtieths apart
        const ChannelWords rest = ToWords(SaturationOf(extremes), LightnessOf(extremes), 0);
        for (size_t k = 0; k < kPixels; ++k) {
            const PlainColor want = PlainToHsl(test::ColorOf(colors[k])), got = at(rest, k);
            const PlainColor wantDistinct = PlainToRgb({{want.c[0], 255, 127}}),
                             gotDistinct = at(distinct, k);
            wrong += got.c[0] != want.c[1] || got.c[1] != want.c[2];
            wrong += !std::ranges::equal(gotDistinct.c, wantDistinct.c);
        }
    }
    EXPECT_EQ(wrong, 0);
    for (uint32_t i = 0; i < 61 << 16; i += kPixels) {
        const uint32_t hue = i >> 16, saturation = i >> 8 & 255, lightness = i & 255;
        const uint32_t each[] = {lightness, lightness + 1, lightness + 2, lightness + 3};
        const ChannelWords color = ColorOf(ToWords(60, hue, 0), saturation, Load(each));
        for (size_t k = 0; k < kPixels; ++k) {
            const PlainColor got = at(color, k);
            const PlainColor want = PlainToRgb({{int(hue), int(saturation), int(each[k])}});
            wrong += !std::ranges::equal(got.c, want.c);
        }
    }
    EXPECT_EQ(wrong, 0);
}

TEST(BlendModes, EveryWeightFollowsTheRule) {
    std::mt19937 random(5);
    for (PlainLayer rule : {PlainLayer{kBlendNormal, true},
                            {kBlendNormal, true, true},
                            {kBlendDissolve},
                            {kBlendDissolve, false, true},
                            {kBlendColorDodge},
                            {kBlendLuminosity, false, true}}) {
        for (size_t variant = 0; variant < 8; ++variant) {
            rule.opacity = std::array{255, 254, 100, 0}[variant / 2];
            rule.keep = rule.ranges && variant % 2 ? 0xFF00FF : 0;
            int wrong = 0;
            // Once with one canvas alpha in all the row, once with one coverage.
            for (uint32_t row = 0; row < 512; ++row) {
                std::vector<uint32_t> layer, canvas;
                std::vector<uint8_t> coverage, noise;
                for (uint32_t i = 0; i < 256; ++i) {
                    const uint32_t covered = row < 256 ? i : row - 256, under = row < 256 ? row : i;
                    // Where a mask lowered the coverage the pixel's own alpha is higher.
                    const uint32_t alpha = covered == 0 ? 9 : std::max<uint32_t>(covered, random() & 255);
                    layer.push_back(alpha << 24 | (random() & 0xFFFFFF));
                    canvas.push_back(under << 24 | (random() & 0xFFFFFF));
                    coverage.push_back(static_cast<uint8_t>(covered));
                    noise.push_back(static_cast<uint8_t>(random()));
                }
                wrong += Differences(rule, layer, coverage, canvas, noise);
            }
            EXPECT_EQ(wrong, 0) << rule.mode << rule.fast << rule.ranges << ' ' << variant;
        }
    }
}

}  // namespace
}  // namespace tessary::test
