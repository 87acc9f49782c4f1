#include "tools/memory_stream.h"

#include <algorithm>
#include <cstring>

namespace tessary::test {

bool MemoryStream::Fails() {
    const uint64_t call = ++calls;
    if (call == changeCall) m_bytes = changed;
    return failCall != 0 && (call == failCall || (failLater && call > failCall));
}

HRESULT STDMETHODCALLTYPE MemoryStream::Read(void* buffer, ULONG count, ULONG* read) {
    if (read) *read = 0;
    if (Fails()) return E_FAIL;
    const uint64_t left = position < m_bytes.size() ? m_bytes.size() - position : 0;
    const uint64_t delivered = std::min<uint64_t>({left, count, maxBytesPerRead});
    if (delivered) std::memcpy(buffer, m_bytes.data() + position, static_cast<size_t>(delivered));
    position += delivered;
    bytesRead += delivered;
    if (read) *read = static_cast<ULONG>(claimsMore ? count + 1 : delivered);
    return delivered == count ? S_OK : S_FALSE;
}

HRESULT STDMETHODCALLTYPE MemoryStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) {
    if (Fails() || !canSeek) return E_FAIL;
    const uint64_t base = origin == STREAM_SEEK_SET   ? 0
                          : origin == STREAM_SEEK_CUR ? position
                                                      : m_bytes.size();
    const uint64_t target = base + static_cast<uint64_t>(move.QuadPart) + static_cast<uint64_t>(seekMisses);
    if (static_cast<int64_t>(target) < 0) return E_INVALIDARG;
    if (!seekSticks) position = target;
    if (newPosition) newPosition->QuadPart = position;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE MemoryStream::Stat(STATSTG* stat, DWORD) {
    if (Fails() || statFails) return E_FAIL;
    stat->cbSize.QuadPart = hasSize ? size : m_bytes.size();
    return S_OK;
}

#if defined(_WIN32)
HRESULT STDMETHODCALLTYPE MemoryStream::QueryInterface(REFIID id, void** object) {
    const bool known = id == IID_IUnknown || id == IID_ISequentialStream || id == IID_IStream;
    *object = known ? static_cast<IStream*>(this) : nullptr;
    return known ? (AddRef(), S_OK) : E_NOINTERFACE;
}
#endif

}  // namespace tessary::test
