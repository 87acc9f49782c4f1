// What the codec does with a stream for its clients, without COM: the same steps in any order, over the same
// read-ahead buffer.
#pragma once

#include <cstdlib>

#include "frontend/document_pixels.h"
#include "frontend/exif_graft.h"
#include "frontend/header_probe.h"
#include "frontend/pixel_copy.h"
#include "frontend/read_ahead.h"
#include "frontend/thumbnail_image.h"
#include "tools/memory_stream.h"

namespace tessary::test {

struct BufferedSource final : public ReadOnlyStream {
    BufferedSource(IStream* source, uint32_t size) : buffer(size), ahead{source, buffer.data(), size} {}
    HRESULT STDMETHODCALLTYPE Read(void* bytes, ULONG count, ULONG* read) override {
        return ReadAheadRead(ahead, bytes, static_cast<uint32_t>(count), read);
    }
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) override {
        return ReadAheadSeek(ahead, move, origin, newPosition);
    }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD flags) override {
        return ahead.source->Stat(stat, flags);
    }
#if defined(_WIN32)
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
#endif
    Bytes buffer;
    ReadAhead ahead;
};

struct PortableCodec {
    // Reads the source as it is when bufferSize is 0.
    PortableCodec(IStream* source, uint32_t bufferSize)
        : buffered(source, bufferSize), stream(bufferSize != 0 ? &buffered : source) {
        static_cast<void>(EnableReadAhead(buffered.ahead, true));
    }

    static constexpr PsdReadResult kProbeFailed = PsdReadResult::kNoDocument;

    HRESULT Probe() { return ProbeHeader(stream, info); }

    // Grafts the XMP packet when metadata are read. Of a thumbnail copies an area of its stored size; its
    // pixels stay black, for decoding them is the system's.
    PsdReadResult Open(uint32_t mode, const CopyArea& area = {}) {
        Owned<PsdDocument> document;
        const PsdReadResult result = OpenDocument(document, stream, mode);
        if ((result == PsdReadResult::kOk) != static_cast<bool>(document)) std::abort();
        if (!document) return result;
        PsdImageResources& resources = document->resources;
        if (mode == kReadMetadata) {
            Owned<uint8_t> grafted;
            return GraftXmp(resources.exif.bytes.span(), resources.xmp.bytes.span(), grafted);
        }
        ThumbnailRecord record;
        record.stored = std::move(resources.thumbnail);
        const PsdThumbnail& stored = record.stored;
        if (mode != kReadThumbnail || !IsUsableThumbnail(stored)) return result;
        record.pixels = AllocateZeroed<uint8_t>({stored.height, stored.rowBytes});
        if (!record.pixels) return PsdReadResult::kOutOfMemory;
        if (!CheckRect(area, stored.width, stored.height)) return result;
        const uint32_t rowBytes = static_cast<uint32_t>(area.width) * 3;
        Bytes copy(size_t{rowBytes} * static_cast<size_t>(area.height));
        CopyThumbnail(record, area, -1, -1, rowBytes, copy.data());
        return result;
    }

    // Decodes once. kShortRead for a picture of another size than was probed.
    PsdReadResult Picture() {
        const PsdReadResult result =
            picture.pixels ? PsdReadResult::kOk : DecodeDocumentPixels(stream, picture);
        if ((result == PsdReadResult::kOk) != static_cast<bool>(picture.pixels)) std::abort();
        if (result != PsdReadResult::kOk) return result;
        const bool sameSize = picture.width == info.width && picture.height == info.height;
        return sameSize ? result : PsdReadResult::kShortRead;
    }

    // All of the above, as most clients do; the first failure ends it.
    PsdReadResult Everything() {
        if (FAILED(Probe())) return kProbeFailed;
        PsdReadResult result = PsdReadResult::kOk;
        for (const uint32_t mode : {kReadMetadata, kReadThumbnail, kReadProfile}) {
            if (result == PsdReadResult::kOk) result = Open(mode, {0, 0, 1, 1});
        }
        return result == PsdReadResult::kOk ? Picture() : result;
    }

    BufferedSource buffered;
    IStream* stream;
    HeaderInfo info;
    DocumentPixels picture;
};

}  // namespace tessary::test
