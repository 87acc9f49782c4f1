// Carries out the operations of a registration script in the registry, and takes them back.
#pragma once

#include <windows.h>

#include <span>
#include <string>
#include <vector>

#include "frontend/registry_script.h"

namespace tessary {

// The data of a registry value, byte for byte.
struct RawValue {
    DWORD type = REG_NONE;
    std::vector<BYTE> data;

    bool operator==(const RawValue&) const = default;
};

// What registering writes for a value of a script.
RawValue RawValueOf(const RegistryValue& value);
// ERROR_FILE_NOT_FOUND when there is no value of this name; the empty name is the default value's.
LSTATUS ReadRawValue(HKEY key, const std::wstring& name, RawValue& value);
LSTATUS WriteRawValue(HKEY key, const std::wstring& name, const RawValue& value);

// What stood in the registry before this program changed it. Unless Keep is called, the destructor puts
// everything back: keys that were created go, values and trees that were replaced or deleted return.
class RegistryJournal {
public:
    RegistryJournal() = default;
    RegistryJournal(const RegistryJournal&) = delete;
    RegistryJournal& operator=(const RegistryJournal&) = delete;
    ~RegistryJournal();

    void Keep() { m_steps.clear(); }

    // Each is called before the change. May throw std::bad_alloc.
    void BeforeCreatingKey(HKEY root, const std::wstring& path);
    LSTATUS BeforeSettingValue(HKEY key, HKEY root, const std::wstring& path, const std::wstring& name);
    LSTATUS BeforeDeletingTree(HKEY root, const std::wstring& path);

private:
    enum class Undo { kDeleteKey, kDeleteValue, kCreateKey, kSetValue };
    struct Step {
        Undo undo;
        HKEY root;
        std::wstring path, name;
        RawValue value;
    };
    LSTATUS RecordValues(HKEY key, HKEY root, const std::wstring& path);

    std::vector<Step> m_steps;
};

// Registers: creates the keys and sets the values. Stops at the first failure, which the journal can undo.
LSTATUS ApplyOperations(std::span<const RegistryOperation> operations, RegistryJournal& journal);

// Removes what registering the same operations writes, as their marks tell; what is missing already is no
// failure. A default value that somebody has changed since stays. Goes on after a failure and returns the
// first.
LSTATUS RemoveOperations(std::span<const RegistryOperation> operations);

}  // namespace tessary
