// The loops behind blend_rows.h, for the instruction set that pixel_vectors.h was asked for; part of its
// kernels.
#pragma once

#include <iterator>

#include "render/blend_functions.h"
#include "render/blend_rows.h"
#include "render/pixel_vectors.h"

namespace tessary::TESSARY_VECTORS {

namespace {

constexpr uint32_t kColorBytes = 0x00FFFFFF;
constexpr uint32_t kAlphaByte = 0xFF000000;

// How the pixels of a layer are weighed.
enum class Rule {
    kGeneral,
    kNormal,           // full opacity copies
    kNormalWithRanges  // the same, but an empty canvas pixel is weighed like any other
};

// What holds for all pixels of a row.
struct Weighing {
    bool copies;       // what is fully covered
    Pixels factor;     // of a coverage, in 256ths
    Pixels stored;     // the alpha byte where full opacity takes alpha as it is stored
    Words takingPart;  // all ones in the colours that are not excluded

    Weighing(Rule rule, const BlendSettings& settings)
        : copies(rule != Rule::kGeneral && settings.opacity == 255 && settings.keep == 0),
          // >> 8, not / 255: a full-opacity pixel comes out as 254, and only the fast rules may give 255.
          factor(rule != Rule::kGeneral && settings.opacity == 255 ? 256 : settings.opacity),
          stored(rule == Rule::kNormal && settings.opacity == 255 ? kAlphaByte : 0),
          takingPart(Spread(~settings.keep & kColorBytes).low > 0) {}
};

// The weight of a layer pixel of alpha A over a canvas pixel of alpha da that is not opaque; 256 over an
// empty one.
Pixels WeightOver(Pixels alpha, Pixels canvasAlpha) {
    const Pixels divisor = ((256 - alpha) * canvasAlpha >> 8) + alpha;
    return Divided(ToFloats(alpha * 256), ToFloats(divisor), 256.0f);
}

// ((d * 256) + (blended - d) * weight) >> 8. The sum lies in 0..65535, so that 16 bits that wrap on the way
// give it whole.
Words MixWords(Words d, Words blended, Words weight) { return ((d << 8) + (blended - d) * weight) >> 8; }

template <class Mode, bool kWeighs256>
Pixels Mix(Pixels canvas, Pixels layer, Pixels weight, Words takingPart) {
    const ChannelWords d = Spread(canvas);
    ChannelWords blended = BlendPixels<Mode>(layer, canvas);
    const Pixels pair = weight | weight << 16;
    ChannelWords weights = Interleave(pair, pair);
    weights = {weights.low & takingPart, weights.high & takingPart};
    if constexpr (kWeighs256) {
        // 256 of weight 256 is 256, which is to be stored as 255: there, and only there, 255 is mixed
        // instead.
        blended = {blended.low - ((blended.low & weights.low) >> 8),
                   blended.high - ((blended.high & weights.high) >> 8)};
    }
    return Gather({MixWords(d.low, blended.low, weights.low), MixWords(d.high, blended.high, weights.high)});
}

template <Rule kRule, class Mode>
Pixels BlendOver(Pixels canvas, Pixels layer, Pixels coverage, const Weighing& weighing) {
    const Pixels canvasAlpha = canvas >> 24;
    const Pixels alpha = coverage * weighing.factor >> 8;
    constexpr bool kCopies = kRule != Rule::kGeneral;
    const Pixels overOpaque =
        kCopies ? alpha - (alpha == 255) : alpha;  // a mask is -1: 255 stands for a copy
    const Pixels isOpaque = canvasAlpha == 255;
    if (IsAllOnes(isOpaque))
        return Mix < Mode, kCopies && kReaches256 < Mode >> (canvas, layer, overOpaque, weighing.takingPart);

    const Pixels isEmpty = canvasAlpha == 0;
    const Pixels isUncovered = coverage == 0;
    // Full opacity takes an alpha as it is stored, even where a mask has lowered the coverage.
    const Pixels takenAlpha = Choose(weighing.stored, layer, alpha << 24);
    const Pixels taken = (layer & kColorBytes) | (takenAlpha & kAlphaByte);
    if (kRule != Rule::kNormalWithRanges && IsAllOnes(isEmpty)) return Choose(isUncovered, canvas, taken);

    const Pixels weight = Choose(isOpaque, overOpaque, WeightOver(alpha, canvasAlpha));
    const Pixels mixed =
        Mix<Mode, kReaches256<Mode>>(canvas, layer, Without(weight, isUncovered), weighing.takingPart);
    const Pixels newAlpha = canvasAlpha + ((256 - canvasAlpha) * alpha >> 8);
    const Pixels blended = (mixed & kColorBytes) | newAlpha << 24;
    return kRule == Rule::kNormalWithRanges ? blended : Choose(Without(isEmpty, isUncovered), taken, blended);
}

// All ones where a pixel lies outside the spans.
Pixels LiesOutside(const PixelSpans& spans, Pixels pixel) {
    const auto outside = [](Pixels value, uint32_t low, uint32_t high) {
        return (Pixels(low) > value) | (value > Pixels(high));
    };
    const Pixels red = pixel >> 16 & 255, green = pixel >> 8 & 255, blue = pixel & 255;
    // Grey is a third of the sum, rounded down; the sum is compared instead.
    return outside(red + green + blue, 3u * spans.gray.low, 3u * spans.gray.high + 2) |
           outside(red, spans.red.low, spans.red.high) | outside(green, spans.green.low, spans.green.high) |
           outside(blue, spans.blue.low, spans.blue.high);
}

Pixels GatedCoverage(Pixels canvas, Pixels layer, Pixels coverage, const BlendSettings& settings) {
    const Pixels outside =
        LiesOutside(settings.gate->layer, layer) | LiesOutside(settings.gate->canvas, canvas);
    const Pixels isFree = settings.emptyPasses ? (canvas >> 24) == 0 : Pixels(0);
    return Without(coverage, Without(outside, isFree));
}

// Calls draw(canvas, layer, coverage, noise) for a register of pixels after the other and stores what it
// returns, unless nothing there is covered.
template <class Draw>
void EachGroup(const BlendRun& run, const BlendSettings& settings, const Draw& draw) {
    size_t i = 0;
    for (; i + kPixels <= run.count; i += kPixels) {
        const Pixels layer = Load(run.layer + i);
        Pixels coverage = run.coverage ? LoadBytes(run.coverage + i) : layer >> 24;
        if (IsAllOnes(coverage == 0)) continue;
        const Pixels canvas = Load(run.canvas + i);
        if (settings.gate) coverage = GatedCoverage(canvas, layer, coverage, settings);
        const Pixels noise = run.noise ? LoadBytes(run.noise + i) : 0;
        Store(run.canvas + i, draw(canvas, layer, coverage, noise));
    }
    const size_t rest = run.count - i;
    if (rest == 0) return;
    // The last few are drawn in a run of their own, filled up with pixels that nothing covers.
    uint32_t canvas[kPixels] = {}, layer[kPixels] = {};
    uint8_t coverage[kPixels] = {}, noise[kPixels] = {};
    std::memcpy(canvas, run.canvas + i, rest * sizeof *canvas);
    std::memcpy(layer, run.layer + i, rest * sizeof *layer);
    if (run.coverage) std::memcpy(coverage, run.coverage + i, rest);
    if (run.noise) std::memcpy(noise, run.noise + i, rest);
    EachGroup({canvas, layer, run.coverage ? coverage : nullptr, noise, kPixels}, settings, draw);
    std::memcpy(run.canvas + i, canvas, rest * sizeof *canvas);
}

template <Rule kRule, class Mode>
void BlendRow(const BlendRun& run, const BlendSettings& settings) {
    const Weighing weighing(kRule, settings);
    EachGroup(run, settings, [&](Pixels canvas, Pixels layer, Pixels coverage, Pixels) {
        if (kRule != Rule::kGeneral && weighing.copies && IsAllOnes(coverage == 255)) return layer;
        return BlendOver<kRule, Mode>(canvas, layer, coverage, weighing);
    });
}

// Draws whole pixels or none, and does not know the layer's opacity.
void DissolveRow(const BlendRun& run, const BlendSettings& settings) {
    EachGroup(run, settings, [](Pixels canvas, Pixels layer, Pixels coverage, Pixels noise) {
        const Pixels isLeft = (coverage == 0) | (noise > WeightOver(coverage, canvas >> 24));
        return Choose(isLeft, canvas, layer | kAlphaByte);
    });
}

// This one does know the opacity, and takes over an empty canvas pixel without asking the noise.
void DissolveRowWithRanges(const BlendRun& run, const BlendSettings& settings) {
    const Pixels opacity = settings.opacity;
    const Pixels keep = settings.keep;
    EachGroup(run, settings, [=](Pixels canvas, Pixels layer, Pixels coverage, Pixels noise) {
        const Pixels canvasAlpha = canvas >> 24;
        const Pixels alpha = coverage * opacity >> 8;
        const Pixels weight = Choose(canvasAlpha == 255, alpha, WeightOver(alpha, canvasAlpha));
        const Pixels opaque = Choose(keep, canvas, layer) | kAlphaByte;
        const Pixels overFilled = Choose((weight == 0) | (noise > weight), canvas, opaque);
        const Pixels overEmpty = (layer & kColorBytes) | alpha << 24;
        return Choose(coverage == 0, canvas, Choose(canvasAlpha == 0, overEmpty, overFilled));
    });
}

// By PsdBlendMode.
constexpr BlendRowFunction kGeneralRows[] = {
    BlendRow<Rule::kGeneral, BlendNormal>,
    nullptr,  // dissolve has rows of its own
    BlendRow<Rule::kGeneral, BlendDarken>,
    BlendRow<Rule::kGeneral, BlendMultiply>,
    BlendRow<Rule::kGeneral, BlendColorBurn>,
    BlendRow<Rule::kGeneral, BlendLinearBurn>,
    BlendRow<Rule::kGeneral, BlendLighten>,
    BlendRow<Rule::kGeneral, BlendScreen>,
    BlendRow<Rule::kGeneral, BlendColorDodge>,
    BlendRow<Rule::kGeneral, BlendLinearDodge>,
    BlendRow<Rule::kGeneral, BlendOverlay>,
    BlendRow<Rule::kGeneral, BlendSoftLight>,
    BlendRow<Rule::kGeneral, BlendHardLight>,
    BlendRow<Rule::kGeneral, BlendVividLight>,
    BlendRow<Rule::kGeneral, BlendLinearLight>,
    BlendRow<Rule::kGeneral, BlendPinLight>,
    BlendRow<Rule::kGeneral, BlendHardMix>,
    BlendRow<Rule::kGeneral, BlendDifference>,
    BlendRow<Rule::kGeneral, BlendExclusion>,
    BlendRow<Rule::kGeneral, BlendHue>,
    BlendRow<Rule::kGeneral, BlendSaturation>,
    BlendRow<Rule::kGeneral, BlendColor>,
    BlendRow<Rule::kGeneral, BlendLuminosity>,
};
static_assert(std::size(kGeneralRows) == kBlendLuminosity + 1);

BlendRowFunction SelectRow(PsdBlendMode mode, bool fast, bool ranges) {
    if (mode == kBlendDissolve) return ranges ? DissolveRowWithRanges : DissolveRow;
    if (mode == kBlendNormal && fast) {
        return ranges ? BlendRow<Rule::kNormalWithRanges, BlendNormal> : BlendRow<Rule::kNormal, BlendNormal>;
    }
    return mode < std::size(kGeneralRows) ? kGeneralRows[mode] : BlendRow<Rule::kGeneral, BlendNothing>;
}

}  // namespace

}  // namespace tessary::TESSARY_VECTORS
