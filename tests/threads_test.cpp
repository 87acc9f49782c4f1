// Documents share nothing: many threads at once get what one gets. Meant for the thread sanitizer above all,
// which sees every table that is built on first use.
#include <gtest/gtest.h>

#include <thread>

#include "frontend/document_pixels.h"
#include "tests/support/document_builder.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {
namespace {

std::vector<uint32_t> Picture(const Bytes& file) {
    MemoryStream stream(file);
    DocumentPixels picture;
    if (DecodeDocumentPixels(&stream, picture) != PsdReadResult::kOk) return {};
    return {picture.pixels.get(), picture.pixels.get() + picture.pixels.count()};
}

TEST(Threads, DecodeAsOneThreadDoes) {
    ByteWriter shadow;
    shadow.U16(0).U16(2).Text("8BIMcmnS").U32(7).U32(0).U8(1).U16(0);
    shadow.Text("8BIMdsdw").U32(41).U32(0).Fixed(3).Fixed(0).Fixed(120).Fixed(2).Zeros(10).Text("8BIMmul ");
    shadow.U8(1).U8(0).U8(200);
    DocumentBuilder layered(kColorRgb, 8, 3, 16, 16);
    layered.HasRealMergedData(false);
    layered.Layer(LayerBuilder({2, 2, 12, 12}).Solid(0xC0406080).Block("lrFX", shadow));
    layered.Layer(LayerBuilder({0, 0, 0, 0}).Solid(0).Block("blnc", ByteWriter().I16(40).Zeros(18)));
    layered.Layer(LayerBuilder({0, 0, 16, 16}).Solid(0x80F01020).Mode("hue "));
    DocumentBuilder lab(kColorLab, 8, 3, 16, 16);
    Bytes planes(3 * 256);
    for (size_t i = 0; i < planes.size(); ++i) planes[i] = static_cast<uint8_t>(i * 7);
    const Bytes files[] = {layered.Build(), lab.Merged(planes, 3).Build()};

    std::vector<uint32_t> got[8];
    std::vector<std::thread> threads;
    for (size_t i = 0; i < std::size(got); ++i)
        threads.emplace_back([&, i] { got[i] = Picture(files[i % 2]); });
    for (std::thread& thread : threads) thread.join();
    for (size_t i = 0; i < std::size(got); ++i) {
        EXPECT_EQ(got[i], Picture(files[i % 2])) << i;
        EXPECT_EQ(got[i].size(), 256u) << i;
    }
}

}  // namespace
}  // namespace tessary::test
