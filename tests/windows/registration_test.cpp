#include "frontend/registration.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <string>
#include <tuple>

#include "tests/support/com_host.h"
#include "tools/windows/registry_memory.h"

namespace tessary::test {
namespace {

using Text = std::wstring;
using Lines = std::set<Text>;

// What one has and the other has not; empty when they are the same.
std::string Difference(const Lines& want, const Lines& got) {
    Lines lines;
    std::ranges::set_symmetric_difference(want, got, std::inserter(lines, lines.end()));
    return lines.empty() ? "" : testing::PrintToString(lines);
}

// The letter of a value's type and the value, as a script says them.
Text DataText(DWORD type, const BYTE* data, size_t bytes) {
    const auto* const units = reinterpret_cast<const wchar_t*>(data);
    Text text(units, type == REG_SZ || type == REG_EXPAND_SZ ? bytes / 2 : 0);
    if (text.ends_with(L'\0')) text.pop_back();
    if (type == REG_DWORD) text = std::to_wstring(*reinterpret_cast<const DWORD*>(data));
    for (size_t i = 0; type == REG_BINARY && i < bytes; ++i)
        text += {L"0123456789ABCDEF"[data[i] >> 4], L"0123456789ABCDEF"[data[i] & 15]};
    return Text{type <= REG_DWORD ? L"?sebd"[type] : L'?', L' '} + text;
}

// A key and what is below it, as lines: "Key", and "Key|Name=data".
void AddTree(HKEY root, const Text& path, const Text& shownAs, Lines& lines) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return;
    lines.insert(shownAs);
    wchar_t name[256];
    alignas(8) static BYTE data[1 << 14];
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

const Lines kEmpty = {L"M", L"M\\Classes"};

// In the process of this test the roots are keys of its own, empty at first, so that a snapshot is small,
// shows everything that was written, and other programs' registry stays as it is.
class Registration : public testing::Test {
protected:
    Registration() { Empty(); }
    ~Registration() override { Leave(); }

    static void Empty() {
        Leave();
        for (const auto& [root, path] : kRoots) {
            HKEY key = nullptr;
            ASSERT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, (kPlace + path).c_str(), &key), ERROR_SUCCESS);
            EXPECT_EQ(RegOverridePredefKey(root, key), ERROR_SUCCESS);
            RegCloseKey(key);
        }
        ASSERT_EQ(Difference(kEmpty, Snapshot()), "");
    }
    static void Leave() {
        for (const auto& [root, path] : kRoots) RegOverridePredefKey(root, nullptr);
        RegDeleteTreeW(HKEY_CURRENT_USER, kPlace.c_str());
    }

private:
    static inline const Text kPlace = L"Software\\TessaryTest";
    // The user's comes last: the others are made through it.
    static inline const std::pair<HKEY, const wchar_t*> kRoots[] = {
        {HKEY_CLASSES_ROOT, L"\\M\\Software\\Classes"},
        {HKEY_LOCAL_MACHINE, L"\\M"},
        {HKEY_CURRENT_USER, L"\\U"}};
};

// A snapshot after registration and one after removal, and the keys that go with all that is in them.
struct Expectation {
    Lines written = kEmpty, kept = kEmpty, whole;
};

// The lines of the expected registry, those that go on joined.
std::vector<Text> ReadExpected() {
    std::string path = TESSARY_SOURCE_DIR "/tests/windows/expected_registry.txt";
    std::wifstream file(path[0] == '/' ? "Z:" + path : path);
    std::vector<Text> lines;
    for (Text line; std::getline(file, line);) {
        if (line.starts_with(L"        ") && !lines.empty()) {
            lines.back() += line.substr(8);
        } else if (!line.empty() && line[0] != L'#') {
            lines.push_back(line);
        }
    }
    return lines;
}

// What the script of this number writes. `module` is the data of the server's path.
Expectation Expect(int script, bool perUser, const Text& module = L"") {
    Expectation want;
    if (perUser) want.written.insert({L"U", L"U\\Classes"}), want.kept = want.written;
    static const std::vector<Text> lines = ReadExpected();
    EXPECT_FALSE(lines.empty());
    for (const wchar_t* const extension : {L".psd", L".pdd"}) {
        Text key;
        for (Text line : lines) {
            const bool isValue = line.starts_with(L"    ");
            if (isValue) line.erase(0, 4);
            const size_t end = line[0] == L'[' ? line.find(L']') : 0;
            const bool written = end == 0 || line.find(static_cast<wchar_t>(L'0' + script % 10)) < end;
            if (end > 0) line.erase(0, end + 1);
            if (!isValue) {
                key = line.substr(2);
                if (key[0] == L'C') key.replace(0, 1, perUser ? L"U\\Classes" : L"M\\Classes");
                if (const size_t star = key.find(L'*'); star != key.npos) key.replace(star, 1, extension);
                if (!written) key.clear();
                if (key.empty()) continue;
                want.written.insert(key);
                if (line[0] == L'+') want.kept.insert(key);
                if (line[0] == L'!') want.whole.insert(key);
            } else if (written && !key.empty()) {
                if (line.ends_with(L"=s")) line += L' ';
                want.written.insert(key + L"|" + (line == L"=@" ? L"=" + module : line));
            }
        }
    }
    return want;
}

Text Script(int number) {
    const HRSRC resource = FindResourceW(LoadDll(), MAKEINTRESOURCEW(number), L"REGISTRY");
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
    const std::tuple<bool, DWORD, DWORD, int> cases[] = {
        {true, 6, 0, 103}, {true, 10, 0, 103}, {false, 6, 0, 102}, {false, 6, 1, 101}, {false, 5, 0, 101}};
    for (const auto& [feature, major, minor, present] : cases) {
        EXPECT_EQ(ChooseScript({feature, major, minor, true}), present);
        EXPECT_EQ(ChooseScript({feature, major, minor, false}), present + 3);
    }
}

TEST_F(Registration, EveryScriptWritesItsTableAndTakesItBack) {
    const Text module = L"C:\\It's 100% \x00E9\x4E2D %PATH% %%\\AMD64\\" + Text(700, L'x') + L"\\Tessary.dll";
    const Text shown = DataText(REG_SZ, reinterpret_cast<const BYTE*>(module.c_str()), module.size() * 2);
    for (int number = 101; number <= 106; ++number) {
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
    const auto invalid = HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
    const Text longest = L"C:\\A\\" + Text(512, L'b') + L"\\T",
               longer = L"C:\\A\\" + Text(513, L'b') + L"\\T";
    // A terminator, or a unit that must not pass for one.
    const std::tuple<DWORD, Text, wchar_t, HRESULT, const wchar_t*> cases[] = {
        {REG_SZ, L"C:\\A\\B\\T.dll", 0, S_OK, L"C:\\A\\%PROCESSOR_ARCHITECTURE%\\T.dll"},
        {REG_EXPAND_SZ, L"%X%\\x86\\T.dll", 0, S_OK, L"%X%\\%PROCESSOR_ARCHITECTURE%\\T.dll"},
        {REG_SZ, L"C:\\%TEMP%\\x86\\T.dll", 0, S_OK, nullptr},
        {REG_SZ, L"C:\\T.dll", 0, E_UNEXPECTED, nullptr},
        {REG_SZ, L"C:\\A\\B\\T.dll", L'!', invalid, nullptr},
        {REG_SZ, longest, 0, S_OK, L"C:\\A\\%PROCESSOR_ARCHITECTURE%\\T"},
        {REG_SZ, longer, 0, HRESULT_FROM_WIN32(ERROR_MORE_DATA), nullptr},
    };
    for (const auto& [type, value, last, result, wanted] : cases) {
        Empty();
        const DWORD bytes = static_cast<DWORD>((value.size() + !last) * 2);
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, L"Software", nullptr, type, (value + last).c_str(), bytes);
        const Lines before = Snapshot();
        Lines want = before;
        if (wanted) (want = kEmpty).insert(Text(L"M|=e ") + wanted);
        {
            RegistryJournal journal;
            EXPECT_EQ(RewriteServerPath(HKEY_LOCAL_MACHINE, L"Software", journal), result);
            EXPECT_EQ(Difference(want, Snapshot()), "") << value;
        }
        EXPECT_EQ(Difference(before, Snapshot()), "") << value;
    }
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
    const std::tuple<const wchar_t*, const wchar_t*, bool> cases[] = {
        {nullptr, nullptr, false}, {L"users", L"", false}, {L"use", L"user ", false},
        {L"User", L"USER", true},  {L"", nullptr, true},  // what the module was told once it keeps
    };
    for (const auto& [install, remove, perUser] : cases) {
        const Expectation want = Expect(106, perUser, server);
        const LCID locale = GetThreadLocale();
        EXPECT_EQ(InstallModule(LoadDll(), TRUE, install), S_OK);
        EXPECT_EQ(Difference(want.written, Snapshot()), "") << perUser;
        EXPECT_EQ(InstallModule(LoadDll(), FALSE, remove), S_OK);
        EXPECT_EQ(Difference(want.kept, Snapshot()), "") << perUser;
        EXPECT_EQ(GetThreadLocale(), locale);
        Empty();
    }
}

// A server that lies in no folder cannot be registered.
TEST_F(Registration, FailsWhole) {
    const Text misplaced = L"C:\\Tessary.dll";
    ASSERT_TRUE(CopyFileW(DllPath().c_str(), misplaced.c_str(), FALSE));
    const HMODULE module = LoadLibraryW(misplaced.c_str());
    EXPECT_EQ(Export<HRESULT WINAPI()>(module, "DllRegisterServer")(), E_UNEXPECTED);
    EXPECT_EQ(Difference(kEmpty, Snapshot()), "");
    ASSERT_EQ(Install(Script(106), L"C:\\A\\AMD64\\Tessary.dll", false), S_OK);
    EXPECT_EQ(InstallModule(module, TRUE, L""), E_UNEXPECTED);
    const Lines kept = Expect(106, false).kept;
    EXPECT_EQ(Difference(kept, Snapshot()), "") << "a failed installation is followed by removal";
    FreeLibrary(module);
    EXPECT_TRUE(DeleteFileW(misplaced.c_str()));
}

// Registers as tessary-setup does and returns what it remembers; `before` is what it has remembered until
// then.
tools::RegistryMemory InstallRemembering(int script, const tools::RegistryMemory& before, bool registered) {
    const Text path = L"C:\\A\\AMD64\\Tessary.dll";
    std::vector<RegistryOperation> operations;
    Text expanded;
    const ScriptReplacement replacements[] = {{L"MODULE", path}};
    EXPECT_TRUE(ExpandScript(Script(script), replacements, expanded));
    EXPECT_TRUE(ParseScript(expanded, false, operations));
    auto memory = tools::Remember(tools::PlanRegistration(operations), before, registered);
    EXPECT_EQ(tools::SaveMemory(HKEY_CURRENT_USER, L"Software\\M", memory), ERROR_SUCCESS);
    EXPECT_EQ(Install(Script(script), path, false), S_OK);
    memory = tools::LoadMemory(HKEY_CURRENT_USER, L"Software\\M");
    tools::ForgetUntouched(memory, HKEY_LOCAL_MACHINE);
    return memory;
}

void SetText(const wchar_t* key, const wchar_t* name, const wchar_t* text) {
    const auto bytes = static_cast<DWORD>((wcslen(text) + 1) * sizeof(wchar_t));
    EXPECT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, name, REG_SZ, text, bytes), ERROR_SUCCESS);
}

// Puts back and returns the places that were found taken over.
Lines PutBackAll(const tools::RegistryMemory& memory) {
    std::vector<tools::RegistryPlace> takenOver;
    EXPECT_EQ(tools::PutBack(memory, takenOver), ERROR_SUCCESS);
    RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\M");
    RegDeleteKeyW(HKEY_CURRENT_USER, L"Software");
    Lines lines;
    for (const auto& place : takenOver) lines.insert(tools::PlaceText(place));
    return lines;
}

TEST_F(Registration, RemembersWhatOthersHadAndPutsItBack) {
    const auto foreign = [] {
        Empty();
        SetText(L"Software\\Classes\\.psd", L"", L"Foreign.Document");
        SetText(L"Software\\Classes\\.psd", L"Content Type", L"image/vnd.adobe.photoshop");  // as it will be
        SetText(L"Software\\Classes\\.psd\\shellex\\{e357fccd-a995-4576-b01f-234630154e96}", L"", L"{1}");
        SetText(L"Software\\Classes\\.psd\\shellex\\Deep\\Deeper", L"Name", L"");
        SetText(L"Software\\Classes\\PHOTOSHOP.IMAGE\\shell", L"", L"open");
        return Snapshot();
    };
    for (int script = 101; script <= 106; ++script) {
        SCOPED_TRACE(script);
        const Lines before = foreign();
        auto memory = InstallRemembering(script, {}, false);
        EXPECT_NE(Difference(before, Snapshot()), "");
        memory = InstallRemembering(script, memory, true);
        RemoveScript(Script(script), L"", false);  // as regsvr32 /u does
        memory = InstallRemembering(207 - script, memory, false);
        EXPECT_EQ(Difference({}, PutBackAll(memory)), "");
        EXPECT_EQ(Difference(before, Snapshot()), "");
    }
    // What a third program sets stays, whether before another installation or after it.
    for (const bool again : {false, true}) {
        Lines want = foreign();
        auto memory = InstallRemembering(106, {}, false);
        SetText(L"Software\\Classes\\.psd", L"", L"Third.Document");
        if (again) memory = InstallRemembering(106, memory, true);
        const Lines takenOver = {L"HKLM\\Software\\Classes\\.psd, default value"};
        EXPECT_EQ(Difference(again ? Lines() : takenOver, PutBackAll(memory)), "");
        want.erase(L"M\\Classes\\.psd|=s Foreign.Document");
        want.insert(L"M\\Classes\\.psd|=s Third.Document");
        EXPECT_EQ(Difference(want, Snapshot()), "");
    }
    // Registered without a memory, everything goes that looks as it was registered.
    Empty();
    ASSERT_EQ(Install(Script(106), L"C:\\Old\\Tessary.dll", false), S_OK);
    EXPECT_EQ(Difference({}, PutBackAll(InstallRemembering(106, {}, true))), "");
    Lines want = kEmpty;
    EXPECT_EQ(Difference(want, Snapshot()), "");
}

}  // namespace
}  // namespace tessary::test
