#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/com_host.h"

namespace tessary::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;

DocumentBuilder SmallDocument(uint32_t width = 4, uint32_t height = 3) {
    return DocumentBuilder(kColorRgb, 8, 3, width, height);
}

TEST(Decoder, AnswersBeforeAndAfterInitialize) {
    MemoryStream stream(RichDocument().Build());
    const auto factory = Create<IWICImagingFactory>(CLSID_WICImagingFactory, IID_IWICImagingFactory);
    ComPtr<IWICPalette> palette;
    factory->CreatePalette(palette.Put());
    for (const bool open : {false, true}) {
        const auto d = open ? OpenDecoder(stream) : NewDecoder();
        const auto blocks = d.As<IWICMetadataBlockReader>(IID_IWICMetadataBlockReader);
        DWORD capability;
        GUID format;
        UINT frames = 9, contexts = 9, readers = 9;
        IWICColorContext* context = nullptr;
        ComPtr<IWICBitmapDecoderInfo> info;
        ComPtr<IWICBitmapSource> source;
        ComPtr<IWICBitmapFrameDecode> frame;
        ComPtr<IWICMetadataReader> reader;
        ComPtr<IEnumUnknown> enumerator;
        const HRESULT nulls[] = {d->QueryCapability(nullptr, &capability),
                                 d->QueryCapability(&stream, nullptr),
                                 d->Initialize(nullptr, WICDecodeMetadataCacheOnDemand),
                                 d->GetContainerFormat(nullptr),
                                 d->GetDecoderInfo(nullptr),
                                 d->CopyPalette(nullptr),
                                 d->GetMetadataQueryReader(nullptr),
                                 d->GetPreview(nullptr),
                                 d->GetColorContexts(0, nullptr, nullptr),
                                 d->GetColorContexts(1, nullptr, &contexts),
                                 d->GetThumbnail(nullptr),
                                 d->GetFrameCount(nullptr),
                                 d->GetFrame(1, nullptr),
                                 blocks->GetCount(nullptr),
                                 blocks->GetReaderByIndex(0, nullptr),
                                 blocks->GetEnumerator(nullptr)};
        EXPECT_THAT(nulls, Each(E_INVALIDARG));
        const HRESULT answers[] = {d->GetContainerFormat(&format),
                                   d->GetColorContexts(1, &context, &contexts), blocks->GetCount(&readers),
                                   d->GetFrame(0, frame.Put())};
        EXPECT_THAT(answers, Each(S_OK));
        const HRESULT refusals[] = {d->CopyPalette(palette.get()), d->GetPreview(source.Put()),
                                    blocks->GetReaderByIndex(0, reader.Put()),
                                    blocks->GetEnumerator(enumerator.Put()), d->GetFrame(1, frame.Put())};
        EXPECT_THAT(refusals, ElementsAre(WINCODEC_ERR_PALETTEUNAVAILABLE, WINCODEC_ERR_UNSUPPORTEDOPERATION,
                                          WINCODEC_ERR_UNSUPPORTEDOPERATION,
                                          WINCODEC_ERR_UNSUPPORTEDOPERATION, WINCODEC_ERR_FRAMEMISSING));
        EXPECT_EQ(d->GetThumbnail(source.Put()), open ? S_OK : WINCODEC_ERR_CODECNOTHUMBNAIL);
        EXPECT_EQ(d->GetFrameCount(&frames), open ? S_OK : WINCODEC_ERR_NOTINITIALIZED);
        EXPECT_EQ(frames, open ? 1u : 9u);
        EXPECT_EQ(format.Data1, 0x9B2C4F61u);
        EXPECT_EQ(contexts + readers, 0u) << "the frame has profile and metadata";
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

TEST(Decoder, TakesItsCallsInAnyOrder) {
    MemoryStream rich(RichDocument().Build()), small(SmallDocument(2, 1).Build()), bad(Bytes(50, 0));
    DWORD capability;
    UINT count = 0, width = 9, height = 9;

    const auto decoder = NewDecoder();
    EXPECT_EQ(decoder->QueryCapability(&rich, &capability), S_OK);
    EXPECT_EQ(decoder->GetFrameCount(&count), S_OK) << "the question alone keeps the stream";
    const auto first = FrameOf(decoder.get());
    EXPECT_EQ(decoder->Initialize(&small, WICDecodeMetadataCacheOnDemand), S_OK);
    FrameOf(decoder.get())->GetSize(&width, &height);
    EXPECT_EQ(width, 2u);
    EXPECT_EQ(PixelsOf(first.get()), RichPixels()) << "a frame keeps the stream it was made with";

    EXPECT_EQ(decoder->Initialize(&bad, WICDecodeMetadataCacheOnDemand), WINCODEC_ERR_UNKNOWNIMAGEFORMAT);
    FrameOf(decoder.get())->GetSize(&width, &height);
    EXPECT_EQ(width, 0u) << "a refused stream leaves nothing of the one before";
    EXPECT_EQ(decoder->Initialize(&rich, WICDecodeMetadataCacheOnDemand), S_OK);
    EXPECT_EQ(PixelsOf(FrameOf(decoder.get()).get()), RichPixels());
}

TEST(Decoder, LetsGoOfTheStreamWithTheLastObject) {
    MemoryStream first(RichDocument().Build()), second(RichDocument().Build());
    auto decoder = OpenDecoder(first);
    EXPECT_EQ(decoder->Initialize(&second, WICDecodeMetadataCacheOnDemand), S_OK);
    EXPECT_EQ(first.references, 1);
    auto frame = FrameOf(decoder.get());
    decoder.Reset();
    EXPECT_EQ(PixelsOf(frame.get()), RichPixels()) << "the frame outlives its decoder";
    frame.Reset();
    EXPECT_EQ(second.references, 1);
}

}  // namespace
}  // namespace tessary::test
