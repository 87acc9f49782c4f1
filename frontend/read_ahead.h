// A read-ahead buffer over a stream: many small reads and seeks become few large ones. Keeps a position of
// its own; the source moves only when the buffer is refilled or passed by.
#pragma once

#include <cstdint>

#include "document/platform.h"

namespace tessary {

struct ReadAhead {
    IStream* source = nullptr;  // borrowed
    uint8_t* buffer = nullptr;  // borrowed, bufferSize bytes
    uint32_t bufferSize = 0;
    uint32_t valid = 0;        // bytes of the buffer that hold data
    bool enabled = false;      // when not, reads and seeks go to the source as they are
    int64_t position = 0;      // where the next read starts; not checked before then, may be negative
    int64_t bufferStart = -1;  // stream offset of the buffer's first byte
};

// Forgets what is buffered.
void EmptyReadAhead(ReadAhead& stream);

// Starts buffering from where the source stands, E_UNEXPECTED without one; or stops it.
HRESULT EnableReadAhead(ReadAhead& stream, bool enable);

// IStream's Read. `read` may be null. S_OK only when all `count` bytes arrived from the buffer; S_FALSE when
// the source has no more, with `read` telling what came before that. Requests larger than the buffer go
// straight to the source, whether buffering is on or not, and answer as it does. E_UNEXPECTED without a
// source.
HRESULT ReadAheadRead(ReadAhead& stream, void* destination, uint32_t count, ULONG* read);

// IStream's Seek. `newPosition` may be null. While buffering, only STREAM_SEEK_END reaches the source, and an
// unknown origin changes nothing. E_UNEXPECTED without a source.
HRESULT ReadAheadSeek(ReadAhead& stream, LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition);

}  // namespace tessary
