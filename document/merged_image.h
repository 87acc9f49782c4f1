// The merged image at the end of the file.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// Decodes the merged image at the reader's position into document.mergedPixels, if the read mode asks for it.
PsdReadResult ReadMergedImage(PsdDocument& document);

}  // namespace tessary
