// A stream over bytes in memory that can be made to behave as badly as a host's stream may.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "document/platform.h"

namespace tessary::test {

using Bytes = std::vector<uint8_t>;

// The methods of a stream that nothing of the codec calls.
struct ReadOnlyStream : public IStream {
#if defined(_WIN32)
    HRESULT STDMETHODCALLTYPE Write(const void*, ULONG, ULONG*) override { return E_FAIL; }
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) override { return E_FAIL; }
    HRESULT STDMETHODCALLTYPE CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*, ULARGE_INTEGER*) override {
        return E_FAIL;
    }
    HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Revert() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_FAIL; }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_FAIL; }
    HRESULT STDMETHODCALLTYPE Clone(IStream**) override { return E_FAIL; }
#endif
};

// Counts references as COM objects do, but lives where it is declared; Release never frees it.
class MemoryStream final : public ReadOnlyStream {
public:
    explicit MemoryStream(Bytes bytes) : m_bytes(std::move(bytes)) {}
    void Replace(Bytes bytes) { m_bytes = std::move(bytes); }  // as when the file changes meanwhile

    // Behaviour, to be set before use.
    uint32_t maxBytesPerRead = 0xFFFFFFFFu;  // delivers at most so many at once
    uint64_t failCall = 0;                   // this call of Read, Seek or Stat (1 is the first) fails
    bool failLater = false;                  // and all calls after it
    bool canSeek = true;                     // Seek fails when false
    bool seekSticks = false;                 // Seek succeeds, stays where it is and says so
    int64_t seekMisses = 0;                  // Seek lands so many bytes behind its target and says so
    bool claimsMore = false;                 // Read reports one byte more than it was asked for
    bool statFails = false;                  // Stat fails when true
    bool hasSize = false;                    // Stat reports `size` in place of the number of bytes
    uint64_t size = 0;
    uint64_t changeCall = 0;  // from this call on the stream holds `changed`
    Bytes changed;

    // Watched by tests.
    std::atomic<uint64_t> calls{0};
    std::atomic<uint64_t> bytesRead{0};
    std::atomic<long> references{1};
    uint64_t position = 0;

    HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG count, ULONG* read) override;
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) override;
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD flags) override;
#if defined(_WIN32)
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references); }
    ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--references); }
#endif

private:
    bool Fails();
    Bytes m_bytes;
};

}  // namespace tessary::test
