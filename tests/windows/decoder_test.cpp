#include <gtest/gtest.h>

#include <functional>

#include "tests/support/com_host.h"

namespace tessary::test {
namespace {

using Decoder = IWICBitmapDecoder*;

DocumentBuilder SmallDocument(uint32_t width = 4, uint32_t height = 3) {
    return DocumentBuilder(kColorRgb, 8, 3, width, height);
}

TEST(Decoder, ChecksArgumentsBeforeAndAfterInitialize) {
    MemoryStream stream(RichDocument().Build());
    const auto fresh = NewDecoder(), open = OpenDecoder(stream);
    DWORD capability;
    GUID guid;
    UINT number;
    IWICColorContext* context = nullptr;
    ComPtr<IWICBitmapSource> source;
    ComPtr<IWICBitmapFrameDecode> frame;
    ComPtr<IWICPalette> palette;
    ComPtr<IWICMetadataReader> reader;
    ComPtr<IEnumUnknown> enumerator;
    ComPtr<IWICImagingFactory> factory;
    CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                     factory.PutVoid());
    factory->CreatePalette(palette.Put());
    const auto blocks = [](Decoder decoder) {
        return ComPtr<IWICBitmapDecoder>(decoder).As<IWICMetadataBlockReader>(IID_IWICMetadataBlockReader);
    };
    const struct {
        const char* what;
        std::function<HRESULT(Decoder)> call;
        HRESULT before;
        HRESULT after;
    } cases[] = {
        {"no stream to ask about", [&](Decoder d) { return d->QueryCapability(nullptr, &capability); },
         E_INVALIDARG, E_INVALIDARG},
        {"no place for the answer", [&](Decoder d) { return d->QueryCapability(&stream, nullptr); },
         E_INVALIDARG, E_INVALIDARG},
        {"no stream", [](Decoder d) { return d->Initialize(nullptr, WICDecodeMetadataCacheOnDemand); },
         E_INVALIDARG, E_INVALIDARG},
        {"null format", [](Decoder d) { return d->GetContainerFormat(nullptr); }, E_INVALIDARG, E_INVALIDARG},
        {"format", [&](Decoder d) { return d->GetContainerFormat(&guid); }, S_OK, S_OK},
        {"null info", [](Decoder d) { return d->GetDecoderInfo(nullptr); }, E_INVALIDARG, E_INVALIDARG},
        {"null palette", [](Decoder d) { return d->CopyPalette(nullptr); }, E_INVALIDARG, E_INVALIDARG},
        {"palette", [&](Decoder d) { return d->CopyPalette(palette.get()); }, WINCODEC_ERR_PALETTEUNAVAILABLE,
         WINCODEC_ERR_PALETTEUNAVAILABLE},
        {"null query reader", [](Decoder d) { return d->GetMetadataQueryReader(nullptr); }, E_INVALIDARG,
         E_INVALIDARG},
        {"null preview", [](Decoder d) { return d->GetPreview(nullptr); }, E_INVALIDARG, E_INVALIDARG},
        {"preview", [&](Decoder d) { return d->GetPreview(source.Put()); }, WINCODEC_ERR_UNSUPPORTEDOPERATION,
         WINCODEC_ERR_UNSUPPORTEDOPERATION},
        {"contexts, no count", [&](Decoder d) { return d->GetColorContexts(0, nullptr, nullptr); },
         E_INVALIDARG, E_INVALIDARG},
        {"contexts, no array", [&](Decoder d) { return d->GetColorContexts(1, nullptr, &number); },
         E_INVALIDARG, E_INVALIDARG},
        {"contexts", [&](Decoder d) { return d->GetColorContexts(1, &context, &number) + HRESULT(number); },
         S_OK, S_OK},
        {"null thumbnail", [](Decoder d) { return d->GetThumbnail(nullptr); }, E_INVALIDARG, E_INVALIDARG},
        {"thumbnail", [&](Decoder d) { return d->GetThumbnail(source.Put()); }, WINCODEC_ERR_CODECNOTHUMBNAIL,
         S_OK},
        {"null frame count", [](Decoder d) { return d->GetFrameCount(nullptr); }, E_INVALIDARG, E_INVALIDARG},
        {"frame count", [&](Decoder d) { return d->GetFrameCount(&number); }, WINCODEC_ERR_NOTINITIALIZED,
         S_OK},
        {"null frame", [](Decoder d) { return d->GetFrame(1, nullptr); }, E_INVALIDARG, E_INVALIDARG},
        {"frame 1", [&](Decoder d) { return d->GetFrame(1, frame.Put()); }, WINCODEC_ERR_FRAMEMISSING,
         WINCODEC_ERR_FRAMEMISSING},
        {"frame 0", [&](Decoder d) { return d->GetFrame(0, frame.Put()); }, S_OK, S_OK},
        {"null block count", [&](Decoder d) { return blocks(d)->GetCount(nullptr); }, E_INVALIDARG,
         E_INVALIDARG},
        {"block count", [&](Decoder d) { return blocks(d)->GetCount(&number) + HRESULT(number); }, S_OK,
         S_OK},
        {"null reader", [&](Decoder d) { return blocks(d)->GetReaderByIndex(0, nullptr); }, E_INVALIDARG,
         E_INVALIDARG},
        {"reader", [&](Decoder d) { return blocks(d)->GetReaderByIndex(0, reader.Put()); },
         WINCODEC_ERR_UNSUPPORTEDOPERATION, WINCODEC_ERR_UNSUPPORTEDOPERATION},
        {"null enumerator", [&](Decoder d) { return blocks(d)->GetEnumerator(nullptr); }, E_INVALIDARG,
         E_INVALIDARG},
        {"enumerator", [&](Decoder d) { return blocks(d)->GetEnumerator(enumerator.Put()); },
         WINCODEC_ERR_UNSUPPORTEDOPERATION, WINCODEC_ERR_UNSUPPORTEDOPERATION},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(test.call(fresh.get()), test.before) << test.what << " before";
        EXPECT_EQ(test.call(open.get()), test.after) << test.what << " after";
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
        for (const uint64_t position :
             {0, 12}) {  // some hosts leave the stream behind the bytes they looked at
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
        if (FAILED(decoder->QueryCapability(&stream, &capability)))
            EXPECT_EQ(decoder->Initialize(&stream, WICDecodeMetadataCacheOnDemand),
                      stream.failLater ? WINCODEC_ERR_UNKNOWNIMAGEFORMAT : S_OK)
                << n;
        EXPECT_TRUE(FrameOf(decoder.get())) << n;
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
