// What the registry says about who opens documents.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace tessary::tools {

// The decoder as it is registered for one part of the registry.
struct ServerFacts {
    HKEY root = nullptr;
    const wchar_t* whom = L"";  // "this user", "this machine"
    std::wstring written;       // the path as it is written; empty when it is not registered there
    std::wstring path;          // the same with its variables replaced
    bool listed = false;        // among the decoders of the imaging component
};
// A user's own registration goes before the machine's.
std::vector<ServerFacts> ReadServers();

// The user whose own registration has the decoder, when the machine's and this user's have not; empty when
// nobody's has. Sees those who are logged on.
std::wstring OtherRegisteredUser();

// Something the shell asks of a document, and what answers.
struct HandlerFacts {
    const wchar_t* what;  // "thumbnails" and so on
    std::wstring owner;   // a class with its name, or a program identifier; empty when there is none
    std::wstring place;   // the key that says so
    bool asRegistered;    // whether it is as registering the decoder leaves it
};
std::vector<HandlerFacts> ReadHandlers(const std::wstring& extension);

// The text of a value, with its variables replaced when it is of that kind; empty when there is none.
std::wstring RegistryText(HKEY root, const std::wstring& key, const std::wstring& name);
bool RegistryKeyExists(HKEY root, const std::wstring& key);

bool FileExists(const std::wstring& path);
// "1.2.3.4", or empty.
std::wstring FileVersion(const std::wstring& path);
// The folder that a path names, without the backslash, and the last part of a path.
std::wstring FolderOf(const std::wstring& path);
std::wstring NameOf(const std::wstring& path);
bool SameText(const std::wstring& a, const std::wstring& b);  // in any case

}  // namespace tessary::tools
