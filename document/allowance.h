// Every limit on what a file may cost its host, in memory and in time, and the counters that go with them.
// Files come from strangers; the limits lie where no document that somebody made comes near them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tessary {

// Pixels that are kept, and what stands behind them.
struct KeptPixels {
    uint64_t bytes = 0;
    uint64_t inputBytes = 0;    // of the file, that they come from
    uint64_t filledPixels = 0;  // that stored data has really filled
};

inline KeptPixels operator+(const KeptPixels& a, const KeptPixels& b) {
    return {a.bytes + b.bytes, a.inputBytes + b.inputBytes, a.filledPixels + b.filledPixels};
}

// What one document has used up.
struct Allowance {
    KeptPixels kept;  // of all layers that have pixels or masks at the moment
    KeptPixels patterns;
    uint64_t filledPixels = 0;     // of layers, that stored data has really filled
    uint64_t stepsSpent = 0;       // see SpendSteps
    uint64_t recordBytes = 0;      // of all property lists
    uint64_t keptEffectBytes = 0;  // of effects that are kept for the next Render
};

// 1. A size is believed up to 128 MiB. Beyond that the bytes that can still arrive have to be able to fill
// it, each worth `expansion` of its own; and since data that somebody cut short still has to open, each
// counts as much as it does for pixels.
bool IsBelieved(uint64_t bytes, uint64_t inputBytes, uint32_t expansion);

// A row is believed up to the 300,000 samples of four bytes that a document can have in one. It is decoded as
// a whole, so wider ones need data that can fill them.
bool IsRowBelieved(uint64_t rowBytes, uint64_t inputBytes, uint32_t expansion);

// 2. Pixels are kept up to 128 MiB: of the canvas, of the merged image, of the layers that are there at a
// time with their masks, and of each buffer of an effect. Beyond that they need a byte of the file for every
// 256 of theirs, or as many pixels that data has filled.
bool MayKeepPixels(const KeptPixels& pixels);
inline bool MayKeepPixels(uint64_t bytes, uint64_t inputBytes, uint64_t filledPixels) {
    return MayKeepPixels({bytes, inputBytes, filledPixels});
}

// What an effect works on, all its buffers together, may be three such buffers, and beyond that what the
// bytes of the file and the filled pixels are worth at so many bytes a pixel.
bool MayWorkOn(const Allowance& allowance, uint64_t bytes, uint32_t bytesPerPixel, uint64_t inputBytes);

// 3. Drawing: pixels that data has filled are paid for. Adjustments, effects, unfilled pixels and masks are
// charged in steps of about a nanosecond against ten seconds and 250 steps for every filled pixel. SpendSteps
// gives false, and takes nothing, when that is too much; then the thing is left out, as a last resort.
void CountFilled(Allowance& allowance, uint64_t pixels);
bool SpendSteps(Allowance& allowance, uint64_t steps);

// Rules 2 and 3 for pixels that grow while their data is decoded, beside what is kept already.
//   chargedBytes  of these pixels, that have been charged as unfilled
bool MayFill(Allowance& allowance, const KeptPixels& pixels, uint64_t& chargedBytes);

// Steps that columns x rows of so many steps a pixel take. To begin a row costs, too: on a canvas it lies in
// a page of its own. UINT64_MAX when they cannot be counted.
uint64_t StepsOver(uint64_t columns, uint64_t rows, uint64_t perPixel);

// 4. Records of properties: a few bytes of a file make some hundred of memory. All of a document may take
// 16 MiB and 24 bytes for each byte delivered.
bool TakeRecord(Allowance& allowance, uint64_t bytes, uint64_t deliveredBytes);

// 5. Bytes that are kept as they stand (a profile, a thumbnail, a palette) but for a small share need a
// hundredth of them to arrive: what is made of them is written, and so real memory.
bool MayKeepBytes(uint64_t bytes, uint64_t arrivedBytes);

// 6. Buffers of effects are kept for the next Render up to 8 MiB in all: a layer of one pixel can have a
// shadow of a megabyte, and a small file thousands of such layers.
bool KeepEffect(Allowance& allowance, uint64_t bytes);

// 7. A stream may deliver for ever, and loops that count what is in a file would go on with it. Sizes are
// signed, so a document ends before this.
inline constexpr uint64_t kMostDeliveredBytes = uint64_t{1} << 31;

// 8. No document that is shown has as many alpha channels, and the record of an empty name takes hundreds of
// bytes for its single one.
inline constexpr uint32_t kMostAlphaNames = 4096;

// 9. Pixels of the tile of a pattern.
inline constexpr uint64_t kMostTilePixels = uint64_t{1} << 24;

// 10. Pixels of the embedded thumbnail, which the system's JPEG decoder makes.
inline constexpr uint64_t kMostThumbnailBytes = uint64_t{64} << 20;

}  // namespace tessary
