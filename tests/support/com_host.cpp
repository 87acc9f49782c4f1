#include <initguid.h>

#include "tests/support/com_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace tessary::test {
namespace {

constexpr size_t kFactorySlots = 35;  // methods of the component factory
constexpr size_t kCreateMetadataReaderSlot = 28;

class ComEnvironment : public ::testing::Environment {
    void SetUp() override { ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK); }
    void TearDown() override { CoUninitialize(); }
};
[[maybe_unused]] const auto* const g_environment = ::testing::AddGlobalTestEnvironment(new ComEnvironment);

Bytes EncodeJpeg(UINT width, UINT height) {
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
    WICPixelFormatGUID format = GUID_WICPixelFormat24bppBGR;
    frame->SetPixelFormat(&format);
    Bytes pixels(size_t{width} * height * 3, 100);
    frame->WritePixels(height, width * 3, static_cast<UINT>(pixels.size()), pixels.data());
    EXPECT_EQ(frame->Commit(), S_OK);
    EXPECT_EQ(encoder->Commit(), S_OK);
    HGLOBAL memory;
    EXPECT_EQ(GetHGlobalFromStream(stream.get(), &memory), S_OK);
    const auto* data = static_cast<const uint8_t*>(GlobalLock(memory));
    const LARGE_INTEGER zero = {};
    ULARGE_INTEGER size = {};
    stream->Seek(zero, STREAM_SEEK_END, &size);
    return Bytes(data, data + size.QuadPart);
}

HRESULT STDMETHODCALLTYPE CreateIfdReader(IWICComponentFactory*, REFGUID format, const GUID* vendor,
                                          DWORD options, IStream* stream, IWICMetadataReader** reader) {
    ++IfdFactory::made;
    IfdFactory::options = options;
    EXPECT_TRUE(IsEqualGUID(format, GUID_MetadataFormatIfd) && !vendor);
    HRESULT result = CoCreateInstance(CLSID_WICIfdMetadataReader, nullptr, CLSCTX_INPROC_SERVER,
                                      IID_IWICMetadataReader, reinterpret_cast<void**>(reader));
    if (FAILED(result)) return result;
    const auto persist = ComPtr<IWICMetadataReader>(*reader).As<IWICPersistStream>(IID_IWICPersistStream);
    return persist ? persist->LoadEx(stream, vendor, options) : E_NOINTERFACE;
}

}  // namespace

HMODULE LoadDll() {
    static const HMODULE module = [] {
        std::string path = TESSARY_DLL_DIR "/Tessary.dll";
        if (path[0] == '/') path = "Z:" + path;  // where Wine shows the root of the file system
        std::ranges::replace(path, '/', '\\');
        return LoadLibraryA(path.c_str());
    }();
    return module;
}

ComPtr<IClassFactory> DecoderFactory() {
    ComPtr<IClassFactory> factory;
    EXPECT_EQ(Export<HRESULT WINAPI(REFCLSID, REFIID, void**)>(LoadDll(), "DllGetClassObject")(
                  CLSID_Tessary, IID_IClassFactory, factory.PutVoid()),
              S_OK);
    return factory;
}

bool CanUnload() { return Export<HRESULT WINAPI()>(LoadDll(), "DllCanUnloadNow")() == S_OK; }

ComPtr<IWICBitmapDecoder> NewDecoder() {
    ComPtr<IWICBitmapDecoder> decoder;
    EXPECT_EQ(DecoderFactory()->CreateInstance(nullptr, IID_IWICBitmapDecoder, decoder.PutVoid()), S_OK);
    return decoder;
}

ComPtr<IWICBitmapDecoder> OpenDecoder(IStream& stream) {
    auto decoder = NewDecoder();
    EXPECT_EQ(decoder->Initialize(&stream, WICDecodeMetadataCacheOnDemand), S_OK);
    return decoder;
}

ComPtr<IWICBitmapFrameDecode> FrameOf(IWICBitmapDecoder* decoder) {
    ComPtr<IWICBitmapFrameDecode> frame;
    EXPECT_EQ(decoder->GetFrame(0, frame.Put()), S_OK);
    return frame;
}

Bytes PixelsOf(IWICBitmapFrameDecode* frame) {
    UINT width = 0, height = 0;
    frame->GetSize(&width, &height);
    Bytes pixels(size_t{width} * height * 4);
    const UINT size = static_cast<UINT>(pixels.size());
    if (FAILED(frame->CopyPixels(nullptr, width * 4, size, pixels.data()))) pixels.clear();
    return pixels;
}

DocumentBuilder RichDocument() {
    static const Bytes jpeg = EncodeJpeg(2, 2);
    const uint32_t jpegSize = static_cast<uint32_t>(jpeg.size());
    ByteWriter planes, thumbnail, exif;
    for (uint32_t i = 0; i < 36; ++i) planes.U8(i % 12 + i / 12 * 16);
    thumbnail.U32(1).U32(2).U32(2).U32(8).U32(16).U32(jpegSize).U16(24).U16(1).Raw(jpeg);
    exif.Text("MM").U16(42).U32(8).U16(2);
    exif.U16(274).U16(3).U32(1).U16(6).U16(0);             // orientation
    exif.U16(305).U16(2).U32(4).Text("abc").U8(0).U32(0);  // software, and no further directory
    return DocumentBuilder(kColorRgb, 8, 3, 4, 3)
        .Resolution(300.5, 1)
        .Resource(1036, thumbnail)
        .Resource(1039, kProfile)
        .Resource(1058, exif)
        .Resource(1060, ByteWriter().Text("<xmp/>").U8(0))
        .Merged(planes);
}

Bytes RichPixels() {
    ByteWriter pixels;
    for (uint32_t i = 0; i < 12; ++i) pixels.U8(32 + i).U8(16 + i).U8(i).U8(255);
    return pixels;
}

IfdFactory::IfdFactory() {
    EXPECT_EQ(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                               IID_IWICComponentFactory, m_factory.PutVoid()),
              S_OK);
    void**& table = *reinterpret_cast<void***>(m_factory.get());
    m_table = table;
    std::copy_n(m_table, kFactorySlots, m_patched);
    m_patched[kCreateMetadataReaderSlot] = reinterpret_cast<void*>(&CreateIfdReader);
    table = m_patched;
    made = 0;
}

IfdFactory::~IfdFactory() { *reinterpret_cast<void***>(m_factory.get()) = m_table; }

void Reinitialize(IWICBitmapFrameDecode* frame, IStream* stream, IWICComponentFactory* factory) {
    const auto init = ComPtr<IWICBitmapFrameDecode>(frame).As<ITessaryBitmapFrameDecodePrivate>(
        IID_ITessaryBitmapFrameDecodePrivate);
    ASSERT_TRUE(init);
    EXPECT_EQ(init->Initialize(stream, factory, factory, GUID_NULL, 4, 3, 300, 300, 1, 1, nullptr, 1, 1),
              S_OK);
}

}  // namespace tessary::test
