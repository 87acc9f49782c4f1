// tessary-setup: registers Tessary.dll, remembering what others had registered, and puts that back when it
// goes.
#include <windows.h>

#include <objbase.h>
#include <shlobj.h>

#include <string>
#include <vector>

#include "frontend/com_support.h"
#include "frontend/registration.h"
#include "tessary_version.h"
#include "tools/windows/console.h"
#include "tools/windows/registration_facts.h"
#include "tools/windows/registry_memory.h"

namespace {

using namespace tessary;
using namespace tessary::tools;

constexpr wchar_t kSetupKey[] = L"Software\\Tessary\\Setup";
constexpr wchar_t kMemoryKey[] = L"Software\\Tessary\\Setup\\Remembered";

// For whom the decoder is registered, and where that is remembered.
struct Scope {
    bool perUser;

    HKEY root() const { return perUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE; }
    const wchar_t* whom() const { return perUser ? L"this user" : L"this machine"; }
    const wchar_t* option() const { return perUser ? L" --user" : L""; }
};

int Fail(const std::wstring& what) {
    Print(stderr, L"tessary-setup: " + what);
    return 1;
}

std::wstring Reason(DWORD code) {
    switch (code) {
    case ERROR_ACCESS_DENIED:
        return L"access was denied. Open the command prompt with \"Run as administrator\" and try again";
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_USER_MAPPED_FILE:
        return L"the file is in use. Close the programs that show pictures (Explorer's windows, too), or log "
               L"off "
               L"and on, and try again";
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND: return L"there is no such file";
    case ERROR_BAD_EXE_FORMAT: return L"the file is damaged, or not made for this processor";
    case ERROR_DISK_FULL: return L"the disk is full";
    case ERROR_WRITE_PROTECT: return L"the disk is write-protected";
    default: return L"error " + Hex(FailureFrom(code));
    }
}

std::wstring Reason(HRESULT result) { return Reason(static_cast<DWORD>(result & 0xFFFF)); }

std::wstring OwnPath() {
    std::wstring path(0x8000, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

// Property handlers and capabilities lie in the machine's part even for one user.
bool MayRegister() {
    HKEY key = nullptr;
    const LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion",
                                         0, KEY_READ | KEY_WRITE, &key);
    if (status == ERROR_SUCCESS) RegCloseKey(key);
    return status == ERROR_SUCCESS;
}

int FailForRights() {
    return Fail(
        L"this needs administrator rights, also for one user, as the handlers of properties belong to the "
        L"machine. Open the command prompt with \"Run as administrator\" and try again");
}

// Replaces a file that may be loaded: what is loaded keeps its file under another name until the next start.
DWORD ReplaceFile(const std::wstring& from, const std::wstring& to) {
    if (CopyFileW(from.c_str(), to.c_str(), FALSE)) return ERROR_SUCCESS;
    const DWORD code = GetLastError();
    if (!FileExists(to)) return code;
    const std::wstring old = to + L".old" + std::to_wstring(GetTickCount());
    if (!MoveFileExW(to.c_str(), old.c_str(), 0)) return code;
    if (!CopyFileW(from.c_str(), to.c_str(), FALSE)) {
        const DWORD second = GetLastError();
        MoveFileExW(old.c_str(), to.c_str(), 0);
        return second;
    }
    if (!DeleteFileW(old.c_str())) MoveFileExW(old.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
    return ERROR_SUCCESS;
}

// Finds the DLL, or puts it, where registration wants it: in a folder AMD64. False when that failed, which
// was said.
bool PlaceDll(std::wstring& dll) {
    const std::wstring folder = FolderOf(OwnPath());
    const std::wstring beside = folder + L"\\Tessary.dll";
    if (SameText(NameOf(folder), L"AMD64") && FileExists(beside)) {
        dll = beside;
        return true;
    }
    dll = folder + L"\\AMD64\\Tessary.dll";
    if (FileExists(beside)) {
        CreateDirectoryW((folder + L"\\AMD64").c_str(), nullptr);
        const DWORD code = ReplaceFile(beside, dll);
        if (code == ERROR_SUCCESS) return true;
        Fail(L"cannot write " + dll + L": " + Reason(code));
        return false;
    }
    if (FileExists(dll)) return true;
    Fail(L"there is no Tessary.dll in " + folder +
         L"\\AMD64. Run tessary-setup from the folder that it came in");
    return false;
}

const ServerFacts* FindServer(const std::vector<ServerFacts>& servers, const Scope& scope) {
    for (const ServerFacts& server : servers) {
        if (server.root == scope.root() && !server.written.empty()) return &server;
    }
    return nullptr;
}

bool IsRegistered(const Scope& scope) {
    const auto servers = ReadServers();
    return FindServer(servers, scope) != nullptr;
}

bool IsReplaced(const RegistryPlace& place, const RegistryChange& change) {
    return place.value && change.before && change.before != change.after;
}

// What is remembered, or, when nothing is because somebody else has registered the decoder, what the scripts
// tell.
RegistryMemory WhatToPutBack(const Scope& scope, bool& remembered) {
    RegistryMemory memory = LoadMemory(scope.root(), kMemoryKey);
    remembered = !memory.empty();
    std::vector<RegistryOperation> operations;
    if (remembered || FAILED(ReadOwnScript(L"Tessary.dll", scope.perUser, operations))) return memory;
    return Remember(PlanRegistration(operations), {}, true);
}

// The memory's own key goes with the last that is in it.
LSTATUS Forget(const Scope& scope) {
    const LSTATUS status = RegDeleteTreeW(scope.root(), kSetupKey);
    RegDeleteKeyW(scope.root(), L"Software\\Tessary");  // fails when other keys are in it, as it should
    return status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status;
}

HRESULT CallRegistration(const std::wstring& dll, bool perUser) {
    const HMODULE module = LoadLibraryExW(dll.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (!module) return FailureFrom(GetLastError());
    using Register = HRESULT(WINAPI*)();
    using Install = HRESULT(WINAPI*)(BOOL, LPCWSTR);
    const char* const name = perUser ? "DllInstall" : "DllRegisterServer";
    const auto entry = reinterpret_cast<void*>(GetProcAddress(module, name));
    HRESULT result = FailureFrom(DWORD{ERROR_BAD_EXE_FORMAT});
    if (entry) {
        result =
            perUser ? reinterpret_cast<Install>(entry)(TRUE, L"user") : reinterpret_cast<Register>(entry)();
    }
    FreeLibrary(module);
    return result;
}

// After a failure the DLL has left the registry as it was, or, for one user, unregistered what was
// registered.
void TakeBack(const Scope& scope, const RegistryMemory& old, const RegistryMemory& memory) {
    if (IsRegistered(scope) && !old.empty()) {
        SaveMemory(scope.root(), kMemoryKey, old);
        return;
    }
    std::vector<RegistryPlace> takenOver;
    if (!IsRegistered(scope)) PutBack(memory, takenOver);
    Forget(scope);
}

int Install(const Scope& scope) {
    if (!MayRegister()) return FailForRights();
    std::wstring dll;
    if (!PlaceDll(dll)) return 1;

    std::vector<RegistryOperation> operations;
    HRESULT result = ReadOwnScript(dll, scope.perUser, operations);
    if (FAILED(result)) return Fail(L"the registration scripts cannot be read: " + Reason(result));
    const RegistryMemory old = LoadMemory(scope.root(), kMemoryKey);
    RegistryMemory memory = Remember(PlanRegistration(operations), old, IsRegistered(scope));
    // Before anything is changed, so that nothing is lost should this program be stopped.
    LSTATUS status = SaveMemory(scope.root(), kMemoryKey, memory);
    if (status != ERROR_SUCCESS)
        return Fail(L"cannot remember what is registered now: " + Reason(static_cast<DWORD>(status)));

    result = CallRegistration(dll, scope.perUser);
    if (FAILED(result)) {
        TakeBack(scope, old, memory);
        return Fail(L"cannot register " + dll + L": " + Reason(result) + L". The registry is as it was");
    }
    ForgetUntouched(memory, scope.root());
    status = SaveMemory(scope.root(), kMemoryKey, memory);
    if (status != ERROR_SUCCESS)
        return Fail(L"cannot remember what was registered: " + Reason(static_cast<DWORD>(status)));
    size_t foreign = 0;
    for (const auto& [place, change] : memory) foreign += IsReplaced(place, change);
    Print(stdout, L"Tessary is registered for " + std::wstring(scope.whom()) + L" from " + dll);
    if (foreign > 0)
        Print(stdout, L"What it replaced, " + std::to_wstring(foreign) +
                          L" values, is remembered and comes back with \"tessary-setup uninstall" +
                          scope.option() + L"\"");
    return 0;
}

int Uninstall(const Scope& scope) {
    if (!MayRegister()) return FailForRights();
    const auto servers = ReadServers();
    const ServerFacts* const server = FindServer(servers, scope);
    bool remembered = false;
    const RegistryMemory memory = WhatToPutBack(scope, remembered);
    if (!server && !remembered) {
        if (!IsRegistered({!scope.perUser})) {
            Print(stdout, L"Tessary is not registered");
            return 0;
        }
        return Fail(L"Tessary is not registered for " + std::wstring(scope.whom()) + L" but for " +
                    Scope{!scope.perUser}.whom() + L": use \"tessary-setup uninstall" +
                    Scope{!scope.perUser}.option() + L"\"");
    }
    std::vector<RegistryPlace> takenOver;
    LSTATUS status = PutBack(memory, takenOver);
    if (status == ERROR_SUCCESS) status = Forget(scope);
    SHChangeNotify(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr);
    for (const RegistryPlace& place : takenOver)
        Print(stdout, L"Left as another program has set it since: " + PlaceText(place));
    if (status != ERROR_SUCCESS)
        return Fail(L"not everything could be put back: " + Reason(static_cast<DWORD>(status)));
    Print(stdout, L"Tessary is no longer registered for " + std::wstring(scope.whom()) +
                      (remembered ? L"; what it had replaced is back" : L""));
    return 0;
}

int Repair(const Scope& scope) {
    if (!IsRegistered(scope) && LoadMemory(scope.root(), kMemoryKey).empty())
        return Fail(L"Tessary is not registered for " + std::wstring(scope.whom()) +
                    L": use \"tessary-setup install" + scope.option() + L"\"");
    return Install(scope);
}

std::wstring DataText(const std::optional<RawValue>& value) {
    if (!value) return L"nothing";
    if (value->type != REG_SZ && value->type != REG_EXPAND_SZ)
        return std::to_wstring(value->data.size()) + L" bytes";
    const std::wstring text(reinterpret_cast<const wchar_t*>(value->data.data()), value->data.size() / 2);
    return L"\"" + text.substr(0, text.find(L'\0')) + L"\"";
}

int Status() {
    bool works = false;
    for (const ServerFacts& server : ReadServers()) {
        if (server.written.empty()) {
            PrintFact(server.whom, L"not registered");
            continue;
        }
        const bool there = FileExists(server.path);
        works |= there && server.listed;
        PrintFact(server.whom, server.written);
        PrintFact(L"", there ? server.path + L", version " + FileVersion(server.path)
                             : server.path + L" is missing: use \"tessary-setup repair" +
                                   Scope{server.root == HKEY_CURRENT_USER}.option() + L"\"");
        if (!server.listed) PrintFact(L"", L"not listed among the decoders");
    }
    for (const HandlerFacts& handler : ReadHandlers(L".psd")) {
        PrintFact(handler.what, (handler.owner.empty() ? L"nobody" : handler.owner) +
                                    (handler.asRegistered ? L"" : L" (not set by Tessary)"));
    }
    for (const bool perUser : {true, false}) {
        const RegistryMemory memory = LoadMemory(Scope{perUser}.root(), kMemoryKey);
        if (memory.empty()) continue;
        Print(stdout, L"Uninstalling for " + std::wstring(Scope{perUser}.whom()) +
                          L" removes what was not there and puts back:");
        bool any = false;
        for (const auto& [place, change] : memory) {
            if (!IsReplaced(place, change)) continue;
            Print(stdout, L"  " + PlaceText(place) + L": " + DataText(change.before));
            any = true;
        }
        if (!any) Print(stdout, L"  nothing, for nobody had registered anything");
    }
    return works ? 0 : 1;
}

constexpr wchar_t kUsage[] =
    L"usage: tessary-setup COMMAND [--user]\n"
    L"  install    registers the Tessary.dll in the folder AMD64 beside this program, and remembers what\n"
    L"             other programs had registered\n"
    L"  uninstall  removes the registration and puts back what was there; works without the DLL, too\n"
    L"  repair     registers again, when something is missing or others have changed it\n"
    L"  status     shows what is registered, by whom, and what is remembered; 0 when the decoder is there\n"
    L"  --user     for this user instead of the machine; administrator rights are needed all the same\n"
    L"  --version  prints the version, --help this";

int Run(int count, wchar_t** arguments) {
    const std::wstring command = count > 1 ? arguments[1] : L"";
    if (command == L"--help" || command == L"-h" || command == L"/?") {
        Print(stdout, kUsage);
        return 0;
    }
    if (command == L"--version") {
        Print(stdout, L"tessary-setup " TESSARY_VERSION_WIDE);
        return 0;
    }
    const bool perUser = count == 3 && std::wstring(arguments[2]) == L"--user";
    const Scope scope{perUser};
    if (count == 2 || perUser) {
        if (command == L"install") return Install(scope);
        if (command == L"uninstall") return Uninstall(scope);
        if (command == L"repair") return Repair(scope);
        if (command == L"status" && !perUser) return Status();
    }
    Print(stderr, kUsage);
    return 2;
}

}  // namespace

extern "C" int wmain(int count, wchar_t** arguments) {
    SetConsoleOutputCP(CP_UTF8);
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    int status = 1;
    try {
        status = Run(count, arguments);
    } catch (const std::bad_alloc&) {
        Fail(L"out of memory");
    }
    CoUninitialize();
    return std::fflush(stdout) != 0 ? 1 : status;
}
