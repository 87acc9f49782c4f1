// The image resources section.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// Walks the section at the reader's position and keeps what the document's read mode asks for.
// kBadResourceSignature, kOutOfMemory.
PsdReadResult ReadImageResources(PsdDocument& document);

}  // namespace tessary
