// The DLL under test and the system's own objects.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initguid.h>  // before the headers whose identifiers it defines

#include "frontend/codec.h"
#include "frontend/com_support.h"
#include "tools/document_builder.h"

namespace tessary::test {

inline HMODULE LoadDll() {  // once, for the life of the process
    static const HMODULE module = [] {
        std::string path = TESSARY_DLL_DIR "/Tessary.dll";
        if (path[0] == '/') path = "Z:" + path;  // where Wine shows the root of the file system
        for (char& c : path) c = c == '/' ? '\\' : c;
        return LoadLibraryA(path.c_str());
    }();
    return module;
}

inline std::wstring DllPath() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(LoadDll(), path, MAX_PATH);
    return path;
}

template <class Function>
Function* Export(HMODULE module, const char* name) {
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

template <class T>
ComPtr<T> Create(REFCLSID classId, REFIID id) {
    ComPtr<T> object;
    CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER, id, object.PutVoid());
    return object;
}

struct ComEnvironment : testing::Environment {
    void SetUp() override { ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK); }
};
[[maybe_unused]] static const auto* const g_com = testing::AddGlobalTestEnvironment(new ComEnvironment);

}  // namespace tessary::test
