// One layer record: everything about a layer but its pixels.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// Reads the record at the reader's position into a layer that still has its defaults. kBadLayer,
// kBadLayerSignature, kEmptyBlendRanges, kOutOfMemory, and the codes of the tagged blocks.
PsdReadResult ReadLayerRecord(PsdDocument& document, PsdLayer& layer);

// Bytes of the smallest sound record: one channel, no mask, no ranges, no name, no blocks.
inline constexpr uint32_t kSmallestLayerRecord = 52;

}  // namespace tessary
