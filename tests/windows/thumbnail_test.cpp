#include <cstdlib>

#include "tests/support/com_host.h"

namespace tessary::test {
namespace {

constexpr UINT kWidth = 32;
constexpr UINT kHeight = 16;
constexpr UINT kRowBytes = 100;  // four more than the pixels need

const JpegColors kBgr = {GUID_WICPixelFormat24bppBGR, {120, 0, 0}, {0, 0, 250}};
const JpegColors kGray = {GUID_WICPixelFormat8bppGray, {60}, {200}};
// The colours of kBgr. JPEG files hold CMYK inverted, and only Wine's decoder sees to that, not its encoder.
const JpegColors kCmyk = {GUID_WICPixelFormat32bppCMYK, {0, 0, 255, 120}, {255, 0, 0, 250}};

Bytes DocumentWith(const Bytes& jpeg, uint16_t id = 1036) {
    const uint32_t size = static_cast<uint32_t>(jpeg.size());
    ByteWriter data;
    data.U32(1).U32(kWidth).U32(kHeight).U32(kRowBytes).U32(kRowBytes * kHeight).U32(size).U16(24).U16(1);
    return DocumentBuilder(kColorRgb, 8, 3, 4, 4).Resource(id, data.Raw(jpeg)).Build();
}

// Asks the decoder, which has no factory as long as nothing needed one, and then a frame, which has.
struct Asked {
    explicit Asked(const Bytes& file) : stream(file) {
        const auto decoder = OpenDecoder(stream);
        alone = decoder->GetThumbnail(source.Put());
        EXPECT_EQ(SUCCEEDED(alone), static_cast<bool>(source));
        withFactory = FrameOf(decoder.get())->GetThumbnail(source.Put());
    }
    MemoryStream stream;
    ComPtr<IWICBitmapSource> source;
    HRESULT alone = E_FAIL;
    HRESULT withFactory = E_FAIL;
};

void ExpectNear(const uint8_t* pixel, const Bytes& want, const char* what) {
    for (size_t i = 0; i < 3; ++i) EXPECT_LE(std::abs(pixel[i] - want[i]), 12) << what << ", byte " << i;
}

TEST(Thumbnail, BecomesTheSizeOfTheRecord) {
    const struct {
        const char* what;
        UINT jpegWidth, jpegHeight;
        const JpegColors& colors;
        uint16_t id;
        HRESULT alone;
        GUID format;
    } cases[] = {
        {"as recorded", 32, 16, kBgr, 1036, S_OK, GUID_WICPixelFormat24bppBGR},
        {"red first", 32, 16, kBgr, 1033, S_OK, GUID_WICPixelFormat24bppRGB},
        {"larger", 64, 48, kBgr, 1036, WINCODEC_ERR_CODECNOTHUMBNAIL, GUID_WICPixelFormat24bppBGR},
        {"smaller", 16, 8, kBgr, 1033, WINCODEC_ERR_CODECNOTHUMBNAIL, GUID_WICPixelFormat24bppRGB},
        {"gray", 32, 16, kGray, 1036, WINCODEC_ERR_CODECNOTHUMBNAIL, GUID_WICPixelFormat24bppBGR},
        {"CMYK", 32, 16, kCmyk, 1036, WINCODEC_ERR_CODECNOTHUMBNAIL, GUID_WICPixelFormat24bppBGR},
    };
    for (const auto& test : cases) {
        const Asked asked(DocumentWith(EncodeJpeg(test.jpegWidth, test.jpegHeight, test.colors), test.id));
        EXPECT_EQ(asked.alone, test.alone) << test.what;
        ASSERT_EQ(asked.withFactory, S_OK) << test.what;
        UINT width = 0, height = 0;
        EXPECT_EQ(asked.source->GetSize(&width, &height), S_OK);
        EXPECT_TRUE(width == kWidth && height == kHeight) << test.what;
        GUID format = {};
        EXPECT_EQ(asked.source->GetPixelFormat(&format), S_OK);
        EXPECT_TRUE(IsEqualGUID(format, test.format)) << test.what;
        Bytes pixels(kWidth * 3 * kHeight);
        EXPECT_EQ(
            asked.source->CopyPixels(nullptr, kWidth * 3, static_cast<UINT>(pixels.size()), pixels.data()),
            S_OK);
        for (const UINT row : {1u, kHeight - 2}) {
            const uint8_t* at = pixels.data() + row * kWidth * 3;
            // The decoded bytes are served as they are: what is first in them is the format's affair.
            const bool gray = &test.colors == &kGray;
            ExpectNear(at + 4 * 3, gray ? Bytes(3, 60) : kBgr.left, test.what);
            ExpectNear(at + 28 * 3, gray ? Bytes(3, 200) : kBgr.right, test.what);
        }
    }
}

TEST(Thumbnail, AnswersAsABitmapSource) {
    const Asked asked(DocumentWith(EncodeJpeg(kWidth, kHeight, kBgr)));
    ASSERT_EQ(asked.alone, S_OK);
    IWICBitmapSource* source = asked.source.get();
    double x = 0, y = 0;
    UINT side = 0;
    Bytes all(kWidth * 3 * kHeight), buffer(200, 0xEE);
    EXPECT_EQ(source->GetResolution(&x, &y), S_OK);
    EXPECT_TRUE(x == 72.0 && y == 72.0);
    EXPECT_EQ(source->CopyPalette(nullptr), WINCODEC_ERR_PALETTEUNAVAILABLE);
    ExpectAll(E_INVALIDARG, source->GetSize(nullptr, &side), source->GetSize(&side, nullptr),
              source->GetPixelFormat(nullptr), source->GetResolution(&x, nullptr),
              source->CopyPixels(nullptr, 96, 0, nullptr));
    const WICRect outside = {31, 0, 2, 1};
    EXPECT_EQ(source->CopyPixels(&outside, 96, 200, buffer.data()), E_INVALIDARG);

    ASSERT_EQ(source->CopyPixels(nullptr, 96, static_cast<UINT>(all.size()), all.data()), S_OK);
    const WICRect inside = {15, 3, 2, 2};
    EXPECT_EQ(source->CopyPixels(&inside, 50, 0, buffer.data()), S_OK) << "the size is the caller's affair";
    for (size_t i = 0; i < buffer.size(); ++i) {
        const size_t row = i / 50, column = i % 50;
        const bool copied = row < 2 && column < 6;
        ASSERT_EQ(buffer[i], copied ? all[(3 + row) * 96 + 45 + column] : 0xEE) << i;
    }

    // Who finds the way behind the source cannot give it other pixels.
    const auto init = asked.source.As<IThumbnailBitmapSourcePrivate>(IID_IThumbnailBitmapSourcePrivate);
    ASSERT_TRUE(init);
    EXPECT_EQ(init->Initialize(nullptr), E_UNEXPECTED);
}

}  // namespace
}  // namespace tessary::test
