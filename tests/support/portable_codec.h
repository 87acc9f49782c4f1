// What the codec does with a stream for its clients, without COM: the same steps in any order, over the same
// read-ahead buffer.
#pragma once

#include "frontend/document_pixels.h"
#include "frontend/header_probe.h"
#include "frontend/pixel_copy.h"
#include "frontend/read_ahead.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {

class BufferedSource final : public IStream {
public:
    BufferedSource(IStream* source, uint32_t bufferSize) : m_buffer(bufferSize) {
        ahead.source = source;
        ahead.buffer = m_buffer.data();
        ahead.bufferSize = bufferSize;
    }
    HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG count, ULONG* read) override {
        return ReadAheadRead(ahead, buffer, static_cast<uint32_t>(count), read);
    }
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) override {
        return ReadAheadSeek(ahead, move, origin, newPosition);
    }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD flags) override {
        return ahead.source->Stat(stat, flags);
    }

    ReadAhead ahead;

private:
    Bytes m_buffer;
};

struct PortableCodec {
    // Reads the source as it is when bufferSize is 0.
    PortableCodec(IStream* source, uint32_t bufferSize)
        : buffered(source, bufferSize), stream(bufferSize != 0 ? &buffered : source) {
        static_cast<void>(EnableReadAhead(buffered.ahead, true));
    }

    static constexpr PsdReadResult kProbeFailed = PsdReadResult::kNoDocument;

    HRESULT Probe() { return ProbeHeader(stream, info); }
    PsdReadResult Open(uint32_t mode);  // and closes again
    PsdReadResult Metadata();           // grafts the XMP packet
    // Copies an area of the thumbnail's stored size; its pixels stay black, for decoding them is the
    // system's.
    PsdReadResult Thumbnail(const CopyArea& area);
    // Decodes once, then copies. kShortRead for a picture of another size than was probed.
    PsdReadResult Picture(const CopyArea& area);
    // All of the above over the whole picture, as most clients do; the first failure ends it.
    PsdReadResult Everything();

    BufferedSource buffered;
    IStream* stream;
    HeaderInfo info;
    DocumentPixels picture;
};

}  // namespace tessary::test
