// Scope objects of the COM classes: references, locks, stream positions.
#pragma once

#include <windows.h>

#include <objidl.h>

#include <new>
#include <utility>

#include "frontend/codec.h"
#include "frontend/float_environment.h"
#include "frontend/stream_position.h"

namespace tessary {

// Thrown by constructors only, and caught where the object is made.
struct ComFailure {
    HRESULT result;
};

// Runs what a COM method does: in an environment of its own, and an exception of any kind becomes a failure
// code there.
template <class Work>
HRESULT Guarded(Work&& work) noexcept {
    const FloatEnvironmentScope floats;
    try {
        return work();
    } catch (const ComFailure& failure) {
        return failure.result;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_FAIL;
    }
}

// A reference to a COM object, or null. Not safe to change from two threads at once.
template <class T>
class ComPtr {
public:
    ComPtr() = default;
    ComPtr(std::nullptr_t) {}
    explicit ComPtr(T* object) : m_object(object) {
        if (m_object) m_object->AddRef();
    }
    ComPtr(const ComPtr& other) : ComPtr(other.m_object) {}
    ComPtr(ComPtr&& other) noexcept : m_object(other.Detach()) {}
    ComPtr& operator=(ComPtr other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~ComPtr() { Reset(); }

    // Takes over a reference that the caller holds.
    static ComPtr Attach(T* object) {
        ComPtr pointer;
        pointer.m_object = object;
        return pointer;
    }

    void Reset() {
        if (T* object = Detach()) object->Release();
    }
    [[nodiscard]] T* Detach() { return std::exchange(m_object, nullptr); }
    // For out-parameters: lets go of what is held and gives the place of the pointer.
    T** Put() {
        Reset();
        return &m_object;
    }
    void** PutVoid() { return reinterpret_cast<void**>(Put()); }

    // The object's interface `id`, null when it has none. U must be the type that `id` stands for.
    template <class U>
    ComPtr<U> As(REFIID id) const {
        ComPtr<U> other;
        if (!m_object || FAILED(m_object->QueryInterface(id, other.PutVoid()))) return nullptr;
        return other;
    }

    T* get() const { return m_object; }
    T* operator->() const { return m_object; }
    explicit operator bool() const { return m_object != nullptr; }

private:
    T* m_object = nullptr;
};

// Always a failure, even for code 0 of a call that failed without saying why.
inline HRESULT FailureFrom(DWORD code) { return static_cast<HRESULT>(0x80070000u | (code & 0xFFFFu)); }
inline HRESULT FailureFrom(LSTATUS code) { return FailureFrom(static_cast<DWORD>(code)); }

// A re-entrant lock, made in two steps.
class CriticalSection {
public:
    CriticalSection() = default;
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;
    ~CriticalSection() {
        if (m_initialized) DeleteCriticalSection(&m_section);
    }

    // To be called once, before the first Enter.
    HRESULT Initialize() {
        if (!InitializeCriticalSectionAndSpinCount(&m_section, 0)) return FailureFrom(GetLastError());
        m_initialized = true;
        return S_OK;
    }

    void Enter() { EnterCriticalSection(&m_section); }
    void Leave() { LeaveCriticalSection(&m_section); }

private:
    CRITICAL_SECTION m_section = {};
    bool m_initialized = false;
};

// A lock that is ready when its owner is; throws ComFailure when it cannot be.
class ReadyCriticalSection : public CriticalSection {
public:
    ReadyCriticalSection() {
        const HRESULT result = Initialize();
        if (FAILED(result)) throw ComFailure{result};
    }
};

class LockHolder {
public:
    explicit LockHolder(CriticalSection& lock) : m_lock(lock) { m_lock.Enter(); }
    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;
    ~LockHolder() { m_lock.Leave(); }

private:
    CriticalSection& m_lock;
};

// Holds the owner's lock, then the stream's own one if it has one, and a reference to the stream.
class StreamUse {
public:
    StreamUse(CriticalSection& lock, IStream* stream)
        : m_holder(lock), m_stream(stream), m_shared(m_stream.As<ISharedStream>(IID_ISharedStream)) {
        if (m_shared) m_shared->BeginUse();
    }
    StreamUse(const StreamUse&) = delete;
    StreamUse& operator=(const StreamUse&) = delete;
    ~StreamUse() {
        if (m_shared) m_shared->EndUse();
    }

private:
    LockHolder m_holder;
    ComPtr<IStream> m_stream;
    ComPtr<ISharedStream> m_shared;
};

// A use of the stream that ends where it began.
class StreamPositionKeeper {
public:
    StreamPositionKeeper(CriticalSection& lock, IStream* stream) : m_use(lock, stream), m_position(stream) {}

private:
    StreamUse m_use;
    StreamPositionScope m_position;
};

}  // namespace tessary
