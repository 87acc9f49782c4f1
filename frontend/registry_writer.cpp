#include "frontend/registry_writer.h"

#include <utility>

namespace tessary {
namespace {

// An open key and its place, for the journal. Roots need no closing but do not mind it.
class OpenKey {
public:
    OpenKey() = default;
    OpenKey(HKEY root, std::wstring path) : m_root(root), m_path(std::move(path)) {}
    OpenKey(OpenKey&& other) noexcept
        : m_key(std::exchange(other.m_key, nullptr)), m_root(other.m_root), m_path(std::move(other.m_path)) {}
    OpenKey& operator=(OpenKey&&) = delete;
    ~OpenKey() {
        if (m_key) RegCloseKey(m_key);
    }

    // A key of the system may be readable only; that is enough to open its subkeys.
    LSTATUS Open() {
        const LSTATUS status = RegOpenKeyExW(m_root, m_path.c_str(), 0, KEY_READ | KEY_WRITE, &m_key);
        if (status != ERROR_ACCESS_DENIED) return status;
        return RegOpenKeyExW(m_root, m_path.c_str(), 0, KEY_READ, &m_key);
    }
    LSTATUS Create() {
        return RegCreateKeyExW(m_root, m_path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                               KEY_READ | KEY_WRITE, nullptr, &m_key, nullptr);
    }

    explicit operator bool() const { return m_key != nullptr; }
    HKEY get() const { return m_key; }
    HKEY root() const { return m_root; }
    const std::wstring& path() const { return m_path; }

private:
    HKEY m_key = nullptr;
    HKEY m_root = nullptr;
    std::wstring m_path;
};

HKEY RootHandle(RegistryRoot root) {
    switch (root) {
    case RegistryRoot::kClassesRoot: return HKEY_CLASSES_ROOT;
    case RegistryRoot::kCurrentUser: return HKEY_CURRENT_USER;
    case RegistryRoot::kLocalMachine: return HKEY_LOCAL_MACHINE;
    case RegistryRoot::kUsers: return HKEY_USERS;
    case RegistryRoot::kCurrentConfig: return HKEY_CURRENT_CONFIG;
    case RegistryRoot::kNone: break;
    }
    return nullptr;
}

// The key that an operation names; only a root has no parent.
OpenKey KeyOf(const RegistryOperation& operation, const OpenKey* parent) {
    if (!parent) return OpenKey(RootHandle(operation.root), {});
    return OpenKey(parent->root(),
                   parent->path().empty() ? operation.name : parent->path() + L"\\" + operation.name);
}

LSTATUS MissingIsFine(LSTATUS status) { return status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status; }

LSTATUS SetValue(const OpenKey& key, const std::wstring& name, const RegistryValue& value,
                 RegistryJournal& journal) {
    const RawValue raw = RawValueOf(value);
    const LSTATUS status = journal.BeforeSettingValue(key.get(), key.root(), key.path(), name);
    return status == ERROR_SUCCESS ? WriteRawValue(key.get(), name, raw) : status;
}

LSTATUS DeleteTree(const OpenKey& key, RegistryJournal& journal) {
    const LSTATUS status = journal.BeforeDeletingTree(key.root(), key.path());
    if (status != ERROR_SUCCESS) return MissingIsFine(status);
    return MissingIsFine(RegDeleteTreeW(key.root(), key.path().c_str()));
}

LSTATUS EnterKey(OpenKey& key, const RegistryOperation& operation, RegistryJournal& journal) {
    LSTATUS status = ERROR_SUCCESS;
    if (operation.removal == RegistryRemoval::kForceRemove) status = DeleteTree(key, journal);
    if (status == ERROR_SUCCESS) status = key.Open();
    if (status == ERROR_FILE_NOT_FOUND) {
        journal.BeforeCreatingKey(key.root(), key.path());
        status = key.Create();
    }
    if (status != ERROR_SUCCESS || operation.value.type == RegistryValueType::kNone) return status;
    return SetValue(key, {}, operation.value, journal);
}

// The end of a key that is being removed: its default value, and the key when nothing is left.
LSTATUS RemoveKey(const RegistryOperation& operation, const OpenKey& key) {
    if (operation.root != RegistryRoot::kNone) return ERROR_SUCCESS;
    if (operation.value.type != RegistryValueType::kNone) {
        const RawValue written = RawValueOf(operation.value);
        RawValue found;
        LSTATUS status = ReadRawValue(key.get(), {}, found);
        if (status == ERROR_SUCCESS && found == written) {
            status = RegDeleteValueW(key.get(), nullptr);
        }
        if (MissingIsFine(status) != ERROR_SUCCESS) return status;
    }
    if (operation.removal == RegistryRemoval::kNoRemove) return ERROR_SUCCESS;
    DWORD subkeys = 0, values = 0;
    const LSTATUS status = RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr,
                                            &values, nullptr, nullptr, nullptr, nullptr);
    if (status != ERROR_SUCCESS || subkeys != 0 || values != 0) return status;
    return MissingIsFine(RegDeleteKeyW(key.root(), key.path().c_str()));
}

}  // namespace

RawValue RawValueOf(const RegistryValue& value) {
    RawValue raw;
    const void* data = nullptr;
    size_t bytes = 0;
    switch (value.type) {
    case RegistryValueType::kNone: break;
    case RegistryValueType::kString:
    case RegistryValueType::kExpandString:
        raw.type = value.type == RegistryValueType::kString ? REG_SZ : REG_EXPAND_SZ;
        data = value.text.c_str();
        bytes = (value.text.size() + 1) * sizeof(wchar_t);
        break;
    case RegistryValueType::kDword:
        raw.type = REG_DWORD;
        data = &value.number;
        bytes = sizeof(value.number);
        break;
    case RegistryValueType::kBinary:
        raw.type = REG_BINARY;
        data = value.bytes.data();
        bytes = value.bytes.size();
        break;
    }
    const BYTE* const first = static_cast<const BYTE*>(data);
    raw.data.assign(first, first + bytes);
    return raw;
}

LSTATUS ReadRawValue(HKEY key, const std::wstring& name, RawValue& value) {
    LSTATUS status = ERROR_MORE_DATA;
    // The value may grow between the question for its size and the reading.
    for (int attempt = 0; status == ERROR_MORE_DATA && attempt < 8; ++attempt) {
        DWORD bytes = 0;
        status = RegQueryValueExW(key, name.c_str(), nullptr, nullptr, nullptr, &bytes);
        if (status != ERROR_SUCCESS) return status;
        value.data.resize(bytes + 1);
        status = RegQueryValueExW(key, name.c_str(), nullptr, &value.type, value.data.data(), &bytes);
        value.data.resize(bytes);
    }
    return status;
}

LSTATUS WriteRawValue(HKEY key, const std::wstring& name, const RawValue& value) {
    return RegSetValueExW(key, name.c_str(), 0, value.type, value.data.data(),
                          static_cast<DWORD>(value.data.size()));
}

RegistryJournal::~RegistryJournal() {
    for (size_t i = m_steps.size(); i > 0; --i) {
        const Step& step = m_steps[i - 1];
        if (step.undo == Undo::kDeleteKey) {
            RegDeleteKeyW(step.root, step.path.c_str());
            continue;
        }
        HKEY key = nullptr;
        const LSTATUS status =
            step.undo == Undo::kDeleteValue
                ? RegOpenKeyExW(step.root, step.path.c_str(), 0, KEY_SET_VALUE, &key)
                : RegCreateKeyExW(step.root, step.path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                  KEY_SET_VALUE, nullptr, &key, nullptr);
        if (status != ERROR_SUCCESS) continue;
        if (step.undo == Undo::kDeleteValue) RegDeleteValueW(key, step.name.c_str());
        if (step.undo == Undo::kSetValue) WriteRawValue(key, step.name, step.value);
        RegCloseKey(key);
    }
}

void RegistryJournal::BeforeCreatingKey(HKEY root, const std::wstring& path) {
    m_steps.push_back({Undo::kDeleteKey, root, path, {}, {}});
}

LSTATUS RegistryJournal::BeforeSettingValue(HKEY key, HKEY root, const std::wstring& path,
                                            const std::wstring& name) {
    RawValue old;
    const LSTATUS status = ReadRawValue(key, name, old);
    if (status == ERROR_SUCCESS) {
        m_steps.push_back({Undo::kSetValue, root, path, name, std::move(old)});
    } else if (status == ERROR_FILE_NOT_FOUND) {
        m_steps.push_back({Undo::kDeleteValue, root, path, name, {}});
    }
    return MissingIsFine(status);
}

LSTATUS RegistryJournal::RecordValues(HKEY key, HKEY root, const std::wstring& path) {
    std::wstring name(16384, L'\0');  // the longest name a value can have, and its end
    for (DWORD i = 0;; ++i) {
        DWORD length = static_cast<DWORD>(name.size());
        const LSTATUS status =
            RegEnumValueW(key, i, name.data(), &length, nullptr, nullptr, nullptr, nullptr);
        if (status == ERROR_NO_MORE_ITEMS) return ERROR_SUCCESS;
        if (status != ERROR_SUCCESS) return status;
        const LSTATUS recorded = BeforeSettingValue(key, root, path, name.substr(0, length));
        if (recorded != ERROR_SUCCESS) return recorded;
    }
}

LSTATUS RegistryJournal::BeforeDeletingTree(HKEY root, const std::wstring& path) {
    std::vector<std::wstring> waiting = {path};
    while (!waiting.empty()) {
        OpenKey key(root, std::move(waiting.back()));
        waiting.pop_back();
        LSTATUS status = key.Open();
        if (status != ERROR_SUCCESS) return status;
        m_steps.push_back({Undo::kCreateKey, root, key.path(), {}, {}});
        status = RecordValues(key.get(), root, key.path());
        if (status != ERROR_SUCCESS) return status;
        for (DWORD i = 0;; ++i) {
            wchar_t name[256];
            DWORD length = 256;
            status = RegEnumKeyExW(key.get(), i, name, &length, nullptr, nullptr, nullptr, nullptr);
            if (status == ERROR_NO_MORE_ITEMS) break;
            if (status != ERROR_SUCCESS) return status;
            waiting.push_back(key.path() + L"\\" + std::wstring(name, length));
        }
    }
    return ERROR_SUCCESS;
}

LSTATUS ApplyOperations(std::span<const RegistryOperation> operations, RegistryJournal& journal) {
    std::vector<OpenKey> keys;
    for (const RegistryOperation& operation : operations) {
        LSTATUS status = ERROR_SUCCESS;
        switch (operation.verb) {
        case RegistryVerb::kEnterKey:
            keys.push_back(KeyOf(operation, keys.empty() ? nullptr : &keys.back()));
            status = EnterKey(keys.back(), operation, journal);
            break;
        case RegistryVerb::kLeaveKey: keys.pop_back(); break;
        case RegistryVerb::kSetValue:
            status = SetValue(keys.back(), operation.name, operation.value, journal);
            break;
        case RegistryVerb::kDeleteKey: status = DeleteTree(KeyOf(operation, &keys.back()), journal); break;
        }
        if (status != ERROR_SUCCESS) return status;
    }
    return ERROR_SUCCESS;
}

LSTATUS RemoveOperations(std::span<const RegistryOperation> operations) {
    struct Level {
        OpenKey key;  // not open when there is nothing to remove inside
        const RegistryOperation* entered;
    };
    std::vector<Level> levels;
    LSTATUS first = ERROR_SUCCESS;
    for (const RegistryOperation& operation : operations) {
        LSTATUS status = ERROR_SUCCESS;
        switch (operation.verb) {
        case RegistryVerb::kEnterKey: {
            const bool parentIsThere = operation.root != RegistryRoot::kNone || levels.back().key;
            OpenKey key = KeyOf(operation, levels.empty() ? nullptr : &levels.back().key);
            if (parentIsThere && operation.removal == RegistryRemoval::kForceRemove) {
                status = RegDeleteTreeW(key.root(), key.path().c_str());
            } else if (parentIsThere) {
                status = key.Open();
            }
            levels.push_back({std::move(key), &operation});
            break;
        }
        case RegistryVerb::kLeaveKey:
            if (levels.back().key) status = RemoveKey(*levels.back().entered, levels.back().key);
            levels.pop_back();
            break;
        case RegistryVerb::kSetValue:
            if (!levels.back().key || operation.removal == RegistryRemoval::kNoRemove) break;
            status = RegDeleteValueW(levels.back().key.get(), operation.name.c_str());
            break;
        case RegistryVerb::kDeleteKey: break;
        }
        if (first == ERROR_SUCCESS) first = MissingIsFine(status);
    }
    return first;
}

}  // namespace tessary
