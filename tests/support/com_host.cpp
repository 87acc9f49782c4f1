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

HRESULT STDMETHODCALLTYPE CreateIfdReader(IWICComponentFactory*, REFGUID format, const GUID* vendor,
                                          DWORD options, IStream* stream, IWICMetadataReader** reader) {
    ++IfdFactory::made;
    IfdFactory::options = options;
    EXPECT_TRUE(IsEqualGUID(format, GUID_MetadataFormatIfd) && !vendor);
    auto made = Create<IWICMetadataReader>(CLSID_WICIfdMetadataReader, IID_IWICMetadataReader);
    const auto persist = made.As<IWICPersistStream>(IID_IWICPersistStream);
    if (!persist) return E_NOINTERFACE;
    *reader = made.Detach();
    return persist->LoadEx(stream, vendor, options);
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

Bytes EncodeJpeg(UINT width, UINT height, const JpegColors& colors) {
    const auto encoder = Create<IWICBitmapEncoder>(CLSID_WICJpegEncoder, IID_IWICBitmapEncoder);
    ComPtr<IStream> stream;
    ComPtr<IWICBitmapFrameEncode> frame;
    WICPixelFormatGUID format = colors.format;
    ByteWriter pixels;
    for (UINT i = 0; i < width * height; ++i) pixels.Raw(i % width < width / 2 ? colors.left : colors.right);
    Bytes bytes = pixels;
    const UINT size = static_cast<UINT>(bytes.size());
    const HRESULT inThisOrder[] = {CreateStreamOnHGlobal(nullptr, TRUE, stream.Put()),
                                   encoder->Initialize(stream.get(), WICBitmapEncoderNoCache),
                                   encoder->CreateNewFrame(frame.Put(), nullptr),
                                   frame->Initialize(nullptr),
                                   frame->SetSize(width, height),
                                   frame->SetPixelFormat(&format),
                                   frame->WritePixels(height, size / height, size, bytes.data()),
                                   frame->Commit(),
                                   encoder->Commit()};
    EXPECT_THAT(inThisOrder, ::testing::Each(S_OK));
    EXPECT_TRUE(IsEqualGUID(format, colors.format));
    Bytes jpeg(1 << 16);
    ULONG length = 0;
    stream->Seek({}, STREAM_SEEK_SET, nullptr);
    stream->Read(jpeg.data(), 1 << 16, &length);
    jpeg.resize(length);
    return jpeg;
}

DocumentBuilder RichDocument() {
    static const Bytes jpeg = EncodeJpeg(2, 2, {GUID_WICPixelFormat24bppBGR, Bytes(3, 100), Bytes(3, 100)});
    ByteWriter planes, thumbnail, exif;
    for (uint32_t i = 0; i < 48; ++i) planes.U8(i % 12 + i / 12 * 16);
    thumbnail.U32(1).U32(2).U32(2).U32(8).U32(16).U32(static_cast<uint32_t>(jpeg.size())).U16(24).U16(1);
    exif.Text("MM").U16(42).U32(8).U16(2);
    exif.U16(274).U16(3).U32(1).U16(6).U16(0);             // orientation
    exif.U16(305).U16(2).U32(4).Text("abc").U8(0).U32(0);  // software, and no further directory
    DocumentBuilder document(kColorRgb, 8, 4, 4, 3);
    document.Resolution(300.5, 1).Resource(1036, thumbnail.Raw(jpeg)).Resource(1039, kProfile);
    document.Resource(1058, exif).Resource(1060, ByteWriter().Text("<xmp/>").U8(0));
    return document.Merged(planes);
}

Bytes RichPixels() {
    ByteWriter pixels;
    for (uint32_t i = 0; i < 12; ++i) pixels.U8(32 + i).U8(16 + i).U8(i).U8(48 + i);
    return pixels;
}

IfdFactory::IfdFactory()
    : m_factory(Create<IWICComponentFactory>(CLSID_WICImagingFactory, IID_IWICComponentFactory)) {
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
    EXPECT_EQ(init->Initialize(stream, factory, factory, GUID{}, 4, 3, 300, 300, 1, 1, nullptr, 1, 1), S_OK);
}

}  // namespace tessary::test
