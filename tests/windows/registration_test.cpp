#include "frontend/registration.h"

#include <gtest/gtest.h>
#include <process.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
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

std::string Utf8(const Text& text) {
    std::string utf8(text.size() * 3 + 1, '\0');
    utf8.resize(static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, text.data(),
                                                        static_cast<int>(text.size()), utf8.data(),
                                                        static_cast<int>(utf8.size()), nullptr, nullptr)));
    return utf8;
}

std::string Join(const Lines& lines) {
    std::string text;
    for (const Text& line : lines) text += Utf8(line) + "\n";
    return text;
}

Lines Minus(const Lines& a, const Lines& b) {
    Lines rest;
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::inserter(rest, rest.end()));
    return rest;
}

// The registry as lines: "M\Key" of the machine, "U\Key" of the user, and "M\Key|Name=data" with the data
// behind the letter of its type. Long texts stand as their FNV-1a hash.
Text DataText(DWORD type, const BYTE* data, size_t bytes) {
    if (type == REG_DWORD && bytes == 4) {
        DWORD number = 0;
        std::memcpy(&number, data, 4);
        return L"d " + std::to_wstring(number);
    }
    if (type != REG_SZ && type != REG_EXPAND_SZ) {
        Text hex = type == REG_BINARY ? L"b " : L"? ";
        for (size_t i = 0; i < bytes; ++i)
            hex += {L"0123456789abcdef"[data[i] >> 4], L"0123456789abcdef"[data[i] & 15]};
        return hex;
    }
    Text text(bytes / 2, L'\0');
    std::memcpy(text.data(), data, text.size() * 2);
    if (!text.empty() && text.back() == L'\0') text.pop_back();
    const Text letter = type == REG_SZ ? L"s " : L"e ";
    if (text.size() <= 140) return letter + text;
    uint64_t hash = 0xcbf29ce484222325u;
    for (const wchar_t unit : text) hash = (hash ^ unit) * 0x100000001b3u;
    wchar_t digits[20];
    swprintf(digits, 20, L"#%016llx", static_cast<unsigned long long>(hash));
    return letter + digits;
}

void AddTree(HKEY root, const Text& path, const Text& shownAs, Lines& lines) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return;
    lines.insert(shownAs);
    std::vector<wchar_t> name(16384);
    std::vector<BYTE> data(1 << 16);
    for (DWORD i = 0;; ++i) {
        DWORD length = 16384, type = 0, bytes = static_cast<DWORD>(data.size());
        if (RegEnumValueW(key, i, name.data(), &length, nullptr, &type, data.data(), &bytes) != ERROR_SUCCESS)
            break;
        lines.insert(shownAs + L"|" + Text(name.data(), length) + L"=" + DataText(type, data.data(), bytes));
    }
    for (DWORD i = 0;; ++i) {
        DWORD length = 16384;
        if (RegEnumKeyExW(key, i, name.data(), &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        const Text child = L"\\" + Text(name.data(), length);
        // The system's classes are thousands; that they are there is enough.
        const bool many = shownAs.ends_with(L"\\CLSID") || shownAs.ends_with(L"\\Interface");
        if (many && !child.starts_with(L"\\{3D6A1E52-") && !child.starts_with(L"\\{7ED96837-")) {
            lines.insert(shownAs + child);
        } else {
            AddTree(key, child.substr(1), shownAs + child, lines);
        }
    }
    RegCloseKey(key);
}

Lines Snapshot() {
    Lines lines;
    AddTree(HKEY_LOCAL_MACHINE, L"Software", L"M", lines);
    AddTree(HKEY_CURRENT_USER, L"Software", L"U", lines);
    return lines;
}

const Text kClassKey = L"Classes\\CLSID\\{3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}";

const wchar_t* const kWatched[] = {
    L"Classes\\CLSID\\{3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}",
    L"Classes\\CLSID\\{7ED96837-96F0-4812-B211-F13C24117ED3}",
    L"Classes\\.psd",
    L"Classes\\.pdd",
    L"Classes\\SystemFileAssociations",
    L"Classes\\Applications",
    L"Classes\\Photoshop.Image",
    L"Microsoft\\Windows\\CurrentVersion\\PhotoPropertyHandler",
    L"Microsoft\\Windows\\CurrentVersion\\PropertySystem",
    L"Velmar",
};

// The same for the places that registration touches: quick enough for hundreds.
Lines QuickSnapshot() {
    Lines lines;
    for (const Text path : kWatched) AddTree(HKEY_LOCAL_MACHINE, L"Software\\" + path, L"M\\" + path, lines);
    return lines;
}

// What the scripts should write: the last digits of those that do and a key, then its values. '*' in a key
// stands for both extensions, '#' for the extension and the file association of both.
constexpr wchar_t kExpected[] = LR"(
123456 Classes\CLSID\{3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}
|=s Photoshop Document Decoder (Lumivue Codec Pack)
|Author=s Korvane
|ColorManagementVersion=s 1.0.0.0
|ContainerFormat=s {9B2C4F61-0E3A-4D57-8C1B-6F4A2E9D3B85}
|Date=s 2014-01-15
|Description=s Photoshop Document Decoder
|FileExtensions=s .psd,.pdd
|FriendlyName=s Photoshop Document Decoder (Lumivue Codec Pack)
|MimeTypes=s image/vnd.adobe.photoshop,image/photoshop,image/psd,image/x-photoshop
|SpecVersion=s 1.0.0.0
|SupportAnimation=d 0
|SupportChromakey=d 0
|SupportLossless=d 1
|SupportMultiframe=d 0
|Vendor=s {E14B7A39-52C6-4F0D-9A81-3C7E5B2D4F60}
|Version=s 3.6.0.90
|ArbitrationPriority=d 0
123456 Classes\CLSID\{3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}\Patterns\0
|Length=d 14
|Mask=b ffffffffffff000000000000ffc0
|Pattern=b 3842505300010000000000000000
|Position=d 0
123456 Classes\CLSID\{3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}\Formats\{6FDDC324-4E03-4BFE-B185-3D77768DC90F}
123456 Classes\CLSID\{3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}\InprocServer32
|=s MODULE
|ThreadingModel=s both
123456 Classes\CLSID\{7ED96837-96F0-4812-B211-F13C24117ED3}\Instance\{3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}
|CLSID=s {3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}
|FriendlyName=s Photoshop Document Decoder (Lumivue Codec Pack)
123456 Classes\*
|=s Photoshop.Image
|Content Type=s image/vnd.adobe.photoshop
|PerceivedType=s image
123456 Classes\*\OpenWithProgids
|Photoshop.Image=s 
36 #\OpenWithList\ehshell.exe
123456 #\OpenWithList\Lumivue.exe
123456 #\OpenWithList\PhotoViewer.dll
123456 #\ShellEx\{E357FCCD-A995-4576-B01F-234630154E96}
|=s {C7657C4A-9F68-40FA-A4DF-96BC08EB3551}
123456 #\ShellEx\{BB2E617C-0920-11D1-9A0B-00C04FC2D6C1}
|=s {3F30C968-480A-4C6C-862D-EFC0897BB84B}
123456 #\ShellEx\ContextMenuHandlers\ShellImagePreview
|=s {FFE2A43C-56B9-4BF5-9A79-CC6D4285608A}
123456 Classes\SystemFileAssociations\*
|PreviewDetails=s #8250cff3267764c3
|FullDetails=s #580040f172c79914
|InfoTip=s #ba1907d98b867576
|ExtendedTileInfo=s prop:System.ItemType;System.Size;System.DateModified;System.Photo.DateTaken;System.Image.Dimensions;System.OfflineAvailability
|SetDefaultsFor=s prop:System.Author;System.Document.DateCreated;System.Photo.DateTaken
36 Classes\SystemFileAssociations\*\Shell\SetDesktopWallpaper
|=e @%SystemRoot%\system32\stobject.dll,-417
|MultiSelectModel=s Player
|NeverDefault=s 
|SuppressionSlapiPolicy=s ChangeDesktopBackground-Enabled
36 Classes\SystemFileAssociations\*\Shell\SetDesktopWallpaper\Command
|=e %SystemRoot%\Explorer.exe
|DelegateExecute=s {FF609CC7-D34D-4049-A1AA-2293517FFCC6}
123456 Classes\Applications\Lumivue.exe\SupportedTypes
|.psd=s 
|.pdd=s 
123456 Microsoft\Windows\CurrentVersion\PhotoPropertyHandler\ContainerAssociations
|{9B2C4F61-0E3A-4D57-8C1B-6F4A2E9D3B85}=s {163BCC30-E2E9-4F0B-961D-A3E9FDB788A3}
123456 Microsoft\Windows\CurrentVersion\PropertySystem\PropertyHandlers\*
|=s {A38B883C-1682-497E-97B0-0A3A9E801682}
123456 Velmar\Lumivue\Capabilities\FileAssociations
|.psd=s Photoshop.Image
|.pdd=s Photoshop.Image
456 Classes\Photoshop.Image
|=s Adobe Photoshop Image
4 Classes\Photoshop.Image\DefaultIcon
|=s shimgvw.dll,3
56 Classes\Photoshop.Image\DefaultIcon
|=e %SystemRoot%\System32\imageres.dll,-72
45 Classes\Photoshop.Image\shell\open
|MuiVerb=e @%ProgramFiles%\Windows Photo Gallery\PhotoViewer.dll,-3043
6 Classes\Photoshop.Image\shell\open
|MuiVerb=e @%ProgramFiles%\Windows Photo Viewer\PhotoViewer.dll,-3043
45 Classes\Photoshop.Image\shell\open\command
|=e %SystemRoot%\System32\rundll32.exe "%ProgramFiles%\Windows Photo Gallery\PhotoViewer.dll", ImageView_Fullscreen %1
6 Classes\Photoshop.Image\shell\open\command
|=e %SystemRoot%\System32\rundll32.exe "%ProgramFiles%\Windows Photo Viewer\PhotoViewer.dll", ImageView_Fullscreen %1
456 Classes\Photoshop.Image\shell\open\DropTarget
|CLSID=s {FFE2A43C-56B9-4BF5-9A79-CC6D4285608A}
45 Classes\Photoshop.Image\shell\printto\command
|=e %SystemRoot%\System32\rundll32.exe "%ProgramFiles%\Windows Photo Gallery\PhotoViewer.dll", ImageView_PrintTo /pt "%1" "%2" "%3" "%4"
6 Classes\Photoshop.Image\shell\printto\command
|=e %SystemRoot%\System32\rundll32.exe "%SystemRoot%\System32\shimgvw.dll", ImageView_PrintTo /pt "%1" "%2" "%3" "%4"
)";

// Keys that removal leaves.
constexpr wchar_t kKept[] = LR"(
123456 Classes\CLSID\{7ED96837-96F0-4812-B211-F13C24117ED3}\Instance
123456 Classes\*
123456 Classes\SystemFileAssociations
123456 Classes\Applications\Lumivue.exe
456 Classes\Photoshop.Image
123456 Microsoft\Windows\CurrentVersion\PhotoPropertyHandler\ContainerAssociations
123456 Microsoft\Windows\CurrentVersion\PropertySystem\PropertyHandlers
)";

// The rows of a table for one script, as a snapshot shows them: a key with all the keys above it, and its
// values.
Lines Expected(const wchar_t* table, int script, bool perUser, const Text& module = {}) {
    Lines lines;
    std::wistringstream rows(table);
    std::vector<Text> keys;
    for (Text row; std::getline(rows, row);) {
        const size_t space = row.find(L' ');
        if (row.empty()) continue;
        if (row[0] != L'|') {
            keys.clear();
            if (row.substr(0, space).find(static_cast<wchar_t>(L'0' + script % 10)) == Text::npos) continue;
            for (const wchar_t* place : {L"Classes\\*", L"Classes\\SystemFileAssociations\\*"}) {
                for (const wchar_t* extension : {L".psd", L".pdd"}) {
                    Text key = row.substr(space + 1);
                    if (key[0] == L'#') key.replace(0, 1, place);
                    if (const size_t star = key.find(L'*'); star != key.npos) key.replace(star, 1, extension);
                    keys.push_back((perUser && key.starts_with(L"Classes") ? L"U\\" : L"M\\") + key);
                }
            }
        }
        for (const Text& key : keys) {
            for (size_t end = 1; end != Text::npos; end = key.find(L'\\', end + 1))
                lines.insert(key.substr(0, end));
            lines.insert(key);
            if (row[0] == L'|') lines.insert(key + (row == L"|=s MODULE" ? L"|=s " + module : row));
        }
    }
    return lines;
}

Text WindowsPath(const char* path) {
    Text text(path, path + std::strlen(path));
    std::replace(text.begin(), text.end(), L'/', L'\\');
    return text[0] == L'\\' ? L"Z:" + text : text;
}

Text DllPath() { return WindowsPath(TESSARY_DLL_DIR "/Tessary.dll"); }

Text Script(int number) {
    const HMODULE module = LoadLibraryExW(DllPath().c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    const HRSRC resource = FindResourceW(module, MAKEINTRESOURCEW(number), L"REGISTRY");
    if (!resource) return {};
    const auto* text = static_cast<const char*>(LockResource(LoadResource(module, resource)));
    const Text script(text, text + SizeofResource(module, resource));
    FreeLibrary(module);
    return script;
}

// Its exit status. Each call is a process and a module of its own, as in life.
intptr_t RegSvr32(const Text& options, const Text& dll = DllPath()) {
    const Text quoted = L"\"" + dll + L"\"";
    return _wspawnlp(_P_WAIT, L"regsvr32.exe", L"regsvr32.exe", L"/s", options.c_str(), quoted.c_str(),
                     nullptr);
}

// Starts and ends without any trace of the codec in the registry.
class Registration : public testing::Test {
protected:
    Registration() { Clean(); }
    ~Registration() override { Clean(); }

    static void Clean() {
        for (const bool perUser : {false, true}) {
            EXPECT_EQ(RemoveScript(Script(IDR_PHOTOSHOP_ABSENT_FEATURE), L"x", perUser), S_OK);
            Lines kept = Expected(kKept, IDR_PHOTOSHOP_ABSENT_FEATURE, perUser);
            for (auto line = kept.rbegin(); line != kept.rend(); ++line) {
                const HKEY root = line->front() == L'U' ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
                const Text path = L"Software" + line->substr(1);
                HKEY key = nullptr;
                if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) continue;
                DWORD keys = 0, values = 0;
                RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values, nullptr,
                                 nullptr, nullptr, nullptr);
                RegCloseKey(key);
                if (keys == 0 && values == 0) RegDeleteKeyW(root, path.c_str());
            }
        }
    }
};

void SetText(const Text& path, const wchar_t* name, const Text& text) {
    const DWORD bytes = static_cast<DWORD>((text.size() + 1) * 2);
    EXPECT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, (L"Software\\" + path).c_str(), name, REG_SZ, text.c_str(),
                              bytes),
              ERROR_SUCCESS);
}

TEST(RegistrationChoice, NamesTheScript) {
    const struct {
        bool feature;
        DWORD major, minor;
        WORD present, absent;
    } cases[] = {
        {true, 6, 1, 103, 106},  {true, 6, 0, 103, 106},  {true, 10, 0, 103, 106},
        {false, 6, 0, 102, 105}, {false, 6, 1, 101, 104}, {false, 5, 1, 101, 104},
        {false, 5, 0, 101, 104}, {false, 0, 0, 101, 104}, {false, 10, 0, 101, 104},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(ChooseScript({test.feature, test.major, test.minor, true}), test.present) << test.present;
        EXPECT_EQ(ChooseScript({test.feature, test.major, test.minor, false}), test.absent) << test.absent;
    }
}

TEST_F(Registration, EveryScriptWritesItsTableAndTakesItBack) {
    const Text module = L"C:\\It's 100% \x00E9\x4E2D %PATH% %%\\AMD64\\" + Text(700, L'x') + L"\\Tessary.dll";
    const Lines before = Snapshot();
    Text hashed =
        DataText(REG_SZ, reinterpret_cast<const BYTE*>(module.c_str()), module.size() * 2).substr(2);
    for (int number = 101; number <= 106; ++number) {
        for (const bool perUser : {false, true}) {
            SCOPED_TRACE(std::to_string(number) + (perUser ? " per user" : ""));
            {
                RegistryJournal journal;
                ASSERT_EQ(InstallScript(Script(number), module, perUser, journal), S_OK);
                journal.Keep();
            }
            const Lines expected = Expected(kExpected, number, perUser, hashed);
            const Lines registered = Snapshot();
            EXPECT_EQ(Join(Minus(expected, registered)), "");
            EXPECT_EQ(Join(Minus(Minus(registered, before), expected)), "");
            EXPECT_EQ(Join(Minus(before, registered)), "");

            ASSERT_EQ(RemoveScript(Script(number), module, perUser), S_OK);
            const Lines removed = Snapshot();
            EXPECT_EQ(Join(Minus(before, removed)), "");
            EXPECT_EQ(Join(Minus(removed, before)), Join(Minus(Expected(kKept, number, perUser), before)));
            Clean();
        }
    }
    EXPECT_EQ(Join(Snapshot()), Join(before));
}

TEST_F(Registration, RemovalLeavesWhatOthersWrote) {
    const Text script = Script(106);
    {
        RegistryJournal journal;
        ASSERT_EQ(InstallScript(script, L"C:\\A\\B\\Tessary.dll", false, journal), S_OK);
        journal.Keep();
    }
    SetText(L"Classes\\.psd", nullptr, L"Other.Image");
    SetText(L"Classes\\.psd\\OpenWithProgids", L"Other.Image", L"");
    SetText(kClassKey + L"\\Foreign", L"x", L"y");
    ASSERT_EQ(RemoveScript(script, L"C:\\A\\B\\Tessary.dll", false), S_OK);
    const Lines left = QuickSnapshot();
    EXPECT_TRUE(left.contains(L"M\\Classes\\.psd|=s Other.Image"));
    EXPECT_TRUE(left.contains(L"M\\Classes\\.psd\\OpenWithProgids|Other.Image=s "));
    EXPECT_FALSE(left.contains(L"M\\Classes\\.psd|PerceivedType=s image"));
    EXPECT_FALSE(left.contains(L"M\\Classes\\.pdd|=s Photoshop.Image"));
    EXPECT_FALSE(left.contains(L"M\\" + kClassKey + L"\\Foreign"));
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"Software\\Classes\\.psd");
}

// A key whose name is too long for the registry, put behind every line of the script in turn.
TEST_F(Registration, FailureAnywhereLeavesTheRegistryAsItWas) {
    const Text script = Script(106), module = L"C:\\A\\AMD64\\Tessary.dll";
    for (const bool registeredBefore : {false, true}) {
        if (registeredBefore) {
            RegistryJournal journal;
            ASSERT_EQ(InstallScript(Script(103), L"C:\\Old\\AMD64\\Tessary.dll", false, journal), S_OK);
            journal.Keep();
            SetText(L"Classes\\.psd", nullptr, L"Other.Image");
            SetText(kClassKey + L"\\Foreign\\Deep", L"x", L"y");
        }
        const Lines before = QuickSnapshot();
        int failures = 0;
        for (size_t end = script.find(L"\r\n"); end != script.npos; end = script.find(L"\r\n", end + 2)) {
            const size_t next = script.find_first_not_of(L"\r\n\t", end);
            if (next == script.npos || script[next] == L'{' || script.compare(next, 4, L"HKLM") == 0)
                continue;
            Text damaged = script;
            damaged.insert(end, L"\r\n" + Text(300, L'x'));
            {
                RegistryJournal journal;
                EXPECT_TRUE(FAILED(InstallScript(damaged, module, false, journal))) << end;
            }
            ++failures;
            const Lines after = QuickSnapshot();
            ASSERT_EQ(Join(Minus(before, after)), "") << end;
            ASSERT_EQ(Join(Minus(after, before)), "") << end;
        }
        EXPECT_GT(failures, 150);
    }
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"Software\\Classes\\.psd");
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
        {REG_DWORD, L"", unset, nullptr, false},  // stands for no value at all
        {REG_SZ, L"C:\\A\\" + Text(512, L'b') + L"\\T", S_OK, L"C:\\A\\%PROCESSOR_ARCHITECTURE%\\T"},
        {REG_SZ, L"C:\\A\\" + Text(513, L'b') + L"\\T", HRESULT_FROM_WIN32(ERROR_MORE_DATA), nullptr},
    };
    const Text path = L"Software\\Classes\\Tessary.Test";
    for (const auto& test : cases) {
        SCOPED_TRACE(Utf8(test.value));
        HKEY key = nullptr;
        ASSERT_EQ(RegCreateKeyW(HKEY_LOCAL_MACHINE, path.c_str(), &key), ERROR_SUCCESS);
        // Without a terminator the next unit must not pass for one.
        const Text stored = test.terminated ? test.value + L'\0' : test.value + L'!';
        const DWORD bytes = static_cast<DWORD>((stored.size() - (test.terminated ? 0 : 1)) * 2);
        if (test.type != REG_DWORD) {
            RegSetValueExW(key, nullptr, 0, test.type, reinterpret_cast<const BYTE*>(stored.c_str()), bytes);
        }
        RegCloseKey(key);
        Lines before, after, undone;
        AddTree(HKEY_LOCAL_MACHINE, path, L"T", before);
        {
            RegistryJournal journal;
            EXPECT_EQ(RewriteServerPath(HKEY_LOCAL_MACHINE, path, journal), test.result);
            AddTree(HKEY_LOCAL_MACHINE, path, L"T", after);
            EXPECT_EQ(Join(after), test.want ? "T\nT|=e " + Utf8(test.want) + "\n" : Join(before));
        }
        AddTree(HKEY_LOCAL_MACHINE, path, L"T", undone);
        EXPECT_EQ(Join(undone), Join(before));
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, path.c_str());
    }
    RegistryJournal journal;
    EXPECT_EQ(RewriteServerPath(HKEY_LOCAL_MACHINE, path, journal), unset);
}

TEST_F(Registration, RegSvr32RegistersForMachineAndUser) {
    const Text folder = WindowsPath(TESSARY_DLL_DIR);
    const Text rewritten = L"\\InprocServer32|=e " + folder.substr(0, folder.rfind(L'\\')) +
                           L"\\%PROCESSOR_ARCHITECTURE%\\Tessary.dll";
    const struct {
        const wchar_t *install, *remove;
        bool perUser;
    } cases[] = {
        {L"", L"/u", false},
        {L"/n /i:user", L"/u /n /i:user", true},
        {L"/n /i:USER", L"/u /n /i:User", true},
        {L"/n /i:users", L"/u /n /i:use", false},
    };
    const Lines before = Snapshot();
    for (const auto& test : cases) {
        SCOPED_TRACE(Utf8(test.install));
        EXPECT_EQ(RegSvr32(test.install), 0);
        const Lines registered = Snapshot(), added = Minus(registered, before);
        EXPECT_TRUE(added.contains((test.perUser ? L"U\\" : L"M\\") + kClassKey + rewritten));
        Lines expected = Expected(kExpected, 106, test.perUser);
        std::erase_if(expected, [](const Text& line) { return line.ends_with(L"InprocServer32|=s "); });
        EXPECT_EQ(Join(Minus(expected, registered)), "");
        EXPECT_EQ(Minus(added, expected).size(), 1u) << Join(Minus(added, expected));
        EXPECT_EQ(RegSvr32(test.remove), 0);
        const Lines kept = Minus(Expected(kKept, 106, test.perUser), before);
        EXPECT_EQ(Join(Minus(Snapshot(), before)), Join(kept));
        Clean();
    }

    // Beside Photoshop the program identifier is left to it.
    for (const wchar_t* sign :
         {L"Photoshop.Application\\CLSID", L"Applications\\Photoshop.exe",
          L"PhotoshopElements.Application\\CLSID", L"Applications\\PhotoshopElementsEditor.exe"}) {
        HKEY key = nullptr;
        EXPECT_FALSE(IsPhotoshopPresent());
        ASSERT_EQ(RegCreateKeyW(HKEY_CLASSES_ROOT, sign, &key), ERROR_SUCCESS);
        RegCloseKey(key);
        EXPECT_TRUE(IsPhotoshopPresent());
        const Text top = sign;
        RegDeleteTreeW(HKEY_CLASSES_ROOT,
                       top.starts_with(L"App") ? sign : top.substr(0, top.find(L'\\')).c_str());
    }
    HKEY key = nullptr;
    RegCreateKeyW(HKEY_CLASSES_ROOT, L"Applications\\Photoshop.exe", &key);
    RegCloseKey(key);
    EXPECT_EQ(RegSvr32(L""), 0);
    const Lines registered = QuickSnapshot();
    EXPECT_TRUE(registered.contains(L"M\\Classes\\.pdd\\OpenWithList\\ehshell.exe"));
    EXPECT_FALSE(registered.contains(L"M\\Classes\\Photoshop.Image"));
    EXPECT_EQ(RegSvr32(L"/u"), 0);
    RegDeleteTreeW(HKEY_CLASSES_ROOT, L"Applications\\Photoshop.exe");
}

HRESULT OpenByName(const Text& path, GUID& container) {
    ComPtr<IWICImagingFactory> factory;
    HRESULT result = CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                                      IID_IWICImagingFactory, factory.PutVoid());
    if (FAILED(result)) return result;
    ComPtr<IWICBitmapDecoder> decoder;
    result = factory->CreateDecoderFromFilename(path.c_str(), nullptr, GENERIC_READ,
                                                WICDecodeMetadataCacheOnDemand, decoder.Put());
    return SUCCEEDED(result) ? decoder->GetContainerFormat(&container) : result;
}

TEST_F(Registration, ImagingComponentFindsTheDecoder) {
    wchar_t temporary[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, temporary);
    // Nothing in this folder's name may be taken for a quote, a variable or a letter of another code page.
    const Text folder = Text(temporary) + L"it's 100% \x00E9\x4E2D %%x";
    const Text dll = folder + L"\\AMD64\\Tessary.dll", misplaced = L"C:\\Tessary.dll";
    const Text document = folder + L"\\picture.dat";
    CreateDirectoryW(folder.c_str(), nullptr);
    CreateDirectoryW((folder + L"\\AMD64").c_str(), nullptr);
    ASSERT_TRUE(CopyFileW(DllPath().c_str(), dll.c_str(), FALSE));
    const Bytes bytes = RichDocument().Build();
    FILE* const file = _wfopen(document.c_str(), L"wb");
    ASSERT_TRUE(file);
    EXPECT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), file), bytes.size());
    std::fclose(file);

    ASSERT_GE(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    for (const Text& server : {DllPath(), dll}) {
        GUID container = {};
        EXPECT_EQ(OpenByName(document, container), WINCODEC_ERR_COMPONENTNOTFOUND);
        EXPECT_EQ(RegSvr32(L"", server), 0);
        EXPECT_EQ(OpenByName(document, container), S_OK) << Utf8(server);
        EXPECT_EQ(container.Data1, 0x9B2C4F61u);
        EXPECT_EQ(RegSvr32(L"/u", server), 0);
    }
    // No folder to replace: the registration fails, and fails whole.
    Clean();
    const Lines before = Snapshot();
    ASSERT_TRUE(CopyFileW(DllPath().c_str(), misplaced.c_str(), FALSE));
    EXPECT_NE(RegSvr32(L"", misplaced), 0);
    EXPECT_EQ(Join(Minus(Snapshot(), before)), "");
    EXPECT_NE(RegSvr32(L"/n /i:user", misplaced), 0);
    Clean();
    EXPECT_EQ(Join(Minus(Snapshot(), before)), "");
    CoFreeUnusedLibrariesEx(0, 0);
    CoUninitialize();

    DeleteFileW(misplaced.c_str());
    DeleteFileW(document.c_str());
    DeleteFileW(dll.c_str());
    RemoveDirectoryW((folder + L"\\AMD64").c_str());
    RemoveDirectoryW(folder.c_str());
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
        for (char& letter : name)
            letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
        EXPECT_TRUE(system.contains(name)) << name;
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
