// The registrar's script language: script text in, a list of operations out. Touches no registry.
//
//   HKCR
//   {
//       NoRemove .psd = s 'Photoshop.Image'
//       {
//           val 'Content Type' = s 'image/vnd.adobe.photoshop'
//           ForceRemove ShellEx
//       }
//   }
//
// Words stand between white space, or between apostrophes (an apostrophe in them is doubled). Types of values
// are s string, e expandable string, d DWORD (decimal, or hexadecimal behind 0x or &H), b binary (pairs of
// hexadecimal digits). Keywords, types and roots are read in any case.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tessary {

enum class RegistryRoot : uint8_t {
    kNone,
    kClassesRoot,
    kCurrentUser,
    kLocalMachine,
    kUsers,
    kCurrentConfig
};

enum class RegistryVerb : uint8_t {
    kEnterKey,   // create or open; the following operations are inside it
    kLeaveKey,   // one for each kEnterKey
    kSetValue,   // in the key entered last
    kDeleteKey,  // with its subtree, when registering; nothing when removing
};

enum class RegistryRemoval : uint8_t {
    kPlain,        // a value goes; a key goes when nothing else is left in it
    kForceRemove,  // a key goes with its subtree, and starts empty when registering
    kNoRemove,     // stays
};

enum class RegistryValueType : uint8_t { kNone, kString, kExpandString, kDword, kBinary };

struct RegistryValue {
    RegistryValueType type = RegistryValueType::kNone;
    uint32_t number = 0;         // kDword
    std::wstring text;           // kString, kExpandString
    std::vector<uint8_t> bytes;  // kBinary
};

struct RegistryOperation {
    RegistryVerb verb = RegistryVerb::kLeaveKey;
    RegistryRoot root =
        RegistryRoot::kNone;  // kEnterKey outside all others: the key is this root, without a name
    RegistryRemoval removal = RegistryRemoval::kPlain;
    std::wstring name;    // of the key or value; a key name has no backslash and is empty for a root only
    RegistryValue value;  // of kSetValue, and the default value of a kEnterKey that has one
};

struct ScriptReplacement {
    std::wstring_view name;  // matched in any case
    std::wstring_view text;  // goes in as it is
};

// Neither scripts nor what replacements make of them may be longer, in characters; nor nest keys deeper.
inline constexpr size_t kMaxScriptLength = 1u << 18;
inline constexpr size_t kMaxScriptDepth = 512;  // the registry's own limit

// Doubles the apostrophes, so that the text can stand between apostrophes in a script.
std::wstring EscapeForScript(std::wstring_view text);

// Replaces every %NAME% by its text, which is not searched again, and %% by %. False for a name that is not
// among the replacements, a single % and an outcome that is too long.
[[nodiscard]] bool ExpandScript(std::wstring_view script, std::span<const ScriptReplacement> replacements,
                                std::wstring& expanded);

// Reads an expanded script. Per user, every HKCR root becomes Software\Classes of HKCU; other roots stand as
// they are. False for anything that is not a script; the operations are then of no use.
[[nodiscard]] bool ParseScript(std::wstring_view script, bool perUser,
                               std::vector<RegistryOperation>& operations);

}  // namespace tessary
