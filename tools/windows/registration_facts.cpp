#include "tools/windows/registration_facts.h"

#include <objbase.h>

#include "frontend/codec.h"

namespace tessary::tools {
namespace {

constexpr wchar_t kClasses[] = L"Software\\Classes\\";
constexpr wchar_t kDecoders[] = L"CLSID\\{7ED96837-96F0-4812-B211-F13C24117ED3}\\Instance\\";
constexpr wchar_t kThumbnailHandler[] = L"\\ShellEx\\{E357FCCD-A995-4576-B01F-234630154E96}";
constexpr wchar_t kPreviewHandler[] = L"\\ShellEx\\{8895B1C6-B41F-4C1C-A562-0D564250836F}";
constexpr wchar_t kPropertyHandlers[] =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\PropertySystem\\PropertyHandlers\\";
constexpr wchar_t kUserChoice[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\FileExts\\";

// What registration writes: the system's own handlers for pictures, which ask the imaging component.
constexpr wchar_t kPhotoThumbnails[] = L"{C7657C4A-9F68-40FA-A4DF-96BC08EB3551}";
constexpr wchar_t kPhotoProperties[] = L"{A38B883C-1682-497E-97B0-0A3A9E801682}";

std::wstring OwnClass() {
    wchar_t text[40] = {};
    StringFromGUID2(CLSID_Tessary, text, 40);
    return text;
}

// What HKEY_CLASSES_ROOT shows: a user's own classes go before the machine's.
std::wstring ClassesText(const std::wstring& key) {
    const std::wstring text = RegistryText(HKEY_CURRENT_USER, kClasses + key, L"");
    return text.empty() ? RegistryText(HKEY_LOCAL_MACHINE, kClasses + key, L"") : text;
}

std::wstring ClassText(const std::wstring& id) {
    const std::wstring name = ClassesText(L"CLSID\\" + id);
    return name.empty() ? id : name + L" " + id;
}

// The first of the keys that names a handler of this kind. The shell asks the program identifier first.
HandlerFacts FindHandler(const wchar_t* what, const std::vector<std::wstring>& keys, const wchar_t* kind,
                         const wchar_t* expected) {
    for (const std::wstring& key : keys) {
        const std::wstring id = ClassesText(key + kind);
        if (!id.empty()) return {what, ClassText(id), L"HKCR\\" + key + kind, SameText(id, expected)};
    }
    return {what, L"", L"", *expected == L'\0'};
}

}  // namespace

std::vector<ServerFacts> ReadServers() {
    std::vector<ServerFacts> servers = {{HKEY_CURRENT_USER, L"this user", {}, {}, false},
                                        {HKEY_LOCAL_MACHINE, L"this machine", {}, {}, false}};
    for (ServerFacts& server : servers) {
        const std::wstring key = std::wstring(kClasses) + L"CLSID\\" + OwnClass() + L"\\InprocServer32";
        server.listed = RegistryKeyExists(server.root, std::wstring(kClasses) + kDecoders + OwnClass());
        server.path = RegistryText(server.root, key, L"");
        wchar_t written[1024] = {};
        DWORD bytes = sizeof(written) - sizeof(wchar_t);
        RegGetValueW(server.root, key.c_str(), nullptr, RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND,
                     nullptr, written, &bytes);
        server.written = *written ? written : server.path;
    }
    return servers;
}

std::wstring OtherRegisteredUser() {
    wchar_t user[256];
    for (DWORD i = 0; RegEnumKeyW(HKEY_USERS, i, user, 256) == ERROR_SUCCESS; ++i) {
        const std::wstring name = user;
        const std::wstring classes = name.ends_with(L"_Classes") ? L"\\" : L"\\Software\\Classes\\";
        if (RegistryKeyExists(HKEY_USERS, name + classes + L"CLSID\\" + OwnClass())) return name;
    }
    return {};
}

std::vector<HandlerFacts> ReadHandlers(const std::wstring& extension) {
    const std::wstring chosen =
        RegistryText(HKEY_CURRENT_USER, kUserChoice + extension + L"\\UserChoice", L"ProgId");
    const std::wstring program = chosen.empty() ? ClassesText(extension) : chosen;
    std::vector<std::wstring> keys;
    if (!program.empty()) keys.push_back(program);
    keys.push_back(extension);
    keys.push_back(L"SystemFileAssociations\\" + extension);

    const std::wstring properties = RegistryText(HKEY_LOCAL_MACHINE, kPropertyHandlers + extension, L"");
    return {{L"opened by", program, L"HKCR\\" + extension, SameText(program, L"Photoshop.Image")},
            FindHandler(L"thumbnails", keys, kThumbnailHandler, kPhotoThumbnails),
            FindHandler(L"preview", keys, kPreviewHandler, L""),
            {L"properties", properties.empty() ? L"" : ClassText(properties),
             std::wstring(L"HKLM\\") + kPropertyHandlers + extension,
             SameText(properties, kPhotoProperties)}};
}

std::wstring RegistryText(HKEY root, const std::wstring& key, const std::wstring& name) {
    std::wstring text(0x8001, L'\0');
    DWORD bytes = static_cast<DWORD>((text.size() - 1) * sizeof(wchar_t));
    const LSTATUS status =
        RegGetValueW(root, key.c_str(), name.c_str(), RRF_RT_REG_SZ, nullptr, text.data(), &bytes);
    return status == ERROR_SUCCESS ? text.c_str() : L"";
}

bool RegistryKeyExists(HKEY root, const std::wstring& key) {
    HKEY opened = nullptr;
    if (RegOpenKeyExW(root, key.c_str(), 0, KEY_READ, &opened) != ERROR_SUCCESS) return false;
    RegCloseKey(opened);
    return true;
}

bool FileExists(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

std::wstring FileVersion(const std::wstring& path) {
    const DWORD bytes = GetFileVersionInfoSizeW(path.c_str(), nullptr);
    std::vector<BYTE> info(bytes);
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    if (bytes == 0 || !GetFileVersionInfoW(path.c_str(), 0, bytes, info.data()) ||
        !VerQueryValueW(info.data(), L"\\", reinterpret_cast<void**>(&fixed), &length))
        return {};
    std::wstring text;
    for (const DWORD part : {fixed->dwFileVersionMS >> 16, fixed->dwFileVersionMS & 0xFFFF,
                             fixed->dwFileVersionLS >> 16, fixed->dwFileVersionLS & 0xFFFF})
        text += (text.empty() ? L"" : L".") + std::to_wstring(part);
    return text;
}

std::wstring FolderOf(const std::wstring& path) {
    const size_t end = path.find_last_of(L"\\/");
    return end == path.npos ? L"" : path.substr(0, end);
}

std::wstring NameOf(const std::wstring& path) { return path.substr(path.find_last_of(L"\\/") + 1); }

bool SameText(const std::wstring& a, const std::wstring& b) {
    return CompareStringOrdinal(a.c_str(), -1, b.c_str(), -1, TRUE) == CSTR_EQUAL;
}

}  // namespace tessary::tools
