#include "frontend/registration.h"

#include <shlobj.h>
#include <shlwapi.h>

#include <new>

#include "frontend/com_support.h"
#include "frontend/resources/resource_ids.h"

namespace tessary {
namespace {

constexpr wchar_t kServerKey[] = L"CLSID\\{3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}\\InprocServer32";
constexpr wchar_t kUserClasses[] = L"Software\\Classes\\";
constexpr wchar_t kArchitectureFolder[] = L"%PROCESSOR_ARCHITECTURE%\\";
constexpr DWORD kPathCharacters = 520;

HRESULT ResultOf(LSTATUS code) { return code == ERROR_SUCCESS ? S_OK : FailureFrom(code); }

class SystemThreadLocale {
public:
    SystemThreadLocale() : m_previous(GetThreadLocale()) { SetThreadLocale(LOCALE_SYSTEM_DEFAULT); }
    SystemThreadLocale(const SystemThreadLocale&) = delete;
    SystemThreadLocale& operator=(const SystemThreadLocale&) = delete;
    ~SystemThreadLocale() { SetThreadLocale(m_previous); }

private:
    LCID m_previous;
};

HMODULE OwnModule() {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       kServerKey, &module);
    return module;
}

// Empty on failure. A path may be far longer than MAX_PATH.
std::wstring ModulePath(HMODULE module) {
    for (DWORD size = MAX_PATH; size <= 0x10000; size *= 2) {
        std::wstring path(size, L'\0');
        const DWORD length = GetModuleFileNameW(module, path.data(), size);
        if (length == 0) break;
        if (length >= size) continue;
        path.resize(length);
        return path;
    }
    return {};
}

// The text of a script, which is plain ASCII. Empty when the module has no such resource.
std::wstring LoadScript(HMODULE module, WORD number) {
    const HRSRC resource = FindResourceW(module, MAKEINTRESOURCEW(number), L"REGISTRY");
    const HGLOBAL loaded = resource ? LoadResource(module, resource) : nullptr;
    const auto* text = loaded ? static_cast<const unsigned char*>(LockResource(loaded)) : nullptr;
    return text ? std::wstring(text, text + SizeofResource(module, resource)) : std::wstring();
}

bool HasFeature() {
    const HMODULE shell = LoadLibraryW(L"shell32.dll");
    if (!shell) return false;
    const bool found = GetProcAddress(shell, "SetCurrentProcessExplicitAppUserModelID") != nullptr;
    FreeLibrary(shell);
    return found;
}

HRESULT ReadScript(std::wstring_view script, const std::wstring& modulePath, bool perUser,
                   std::vector<RegistryOperation>& operations) {
    if (script.empty()) return FailureFrom(ERROR_RESOURCE_NAME_NOT_FOUND);
    const std::wstring escaped = EscapeForScript(modulePath);
    const ScriptReplacement replacements[] = {{L"Module", escaped}, {L"Module_Raw", modulePath}};
    std::wstring expanded;
    const bool valid =
        ExpandScript(script, replacements, expanded) && ParseScript(expanded, perUser, operations);
    return valid ? S_OK : FailureFrom(ERROR_INVALID_DATA);
}

std::wstring Expand(const std::wstring& text) {
    const DWORD size = ExpandEnvironmentStringsW(text.c_str(), nullptr, 0);
    std::wstring expanded(size, L'\0');
    ExpandEnvironmentStringsW(text.c_str(), expanded.data(), size);
    return expanded.c_str();
}

void NotifyShell() { SHChangeNotify(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr); }

// Everything but the notification. What the script wrote is kept only when the path could be rewritten too.
HRESULT RegisterModule(bool perUser) {
    const RegistrationChoice choice = ExamineSystem();
    const HMODULE module = OwnModule();
    const std::wstring path = ModulePath(module);
    if (path.empty()) return FailureFrom(GetLastError());
    RegistryJournal journal;
    HRESULT result = S_OK;
    {
        const SystemThreadLocale locale;
        result = InstallScript(LoadScript(module, ChooseScript(choice)), path, perUser, journal);
    }
    if (SUCCEEDED(result) && choice.hasFeature) {
        // HKCR shows a user's own classes first, but not everywhere; where they lie is certain.
        result = perUser
                     ? RewriteServerPath(HKEY_CURRENT_USER, std::wstring(kUserClasses) + kServerKey, journal)
                     : RewriteServerPath(HKEY_CLASSES_ROOT, kServerKey, journal);
    }
    if (SUCCEEDED(result)) journal.Keep();
    return result;
}

HRESULT UnregisterModule(bool perUser) {
    const SystemThreadLocale locale;
    const HMODULE module = OwnModule();
    return RemoveScript(LoadScript(module, ChooseScript(ExamineSystem())), ModulePath(module), perUser);
}

}  // namespace

RegistrationChoice ExamineSystem() {
    RegistrationChoice choice;
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    if (GetVersionExW(&version)) {
        choice.majorVersion = version.dwMajorVersion;
        choice.minorVersion = version.dwMinorVersion;
    }
    choice.hasFeature = choice.majorVersion >= 6 && HasFeature();
    choice.photoshopPresent = IsPhotoshopPresent();
    return choice;
}

WORD ChooseScript(const RegistrationChoice& choice) {
    if (choice.hasFeature) {
        return choice.photoshopPresent ? IDR_PHOTOSHOP_PRESENT_FEATURE : IDR_PHOTOSHOP_ABSENT_FEATURE;
    }
    if (choice.majorVersion == 6 && choice.minorVersion == 0) {
        return choice.photoshopPresent ? IDR_PHOTOSHOP_PRESENT_6_0 : IDR_PHOTOSHOP_ABSENT_6_0;
    }
    return choice.photoshopPresent ? IDR_PHOTOSHOP_PRESENT_OLDER : IDR_PHOTOSHOP_ABSENT_OLDER;
}

bool IsPhotoshopPresent() {
    constexpr const wchar_t* kPhotoshopKeys[] = {
        L"Photoshop.Application\\CLSID",
        L"Applications\\Photoshop.exe",
        L"PhotoshopElements.Application\\CLSID",
        L"Applications\\PhotoshopElementsEditor.exe",
    };
    for (const wchar_t* path : kPhotoshopKeys) {
        HKEY key = nullptr;
        if (RegOpenKeyExW(HKEY_CLASSES_ROOT, path, 0, KEY_READ, &key) != ERROR_SUCCESS) continue;
        RegCloseKey(key);
        return true;
    }
    return false;
}

HRESULT ReadOwnScript(const std::wstring& modulePath, bool perUser,
                      std::vector<RegistryOperation>& operations) {
    return ReadScript(LoadScript(OwnModule(), ChooseScript(ExamineSystem())), modulePath, perUser,
                      operations);
}

HRESULT InstallScript(std::wstring_view script, const std::wstring& modulePath, bool perUser,
                      RegistryJournal& journal) {
    std::vector<RegistryOperation> operations;
    const HRESULT result = ReadScript(script, modulePath, perUser, operations);
    return FAILED(result) ? result : ResultOf(ApplyOperations(operations, journal));
}

HRESULT RemoveScript(std::wstring_view script, const std::wstring& modulePath, bool perUser) {
    std::vector<RegistryOperation> operations;
    const HRESULT result = ReadScript(script, modulePath, perUser, operations);
    return FAILED(result) ? result : ResultOf(RemoveOperations(operations));
}

HRESULT RewriteServerPath(HKEY root, const std::wstring& path, RegistryJournal& journal) {
    HKEY key = nullptr;
    LSTATUS status = RegOpenKeyExW(root, path.c_str(), 0, KEY_READ | KEY_WRITE, &key);
    if (status != ERROR_SUCCESS) return FailureFrom(status);
    const struct Closer {
        HKEY key;
        ~Closer() { RegCloseKey(key); }
    } closer{key};

    wchar_t value[kPathCharacters] = {};
    DWORD type = REG_NONE, bytes = sizeof(value);
    status = RegQueryValueExW(key, nullptr, nullptr, &type, reinterpret_cast<BYTE*>(value), &bytes);
    if (status != ERROR_SUCCESS) return FailureFrom(status);
    const bool terminated =
        bytes != 0 && bytes % sizeof(wchar_t) == 0 && value[bytes / sizeof(wchar_t) - 1] == L'\0';
    if ((type != REG_SZ && type != REG_EXPAND_SZ) || !terminated) return FailureFrom(ERROR_INVALID_DATA);

    const wchar_t* const fileName = PathFindFileNameW(value);
    if (!fileName || fileName == value) return E_UNEXPECTED;
    const wchar_t* const folder = StrRChrW(value, fileName - 1, L'\\');
    if (!folder) return E_UNEXPECTED;
    const std::wstring parent(value, static_cast<size_t>(folder + 1 - value));
    const std::wstring rewritten = parent + kArchitectureFolder + fileName;
    // Percent signs in the folders' own names would be read as variables: such a path has to stay plain.
    if (type == REG_SZ && Expand(rewritten) != parent + Expand(kArchitectureFolder) + fileName) return S_OK;
    status = journal.BeforeSettingValue(key, root, path, {});
    if (status != ERROR_SUCCESS) return FailureFrom(status);
    const size_t length = (rewritten.size() + 1) * sizeof(wchar_t);
    return ResultOf(RegSetValueExW(key, nullptr, 0, REG_EXPAND_SZ,
                                   reinterpret_cast<const BYTE*>(rewritten.c_str()),
                                   static_cast<DWORD>(length)));
}

HRESULT RegisterServer(bool perUser) {
    HRESULT result = E_OUTOFMEMORY;
    try {
        result = RegisterModule(perUser);
    } catch (const std::bad_alloc&) {
    }
    if (SUCCEEDED(result)) NotifyShell();
    return result;
}

HRESULT UnregisterServer(bool perUser) {
    HRESULT result = E_OUTOFMEMORY;
    try {
        result = UnregisterModule(perUser);
    } catch (const std::bad_alloc&) {
    }
    NotifyShell();
    return FAILED(result) ? result : S_OK;
}

}  // namespace tessary
