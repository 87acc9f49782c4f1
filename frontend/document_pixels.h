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

enum class PictureChoice {
    kAsTheFileSays,
    kAlwaysLayers,  // as if the file did not vouch for its merged image
};

// Reads the document from the start of `stream` and gives out its picture. The stream is put back where it
// was, unless the layers are needed: then it is read a second time and stays where that ended.
// On failure `picture` is empty. kShortRead also stands for a document without any picture. A failure to
// composite is a failure, whether or not there is a merged image: the file does not vouch for that one.
PsdReadResult DecodeDocumentPixels(IStream* stream, DocumentPixels& picture,
                                   PictureChoice choice = PictureChoice::kAsTheFileSays);

}  // namespace tessary
