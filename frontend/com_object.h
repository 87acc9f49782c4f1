// What every COM object of the module does in the same way: references, interfaces, the module lock,
// creation.
#pragma once

#include <windows.h>

#include <objbase.h>
#include <unknwn.h>

#include <atomic>
#include <new>
#include <span>

#include "frontend/com_support.h"

namespace tessary {

// The count of what keeps the module loaded: live objects, and locks that clients took. A client that unlocks
// more often than it locked changes nothing.
void LockModule();
void UnlockModule();
void LockModuleForClient();
void UnlockModuleForClient();

struct InterfaceRow {
    const IID* id;
    IUnknown* (*cast)(void* object);
};

// A row that answers `id` with the object's Branch. Branch may derive from the interface that `id` names: a
// frame is a bitmap source through its frame interface.
template <class Object, class Branch>
constexpr InterfaceRow Row(const IID& id) {
    return {&id,
            [](void* object) -> IUnknown* { return static_cast<Branch*>(static_cast<Object*>(object)); }};
}

// Base of the COM class Object, which says what it is with
//     static std::span<const InterfaceRow> InterfaceTable();   // the first row also answers IUnknown
// and may hide FinalConstruct, the last step of creation, which runs with a reference held.
// Born with one reference, which CreateComObject takes over; holds the module lock while it lives.
template <class Object, class... Interfaces>
class ComObject : public Interfaces... {
public:
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    STDMETHODIMP QueryInterface(REFIID id, void** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        const std::span<const InterfaceRow> table = Object::InterfaceTable();
        for (const InterfaceRow& row : table) {
            if (!IsEqualIID(id, *row.id) && !(&row == &table.front() && IsEqualIID(id, IID_IUnknown)))
                continue;
            IUnknown* answer = row.cast(static_cast<Object*>(this));
            answer->AddRef();
            *out = answer;
            return S_OK;
        }
        return E_NOINTERFACE;
    }

    STDMETHODIMP_(ULONG) AddRef() override { return ++m_references; }

    STDMETHODIMP_(ULONG) Release() override {
        const ULONG left = --m_references;
        if (left == 0) {
            // A part that is let go of during destruction may touch the count once more; it must not reach 0
            // again.
            m_references = kDestroying;
            delete static_cast<Object*>(this);
        }
        return left;
    }

    HRESULT FinalConstruct() { return S_OK; }
    HRESULT InitializeObjectLock() { return m_objectLock.Initialize(); }

protected:
    ComObject() { LockModule(); }
    virtual ~ComObject() { UnlockModule(); }

    CriticalSection m_objectLock;  // for the object's own small state; ready after creation

private:
    static constexpr ULONG kDestroying = 0x40000000;
    std::atomic<ULONG> m_references{1};
};

// A ComObject that can be used from every apartment without a proxy: IMarshal is the free-threaded
// marshaler's.
template <class Object, class... Interfaces>
class FreeThreadedObject : public ComObject<Object, Interfaces...> {
    using Base = ComObject<Object, Interfaces...>;

public:
    HRESULT FinalConstruct() {
        return CoCreateFreeThreadedMarshaler(
            Object::InterfaceTable().front().cast(static_cast<Object*>(this)), m_freeThreadedMarshaler.Put());
    }
    STDMETHODIMP QueryInterface(REFIID id, void** out) override {
        if (out && m_freeThreadedMarshaler && IsEqualIID(id, IID_IMarshal))
            return m_freeThreadedMarshaler->QueryInterface(id, out);
        return Base::QueryInterface(id, out);
    }

private:
    ComPtr<IUnknown> m_freeThreadedMarshaler;
};

// Makes an Object; null with a failure code when any step of it fails.
template <class Object>
HRESULT ConstructComObject(ComPtr<Object>& object) {
    object.Reset();
    return Guarded([&]() -> HRESULT {
        auto made = ComPtr<Object>::Attach(new (std::nothrow) Object());
        if (!made) return E_OUTOFMEMORY;
        HRESULT result = made->InitializeObjectLock();
        if (SUCCEEDED(result)) result = made->FinalConstruct();
        if (SUCCEEDED(result)) object = std::move(made);
        return result;
    });
}

// Makes an Object and gives out its interface `id`.
template <class Object>
HRESULT CreateComObject(REFIID id, void** out) {
    *out = nullptr;
    ComPtr<Object> object;
    const HRESULT result = ConstructComObject(object);
    return FAILED(result) ? result : object->QueryInterface(id, out);
}

// The module's one factory of Object. Clients' references to it are counted for nothing: it lives with the
// module and does not keep it loaded.
template <class Object>
class ClassFactory final : public IClassFactory {
public:
    STDMETHODIMP QueryInterface(REFIID id, void** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (!IsEqualIID(id, IID_IUnknown) && !IsEqualIID(id, IID_IClassFactory)) return E_NOINTERFACE;
        AddRef();
        *out = static_cast<IClassFactory*>(this);
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_references; }
    STDMETHODIMP_(ULONG) Release() override { return --m_references; }

    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID id, void** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (outer) return CLASS_E_NOAGGREGATION;
        return CreateComObject<Object>(id, out);
    }

    STDMETHODIMP LockServer(BOOL lock) override {
        if (lock) {
            LockModuleForClient();
        } else {
            UnlockModuleForClient();
        }
        return S_OK;
    }

private:
    std::atomic<ULONG> m_references{1};  // the module's
};

}  // namespace tessary
