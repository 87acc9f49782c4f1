#include "document/allowance.h"

#include <algorithm>

#include "document/checked_math.h"

#if !defined(TESSARY_SLOWED_DOWN)
#define TESSARY_SLOWED_DOWN 1  // how many nanoseconds the build takes for one
#endif

namespace tessary {
namespace {

constexpr uint64_t kMebibyte = 1u << 20;
constexpr uint64_t kFreeBytes = 128 * kMebibyte;
constexpr uint64_t kFreeRowBytes = 300'000 * 4;
constexpr uint64_t kPixelBytesPerInputByte = 256;
constexpr uint64_t kBytesPerPixel = 4;

constexpr uint64_t kFreeSteps = uint64_t{10} * 1000 * 1000 * 1000 / TESSARY_SLOWED_DOWN;
constexpr uint64_t kStepsPerFilledPixel = 250;
constexpr uint64_t kStepsPerRow = 200;
constexpr uint64_t kStepsPerUnfilledByte = 2;

constexpr uint64_t kFreeRecordBytes = 16 * kMebibyte;
constexpr uint64_t kRecordBytesPerInputByte = 24;
constexpr uint64_t kFreeKeptBytes = 4 * kMebibyte;
constexpr uint64_t kMostKeptEffectBytes = 8 * kMebibyte;

uint64_t Product(uint64_t a, uint64_t b) { return CheckedProduct({a, b}).value_or(UINT64_MAX); }

}  // namespace

bool IsBelieved(uint64_t bytes, uint64_t inputBytes, uint32_t expansion) {
    return bytes <= kFreeBytes || bytes <= Product(inputBytes, expansion) ||
           MayKeepPixels(bytes, inputBytes, 0);
}

bool IsRowBelieved(uint64_t rowBytes, uint64_t inputBytes, uint32_t expansion) {
    return rowBytes <= kFreeRowBytes || rowBytes <= Product(inputBytes, expansion);
}

bool MayKeepPixels(const KeptPixels& pixels) {
    if (pixels.bytes <= kFreeBytes) return true;
    const uint64_t ofInput = Product(pixels.inputBytes, kPixelBytesPerInputByte);
    const uint64_t ofPixels = Product(pixels.filledPixels, kBytesPerPixel);
    const uint64_t rest = pixels.bytes - kFreeBytes;
    return rest <= ofInput || rest - ofInput <= ofPixels;
}

bool MayWorkOn(const Allowance& allowance, uint64_t bytes, uint32_t bytesPerPixel, uint64_t inputBytes) {
    constexpr uint64_t kBuffers = 3;
    const uint64_t pixels = Product(allowance.filledPixels, bytesPerPixel) / (kBytesPerPixel * kBuffers);
    return MayKeepPixels(bytes / kBuffers, inputBytes, pixels);
}

void CountFilled(Allowance& allowance, uint64_t pixels) { allowance.filledPixels += pixels; }

bool SpendSteps(Allowance& allowance, uint64_t steps) {
    const uint64_t allowed = kFreeSteps + Product(allowance.filledPixels, kStepsPerFilledPixel);
    if (allowance.stepsSpent > allowed || steps > allowed - allowance.stepsSpent) return false;
    allowance.stepsSpent += steps;
    return true;
}

bool MayFill(Allowance& allowance, const KeptPixels& pixels, uint64_t& chargedBytes) {
    if (!MayKeepPixels(allowance.kept + pixels)) return false;
    const uint64_t unfilled = pixels.bytes - std::min(pixels.bytes, kBytesPerPixel * pixels.filledPixels);
    if (unfilled <= chargedBytes) return true;
    if (!SpendSteps(allowance, (unfilled - chargedBytes) * kStepsPerUnfilledByte)) return false;
    chargedBytes = unfilled;
    return true;
}

uint64_t StepsOver(uint64_t columns, uint64_t rows, uint64_t perPixel) {
    return Product(rows, kStepsPerRow + Product(columns, perPixel));
}

bool TakeRecord(Allowance& allowance, uint64_t bytes, uint64_t deliveredBytes) {
    allowance.recordBytes += bytes;
    return allowance.recordBytes <= kFreeRecordBytes + kRecordBytesPerInputByte * deliveredBytes;
}

bool MayKeepBytes(uint64_t bytes, uint64_t arrivedBytes) {
    return bytes <= kFreeKeptBytes || arrivedBytes >= bytes / 100;
}

bool KeepEffect(Allowance& allowance, uint64_t bytes) {
    if (bytes > kMostKeptEffectBytes - allowance.keptEffectBytes) return false;
    allowance.keptEffectBytes += bytes;
    return true;
}

}  // namespace tessary
