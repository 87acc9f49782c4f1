#include <gtest/gtest.h>

#include <windows.h>

#include <psapi.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "tests/support/com_host.h"

namespace tessary::test {
namespace {

// TESSARY_CYCLES asks for a longer run than every build can afford.
int Cycles(int usual) {
    const char* wanted = std::getenv("TESSARY_CYCLES");
    return wanted ? std::atoi(wanted) : usual;
}

// Repeats `work` and expects that neither memory nor handles grow after the first rounds.
void ExpectFlat(int warmUp, int cycles, const std::function<void()>& work) {
    PROCESS_MEMORY_COUNTERS_EX memory = {};
    SIZE_T memoryBefore = 0;
    DWORD handles = 0, handlesBefore = 0;
    const auto measure = [&] {
        GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&memory),
                             sizeof(memory));
        GetProcessHandleCount(GetCurrentProcess(), &handles);
    };
    for (int i = -warmUp; i < cycles && !testing::Test::HasFatalFailure(); ++i) {
        if (i == 0) measure(), memoryBefore = memory.PrivateUsage, handlesBefore = handles;
        work();
    }
    measure();
    EXPECT_LT(memory.PrivateUsage, memoryBefore + (1u << 20));
    EXPECT_LE(handles, handlesBefore + 4);
}

TEST(Module, MakesOnlyItsOwnClass) {
    const auto getClassObject = GetClassObject(LoadDll());
    void* out = &out;
    EXPECT_EQ(getClassObject(CLSID_Tessary, IID_IClassFactory, nullptr), E_POINTER);
    EXPECT_EQ(getClassObject(CLSID_WICJpegDecoder, IID_IClassFactory, &out), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(getClassObject(CLSID_Tessary, IID_IWICBitmapDecoder, &out), E_NOINTERFACE);

    const auto factory = DecoderFactory();
    EXPECT_EQ(DecoderFactory().get(), factory.get());
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
    for (const IID& id : {IID_IUnknown, IID_IWICBitmapDecoder}) {
        out = &out;
        EXPECT_EQ(factory->CreateInstance(factory.get(), id, &out), CLASS_E_NOAGGREGATION);
        EXPECT_EQ(out, nullptr);
    }
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IStream, &out), E_NOINTERFACE);
    EXPECT_TRUE(CanUnload()) << "a refused decoder still holds the module";
}

TEST(Module, StaysWhileAnythingLives) {
    const auto factory = DecoderFactory();
    EXPECT_TRUE(CanUnload()) << "a factory alone does not count";
    auto decoder = NewDecoder();
    auto frame = FrameOf(decoder.get());
    EXPECT_FALSE(CanUnload());
    factory->LockServer(FALSE);
    factory->LockServer(FALSE);
    EXPECT_FALSE(CanUnload()) << "a client gave back locks that were not its own";
    decoder.Reset();
    EXPECT_FALSE(CanUnload());
    frame.Reset();
    EXPECT_TRUE(CanUnload());
    factory->LockServer(FALSE);
    factory->LockServer(TRUE);
    EXPECT_FALSE(CanUnload()) << "the count went below zero";
    factory->LockServer(FALSE);
    EXPECT_TRUE(CanUnload());
}

TEST(Module, ObjectsHaveOneIdentity) {
    MemoryStream stream(RichDocument().Build());
    const auto decoder = OpenDecoder(stream);
    const auto frame = FrameOf(decoder.get());
    const std::pair<IUnknown*, IID> cases[] = {
        {decoder.get(), IID_ITessary},
        {decoder.get(), IID_IWICBitmapDecoder},
        {decoder.get(), IID_IWICMetadataBlockReader},
        {decoder.get(), IID_IMarshal},
        {frame.get(), IID_IWICBitmapSource},
        {frame.get(), IID_IWICBitmapFrameDecode},
        {frame.get(), IID_IWICMetadataBlockReader},
        {frame.get(), IID_IWICBitmapSourceTransform},
    };
    for (const auto& [pointer, id] : cases) {
        const ComPtr<IUnknown> object(pointer);
        const auto other = object.As<IUnknown>(id);
        ASSERT_TRUE(other);
        EXPECT_EQ(other.As<IUnknown>(IID_IUnknown).get(), object.As<IUnknown>(IID_IUnknown).get());
    }
    EXPECT_EQ(decoder->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    // Another apartment gets the pointer itself.
    const auto marshal = decoder.As<IMarshal>(IID_IMarshal);
    CLSID unmarshaler;
    EXPECT_EQ(marshal->GetUnmarshalClass(IID_IWICBitmapDecoder, decoder.get(), MSHCTX_INPROC, nullptr,
                                         MSHLFLAGS_NORMAL, &unmarshaler),
              S_OK);
    EXPECT_EQ(unmarshaler.Data1, 0x33Au);  // the free-threaded marshaler
}

TEST(Module, UseLeavesNothingBehind) {
    MemoryStream stream(RichDocument().Build());
    ExpectFlat(200, Cycles(1500), [&] {
        stream.position = 0;
        {
            const auto frame = FrameOf(OpenDecoder(stream).get());
            ComPtr<IWICBitmapSource> thumbnail;
            frame->GetThumbnail(thumbnail.Put());
            ASSERT_EQ(PixelsOf(frame.get()).size(), 48u);
        }
        ASSERT_EQ(stream.references, 1);
        ASSERT_TRUE(CanUnload());
    });
}

TEST(Module, CanBeLoadedAgainAndAgain) {
    wchar_t path[MAX_PATH], folder[MAX_PATH];
    GetModuleFileNameW(LoadDll(), path, MAX_PATH);
    GetTempPathW(MAX_PATH, folder);
    const std::wstring copy = std::wstring(folder) + L"TessaryCopy.dll";
    ASSERT_TRUE(CopyFileW(path, copy.c_str(), FALSE));
    ExpectFlat(10, Cycles(100), [&] {
        const HMODULE loaded = LoadLibraryW(copy.c_str());
        ASSERT_TRUE(loaded);
        {
            ComPtr<IClassFactory> factory;
            ComPtr<IWICBitmapDecoder> decoder;
            ASSERT_EQ(GetClassObject(loaded)(CLSID_Tessary, IID_IClassFactory, factory.PutVoid()), S_OK);
            EXPECT_EQ(factory->CreateInstance(nullptr, IID_IWICBitmapDecoder, decoder.PutVoid()), S_OK);
        }
        ASSERT_EQ(Export<HRESULT WINAPI()>(loaded, "DllCanUnloadNow")(), S_OK);
        FreeLibrary(loaded);
        ASSERT_FALSE(GetModuleHandleW(L"TessaryCopy.dll"));
    });
    EXPECT_TRUE(DeleteFileW(copy.c_str()));
}

}  // namespace
}  // namespace tessary::test
