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

TEST(Thumbnail, BecomesTheSizeOfTheRecord) {
    const struct {
        UINT jpegWidth, jpegHeight;
        const JpegColors& colors;
        uint16_t id;
    } cases[] = {{32, 16, kBgr, 1036}, {32, 16, kBgr, 1033},  {64, 48, kBgr, 1036},
                 {16, 8, kBgr, 1033},  {32, 16, kGray, 1036}, {32, 16, kCmyk, 1036}};
    for (const auto& [jpegWidth, jpegHeight, colors, id] : cases) {
        const Asked asked(DocumentWith(EncodeJpeg(jpegWidth, jpegHeight, colors), id));
        const bool asRecorded = &colors == &kBgr && jpegWidth == kWidth;
        EXPECT_EQ(asked.alone, asRecorded ? S_OK : WINCODEC_ERR_CODECNOTHUMBNAIL) << jpegWidth << ' ' << id;
        ASSERT_EQ(asked.withFactory, S_OK);
        UINT width = 0, height = 0;
        GUID format = {};
        Bytes pixels(kWidth * 3 * kHeight);
        ExpectAll(S_OK, asked.source->GetSize(&width, &height), asked.source->GetPixelFormat(&format),
                  asked.source->CopyPixels(nullptr, kWidth * 3, kWidth * 3 * kHeight, pixels.data()));
        EXPECT_TRUE(width == kWidth && height == kHeight);
        EXPECT_TRUE(
            IsEqualGUID(format, id == 1033 ? GUID_WICPixelFormat24bppRGB : GUID_WICPixelFormat24bppBGR));
        for (size_t i = 0; i < pixels.size(); ++i) {
            const size_t column = i / 3 % kWidth, row = i / 3 / kWidth;
            if ((column != 4 && column != 28) || (row != 1 && row != kHeight - 2)) continue;
            // The decoded bytes are served as they are: what is first in them is the format's affair.
            const JpegColors& shown = &colors == &kGray ? kGray : kBgr;
            const Bytes& want = column == 4 ? shown.left : shown.right;
            EXPECT_LE(std::abs(pixels[i] - want[i % want.size()]), 12) << jpegWidth << ", byte " << i;
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
