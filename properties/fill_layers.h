// Fill layers: their settings are kept, their pixels are the ones stored in the file.
#pragma once

#include "document/psd_document.h"
#include "properties/setting_records.h"

namespace tessary {

struct SolidFill {
    uint32_t classId = 0;
    uint32_t color = 0;  // ARGB
};

struct GradientFill {
    GradientStyle style = GradientStyle::kLinear;
    double angleDegrees = 0;
    int32_t scalePercent = 100;
    bool reverse = false;
    bool dither = false;
    bool align = true;
    OffsetSettings offset;
    GradientSettings gradient;
};

struct PatternFill {
    PatternSettings pattern;
    int32_t scalePercent = 0;
};

// Each appends its record to the layer's list, sets the layer kind and reads the block at the reader's
// position. kOutOfMemory; kBadSolidFillVersion, kBadGradientFillVersion, kBadPatternFillVersion.
PsdReadResult ReadSolidFill(PsdDocument& document, PsdLayer& layer);
PsdReadResult ReadGradientFill(PsdDocument& document, PsdLayer& layer);
PsdReadResult ReadPatternFill(PsdDocument& document, PsdLayer& layer);

}  // namespace tessary
