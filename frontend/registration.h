// Registration of the codec: which script, run how, and the path of the server.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

#include "frontend/registry_writer.h"

namespace tessary {

// DllRegisterServer and DllUnregisterServer are these, with the module's per-user flag. They find module,
// path and scripts by themselves and throw nothing. DllInstall sets the flag (never clears it) when its
// command line is "user", calls the matching one of the two exports, and after a failed registration
// UnregisterServer, returning the registration's failure.
//
// A failed registration leaves the registry as it was.
HRESULT RegisterServer(bool perUser);
// S_OK or a failure.
HRESULT UnregisterServer(bool perUser);

// The steps of the two, for tests too.

struct RegistrationChoice {
    bool hasFeature = false;  // media centre shell and desktop wallpaper verb: Windows 6.1 and later
    DWORD majorVersion = 0;
    DWORD minorVersion = 0;
    bool photoshopPresent = false;
};

RegistrationChoice ExamineSystem();

// The resource number of the script.
WORD ChooseScript(const RegistrationChoice& choice);

// Whether any of Photoshop's own keys opens under HKEY_CLASSES_ROOT.
bool IsPhotoshopPresent();

// What registering a server at `modulePath` does on this system, out of the scripts of the calling module.
// May throw std::bad_alloc.
HRESULT ReadOwnScript(const std::wstring& modulePath, bool perUser,
                      std::vector<RegistryOperation>& operations);

// Runs a script for a server at `modulePath`. May throw std::bad_alloc.
HRESULT InstallScript(std::wstring_view script, const std::wstring& modulePath, bool perUser,
                      RegistryJournal& journal);
HRESULT RemoveScript(std::wstring_view script, const std::wstring& modulePath, bool perUser);

// Replaces, in the default value of this key, the module's own folder by %PROCESSOR_ARCHITECTURE%, so that
// programs of every architecture find the build made for them. A path whose own percent signs would then be
// read as variables stays as it is. The journal undoes it.
HRESULT RewriteServerPath(HKEY root, const std::wstring& path, RegistryJournal& journal);

}  // namespace tessary
