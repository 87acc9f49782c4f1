#include "frontend/module.h"

#include <olectl.h>

#include <cwchar>

#include "frontend/com_object.h"
#include "frontend/decoder.h"
#include "frontend/registration.h"

namespace tessary {
namespace {

CTessaryModule g_module;

IClassFactory* DecoderFactory() {
    static ClassFactory<CTessary> factory;
    return &factory;
}

HRESULT UpdateDecoderRegistry(bool install, bool perUser) {
    return install ? RegisterServer(perUser) : UnregisterServer(perUser);
}

ObjectMapRow g_objectMap[] = {
    {&CLSID_Tessary, DecoderFactory, UpdateDecoderRegistry, nullptr},
};

}  // namespace

void LockModule() { g_module.Lock(); }
void UnlockModule() { g_module.Unlock(); }
void LockModuleForClient() { g_module.LockForClient(); }
void UnlockModuleForClient() { g_module.UnlockForClient(); }

void CTessaryModule::LockForClient() {
    ++m_clientLocks;
    Lock();
}

void CTessaryModule::UnlockForClient() {
    LONG held = m_clientLocks;
    while (held > 0 && !m_clientLocks.compare_exchange_weak(held, held - 1)) {
    }
    if (held > 0) Unlock();
}

HRESULT CTessaryModule::GetClassObject(REFCLSID classId, REFIID id, void** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    for (ObjectMapRow& row : g_objectMap) {
        if (!IsEqualCLSID(classId, *row.classId)) continue;
        LockHolder hold(m_lock);
        if (!row.factory) row.factory = row.makeFactory();
        return row.factory->QueryInterface(id, out);
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT CTessaryModule::UpdateRegistry(bool install) {
    HRESULT result = S_OK;
    for (const ObjectMapRow& row : g_objectMap) {
        result = Guarded([&] { return row.updateRegistry(install, m_perUser); });
        if (FAILED(result)) break;
    }
    return result;
}

HRESULT CTessaryModule::Install(bool install, const wchar_t* commandLine) {
    // Five characters, so that what begins with the word is not taken for it.
    if (commandLine && _wcsnicmp(commandLine, L"user", 5) == 0) m_perUser = true;
    if (!install) return UnregisterServer();
    const HRESULT result = RegisterServer();
    if (FAILED(result)) UnregisterServer();
    return result;
}

}  // namespace tessary

STDAPI DllInstall(BOOL install, LPCWSTR commandLine);

STDAPI DllGetClassObject(REFCLSID classId, REFIID id, void** out) {
    return tessary::g_module.GetClassObject(classId, id, out);
}

STDAPI DllCanUnloadNow() { return tessary::g_module.CanUnloadNow(); }
STDAPI DllRegisterServer() { return tessary::g_module.RegisterServer(); }
STDAPI DllUnregisterServer() { return tessary::g_module.UnregisterServer(); }

STDAPI DllInstall(BOOL install, LPCWSTR commandLine) {
    return tessary::g_module.Install(install != FALSE, commandLine);
}

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    return reason != DLL_PROCESS_ATTACH || SUCCEEDED(tessary::g_module.Initialize());
}
