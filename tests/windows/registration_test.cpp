#include "frontend/registration.h"

#include <gtest/gtest.h>
#include <process.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "frontend/resources/resource_ids.h"
#include "tests/support/com_host.h"

namespace tessary::test {
namespace {

using Text = std::wstring;
using Lines = std::set<Text>;

// What is missing and what is too much; empty when nothing is.
std::string Difference(const Lines& want, const Lines& got) {
    std::string text;
    for (const Text& line : want)
        text += got.contains(line) ? "" : "- " + testing::PrintToString(line) + "\n";
    for (const Text& line : got)
        text += want.contains(line) ? "" : "+ " + testing::PrintToString(line) + "\n";
    return text;
}

// Data behind the letter of its type: text, or the bytes in hexadecimal. Long text stands as its FNV-1a hash.
Text DataText(DWORD type, const BYTE* data, size_t bytes) {
    const Text letter = {type <= REG_DWORD ? L"?sebd"[type] : L'?', L' '};
    Text text;
    if (type == REG_SZ || type == REG_EXPAND_SZ) {
        text.resize(bytes / 2);
        std::memcpy(text.data(), data, text.size() * 2);
        if (text.ends_with(L'\0')) text.pop_back();
    } else {
        for (size_t i = 0; i < bytes; ++i)
            text += {L"0123456789abcdef"[data[i] >> 4], L"0123456789abcdef"[data[i] & 15]};
    }
    if (text.size() <= 140) return letter + text;
    uint64_t hash = 0xcbf29ce484222325u;
    for (const wchar_t unit : text) hash = (hash ^ unit) * 0x100000001b3u;
    return letter + L"#" + std::to_wstring(hash);
}

// A key and what is below it, as lines: "Key", and "Key|Name=data".
void AddTree(HKEY root, const Text& path, const Text& shownAs, Lines& lines) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return;
    lines.insert(shownAs);
    wchar_t name[256];
    static BYTE data[1 << 14];
    DWORD length = 256, type = 0, bytes = sizeof(data);
    for (DWORD i = 0; RegEnumValueW(key, i, name, &length, nullptr, &type, data, &bytes) == ERROR_SUCCESS;
         ++i, length = 256, bytes = sizeof(data))
        lines.insert(shownAs + L"|" + name + L"=" + DataText(type, data, bytes));
    for (DWORD i = 0; RegEnumKeyW(key, i, name, 256) == ERROR_SUCCESS; ++i)
        AddTree(key, name, shownAs + L"\\" + name, lines);
    RegCloseKey(key);
}

// Everything in the private registry of the fixture: "M\..." of the machine, "U\..." of the user.
Lines Snapshot() {
    Lines lines;
    AddTree(HKEY_LOCAL_MACHINE, L"Software", L"M", lines);
    AddTree(HKEY_CURRENT_USER, L"Software", L"U", lines);
    return lines;
}

// In the process of this test the roots are keys of its own, empty at first, so that a snapshot is small,
// shows everything that was written, and other programs' registry stays as it is.
class Registration : public testing::Test {
protected:
    Registration() { Empty(); }
    ~Registration() override { Leave(); }

    static void Empty() {
        Leave();
        for (const auto& root : kRoots) {
            HKEY key = nullptr;
            ASSERT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, (kPlace + root.path).c_str(), &key), ERROR_SUCCESS);
            EXPECT_EQ(RegOverridePredefKey(root.key, key), ERROR_SUCCESS);
            RegCloseKey(key);
        }
        ASSERT_EQ(Difference(kEmpty, Snapshot()), "");
    }
    static void Leave() {
        for (const auto& root : kRoots) RegOverridePredefKey(root.key, nullptr);
        RegDeleteTreeW(HKEY_CURRENT_USER, kPlace.c_str());
    }

    static inline const Lines kEmpty = {L"M", L"M\\Classes"};

private:
    struct Root {
        HKEY key;
        const wchar_t* path;
    };
    static inline const Text kPlace = L"Software\\TessaryTest";
    // The user's comes last: the others are made through it.
    static inline const Root kRoots[] = {{HKEY_CLASSES_ROOT, L"\\M\\Software\\Classes"},
                                         {HKEY_LOCAL_MACHINE, L"\\M"},
                                         {HKEY_CURRENT_USER, L"\\U"}};
};

// What the scripts write: the last digits of those that do, a key and its values. '*' in a key stands for
// both extensions, '#' for the extension and the file association of both. '!' marks a key that goes with all
// that is in it, '~' one that stays.
constexpr wchar_t kTable[] = LR"(
!123456 Classes\CLSID\{3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}
|=s Photoshop Document Decoder (Lumivue Codec Pack)|Description=s Photoshop Document Decoder|Date=s 2014-01-15
|FriendlyName=s Photoshop Document Decoder (Lumivue Codec Pack)|Author=s Korvane|FileExtensions=s .psd,.pdd
|ColorManagementVersion=s 1.0.0.0|SpecVersion=s 1.0.0.0|Version=s 3.6.0.90|ArbitrationPriority=d 00000000
|ContainerFormat=s {9B2C4F61-0E3A-4D57-8C1B-6F4A2E9D3B85}|Vendor=s {E14B7A39-52C6-4F0D-9A81-3C7E5B2D4F60}
|MimeTypes=s image/vnd.adobe.photoshop,image/photoshop,image/psd,image/x-photoshop
|SupportAnimation=d 00000000|SupportChromakey=d 00000000|SupportLossless=d 01000000|SupportMultiframe=d 00000000
 123456 Classes\CLSID\{3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}\Patterns\0|Length=d 0e000000|Mask=b ffffffffffff000000000000ffc0|Pattern=b 3842505300010000000000000000|Position=d 00000000
 123456 Classes\CLSID\{3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}\Formats\{6FDDC324-4E03-4BFE-B185-3D77768DC90F}
 123456 Classes\CLSID\{3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}\InprocServer32|=MODULE|ThreadingModel=s both
~123456 Classes\CLSID\{7ED96837-96F0-4812-B211-F13C24117ED3}\Instance
 123456 Classes\CLSID\{7ED96837-96F0-4812-B211-F13C24117ED3}\Instance\{3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}|CLSID=s {3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}|FriendlyName=s Photoshop Document Decoder (Lumivue Codec Pack)
~123456 Classes\*|=s Photoshop.Image|Content Type=s image/vnd.adobe.photoshop|PerceivedType=s image
 123456 Classes\*\OpenWithProgids|Photoshop.Image=s |
 36 #\OpenWithList\ehshell.exe
 123456 #\OpenWithList\Lumivue.exe
 123456 #\OpenWithList\PhotoViewer.dll
!123456 #\ShellEx
 123456 #\ShellEx\{E357FCCD-A995-4576-B01F-234630154E96}|=s {C7657C4A-9F68-40FA-A4DF-96BC08EB3551}
 123456 #\ShellEx\{BB2E617C-0920-11D1-9A0B-00C04FC2D6C1}|=s {3F30C968-480A-4C6C-862D-EFC0897BB84B}
 123456 #\ShellEx\ContextMenuHandlers\ShellImagePreview|=s {FFE2A43C-56B9-4BF5-9A79-CC6D4285608A}
~123456 Classes\SystemFileAssociations
!123456 Classes\SystemFileAssociations\*
|PreviewDetails=s #9390233866296845507|FullDetails=s #6341139681094637844|InfoTip=s #13409757996402505078
|ExtendedTileInfo=s prop:System.ItemType;System.Size;System.DateModified;System.Photo.DateTaken;System.Image.Dimensions;System.OfflineAvailability
|SetDefaultsFor=s prop:System.Author;System.Document.DateCreated;System.Photo.DateTaken
 36 Classes\SystemFileAssociations\*\Shell\SetDesktopWallpaper|=e @%SystemRoot%\system32\stobject.dll,-417|MultiSelectModel=s Player|NeverDefault=s |SuppressionSlapiPolicy=s ChangeDesktopBackground-Enabled
 36 Classes\SystemFileAssociations\*\Shell\SetDesktopWallpaper\Command|=e %SystemRoot%\Explorer.exe|DelegateExecute=s {FF609CC7-D34D-4049-A1AA-2293517FFCC6}
~123456 Classes\Applications\Lumivue.exe
 123456 Classes\Applications\Lumivue.exe\SupportedTypes|.psd=s |.pdd=s |
~123456 Microsoft\Windows\CurrentVersion\PhotoPropertyHandler\ContainerAssociations|{9B2C4F61-0E3A-4D57-8C1B-6F4A2E9D3B85}=s {163BCC30-E2E9-4F0B-961D-A3E9FDB788A3}
~123456 Microsoft\Windows\CurrentVersion\PropertySystem\PropertyHandlers
 123456 Microsoft\Windows\CurrentVersion\PropertySystem\PropertyHandlers\*|=s {A38B883C-1682-497E-97B0-0A3A9E801682}
 123456 Velmar\Lumivue\Capabilities\FileAssociations|.psd=s Photoshop.Image|.pdd=s Photoshop.Image
~456 Classes\Photoshop.Image|=s Adobe Photoshop Image
 4 Classes\Photoshop.Image\DefaultIcon|=s shimgvw.dll,3
 56 Classes\Photoshop.Image\DefaultIcon|=e %SystemRoot%\System32\imageres.dll,-72
 45 Classes\Photoshop.Image\shell\open|MuiVerb=e @%ProgramFiles%\Windows Photo Gallery\PhotoViewer.dll,-3043
 6 Classes\Photoshop.Image\shell\open|MuiVerb=e @%ProgramFiles%\Windows Photo Viewer\PhotoViewer.dll,-3043
 45 Classes\Photoshop.Image\shell\open\command|=e %SystemRoot%\System32\rundll32.exe "%ProgramFiles%\Windows Photo Gallery\PhotoViewer.dll", ImageView_Fullscreen %1
 6 Classes\Photoshop.Image\shell\open\command|=e %SystemRoot%\System32\rundll32.exe "%ProgramFiles%\Windows Photo Viewer\PhotoViewer.dll", ImageView_Fullscreen %1
 456 Classes\Photoshop.Image\shell\open\DropTarget|CLSID=s {FFE2A43C-56B9-4BF5-9A79-CC6D4285608A}
 45 Classes\Photoshop.Image\shell\printto\command|=e %SystemRoot%\System32\rundll32.exe "%ProgramFiles%\Windows Photo Gallery\PhotoViewer.dll", ImageView_PrintTo /pt "%1" "%2" "%3" "%4"
 6 Classes\Photoshop.Image\shell\printto\command|=e %SystemRoot%\System32\rundll32.exe "%SystemRoot%\System32\shimgvw.dll", ImageView_PrintTo /pt "%1" "%2" "%3" "%4"
)";

// A snapshot after registration and one after removal, and the keys that go with all that is in them.
struct Expectation {
    Lines written, kept, whole;
};

// `module` is the data of the server's path.
Expectation Expect(int script, bool perUser, const Text& module) {
    Expectation want{{L"M", L"M\\Classes"}, {L"M", L"M\\Classes"}, {}};
    std::wistringstream rows(kTable);
    Lines keys;
    for (Text row, head, value; std::getline(rows, row);) {
        std::wistringstream pieces(row);
        std::getline(pieces, head, L'|');
        const size_t space = head.find(L' ', 1);
        const bool applies = head.find(std::to_wstring(script % 10)) < space;
        if (!head.empty()) keys.clear();
        for (const wchar_t* place : {L"Classes\\*", L"Classes\\SystemFileAssociations\\*"}) {
            for (const wchar_t* extension : {L".psd", L".pdd"}) {
                if (!applies) continue;
                Text key = head.substr(space + 1);
                if (key[0] == L'#') key.replace(0, 1, place);
                if (const size_t star = key.find(L'*'); star != key.npos) key.replace(star, 1, extension);
                keys.insert((perUser && key.starts_with(L"Classes") ? L"U\\" : L"M\\") + key);
            }
        }
        for (const Text& key : keys) {
            if (head[0] == L'!') want.whole.insert(key);
            for (size_t end = key.size(); end != key.npos; end = key.rfind(L'\\', end - 1)) {
                want.written.insert(key.substr(0, end));
                if (head[0] == L'~') want.kept.insert(key.substr(0, end));
            }
        }
        while (std::getline(pieces, value, L'|')) {
            if (value == L"=MODULE") value = L"=" + module;
            for (const Text& key : keys) want.written.insert(key + L"|" + value);
        }
    }
    return want;
}

Text DllPath() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(LoadDll(), path, MAX_PATH);
    return path;
}

Text Script(int number) {
    const HRSRC resource = FindResourceW(LoadDll(), MAKEINTRESOURCEW(number), L"REGISTRY");
    if (!resource) return {};
    const auto* text = static_cast<const char*>(LockResource(LoadResource(LoadDll(), resource)));
    return Text(text, text + SizeofResource(LoadDll(), resource));
}

HRESULT Install(const Text& script, const Text& module, bool perUser) {
    RegistryJournal journal;
    const HRESULT result = InstallScript(script, module, perUser, journal);
    if (SUCCEEDED(result)) journal.Keep();
    return result;
}

// Gives every key of the private registry one more value, or another default value when the name is empty.
void SetEverywhere(const wchar_t* name) {
    for (const Text& line : Snapshot()) {
        if (line.find(L'|') != line.npos) continue;
        const HKEY root = line[0] == L'U' ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
        EXPECT_EQ(RegSetKeyValueW(root, (L"Software" + line.substr(1)).c_str(), name, REG_SZ, L"x", 4),
                  ERROR_SUCCESS);
    }
}

TEST(RegistrationChoice, NamesTheScript) {
    const struct {
        bool feature;
        DWORD major, minor;
        int present;
    } cases[] = {{true, 6, 1, 103},  {true, 6, 0, 103},  {true, 10, 0, 103}, {false, 6, 0, 102},
                 {false, 6, 1, 101}, {false, 5, 0, 101}, {false, 0, 0, 101}, {false, 10, 0, 101}};
    for (const auto& test : cases) {
        EXPECT_EQ(ChooseScript({test.feature, test.major, test.minor, true}), test.present);
        EXPECT_EQ(ChooseScript({test.feature, test.major, test.minor, false}), test.present + 3);
    }
}

TEST_F(Registration, EveryScriptWritesItsTableAndTakesItBack) {
    const Text module = L"C:\\It's 100% \x00E9\x4E2D %PATH% %%\\AMD64\\" + Text(700, L'x') + L"\\Tessary.dll";
    const Text shown = DataText(REG_SZ, reinterpret_cast<const BYTE*>(module.c_str()), module.size() * 2);
    for (const int number : {101, 102, 103, 104, 105, 106}) {
        for (const bool perUser : {false, true}) {
            SCOPED_TRACE(std::to_string(number) + (perUser ? " per user" : ""));
            Expectation want = Expect(number, perUser, shown);
            ASSERT_EQ(Install(Script(number), module, perUser), S_OK);
            EXPECT_EQ(Difference(want.written, Snapshot()), "");
            ASSERT_EQ(RemoveScript(Script(number), module, perUser), S_OK);
            EXPECT_EQ(Difference(want.kept, Snapshot()), "");

            // What others have written stays, but not in a key that is registered whole.
            Lines others, changed;
            for (const Text& line : want.written) {
                const bool whole =
                    std::ranges::any_of(want.whole, [&](const Text& key) { return line.starts_with(key); });
                if (whole || line.find(L'|') != line.npos) continue;
                others.insert({line, line + L"|other=s x"});
                changed.insert(line + L"|=s x");
            }
            ASSERT_EQ(Install(Script(number), module, perUser), S_OK);
            SetEverywhere(L"other");
            ASSERT_EQ(Install(Script(number), module, perUser), S_OK);
            want.written.insert(others.begin(), others.end());
            EXPECT_EQ(Difference(want.written, Snapshot()), "");
            SetEverywhere(L"");
            ASSERT_EQ(RemoveScript(Script(number), module, perUser), S_OK);
            others.insert(changed.begin(), changed.end());
            EXPECT_EQ(Difference(others, Snapshot()), "");
            Empty();
        }
    }
}

// A key whose name is too long for the registry, put before every key in turn.
TEST_F(Registration, FailureAnywhereLeavesTheRegistryAsItWas) {
    // The program identifier is missing, everything else is there and has foreign values.
    ASSERT_EQ(Install(Script(103), L"C:\\Old\\AMD64\\Tessary.dll", false), S_OK);
    SetEverywhere(L"other");
    SetEverywhere(L"");
    const Text script = Script(106);
    const Lines before = Snapshot();
    int failures = 0;
    for (size_t end = script.find(L"\r\n\t"); end != script.npos; end = script.find(L"\r\n\t", end + 3)) {
        const Text next = script.substr(script.find_first_not_of(L"\r\n\t", end), 4);
        if (next == L"val " || next == L"{\r\n\t" || next[0] == L'}') continue;
        Text damaged = script;
        damaged.insert(end, L"\r\n" + Text(300, L'x'));
        EXPECT_TRUE(FAILED(Install(damaged, L"C:\\A\\AMD64\\Tessary.dll", false))) << end;
        ASSERT_EQ(Difference(before, Snapshot()), "") << end;
        ++failures;
    }
    EXPECT_EQ(failures, 84) << "not every key";
}

TEST_F(Registration, ReplacesTheFolderOfTheServerByTheArchitecture) {
    const auto unset = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    const auto invalid = HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
    const struct {
        DWORD type;
        Text value;
        HRESULT result;
        const wchar_t* want;
        bool terminated = true;
    } cases[] = {
        {REG_SZ, L"C:\\A\\B\\Tessary.dll", S_OK, L"C:\\A\\%PROCESSOR_ARCHITECTURE%\\Tessary.dll"},
        {REG_EXPAND_SZ, L"%X%\\x86\\Tessary.dll", S_OK, L"%X%\\%PROCESSOR_ARCHITECTURE%\\Tessary.dll"},
        {REG_SZ, L"C:\\x86\\Tessary.dll", S_OK, L"C:\\%PROCESSOR_ARCHITECTURE%\\Tessary.dll"},
        {REG_SZ, L"C:\\%TEMP%\\x86\\Tessary.dll", S_OK, nullptr},
        {REG_SZ, L"C:\\Tessary.dll", E_UNEXPECTED, nullptr},
        {REG_SZ, L"Tessary.dll", E_UNEXPECTED, nullptr},
        {REG_SZ, L"", E_UNEXPECTED, nullptr},
        {REG_SZ, L"C:\\A\\B\\Tessary.dll", invalid, nullptr, false},
        {REG_BINARY, L"C:\\A\\B\\Tessary.dll", invalid, nullptr},
        {REG_NONE, L"", unset, nullptr},  // no default value
        {REG_SZ, L"C:\\A\\" + Text(512, L'b') + L"\\T", S_OK, L"C:\\A\\%PROCESSOR_ARCHITECTURE%\\T"},
        {REG_SZ, L"C:\\A\\" + Text(513, L'b') + L"\\T", HRESULT_FROM_WIN32(ERROR_MORE_DATA), nullptr},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::PrintToString(test.value));
        Empty();
        // Without a terminator the next unit must not pass for one.
        const Text stored = test.terminated ? test.value + L'\0' : test.value + L'!';
        const DWORD bytes = static_cast<DWORD>((stored.size() - (test.terminated ? 0 : 1)) * 2);
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, L"Software", test.type == REG_NONE ? L"other" : nullptr,
                        test.type, stored.c_str(), bytes);
        const Lines before = Snapshot();
        Lines want = kEmpty;
        if (test.want) want.insert(Text(L"M|=e ") + test.want);
        {
            RegistryJournal journal;
            EXPECT_EQ(RewriteServerPath(HKEY_LOCAL_MACHINE, L"Software", journal), test.result);
            EXPECT_EQ(Difference(test.want ? want : before, Snapshot()), "");
        }
        EXPECT_EQ(Difference(before, Snapshot()), "");
    }
    RegistryJournal journal;
    EXPECT_EQ(RewriteServerPath(HKEY_LOCAL_MACHINE, L"Software\\None", journal), unset);
}

HRESULT InstallModule(HMODULE module, BOOL install, const wchar_t* commandLine) {
    return Export<HRESULT WINAPI(BOOL, LPCWSTR)>(module, "DllInstall")(install, commandLine);
}

TEST_F(Registration, ExportsRegisterForMachineAndUser) {
    // Beside Photoshop the program identifier is left to it.
    for (const wchar_t* sign :
         {L"Photoshop.Application\\CLSID", L"Applications\\Photoshop.exe",
          L"PhotoshopElements.Application\\CLSID", L"Applications\\PhotoshopElementsEditor.exe"}) {
        EXPECT_FALSE(IsPhotoshopPresent());
        HKEY key = nullptr;
        ASSERT_EQ(RegCreateKeyW(HKEY_CLASSES_ROOT, sign, &key), ERROR_SUCCESS);
        RegCloseKey(key);
        EXPECT_EQ(Export<HRESULT WINAPI()>(LoadDll(), "DllRegisterServer")(), S_OK) << sign;
        const Lines registered = Snapshot();
        EXPECT_TRUE(registered.contains(L"M\\Classes\\.pdd\\OpenWithList\\ehshell.exe"));
        EXPECT_FALSE(registered.contains(L"M\\Classes\\Photoshop.Image"));
        Empty();
    }

    const Text path = DllPath(), folder = path.substr(0, path.rfind(L'\\'));
    const Text server =
        L"e " + folder.substr(0, folder.rfind(L'\\')) + L"\\%PROCESSOR_ARCHITECTURE%\\Tessary.dll";
    const struct {
        const wchar_t *install, *remove;
        bool perUser;
    } cases[] = {
        {nullptr, nullptr, false}, {L"users", L"", false}, {L"use", L"user ", false},
        {L"User", L"USER", true},  {L"", nullptr, true},  // what the module was told once it keeps
    };
    for (const auto& test : cases) {
        const Expectation want = Expect(106, test.perUser, server);
        const LCID locale = GetThreadLocale();
        EXPECT_EQ(InstallModule(LoadDll(), TRUE, test.install), S_OK);
        EXPECT_EQ(Difference(want.written, Snapshot()), "") << &test - cases;
        EXPECT_EQ(InstallModule(LoadDll(), FALSE, test.remove), S_OK);
        EXPECT_EQ(Difference(want.kept, Snapshot()), "") << &test - cases;
        EXPECT_EQ(GetThreadLocale(), locale);
        Empty();
    }
}

// A server that lies in no folder cannot be registered.
TEST_F(Registration, FailsWhole) {
    const Text misplaced = L"C:\\Tessary.dll";
    ASSERT_TRUE(CopyFileW(DllPath().c_str(), misplaced.c_str(), FALSE));
    const HMODULE module = LoadLibraryW(misplaced.c_str());
    const auto registerServer = Export<HRESULT WINAPI()>(module, "DllRegisterServer");
    EXPECT_EQ(registerServer(), E_UNEXPECTED);
    EXPECT_EQ(Difference(kEmpty, Snapshot()), "");
    ASSERT_EQ(Install(Script(106), L"C:\\A\\AMD64\\Tessary.dll", false), S_OK);
    const Lines before = Snapshot(), kept = Expect(106, false, {}).kept;
    EXPECT_EQ(registerServer(), E_UNEXPECTED);
    EXPECT_EQ(Difference(before, Snapshot()), "");
    for (const wchar_t* commandLine : {L"", L"user"}) {
        EXPECT_EQ(InstallModule(module, TRUE, commandLine), E_UNEXPECTED);
        EXPECT_EQ(Difference(kept, Snapshot()), "") << "a failed installation is followed by removal";
    }
    FreeLibrary(module);
    EXPECT_TRUE(DeleteFileW(misplaced.c_str()));
}

// Its exit status. Each call is a process and a module of its own, as in life.
intptr_t RegSvr32(const wchar_t* options, const Text& dll) {
    const Text program = L"C:\\windows\\system32\\regsvr32.exe", quoted = L"\"" + dll + L"\"";
    return _wspawnl(_P_WAIT, program.c_str(), program.c_str(), L"/s", options, quoted.c_str(), nullptr);
}

bool HasServer(HKEY root) {
    const Text path = L"Software\\Classes\\CLSID\\{3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}\\InprocServer32";
    return RegGetValueW(root, path.c_str(), nullptr, RRF_RT_ANY, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

TEST(RegSvr32, LetsTheImagingComponentFindTheDecoder) {
    // Nothing in this folder's name may be taken for a quote, a variable or a letter of another code page.
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / L"it's 100% \x00E9\x4E2D %%x";
    const Text dll = folder / L"AMD64" / L"Tessary.dll", document = folder / L"picture.dat";
    std::filesystem::create_directories(folder / L"AMD64");
    ASSERT_TRUE(CopyFileW(DllPath().c_str(), dll.c_str(), FALSE));
    const Bytes bytes = RichDocument().Build();
    std::ofstream(std::filesystem::path(document), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));

    const auto open = [&] {
        const auto factory = Create<IWICImagingFactory>(CLSID_WICImagingFactory, IID_IWICImagingFactory);
        ComPtr<IWICBitmapDecoder> decoder;
        const HRESULT result = factory->CreateDecoderFromFilename(
            document.c_str(), nullptr, GENERIC_READ, WICDecodeMetadataCacheOnDemand, decoder.Put());
        GUID container = {};
        if (decoder) decoder->GetContainerFormat(&container);
        EXPECT_EQ(container.Data1, decoder ? 0x9B2C4F61u : 0u);
        return result;
    };
    RegSvr32(L"/u", dll);
    for (const Text& server : {DllPath(), dll}) {
        EXPECT_EQ(open(), WINCODEC_ERR_COMPONENTNOTFOUND);
        EXPECT_EQ(RegSvr32(L"", server), 0);
        EXPECT_EQ(open(), S_OK) << server;
        EXPECT_EQ(RegSvr32(L"/u", server), 0);
    }
    EXPECT_EQ(RegSvr32(L"/n /i:user", dll), 0);
    EXPECT_TRUE(HasServer(HKEY_CURRENT_USER));
    EXPECT_FALSE(HasServer(HKEY_LOCAL_MACHINE));
    EXPECT_EQ(RegSvr32(L"/u /n /i:user", dll), 0);
    EXPECT_FALSE(HasServer(HKEY_CURRENT_USER));
    CoFreeUnusedLibrariesEx(0, 0);
    std::filesystem::remove_all(folder);
}

// The loaded DLL, read as the loader does.
TEST(Module, NeedsOnlyTheSystemAndIsHardened) {
    const HMODULE module = LoadDll();
    const auto* const base = reinterpret_cast<const char*>(module);
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(
        base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const IMAGE_OPTIONAL_HEADER64& header = headers->OptionalHeader;
    const WORD hardening = IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE | IMAGE_DLLCHARACTERISTICS_NX_COMPAT |
                           IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA;
    EXPECT_EQ(header.DllCharacteristics & hardening, hardening);
    EXPECT_EQ(headers->FileHeader.Machine, IMAGE_FILE_MACHINE_AMD64);
    EXPECT_NE(header.DataDirectory[IMAGE_DIRECTORY_ENTRY_BASERELOC].Size, 0u);

    const std::set<std::string> system = {"advapi32.dll", "kernel32.dll",     "msvcrt.dll",  "ole32.dll",
                                          "oleaut32.dll", "psapi.dll",        "shell32.dll", "shlwapi.dll",
                                          "user32.dll",   "windowscodecs.dll"};
    const auto* import = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(
        base + header.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress);
    size_t imports = 0;
    for (; import->Name != 0; ++import, ++imports) {
        std::string name = base + import->Name;
        EXPECT_TRUE(system.contains(_strlwr(name.data()))) << name;
    }
    EXPECT_GT(imports, 3u);

    const auto* const exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(
        base + header.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT].VirtualAddress);
    const auto* const names = reinterpret_cast<const DWORD*>(base + exports->AddressOfNames);
    std::set<std::string> exported;
    for (DWORD i = 0; i < exports->NumberOfNames; ++i) exported.insert(base + names[i]);
    EXPECT_EQ(exported, (std::set<std::string>{"DllCanUnloadNow", "DllGetClassObject", "DllInstall",
                                               "DllRegisterServer", "DllUnregisterServer"}));

    wchar_t name[20] = {};
    EXPECT_EQ(LoadStringW(module, IDS_PROJECT_NAME, name, 20), 7);
    const HRSRC resource = FindResourceW(module, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(16));
    ASSERT_TRUE(resource);
    // The fixed part follows three words, the name of the block and padding.
    const auto* const version = static_cast<const uint8_t*>(LockResource(LoadResource(module, resource)));
    const auto* const fixed = reinterpret_cast<const VS_FIXEDFILEINFO*>(version + 40);
    EXPECT_EQ(fixed->dwSignature, 0xFEEF04BDu);
    EXPECT_EQ(fixed->dwFileVersionMS, 0x00030006u);
    EXPECT_EQ(fixed->dwFileVersionLS, 90u);
}

}  // namespace
}  // namespace tessary::test
