// The steps from which effects are put together. All work in place on a buffer of width x height pixels (or
// `count` of them) and change nothing but alpha, where not said otherwise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "document/psd_document.h"
#include "properties/setting_records.h"

namespace tessary {

// Makes what a blur has thinned out solid again: alpha below 24 tenfold, all other alpha 255.
void BoostAlpha(uint32_t* pixels, size_t count);

// Alpha times 50 / rangePercent, at most 255; a range of 0 takes every alpha but 0 to 255.
void ApplyRange(uint32_t* pixels, size_t count, int32_t rangePercent);

// Sends alpha through a contour: straight between two points, the spline of tone curves through more. With
// `antiAlias` its steps are softened.
void ApplyContour(uint32_t* pixels, size_t count, const ContourSettings& contour, bool antiAlias);

// Takes out what `covered`, as many pixels, covers.
void KnockOut(uint32_t* pixels, const uint32_t* covered, size_t count);

// True when the mask takes anything away.
bool HasEffectiveMask(const PsdLayer& layer);

// Multiplies alpha by a layer's mask. (originX, originY) is where the buffer's first pixel lies when the mask
// stands at its own place; 64 bits, because both come from the file.
void ApplyMask(uint32_t* pixels, size_t width, size_t height, const PsdLayerMask& mask, int64_t originX,
               int64_t originY);

// Colours a glow by its gradient: the first stop where alpha is highest, each pixel up to `jitterPercent` of
// the gradient's length off its place. Alpha comes from the gradient's own, and stays 0 where it was.
void MapThroughGradient(uint32_t* pixels, size_t count, const GradientSettings& gradient,
                        int32_t jitterPercent, uint64_t seed);

}  // namespace tessary
