#include <windows.h>

#include <psapi.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "tests/support/com_host.h"

namespace tessary::test {
namespace {

// The environment may ask for a longer run than every build can afford.
int Cycles(const char* name, int usual) {
    const char* wanted = std::getenv(name);
    return wanted ? std::atoi(wanted) : usual;
}

// Repeats `work` and expects that neither memory nor handles grow after the first rounds.
void ExpectFlat(int warmUp, int cycles, const std::function<void()>& work) {
    PROCESS_MEMORY_COUNTERS_EX memory = {};
    SIZE_T memoryBefore = 0;
    DWORD handles = 0, handlesBefore = 0;
    const auto measure = [&] {
        auto* counters = reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&memory);
        GetProcessMemoryInfo(GetCurrentProcess(), counters, sizeof(memory));
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
    decoder = NewDecoder();
    factory->LockServer(FALSE);
    EXPECT_FALSE(CanUnload()) << "a lock was counted twice";
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
    ExpectFlat(200, Cycles("TESSARY_CYCLES", 1500), [&] {
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
    ExpectFlat(10, Cycles("TESSARY_CYCLES", 100), [&] {
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

constexpr size_t kThreads = 16;

// Runs every piece of work on every thread at once, each thread beginning with another piece.
template <size_t N>
void InThreads(const std::function<void(size_t)> (&work)[N]) {
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            while (!go) std::this_thread::yield();
            for (size_t k = 0; k < N; ++k) work[(i + k) % N](i);
            CoUninitialize();
        });
    }
    go = true;
    for (std::thread& thread : threads) thread.join();
}

TEST(Threads, GetTheAnswersOfOneThread) {
    // Larger than the read-ahead buffer, so that uses of the stream that mix would give other pixels.
    ByteWriter planes;
    for (uint32_t i = 0; i < 3u * 400 * 300; ++i) planes.U8(i * 7 ^ i >> 8);
    const Bytes rich = RichDocument().Build();
    const Bytes large =
        DocumentBuilder(kColorRgb, 8, 3, 400, 300).Resource(1039, Bytes(300000, 0x5A)).Merged(planes).Build();
    MemoryStream reference(large);
    const Bytes want = PixelsOf(FrameOf(OpenDecoder(reference).get()).get());
    ASSERT_FALSE(want.empty());
    for (int round = Cycles("TESSARY_ROUNDS", 12); round > 0; --round) {
        MemoryStream stream(large), richStream(rich), ifdStream(rich);
        {
            IfdFactory factory;
            const auto decoder = OpenDecoder(stream), richDecoder = OpenDecoder(richStream);
            const auto shared = FrameOf(decoder.get()), richFrame = FrameOf(richDecoder.get());
            Reinitialize(richFrame.get(), &ifdStream, factory.get());
            const auto blocks = richFrame.As<IWICMetadataBlockReader>(IID_IWICMetadataBlockReader);
            ComPtr<IWICBitmapSource> thumbnails[kThreads], frameThumbnails[kThreads];
            ComPtr<IWICMetadataReader> readers[kThreads];
            const auto expectProfile = [](IWICBitmapFrameDecode* frame) {
                const auto context = NewColorContext();
                IWICColorContext* contexts[] = {context.get()};
                UINT count = 0;
                EXPECT_EQ(frame->GetColorContexts(1, contexts, &count), S_OK);
            };
            const std::function<void(size_t)> work[] = {
                [&](size_t) { EXPECT_EQ(PixelsOf(FrameOf(decoder.get()).get()), want); },
                [&](size_t) { EXPECT_EQ(PixelsOf(shared.get()), want); },
                [&](size_t) { expectProfile(shared.get()); },
                [&](size_t) { expectProfile(FrameOf(decoder.get()).get()); },
                [&](size_t) { EXPECT_EQ(PixelsOf(FrameOf(richDecoder.get()).get()), RichPixels()); },
                [&](size_t i) { EXPECT_EQ(richDecoder->GetThumbnail(thumbnails[i].Put()), S_OK); },
                [&](size_t i) { EXPECT_EQ(richFrame->GetThumbnail(frameThumbnails[i].Put()), S_OK); },
                [&](size_t i) { EXPECT_EQ(blocks->GetReaderByIndex(0, readers[i].Put()), S_OK); },
            };
            InThreads(work);
            EXPECT_EQ(IfdFactory::made, 1);
            for (size_t i = 0; i < kThreads; ++i) {
                EXPECT_TRUE(thumbnails[i].get() == thumbnails[0].get() &&
                            readers[i].get() == readers[0].get() &&
                            frameThumbnails[i].get() == frameThumbnails[0].get())
                    << "made twice";
            }
        }
        EXPECT_EQ(stream.references, 1);
        EXPECT_TRUE(CanUnload());
    }
}

}  // namespace
}  // namespace tessary::test
