// The patterns that a document carries for its layers, behind their pixels.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// Reads patterns up to `end` and adds them to the document's, without pixels when they cannot be drawn. One
// that is malformed ends the block, one that finds no memory is not drawn; neither is an error of the
// document.
void ReadPatterns(PsdDocument& document, uint32_t end);

// The first pattern of an identifier; null when there is none or it cannot be drawn, whatever comes behind.
const PsdPattern* FindPattern(const PsdDocument& document, const PsdUnicodeString& identifier);

}  // namespace tessary
