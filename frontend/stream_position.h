// Puts a stream back where it was when a scope ends.
#pragma once

#include "document/platform.h"

namespace tessary {

// Remembers the stream's position and seeks back to it at the end of the scope. A stream that cannot tell
// where it stands stays where it ends up. Borrows the stream, which may be null.
class StreamPositionScope {
public:
    explicit StreamPositionScope(IStream* stream) : m_stream(stream) {
        const LARGE_INTEGER nowhere = {};
        m_known = m_stream && SUCCEEDED(m_stream->Seek(nowhere, STREAM_SEEK_CUR, &m_position));
    }
    StreamPositionScope(const StreamPositionScope&) = delete;
    StreamPositionScope& operator=(const StreamPositionScope&) = delete;
    ~StreamPositionScope() {
        if (!m_known) return;
        LARGE_INTEGER target;
        target.QuadPart = static_cast<int64_t>(m_position.QuadPart);
        m_stream->Seek(target, STREAM_SEEK_SET, nullptr);
    }

    // False when the stream would not tell.
    bool IsKnown() const { return m_known; }
    uint64_t Position() const { return m_position.QuadPart; }

private:
    IStream* m_stream;
    ULARGE_INTEGER m_position = {};
    bool m_known = false;
};

}  // namespace tessary
