#include <process.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <tuple>

#include "tests/support/com_host.h"

namespace tessary::test {
namespace {

using Frame = IWICBitmapFrameDecode;

DocumentBuilder SmallDocument(uint32_t width = 4, uint32_t height = 3) {
    return DocumentBuilder(kColorRgb, 8, 3, width, height);
}

ComPtr<IWICMetadataBlockReader> BlocksOf(Frame* frame) {
    return ComPtr<Frame>(frame).As<IWICMetadataBlockReader>(IID_IWICMetadataBlockReader);
}

TEST(Decoder, AnswersBeforeAndAfterInitialize) {
    MemoryStream stream(RichDocument().Build());
    ComPtr<IWICPalette> palette;
    Create<IWICImagingFactory>(CLSID_WICImagingFactory, IID_IWICImagingFactory)->CreatePalette(palette.Put());
    for (const bool open : {false, true}) {
        const auto d = open ? OpenDecoder(stream) : NewDecoder();
        const auto blocks = d.As<IWICMetadataBlockReader>(IID_IWICMetadataBlockReader);
        DWORD capability;
        GUID format;
        UINT frames = 9, contexts = 9, readers = 9;
        IWICColorContext* context = nullptr;
        ComPtr<IWICBitmapSource> source;
        ComPtr<IWICBitmapFrameDecode> frame;
        ComPtr<IWICMetadataReader> reader;
        ComPtr<IEnumUnknown> enumerator;
        ExpectAll(E_INVALIDARG, d->QueryCapability(nullptr, &capability),
                  d->QueryCapability(&stream, nullptr),
                  d->Initialize(nullptr, WICDecodeMetadataCacheOnDemand), d->GetContainerFormat(nullptr),
                  d->GetDecoderInfo(nullptr), d->CopyPalette(nullptr), d->GetMetadataQueryReader(nullptr),
                  d->GetPreview(nullptr), d->GetColorContexts(0, nullptr, nullptr),
                  d->GetColorContexts(1, nullptr, &contexts), d->GetThumbnail(nullptr),
                  d->GetFrameCount(nullptr), d->GetFrame(1, nullptr), blocks->GetCount(nullptr),
                  blocks->GetReaderByIndex(0, nullptr), blocks->GetEnumerator(nullptr));
        ExpectAll(S_OK, d->GetContainerFormat(&format), d->GetColorContexts(1, &context, &contexts),
                  blocks->GetCount(&readers), d->GetFrame(0, frame.Put()));
        ExpectAll(WINCODEC_ERR_UNSUPPORTEDOPERATION, d->GetPreview(source.Put()),
                  blocks->GetReaderByIndex(0, reader.Put()), blocks->GetEnumerator(enumerator.Put()));
        EXPECT_EQ(d->CopyPalette(palette.get()), WINCODEC_ERR_PALETTEUNAVAILABLE);
        EXPECT_EQ(d->GetFrame(1, frame.Put()), WINCODEC_ERR_FRAMEMISSING);
        EXPECT_EQ(d->GetThumbnail(source.Put()), open ? S_OK : WINCODEC_ERR_CODECNOTHUMBNAIL);
        EXPECT_EQ(d->GetFrameCount(&frames), open ? S_OK : WINCODEC_ERR_NOTINITIALIZED);
        EXPECT_TRUE(frames == (open ? 1 : 9) && format.Data1 == 0x9B2C4F61u);
        EXPECT_EQ(contexts + readers, 0u) << "the frame has profile and metadata";
    }
}

TEST(Decoder, TellsDocumentsFromOtherStreams) {
    const std::pair<DocumentBuilder, bool> cases[] = {
        {SmallDocument(), true},
        {SmallDocument(30001, 1).MergedData({}), false},
        {SmallDocument().Version(2), false},
        {SmallDocument().Resource(1005, {}, "", "8BIX"), false},
    };
    for (const auto& [document, good] : cases) {
        for (const uint64_t position : {0u, 12u, 1000u}) {  // hosts may stand behind what they looked at
            MemoryStream stream(document.Build());
            stream.position = position;
            const auto decoder = NewDecoder();
            DWORD capability = 99;
            const HRESULT want = good ? S_OK : WINCODEC_ERR_UNKNOWNIMAGEFORMAT;
            EXPECT_EQ(decoder->QueryCapability(&stream, &capability), want);
            EXPECT_TRUE(capability == (good ? 0x1A : 0) && stream.position == position);
            EXPECT_EQ(decoder->Initialize(&stream, WICDecodeMetadataCacheOnLoad), want);
        }
    }
}

TEST(Decoder, TakesItsCallsInAnyOrder) {
    MemoryStream rich(RichDocument().Build()), small(SmallDocument(2, 1).Build()), bad(Bytes(50, 0));
    DWORD capability;
    UINT count = 0, width = 9, height = 9;
    auto decoder = NewDecoder();
    EXPECT_EQ(decoder->QueryCapability(&rich, &capability), S_OK);
    EXPECT_EQ(decoder->GetFrameCount(&count), S_OK) << "the question alone keeps the stream";
    auto first = FrameOf(decoder.get());
    EXPECT_EQ(decoder->Initialize(&small, WICDecodeMetadataCacheOnDemand), S_OK);
    FrameOf(decoder.get())->GetSize(&width, &height);
    EXPECT_EQ(width, 2u);
    EXPECT_EQ(PixelsOf(first.get()), RichPixels()) << "a frame keeps the stream it was made with";

    EXPECT_EQ(decoder->Initialize(&bad, WICDecodeMetadataCacheOnDemand), WINCODEC_ERR_UNKNOWNIMAGEFORMAT);
    FrameOf(decoder.get())->GetSize(&width, &height);
    EXPECT_EQ(width, 0u) << "a refused stream leaves nothing of the one before";
    EXPECT_EQ(decoder->Initialize(&rich, WICDecodeMetadataCacheOnDemand), S_OK);
    EXPECT_EQ(small.references, 1) << "a stream that was replaced is still held";
    auto last = FrameOf(decoder.get());
    decoder.Reset();
    EXPECT_EQ(PixelsOf(last.get()), RichPixels()) << "a frame outlives its decoder";
    first.Reset();
    last.Reset();
    EXPECT_EQ(rich.references, 1);
}

TEST(Decoder, ReadsAheadInLargePieces) {
    MemoryStream stream(SmallDocument(300, 300).Merged(Bytes(3u * 300 * 300, 7)).Build());
    const auto decoder = OpenDecoder(stream);
    // The header, the resources and the way back: one piece serves them all.
    EXPECT_EQ(stream.bytesRead, kReadAheadBytes);
    const uint64_t calls = stream.calls;
    EXPECT_FALSE(PixelsOf(FrameOf(decoder.get()).get()).empty());
    EXPECT_LE(stream.calls - calls, 10u);
}

TEST(Frame, AnswersWithAndWithoutADocument) {
    MemoryStream stream(RichDocument().Build());
    const auto context = NewColorContext();
    IWICColorContext* contexts[17];
    std::fill_n(contexts, 17, context.get());
    IWICColorContext* half[] = {context.get(), nullptr};
    for (const bool open : {false, true}) {
        const auto f = FrameOf((open ? OpenDecoder(stream) : NewDecoder()).get());
        const auto blocks = BlocksOf(f.get());
        const auto transform = f.As<IWICBitmapSourceTransform>(IID_IWICBitmapSourceTransform);
        UINT width = 9, height = 9, number = 9;
        double x = 9, y = 9;
        GUID container;
        BYTE bytes[64];
        ComPtr<IWICBitmapSource> thumbnail;
        ComPtr<IWICMetadataReader> reader;
        const auto copy = [&](const WICRect& area) { return f->CopyPixels(&area, 16, sizeof(bytes), bytes); };
        ExpectAll(E_INVALIDARG, f->GetSize(nullptr, &height), f->GetSize(&width, nullptr),
                  f->GetPixelFormat(nullptr), f->GetResolution(&x, nullptr), f->CopyPalette(nullptr),
                  f->CopyPixels(nullptr, 16, 48, nullptr), copy({0, 1, 4, 3}),
                  f->GetMetadataQueryReader(nullptr), f->GetColorContexts(0, nullptr, nullptr),
                  f->GetColorContexts(0, contexts, &number), f->GetColorContexts(1, nullptr, &number),
                  f->GetColorContexts(2, half, &number), f->GetColorContexts(17, contexts, &number),
                  f->GetThumbnail(nullptr), blocks->GetContainerFormat(nullptr), blocks->GetCount(nullptr),
                  blocks->GetReaderByIndex(0, nullptr), blocks->GetEnumerator(nullptr),
                  transform->GetClosestSize(&width, nullptr), transform->GetClosestPixelFormat(nullptr),
                  transform->DoesSupportTransform(WICBitmapTransformRotate0, nullptr));
        ExpectAll(S_OK, f->GetSize(&width, &height), f->GetColorContexts(16, contexts, &number),
                  f->GetResolution(&x, &y), blocks->GetContainerFormat(&container));
        EXPECT_EQ(f->CopyPixels(nullptr, 16, 48, bytes), open ? S_OK : WINCODEC_ERR_BADIMAGE);
        EXPECT_EQ(copy({0, 0, 0, 0}), open ? S_OK : WINCODEC_ERR_BADIMAGE);
        EXPECT_EQ(f->GetThumbnail(thumbnail.Put()), open ? S_OK : WINCODEC_ERR_CODECNOTHUMBNAIL);
        EXPECT_EQ(blocks->GetReaderByIndex(1, reader.Put()), WINCODEC_ERR_UNSUPPORTEDOPERATION);
        EXPECT_TRUE(width * 10 + height == (open ? 43 : 0) && x == (open ? 300 : 0));
        EXPECT_EQ(container.Data1, 0x9B2C4F61u);
    }
}

TEST(Frame, CopiesWhatFitsTheBufferAndServesAViewerInPlainC) {
    MemoryStream stream(RichDocument().Build());
    const auto frame = FrameOf(OpenDecoder(stream).get());
    const Bytes all = RichPixels();
    const WICRect area = {1, 1, 2, 2};
    Bytes got(40, 0xEE), want(40, 0xEE);
    EXPECT_EQ(frame->CopyPixels(&area, 20, 13, got.data()), S_OK);
    std::copy_n(&all[20], 8, &want[0]);   // pixel (1, 1) and its neighbour
    std::copy_n(&all[36], 5, &want[20]);  // of the second row only what the budget leaves
    EXPECT_EQ(got, want);
    const auto factory = Create<IWICImagingFactory>(CLSID_WICImagingFactory, IID_IWICImagingFactory);
    EXPECT_EQ(ViewInC(factory.get(), frame.get(), all.data()), 0);
}

TEST(Frame, TriesAFailedDecodeAgain) {
    MemoryStream stream(RichDocument().Build());
    const auto decoder = NewDecoder();
    DWORD capability;
    EXPECT_EQ(decoder->QueryCapability(&stream, &capability), S_OK);  // no buffer in between
    const auto frame = FrameOf(decoder.get());
    stream.failCall = stream.calls + 1;
    stream.failLater = true;
    EXPECT_TRUE(PixelsOf(frame.get()).empty());
    stream.failCall = 0;
    stream.Replace(DocumentBuilder(kColorRgb, 8, 3, 3, 4).Build());
    EXPECT_TRUE(PixelsOf(frame.get()).empty()) << "pixels of another size than the frame's";
    stream.Replace(RichDocument().HasRealMergedData(false).Layer(LayerBuilder({}).Filler(1)).Build());
    EXPECT_TRUE(PixelsOf(frame.get()).empty()) << "layers are read";
    stream.Replace(RichDocument().Build());
    EXPECT_EQ(PixelsOf(frame.get()), RichPixels());
    stream.failCall = 1;
    EXPECT_EQ(PixelsOf(frame.get()), RichPixels()) << "what is decoded stays";
}

TEST(Frame, GivesTheProfileButNotToTheMediaCentre) {
    wchar_t own[MAX_PATH], folder[MAX_PATH];
    GetModuleFileNameW(nullptr, own, MAX_PATH);
    MemoryStream stream(RichDocument().Build());
    const auto frame = FrameOf(OpenDecoder(stream).get());
    UINT actual = 9;
    if (std::wstring(own).ends_with(L"EHShell.exe")) {
        EXPECT_EQ(frame->GetColorContexts(17, nullptr, &actual), S_FALSE);
        EXPECT_EQ(actual, 0u);
        return;
    }
    EXPECT_EQ(frame->GetColorContexts(0, nullptr, &actual), S_OK);
    EXPECT_EQ(actual, 1u);
    const auto context = NewColorContext();
    IWICColorContext* contexts[] = {context.get()};
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(frame->GetColorContexts(1, contexts, &actual), S_OK);
        Bytes bytes(kProfile.size());
        EXPECT_EQ(context->GetProfileBytes(static_cast<UINT>(bytes.size()), bytes.data(), &actual), S_OK);
        EXPECT_EQ(bytes, kProfile);
    }

    GetTempPathW(MAX_PATH, folder);
    const std::wstring copy = std::wstring(folder) + L"EHShell.exe";
    ASSERT_TRUE(CopyFileW(own, copy.c_str(), FALSE));
    EXPECT_EQ(
        _wspawnl(_P_WAIT, copy.c_str(), L"EHShell.exe", L"--gtest_filter=*NotToTheMediaCentre", nullptr), 0);
    DeleteFileW(copy.c_str());
}

TEST(Frame, ShowsExifWithTheXmpPacketInIt) {
    MemoryStream stream(RichDocument().Build());
    IfdFactory factory;
    const auto frame = FrameOf(OpenDecoder(stream).get());
    Reinitialize(frame.get(), &stream, factory.get());
    const auto blocks = BlocksOf(frame.get());
    const uint64_t position = stream.position;
    UINT count = 0;
    EXPECT_EQ(blocks->GetCount(&count), S_OK);
    EXPECT_TRUE(count == 1 && IfdFactory::made == 0) << "made before it is asked for";
    ComPtr<IWICMetadataReader> reader;
    ASSERT_EQ(blocks->GetReaderByIndex(0, reader.Put()), S_OK);
    EXPECT_EQ(stream.position, position);
    EXPECT_EQ(IfdFactory::options, 5u) << "big-endian, no cache stream";
    ComPtr<IWICMetadataQueryReader> query;
    EXPECT_EQ(frame->GetMetadataQueryReader(query.Put()), S_OK);
    PROPVARIANT value;
    PropVariantInit(&value);
    EXPECT_EQ(query->GetMetadataByName(L"/ifd/{ushort=274}", &value), S_OK);
    EXPECT_EQ(value.uiVal, 6);
    EXPECT_EQ(query->GetMetadataByName(L"/ifd/{ushort=700}", &value), S_OK);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(value.caub.pElems), value.caub.cElems), "<xmp/>");
    PropVariantClear(&value);
    EXPECT_NE(query->GetMetadataByName(L"/ifd/{ushort=305}", &value), S_OK);
    ComPtr<IEnumUnknown> enumerator, copy;
    ASSERT_EQ(blocks->GetEnumerator(enumerator.Put()), S_OK);
    IUnknown* items[2] = {};
    ULONG fetched = 9;
    EXPECT_EQ(enumerator->Next(2, items, nullptr), E_INVALIDARG);
    EXPECT_EQ(enumerator->Clone(copy.Put()), S_OK);
    EXPECT_EQ(enumerator->Next(2, items, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 1u);
    EXPECT_EQ(items[0], reader.As<IUnknown>(IID_IUnknown).get());
    ComPtr<IUnknown>::Attach(items[0]).Reset();
    EXPECT_EQ(enumerator->Skip(1), S_FALSE);
    EXPECT_EQ(enumerator->Reset(), S_OK);
    EXPECT_EQ(enumerator->Skip(1), S_OK);
    EXPECT_EQ(copy->Next(1, items, nullptr), S_OK) << "a copy has its own place";
    ComPtr<IUnknown>::Attach(items[0]).Reset();
    EXPECT_EQ(IfdFactory::made, 1);
}

TEST(Frame, TriesTheMetadataOnlyOnce) {
    MemoryStream stream(RichDocument().Build());
    IfdFactory factory;
    const auto frame = FrameOf(OpenDecoder(stream).get());
    const auto blocks = BlocksOf(frame.get());
    ComPtr<IWICMetadataReader> reader;
    ComPtr<IEnumUnknown> enumerator;
    Reinitialize(frame.get(), &stream, nullptr);
    EXPECT_EQ(blocks->GetEnumerator(enumerator.Put()), E_UNEXPECTED) << "no factory";
    Reinitialize(frame.get(), &stream, factory.get());
    stream.failCall = stream.calls + 3;
    stream.failLater = true;
    EXPECT_EQ(blocks->GetReaderByIndex(0, reader.Put()), WINCODEC_ERR_UNSUPPORTEDOPERATION);
    stream.failCall = 0;
    ExpectAll(E_UNEXPECTED, blocks->GetReaderByIndex(0, reader.Put()),
              blocks->GetEnumerator(enumerator.Put()));
    EXPECT_EQ(IfdFactory::made, 0);
}

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
    const std::tuple<UINT, UINT, const JpegColors&, uint16_t> cases[] = {
        {32, 16, kBgr, 1036}, {32, 16, kBgr, 1033},  {64, 48, kBgr, 1036},
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
    EXPECT_TRUE(source->GetResolution(&x, &y) == S_OK && x == 72.0 && y == 72.0);
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
