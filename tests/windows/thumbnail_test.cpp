#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/com_host.h"

namespace tessary::test {
namespace {

constexpr UINT kWidth = 32;
constexpr UINT kHeight = 16;
constexpr UINT kRowBytes = 100;  // four more than the pixels need

// Bytes of a pixel in the left and the right half of a picture.
struct JpegColors {
    GUID format;
    Bytes left, right;
};
const JpegColors kBgr = {GUID_WICPixelFormat24bppBGR, {120, 0, 0}, {0, 0, 250}};
const JpegColors kGray = {GUID_WICPixelFormat8bppGray, {60}, {200}};
// The colours of kBgr. JPEG files hold CMYK inverted, and only Wine's decoder sees to that, not its encoder.
const JpegColors kCmyk = {GUID_WICPixelFormat32bppCMYK, {0, 0, 255, 120}, {255, 0, 0, 250}};

Bytes EncodeJpeg(UINT width, UINT height, const JpegColors& colors = kBgr) {
    ComPtr<IWICBitmapEncoder> encoder;
    ComPtr<IStream> stream;
    ComPtr<IWICBitmapFrameEncode> frame;
    EXPECT_EQ(CoCreateInstance(CLSID_WICJpegEncoder, nullptr, CLSCTX_INPROC_SERVER, IID_IWICBitmapEncoder,
                               encoder.PutVoid()),
              S_OK);
    EXPECT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, stream.Put()), S_OK);
    EXPECT_EQ(encoder->Initialize(stream.get(), WICBitmapEncoderNoCache), S_OK);
    EXPECT_EQ(encoder->CreateNewFrame(frame.Put(), nullptr), S_OK);
    frame->Initialize(nullptr);
    frame->SetSize(width, height);
    WICPixelFormatGUID format = colors.format;
    EXPECT_EQ(frame->SetPixelFormat(&format), S_OK);
    EXPECT_TRUE(IsEqualGUID(format, colors.format));
    ByteWriter pixels;
    for (UINT i = 0; i < width * height; ++i) pixels.Raw(i % width < width / 2 ? colors.left : colors.right);
    Bytes bytes = pixels;
    const UINT size = static_cast<UINT>(bytes.size());
    EXPECT_EQ(frame->WritePixels(height, size / height, size, bytes.data()), S_OK);
    EXPECT_EQ(frame->Commit(), S_OK);
    EXPECT_EQ(encoder->Commit(), S_OK);
    STATSTG stat = {};
    stream->Stat(&stat, STATFLAG_NONAME);
    Bytes jpeg(static_cast<size_t>(stat.cbSize.QuadPart));
    stream->Seek({}, STREAM_SEEK_SET, nullptr);
    stream->Read(jpeg.data(), static_cast<ULONG>(jpeg.size()), nullptr);
    return jpeg;
}

struct Thumbnail {
    uint32_t format = 1;
    uint32_t width = kWidth;
    uint32_t rowBytes = kRowBytes;
    uint32_t extraSize = 0;  // compressed bytes claimed that are not there
    uint32_t bits = 24;
    uint16_t id = 1036;

    Bytes Document(const Bytes& jpeg) const {
        const uint32_t size = static_cast<uint32_t>(jpeg.size()) + extraSize;
        ByteWriter data;
        data.U32(format).U32(width).U32(kHeight).U32(rowBytes).U32(rowBytes * kHeight).U32(size);
        data.U16(bits).U16(1).Raw(jpeg);
        return DocumentBuilder(kColorRgb, 8, 3, 4, 4).Resource(id, data).Build();
    }
};

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
        {"gray and larger", 64, 32, kGray, 1036, WINCODEC_ERR_CODECNOTHUMBNAIL, GUID_WICPixelFormat24bppBGR},
    };
    for (const auto& test : cases) {
        Thumbnail thumbnail;
        thumbnail.id = test.id;
        const Asked asked(thumbnail.Document(EncodeJpeg(test.jpegWidth, test.jpegHeight, test.colors)));
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

TEST(Thumbnail, RefusesRecordsThatContradictThemselves) {
    Thumbnail rawPixels, wide, shortRows, huge, longer, deep;
    rawPixels.format = 0;
    wide.width = kRowBytes / 3 + 1;
    shortRows.rowBytes = kWidth * 3 - 1;
    huge.rowBytes = 0x10000000;
    longer.extraSize = 1;
    deep.bits = 32;
    const struct {
        const char* what;
        const Thumbnail& thumbnail;
    } cases[] = {{"no JPEG", rawPixels},         {"too wide", wide},
                 {"short rows", shortRows},      {"256 MiB", huge},
                 {"more than there is", longer}, {"32 bits", deep}};
    const Bytes jpeg = EncodeJpeg(kWidth, kHeight);
    for (const auto& test : cases) {
        const Asked asked(test.thumbnail.Document(jpeg));
        EXPECT_EQ(asked.alone, WINCODEC_ERR_CODECNOTHUMBNAIL) << test.what;
        EXPECT_EQ(asked.withFactory, WINCODEC_ERR_CODECNOTHUMBNAIL) << test.what;
    }
    for (size_t size = 0; size < jpeg.size() / 2; size += 41) {
        Bytes damaged(jpeg.begin(), jpeg.begin() + static_cast<std::ptrdiff_t>(size));
        damaged.resize(size + 20, 0x55);
        Asked(Thumbnail().Document(damaged));  // any answer, but an answer
    }
}

TEST(Thumbnail, AnswersAsABitmapSource) {
    const Asked asked(Thumbnail().Document(EncodeJpeg(kWidth, kHeight)));
    ASSERT_EQ(asked.alone, S_OK);
    IWICBitmapSource* source = asked.source.get();
    double x = 0, y = 0;
    UINT side = 0;
    Bytes all(kWidth * 3 * kHeight), buffer(200, 0xEE);
    EXPECT_EQ(source->GetResolution(&x, &y), S_OK);
    EXPECT_TRUE(x == 72.0 && y == 72.0);
    EXPECT_EQ(source->CopyPalette(nullptr), WINCODEC_ERR_PALETTEUNAVAILABLE);
    EXPECT_EQ(source->GetSize(nullptr, &side), E_INVALIDARG);
    EXPECT_EQ(source->GetSize(&side, nullptr), E_INVALIDARG);
    EXPECT_EQ(source->GetPixelFormat(nullptr), E_INVALIDARG);
    EXPECT_EQ(source->GetResolution(nullptr, &y), E_INVALIDARG);
    EXPECT_EQ(source->GetResolution(&x, nullptr), E_INVALIDARG);
    EXPECT_EQ(source->CopyPixels(nullptr, 96, 0, nullptr), E_INVALIDARG);
    const WICRect outside[] = {{-1, 0, 1, 1},
                               {0, -1, 1, 1},
                               {31, 0, 2, 1},
                               {0, 15, 1, 2},
                               {0, 0, -1, 1},
                               {0, 0, 1, -1},
                               {0x7FFFFFFF, 0, 0x7FFFFFFF, 1}};
    for (const WICRect& rect : outside)
        EXPECT_EQ(source->CopyPixels(&rect, 96, 200, buffer.data()), E_INVALIDARG) << rect.X << ' ' << rect.Y;

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

TEST(Thumbnail, OutlivesDecoderAndStream) {
    const Bytes file = Thumbnail().Document(EncodeJpeg(kWidth, kHeight));
    MemoryStream stream(file);
    ComPtr<IWICBitmapSource> source;
    {
        const auto decoder = OpenDecoder(stream);
        ASSERT_EQ(decoder->GetThumbnail(source.Put()), S_OK);
        ComPtr<IWICBitmapSource> again;
        ASSERT_EQ(FrameOf(decoder.get())->GetThumbnail(again.Put()), S_OK);
        EXPECT_EQ(again.get(), source.get()) << "frame and decoder share it";
    }
    EXPECT_EQ(stream.references, 1);
    EXPECT_FALSE(CanUnload());
    Bytes pixels(kWidth * 3 * kHeight);
    EXPECT_EQ(source->CopyPixels(nullptr, 96, static_cast<UINT>(pixels.size()), pixels.data()), S_OK);
    source.Reset();
    EXPECT_TRUE(CanUnload());
}

}  // namespace
}  // namespace tessary::test
