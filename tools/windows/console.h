// Text on the console, for the Windows tools.
#pragma once

#include <windows.h>

#include <cstdio>
#include <string>

namespace tessary::tools {

// Prints a line in UTF-8.
inline void Print(FILE* file, const std::wstring& text) {
    const int length = static_cast<int>(text.size());
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, utf8.data(), bytes, nullptr, nullptr);
    std::fprintf(file, "%s\n", utf8.c_str());
}

// A line of a table; without a name it goes on with the line above.
inline void PrintFact(const std::wstring& name, const std::wstring& value) {
    Print(stdout, (name + (name.empty() ? L"" : L":") + std::wstring(18, L' ')).substr(0, 18) + value);
}

inline std::wstring Hex(HRESULT result) {
    wchar_t text[16];
    swprintf(text, 16, L"0x%08lx", static_cast<unsigned long>(result));
    return text;
}

}  // namespace tessary::tools
