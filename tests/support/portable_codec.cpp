#include "tests/support/portable_codec.h"

#include <algorithm>
#include <cstdlib>

#include "frontend/exif_graft.h"
#include "frontend/thumbnail_image.h"

namespace tessary::test {

PsdReadResult PortableCodec::Open(uint32_t mode) {
    Owned<PsdDocument> document;
    const PsdReadResult result = OpenDocument(document, stream, mode);
    if ((result == PsdReadResult::kOk) != static_cast<bool>(document)) std::abort();
    return result;
}

PsdReadResult PortableCodec::Metadata() {
    Owned<PsdDocument> document;
    PsdReadResult result = OpenDocument(document, stream, kReadMetadata);
    if (result != PsdReadResult::kOk) return result;
    const PsdImageResources& resources = document->resources;
    Owned<uint8_t> grafted;
    result = GraftXmp(resources.exif.bytes.span(), resources.xmp.bytes.span(), grafted);
    if (result == PsdReadResult::kOk && !grafted) std::abort();
    return result;
}

PsdReadResult PortableCodec::Thumbnail(const CopyArea& area) {
    Owned<PsdDocument> document;
    const PsdReadResult result = OpenDocument(document, stream, kReadThumbnail);
    if (result != PsdReadResult::kOk) return result;
    ThumbnailRecord record;
    record.stored = std::move(document->resources.thumbnail);
    const PsdThumbnail& stored = record.stored;
    if (!IsUsableThumbnail(stored)) return PsdReadResult::kOk;
    record.pixels = AllocateZeroed<uint8_t>({stored.height, stored.rowBytes});
    if (!record.pixels) return PsdReadResult::kOutOfMemory;
    if (!CheckRect(area, stored.width, stored.height)) return PsdReadResult::kOk;
    const uint32_t rowBytes = static_cast<uint32_t>(area.width) * 3;
    Bytes copy(size_t{rowBytes} * static_cast<size_t>(area.height));
    CopyThumbnail(record, area, -1, -1, rowBytes, copy.data());
    return PsdReadResult::kOk;
}

PsdReadResult PortableCodec::Picture(const CopyArea& area) {
    if (!picture.pixels) {
        const PsdReadResult result = DecodeDocumentPixels(stream, picture);
        if ((result == PsdReadResult::kOk) != static_cast<bool>(picture.pixels)) std::abort();
        if (result != PsdReadResult::kOk) return result;
    }
    if (picture.width != info.width || picture.height != info.height) return PsdReadResult::kShortRead;
    if (!CheckRect(area, info.width, info.height)) return PsdReadResult::kOk;
    // No more rows than fit: a client may ask for an area in pieces.
    const uint32_t stride = static_cast<uint32_t>(area.width) * 4;
    const uint64_t bytes = std::min(uint64_t{stride} * static_cast<uint32_t>(area.height), uint64_t{1} << 20);
    Bytes copy(static_cast<size_t>(bytes));
    CopyRows(picture.pixels.get(), info.width, area, stride, static_cast<uint32_t>(bytes), copy.data());
    return PsdReadResult::kOk;
}

PsdReadResult PortableCodec::Everything() {
    if (FAILED(Probe())) return kProbeFailed;
    const CopyArea whole = {0, 0, static_cast<int32_t>(info.width), static_cast<int32_t>(info.height)};
    PsdReadResult result = Metadata();
    if (result == PsdReadResult::kOk) result = Thumbnail({0, 0, 1, 1});
    if (result == PsdReadResult::kOk) result = Open(kReadProfile);
    return result == PsdReadResult::kOk ? Picture(whole) : result;
}

}  // namespace tessary::test
