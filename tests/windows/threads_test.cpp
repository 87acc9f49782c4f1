#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <thread>

#include "tests/support/com_host.h"

namespace tessary::test {
namespace {

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
    const char* const rounds = std::getenv("TESSARY_ROUNDS");
    for (int round = rounds ? std::atoi(rounds) : 12; round > 0; --round) {
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
