#include "document/pixel_assembly.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "document/big_endian.h"
#include "document/packbits.h"

namespace tessary {
namespace {

struct Step {
    uint64_t row;
    size_t rows;
    size_t bytes;  // of a plane
};

// Of a plane once its samples are bytes; bits stay bits.
uint64_t RowBytes(const PlaneBlock& block) { return PlaneRowBytes(block.width, std::min(block.depth, 8u)); }

Step StepAt(const PlaneBlock& block, uint64_t row) {
    const uint64_t rows = std::min<uint64_t>(RowsAtOnce(block.width, block.depth), block.height - row);
    return {row, static_cast<size_t>(rows), static_cast<size_t>(rows * RowBytes(block))};
}

bool TakeMemory(PixelAssembly& assembly, Owned<uint32_t>& spare) {
    if (assembly.pixels) return true;
    const PlaneBlock& block = assembly.block;
    const uint64_t reduced = StepAt(block, 0).bytes, bundle = 4 * reduced + SectionSource::kSlackBytes;
    assembly.buffers = AllocateZeroed<uint8_t>({reduced + (assembly.rowCounts ? 2 : 1) * bundle});
    if (!assembly.buffers) return false;
    assembly.zeroRows = assembly.buffers.get();
    assembly.bundleRows = assembly.zeroRows + reduced;
    assembly.packedRows = assembly.bundleRows + bundle;

    const auto pixels = CheckedProduct({block.width, block.height});
    if (pixels && spare.count() >= *pixels && spare) {
        assembly.pixels = std::move(spare);
    } else {
        spare.Reset();
        assembly.pixels = AllocateZeroed<uint32_t>({block.width, block.height});
    }
    return static_cast<bool>(assembly.pixels);
}

// The rows of all planes but the last, for a step that begins at this row.
uint8_t* BundleAt(const PixelAssembly& assembly, uint64_t row) {
    const size_t width = assembly.block.width, stored = assembly.planeCount - 1;
    uint8_t* const memory = reinterpret_cast<uint8_t*>(assembly.pixels.get());
    return memory + (4 - stored) * width * assembly.block.height + stored * width * row;
}

// The packed bundle of the next row.
uint8_t* PackedBundle(const PixelAssembly& assembly) {
    const PlaneBlock& block = assembly.block;
    return reinterpret_cast<uint8_t*>(assembly.pixels.get() + size_t{block.width} * block.height) -
           assembly.packedLeft;
}

// Bytes of so many planes in a row of a packed bundle.
size_t PackedBytes(const PixelAssembly& assembly, uint64_t row, size_t planes) {
    size_t bytes = 0;
    for (size_t i = 0; i < planes; ++i)
        bytes += LoadU16(assembly.rowCounts + 2 * (i * assembly.block.height + row));
    return bytes;
}

// Stores rows of a plane that others will follow. What does not come of packed rows stays zero, as fresh
// memory is, and is unpacked to zeros.
PsdReadResult StoreStep(PixelAssembly& assembly, PlaneDecoder& decoder, const Step& step) {
    if (!assembly.rowCounts) {
        const uint8_t* rows = nullptr;
        const PsdReadResult result = NextRows(decoder, step.rows, rows);
        if (result != PsdReadResult::kOk) return result;
        std::memcpy(BundleAt(assembly, step.row) + assembly.arrived * step.bytes, rows, step.bytes);
        return PsdReadResult::kOk;
    }
    for (uint64_t row = step.row; row < step.row + step.rows; ++row) {
        const std::span<const uint8_t> packed = NextPackedRow(decoder);
        uint8_t* const place = PackedBundle(assembly) + PackedBytes(assembly, row, assembly.arrived);
        if (!packed.empty()) std::memcpy(place, packed.data(), packed.size());
        assembly.packedLeft -= PackedBytes(assembly, row, assembly.planeCount - 1);
    }
    decoder.rowsLeft -= step.rows;
    return PsdReadResult::kOk;
}

// The bundle of a step; what is unpacked is counted. The last ones lie where their own pixels go, and are
// copied.
const uint8_t* BundleOf(PixelAssembly& assembly, const Step& step) {
    if (!assembly.rowCounts) {
        const uint8_t* const bundle = BundleAt(assembly, step.row);
        const uint32_t* const pixelsEnd =
            assembly.pixels.get() + (step.row + step.rows) * assembly.block.width;
        if (bundle >= reinterpret_cast<const uint8_t*>(pixelsEnd)) return bundle;
        std::memcpy(assembly.bundleRows, bundle, assembly.arrived * step.bytes);
        return assembly.bundleRows;
    }
    size_t bytes = 0;
    for (size_t i = 0; i < step.rows; ++i) bytes += PackedBytes(assembly, step.row + i, assembly.arrived);
    const uint8_t* packed = PackedBundle(assembly);
    assembly.packedLeft -= bytes;
    if (assembly.packedLeft < SectionSource::kSlackBytes)
        packed = static_cast<const uint8_t*>(std::memcpy(assembly.packedRows, packed, bytes));
    const size_t width = assembly.block.width;
    uint8_t* out = assembly.bundleRows;
    for (size_t plane = 0; plane < assembly.arrived; ++plane) {
        const uint8_t* in = packed;
        for (size_t i = 0; i < step.rows; ++i, out += width) {
            const size_t before = PackedBytes(assembly, step.row + i, plane);
            const size_t with = PackedBytes(assembly, step.row + i, plane + 1);
            const size_t came = UnpackBits({in + before, with - before}, {out, width});
            std::memset(out + came, 0, width - came);
            if (step.row < assembly.rows[plane]) assembly.filledSamples[plane] += came;
            in += PackedBytes(assembly, step.row + i, assembly.arrived);
        }
        assembly.filledPixels = std::max(assembly.filledPixels, assembly.filledSamples[plane]);
    }
    return assembly.bundleRows;
}

// Takes note of rows that are not transparent throughout.
void ExtendCoveredRows(PixelAssembly& assembly, const Step& step, const uint8_t* alphas) {
    // All are 0 where the first is and each is as the one before.
    if (alphas && alphas[0] == 0 && std::memcmp(alphas, alphas + 1, step.bytes - 1) == 0) return;
    if (assembly.coveredBottom == 0) assembly.coveredTop = step.row;
    assembly.coveredBottom = step.row + step.rows;
}

// Converts a bundle and the last plane's rows, or zeros for rows that did not come.
void ConvertStep(PixelAssembly& assembly, const Step& step, const uint8_t* bundle, uint8_t lastRole,
                 const uint8_t* rows) {
    PlaneBlock block = assembly.block;
    block.height = static_cast<uint32_t>(step.rows);
    block.depth = std::min(block.depth, 8u);
    uint32_t* const out = assembly.pixels.get() + step.row * block.width;
    const auto place = [&](uint8_t role, const uint8_t* plane) {
        (role == kRoleAlpha ? block.alpha : block.color[role - kRoleColor]) = plane;
    };
    for (uint32_t i = 0; i < assembly.arrived; ++i)
        place(assembly.roles[i], step.row < assembly.rows[i] ? bundle + i * step.bytes : assembly.zeroRows);
    if (lastRole != kRoleOther) place(lastRole, rows ? rows : assembly.zeroRows);
    if (ConvertsPlanes(assembly.block)) {
        ConvertPlanes(block, out);
    } else {
        std::fill_n(out, step.rows * block.width, 0u);
    }
    if (step.bytes != 0) ExtendCoveredRows(assembly, step, block.alpha);
}

// False when a stream that claimed to be longer ends within the first window of the data, and what there is
// of it cannot fill the pixels.
bool HasEnoughInput(const PixelAssembly& assembly, PlaneDecoder& decoder) {
    if (assembly.pixels) return true;
    Peek(decoder.source, SectionSource::kWindowBytes);  // nothing has been decoded yet
    return !decoder.source.isShort || MayBecomePixels(assembly.block, decoder.source.arrived, kMostExpansion);
}

// Whether the allowance covers what has been made of the rows above this one. Packed rows that wait only take
// the memory of their bundles; what they fill is counted when they are unpacked.
bool MayGoOn(PixelAssembly& assembly, uint64_t row, bool isLast, Allowance& allowance) {
    KeptPixels own = {0, assembly.inputBytes, assembly.filledPixels};
    if (!isLast && assembly.rowCounts) {
        own.bytes = assembly.packedBytes - assembly.packedLeft;
        return MayKeepPixels(allowance.kept + own);
    }
    own.bytes = row * assembly.block.width * sizeof(uint32_t);
    return MayFill(allowance, own, assembly.chargedBytes);
}

}  // namespace

bool MayBecomePixels(const PlaneBlock& block, uint64_t input, uint32_t expansion) {
    const auto bytes = CheckedProduct({block.width, block.height, sizeof(uint32_t)});
    return bytes && MayKeepPixels({*bytes, input, SamplesIn(input * expansion, block.depth)});
}

void WaitPacked(PixelAssembly& assembly, const PlaneDecoder& decoder) {
    const PlaneBlock& block = assembly.block;
    const bool hasShortRows = block.width <= SectionSource::kWindowBytes;
    if (!decoder.rowCounts || block.depth != 8 || assembly.planeCount < 2 || !hasShortRows) return;
    assembly.rowCounts = decoder.rowCounts;
    const uint32_t stored = assembly.planeCount - 1;
    bool fits = true;
    for (uint64_t row = 0; row < block.height; ++row) {
        const size_t bytes = PackedBytes(assembly, row, stored);
        fits = fits && bytes <= sizeof(uint32_t) * block.width;
        assembly.packedBytes += bytes;
    }
    if (fits && assembly.packedBytes <= uint64_t{stored} * block.width * block.height) return;
    assembly.rowCounts = nullptr;
    assembly.packedBytes = 0;
}

PsdReadResult AddPlane(PixelAssembly& assembly, PlaneDecoder& decoder, uint8_t role, Allowance& allowance,
                       Owned<uint32_t>& spare) {
    assembly.isKept = assembly.isKept && HasEnoughInput(assembly, decoder);
    if (!assembly.isKept) return DropPlanes(decoder);
    if (!TakeMemory(assembly, spare)) return PsdReadResult::kOutOfMemory;
    const bool isLast = assembly.arrived + 1 >= assembly.planeCount;
    const uint64_t samplesBefore = FilledSamples(decoder);
    assembly.packedLeft = assembly.packedBytes;
    uint64_t came = 0;
    for (uint64_t row = 0; row < assembly.block.height;) {
        const Step step = StepAt(assembly.block, row);
        row += step.rows;
        const uint8_t* rows = nullptr;
        if (!HasEnded(decoder)) {
            const PsdReadResult result =
                isLast ? NextRows(decoder, step.rows, rows) : StoreStep(assembly, decoder, step);
            if (result != PsdReadResult::kOk) return result;
            came = row;
        } else if (!isLast) {
            break;
        }
        const uint8_t* const bundle = isLast && assembly.arrived != 0 ? BundleOf(assembly, step) : nullptr;
        assembly.inputBytes += std::exchange(decoder.source.arrived, 0);
        assembly.filledPixels = std::max(assembly.filledPixels, FilledSamples(decoder) - samplesBefore);
        if (!MayGoOn(assembly, row, isLast, allowance)) {
            assembly.isKept = false;
            return DropPlanes(decoder);
        }
        if (isLast) ConvertStep(assembly, step, bundle, role, rows);
    }
    assembly.rows[assembly.arrived] = came;
    assembly.roles[assembly.arrived++] = role;
    return PsdReadResult::kOk;
}

}  // namespace tessary
