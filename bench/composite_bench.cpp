// What a layer pixel costs. The column ns/px counts pixels of the shared rectangle; "traffic" copies as many
// pixels and does nothing else.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>

#include "document/psd_document.h"
#include "properties/adjustment_records.h"
#include "properties/effect_blur.h"
#include "render/composite.h"
#include "render/kernels.h"
#include "render/painted_tiles.h"
#include "render/render.h"

namespace tessary {
namespace {

constexpr int32_t kWidth = 2000, kHeight = 1500;
constexpr size_t kPixels = size_t{kWidth} * kHeight;

constexpr const char* kModeNames[] = {
    "normal",     "dissolve",    "darken",       "multiply",     "color burn", "linear burn",
    "lighten",    "screen",      "color dodge",  "linear dodge", "overlay",    "soft light",
    "hard light", "vivid light", "linear light", "pin light",    "hard mix",   "difference",
    "exclusion",  "hue",         "saturation",   "color",        "luminosity"};

enum Variant : int64_t { kPlain, kTransparentCanvas, kMasked, kRanged };
constexpr const char* kVariantNames[] = {", opaque canvas", ", canvas of any alpha", ", masked",
                                         ", with ranges"};
constexpr const char* kKernelNames[] = {"SSE2: ", "widest: "};

Owned<uint32_t> RandomPixels(uint32_t seed, uint32_t opaque) {
    Owned<uint32_t> pixels = AllocateZeroed<uint32_t>({kPixels});
    std::mt19937 random(seed);
    for (uint32_t& pixel : pixels.span()) pixel = static_cast<uint32_t>(random()) | opaque;
    return pixels;
}

void FillLayer(PsdLayer& layer, PsdBlendMode mode, uint32_t seed) {
    layer.bounds = {0, 0, kWidth, kHeight};
    layer.width = kWidth;
    layer.height = kHeight;
    layer.blendMode = mode;
    layer.image = RandomPixels(seed, 0);
}

void PrepareDocument(PsdDocument& document, size_t layers) {
    document.width = kWidth;
    document.height = kHeight;
    document.colorMode = kColorRgb;
    document.layers = AllocateZeroed<PsdLayer>({layers});
    document.noiseMap = AllocateZeroed<uint8_t>({kPixels});
}

void CountPixels(benchmark::State& state, size_t layers, size_t pixels = kPixels) {
    state.counters["ns/px"] =
        benchmark::Counter(static_cast<double>(pixels * layers),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void OneLayer(benchmark::State& state) {
    const auto mode = static_cast<PsdBlendMode>(state.range(0));
    const int64_t variant = state.range(1);
    state.SetLabel(std::string(kModeNames[mode]) + kVariantNames[variant]);
    PsdDocument document;
    PrepareDocument(document, 1);
    PsdLayer& layer = document.layers[0];
    FillLayer(layer, mode, 1);
    const Owned<uint32_t> canvas = RandomPixels(2, variant == kTransparentCanvas ? 0 : 0xFF000000);
    document.canvas = AllocateZeroed<uint32_t>({kPixels});
    static_cast<void>(ClearTiles(document));
    if (variant == kMasked) {
        layer.mask.bounds = layer.bounds;
        layer.mask.disabled = false;
        layer.mask.data = AllocateZeroed<uint8_t>({kPixels});
        std::mt19937 random(3);
        for (uint8_t& byte : layer.mask.data.span()) byte = static_cast<uint8_t>(random());
    }
    if (variant == kRanged) layer.grayRanges.destination = {0x1000, 0xE0FF};
    for (auto _ : state) {
        state.PauseTiming();
        std::memcpy(document.canvas.get(), canvas.get(), kPixels * sizeof(uint32_t));
        state.ResumeTiming();
        static_cast<void>(CompositeLayer(document, CompositeSourceOf(layer), layer.bounds));
    }
    CountPixels(state, 1);
}

// The rows alone, in the fastest cache, with the kernels of one instruction set.
void BlendRows(benchmark::State& state) {
    constexpr size_t kRuns = 8;
    const auto mode = static_cast<PsdBlendMode>(state.range(0));
    const Kernels& kernels = state.range(1) ? WidestKernels() : sse2::kKernels;
    state.SetLabel(std::string(kKernelNames[state.range(1)]) + kModeNames[mode]);
    const BlendRowFunction blendRow = kernels.selectBlendRow(mode, mode == kBlendNormal, false);
    const Owned<uint32_t> layer = RandomPixels(1, 0), canvas = RandomPixels(2, 0xFF000000);
    const Owned<uint8_t> noise = AllocateZeroed<uint8_t>({kBlendRunPixels});
    for (auto _ : state) {
        for (size_t i = 0; i < kRuns * kBlendRunPixels; i += kBlendRunPixels)
            blendRow({canvas.get() + i, layer.get() + i, nullptr, noise.get(), kBlendRunPixels}, {});
    }
    CountPixels(state, 1, kRuns * kBlendRunPixels);
}

void ManyLayers(benchmark::State& state) {
    const bool mixed = state.range(0) != 0;
    state.SetLabel(mixed ? "20 layers in mixed modes" : "20 normal layers");
    constexpr size_t kLayers = 20;
    PsdDocument document;
    PrepareDocument(document, kLayers);
    for (uint32_t i = 0; i < kLayers; ++i) {
        FillLayer(document.layers[i], mixed ? static_cast<PsdBlendMode>(i * 8 % 23) : kBlendNormal, i + 1);
    }
    for (auto _ : state) benchmark::DoNotOptimize(Render(&document, 0, 0, kWidth, kHeight, 1));
    CountPixels(state, kLayers);
}

template <class Record>
Record& AddRecord(PsdLayer& layer, uint32_t layerKind, uint32_t propertyCode) {
    layer.layerKind = layerKind;
    layer.rebuildTables = true;
    return *AppendProperty<Record>(layer, propertyCode);
}

constexpr const char* kAdjustmentNames[] = {"invert",           "posterize",     "hue/saturation",
                                            "selective colour", "channel mixer", "gradient map"};

void FillAdjustment(PsdLayer& layer, int64_t which) {
    switch (which) {
    case 0: layer.layerKind = kLayerInvert; break;
    case 1: AddRecord<PosterizeRecord>(layer, kLayerPosterize, kPropertyPosterize).levels = 5; break;
    case 2: AddRecord<HueRecord>(layer, kLayerHue, kPropertyHue).master = {30, 20, -10}; break;
    case 3: {
        auto& selective = AddRecord<SelectiveRecord>(layer, kLayerSelective, kPropertySelective);
        for (InkAdjustment& ink : selective.inks) ink = {10, -20, 30, -5};
        break;
    }
    case 4: {
        auto& mixer = AddRecord<MixerRecord>(layer, kLayerMixer, kPropertyMixer);
        for (MixerRow& row : mixer.rows) row = {40, 40, 20, 0, 0};
        break;
    }
    default: AddRecord<GradientMapRecord>(layer, kLayerGradientMap, kPropertyGradientMap);
    }
}

// Eight adjustments of the whole of an opaque canvas.
void Adjustments(benchmark::State& state) {
    state.SetLabel(kAdjustmentNames[state.range(0)]);
    constexpr size_t kAdjustments = 8;
    PsdDocument document;
    PrepareDocument(document, 1 + kAdjustments);
    FillLayer(document.layers[0], kBlendNormal, 1);
    document.layers[0].image = RandomPixels(1, 0xFF000000);
    for (PsdLayer& layer : document.layers.span().subspan(1)) FillAdjustment(layer, state.range(0));
    for (auto _ : state) benchmark::DoNotOptimize(Render(&document, 0, 0, kWidth, kHeight, 1));
    CountPixels(state, kAdjustments);
}

// A layer of 2000 x 2000 under a blur of the radius.
void Blur(benchmark::State& state) {
    constexpr size_t kSide = 2000;
    const Owned<uint32_t> pixels = AllocateZeroed<uint32_t>({kSide, kSide});
    for (auto _ : state) {
        for (size_t i = 0; i < kSide * kSide; ++i) pixels[i] = static_cast<uint32_t>(i * 2654435769u);
        benchmark::DoNotOptimize(BlurAlpha(pixels.get(), kSide, kSide, static_cast<int32_t>(state.range(0))));
    }
}

void Traffic(benchmark::State& state) {
    state.SetLabel("traffic");
    const Owned<uint32_t> from = RandomPixels(1, 0);
    Owned<uint32_t> to = AllocateZeroed<uint32_t>({kPixels});
    for (auto _ : state) {
        std::memcpy(to.get(), from.get(), kPixels * sizeof(uint32_t));
        benchmark::ClobberMemory();
    }
    CountPixels(state, 1);
}

BENCHMARK(Traffic);
BENCHMARK(OneLayer)->ArgsProduct({benchmark::CreateDenseRange(0, 22, 1), {kPlain, kTransparentCanvas}});
BENCHMARK(BlendRows)->ArgsProduct({benchmark::CreateDenseRange(0, 22, 1), {0, 1}});
BENCHMARK(OneLayer)->ArgsProduct({{kBlendNormal, kBlendMultiply, kBlendHue}, {kMasked, kRanged}});
BENCHMARK(ManyLayers)->DenseRange(0, 1);
BENCHMARK(Adjustments)->DenseRange(0, 5);
BENCHMARK(Blur)->Arg(5)->Arg(50)->Arg(250)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tessary

BENCHMARK_MAIN();
