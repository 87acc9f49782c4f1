// The colours of a gradient between its stops.
#pragma once

#include <cstddef>
#include <cstdint>

#include "document/psd_document.h"
#include "properties/setting_records.h"

namespace tessary {

// One or more values along 0..1: constant before the first stop and behind the last, a cubic between two. The
// smoother the gradient, the more its neighbours bend it.
struct RampPiece {
    double start = 0;         // of the way, 0..1
    double perLength = 0;     // 1 / length
    double middle = 0.5;      // the share of the length at which half of the way is gone
    double cubic[3][4] = {};  // by value: 1, u, u^2, u^3
};

struct GradientRamp {
    GradientMethod method = GradientMethod::kBytes;
    Owned<RampPiece> colors;  // the last one has no length
    Owned<RampPiece> opacities;
    // From light to bytes: the light from which on each byte is nearest, and the byte at every step of light.
    static constexpr size_t kLightSteps = 1024;
    double lightOfByte[257] = {};
    uint8_t byteOfLight[kLightSteps + 1] = {};
};

// Whether there are colours: noise gradients have none.
inline bool HasRamp(const GradientSettings& gradient) {
    return !gradient.isNoise && gradient.colorStops.count != 0;
}

// Prepares the ramp of a gradient with colours. kOutOfMemory.
PsdReadResult MakeRamp(const GradientSettings& gradient, GradientMethod method, GradientRamp& ramp);

// The pixels of `count` places, 0..1 each; alpha is the gradient's own.
void DrawRamp(const GradientRamp& ramp, const double* places, size_t count, uint32_t* pixels);

}  // namespace tessary
