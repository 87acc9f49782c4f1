// Blend modes by their four-character keys.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// Normal for every key that has no mode of its own here.
PsdBlendMode BlendModeFromKey(uint32_t key);

// Reads a key at the reader's position; a short read is Normal.
PsdBlendMode ReadBlendKey(PsdDocument& document);

// The mode in which a group blends its members. Writers store the mode of a group in its divider block, where
// they have one with a key, and leave "norm" in the record of groups that pass through.
PsdBlendMode GroupBlendMode(const PsdLayer& group);

}  // namespace tessary
