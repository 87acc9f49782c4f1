// The layer and mask information section.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// Reads the section at the reader's position: records, their pixels, the global mask and the groups. Skips it
// in the modes that want no layers.
PsdReadResult ReadLayerSection(PsdDocument& document);

}  // namespace tessary
