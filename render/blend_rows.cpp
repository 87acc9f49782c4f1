#include "render/blend_rows.h"

#include <cstring>
#include <iterator>
#include <type_traits>

#include "render/blend_functions.h"

namespace tessary {

// A row is drawn in two steps over short arrays. The first weighs: it settles alpha and empty canvas pixels,
// and leaves for each colour byte the weight 0..256 that the layer has there; alpha bytes, excluded channels
// and pixels without coverage weigh 0. The second mixes bytes by their weights and needs to know the mode and
// nothing else; taking bytes, not pixels, fills a vector register with 16-bit lanes.

namespace {

constexpr uint32_t kColorBytes = 0x00FFFFFF;
constexpr uint32_t kOpaque = 0xFF000000;

// How the pixels of a layer are weighed.
enum class Rule {
    kGeneral,
    kNormal,           // full opacity copies
    kNormalWithRanges  // the same, but an empty canvas pixel is weighed like any other
};

constexpr size_t kWeightCount = 4 * kBlendRunPixels;  // B, G, R, A of each pixel

// Two neighbouring 16-bit values by one store; four separate ones cost more than all the rest of weighing.
void StorePair(uint16_t* pair, uint32_t first, uint32_t second) {
    const uint32_t both = first | second << 16;
    std::memcpy(pair, &both, sizeof both);
}

// All ones in the channels that take part.
struct ChannelMasks {
    uint32_t blue, green, red;

    explicit ChannelMasks(uint32_t keep)
        : blue(Blue(keep) != 0 ? 0 : 0xFFFF), green(Green(keep) != 0 ? 0 : 0xFFFF),
          red(Red(keep) != 0 ? 0 : 0xFFFF) {}
};

void StoreWeight(uint16_t* bytes, uint32_t weight, const ChannelMasks& masks) {
    StorePair(bytes, weight & masks.blue, weight & masks.green);
    StorePair(bytes + 2, weight & masks.red, 0);
}

// >> 8, not / 255: a full-opacity pixel comes out as 254, and only the fast rules may give 255.
uint32_t OpacityFactor(Rule rule, uint32_t opacity) {
    return rule != Rule::kGeneral && opacity == 255 ? 256 : opacity;
}

// The stores below are bytes to the compiler and may alias anything reached by reference, so the loops take
// what they need by value; otherwise they do not vectorise.

// An opaque canvas: the weight is the layer's alpha itself, and 255 stands for a copy.
void WeighOpaque(const BlendRun run, uint32_t factor, const ChannelMasks masks, uint16_t* weights) {
    const uint16_t narrowFactor = static_cast<uint16_t>(factor);
    for (size_t i = 0; i < run.count; ++i) {
        const uint16_t alpha = static_cast<uint16_t>(run.coverage[i] * narrowFactor) >> 8;
        StoreWeight(weights + 4 * i, static_cast<uint16_t>(alpha + (alpha == 255 ? 1 : 0)), masks);
    }
}

// a * b >> 8 for products below 2^16, which 16-bit lanes can hold.
int32_t ScaledProduct(int32_t a, int32_t b) { return static_cast<uint16_t>(a * b) >> 8; }

// The weight of a layer pixel of alpha A over a canvas pixel of alpha da, 256 over an empty one.
int32_t WeightOver(int32_t alpha, int32_t canvasAlpha) {
    const int32_t divisor = ScaledProduct(256 - alpha, canvasAlpha) + alpha;
    const int32_t weight = SmallQuotient(alpha * 256, divisor > 1 ? divisor : 1);
    const int32_t overOpaque = alpha == 255 ? 256 : alpha;
    return canvasAlpha == 255 ? overOpaque : canvasAlpha == 0 ? 256 : weight;
}

template <Rule kRule>
void WeighMixed(const BlendRun run, uint32_t factor, const ChannelMasks masks, uint16_t* weights) {
    // Full opacity takes an alpha as it is stored, even where a mask has lowered the coverage.
    const uint32_t stored = kRule == Rule::kNormal && factor == 256 ? kOpaque : 0;
    for (size_t i = 0; i < run.count; ++i) {
        const uint32_t canvas = run.canvas[i];
        const uint32_t layer = run.layer[i];
        const int32_t coverage = run.coverage[i];
        const int32_t canvasAlpha = static_cast<int32_t>(Alpha(canvas));
        const int32_t alpha = ScaledProduct(coverage, static_cast<int32_t>(factor));
        const int32_t newAlpha = canvasAlpha + ScaledProduct(256 - canvasAlpha, alpha);
        const int32_t weight = coverage == 0 ? 0 : WeightOver(alpha, canvasAlpha);
        const uint32_t blended = (canvas & kColorBytes) | static_cast<uint32_t>(newAlpha) << 24;
        if constexpr (kRule == Rule::kNormalWithRanges) {
            run.canvas[i] = blended;
            StoreWeight(weights + 4 * i, static_cast<uint32_t>(weight), masks);
        } else {
            const bool takes = canvasAlpha == 0 && coverage != 0;
            const uint32_t takenAlpha = (layer & stored) | (static_cast<uint32_t>(alpha) << 24 & ~stored);
            const uint32_t taken = (layer & kColorBytes) | (takenAlpha & kOpaque);
            run.canvas[i] = takes ? taken : blended;
            StoreWeight(weights + 4 * i, static_cast<uint32_t>(takes ? 0 : weight), masks);
        }
    }
}

bool IsOpaque(const uint32_t* canvas, size_t count) {
    uint32_t all = kOpaque;
    for (size_t i = 0; i < count; ++i) all &= canvas[i];
    return all == kOpaque;
}

template <Rule kRule>
void Weigh(const BlendRun& run, const BlendSettings& settings, uint16_t* weights) {
    const uint32_t factor = OpacityFactor(kRule, settings.opacity);
    const ChannelMasks masks(settings.keep);
    if (IsOpaque(run.canvas, run.count))
        WeighOpaque(run, factor, masks, weights);
    else
        WeighMixed<kRule>(run, factor, masks, weights);
}

// ((d * 256) + (blended - d) * weight) >> 8. The sum lies in 0..65535, so that 16 bits that wrap on the way
// give it whole.
uint8_t MixByte(int32_t d, int32_t blended, int32_t weight) {
    return static_cast<uint8_t>(static_cast<uint16_t>((d << 8) + (blended - d) * weight) >> 8);
}

template <class Mode>
void MixRow(const BlendRun run, const uint16_t* weights) {
    uint8_t* const canvas = reinterpret_cast<uint8_t*>(run.canvas);
    const uint8_t* const layer = reinterpret_cast<const uint8_t*>(run.layer);
    const size_t count = 4 * run.count;
    for (size_t i = 0; i < count; ++i) {
        const int32_t d = canvas[i];
        canvas[i] = MixByte(d, Mode::Blend(layer[i], d), weights[i]);
    }
}

IntegerHsl PixelToHsl(uint32_t pixel) {
    return RgbToHsl(static_cast<int32_t>(Red(pixel)), static_cast<int32_t>(Green(pixel)),
                    static_cast<int32_t>(Blue(pixel)));
}

template <class Mode>
void MixPixels(const BlendRun run, const uint16_t* weights) {
    alignas(16) uint16_t blended[kWeightCount];
    for (size_t i = 0; i < run.count; ++i) {
        const IntegerRgb color = Mode::Blend(PixelToHsl(run.layer[i]), PixelToHsl(run.canvas[i]));
        StorePair(blended + 4 * i, static_cast<uint32_t>(color.blue), static_cast<uint32_t>(color.green));
        StorePair(blended + 4 * i + 2, static_cast<uint32_t>(color.red), 0);
    }
    uint8_t* const canvas = reinterpret_cast<uint8_t*>(run.canvas);
    const size_t count = 4 * run.count;
    for (size_t i = 0; i < count; ++i) {
        // 256 of weight 256 is 256, which is to be stored as 255: there, and only there, 255 is mixed
        // instead.
        const int32_t weight = weights[i];
        const int32_t color = blended[i] - ((blended[i] & weight) >> 8);
        canvas[i] = MixByte(canvas[i], color, weight);
    }
}

// A mode that no layer can have leaves the colours alone.
struct BlendNothing {};

template <class Mode>
void GeneralRow(const BlendRun& run, const BlendSettings& settings) {
    alignas(16) uint16_t weights[kWeightCount];
    Weigh<Rule::kGeneral>(run, settings, weights);
    if constexpr (std::is_invocable_v<decltype(Mode::Blend), int32_t, int32_t>)
        MixRow<Mode>(run, weights);
    else
        MixPixels<Mode>(run, weights);
}

template <>
void GeneralRow<BlendNothing>(const BlendRun& run, const BlendSettings& settings) {
    alignas(16) uint16_t weights[kWeightCount];
    Weigh<Rule::kGeneral>(run, settings, weights);
}

template <Rule kRule>
void NormalRow(const BlendRun& run, const BlendSettings& settings) {
    uint32_t covered = settings.opacity & (settings.keep == 0 ? 255 : 0);
    for (size_t i = 0; i < run.count; ++i) covered &= run.coverage[i];
    if (covered == 255) {
        std::memcpy(run.canvas, run.layer, run.count * sizeof(uint32_t));
        return;
    }
    alignas(16) uint16_t weights[kWeightCount];
    Weigh<kRule>(run, settings, weights);
    MixRow<BlendNormal>(run, weights);
}

// Draws whole pixels or none, and does not know the layer's opacity.
void DissolveRow(const BlendRun& run, const BlendSettings&) {
    for (size_t i = 0; i < run.count; ++i) {
        const uint32_t canvas = run.canvas[i];
        const uint32_t layer = run.layer[i];
        const int32_t coverage = run.coverage[i];
        const int32_t divisor = ScaledProduct(static_cast<int32_t>(Alpha(canvas)), 256 - coverage) + coverage;
        const int32_t threshold = SmallQuotient(coverage * 256, divisor > 1 ? divisor : 1);
        const bool drawn = (coverage != 0) & (run.noise[i] <= threshold);
        run.canvas[i] = drawn ? layer | kOpaque : canvas;
    }
}

// This one does know the opacity, and takes over an empty canvas pixel without asking the noise.
void DissolveRowWithRanges(const BlendRun& run, const BlendSettings& settings) {
    const int32_t opacity = static_cast<int32_t>(settings.opacity);
    const uint32_t keep = settings.keep;
    for (size_t i = 0; i < run.count; ++i) {
        const uint32_t canvas = run.canvas[i];
        const uint32_t layer = run.layer[i];
        const int32_t coverage = run.coverage[i];
        const int32_t canvasAlpha = static_cast<int32_t>(Alpha(canvas));
        const int32_t alpha = ScaledProduct(coverage, opacity);
        const int32_t weight = WeightOver(alpha, canvasAlpha);
        const bool drawn = (weight != 0) & (run.noise[i] <= weight);
        const uint32_t opaque = ((layer & ~keep) | (canvas & keep)) | kOpaque;
        const uint32_t overFilled = drawn ? opaque : canvas;
        const uint32_t overEmpty = (layer & kColorBytes) | static_cast<uint32_t>(alpha) << 24;
        const uint32_t blended = canvasAlpha == 0 ? overEmpty : overFilled;
        run.canvas[i] = coverage != 0 ? blended : canvas;
    }
}

// By PsdBlendMode.
constexpr BlendRowFunction kGeneralRows[] = {
    GeneralRow<BlendNormal>,
    nullptr,  // dissolve has rows of its own
    GeneralRow<BlendDarken>,
    GeneralRow<BlendMultiply>,
    GeneralRow<BlendColorBurn>,
    GeneralRow<BlendLinearBurn>,
    GeneralRow<BlendLighten>,
    GeneralRow<BlendScreen>,
    GeneralRow<BlendColorDodge>,
    GeneralRow<BlendLinearDodge>,
    GeneralRow<BlendOverlay>,
    GeneralRow<BlendSoftLight>,
    GeneralRow<BlendHardLight>,
    GeneralRow<BlendVividLight>,
    GeneralRow<BlendLinearLight>,
    GeneralRow<BlendPinLight>,
    GeneralRow<BlendHardMix>,
    GeneralRow<BlendDifference>,
    GeneralRow<BlendExclusion>,
    GeneralRow<BlendHue>,
    GeneralRow<BlendSaturation>,
    GeneralRow<BlendColor>,
    GeneralRow<BlendLuminosity>,
};
static_assert(std::size(kGeneralRows) == kBlendLuminosity + 1);

}  // namespace

BlendRowFunction SelectBlendRow(PsdBlendMode mode, bool fast, bool ranges) {
    if (mode == kBlendDissolve) return ranges ? DissolveRowWithRanges : DissolveRow;
    if (mode == kBlendNormal && fast) {
        return ranges ? NormalRow<Rule::kNormalWithRanges> : NormalRow<Rule::kNormal>;
    }
    return mode < std::size(kGeneralRows) ? kGeneralRows[mode] : GeneralRow<BlendNothing>;
}

}  // namespace tessary
