#include <gtest/gtest.h>

#include <climits>
#include <tuple>

#include "frontend/document_pixels.h"
#include "frontend/header_probe.h"
#include "frontend/pixel_copy.h"
#include "frontend/thumbnail_image.h"
#include "tests/support/document_builder.h"

namespace tessary::test {
namespace {

constexpr uint32_t kMergedColor = 0xFF000000, kLayerColor = 0xFF8090A0;

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
    const auto layerless = [](uint32_t width, uint32_t height) {
        return DocumentBuilder(kColorRgb, 8, 3, width, height).HasRealMergedData(false);
    };
    // A merged image of one colour above a layer of another.
    DocumentBuilder both(kColorRgb, 8, 3, 2, 2);
    both.Layer(LayerBuilder({0, 0, 2, 2}).Solid(kLayerColor));
    const auto with = [&](const Bytes& word) { return DocumentBuilder(both).Resource(1057, word); };
    const DocumentBuilder sound = with({0, 0, 0, 1, 1}), unsound = with({0, 0, 0, 1, 0});
    const std::tuple<const char*, DocumentBuilder, uint32_t> cases[] = {
        {"no word", both, kMergedColor},
        {"empty word", with({}), kMergedColor},
        {"vouched for", sound, kMergedColor},
        {"flag 2", with({0, 0, 0, 1, 2}), kMergedColor},
        {"not vouched for", unsound, kLayerColor},
        {"no layers", layerless(2, 2), kBackground},
        {"damaged resources", DocumentBuilder(both).Resource(1005, {}, "", "8BIX"), 0},
        {"damaged layers", DocumentBuilder(unsound).Layer(LayerBuilder({}).Filler(1)), 0},
        // Nothing can be composited, and the merged image, which has been read, must not stand in for it.
        {"no columns", layerless(0, 2), 0},
        {"no room", layerless(30000, 30000).MergedData({}), 0},
    };
    for (const auto& [what, document, want] : cases) {
        const Decoded decoded(document);
        EXPECT_EQ(decoded.color, want) << what;
        if (want == 0) continue;
        EXPECT_TRUE(decoded.picture.pixels.count() == 4 && decoded.picture.width == 2) << what;
        EXPECT_EQ(decoded.stream.position == 7, want == kMergedColor)
            << what << ": only the reading of the layers may move the stream";
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

// A document without merged data, so that large sizes cost nothing.
DocumentBuilder Header(uint32_t width, uint32_t height, uint32_t channels = 3, uint32_t depth = 8,
                       uint32_t mode = kColorRgb) {
    return DocumentBuilder(mode, depth, channels, width, height).MergedData({});
}

HeaderInfo Probe(const Bytes& file, HRESULT want = S_OK) {
    MemoryStream stream(file);
    HeaderInfo info;
    EXPECT_EQ(ProbeHeader(&stream, info), want);
    return info;
}

TEST(HeaderProbe, KeepsToTheLimits) {
    Bytes cut = Header(4, 4).Build();
    cut.resize(25);
    const std::tuple<Bytes, HRESULT, uint32_t> cases[] = {
        // the width is reported even where the probe fails
        {Header(30000, 30000).Build(), S_OK, 30000},
        {Header(30001, 1).Build(), E_FAIL, 30001},
        {Header(1, 30001).Build(), E_FAIL, 1},
        {Header(0, 1).Build(), E_FAIL, 0},
        {Header(4, 4, 56).Build(), S_OK, 4},
        {Header(4, 4, 57).Build(), E_FAIL, 4},
        {Header(4, 4, 0).Build(), E_FAIL, 4},
        {Header(4, 4, 3, 24).Build(), E_FAIL, 4},
        {Header(4, 4, 3, 8, 10).Build(), E_FAIL, 4},
        {Header(4, 4).Version(2).Build(), E_FAIL, 0},
        {Header(4, 4).Signature("8BPT").Build(), E_FAIL, 0},
        {cut, E_FAIL, 0},
    };
    for (const auto& [file, want, width] : cases) EXPECT_EQ(Probe(file, want).width, width);
}

TEST(HeaderProbe, TruncatesTheResolutionToWholeDots) {
    const std::tuple<double, uint16_t, uint32_t> cases[] = {{299.99, 1, 299}, {28.35, 2, 72}, {118.1, 2, 299},
                                                            {300, 0, 72},     {300, 3, 72},   {0, 1, 0}};
    for (const auto& [value, unit, want] : cases) {
        const Bytes mixed = ByteWriter().Fixed(150).U16(1).U16(1).Fixed(value).U16(unit).U16(1);
        const HeaderInfo info = Probe(Header(1, 1).Resource(1005, mixed).Build());
        EXPECT_TRUE(info.dpiX == 150 && info.dpiY == want) << value << " of unit " << unit;
        EXPECT_EQ(Probe(Header(1, 1).Resolution(value, unit).Build()).dpiX, want) << value;
    }
}

TEST(HeaderProbe, TellsWhatTheDocumentCarries) {
    const std::tuple<uint16_t, uint32_t, int> cases[] = {
        // profile, thumbnail, EXIF, XMP
        {1039, kColorRgb, 1000}, {1039, kColorCmyk, 0}, {1033, kColorRgb, 100}, {1036, kColorRgb, 100},
        {1058, kColorRgb, 10},   {1059, kColorRgb, 10}, {1060, kColorCmyk, 1},  {1061, kColorRgb, 0}};
    for (const auto& [id, mode, want] : cases) {
        for (const size_t size : {0u, 40u}) {
            const HeaderInfo i = Probe(Header(1, 1, 4, 8, mode).Resource(id, Bytes(size, 1)).Build());
            EXPECT_EQ(i.hasColorProfile * 1000 + i.hasThumbnail * 100 + i.hasExif * 10 + i.hasXmp,
                      size ? want : 0)
                << id;
        }
    }
}

TEST(HeaderProbe, SurvivesBadStreams) {
    const Bytes file = Header(9, 5).Resolution(96, 1).Resource(1060, Bytes(10, 1)).Build();
    for (uint64_t n = 0; n < 20; ++n) {
        MemoryStream stream(file);
        HeaderInfo info;
        stream.maxBytesPerRead = n ? ~0u : 1;
        stream.failCall = n;
        stream.failLater = true;
        stream.claimsMore = n && n % 2 == 0;
        EXPECT_TRUE(ProbeHeader(&stream, info) == E_FAIL || n == 0 || n > 3) << n;
        EXPECT_TRUE(n || (info.dpiX == 96 && info.hasXmp));
    }
}

TEST(PixelCopy, TakesOnlyAreasInsideTheImage) {
    for (const CopyArea& area : {CopyArea{0, 0, 30, 20}, CopyArea{29, 19, 1, 1}, CopyArea{30, 20, 0, 0}})
        EXPECT_TRUE(CheckRect(area, 30, 20)) << area.x;
    const CopyArea outside[] = {{25, 0, 10, 1}, {0, 15, 1, 6}, {-1, 0, 1, 1},      {0, -1, 1, 1},
                                {5, 5, -1, 1},  {5, 5, 1, -1}, {1, 0, INT_MAX, 1}, {0, INT_MAX, 1, INT_MAX}};
    for (const CopyArea& area : outside) EXPECT_FALSE(CheckRect(area, 30, 20)) << area.x << ' ' << area.y;
}

TEST(PixelCopy, StopsWhenTheBudgetIsSpent) {
    uint32_t image[6 * 5];
    for (uint32_t i = 0; i < 30; ++i) image[i] = 0x01010101u * (i + 1);
    for (const uint32_t budget : {0u, 1u, 12u, 13u, 30u, 48u, 1000u}) {
        Bytes buffer(4 * 17, 0xEE);
        CopyRows(image, 6, {2, 1, 3, 4}, 17, budget, buffer.data());
        uint32_t left = budget;
        for (uint32_t i = 0; i < buffer.size(); ++i) {
            const bool copied = i % 17 < 12 && left > 0;
            ASSERT_EQ(buffer[i], copied ? (i / 17 + 1) * 6 + 3 + i % 17 / 4 : 0xEE) << budget << ' ' << i;
            left -= copied ? 1 : 0;
        }
    }
}

TEST(ThumbnailImage, RefusesNumbersThatDisagree) {
    const struct {
        uint32_t format, width, height, compressedSize;
        int16_t bits, planes;
        bool want;
    } cases[] = {
        {1, 2, 3, 5, 24, 1, true},
        {0, 2, 3, 5, 24, 1, false},
        {1, 0, 3, 5, 24, 1, false},
        {1, 3, 3, 5, 24, 1, false},
        {1, 0x55555556, 3, 5, 24, 1, false},  // three times that wraps
        {1, 2, 3, 5, 32, 1, false},
        {1, 2, 3, 5, 24, 2, false},
        {1, 2, 1 << 23, 5, 24, 1, true},  // 64 MiB
        {1, 2, (1 << 23) + 1, 5, 24, 1, false},
        {1, 2, 0x20000001, 5, 24, 1, false},  // the size wraps
        {1, 2, 3, 6, 24, 1, false},
    };
    for (const auto& [format, width, height, compressedSize, bits, planes, want] : cases) {
        PsdThumbnail thumbnail{true, format, width, height, 8, 24, compressedSize, bits, planes, {}};
        thumbnail.data = AllocateZeroed<uint8_t>({5});
        EXPECT_EQ(IsUsableThumbnail(thumbnail), want) << format << ' ' << width << ' ' << height;
    }
}

}  // namespace
}  // namespace tessary::test
