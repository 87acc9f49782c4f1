// The merged image at the end of the file.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// Decodes the merged image at the reader's position, if the read mode asks for it, into
// document.mergedPixels: width x height pixels, null when document.mergedUse does not keep them. Data that is
// not kept is checked all the same. Where the file does not vouch for the image, data that is missing or
// breaks off is no failure. kBadCompression, kInflateSetup, kInflateFailed, and kOutOfMemory, also for an
// image that the file vouches for and the allowance does not cover.
PsdReadResult ReadMergedImage(PsdDocument& document);

}  // namespace tessary
