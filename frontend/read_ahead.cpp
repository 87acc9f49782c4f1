#include "frontend/read_ahead.h"

#include <algorithm>
#include <cstring>

namespace tessary {
namespace {

// Bytes between the buffer's start and the position. Unsigned, so that a position before the start, or a
// start that no file can have, is as far away as can be.
TESSARY_WRAPS uint64_t BufferOffset(const ReadAhead& stream) {
    return static_cast<uint64_t>(stream.position) - static_cast<uint64_t>(stream.bufferStart);
}

bool HoldsPosition(const ReadAhead& stream) { return BufferOffset(stream) < stream.valid; }

TESSARY_WRAPS void Advance(ReadAhead& stream, uint64_t count) {
    stream.position = static_cast<int64_t>(static_cast<uint64_t>(stream.position) + count);
}

// Moves the source to the position and notes where it says it is now.
HRESULT SeekSource(ReadAhead& stream) {
    LARGE_INTEGER move;
    move.QuadPart = stream.position;
    ULARGE_INTEGER reached = {};
    stream.valid = 0;
    const HRESULT result = stream.source->Seek(move, STREAM_SEEK_SET, &reached);
    if (SUCCEEDED(result)) stream.bufferStart = static_cast<int64_t>(reached.QuadPart);
    return result;
}

// Reads from where the source stands. A count beyond what was asked for is taken for 0.
HRESULT ReadSource(ReadAhead& stream, void* destination, uint32_t count, uint32_t& delivered) {
    ULONG claimed = 0;
    const HRESULT result = stream.source->Read(destination, count, &claimed);
    delivered = claimed <= count ? static_cast<uint32_t>(claimed) : 0;
    return result;
}

HRESULT Refill(ReadAhead& stream) {
    HRESULT result = SeekSource(stream);
    if (FAILED(result)) return result;
    uint32_t delivered = 0;
    result = ReadSource(stream, stream.buffer, stream.bufferSize, delivered);
    if (SUCCEEDED(result)) stream.valid = delivered;
    return result;
}

}  // namespace

void EmptyReadAhead(ReadAhead& stream) {
    stream.valid = 0;
    stream.bufferStart = -1;
}

HRESULT EnableReadAhead(ReadAhead& stream, bool enable) {
    if (enable) {
        if (!stream.source) return E_UNEXPECTED;
        EmptyReadAhead(stream);
        const LARGE_INTEGER nowhere = {};
        ULARGE_INTEGER current = {};
        if (SUCCEEDED(stream.source->Seek(nowhere, STREAM_SEEK_CUR, &current)))
            stream.position = static_cast<int64_t>(current.QuadPart);
    }
    stream.enabled = enable;
    return S_OK;
}

HRESULT ReadAheadRead(ReadAhead& stream, void* destination, uint32_t count, ULONG* read) {
    if (!stream.source) return E_UNEXPECTED;
    if (read) *read = 0;
    uint32_t delivered = 0;
    if (count > stream.bufferSize) {
        HRESULT result = SeekSource(stream);
        if (FAILED(result)) return result;
        result = ReadSource(stream, destination, count, delivered);
        if (read) *read = delivered;
        Advance(stream, delivered);
        return result;
    }
    if (!stream.enabled) {
        const HRESULT result = ReadSource(stream, destination, count, delivered);
        if (read) *read = delivered;
        return result;
    }

    // A loop, and every turn adds at least one byte: a source that delivers in crumbs costs time, not stack.
    uint8_t* out = static_cast<uint8_t*>(destination);
    uint32_t done = 0;
    for (;;) {
        if (!HoldsPosition(stream)) {
            const HRESULT result = Refill(stream);
            if (FAILED(result)) return result;
            // Nothing left; or the source did not go where it was sent, and asking again would not end.
            if (!HoldsPosition(stream)) return S_FALSE;
        }
        const uint64_t offset = BufferOffset(stream);
        const uint32_t taken = std::min(static_cast<uint32_t>(stream.valid - offset), count - done);
        if (taken) std::memcpy(out + done, stream.buffer + offset, taken);
        Advance(stream, taken);
        done += taken;
        if (read) *read = done;
        if (done == count) return S_OK;
    }
}

HRESULT ReadAheadSeek(ReadAhead& stream, LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) {
    if (!stream.source) return E_UNEXPECTED;
    if (!stream.enabled) return stream.source->Seek(move, origin, newPosition);
    if (origin == STREAM_SEEK_END) {
        ULARGE_INTEGER reached = {};
        const HRESULT result = stream.source->Seek(move, origin, &reached);
        if (FAILED(result)) return result;
        stream.position = static_cast<int64_t>(reached.QuadPart);
        if (newPosition) *newPosition = reached;
        return result;
    }
    if (origin == STREAM_SEEK_SET) stream.position = move.QuadPart;
    if (origin == STREAM_SEEK_CUR) Advance(stream, static_cast<uint64_t>(move.QuadPart));
    if (newPosition) newPosition->QuadPart = static_cast<uint64_t>(stream.position);
    return S_OK;
}

}  // namespace tessary
