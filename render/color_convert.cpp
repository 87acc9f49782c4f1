#include "render/color_convert.h"

namespace tessary {

uint32_t LabToArgb(uint32_t, int32_t, int32_t, int32_t) { return 0; }
uint32_t CmykToArgb(double, double, double, double) { return 0; }
uint32_t HsbToArgb(uint32_t, int32_t, double, double) { return 0; }

}  // namespace tessary
