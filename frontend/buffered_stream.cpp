#include "frontend/buffered_stream.h"

#include <limits>
#include <utility>

namespace tessary {
namespace {

uint64_t RoundUpToPages(uint64_t size) {
    SYSTEM_INFO system = {};
    GetSystemInfo(&system);
    const uint64_t page = system.dwPageSize;
    return (size + page - 1) / page * page;
}

void FreePages(void* pages) {
    if (pages) VirtualFree(pages, 0, MEM_RELEASE);
}

}  // namespace

std::span<const InterfaceRow> CBufferedStream::InterfaceTable() {
    static constexpr InterfaceRow kRows[] = {
        Row<CBufferedStream, IStream>(IID_IStream),
        Row<CBufferedStream, IStream>(IID_ISequentialStream),
        Row<CBufferedStream, IBufferedStreamInit>(IID_IBufferedStreamInit),
        Row<CBufferedStream, ISharedStream>(IID_ISharedStream),
    };
    return kRows;
}

CBufferedStream::~CBufferedStream() { FreePages(m_readAhead.buffer); }

STDMETHODIMP CBufferedStream::Initialize(IStream* source, UINT bufferSize) {
    const LockHolder hold(m_objectLock);
    m_requestedSize = bufferSize;
    ReadAhead fresh;
    if (bufferSize != 0) {
        const uint64_t rounded = RoundUpToPages(bufferSize);
        if (rounded > std::numeric_limits<uint32_t>::max()) return E_OUTOFMEMORY;
        fresh.bufferSize = static_cast<uint32_t>(rounded);
        fresh.buffer =
            static_cast<uint8_t*>(VirtualAlloc(nullptr, fresh.bufferSize, MEM_COMMIT, PAGE_READWRITE));
        if (!fresh.buffer) return FailureFrom(GetLastError());
    }
    fresh.source = source;
    fresh.enabled = m_readAhead.enabled;
    FreePages(std::exchange(m_readAhead, fresh).buffer);
    m_source = ComPtr<IStream>(source);
    return S_OK;
}

STDMETHODIMP CBufferedStream::EnableBuffering(BOOL enable) {
    const LockHolder hold(m_objectLock);
    return EnableReadAhead(m_readAhead, enable != FALSE);
}

STDMETHODIMP CBufferedStream::Read(void* buffer, ULONG count, ULONG* read) {
    const LockHolder hold(m_objectLock);
    return ReadAheadRead(m_readAhead, buffer, count, read);
}

STDMETHODIMP CBufferedStream::Write(const void*, ULONG, ULONG*) {
    const LockHolder hold(m_objectLock);
    return m_source ? E_NOTIMPL : E_UNEXPECTED;
}

STDMETHODIMP CBufferedStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) {
    const LockHolder hold(m_objectLock);
    return ReadAheadSeek(m_readAhead, move, origin, newPosition);
}

STDMETHODIMP CBufferedStream::SetSize(ULARGE_INTEGER size) {
    const LockHolder hold(m_objectLock);
    return m_source ? m_source->SetSize(size) : E_UNEXPECTED;
}

STDMETHODIMP CBufferedStream::CopyTo(IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                                     ULARGE_INTEGER* written) {
    const LockHolder hold(m_objectLock);
    return m_source ? m_source->CopyTo(target, count, read, written) : E_UNEXPECTED;
}

STDMETHODIMP CBufferedStream::Commit(DWORD flags) {
    const LockHolder hold(m_objectLock);
    return m_source ? m_source->Commit(flags) : E_UNEXPECTED;
}

STDMETHODIMP CBufferedStream::Revert() {
    const LockHolder hold(m_objectLock);
    return m_source ? m_source->Revert() : E_UNEXPECTED;
}

STDMETHODIMP CBufferedStream::LockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count, DWORD lockType) {
    const LockHolder hold(m_objectLock);
    return m_source ? m_source->LockRegion(offset, count, lockType) : E_UNEXPECTED;
}

STDMETHODIMP CBufferedStream::UnlockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count, DWORD lockType) {
    const LockHolder hold(m_objectLock);
    return m_source ? m_source->UnlockRegion(offset, count, lockType) : E_UNEXPECTED;
}

STDMETHODIMP CBufferedStream::Stat(STATSTG* stat, DWORD flags) {
    const LockHolder hold(m_objectLock);
    return m_source ? m_source->Stat(stat, flags) : E_UNEXPECTED;
}

STDMETHODIMP CBufferedStream::Clone(IStream** clone) {
    const LockHolder hold(m_objectLock);
    return m_source ? m_source->Clone(clone) : E_UNEXPECTED;
}

}  // namespace tessary
