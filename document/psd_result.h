// The status of every engine operation that can fail.
#pragma once

#include <cstdint>

namespace tessary {

enum class [[nodiscard]] PsdReadResult : int32_t{
    kOk = 0,

    kNoDocument = -1,    // no document, or no place to put one
    kNoStream = -2,      // OpenDocument without a stream
    kBadLayer = -2,      // a layer record that contradicts itself (the same number by history)
    kUnknownStage = -3,  // a driver stage that does not exist
    kOutOfMemory = -4,   // also: a size that cannot be, or that the input cannot fill
    kShortRead = -5,     // empty stream, short header, channel data shorter than its length

    kHeaderStage = -10,  // kUnknownStage, reported by the stage of this name
    kColorModeStage = -11,
    kResourceStage = -12,
    kLayerStage = -13,
    kMergedStage = -14,

    kBadDepth = -18,
    kBadColorMode = -19,
    kBadCompression = -20,
    kEmptyBlendRanges = -56,
    kEmptyArea = -100,      // Render: the clamped rectangle is empty
    kInflateSetup = -101,   // zlib's inflater cannot be created
    kInflateFailed = -102,  // corrupt or truncated zlib data

    kBadSignature = -200,
    kBadVersion = -201,
    kBadResourceSignature = -400,
    kBadLayerSignature = -500,

    kBadLevelsVersion = -503,
    kBadLevelsSignature = -505,
    kBadLevelsEnd = -506,
    kBadLevelsExtraVersion = -507,
    kBadCurvesVersion = -508,
    kBadCurvesSignature = -509,
    kBadCurvesExtraVersion = -510,
    kBadHueVersion = -511,
    kBadSelectiveVersion = -512,
    kBadMixerVersion = -513,
    kBadGradientMapVersion = -515,
    kBadEffectsVersion = -516,
    kBadEffectSignature = -517,
    kBadEffectKey = -518,
    kBadCommonStateVersion = -519,
    kBadSolidFillVersion = -525,
    kBadGradientFillVersion = -526,
    kBadBlockSignature = -528,
    kBadDividerSignature = -529,
    kBadPatternFillVersion = -530,
};

}  // namespace tessary
