// Puts the XMP packet of a document into its EXIF block, so that one metadata reader shows both.
#pragma once

#include <cstdint>
#include <span>

#include "document/platform.h"
#include "document/psd_result.h"

namespace tessary {

enum class ByteOrder { kLittleEndian, kBigEndian };

// The order in which the block is to be read. A block that begins with neither mark counts as big-endian,
// unless an XMP packet is grafted into it: then as little-endian.
ByteOrder ExifByteOrder(std::span<const uint8_t> exif, bool withXmp);

// Makes a copy of `exif` with `xmp` behind it (without the packet's closing zero byte, if it has one). The
// Software entry of the first directory becomes the XMP entry that points there; a block without such an
// entry is not changed, and nothing refers to the packet.
//   grafted  gets the new block; an empty `xmp` is no packet, and the block is then a mere copy
// kOutOfMemory, also when the block would not fit in 32 bits.
PsdReadResult GraftXmp(std::span<const uint8_t> exif, std::span<const uint8_t> xmp, Owned<uint8_t>& grafted);

}  // namespace tessary
