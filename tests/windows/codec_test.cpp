#include <windows.h>

#include <process.h>
#include <psapi.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>
#include <tuple>

#include "tests/support/com_host.h"
#include "tests/support/float_state.h"

namespace tessary::test {
namespace {

using Frame = IWICBitmapFrameDecode;
const Bytes kProfile(200, 0x5A);

// Expects the same of several calls, which are made in any order.
template <class... Results>
void ExpectAll(HRESULT want, Results... results) {
    EXPECT_THAT((std::vector<HRESULT>{results...}), testing::Each(want));
}

ComPtr<IWICColorContext> NewColorContext() {
    ComPtr<IWICColorContext> context;
    const auto factory = Create<IWICImagingFactory>(CLSID_WICImagingFactory, IID_IWICImagingFactory);
    return factory->CreateColorContext(context.Put()), context;
}

HRESULT GetClassObject(HMODULE module, const CLSID& classId, const IID& id, void** object) {
    return Export<HRESULT WINAPI(REFCLSID, REFIID, void**)>(module, "DllGetClassObject")(classId, id, object);
}
bool CanUnload(HMODULE module = LoadDll()) {
    return Export<HRESULT WINAPI()>(module, "DllCanUnloadNow")() == S_OK;
}
ComPtr<IClassFactory> DecoderFactory(HMODULE module = LoadDll()) {
    ComPtr<IClassFactory> factory;
    EXPECT_EQ(GetClassObject(module, CLSID_Tessary, IID_IClassFactory, factory.PutVoid()), S_OK);
    return factory;
}
ComPtr<IWICBitmapDecoder> NewDecoder(HMODULE module = LoadDll()) {
    ComPtr<IWICBitmapDecoder> decoder;
    EXPECT_EQ(DecoderFactory(module)->CreateInstance(nullptr, IID_IWICBitmapDecoder, decoder.PutVoid()),
              S_OK);
    return decoder;
}
ComPtr<IWICBitmapDecoder> OpenDecoder(IStream& stream) {
    auto decoder = NewDecoder();
    EXPECT_EQ(decoder->Initialize(&stream, WICDecodeMetadataCacheOnDemand), S_OK);
    return decoder;
}
ComPtr<Frame> FrameOf(const ComPtr<IWICBitmapDecoder>& decoder) {
    ComPtr<Frame> frame;
    EXPECT_EQ(decoder->GetFrame(0, frame.Put()), S_OK);
    return frame;
}
// Top row first, empty on failure.
Bytes PixelsOf(const ComPtr<Frame>& frame) {
    UINT width = 0, height = 0;
    frame->GetSize(&width, &height);
    Bytes pixels(size_t{width} * height * 4);
    const UINT size = static_cast<UINT>(pixels.size());
    return SUCCEEDED(frame->CopyPixels(nullptr, width * 4, size, pixels.data())) ? pixels : Bytes();
}
ComPtr<IWICMetadataBlockReader> BlocksOf(const ComPtr<Frame>& frame) {
    return frame.As<IWICMetadataBlockReader>(IID_IWICMetadataBlockReader);
}

// A JPEG file with one colour in its left and one in its right half, given as bytes of a pixel.
struct JpegColors {
    GUID format;
    Bytes left, right;
};
Bytes EncodeJpeg(UINT width, UINT height, const JpegColors& colors) {
    const auto encoder = Create<IWICBitmapEncoder>(CLSID_WICJpegEncoder, IID_IWICBitmapEncoder);
    ComPtr<IStream> stream;
    ComPtr<IWICBitmapFrameEncode> frame;
    WICPixelFormatGUID format = colors.format;
    ByteWriter pixels;
    for (UINT i = 0; i < width * height; ++i) pixels.Raw(i % width < width / 2 ? colors.left : colors.right);
    Bytes bytes = pixels, jpeg(1 << 16);
    const UINT size = static_cast<UINT>(bytes.size());
    CreateStreamOnHGlobal(nullptr, TRUE, stream.Put());
    encoder->Initialize(stream.get(), WICBitmapEncoderNoCache);
    encoder->CreateNewFrame(frame.Put(), nullptr);
    frame->Initialize(nullptr), frame->SetSize(width, height), frame->SetPixelFormat(&format);
    frame->WritePixels(height, size / height, size, bytes.data());
    EXPECT_EQ(frame->Commit(), S_OK);
    EXPECT_EQ(encoder->Commit(), S_OK);
    ULONG length = 0;
    stream->Seek({}, STREAM_SEEK_SET, nullptr);
    stream->Read(jpeg.data(), 1 << 16, &length);
    return jpeg.resize(length), jpeg;
}

// A thumbnail resource whose rows are four bytes longer than need be.
Bytes Thumbnail(uint32_t width, uint32_t height, const Bytes& jpeg) {
    const uint32_t rowBytes = width * 3 / 4 * 4 + 4;
    ByteWriter data = ByteWriter().U32(1).U32(width).U32(height).U32(rowBytes).U32(rowBytes * height);
    return data.U32(static_cast<uint32_t>(jpeg.size())).U16(24).U16(1).Raw(jpeg);
}
DocumentBuilder SmallDocument(uint32_t width = 4, uint32_t height = 3) {
    return DocumentBuilder(kColorRgb, 8, 3, width, height);
}
// 4 x 3 RGB pixels with profile, thumbnail, EXIF and XMP. Pixel i is red i, green 16 + i, blue 32 + i, alpha
// 48 + i.
DocumentBuilder RichDocument() {
    static const Bytes jpeg = EncodeJpeg(2, 2, {GUID_WICPixelFormat24bppBGR, Bytes(3, 100), Bytes(3, 100)});
    ByteWriter planes, exif;
    for (uint32_t i = 0; i < 48; ++i) planes.U8(i % 12 + i / 12 * 16);
    exif.Text("MM").U16(42).U32(8).U16(2);
    exif.U16(274).U16(3).U32(1).U16(6).U16(0);             // orientation
    exif.U16(305).U16(2).U32(4).Text("abc").U8(0).U32(0);  // software, and no further directory
    DocumentBuilder document(kColorRgb, 8, 4, 4, 3);
    document.Resolution(300.5, 1).Resource(1036, Thumbnail(2, 2, jpeg)).Resource(1039, kProfile);
    document.Resource(1058, exif).Resource(1060, ByteWriter().Text("<xmp/>").U8(0));
    return document.Merged(planes);
}
Bytes RichPixels() {  // as a frame gives them
    ByteWriter pixels;
    for (uint32_t i = 0; i < 12; ++i) pixels.U8(32 + i).U8(16 + i).U8(i).U8(48 + i);
    return pixels;
}

// A component factory that makes the reader of image file directories, which Wine's own factory does not.
// It is the system's one with that method replaced; one at a time.
class IfdFactory {
public:
    IfdFactory() {
        std::copy_n(m_table, std::size(m_patched), m_patched);
        m_patched[28] = reinterpret_cast<void*>(&CreateReader);
        *reinterpret_cast<void***>(m_factory.get()) = m_patched;
        made = 0;
    }
    ~IfdFactory() { *reinterpret_cast<void***>(m_factory.get()) = m_table; }
    IWICComponentFactory* get() const { return m_factory.get(); }
    static inline std::atomic<int> made{0};
    static inline std::atomic<DWORD> options{0};

private:
    static HRESULT STDMETHODCALLTYPE CreateReader(IWICComponentFactory*, REFGUID format, const GUID* vendor,
                                                  DWORD flags, IStream* stream, IWICMetadataReader** reader) {
        ++made;
        options = flags;
        EXPECT_EQ(All(IsEqualGUID(format, GUID_MetadataFormatIfd) != 0, vendor != nullptr), All(true, false));
        auto ifd = Create<IWICMetadataReader>(CLSID_WICIfdMetadataReader, IID_IWICMetadataReader);
        const auto persist = ifd.As<IWICPersistStream>(IID_IWICPersistStream);
        *reader = ifd.Detach();
        return persist->LoadEx(stream, vendor, flags);
    }
    ComPtr<IWICComponentFactory> m_factory =
        Create<IWICComponentFactory>(CLSID_WICImagingFactory, IID_IWICComponentFactory);
    void** m_table = *reinterpret_cast<void***>(m_factory.get());
    void* m_patched[35] = {};
};
// The frame told all again, with the factory in place of its own.
void Reinitialize(const ComPtr<Frame>& frame, IStream* stream, IWICComponentFactory* factory) {
    const auto init = frame.As<ITessaryBitmapFrameDecodePrivate>(IID_ITessaryBitmapFrameDecodePrivate);
    EXPECT_EQ(init->Initialize(stream, factory, factory, GUID{}, 4, 3, 300, 300, 1, 1, nullptr, 1, 1), S_OK);
}

TEST(Decoder, TellsDocumentsFromOtherStreams) {
    const std::pair<DocumentBuilder, bool> cases[] = {
        {SmallDocument(), true},
        {SmallDocument(30001, 1).MergedData({}), false},
        {SmallDocument().Resource(1005, {}, "", "8BIX"), false}};
    for (const auto& [document, good] : cases) {
        for (const uint64_t position : {0u, 12u, 1000u}) {  // hosts may stand behind what they looked at
            MemoryStream stream(document.Build());
            stream.position = position;
            const auto decoder = NewDecoder();
            DWORD capability = 99;
            const HRESULT want = good ? S_OK : WINCODEC_ERR_UNKNOWNIMAGEFORMAT;
            EXPECT_EQ(decoder->QueryCapability(&stream, &capability), want);
            EXPECT_EQ(All(capability, stream.position), All(good ? 0x1A : 0, position));
            EXPECT_EQ(decoder->Initialize(&stream, WICDecodeMetadataCacheOnLoad), want);
        }
    }
}

TEST(Decoder, TakesItsCallsInAnyOrder) {
    MemoryStream rich(RichDocument().Build()), small(SmallDocument(2, 1).Build()), bad(Bytes(50, 0));
    DWORD capability;
    UINT count = 0;
    const auto widthOf = [](const ComPtr<Frame>& frame) {
        UINT width = 9, height = 9;
        return frame->GetSize(&width, &height), width;
    };
    auto decoder = NewDecoder();
    EXPECT_EQ(decoder->QueryCapability(&rich, &capability), S_OK);
    EXPECT_EQ(decoder->GetFrameCount(&count), S_OK) << "the question alone keeps the stream";
    auto first = FrameOf(decoder);
    EXPECT_EQ(decoder->Initialize(&small, WICDecodeMetadataCacheOnDemand), S_OK);
    EXPECT_EQ(widthOf(FrameOf(decoder)), 2u);
    EXPECT_EQ(PixelsOf(first), RichPixels()) << "a frame keeps the stream it was made with";
    EXPECT_EQ(decoder->Initialize(&bad, WICDecodeMetadataCacheOnDemand), WINCODEC_ERR_UNKNOWNIMAGEFORMAT);
    EXPECT_EQ(widthOf(FrameOf(decoder)), 0u) << "a refused stream leaves nothing of the one before";
    EXPECT_EQ(decoder->Initialize(&rich, WICDecodeMetadataCacheOnDemand), S_OK);
    EXPECT_EQ(small.references, 1) << "a stream that was replaced is still held";
    auto last = FrameOf(decoder);
    decoder.Reset();
    EXPECT_EQ(PixelsOf(last), RichPixels()) << "a frame outlives its decoder";
    first.Reset(), last.Reset();
    EXPECT_EQ(rich.references, 1);
}

TEST(Decoder, ReadsAheadInLargePieces) {
    MemoryStream stream(SmallDocument(300, 300).Merged(Bytes(3u * 300 * 300, 7)).Build());
    const auto decoder = OpenDecoder(stream);
    // The header, the resources and the way back: one piece serves them all.
    EXPECT_EQ(stream.bytesRead, kReadAheadBytes);
    const uint64_t calls = stream.calls;
    EXPECT_FALSE(PixelsOf(FrameOf(decoder)).empty());
    EXPECT_LE(stream.calls - calls, 10u);
}

TEST(Decoder, TakesStreamsThatDoNotTellTheirSize) {
    MemoryStream stream(RichDocument().Build());
    stream.statFails = true;
    EXPECT_EQ(PixelsOf(FrameOf(OpenDecoder(stream))), RichPixels());
}

TEST(Objects, AnswerWithAndWithoutADocument) {
    MemoryStream stream(RichDocument().Build());
    const auto context = NewColorContext();
    IWICColorContext* contexts[] = {context.get(), nullptr};
    for (const bool open : {false, true}) {
        const auto d = open ? OpenDecoder(stream) : NewDecoder();
        const auto f = FrameOf(d);
        const auto ofDecoder = d.As<IWICMetadataBlockReader>(IID_IWICMetadataBlockReader);
        const auto blocks = BlocksOf(f);
        const auto transform = f.As<IWICBitmapSourceTransform>(IID_IWICBitmapSourceTransform);
        UINT frames = 9, width = 9, height = 9, number = 9, none = 9, readers = 9;
        double x = 9, y = 9;
        GUID format, container;
        BYTE bytes[64];
        ComPtr<IWICBitmapSource> source;
        ComPtr<Frame> frame;
        ComPtr<IWICMetadataReader> reader;
        ComPtr<IEnumUnknown> enumerator;
        const auto copy = [&](const WICRect& area) { return f->CopyPixels(&area, 16, sizeof(bytes), bytes); };
        ExpectAll(E_INVALIDARG, d->QueryCapability(&stream, nullptr),
                  d->Initialize(nullptr, WICDecodeMetadataCacheOnDemand), d->GetContainerFormat(nullptr),
                  d->GetDecoderInfo(nullptr), d->CopyPalette(nullptr), d->GetMetadataQueryReader(nullptr),
                  d->GetPreview(nullptr), d->GetColorContexts(1, nullptr, &none), d->GetThumbnail(nullptr),
                  d->GetFrameCount(nullptr), d->GetFrame(1, nullptr), ofDecoder->GetCount(nullptr),
                  ofDecoder->GetReaderByIndex(0, nullptr), ofDecoder->GetEnumerator(nullptr),
                  f->GetSize(nullptr, &height), f->GetPixelFormat(nullptr), f->GetResolution(&x, nullptr),
                  f->CopyPalette(nullptr), f->CopyPixels(nullptr, 16, 48, nullptr), copy({0, 1, 4, 3}),
                  f->GetMetadataQueryReader(nullptr), f->GetColorContexts(0, nullptr, nullptr),
                  f->GetColorContexts(0, contexts, &number), f->GetColorContexts(1, nullptr, &number),
                  f->GetColorContexts(2, contexts, &number), f->GetThumbnail(nullptr),
                  blocks->GetContainerFormat(nullptr), blocks->GetCount(nullptr),
                  blocks->GetReaderByIndex(0, nullptr), blocks->GetEnumerator(nullptr),
                  transform->GetClosestSize(&width, nullptr), transform->GetClosestPixelFormat(nullptr),
                  transform->DoesSupportTransform(WICBitmapTransformRotate0, nullptr));
        ExpectAll(S_OK, d->GetContainerFormat(&format), d->GetColorContexts(1, contexts, &none),
                  ofDecoder->GetCount(&readers), f->GetSize(&width, &height), f->GetResolution(&x, &y),
                  f->GetColorContexts(1, contexts, &number), blocks->GetContainerFormat(&container));
        ExpectAll(WINCODEC_ERR_UNSUPPORTEDOPERATION, d->GetPreview(source.Put()),
                  ofDecoder->GetReaderByIndex(0, reader.Put()), ofDecoder->GetEnumerator(enumerator.Put()),
                  blocks->GetReaderByIndex(1, reader.Put()));
        ExpectAll(open ? S_OK : WINCODEC_ERR_CODECNOTHUMBNAIL, d->GetThumbnail(source.Put()),
                  f->GetThumbnail(source.Put()));
        EXPECT_EQ(d->GetFrame(1, frame.Put()), WINCODEC_ERR_FRAMEMISSING);
        EXPECT_EQ(d->GetFrameCount(&frames), open ? S_OK : WINCODEC_ERR_NOTINITIALIZED);
        EXPECT_EQ(copy({0, 0, 0, 0}), open ? S_OK : WINCODEC_ERR_BADIMAGE);
        EXPECT_EQ(All(format.Data1, IsEqualGUID(container, format) != 0, none, readers),
                  All(0x9B2C4F61, true, 0, 0));
        EXPECT_EQ(All(frames, width, height, x), open ? All(1, 4, 3, 300) : All(9, 0, 0, 0));
    }
}

TEST(Frame, CopiesWhatFitsTheBuffer) {
    MemoryStream stream(RichDocument().Build());
    const auto frame = FrameOf(OpenDecoder(stream));
    const Bytes all = RichPixels();
    const WICRect area = {1, 1, 2, 2};
    Bytes got(48, 0xEE), want(48, 0xEE);
    std::copy_n(&all[20], 8, &want[0]);   // pixel (1, 1) and its neighbour
    std::copy_n(&all[36], 5, &want[20]);  // of the second row only what the budget leaves
    const auto transform = frame.As<IWICBitmapSourceTransform>(IID_IWICBitmapSourceTransform);
    UINT width = 1, height = 1;
    BOOL same = 9, flipped = 9;
    // The headers leave this interface out: the method is taken from its public place.
    using GetClosestSize = HRESULT(WINAPI*)(IUnknown*, UINT*, UINT*);
    void* const* const table = *reinterpret_cast<void***>(transform.get());
    ExpectAll(S_OK, reinterpret_cast<GetClosestSize>(table[4])(transform.get(), &width, &height),
              transform->DoesSupportTransform(WICBitmapTransformRotate0, &same),
              transform->DoesSupportTransform(WICBitmapTransformFlipVertical, &flipped),
              transform->CopyPixels(&area, 1, 1, nullptr, WICBitmapTransformFlipVertical, 20, 13, &got[0]));
    EXPECT_EQ(All(width, height, same, flipped, got), All(4, 3, 1, 0, want));
}

TEST(Frame, TriesAFailedDecodeAgain) {
    MemoryStream stream(RichDocument().Build());
    const auto decoder = NewDecoder();
    DWORD capability;
    EXPECT_EQ(decoder->QueryCapability(&stream, &capability), S_OK);  // no buffer in between
    const auto frame = FrameOf(decoder);
    stream.failCall = stream.calls + 1;
    stream.failLater = true;
    EXPECT_TRUE(PixelsOf(frame).empty());
    stream.failCall = 0;
    stream.Replace(DocumentBuilder(kColorRgb, 8, 3, 3, 4).Build());
    EXPECT_TRUE(PixelsOf(frame).empty()) << "pixels of another size than the frame's";
    stream.Replace(RichDocument().HasRealMergedData(false).Layer(LayerBuilder({}).Filler(1)).Build());
    EXPECT_TRUE(PixelsOf(frame).empty()) << "layers are read";
    stream.Replace(RichDocument().Build());
    EXPECT_EQ(PixelsOf(frame), RichPixels());
    stream.failCall = 1;
    EXPECT_EQ(PixelsOf(frame), RichPixels()) << "what is decoded stays";
}

TEST(Frame, GivesTheProfileButNotToTheMediaCentre) {
    wchar_t own[MAX_PATH];
    GetModuleFileNameW(nullptr, own, MAX_PATH);
    MemoryStream stream(RichDocument().Build());
    const auto frame = FrameOf(OpenDecoder(stream));
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
        Bytes bytes(kProfile.size());
        EXPECT_EQ(frame->GetColorContexts(1, contexts, &actual), S_OK);
        EXPECT_EQ(context->GetProfileBytes(static_cast<UINT>(bytes.size()), bytes.data(), &actual), S_OK);
        EXPECT_EQ(bytes, kProfile);
    }
    const std::wstring copy = std::filesystem::temp_directory_path() / L"EHShell.exe";
    ASSERT_TRUE(CopyFileW(own, copy.c_str(), FALSE));
    const wchar_t* const filter = L"--gtest_filter=*NotToTheMediaCentre";
    EXPECT_EQ(_wspawnl(_P_WAIT, copy.c_str(), L"EHShell.exe", filter, nullptr), 0);
    DeleteFileW(copy.c_str());
}

TEST(Frame, ShowsExifWithTheXmpPacketInIt) {
    MemoryStream stream(RichDocument().Build());
    IfdFactory factory;
    const auto frame = FrameOf(OpenDecoder(stream));
    Reinitialize(frame, &stream, factory.get());
    const auto blocks = BlocksOf(frame);
    const uint64_t position = stream.position;
    UINT count = 0;
    EXPECT_EQ(blocks->GetCount(&count), S_OK);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(IfdFactory::made, 0) << "made before it is asked for";
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
    ComPtr<IEnumUnknown> all, copy;
    ASSERT_EQ(blocks->GetEnumerator(all.Put()), S_OK);
    ComPtr<IUnknown> items[2];
    ULONG fetched = 9;
    EXPECT_EQ(all->Next(2, items[0].Put(), nullptr), E_INVALIDARG);
    EXPECT_EQ(all->Clone(copy.Put()), S_OK);
    EXPECT_EQ(all->Next(2, items[0].Put(), &fetched), S_FALSE);
    EXPECT_EQ(fetched, 1u);
    EXPECT_EQ(items[0].get(), reader.As<IUnknown>(IID_IUnknown).get());
    EXPECT_EQ(all->Skip(1), S_FALSE);
    EXPECT_EQ(all->Reset(), S_OK);
    EXPECT_EQ(all->Skip(1), S_OK);
    EXPECT_EQ(copy->Next(1, items[1].Put(), nullptr), S_OK) << "a copy has its own place";
    EXPECT_EQ(IfdFactory::made, 1);
}

TEST(Frame, TriesTheMetadataOnlyOnce) {
    MemoryStream stream(RichDocument().Build());
    IfdFactory factory;
    const auto frame = FrameOf(OpenDecoder(stream));
    const auto blocks = BlocksOf(frame);
    ComPtr<IWICMetadataReader> reader;
    ComPtr<IEnumUnknown> enumerator;
    Reinitialize(frame, &stream, factory.get());
    stream.failCall = stream.calls + 3;
    stream.failLater = true;
    EXPECT_EQ(blocks->GetReaderByIndex(0, reader.Put()), WINCODEC_ERR_UNSUPPORTEDOPERATION);
    stream.failCall = 0;
    ExpectAll(E_UNEXPECTED, blocks->GetReaderByIndex(0, reader.Put()),
              blocks->GetEnumerator(enumerator.Put()));
    EXPECT_EQ(IfdFactory::made, 0);
}

TEST(Thumbnail, BecomesTheSizeOfTheRecord) {
    const JpegColors bgr = {GUID_WICPixelFormat24bppBGR, {120, 0, 0}, {0, 0, 250}};
    const JpegColors gray = {GUID_WICPixelFormat8bppGray, {60}, {200}};
    // JPEG files hold CMYK inverted, and only Wine's decoder sees to that, not its encoder.
    const JpegColors cmyk = {GUID_WICPixelFormat32bppCMYK, {0, 0, 255, 120}, {255, 0, 0, 250}};
    const std::tuple<UINT, const JpegColors&, uint16_t> cases[] = {{32, bgr, 1036},  {32, bgr, 1033},
                                                                   {64, bgr, 1036},  {16, bgr, 1033},
                                                                   {32, gray, 1036}, {32, cmyk, 1036}};
    for (const auto& [jpegWidth, colors, id] : cases) {
        const Bytes jpeg = EncodeJpeg(jpegWidth, jpegWidth / 2, colors);
        MemoryStream stream(SmallDocument().Resource(id, Thumbnail(32, 16, jpeg)).Build());
        const auto decoder = OpenDecoder(stream);
        ComPtr<IWICBitmapSource> source;
        // The decoder has no factory as long as nothing needed one; the frame has.
        const bool asRecorded = &colors == &bgr && jpegWidth == 32;
        EXPECT_EQ(decoder->GetThumbnail(source.Put()), asRecorded ? S_OK : WINCODEC_ERR_CODECNOTHUMBNAIL);
        ASSERT_EQ(FrameOf(decoder)->GetThumbnail(source.Put()), S_OK);
        UINT width = 0, height = 0;
        double x = 0, y = 0;
        GUID format = {};
        Bytes pixels(96 * 16), part(200, 0xEE);
        const WICRect inside = {15, 3, 2, 2}, outside = {31, 0, 2, 1};
        ExpectAll(E_INVALIDARG, source->GetSize(nullptr, &height), source->GetPixelFormat(nullptr),
                  source->GetResolution(&x, nullptr), source->CopyPixels(nullptr, 96, 0, nullptr),
                  source->CopyPixels(&outside, 96, 200, part.data()));
        ExpectAll(S_OK, source->GetSize(&width, &height), source->GetPixelFormat(&format),
                  source->GetResolution(&x, &y), source->CopyPixels(nullptr, 96, 96 * 16, pixels.data()),
                  source->CopyPixels(&inside, 50, 0, part.data()));  // the size is the caller's affair
        EXPECT_EQ(All(width, height, x, y), All(32, 16, 72, 72));
        EXPECT_TRUE(
            IsEqualGUID(format, id == 1033 ? GUID_WICPixelFormat24bppRGB : GUID_WICPixelFormat24bppBGR));
        for (size_t i = 0; i < pixels.size(); ++i) {
            const size_t column = i / 3 % 32, row = i / 96;
            if ((column != 4 && column != 28) || (row != 1 && row != 14)) continue;
            // The decoded bytes are served as they are: what is first in them is the format's affair.
            const JpegColors& shown = &colors == &gray ? gray : bgr;
            const Bytes& want = column == 4 ? shown.left : shown.right;
            EXPECT_LE(std::abs(pixels[i] - want[i % want.size()]), 12) << jpegWidth << ", byte " << i;
        }
        for (size_t i = 0; i < part.size(); ++i) {
            const bool copied = i < 100 && i % 50 < 6;
            ASSERT_EQ(part[i], copied ? pixels[(3 + i / 50) * 96 + 45 + i % 50] : 0xEE) << i;
        }
        // Who finds the way behind the source cannot give it other pixels.
        const auto init = source.As<IThumbnailBitmapSourcePrivate>(IID_IThumbnailBitmapSourcePrivate);
        EXPECT_EQ(init->Initialize(nullptr), E_UNEXPECTED);
    }
}

TEST(FloatEnvironment, IsTheHostsOutsideAndTheSameInside) {
    std::vector<Bytes> files = DocumentsOfMuchArithmetic();
    // Its thumbnail is converted and scaled.
    const Bytes jpeg = EncodeJpeg(8, 8, {GUID_WICPixelFormat8bppGray, {60}, {200}});
    DocumentBuilder rest = SmallDocument().Resource(1036, Thumbnail(5, 5, jpeg)).Resource(1039, kProfile);
    files.push_back(rest.Resource(1058, tools::TinyExif()).Resource(1060, tools::TinyXmp()).Build());
    IfdFactory factory;
    for (const Bytes& file : files) {
        MemoryStream stream(file);
        const Bytes want = PixelsOf(FrameOf(OpenDecoder(stream)));
        ASSERT_FALSE(want.empty());
        for (const FloatState& state : kFloatStates) {
            SCOPED_TRACE(&file - files.data());
            const auto expect = [&](const char* what, const auto& call) {
                HRESULT result = E_FAIL;
                EXPECT_TRUE(KeepsFloatState(state, [&] { result = call(); })) << what;
                EXPECT_EQ(result, S_OK) << what;
            };
            ComPtr<IWICBitmapDecoder> decoder;
            ComPtr<Frame> frame;
            ComPtr<IWICBitmapSource> thumbnail;
            ComPtr<IWICMetadataReader> reader;
            const auto context = NewColorContext();
            IWICColorContext* contexts[] = {context.get()};
            DWORD capability = 0;
            UINT actual = 0;
            double x = 0, y = 0;
            Bytes pixels, small(80);
            expect("create", [&] { return decoder = NewDecoder(), S_OK; });
            expect("ask", [&] { return decoder->QueryCapability(&stream, &capability); });
            expect("open", [&] { return decoder->Initialize(&stream, WICDecodeMetadataCacheOnDemand); });
            expect("frame", [&] { return decoder->GetFrame(0, frame.Put()); });
            expect("resolution", [&] { return frame->GetResolution(&x, &y); });
            expect("pixels", [&] { return pixels = PixelsOf(frame), S_OK; });
            expect("profile", [&] { return frame->GetColorContexts(1, contexts, &actual); });
            EXPECT_EQ(pixels, want);
            if (&file != &files.back()) continue;
            expect("again", [&] { return Reinitialize(frame, &stream, factory.get()), S_OK; });
            expect("metadata", [&] { return BlocksOf(frame)->GetReaderByIndex(0, reader.Put()); });
            expect("thumbnail", [&] { return frame->GetThumbnail(thumbnail.Put()); });
            expect("its pixels", [&] { return thumbnail->CopyPixels(nullptr, 16, 80, small.data()); });
        }
    }
}

bool OpensAsClientsDo(MemoryStream& stream) {
    const auto decoder = NewDecoder();
    ComPtr<Frame> frame;
    ComPtr<IWICBitmapSource> thumbnail;
    ComPtr<IWICMetadataQueryReader> metadata;
    if (FAILED(decoder->Initialize(&stream, WICDecodeMetadataCacheOnDemand))) return false;
    if (FAILED(decoder->GetFrame(0, frame.Put()))) return false;
    static_cast<void>(frame->GetThumbnail(thumbnail.Put()));
    static_cast<void>(frame->GetMetadataQueryReader(metadata.Put()));
    return !PixelsOf(frame).empty();
}

// Says at which document it is, for whoever watches this process: it may end at any of them.
TEST(Documents, LeaveNothingBehind) {
    const char* const folder = std::getenv("TESSARY_DOCUMENTS");
    if (!folder) GTEST_SKIP() << "tools/replay.py FOLDER runs it";
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::cout << "document " << entry.path().filename().string() << std::endl;
        std::ifstream file(entry.path(), std::ios::binary);
        ASSERT_TRUE(file) << "It cannot be read.";
        MemoryStream stream(Bytes(std::istreambuf_iterator<char>(file), {}));
        if (OpensAsClientsDo(stream)) std::cout << "opened" << std::endl;
        ASSERT_EQ(All(CanUnload(), stream.references.load()), All(true, 1)) << "It left an object behind.";
    }
}

TEST(Module, MakesOnlyItsOwnClass) {
    void* out = &out;
    const HMODULE dll = LoadDll();
    EXPECT_EQ(GetClassObject(dll, CLSID_Tessary, IID_IClassFactory, nullptr), E_POINTER);
    EXPECT_EQ(GetClassObject(dll, CLSID_WICJpegDecoder, IID_IClassFactory, &out), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(GetClassObject(dll, CLSID_Tessary, IID_IWICBitmapDecoder, &out), E_NOINTERFACE);
    const auto factory = DecoderFactory();
    for (const IID& id : {IID_IUnknown, IID_IWICBitmapDecoder}) {
        out = &out;
        EXPECT_EQ(factory->CreateInstance(factory.get(), id, &out), CLASS_E_NOAGGREGATION);
        EXPECT_EQ(out, nullptr);
    }
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IStream, &out), E_NOINTERFACE);
    EXPECT_TRUE(CanUnload()) << "a refused decoder still holds the module";
}

TEST(Module, StaysWhileAnythingLives) {
    const auto factory = DecoderFactory();
    EXPECT_TRUE(CanUnload()) << "a factory alone does not count";
    auto decoder = NewDecoder();
    auto frame = FrameOf(decoder);
    factory->LockServer(FALSE), factory->LockServer(FALSE);
    EXPECT_FALSE(CanUnload()) << "a client gave back locks that were not its own";
    decoder.Reset();
    EXPECT_FALSE(CanUnload());
    frame.Reset();
    EXPECT_TRUE(CanUnload());
    factory->LockServer(FALSE), factory->LockServer(TRUE);
    EXPECT_FALSE(CanUnload()) << "the count went below zero";
    factory->LockServer(FALSE);
    EXPECT_TRUE(CanUnload());
    decoder = NewDecoder();
    factory->LockServer(FALSE);
    EXPECT_FALSE(CanUnload()) << "a lock was counted twice";
}

TEST(Module, ObjectsHaveOneIdentity) {
    MemoryStream stream(RichDocument().Build());
    const auto decoder = OpenDecoder(stream);
    ComPtr<IWICBitmapSource> thumbnail;
    ASSERT_EQ(decoder->GetThumbnail(thumbnail.Put()), S_OK);
    const ComPtr<IUnknown> objects[] = {decoder.As<IUnknown>(IID_IUnknown),
                                        FrameOf(decoder).As<IUnknown>(IID_IUnknown),
                                        thumbnail.As<IUnknown>(IID_IUnknown)};
    const std::vector<IID> interfaces[] = {
        {IID_ITessary, IID_IWICBitmapDecoder, IID_IWICMetadataBlockReader, IID_IMarshal},
        {IID_IWICBitmapSource, IID_IWICBitmapFrameDecode, IID_IWICMetadataBlockReader,
         IID_IWICBitmapSourceTransform, IID_IMarshal},
        {IID_IWICBitmapSource, IID_IMarshal}};
    for (size_t i = 0; i < 3; ++i) {
        for (const IID& id : interfaces[i])
            EXPECT_EQ(objects[i].As<IUnknown>(id).As<IUnknown>(IID_IUnknown).get(), objects[i].get());
    }
    EXPECT_EQ(decoder->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST(Module, UseLeavesNothingBehind) {
    const std::wstring copy = std::filesystem::temp_directory_path() / L"TessaryCopy.dll";
    CopyFileW(DllPath().c_str(), copy.c_str(), FALSE);
    MemoryStream stream(RichDocument().Build());
    PROCESS_MEMORY_COUNTERS_EX memory = {};
    SIZE_T memoryBefore = 0;
    DWORD handles = 0, handlesBefore = 0;
    const auto measure = [&] {
        auto* counters = reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&memory);
        GetProcessMemoryInfo(GetCurrentProcess(), counters, sizeof(memory));
        GetProcessHandleCount(GetCurrentProcess(), &handles);
    };
    for (int i = -200; i < 1500; ++i) {
        if (i == 0) measure(), memoryBefore = memory.PrivateUsage, handlesBefore = handles;
        stream.position = 0;
        ASSERT_TRUE(OpensAsClientsDo(stream));
        ASSERT_EQ(All(stream.references.load(), CanUnload()), All(1, true));
        if (i % 15 != 0) continue;
        const HMODULE loaded = LoadLibraryW(copy.c_str());
        NewDecoder(loaded).Reset();
        ASSERT_TRUE(CanUnload(loaded));
        FreeLibrary(loaded);
        ASSERT_FALSE(GetModuleHandleW(L"TessaryCopy.dll"));
    }
    measure();
    EXPECT_LT(memory.PrivateUsage, memoryBefore + (1u << 20));
    EXPECT_LE(handles, handlesBefore + 4);
    EXPECT_TRUE(DeleteFileW(copy.c_str()));
}

constexpr size_t kThreads = 16;

// Calls work(i) on every thread i at once.
void OnThreads(const std::function<void(size_t)>& work) {
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            while (!go) std::this_thread::yield();
            work(i);
            CoUninitialize();
        });
    }
    go = true;
    for (std::thread& thread : threads) thread.join();
}

// Those that wait for the first one's picture find it there.
TEST(Threads, DecodeASharedFrameOnce) {
    const Bytes blur = tools::DropShadow(75, 120, 9, 250);  // takes the first one long enough
    DocumentBuilder document = SmallDocument(900, 600).HasRealMergedData(false);
    MemoryStream stream(
        document.Layer(LayerBuilder({9, 9, 600, 500}).Solid(~0u).Block("lfx2", blur)).Build());
    const auto decoder = OpenDecoder(stream);
    const Bytes want = PixelsOf(FrameOf(decoder));
    const uint64_t before = stream.bytesRead;
    EXPECT_EQ(PixelsOf(FrameOf(decoder)), want);
    const uint64_t once = stream.bytesRead - before;
    EXPECT_GT(once, 0u);
    for (int round = 0; round < 4; ++round) {
        const auto frame = FrameOf(decoder);
        const uint64_t start = stream.bytesRead;
        OnThreads([&](size_t) { EXPECT_EQ(PixelsOf(frame), want); });
        EXPECT_EQ(stream.bytesRead - start, once) << "round " << round;
    }
}

TEST(Threads, GetTheAnswersOfOneThread) {
    // Larger than the read-ahead buffer, so that uses of the stream that mix would give other pixels.
    ByteWriter planes;
    for (uint32_t i = 0; i < 3u * 400 * 300; ++i) planes.U8(i * 7 ^ i >> 8);
    const Bytes rich = RichDocument().Build();
    const Bytes large = SmallDocument(400, 300).Resource(1039, Bytes(300000, 0x5A)).Merged(planes).Build();
    MemoryStream reference(large);
    const Bytes want = PixelsOf(FrameOf(OpenDecoder(reference)));
    ASSERT_FALSE(want.empty());
    for (int round = 0; round < 12; ++round) {
        MemoryStream stream(large), richStream(rich), ifdStream(rich);
        {
            IfdFactory factory;
            const auto decoder = OpenDecoder(stream), richDecoder = OpenDecoder(richStream);
            const auto shared = FrameOf(decoder), richFrame = FrameOf(richDecoder);
            Reinitialize(richFrame, &ifdStream, factory.get());
            const auto blocks = BlocksOf(richFrame);
            ComPtr<IWICBitmapSource> thumbnails[kThreads], frameThumbnails[kThreads];
            ComPtr<IWICMetadataReader> readers[kThreads];
            const std::function<void(size_t)> work[] = {
                [&](size_t) { EXPECT_EQ(PixelsOf(FrameOf(decoder)), want); },
                [&](size_t) { EXPECT_EQ(PixelsOf(shared), want); },
                [&](size_t) {
                    const auto context = NewColorContext();
                    IWICColorContext* contexts[] = {context.get()};
                    UINT count = 0;
                    EXPECT_EQ(shared->GetColorContexts(1, contexts, &count), S_OK);
                },
                [&](size_t i) { EXPECT_EQ(richDecoder->GetThumbnail(thumbnails[i].Put()), S_OK); },
                [&](size_t i) { EXPECT_EQ(richFrame->GetThumbnail(frameThumbnails[i].Put()), S_OK); },
                [&](size_t i) { EXPECT_EQ(blocks->GetReaderByIndex(0, readers[i].Put()), S_OK); },
            };
            // Each thread begins with another piece.
            OnThreads([&](size_t i) {
                for (size_t k = 0; k < std::size(work); ++k) work[(i + k) % std::size(work)](i);
            });
            EXPECT_EQ(IfdFactory::made, 1);
            for (size_t i = 0; i < kThreads; ++i) {
                EXPECT_EQ(thumbnails[i].get(), thumbnails[0].get()) << "made twice";
                EXPECT_EQ(frameThumbnails[i].get(), frameThumbnails[0].get());
                EXPECT_EQ(readers[i].get(), readers[0].get());
            }
        }
        EXPECT_EQ(stream.references, 1);
        EXPECT_TRUE(CanUnload());
    }
}

}  // namespace
}  // namespace tessary::test
