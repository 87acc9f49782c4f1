#include "frontend/header_probe.h"

#include <algorithm>

#include "document/big_endian.h"
#include "document/checked_math.h"
#include "document/psd_document.h"
#include "frontend/stream_position.h"

namespace tessary {
namespace {

constexpr uint32_t kHeaderBytes = 26;
constexpr uint32_t kMaxSide = 30000;
constexpr uint32_t kMaxColorMode = 9;
constexpr uint32_t kMaxDepth = 32;
constexpr uint32_t kMaxChannels = 56;
constexpr uint32_t kDefaultDpi = 72;

constexpr uint16_t kUnitInch = 1;
constexpr uint16_t kUnitCentimetre = 2;

// All 26 bytes or nothing, also from a stream that delivers less than asked before its end.
bool ReadHeaderBytes(IStream* stream, uint8_t* bytes) {
    uint32_t done = 0;
    while (done < kHeaderBytes) {
        ULONG delivered = 0;
        if (FAILED(stream->Read(bytes + done, kHeaderBytes - done, &delivered)) || delivered == 0)
            return false;
        done += std::min<uint32_t>(static_cast<uint32_t>(delivered), kHeaderBytes - done);
    }
    return true;
}

constexpr bool IsWithin(uint32_t value, uint32_t maximum) { return value >= 1 && value <= maximum; }

bool ProbeHere(IStream* stream, HeaderInfo& info) {
    uint8_t bytes[kHeaderBytes] = {};
    if (!ReadHeaderBytes(stream, bytes)) return false;
    if (LoadU32(bytes) != FourCC("8BPS") || LoadU16(bytes + 4) != 1) return false;
    info.width = LoadU32(bytes + 18);
    info.height = LoadU32(bytes + 14);
    return IsWithin(info.width, kMaxSide) && IsWithin(info.height, kMaxSide) &&
           LoadU16(bytes + 24) <= kMaxColorMode && IsWithin(LoadU16(bytes + 22), kMaxDepth) &&
           IsWithin(LoadU16(bytes + 12), kMaxChannels);
}

bool ProbeHereOrAtStart(IStream* stream, HeaderInfo& info) {
    const StreamPositionScope keep(stream);
    if (ProbeHere(stream, info)) return true;
    if (keep.IsKnown() && keep.Position() == 0) return false;
    const LARGE_INTEGER start = {};
    return SUCCEEDED(stream->Seek(start, STREAM_SEEK_SET, nullptr)) && ProbeHere(stream, info);
}

uint32_t DotsPerInch(float value, uint16_t unit) {
    if (unit == kUnitInch) return static_cast<uint32_t>(TruncateToInt32(static_cast<double>(value)));
    if (unit == kUnitCentimetre)
        return static_cast<uint32_t>(TruncateToInt32(static_cast<double>(value) * 2.54));
    return kDefaultDpi;
}

}  // namespace

HRESULT ProbeHeader(IStream* stream, HeaderInfo& info) {
    if (!stream) return E_INVALIDARG;
    if (!ProbeHereOrAtStart(stream, info)) return E_FAIL;

    const StreamPositionScope keep(stream);
    Owned<PsdDocument> document;
    if (OpenDocument(document, stream, kReadHeader) != PsdReadResult::kOk) return E_FAIL;
    const PsdImageResources& resources = document->resources;
    const PsdResolution& resolution = resources.resolution;
    info.dpiX = info.dpiY = kDefaultDpi;
    if (resolution.present) {
        info.dpiX = DotsPerInch(resolution.horizontal, resolution.horizontalUnit);
        info.dpiY = DotsPerInch(resolution.vertical, resolution.verticalUnit);
    }
    info.hasColorProfile = resources.profile.present;
    info.hasThumbnail = resources.thumbnail.present;
    info.hasExif = resources.exif.present;
    info.hasXmp = resources.xmp.present;
    return S_OK;
}

}  // namespace tessary
