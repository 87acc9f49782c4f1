// Which picture a document shows: the merged image where the file vouches for it, else its layers.
#pragma once

#include <cstdint>

#include "document/psd_document.h"

namespace tessary {

struct DocumentPixels {
    Owned<uint32_t> pixels;  // width x height words 0xAARRGGBB
    uint32_t width = 0;
    uint32_t height = 0;
};

// Reads the document from the start of `stream` and gives out its picture. Leaves the stream wherever reading
// ended; reads it a second time when the layers are needed. On failure `picture` is empty.
PsdReadResult DecodeDocumentPixels(IStream* stream, DocumentPixels& picture);

}  // namespace tessary
