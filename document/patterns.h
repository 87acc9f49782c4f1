// The patterns that a document carries for its layers, behind their pixels.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// Reads patterns up to `end` and adds those that can be drawn to the document's. One that is malformed ends
// the block, one that finds no memory is passed over; neither is an error of the document.
void ReadPatterns(PsdDocument& document, uint32_t end);

// The first pattern of an identifier, or null.
const PsdPattern* FindPattern(const PsdDocument& document, const PsdUnicodeString& identifier);

}  // namespace tessary
