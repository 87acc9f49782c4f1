// The module as one object: what keeps it loaded, which classes it makes, and its registration.
#pragma once

#include <windows.h>

#include <objbase.h>

#include <atomic>

#include "frontend/com_support.h"

namespace tessary {

// A creatable class.
struct ObjectMapRow {
    const CLSID* classId;
    IClassFactory* (*makeFactory)();
    HRESULT (*updateRegistry)(bool install, bool perUser);
    IClassFactory* factory;  // made on the first request, lives until the module is unloaded
};

class CTessaryModule {
public:
    void Lock() { ++m_lockCount; }
    void Unlock() { --m_lockCount; }
    void LockForClient();
    void UnlockForClient();

    HRESULT GetClassObject(REFCLSID classId, REFIID id, void** out);
    HRESULT CanUnloadNow() const { return m_lockCount == 0 ? S_OK : S_FALSE; }
    HRESULT RegisterServer() { return UpdateRegistry(true); }
    HRESULT UnregisterServer() { return UpdateRegistry(false); }
    HRESULT Install(bool install, const wchar_t* commandLine);

    // Called once, when the module is loaded.
    HRESULT Initialize() { return m_lock.Initialize(); }

private:
    HRESULT UpdateRegistry(bool install);

    std::atomic<LONG> m_lockCount{0};
    std::atomic<LONG> m_clientLocks{0};  // the part of m_lockCount that clients may give back
    CriticalSection m_lock;
    bool m_perUser = false;
};

}  // namespace tessary
