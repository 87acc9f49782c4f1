// The steps from which effects are put together. All work in place on `count` pixels and change nothing but
// alpha, where not said otherwise.
#pragma once

#include <cstddef>
#include <cstdint>

#include "document/psd_document.h"
#include "properties/setting_records.h"

namespace tessary {

// Makes what a blur has thinned out solid again: alpha below 24 tenfold, all other alpha 255.
void BoostAlpha(uint32_t* pixels, size_t count);

// Alpha times 100 / rangePercent, at most 255; a range of 0 counts as 1.
void ApplyRange(uint32_t* pixels, size_t count, int32_t rangePercent);

// The table of a contour: straight between two points, the spline of tone curves through more. With
// `antiAlias` its steps are softened. Without points it changes nothing.
void BuildContourTable(const ContourSettings& contour, bool antiAlias, uint8_t (&table)[256]);

// Sends alpha through a contour.
void ApplyContour(uint32_t* pixels, size_t count, const ContourSettings& contour, bool antiAlias);

// Colours a glow by its gradient: the first stop where alpha is highest, each pixel up to `jitterPercent` of
// the gradient's length off its place. Alpha comes from the gradient's own, and stays 0 where it was. A
// gradient without colours leaves all as it is. kOutOfMemory.
PsdReadResult MapThroughGradient(uint32_t* pixels, size_t count, const GradientSettings& gradient,
                                 int32_t jitterPercent, uint64_t seed);

}  // namespace tessary
