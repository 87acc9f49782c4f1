// Planes come together in the memory of their pixels.
//
// Of n planes all but the last are stored, in the last n-1 quarters of that memory: for each step of rows a
// bundle of theirs, one plane behind the other, so that the bundle at row y lies at (5-n)N + (n-1)Wy, where N
// is width x height. The last plane is not stored: its rows and those of a bundle are what is converted, to
// pixels at 4Wy, which never lie behind their bundle. Five planes fit as well.
#pragma once

#include <cstdint>

#include "document/plane_decoder.h"
#include "document/psd_document.h"
#include "render/color_convert.h"

namespace tessary {

// Which plane of the image a plane is.
enum PlaneRole : uint8_t {
    kRoleAlpha,
    kRoleColor,                   // and the colours behind it, up to four
    kRoleOther = kRoleColor + 4,  // none, but it is decoded when there is nothing else
    kRoleCount,
};

struct PixelAssembly {
    PlaneBlock block;         // mode, stored depth, size, palette and number of planes of the image
    uint32_t planeCount = 0;  // that will be added, in any order; at least one
    bool isKept = true;       // false: the planes are only decoded, and the pixels are of no use
    Owned<uint32_t> pixels;   // width x height words and perhaps more

    uint32_t arrived = 0;  // planes
    uint8_t roles[kMostPlanes] = {};
    uint64_t rows[kMostPlanes] = {};  // that came of each
    uint64_t inputBytes = 0;          // that all planes came from
    uint64_t filledPixels = 0;        // of the plane with most samples
    uint64_t chargedBytes = 0;        // see MayFill
    uint64_t coveredTop = 0;          // all rows outside are known to be transparent
    uint64_t coveredBottom = 0;

    // With row counts the stored planes wait as they are packed, in smaller bundles at the end of the memory.
    const uint8_t* rowCounts = nullptr;        // of all rows, plane by plane, 16 bits each; borrowed
    uint64_t packedBytes = 0;                  // of all bundles
    uint64_t packedLeft = 0;                   // of those from the next row on
    uint64_t filledSamples[kMostPlanes] = {};  // of each stored plane, as far as it is unpacked

    Owned<uint8_t> buffers;  // rows of a step: of zeros, of a bundle, and of one that is packed
    uint8_t* zeroRows = nullptr;
    uint8_t* bundleRows = nullptr;
    uint8_t* packedRows = nullptr;
};

// Lets the planes that the decoder begins with wait packed where that takes less memory, and no bundle more
// than its row of pixels. They are to be added in the order of the file.
void WaitPacked(PixelAssembly& assembly, const PlaneDecoder& decoder);

// Whether so many bytes, each worth so many of a plane at most, can fill the pixels of a block.
bool MayBecomePixels(const PlaneBlock& block, uint64_t input, uint32_t expansion);

// Decodes a plane of assembly.block's size and joins it to the others. Pixels that the allowance does not
// cover are not kept. kInflateFailed, kOutOfMemory.
//   decoder  may hold further planes behind this one
//   spare    memory of pixels to be used again where it is enough, whatever it holds; or null
PsdReadResult AddPlane(PixelAssembly& assembly, PlaneDecoder& decoder, uint8_t role, Allowance& allowance,
                       Owned<uint32_t>& spare);

}  // namespace tessary
