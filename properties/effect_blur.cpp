#include "properties/effect_blur.h"

#include <algorithm>
#include <cmath>

#include "document/platform.h"

namespace tessary {

namespace {

struct Kernel {
    Owned<uint16_t> weights;  // as a BlurJob has them
    size_t reach = 0;
    uint64_t sum = 0;
};

bool MakeKernel(int32_t radius, Kernel& kernel) {
    const double distanceOfLast = 1.4 * radius;
    const double sigma = distanceOfLast / std::sqrt(2 * std::log(255.0));
    const size_t half = static_cast<size_t>(std::ceil(distanceOfLast));
    kernel.reach = half + half % 2;
    kernel.weights = AllocateZeroed<uint16_t>({kernel.reach + 1});
    if (!kernel.weights) return false;
    for (size_t i = 0; i <= half; ++i) {
        const double distance = static_cast<double>(i);
        kernel.weights[i] = static_cast<uint16_t>(255 * std::exp(-distance * distance / (2 * sigma * sigma)));
        kernel.sum += kernel.weights[i] * (i == 0 ? 1u : 2u);
    }
    return true;
}

}  // namespace

PsdReadResult BlurAlpha(uint32_t* pixels, size_t width, size_t height, int32_t radius,
                        const Kernels& kernels) {
    Kernel kernel;
    if (!MakeKernel(radius, kernel)) return PsdReadResult::kOutOfMemory;
    const Owned<uint16_t> strip =
        AllocateZeroed<uint16_t>({std::max(width, height) + 2 * kernel.reach, kBlurStripColumns});
    if (!strip) return PsdReadResult::kOutOfMemory;
    kernels.blurAlpha({pixels, width, height, kernel.weights.get(), kernel.reach, kernel.sum, strip.get()});
    return PsdReadResult::kOk;
}

}  // namespace tessary
