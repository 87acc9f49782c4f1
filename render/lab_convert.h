// Rows of Lab to pixels.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tessary {

// `count` pixels of samples that are bytes: the lightness in 256ths of 100, a and b with 128 for 0. They are
// those of LabToArgb to the bit.
void ConvertLab(const uint8_t* alpha, const uint8_t* light, const uint8_t* a, const uint8_t* b,
                uint32_t* pixels, size_t count);

}  // namespace tessary
