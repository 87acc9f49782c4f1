// The blocks of a layer record that describe adjustments, fills and effects.
#pragma once

#include <cstdint>

#include "document/psd_document.h"

namespace tessary {

// Reads the block at the reader's position into the layer's property list when `key` is one of ours; any
// other key is left alone. The caller skips to the block's end, whatever was read.
//   length   of the block's data, rounded up to even
// A list that is full drops the block: nothing is read and the layer's kind stays what it was. kOutOfMemory,
// and the codes of the readers.
PsdReadResult ReadPropertyBlock(PsdDocument& document, PsdLayer& layer, uint32_t key, uint32_t length);

}  // namespace tessary
