#include <gtest/gtest.h>

#include <functional>

#include "tests/support/com_host.h"

namespace tessary::test {
namespace {

using Decoder = IWICBitmapDecoder*;

ComPtr<IWICMetadataBlockReader> BlocksOf(Decoder decoder) {
    return ComPtr<IWICBitmapDecoder>(decoder).As<IWICMetadataBlockReader>(IID_IWICMetadataBlockReader);
}

DocumentBuilder SmallDocument(uint32_t width = 4, uint32_t height = 3) {
    return DocumentBuilder(kColorRgb, 8, 3, width, height);
}

TEST(Decoder, RefusesNullBeforeAndAfterInitialize) {
    MemoryStream stream(RichDocument().Build());
    DWORD capability;
    UINT number;
    const std::function<HRESULT(Decoder)> calls[] = {
        [&](Decoder d) { return d->QueryCapability(nullptr, &capability); },
        [&](Decoder d) { return d->QueryCapability(&stream, nullptr); },
        [](Decoder d) { return d->Initialize(nullptr, WICDecodeMetadataCacheOnDemand); },
        [](Decoder d) { return d->GetContainerFormat(nullptr); },
        [](Decoder d) { return d->GetDecoderInfo(nullptr); },
        [](Decoder d) { return d->CopyPalette(nullptr); },
        [](Decoder d) { return d->GetMetadataQueryReader(nullptr); },
        [](Decoder d) { return d->GetPreview(nullptr); },
        [](Decoder d) { return d->GetColorContexts(0, nullptr, nullptr); },
        [&](Decoder d) { return d->GetColorContexts(1, nullptr, &number); },
        [](Decoder d) { return d->GetThumbnail(nullptr); },
        [](Decoder d) { return d->GetFrameCount(nullptr); },
        [](Decoder d) { return d->GetFrame(1, nullptr); },
        [](Decoder d) { return BlocksOf(d)->GetCount(nullptr); },
        [](Decoder d) { return BlocksOf(d)->GetReaderByIndex(0, nullptr); },
        [](Decoder d) { return BlocksOf(d)->GetEnumerator(nullptr); },
    };
    for (const auto& decoder : {NewDecoder(), OpenDecoder(stream)}) {
        for (const auto& call : calls) EXPECT_EQ(call(decoder.get()), E_INVALIDARG) << &call - calls;
    }
}

TEST(Decoder, AnswersBeforeAndAfterInitialize) {
    MemoryStream stream(RichDocument().Build());
    const auto factory = Create<IWICImagingFactory>(CLSID_WICImagingFactory, IID_IWICImagingFactory);
    ComPtr<IWICPalette> palette;
    factory->CreatePalette(palette.Put());
    for (const bool open : {false, true}) {
        const auto decoder = open ? OpenDecoder(stream) : NewDecoder();
        GUID format;
        UINT number = 9;
        IWICColorContext* context = nullptr;
        ComPtr<IWICBitmapDecoderInfo> info;
        ComPtr<IWICBitmapSource> source;
        ComPtr<IWICBitmapFrameDecode> frame;
        ComPtr<IWICMetadataReader> reader;
        ComPtr<IEnumUnknown> enumerator;
        EXPECT_EQ(decoder->GetThumbnail(source.Put()), open ? S_OK : WINCODEC_ERR_CODECNOTHUMBNAIL);
        EXPECT_EQ(decoder->GetFrameCount(&number), open ? S_OK : WINCODEC_ERR_NOTINITIALIZED);
        EXPECT_EQ(number, open ? 1u : 9u);
        EXPECT_EQ(decoder->GetContainerFormat(&format), S_OK);
        EXPECT_EQ(format.Data1, 0x9B2C4F61u);
        EXPECT_EQ(decoder->GetDecoderInfo(info.Put()), E_UNEXPECTED) << "not registered here";
        EXPECT_EQ(decoder->CopyPalette(palette.get()), WINCODEC_ERR_PALETTEUNAVAILABLE);
        EXPECT_EQ(decoder->GetPreview(source.Put()), WINCODEC_ERR_UNSUPPORTEDOPERATION);
        EXPECT_EQ(decoder->GetColorContexts(1, &context, &number), S_OK);
        EXPECT_EQ(number, 0u) << "the frame has the profile";
        EXPECT_EQ(decoder->GetFrame(1, frame.Put()), WINCODEC_ERR_FRAMEMISSING);
        EXPECT_EQ(decoder->GetFrame(0, frame.Put()), S_OK);
        EXPECT_EQ(BlocksOf(decoder.get())->GetCount(&(number = 9)), S_OK);
        EXPECT_EQ(number, 0u);
        EXPECT_EQ(BlocksOf(decoder.get())->GetReaderByIndex(0, reader.Put()),
                  WINCODEC_ERR_UNSUPPORTEDOPERATION);
        EXPECT_EQ(BlocksOf(decoder.get())->GetEnumerator(enumerator.Put()),
                  WINCODEC_ERR_UNSUPPORTEDOPERATION);
    }
}

TEST(Decoder, TellsDocumentsFromOtherStreams) {
    const struct {
        const char* what;
        Bytes file;
        bool good;
    } cases[] = {
        {"a document", SmallDocument().Build(), true},
        {"widest", SmallDocument(30000, 1).MergedData({}).Build(), true},
        {"too wide", SmallDocument(30001, 1).MergedData({}).Build(), false},
        {"no width", SmallDocument(0, 1).MergedData({}).Build(), false},
        {"large-document version", SmallDocument().Version(2).Build(), false},
        {"other signature", SmallDocument().Signature("8BPT").Build(), false},
        {"25 bytes", Bytes(25, '8'), false},
        {"damaged resources", SmallDocument().Resource(1005, {}, "", "8BIX").Build(), false},
    };
    for (const auto& test : cases) {
        for (const uint64_t position : {0ull, 12ull}) {  // hosts may stand behind what they looked at
            MemoryStream stream(test.file);
            stream.position = position;
            const auto decoder = NewDecoder();
            DWORD capability = 99;
            const HRESULT want = test.good ? S_OK : WINCODEC_ERR_UNKNOWNIMAGEFORMAT;
            EXPECT_EQ(decoder->QueryCapability(&stream, &capability), want) << test.what;
            EXPECT_EQ(capability, test.good ? 0x1Au : 0u) << test.what;
            EXPECT_EQ(stream.position, position) << test.what;
            EXPECT_EQ(decoder->Initialize(&stream, WICDecodeMetadataCacheOnLoad), want) << test.what;
        }
    }
}

TEST(Decoder, SurvivesStreamsThatFail) {
    const Bytes file = RichDocument().Build();
    for (uint64_t n = 1; n < 40; ++n) {
        MemoryStream stream(file);
        stream.failCall = n;
        stream.failLater = n % 2 == 0;
        const auto decoder = NewDecoder();
        DWORD capability;
        const bool good = SUCCEEDED(decoder->QueryCapability(&stream, &capability)) ||
                          SUCCEEDED(decoder->Initialize(&stream, WICDecodeMetadataCacheOnDemand));
        EXPECT_TRUE(good || stream.failLater) << n;
        const Bytes pixels = PixelsOf(FrameOf(decoder.get()).get());
        EXPECT_TRUE(pixels.empty() || pixels == RichPixels()) << n;
    }
}

TEST(Decoder, TakesItsCallsInAnyOrder) {
    MemoryStream rich(RichDocument().Build()), small(SmallDocument(2, 1).Build()), bad(Bytes(50, 0));
    DWORD capability;
    UINT count = 0, width = 9, height = 9;

    const auto asked = NewDecoder();
    EXPECT_EQ(asked->QueryCapability(&rich, &capability), S_OK);
    EXPECT_EQ(asked->GetFrameCount(&count), S_OK) << "the question alone keeps the stream";
    EXPECT_EQ(PixelsOf(FrameOf(asked.get()).get()), RichPixels());

    EXPECT_EQ(asked->Initialize(&rich, WICDecodeMetadataCacheOnDemand), S_OK);
    const auto first = FrameOf(asked.get());
    EXPECT_EQ(asked->Initialize(&small, WICDecodeMetadataCacheOnDemand), S_OK);
    FrameOf(asked.get())->GetSize(&width, &height);
    EXPECT_EQ(width, 2u);
    EXPECT_EQ(PixelsOf(first.get()), RichPixels()) << "a frame keeps the stream it was made with";

    EXPECT_EQ(asked->Initialize(&bad, WICDecodeMetadataCacheOnDemand), WINCODEC_ERR_UNKNOWNIMAGEFORMAT);
    const auto refused = FrameOf(asked.get());
    refused->GetSize(&width, &height);
    EXPECT_EQ(width, 0u) << "a refused stream leaves nothing of the one before";
    EXPECT_EQ(asked->Initialize(&rich, WICDecodeMetadataCacheOnDemand), S_OK);
    EXPECT_EQ(PixelsOf(FrameOf(asked.get()).get()), RichPixels());
}

TEST(Decoder, LetsGoOfTheStreamWithTheLastObject) {
    MemoryStream first(RichDocument().Build()), second(RichDocument().Build());
    auto decoder = OpenDecoder(first);
    EXPECT_EQ(decoder->Initialize(&second, WICDecodeMetadataCacheOnDemand), S_OK);
    EXPECT_EQ(first.references, 1);
    auto frame = FrameOf(decoder.get());
    decoder.Reset();
    EXPECT_GT(second.references, 1);
    EXPECT_EQ(PixelsOf(frame.get()), RichPixels()) << "the frame outlives its decoder";
    frame.Reset();
    EXPECT_EQ(second.references, 1);
    EXPECT_TRUE(CanUnload());
}

}  // namespace
}  // namespace tessary::test
