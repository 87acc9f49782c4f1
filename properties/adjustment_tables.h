// Builds the tables of adjustment records from their settings. Pure: the same settings always give the same
// tables. A table is built from scratch, except where a contract says otherwise.
//
// Every step is one operation in double, but for the few whose results are held in a float. Conversions to
// integers truncate toward zero.
#pragma once

#include "properties/adjustment_records.h"

namespace tessary {

// Changes nothing unless both brightness and contrast are set; so does a mean value of 0.
void BuildBrightnessTable(BrightnessRecord& record);

// `grayscale`: only the composite record counts.
void BuildLevelsTables(LevelsRecord& record, bool grayscale);

// `grayscale`: the composite curve is drawn into the red table, onto what is there; green and blue stay as
// they are.
void BuildCurvesTables(CurvesRecord& record, bool grayscale);

void BuildBalanceTables(BalanceRecord& record);

void BuildHueWeights(HueRecord& record);

void BuildPosterizeTable(PosterizeRecord& record);

// 256 opaque colours, darkest luminance first.
void BuildGradientMapTable(GradientMapRecord& record);

}  // namespace tessary
