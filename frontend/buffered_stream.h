// The stream that the codec puts in front of its client's stream.
#pragma once

#include "frontend/codec.h"
#include "frontend/com_object.h"
#include "frontend/read_ahead.h"

namespace tessary {

// Serves small reads from one read-ahead buffer. A decoder and its frames share it: every call is safe by
// itself, and whoever needs the position to hold from one call to the next brackets them with BeginUse and
// EndUse.
class CBufferedStream final : public ComObject<CBufferedStream, IStream, IBufferedStreamInit, ISharedStream> {
public:
    static std::span<const InterfaceRow> InterfaceTable();
    CBufferedStream() = default;
    ~CBufferedStream() override;

    // IBufferedStreamInit
    STDMETHODIMP Initialize(IStream* source, UINT bufferSize) override;
    STDMETHODIMP EnableBuffering(BOOL enable) override;

    // ISharedStream
    STDMETHODIMP_(void) BeginUse() override { m_objectLock.Enter(); }
    STDMETHODIMP_(void) EndUse() override { m_objectLock.Leave(); }

    // IStream. All but the first three ask the source as it stands; the position here is not applied.
    STDMETHODIMP Read(void* buffer, ULONG count, ULONG* read) override;
    STDMETHODIMP Write(const void* buffer, ULONG count, ULONG* written) override;
    STDMETHODIMP Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) override;
    STDMETHODIMP SetSize(ULARGE_INTEGER size) override;
    STDMETHODIMP CopyTo(IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                        ULARGE_INTEGER* written) override;
    STDMETHODIMP Commit(DWORD flags) override;
    STDMETHODIMP Revert() override;
    STDMETHODIMP LockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count, DWORD lockType) override;
    STDMETHODIMP UnlockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count, DWORD lockType) override;
    STDMETHODIMP Stat(STATSTG* stat, DWORD flags) override;
    STDMETHODIMP Clone(IStream** clone) override;

private:
    UINT m_requestedSize = 0;
    ComPtr<IStream> m_source;
    ReadAhead m_readAhead;  // its source is m_source, its buffer is ours to free
};

}  // namespace tessary
