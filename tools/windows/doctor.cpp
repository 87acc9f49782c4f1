#include "tools/windows/doctor.h"

#include <windows.h>

#include <algorithm>
#include <cstring>

#include "tessary_version.h"
#include "tools/windows/console.h"
#include "tools/windows/picture_file.h"
#include "tools/windows/registration_facts.h"

namespace tessary::tools {
namespace {

// Two pixels, red and green, and the word of their writer that they are what the document looks like.
BYTE g_document[] = {
    '8', 'B', 'P', 'S', 0,   1,   0,   0,   0, 0,  0, 0, 0, 3, 0, 0,  0, 1, 0, 0, 0, 2, 0, 8, 0, 3,  // header
    0,   0,   0,   0,                                                        // colour mode data
    0,   0,   0,   30,  '8', 'B', 'I', 'M', 4, 33, 0, 0, 0, 0, 0, 17,        // one resource
    0,   0,   0,   1,   1,   0,   0,   0,   0, 0,  0, 0, 0, 0, 0, 0,  1, 0,  // version info
    0,   0,   0,   0,                                                        // layers
    0,   0,   255, 0,   0,   255, 0,   0,                                    // planes
};
constexpr BYTE kPixels[] = {0, 0, 255, 255, 0, 255, 0, 255};

class Findings {
public:
    void Add(const std::wstring& culprit) {
        std::fflush(stdout);
        Print(stderr, L"wicview: " + culprit);
        ++m_count;
    }
    size_t count() const { return m_count; }

private:
    size_t m_count = 0;
};

// The folder beside `folder` that has the DLL; empty when none has.
std::wstring FindDllBeside(const std::wstring& folder) {
    const std::wstring parent = FolderOf(folder);
    WIN32_FIND_DATAW found = {};
    const HANDLE search = FindFirstFileW((parent + L"\\*").c_str(), &found);
    std::wstring result;
    for (BOOL more = search != INVALID_HANDLE_VALUE; more && result.empty();
         more = FindNextFileW(search, &found)) {
        const std::wstring name = found.cFileName;
        if (name != L"." && name != L".." && FileExists(parent + L"\\" + name + L"\\Tessary.dll"))
            result = name;
    }
    if (search != INVALID_HANDLE_VALUE) FindClose(search);
    if (result.empty() && FileExists(parent + L"\\Tessary.dll")) return parent;
    return result.empty() ? result : parent + L"\\" + result;
}

void ExplainMissing(const ServerFacts& server, Findings& findings) {
    const std::wstring folder = FolderOf(server.path), found = FindDllBeside(folder);
    findings.Add(L"there is no " + server.path);
    if (found.empty()) {
        Print(stderr, L"  It was deleted or moved. Put it back, or remove what is left with \"tessary-setup "
                      L"uninstall\".");
    } else {
        Print(stderr, L"  Tessary.dll lies in " + found + L", and its folder has to be called " +
                          NameOf(folder) + L": move it to " + folder + L".");
    }
}

// Whether the DLL loads and yields the class object.
bool CheckServer(const std::wstring& path, Findings& findings) {
    const HMODULE module = LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (!module) {
        findings.Add(path + L" does not load: " + Explain(FailureFrom(GetLastError())));
        return false;
    }
    using GetClassObject = HRESULT(WINAPI*)(REFCLSID, REFIID, void**);
    const auto getClassObject = reinterpret_cast<GetClassObject>(
        reinterpret_cast<void*>(GetProcAddress(module, "DllGetClassObject")));
    HRESULT result = FailureFrom(DWORD{ERROR_PROC_NOT_FOUND});
    if (getClassObject) {
        ComPtr<IClassFactory> classObject;
        result = getClassObject(CLSID_Tessary, IID_IClassFactory, classObject.PutVoid());
    }
    FreeLibrary(module);
    PrintFact(L"loads", SUCCEEDED(result) ? L"yes" : L"yes, but gives out no decoder");
    if (FAILED(result)) findings.Add(path + L" gives out no decoder: " + Explain(result));
    return SUCCEEDED(result);
}

bool CheckRegistration(Findings& findings) {
    const auto servers = ReadServers();
    std::wstring whom;
    const ServerFacts* active = nullptr;
    bool listed = false;
    for (const ServerFacts& server : servers) {
        listed |= server.listed;
        if (server.written.empty()) continue;
        if (!active) active = &server;
        whom += (whom.empty() ? L"yes, for " : L" and for ") + std::wstring(server.whom);
    }
    PrintFact(L"registered", active ? whom : L"no");
    if (!active) {
        const std::wstring other = OtherRegisteredUser();
        findings.Add(other.empty()
                         ? L"Tessary is not registered: run \"tessary-setup install\""
                         : L"Tessary is registered for another user only (" + other +
                               L"): run \"tessary-setup install\", which registers it for the machine");
        return false;
    }
    PrintFact(L"listed decoder", listed ? L"yes" : L"no");
    PrintFact(L"written path", active->written);
    PrintFact(L"path", active->path);
    if (!FileExists(active->path)) {
        ExplainMissing(*active, findings);
        return false;
    }
    PrintFact(L"DLL version", FileVersion(active->path));
    if (!listed)
        findings.Add(L"Tessary is not listed among the decoders of the imaging component: run "
                     L"\"tessary-setup repair\"");
    return CheckServer(active->path, findings) && listed;
}

// Whether the picture comes from Tessary; names the decoder that it comes from when not.
bool IsOurs(const Picture& picture, Findings& findings) {
    if (IsEqualCLSID(DecoderClass(picture.decoder.get()), CLSID_Tessary)) return true;
    findings.Add(L"another decoder goes before Tessary: " + DecoderName(picture.decoder.get()) + L" " +
                 GuidText(DecoderClass(picture.decoder.get())));
    return false;
}

void DecodeOwnDocument(IWICImagingFactory* factory, Findings& findings) {
    Picture picture;
    HRESULT result = OpenPicture(factory, g_document, picture);
    BYTE pixels[sizeof(kPixels)] = {};
    if (SUCCEEDED(result)) {
        if (!IsOurs(picture, findings)) return;
        result = picture.frame->CopyPixels(nullptr, sizeof(pixels), sizeof(pixels), pixels);
    }
    const bool right = SUCCEEDED(result) && std::equal(pixels, pixels + sizeof(pixels), kPixels);
    PrintFact(L"decodes", right ? L"yes" : L"no");
    if (result == WINCODEC_ERR_COMPONENTNOTFOUND && ReadServers().back().written.empty()) {
        findings.Add(L"the imaging component of this system does not see decoders of one user: run "
                     L"\"tessary-setup install\", "
                     L"which registers it for the machine");
    } else if (FAILED(result)) {
        findings.Add(L"a sound document does not open: " + Explain(result));
    } else if (!right) {
        findings.Add(L"a sound document has got wrong pixels");
    }
}

void CheckHandlers(Findings& findings) {
    for (const wchar_t* const extension : {L".psd", L".pdd"}) {
        for (const HandlerFacts& handler : ReadHandlers(extension)) {
            PrintFact(std::wstring(extension) + L" " + handler.what,
                      handler.owner.empty() ? L"-" : handler.owner);
            const bool shown =
                !std::wcscmp(handler.what, L"thumbnails") || !std::wcscmp(handler.what, L"preview");
            if (handler.asRegistered || !shown) continue;
            findings.Add(handler.owner.empty()
                             ? L"nobody shows " + std::wstring(handler.what) + L" of " + extension +
                                   L": run \"tessary-setup repair\""
                             : L"another program has taken " + std::wstring(handler.what) + L" of " +
                                   extension + L": " + handler.owner + L", named by " + handler.place);
        }
    }
}

// The first bytes of a file; fewer when it is shorter.
std::string ReadStart(const std::wstring& path, DWORD offset, DWORD count) {
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return {};
    std::string bytes(count, '\0');
    DWORD read = 0;
    SetFilePointer(file, static_cast<LONG>(offset), nullptr, FILE_BEGIN);
    if (!ReadFile(file, bytes.data(), count, &read, nullptr)) read = 0;
    CloseHandle(file);
    bytes.resize(read);
    return bytes;
}

// A program that shows no documents may be one that Tessary cannot serve.
void CheckProgram(const std::wstring& path, const std::string& start, Findings& findings) {
    uint32_t offset = 0;
    if (start.size() >= 64) std::memcpy(&offset, start.data() + 60, 4);
    const std::string header = ReadStart(path, offset, 6);
    if (header.size() < 6 || header.compare(0, 2, "PE") != 0)
        return findings.Add(path + L" is not a Windows program");
    uint16_t machine = 0;
    std::memcpy(&machine, header.data() + 4, 2);
    PrintFact(L"program", machine == 0x8664   ? L"64 bits"
                          : machine == 0x014C ? L"32 bits"
                                              : L"made for another processor");
    if (machine != 0x8664)
        findings.Add(path +
                     L" is a program that Tessary cannot serve: it is not one of 64 bits for x64 processors");
}

void CheckFile(IWICImagingFactory* factory, const std::wstring& path, Findings& findings) {
    if (!FileExists(path)) return findings.Add(L"there is no file " + path);
    const std::string start = ReadStart(path, 0, 64);
    if (start.starts_with("MZ")) return CheckProgram(path, start, findings);
    if (start.size() < 26 || !start.starts_with("8BPS"))
        return findings.Add(path + L" is not a Photoshop document, whatever its name says");
    if (start[5] == 2)
        return findings.Add(path + L" is a large document (version 2, .psb), which Tessary does not read");
    Picture picture;
    HRESULT result = OpenPicture(factory, path, picture);
    if (SUCCEEDED(result)) {
        if (!IsOurs(picture, findings)) return;
        WICRect corner = {0, 0, 1, 1};
        BYTE pixel[4] = {};
        result = picture.frame->CopyPixels(&corner, 4, 4, pixel);
    }
    PrintFact(L"document", SUCCEEDED(result) ? path + L" decodes" : path + L" does not decode");
    if (FAILED(result))
        findings.Add(path + L" is itself damaged, or beyond what Tessary reads: " + Explain(result));
}

}  // namespace

int Doctor(const std::wstring& file) {
    Findings findings;
    PrintFact(L"wicview", TESSARY_VERSION_WIDE);
    if (sizeof(void*) != 8)
        findings.Add(L"this wicview is a program of 32 bits, which Tessary does not serve");
    const bool usable = CheckRegistration(findings);
    ComPtr<IWICImagingFactory> factory;
    const HRESULT result = StartImaging(factory);
    if (FAILED(result)) {
        findings.Add(L"the imaging component does not start: " + Explain(result));
    } else if (usable) {
        DecodeOwnDocument(factory.get(), findings);
        CheckHandlers(findings);
    }
    if (factory && !file.empty()) CheckFile(factory.get(), file, findings);
    Print(stdout, findings.count() == 0 ? L"All is well." : std::to_wstring(findings.count()) + L" found");
    return findings.count() > 0;
}

}  // namespace tessary::tools
