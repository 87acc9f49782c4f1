#include "tools/windows/registry_memory.h"

#include <sddl.h>

#include <set>
#include <utility>

namespace tessary::tools {
namespace {

constexpr wchar_t kClasses[] = L"Software\\Classes";
constexpr wchar_t kOwnClass[] = L"\\{3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}";

class OpenKey {
public:
    OpenKey(HKEY root, const std::wstring& path, REGSAM access)
        : m_status(RegOpenKeyExW(root, path.c_str(), 0, access, &m_key)) {}
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;
    ~OpenKey() {
        if (m_key) RegCloseKey(m_key);
    }
    explicit operator bool() const { return m_status == ERROR_SUCCESS; }
    LSTATUS status() const { return m_status; }
    HKEY get() const { return m_key; }

private:
    HKEY m_key = nullptr;
    LSTATUS m_status;
};

int CompareNames(const std::wstring& a, const std::wstring& b) {
    return CompareStringOrdinal(a.c_str(), static_cast<int>(a.size()), b.c_str(), static_cast<int>(b.size()),
                                TRUE) -
           CSTR_EQUAL;
}

// A key as a state has it.
RawValue NamedKey(const std::wstring& name) {
    const auto* const bytes = reinterpret_cast<const BYTE*>(name.c_str());
    return {REG_NONE, std::vector<BYTE>(bytes, bytes + name.size() * sizeof(wchar_t))};
}

std::wstring LastPart(const std::wstring& path) { return path.substr(path.rfind(L'\\') + 1); }

// The last part of the path, in the case in which the registry has it.
std::wstring WrittenName(HKEY root, const std::wstring& path) {
    const size_t end = path.rfind(L'\\');
    const OpenKey parent(root, end == path.npos ? L"" : path.substr(0, end), KEY_READ);
    const std::wstring wanted = LastPart(path);
    wchar_t name[256];
    for (DWORD i = 0; RegEnumKeyW(parent.get(), i, name, 256) == ERROR_SUCCESS; ++i) {
        if (CompareNames(name, wanted) == 0) return name;
    }
    return wanted;
}

// The key and every key below it, with their values.
void ReadTree(HKEY root, const std::wstring& path, RegistryState& state) {
    std::vector<std::wstring> waiting = {path};
    std::wstring name(16384, L'\0');  // the longest name a value can have, and its end
    while (!waiting.empty()) {
        const std::wstring current = std::move(waiting.back());
        waiting.pop_back();
        const OpenKey key(root, current, KEY_READ);
        if (!key) continue;
        state[{root, current, {}}] = NamedKey(current == path ? WrittenName(root, path) : LastPart(current));
        for (DWORD i = 0;; ++i) {
            DWORD length = static_cast<DWORD>(name.size());
            if (RegEnumValueW(key.get(), i, name.data(), &length, nullptr, nullptr, nullptr, nullptr) !=
                ERROR_SUCCESS)
                break;
            const std::wstring found = name.substr(0, length);
            RawValue value;
            if (ReadRawValue(key.get(), found, value) == ERROR_SUCCESS)
                state[{root, current, found}] = std::move(value);
        }
        for (DWORD i = 0;; ++i) {
            DWORD length = 256;
            if (RegEnumKeyExW(key.get(), i, name.data(), &length, nullptr, nullptr, nullptr, nullptr) !=
                ERROR_SUCCESS)
                break;
            waiting.push_back(current + L"\\" + name.substr(0, length));
        }
    }
}

std::optional<RawValue> Read(const RegistryPlace& place) {
    const OpenKey key(place.root, place.key, KEY_READ);
    RawValue value;
    if (!key) return std::nullopt;
    if (!place.value) return NamedKey(WrittenName(place.root, place.key));
    if (ReadRawValue(key.get(), *place.value, value) != ERROR_SUCCESS) return std::nullopt;
    return value;
}

std::optional<RawValue> Find(const RegistryState& state, const RegistryPlace& place) {
    const auto found = state.find(place);
    return found == state.end() ? std::nullopt : std::optional(found->second);
}

LSTATUS MissingIsFine(LSTATUS status) { return status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status; }

// Makes a key under the name that its data is, or sets a value, making its key when there is none.
LSTATUS Write(const RegistryPlace& place, const RawValue& value) {
    std::wstring path = place.key;
    if (!place.value) {
        const auto* const name = reinterpret_cast<const wchar_t*>(value.data.data());
        path.replace(path.size() - LastPart(path).size(), path.npos, name,
                     value.data.size() / sizeof(wchar_t));
    }
    HKEY key = nullptr;
    LSTATUS status = RegCreateKeyExW(place.root, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                     KEY_SET_VALUE, nullptr, &key, nullptr);
    if (status != ERROR_SUCCESS) return status;
    if (place.value) status = WriteRawValue(key, *place.value, value);
    RegCloseKey(key);
    return status;
}

// Writes a key and what is in it again, with its name as `name` has it.
LSTATUS WriteAgain(const RegistryPlace& key, const RawValue& name) {
    RegistryState tree;
    ReadTree(key.root, key.key, tree);
    tree[key] = name;
    LSTATUS status = RegDeleteTreeW(key.root, key.key.c_str());
    for (const auto& [place, value] : tree) {
        if (status == ERROR_SUCCESS) status = Write(place, value);
    }
    return status;
}

LSTATUS DeleteValue(const RegistryPlace& place) {
    const OpenKey key(place.root, place.key, KEY_SET_VALUE);
    return MissingIsFine(key ? RegDeleteValueW(key.get(), place.value->c_str()) : key.status());
}

LSTATUS DeleteKeyIfEmpty(HKEY root, const std::wstring& path) {
    DWORD subkeys = 0, values = 0;
    {
        const OpenKey key(root, path, KEY_READ);
        if (!key) return MissingIsFine(key.status());
        const LSTATUS status = RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, &subkeys, nullptr,
                                                nullptr, &values, nullptr, nullptr, nullptr, nullptr);
        if (status != ERROR_SUCCESS || subkeys != 0 || values != 0) return status;
    }
    return MissingIsFine(RegDeleteKeyW(root, path.c_str()));
}

// Where the keys of a script's root really lie.
std::vector<RegistryPlace> BasesOf(RegistryRoot root) {
    if (root == RegistryRoot::kClassesRoot)
        return {{HKEY_LOCAL_MACHINE, kClasses, {}}, {HKEY_CURRENT_USER, kClasses, {}}};
    return {{root == RegistryRoot::kLocalMachine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER, {}, {}}};
}

// Plans one key or value in one of the places where it may lie.
void PlanOne(const RegistryOperation& operation, const RegistryPlace& key, RegistrationPlan& plan) {
    const auto note = [&](const RegistryPlace& place) {
        if (plan.before.contains(place)) return;
        if (const auto found = Read(place)) plan.before[place] = plan.after[place] = *found;
    };
    if (operation.verb == RegistryVerb::kSetValue) {
        const RegistryPlace value{key.root, key.key, operation.name};
        note(value);
        plan.after[value] = RawValueOf(operation.value);
        return;
    }
    if (operation.verb == RegistryVerb::kDeleteKey || operation.removal == RegistryRemoval::kForceRemove) {
        RegistryState tree;
        ReadTree(key.root, key.key, tree);
        for (const auto& [place, value] : tree) plan.after.erase(place);
        plan.before.merge(tree);
        if (operation.verb == RegistryVerb::kDeleteKey) return;
    }
    note(key);
    plan.after.try_emplace(key, NamedKey(LastPart(key.key)));
    if (operation.value.type == RegistryValueType::kNone) return;
    const RegistryPlace value{key.root, key.key, L""};
    note(value);
    plan.after[value] = RawValueOf(operation.value);
}

// The identifier of the user whose part of the registry is seen; empty when it cannot be had.
std::wstring CurrentUser() {
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return {};
    alignas(TOKEN_USER) BYTE user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD bytes = 0;
    wchar_t* text = nullptr;
    std::wstring result;
    if (GetTokenInformation(token, TokenUser, user, sizeof(user), &bytes) &&
        ConvertSidToStringSidW(reinterpret_cast<const TOKEN_USER*>(user)->User.Sid, &text)) {
        result = text;
        LocalFree(text);
    }
    CloseHandle(token);
    return result;
}

std::wstring NumberedKey(const std::wstring& key, DWORD number) {
    wchar_t text[12];
    swprintf(text, 12, L"%04lu", static_cast<unsigned long>(number));
    return key + L"\\" + text;
}

LSTATUS SaveText(HKEY root, const std::wstring& key, const wchar_t* name, const std::wstring& text) {
    RegistryValue value;
    value.type = RegistryValueType::kString;
    value.text = text;
    return Write({root, key, name}, RawValueOf(value));
}

std::wstring LoadText(const OpenKey& key, const wchar_t* name) {
    RawValue value;
    if (ReadRawValue(key.get(), name, value) != ERROR_SUCCESS || value.type != REG_SZ) return {};
    const std::wstring text(reinterpret_cast<const wchar_t*>(value.data.data()), value.data.size() / 2);
    return text.substr(0, text.find(L'\0'));
}

}  // namespace

bool RegistryPlace::operator<(const RegistryPlace& other) const {
    if (root != other.root) return root < other.root;
    if (const int order = CompareNames(key, other.key)) return order < 0;
    if (!value || !other.value) return !value && other.value;
    return CompareNames(*value, *other.value) < 0;
}

std::wstring PlaceText(const RegistryPlace& place) {
    const std::wstring text = (place.root == HKEY_LOCAL_MACHINE ? L"HKLM\\" : L"HKCU\\") + place.key;
    if (!place.value) return text;
    return text + (place.value->empty() ? L", default value" : L", value " + *place.value);
}

RegistrationPlan PlanRegistration(std::span<const RegistryOperation> operations) {
    RegistrationPlan plan;
    std::vector<std::vector<RegistryPlace>> levels;
    for (const RegistryOperation& operation : operations) {
        if (operation.verb == RegistryVerb::kLeaveKey) {
            levels.pop_back();
            continue;
        }
        std::vector<RegistryPlace> places = levels.empty() ? BasesOf(operation.root) : levels.back();
        if (operation.verb != RegistryVerb::kSetValue && operation.root == RegistryRoot::kNone) {
            for (RegistryPlace& place : places)
                place.key += (place.key.empty() ? L"" : L"\\") + operation.name;
        }
        if (operation.root == RegistryRoot::kNone) {
            for (const RegistryPlace& place : places) PlanOne(operation, place, plan);
        }
        if (operation.verb == RegistryVerb::kEnterKey) levels.push_back(std::move(places));
    }
    return plan;
}

bool IsOwnPlace(const RegistryPlace& place) {
    const std::wstring own = kOwnClass;
    for (size_t i = place.key.find(own.front()); i != place.key.npos;
         i = place.key.find(own.front(), i + 1)) {
        if (CompareNames(place.key.substr(i, own.size()), own) == 0) return true;
    }
    return false;
}

RegistryMemory Remember(const RegistrationPlan& plan, const RegistryMemory& memory, bool registered) {
    RegistryMemory result = memory;
    std::set<RegistryPlace> places;
    for (const auto& [place, value] : plan.before) places.insert(place);
    for (const auto& [place, value] : plan.after) places.insert(place);
    for (const RegistryPlace& place : places) {
        RegistryChange change{Find(plan.before, place), Find(plan.after, place)};
        const auto old = memory.find(place);
        if (IsOwnPlace(place)) {
            change.before.reset();
        } else if (old != memory.end()) {
            if (!change.before || change.before == old->second.after) change.before = old->second.before;
        } else if (registered && memory.empty() && change.before == change.after) {
            change.before.reset();
        }
        result.erase(place);
        if (change.before || change.after) result[place] = std::move(change);
    }
    return result;
}

void ForgetUntouched(RegistryMemory& memory, HKEY root) {
    std::erase_if(memory, [root](const auto& item) {
        const auto& [place, change] = item;
        return (!change.before || place.root != root) && Read(place) == change.before;
    });
}

LSTATUS PutBack(const RegistryMemory& memory, std::vector<RegistryPlace>& takenOver) {
    LSTATUS first = ERROR_SUCCESS;
    const auto note = [&](LSTATUS status) {
        if (first == ERROR_SUCCESS) first = status;
    };
    for (const auto& [place, change] : memory) {
        const auto now = Read(place);
        if (IsOwnPlace(place)) {
            if (now && !place.value) note(MissingIsFine(RegDeleteTreeW(place.root, place.key.c_str())));
        } else if (now == change.before) {
            continue;
        } else if (now && now != change.after) {
            if (place.value) takenOver.push_back(place);
        } else if (change.before) {
            note(now && !place.value ? WriteAgain(place, *change.before) : Write(place, *change.before));
        } else if (place.value) {
            note(DeleteValue(place));
        }
    }
    // Keys that registration made, those within others first.
    for (auto item = memory.rbegin(); item != memory.rend(); ++item) {
        const auto& [place, change] = *item;
        if (!place.value && !change.before) note(DeleteKeyIfEmpty(place.root, place.key));
    }
    return first;
}

LSTATUS SaveMemory(HKEY root, const std::wstring& key, const RegistryMemory& memory) {
    LSTATUS status = MissingIsFine(RegDeleteTreeW(root, key.c_str()));
    DWORD number = 0;
    for (const auto& [place, change] : memory) {
        if (status != ERROR_SUCCESS) break;
        const std::wstring item = NumberedKey(key, ++number);
        status = SaveText(root, item, L"Root", place.root == HKEY_LOCAL_MACHINE ? L"HKLM" : L"HKCU");
        if (status == ERROR_SUCCESS) status = SaveText(root, item, L"Key", place.key);
        if (status == ERROR_SUCCESS && place.value) status = SaveText(root, item, L"Value", *place.value);
        if (status == ERROR_SUCCESS && place.root == HKEY_CURRENT_USER)
            status = SaveText(root, item, L"User", CurrentUser());
        if (status == ERROR_SUCCESS && change.before) status = Write({root, item, L"Before"}, *change.before);
        if (status == ERROR_SUCCESS && change.after) status = Write({root, item, L"After"}, *change.after);
    }
    return status;
}

RegistryMemory LoadMemory(HKEY root, const std::wstring& key) {
    RegistryMemory memory;
    for (DWORD number = 1;; ++number) {
        const std::wstring path = NumberedKey(key, number);
        const OpenKey item(root, path, KEY_READ);
        if (!item) return memory;
        RegistryPlace place{LoadText(item, L"Root") == L"HKLM" ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER,
                            LoadText(item, L"Key"),
                            {}};
        if (Read({root, path, L"Value"})) place.value = LoadText(item, L"Value");
        if (!place.key.empty()) memory[place] = {Read({root, path, L"Before"}), Read({root, path, L"After"})};
    }
}

}  // namespace tessary::tools
