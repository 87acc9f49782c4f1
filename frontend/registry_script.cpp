#include "frontend/registry_script.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

namespace tessary {
namespace {

wchar_t LowerAscii(wchar_t letter) {
    return letter >= L'A' && letter <= L'Z' ? static_cast<wchar_t>(letter - L'A' + L'a') : letter;
}

bool EqualInAnyCase(std::wstring_view a, std::wstring_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](wchar_t x, wchar_t y) { return LowerAscii(x) == LowerAscii(y); });
}

bool IsSpace(wchar_t letter) {
    return letter == L' ' || letter == L'\t' || letter == L'\r' || letter == L'\n';
}

struct RootName {
    std::wstring_view name;
    RegistryRoot root;
};
constexpr RootName kRootNames[] = {
    {L"HKCR", RegistryRoot::kClassesRoot},   {L"HKEY_CLASSES_ROOT", RegistryRoot::kClassesRoot},
    {L"HKCU", RegistryRoot::kCurrentUser},   {L"HKEY_CURRENT_USER", RegistryRoot::kCurrentUser},
    {L"HKLM", RegistryRoot::kLocalMachine},  {L"HKEY_LOCAL_MACHINE", RegistryRoot::kLocalMachine},
    {L"HKU", RegistryRoot::kUsers},          {L"HKEY_USERS", RegistryRoot::kUsers},
    {L"HKCC", RegistryRoot::kCurrentConfig}, {L"HKEY_CURRENT_CONFIG", RegistryRoot::kCurrentConfig},
};

RegistryRoot RootNamed(std::wstring_view word) {
    for (const RootName& row : kRootNames) {
        if (EqualInAnyCase(row.name, word)) return row.root;
    }
    return RegistryRoot::kNone;
}

struct Word {
    std::wstring text;
    bool quoted = false;

    // Between apostrophes a word is a name, whatever it looks like.
    bool IsKeyword(std::wstring_view keyword) const { return !quoted && EqualInAnyCase(text, keyword); }
};

class WordReader {
public:
    explicit WordReader(std::wstring_view script) : m_rest(script) {}

    bool AtEnd() {
        while (!m_rest.empty() && IsSpace(m_rest.front())) m_rest.remove_prefix(1);
        return m_rest.empty();
    }

    // Reads the next word when it is this sign, alone.
    bool Accept(wchar_t sign) {
        if (AtEnd() || m_rest.front() != sign || (m_rest.size() > 1 && !IsSpace(m_rest[1]))) return false;
        m_rest.remove_prefix(1);
        return true;
    }

    // False at the end and for an apostrophe that nothing closes.
    bool Read(Word& word) {
        word = {};
        if (AtEnd()) return false;
        word.quoted = m_rest.front() == L'\'';
        if (!word.quoted) {
            const size_t length = std::min(m_rest.find_first_of(L" \t\r\n"), m_rest.size());
            word.text = m_rest.substr(0, length);
            m_rest.remove_prefix(length);
            return true;
        }
        for (;;) {
            m_rest.remove_prefix(1);
            const size_t length = m_rest.find(L'\'');
            if (length == m_rest.npos) return false;
            word.text += m_rest.substr(0, length);
            m_rest.remove_prefix(length + 1);
            if (m_rest.empty() || m_rest.front() != L'\'') return true;
            word.text += L'\'';
        }
    }

private:
    std::wstring_view m_rest;
};

std::optional<uint32_t> HexDigit(wchar_t letter) {
    const wchar_t lower = LowerAscii(letter);
    if (lower >= L'0' && lower <= L'9') return static_cast<uint32_t>(lower - L'0');
    if (lower >= L'a' && lower <= L'f') return static_cast<uint32_t>(lower - L'a' + 10);
    return std::nullopt;
}

bool ReadNumber(std::wstring_view text, uint32_t& number) {
    uint32_t base = 10;
    if (EqualInAnyCase(text.substr(0, 2), L"0x") || EqualInAnyCase(text.substr(0, 2), L"&h")) {
        base = 16;
        text.remove_prefix(2);
    }
    if (text.empty()) return false;
    uint64_t sum = 0;
    for (const wchar_t letter : text) {
        const auto digit = HexDigit(letter);
        if (!digit || *digit >= base) return false;
        sum = sum * base + *digit;
        if (sum > std::numeric_limits<uint32_t>::max()) return false;
    }
    number = static_cast<uint32_t>(sum);
    return true;
}

bool ReadBytes(std::wstring_view text, std::vector<uint8_t>& bytes) {
    if (text.size() % 2 != 0) return false;
    bytes.reserve(text.size() / 2);
    for (size_t i = 0; i < text.size(); i += 2) {
        const auto high = HexDigit(text[i]), low = HexDigit(text[i + 1]);
        if (!high || !low) return false;
        bytes.push_back(static_cast<uint8_t>(*high << 4 | *low));
    }
    return true;
}

// Type and data, behind the equals sign.
bool ReadValue(WordReader& reader, RegistryValue& value) {
    Word type, data;
    if (!reader.Read(type) || !reader.Read(data)) return false;
    if (type.IsKeyword(L"d")) {
        value.type = RegistryValueType::kDword;
        return ReadNumber(data.text, value.number);
    }
    if (type.IsKeyword(L"b")) {
        value.type = RegistryValueType::kBinary;
        return ReadBytes(data.text, value.bytes);
    }
    if (!type.IsKeyword(L"s") && !type.IsKeyword(L"e")) return false;
    value.type = type.IsKeyword(L"s") ? RegistryValueType::kString : RegistryValueType::kExpandString;
    value.text = std::move(data.text);
    return true;
}

bool IsKeyName(const Word& word) {
    const bool sign = !word.quoted && (word.text == L"{" || word.text == L"}" || word.text == L"=");
    return !sign && !word.text.empty() && word.text.find(L'\\') == std::wstring::npos;
}

RegistryOperation EnterKey(RegistryRoot root, std::wstring name, RegistryRemoval removal) {
    RegistryOperation operation;
    operation.verb = RegistryVerb::kEnterKey;
    operation.root = root;
    operation.name = std::move(name);
    operation.removal = removal;
    return operation;
}

// The root's name and its brace. Adds what is to be entered for it and returns how many keys that is, 0 on
// failure.
size_t ReadRoot(WordReader& reader, bool perUser, std::vector<RegistryOperation>& operations) {
    Word word;
    if (!reader.Read(word) || word.quoted) return 0;
    const RegistryRoot root = RootNamed(word.text);
    if (root == RegistryRoot::kNone || !reader.Accept(L'{')) return 0;
    if (!perUser || root != RegistryRoot::kClassesRoot) {
        operations.push_back(EnterKey(root, {}, RegistryRemoval::kNoRemove));
        return 1;
    }
    // Software\Classes is a link to another hive: it must survive even when it has become empty.
    operations.push_back(EnterKey(RegistryRoot::kCurrentUser, {}, RegistryRemoval::kNoRemove));
    operations.push_back(EnterKey(RegistryRoot::kNone, L"Software", RegistryRemoval::kNoRemove));
    operations.push_back(EnterKey(RegistryRoot::kNone, L"Classes", RegistryRemoval::kNoRemove));
    return 3;
}

// One key, with its default value and up to its opening brace, or one value. `opened` tells whether there was
// a brace.
bool ReadItem(WordReader& reader, std::vector<RegistryOperation>& operations, bool& opened) {
    opened = false;
    RegistryOperation operation;
    Word word;
    if (!reader.Read(word)) return false;
    if (word.IsKeyword(L"Delete")) {
        operation.verb = RegistryVerb::kDeleteKey;
        if (!reader.Read(word) || !IsKeyName(word)) return false;
        if (reader.Accept(L'=') && !ReadValue(reader, operation.value)) return false;
        operation.name = std::move(word.text);
        operations.push_back(std::move(operation));
        return true;
    }
    if (word.IsKeyword(L"ForceRemove") || word.IsKeyword(L"NoRemove")) {
        operation.removal =
            word.IsKeyword(L"NoRemove") ? RegistryRemoval::kNoRemove : RegistryRemoval::kForceRemove;
        if (!reader.Read(word)) return false;
    }
    if (word.IsKeyword(L"val")) {
        operation.verb = RegistryVerb::kSetValue;
        if (operation.removal == RegistryRemoval::kForceRemove || !reader.Read(word)) return false;
        if (!reader.Accept(L'=') || !ReadValue(reader, operation.value)) return false;
        operation.name = std::move(word.text);
        operations.push_back(std::move(operation));
        return true;
    }
    if (!IsKeyName(word)) return false;
    operation.verb = RegistryVerb::kEnterKey;
    operation.name = std::move(word.text);
    if (reader.Accept(L'=') && !ReadValue(reader, operation.value)) return false;
    operations.push_back(std::move(operation));
    opened = reader.Accept(L'{');
    if (!opened) operations.emplace_back();
    return true;
}

}  // namespace

std::wstring EscapeForScript(std::wstring_view text) {
    std::wstring escaped;
    for (const wchar_t letter : text) escaped.append(letter == L'\'' ? 2 : 1, letter);
    return escaped;
}

bool ExpandScript(std::wstring_view script, std::span<const ScriptReplacement> replacements,
                  std::wstring& expanded) {
    expanded.clear();
    while (!script.empty()) {
        const size_t plain = std::min(script.find(L'%'), script.size());
        std::wstring_view piece = script.substr(0, plain);
        script.remove_prefix(plain);
        if (plain == 0) {
            const size_t end = script.find(L'%', 1);
            if (end == script.npos) return false;
            const std::wstring_view name = script.substr(1, end - 1);
            const auto row = std::find_if(replacements.begin(), replacements.end(),
                                          [&](const auto& r) { return EqualInAnyCase(r.name, name); });
            if (!name.empty() && row == replacements.end()) return false;
            piece = name.empty() ? L"%" : row->text;
            script.remove_prefix(end + 1);
        }
        if (piece.size() > kMaxScriptLength - expanded.size()) return false;
        expanded += piece;
    }
    return true;
}

bool ParseScript(std::wstring_view script, bool perUser, std::vector<RegistryOperation>& operations) {
    operations.clear();
    // A name with a NUL in it would reach the registry cut short.
    if (script.size() > kMaxScriptLength || script.find(L'\0') != script.npos) return false;
    WordReader reader(script);
    while (!reader.AtEnd()) {
        const size_t rootKeys = ReadRoot(reader, perUser, operations);
        if (rootKeys == 0) return false;
        for (size_t depth = 1; depth > 0;) {
            if (reader.Accept(L'}')) {
                if (--depth > 0) operations.emplace_back();
                continue;
            }
            bool opened = false;
            if (!ReadItem(reader, operations, opened)) return false;
            if (opened && ++depth > kMaxScriptDepth) return false;
        }
        for (size_t i = 0; i < rootKeys; ++i) operations.emplace_back();
    }
    return true;
}

}  // namespace tessary
