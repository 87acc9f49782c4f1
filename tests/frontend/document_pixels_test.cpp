#include "frontend/document_pixels.h"

#include <gtest/gtest.h>

#include "tests/support/document_builder.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {
namespace {

constexpr uint32_t kMergedColor = 0xFF000000;
constexpr uint32_t kLayerColor = 0xFF8090A0;

// A merged image of one colour above a layer of another.
DocumentBuilder TwoPictures() {
    return DocumentBuilder(kColorRgb, 8, 3, 2, 2).Layer(LayerBuilder({0, 0, 2, 2}).Solid(kLayerColor));
}

struct Decoded {
    explicit Decoded(const DocumentBuilder& document, PictureChoice choice = PictureChoice::kAsTheFileSays)
        : stream(document.Build()) {
        stream.position = 7;
        result = DecodeDocumentPixels(&stream, picture, choice);
        if (picture.pixels) color = picture.pixels[0];
        EXPECT_EQ(result == PsdReadResult::kOk, static_cast<bool>(picture.pixels));
    }
    MemoryStream stream;
    DocumentPixels picture;
    PsdReadResult result;
    uint32_t color = 0;  // of the first pixel; 0 without a picture
};

TEST(DocumentPixels, TakesThePictureThatTheFileVouchesFor) {
    const DocumentBuilder sound = TwoPictures().HasRealMergedData(true);
    const DocumentBuilder unsound = TwoPictures().HasRealMergedData(false);
    const struct {
        const char* what;
        DocumentBuilder document;
        uint32_t want;
    } cases[] = {
        {"no word", TwoPictures(), kMergedColor},
        {"empty word", TwoPictures().Resource(1057, {}), kMergedColor},
        {"vouched for", sound, kMergedColor},
        {"flag 2", TwoPictures().Resource(1057, ByteWriter().U32(1).U8(2).Zeros(12)), kMergedColor},
        {"not vouched for", unsound, kLayerColor},
        {"no layers", DocumentBuilder(kColorRgb, 8, 3, 2, 2).HasRealMergedData(false), kBackground},
        {"damaged resources", TwoPictures().Resource(1005, {}, "", "8BIX"), 0},
        {"damaged layers", DocumentBuilder(unsound).Layer(LayerBuilder({}).Filler(1)), 0},
        // Nothing can be composited, and the merged image, which has been read, must not stand in for it.
        {"no columns", DocumentBuilder(kColorRgb, 8, 3, 0, 2).HasRealMergedData(false), 0},
        {"no room", DocumentBuilder(kColorRgb, 8, 3, 30000, 30000).MergedData({}), 0},
    };
    for (const auto& test : cases) {
        const Decoded decoded(test.document);
        EXPECT_EQ(decoded.color, test.want) << test.what;
        if (test.want == 0) continue;
        EXPECT_EQ(decoded.picture.pixels.count(), 4u) << test.what;
        EXPECT_EQ(decoded.picture.width, 2u);
        EXPECT_EQ(decoded.stream.position == 7, test.want == kMergedColor)
            << test.what << ": only the reading of the layers may move the stream";
    }
    EXPECT_EQ(Decoded(sound, PictureChoice::kAlwaysLayers).color, kLayerColor);
#if defined(TESSARY_FAULT_INJECTION)
    for (uint64_t n = 1, allocations = 1; n <= allocations; ++n) {
        FailAllocationNumber(n);
        const Decoded decoded(unsound);
        allocations = AllocationCount();
        EXPECT_TRUE(decoded.color == 0 || decoded.color == kLayerColor) << n;
    }
    FailAllocationNumber(0);
#endif
}

}  // namespace
}  // namespace tessary::test
