#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <thread>

#include "tests/support/com_host.h"

namespace tessary::test {
namespace {

constexpr int kThreads = 16;

int Rounds() {
    const char* wanted = std::getenv("TESSARY_ROUNDS");
    return wanted ? std::atoi(wanted) : 25;
}

// Runs `work` on all threads at once, each with its number.
void InThreads(const std::function<void(int)>& work) {
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            while (!go) std::this_thread::yield();
            work(i);
            CoUninitialize();
        });
    }
    go = true;
    for (std::thread& thread : threads) thread.join();
}

ComPtr<IUnknown> IdentityOf(const ComPtr<IWICBitmapSource>& source) {
    return source.As<IUnknown>(IID_IUnknown);
}

TEST(Threads, ShareOneDecoder) {
    // Larger than the read-ahead buffer, so that uses of the stream that mix give other pixels.
    ByteWriter planes;
    for (uint32_t i = 0; i < 3u * 400 * 300; ++i) planes.U8(i * 7 ^ i >> 8);
    const Bytes rich = RichDocument().Build();
    DocumentBuilder large(kColorRgb, 8, 3, 400, 300);
    const Bytes file = large.Resource(1039, Bytes(300000, 0x5A)).Merged(planes).Build();
    MemoryStream reference(file);
    const Bytes want = PixelsOf(FrameOf(OpenDecoder(reference).get()).get());
    ASSERT_FALSE(want.empty());
    for (int round = 0; round < Rounds(); ++round) {
        MemoryStream stream(file), richStream(rich);
        {
            const auto decoder = OpenDecoder(stream), richDecoder = OpenDecoder(richStream);
            const auto shared = FrameOf(decoder.get());
            ComPtr<IUnknown> thumbnails[kThreads];
            InThreads([&](int i) {
                const auto own = FrameOf(decoder.get());
                UINT number = 0;
                DWORD capability = 0;
                ComPtr<IWICColorContext> context;
                ComPtr<IWICImagingFactory> factory;
                ComPtr<IWICBitmapSource> thumbnail;
                CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                                 IID_IWICImagingFactory, factory.PutVoid());
                factory->CreateColorContext(context.Put());
                IWICColorContext* contexts[] = {context.get()};
                const std::function<void()> work[] = {
                    [&] { EXPECT_EQ(PixelsOf(own.get()), want); },
                    [&] { EXPECT_EQ(PixelsOf(shared.get()), want); },
                    [&] { EXPECT_EQ(shared->GetColorContexts(1, contexts, &number), S_OK); },
                    [&] { EXPECT_EQ(own->GetColorContexts(1, contexts, &number), S_OK); },
                    [&] {
                        EXPECT_EQ(richDecoder->GetThumbnail(thumbnail.Put()), S_OK);
                        thumbnails[i] = IdentityOf(thumbnail);
                        EXPECT_EQ(PixelsOf(FrameOf(richDecoder.get()).get()), RichPixels());
                    },
                    [&] { EXPECT_EQ(decoder->GetFrameCount(&number), S_OK); },
                };
                constexpr int kKinds = static_cast<int>(std::size(work));
                for (int k = 0; k < kKinds; ++k) work[(i + k) % kKinds]();
            });
            for (const auto& thumbnail : thumbnails) EXPECT_EQ(thumbnail.get(), thumbnails[0].get());
        }
        EXPECT_EQ(stream.references, 1);
        EXPECT_TRUE(CanUnload());
    }
}

TEST(Threads, MakeWhatIsMadeOnceOnce) {
    const Bytes file = RichDocument().Build();
    for (int round = 0; round < Rounds(); ++round) {
        MemoryStream stream(file);
        IfdFactory factory;
        const auto frame = FrameOf(OpenDecoder(stream).get());
        Reinitialize(frame.get(), &stream, factory.get());
        const auto blocks = frame.As<IWICMetadataBlockReader>(IID_IWICMetadataBlockReader);
        ComPtr<IUnknown> thumbnails[kThreads];
        ComPtr<IWICMetadataReader> readers[kThreads];
        InThreads([&](int i) {
            ComPtr<IWICBitmapSource> thumbnail;
            if (i % 2) EXPECT_EQ(frame->GetThumbnail(thumbnail.Put()), S_OK);
            EXPECT_EQ(blocks->GetReaderByIndex(0, readers[i].Put()), S_OK);
            EXPECT_EQ(PixelsOf(frame.get()), RichPixels());
            if (i % 2 == 0) EXPECT_EQ(frame->GetThumbnail(thumbnail.Put()), S_OK);
            thumbnails[i] = IdentityOf(thumbnail);
        });
        EXPECT_EQ(IfdFactory::made, 1);
        for (int i = 0; i < kThreads; ++i) {
            EXPECT_EQ(thumbnails[i].get(), thumbnails[0].get());
            EXPECT_EQ(readers[i].get(), readers[0].get());
        }
    }
}

}  // namespace
}  // namespace tessary::test
