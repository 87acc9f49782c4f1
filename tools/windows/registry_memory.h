// Remembers what registration replaces in the registry, and puts it back.
#pragma once

#include <windows.h>

#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "frontend/registry_writer.h"

namespace tessary::tools {

// A key, or a value of it; the empty name is the default value's. Classes are named where they lie, in the
// machine's or in the user's part, because HKEY_CLASSES_ROOT shows a mixture of both. Names are told apart as
// the registry does it: in any case they are the same.
struct RegistryPlace {
    HKEY root = nullptr;
    std::wstring key;
    std::optional<std::wstring> value;  // nothing: the key itself

    bool operator<(const RegistryPlace& other) const;
};

// "HKLM\Key", "HKLM\Key, default value" or "HKLM\Key, value Name".
std::wstring PlaceText(const RegistryPlace& place);

// What stands at places; the data of a key is its own name as it is written there. Nothing stands at places
// that are not in it.
using RegistryState = std::map<RegistryPlace, RawValue>;

struct RegistryChange {
    std::optional<RawValue> before, after;
};
using RegistryMemory = std::map<RegistryPlace, RegistryChange>;

// The places that the operations touch, and how they will look.
struct RegistrationPlan {
    RegistryState before, after;
};
RegistrationPlan PlanRegistration(std::span<const RegistryOperation> operations);

// Whether a place is below the decoder's own keys. What stands there is nobody else's, is never put back and
// goes whatever it is.
bool IsOwnPlace(const RegistryPlace& place);

// What is to be remembered when the plan is carried out, `memory` being what was remembered before it.
// Somebody who has taken a place over since then is remembered instead. `registered` says whether the decoder
// is registered now: if so, what is missing was not taken away from it, and without a memory what looks as
// registration writes it is taken for that.
RegistryMemory Remember(const RegistrationPlan& plan, const RegistryMemory& memory, bool registered);

// Forgets places that carrying out the plan has left alone: where nothing was and nothing is, and in the part
// of the registry that is not `root`, which the decoder is registered for, where things are as they were.
void ForgetUntouched(RegistryMemory& memory, HKEY root);

// Puts back what was there, except where somebody else has put something since; what is missing nobody has
// taken over. Those places are added to `takenOver`. Goes on after a failure and returns the first.
LSTATUS PutBack(const RegistryMemory& memory, std::vector<RegistryPlace>& takenOver);

// Keeps the memory below a key. An empty memory leaves no key behind. What was in one user's part is loaded
// for the same user only.
LSTATUS SaveMemory(HKEY root, const std::wstring& key, const RegistryMemory& memory);
RegistryMemory LoadMemory(HKEY root, const std::wstring& key);

}  // namespace tessary::tools
