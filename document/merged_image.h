// The merged image at the end of the file.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// Decodes the merged image at the reader's position, if the read mode asks for it, into
// document.mergedPixels: width x height pixels, null when document.mergedUse does not keep them; the data is
// checked all the same. kBadCompression, kInflateSetup, kInflateFailed, and kOutOfMemory, also for an image
// that the data cannot fill.
PsdReadResult ReadMergedImage(PsdDocument& document);

}  // namespace tessary
