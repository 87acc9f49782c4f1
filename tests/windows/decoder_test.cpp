#include "tests/support/com_host.h"

namespace tessary::test {
namespace {

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
        EXPECT_EQ(frames, open ? 1u : 9u);
        EXPECT_EQ(format.Data1, 0x9B2C4F61u);
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
            EXPECT_EQ(capability, good ? 0x1Au : 0u);
            EXPECT_EQ(stream.position, position);
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
    const auto frame = FrameOf(decoder.get());
    const uint64_t calls = stream.calls;
    EXPECT_FALSE(PixelsOf(frame.get()).empty());
    EXPECT_LE(stream.calls - calls, 10u);
}

}  // namespace
}  // namespace tessary::test
