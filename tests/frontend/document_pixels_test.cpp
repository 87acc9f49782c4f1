#include "frontend/document_pixels.h"

#include <gtest/gtest.h>

#include "tests/support/document_builder.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {
namespace {

constexpr uint32_t kMergedColor = 0xFF102030;
constexpr uint32_t kLayerColor = 0xFF8090A0;

// A merged image of one colour above a layer of another.
DocumentBuilder TwoPictures() {
    Bytes merged(12, 0x10);
    std::fill_n(merged.begin() + 4, 4, uint8_t{0x20});
    std::fill_n(merged.begin() + 8, 4, uint8_t{0x30});
    return DocumentBuilder(kColorRgb, 8, 3, 2, 2)
        .Merged(merged)
        .Layer(LayerBuilder({0, 0, 2, 2}).Solid(kLayerColor));
}

struct Decoded {
    explicit Decoded(const Bytes& file, PictureChoice choice = PictureChoice::kAsTheFileSays) : stream(file) {
        stream.position = 7;
        result = DecodeDocumentPixels(&stream, picture, choice);
    }
    // The first pixel; 0 without a picture.
    uint32_t Color() const { return picture.pixels ? picture.pixels[0] : 0; }

    MemoryStream stream;
    DocumentPixels picture;
    PsdReadResult result;
};

TEST(DocumentPixels, TakesThePictureThatTheFileVouchesFor) {
    const struct {
        const char* what;
        DocumentBuilder document;
        PictureChoice choice;
        uint32_t want;
    } cases[] = {
        {"no word", TwoPictures(), PictureChoice::kAsTheFileSays, kMergedColor},
        {"empty word", TwoPictures().Resource(1057, {}), PictureChoice::kAsTheFileSays, kMergedColor},
        {"vouched for", TwoPictures().HasRealMergedData(true), PictureChoice::kAsTheFileSays, kMergedColor},
        {"flag 2", TwoPictures().Resource(1057, ByteWriter().U32(1).U8(2).Zeros(12)),
         PictureChoice::kAsTheFileSays, kMergedColor},
        {"not vouched for", TwoPictures().HasRealMergedData(false), PictureChoice::kAsTheFileSays,
         kLayerColor},
        {"layers wanted", TwoPictures().HasRealMergedData(true), PictureChoice::kAlwaysLayers, kLayerColor},
        {"no layers", DocumentBuilder(kColorRgb, 8, 3, 2, 2).HasRealMergedData(false),
         PictureChoice::kAsTheFileSays, kBackground},
    };
    for (const auto& test : cases) {
        const Decoded decoded(test.document.Build(), test.choice);
        EXPECT_EQ(decoded.result, PsdReadResult::kOk) << test.what;
        EXPECT_EQ(decoded.Color(), test.want) << test.what;
        EXPECT_EQ(decoded.picture.pixels.count(), 4u) << test.what;
        EXPECT_EQ(decoded.picture.width, 2u);
        EXPECT_EQ(decoded.stream.position == 7, test.want == kMergedColor)
            << test.what << ": only the reading of the layers may move the stream";
    }
}

TEST(DocumentPixels, FailsWhereThereIsNoPicture) {
    const struct {
        const char* what;
        Bytes file;
    } cases[] = {
        {"damaged resources", TwoPictures().Resource(1005, {}, "", "8BIX").Build()},
        {"damaged layers", TwoPictures().HasRealMergedData(false).Layer(LayerBuilder({}).Filler(1)).Build()},
        // Nothing can be composited, and the merged image, which has been read, must not stand in for it.
        {"no columns", DocumentBuilder(kColorRgb, 8, 3, 0, 2).HasRealMergedData(false).Build()},
        {"no room", DocumentBuilder(kColorRgb, 8, 3, 30000, 30000).MergedData({}).Build()},
    };
    for (const auto& test : cases) {
        const Decoded decoded(test.file);
        EXPECT_NE(decoded.result, PsdReadResult::kOk) << test.what;
        EXPECT_FALSE(decoded.picture.pixels) << test.what;
    }
}

#if defined(TESSARY_FAULT_INJECTION)
TEST(DocumentPixels, NeverFallsBackToAMergedImageThatIsNotVouchedFor) {
    const Bytes file = TwoPictures().HasRealMergedData(false).Build();
    FailAllocationNumber(0);
    ASSERT_EQ(Decoded(file).Color(), kLayerColor);
    const uint64_t allocations = AllocationCount();
    for (uint64_t n = 1; n <= allocations; ++n) {
        FailAllocationNumber(n);
        const Decoded decoded(file);
        FailAllocationNumber(0);
        EXPECT_EQ(decoded.result == PsdReadResult::kOk, static_cast<bool>(decoded.picture.pixels)) << n;
        EXPECT_TRUE(decoded.Color() == 0 || decoded.Color() == kLayerColor) << n;
    }
}
#endif

}  // namespace
}  // namespace tessary::test
