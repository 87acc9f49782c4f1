// The cheap look at a stream: is it a document that the codec takes, how large, and what does it carry.
#pragma once

#include <cstdint>

#include "document/platform.h"

namespace tessary {

struct HeaderInfo {
    uint32_t width = 0;  // pixels
    uint32_t height = 0;
    uint32_t dpiX = 0;  // whole dots per inch, 72 when the document names no usable unit
    uint32_t dpiY = 0;
    bool hasColorProfile = false;
    bool hasThumbnail = false;
    bool hasExif = false;
    bool hasXmp = false;
};

// Looks for a header where the stream stands, and once more at its start when there is none: some hosts hand
// over a stream that stands behind the bytes they have recognised it by. Then opens the document as far as
// its resources. The stream is put back where it was. The caller holds whatever lock guards the stream.
// E_INVALIDARG for a null stream, E_FAIL for anything that is not a readable document of version 1 within
// the limits. `info` is filled as far as the probe came: a header of a refused size leaves its size there.
HRESULT ProbeHeader(IStream* stream, HeaderInfo& info);

}  // namespace tessary
