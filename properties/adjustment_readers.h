// The readers of adjustment blocks. Each reads the fields of one block, in file order, into a zero-filled
// record; a field that the input does not reach is 0. Skipping to the block's end is the caller's.
#pragma once

#include <cstdint>

#include "properties/adjustment_records.h"

namespace tessary {

struct AdjustmentBlock {
    uint32_t end = 0;           // position of the first byte behind the block
    bool rebuildTables = true;  // a reader clears it when the layer's tables must stay as they are
};

// kBadLevelsVersion, kBadLevelsSignature, kBadLevelsExtraVersion, kOutOfMemory; kBadLevelsEnd when the fields
// or the input do not end where the block does.
PsdReadResult ReadLevels(PsdDocument& document, LevelsRecord& levels, AdjustmentBlock& block);
// kBadCurvesVersion, kBadCurvesSignature, kBadCurvesExtraVersion, kOutOfMemory. Ends early, and clears
// rebuildTables, where the two sets of curves that a block may carry disagree.
PsdReadResult ReadCurves(PsdDocument& document, CurvesRecord& curves, AdjustmentBlock& block);
PsdReadResult ReadBrightness(PsdDocument& document, BrightnessRecord& brightness, AdjustmentBlock& block);
PsdReadResult ReadBalance(PsdDocument& document, BalanceRecord& balance, AdjustmentBlock& block);
// kBadHueVersion
PsdReadResult ReadHue(PsdDocument& document, HueRecord& hue, AdjustmentBlock& block);
// kBadSelectiveVersion
PsdReadResult ReadSelective(PsdDocument& document, SelectiveRecord& selective, AdjustmentBlock& block);
PsdReadResult ReadThreshold(PsdDocument& document, ThresholdRecord& threshold, AdjustmentBlock& block);
PsdReadResult ReadPosterize(PsdDocument& document, PosterizeRecord& posterize, AdjustmentBlock& block);
// kBadMixerVersion
PsdReadResult ReadMixer(PsdDocument& document, MixerRecord& mixer, AdjustmentBlock& block);
// kBadGradientMapVersion, kOutOfMemory
PsdReadResult ReadGradientMap(PsdDocument& document, GradientMapRecord& map, AdjustmentBlock& block);
// Versions 2 and 3 keep what lies inside the block; of other versions only the number is kept.
PsdReadResult ReadPhotoFilter(PsdDocument& document, PhotoFilterRecord& filter, AdjustmentBlock& block);

}  // namespace tessary
