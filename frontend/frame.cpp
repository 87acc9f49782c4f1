#include "frontend/frame.h"

#include <psapi.h>
#include <shlwapi.h>

#include "frontend/document_pixels.h"
#include "frontend/enum_unknown.h"
#include "frontend/exif_graft.h"
#include "frontend/pixel_copy.h"
#include "frontend/thumbnail_source.h"

namespace tessary {
namespace {

constexpr UINT kMostColorContexts = 16;
constexpr LONGLONG kExifHeaderBytes =
    8;  // the directory that the metadata reader is set on stands behind them

// The media centre shell would apply the profile to pixels it has already converted.
bool IsHostMediaCenter() {
    wchar_t name[MAX_PATH] = {};
    const DWORD length = GetModuleBaseNameW(GetCurrentProcess(), nullptr, name, MAX_PATH);
    return length != 0 && StrStrIW(name, L"ehshell.exe") != nullptr;
}

// Opens the document and puts the stream back; null when it cannot be read.
Owned<PsdDocument> OpenInPlace(CriticalSection& lock, IStream* stream, PsdReadMode mode) {
    const StreamPositionKeeper keep(lock, stream);
    Owned<PsdDocument> document;
    if (OpenDocument(document, stream, mode) != PsdReadResult::kOk) document.Reset();
    return document;
}

// Loads a profile that one context holds into another.
HRESULT CopyProfile(IWICColorContext* from, IWICColorContext* to) {
    UINT size = 0;
    HRESULT result = from->GetProfileBytes(0, nullptr, &size);
    if (FAILED(result)) return result;
    const auto bytes = AllocateZeroed<BYTE>({size});
    if (!bytes) return E_OUTOFMEMORY;
    result = from->GetProfileBytes(size, bytes.get(), &size);
    if (FAILED(result)) return result;
    return to->InitializeFromMemory(bytes.get(), size);
}

}  // namespace

std::span<const InterfaceRow> CTessaryBitmapFrameDecoder::InterfaceTable() {
    using Frame = CTessaryBitmapFrameDecoder;
    static constexpr InterfaceRow kTable[] = {
        Row<Frame, IWICBitmapFrameDecode>(IID_IWICBitmapFrameDecode),
        Row<Frame, IWICBitmapFrameDecode>(IID_IWICBitmapSource),
        Row<Frame, IWICMetadataBlockReader>(IID_IWICMetadataBlockReader),
        Row<Frame, IWICBitmapSourceTransform>(IID_IWICBitmapSourceTransform),
        Row<Frame, ITessaryBitmapFrameDecodePrivate>(IID_ITessaryBitmapFrameDecodePrivate),
    };
    return kTable;
}

// The large part first; the rest goes in reverse order of declaration.
CTessaryBitmapFrameDecoder::~CTessaryBitmapFrameDecoder() { m_pixels.Reset(); }

STDMETHODIMP CTessaryBitmapFrameDecoder::Initialize(IStream* stream, IWICImagingFactory* imagingFactory,
                                                    IWICComponentFactory* componentFactory,
                                                    REFGUID containerFormat, UINT width, UINT height,
                                                    UINT dpiX, UINT dpiY, BYTE hasColorProfile,
                                                    BYTE hasThumbnail, IWICBitmapSource* thumbnailSource,
                                                    BYTE hasExif, BYTE hasXmp) {
    m_stream = ComPtr<IStream>(stream);
    m_imagingFactory = ComPtr<IWICImagingFactory>(imagingFactory);
    m_componentFactory = ComPtr<IWICComponentFactory>(componentFactory);
    m_containerFormat = containerFormat;
    m_width = width;
    m_height = height;
    m_dpiX = dpiX;
    m_dpiY = dpiY;
    m_hasColorProfile = hasColorProfile;
    m_hasThumbnail = hasThumbnail;
    m_thumbnailSource = ComPtr<IWICBitmapSource>(thumbnailSource);
    m_hasExif = hasExif;
    m_hasXmp = hasXmp;
    return S_OK;
}

STDMETHODIMP CTessaryBitmapFrameDecoder::GetSize(UINT* width, UINT* height) {
    if (!width || !height) return E_INVALIDARG;
    *width = m_width;
    *height = m_height;
    return S_OK;
}

STDMETHODIMP CTessaryBitmapFrameDecoder::GetPixelFormat(GUID* format) {
    if (!format) return E_INVALIDARG;
    *format = GUID_WICPixelFormat32bppBGRA;
    return S_OK;
}

STDMETHODIMP CTessaryBitmapFrameDecoder::GetResolution(double* dpiX, double* dpiY) {
    if (!dpiX || !dpiY) return E_INVALIDARG;
    *dpiX = m_dpiX;
    *dpiY = m_dpiY;
    return S_OK;
}

STDMETHODIMP CTessaryBitmapFrameDecoder::CopyPalette(IWICPalette* palette) {
    return palette ? WINCODEC_ERR_PALETTEUNAVAILABLE : E_INVALIDARG;
}

STDMETHODIMP CTessaryBitmapFrameDecoder::CopyPixels(const WICRect* area, UINT stride, UINT bufferSize,
                                                    BYTE* buffer) {
    if (!buffer) return E_INVALIDARG;
    CopyArea copy{0, 0, static_cast<int32_t>(m_width), static_cast<int32_t>(m_height)};
    if (area) copy = {area->X, area->Y, area->Width, area->Height};
    if (!CheckRect(copy, m_width, m_height)) return E_INVALIDARG;
    const HRESULT result = DecodeOnce();
    if (FAILED(result)) return result;
    CopyRows(m_pixels.get(), m_width, copy, stride, bufferSize, buffer);
    return S_OK;
}

// A failed decode is tried again by the next call.
HRESULT CTessaryBitmapFrameDecoder::DecodeOnce() {
    if (m_decoded) return S_OK;
    const LockHolder hold(m_lock);
    if (m_decoded) return S_OK;
    if (FAILED(Guarded([this] { return Decode(); }))) return WINCODEC_ERR_BADIMAGE;
    m_decoded = 1;
    return S_OK;
}

HRESULT CTessaryBitmapFrameDecoder::Decode() {
    // The stream ends up where the decoding leaves it.
    const StreamUse use(m_lock, m_stream.get());
    DocumentPixels picture;
    if (DecodeDocumentPixels(m_stream.get(), picture) != PsdReadResult::kOk) return E_FAIL;
    // The file may have changed since its size was asked for.
    if (picture.width != m_width || picture.height != m_height) return E_FAIL;
    m_pixels = std::move(picture.pixels);
    return S_OK;
}

STDMETHODIMP CTessaryBitmapFrameDecoder::GetMetadataQueryReader(IWICMetadataQueryReader** reader) {
    if (!reader) return E_INVALIDARG;
    *reader = nullptr;
    if (!m_componentFactory) return E_UNEXPECTED;
    return m_componentFactory->CreateQueryReaderFromBlockReader(this, reader);
}

STDMETHODIMP CTessaryBitmapFrameDecoder::GetColorContexts(UINT count, IWICColorContext** contexts,
                                                          UINT* actual) {
    if (!actual) return E_INVALIDARG;
    if (IsHostMediaCenter()) {
        *actual = 0;
        return S_FALSE;
    }
    if (count == 0) {
        if (contexts) return E_INVALIDARG;
        *actual = m_hasColorProfile ? 1 : 0;
        return S_OK;
    }
    if (count > kMostColorContexts || !contexts) return E_INVALIDARG;
    for (UINT i = 0; i < count; ++i) {
        if (!contexts[i]) return E_INVALIDARG;
    }
    *actual = 0;
    if (!m_hasColorProfile) return S_OK;
    HRESULT result = BuildColorContext();
    if (SUCCEEDED(result)) result = CopyProfile(m_colorContext.get(), contexts[0]);
    if (SUCCEEDED(result)) *actual = 1;
    return result;
}

HRESULT CTessaryBitmapFrameDecoder::BuildColorContext() {
    const LockHolder hold(m_lock);
    return m_colorContext ? S_OK : Guarded([this] { return ReadColorContext(); });
}

HRESULT CTessaryBitmapFrameDecoder::ReadColorContext() {
    const auto document = OpenInPlace(m_lock, m_stream.get(), kReadProfile);
    if (!document) return E_FAIL;
    const Owned<uint8_t>& profile = document->resources.profile.bytes;
    // In a document that changed its colour mode since the probe there is a profile that does not count.
    const bool counts = document->resources.profile.present && profile;
    ComPtr<IWICColorContext> context;
    if (counts && m_componentFactory) m_componentFactory->CreateColorContext(context.Put());
    if (!context) return E_FAIL;
    const HRESULT result = context->InitializeFromMemory(profile.get(), static_cast<UINT>(profile.count()));
    if (FAILED(result)) return result;
    m_colorContext = context.As<IWICColorContext>(IID_IWICColorContext);
    return m_colorContext ? S_OK : E_FAIL;
}

STDMETHODIMP CTessaryBitmapFrameDecoder::GetThumbnail(IWICBitmapSource** thumbnail) {
    if (!thumbnail) return E_INVALIDARG;
    *thumbnail = nullptr;
    if (!m_hasThumbnail) return WINCODEC_ERR_CODECNOTHUMBNAIL;
    const LockHolder hold(m_lock);
    if (!m_thumbnailSource) {
        Guarded([this] {
            return CreateThumbnailSource(m_componentFactory.get(), m_stream.get(), m_lock, m_thumbnailSource);
        });
    }
    if (!m_thumbnailSource) return WINCODEC_ERR_CODECNOTHUMBNAIL;
    return m_thumbnailSource->QueryInterface(IID_IWICBitmapSource, reinterpret_cast<void**>(thumbnail));
}

STDMETHODIMP CTessaryBitmapFrameDecoder::GetContainerFormat(GUID* format) {
    if (!format) return E_INVALIDARG;
    *format = m_containerFormat;
    return S_OK;
}

STDMETHODIMP CTessaryBitmapFrameDecoder::GetCount(UINT* count) {
    if (!count) return E_INVALIDARG;
    *count = m_hasExif ? 1 : 0;
    return S_OK;
}

STDMETHODIMP CTessaryBitmapFrameDecoder::GetReaderByIndex(UINT index, IWICMetadataReader** reader) {
    if (!reader) return E_INVALIDARG;
    *reader = nullptr;
    if (index != 0 || FAILED(BuildMetadataReader())) return WINCODEC_ERR_UNSUPPORTEDOPERATION;
    if (!m_metadataReader) return E_UNEXPECTED;
    return m_metadataReader->QueryInterface(IID_IWICMetadataReader, reinterpret_cast<void**>(reader));
}

STDMETHODIMP CTessaryBitmapFrameDecoder::GetEnumerator(IEnumUnknown** enumerator) {
    if (!enumerator) return E_INVALIDARG;
    *enumerator = nullptr;
    HRESULT result = BuildMetadataReader();
    if (FAILED(result)) return result;
    if (!m_metadataReader) return E_UNEXPECTED;  // an enumerator must not hand out null
    ComPtr<CEnumUnknown> made;
    result = ConstructComObject(made);
    if (FAILED(result)) return result;
    const auto init = made.As<IEnumUnknownPrivate>(IID_IEnumUnknownPrivate);
    if (!init) return E_UNEXPECTED;
    result = init->Initialize(m_metadataReader.get());
    if (SUCCEEDED(result)) *enumerator = made.Detach();
    return result;
}

// Tried once only. After a failure further calls succeed without a reader; m_metadataReader may be read
// without the lock after this, for it changes no more.
HRESULT CTessaryBitmapFrameDecoder::BuildMetadataReader() {
    if (!m_componentFactory) return E_UNEXPECTED;
    if (!m_hasExif) return E_FAIL;
    const LockHolder hold(m_lock);
    if (m_metadataTried) return S_OK;
    m_metadataTried = 1;
    return Guarded([this] { return ReadMetadata(); });
}

HRESULT CTessaryBitmapFrameDecoder::ReadMetadata() {
    const auto document = OpenInPlace(m_lock, m_stream.get(), kReadMetadata);
    if (!document) return E_FAIL;
    const std::span<const uint8_t> exif = document->resources.exif.bytes.span();
    const std::span<const uint8_t> xmp = document->resources.xmp.bytes.span();
    if (exif.empty() || m_metadataReader) return E_FAIL;
    if (!m_imagingFactory) return E_UNEXPECTED;
    Owned<uint8_t> block;  // the memory of the stream below
    if (GraftXmp(exif, xmp, block) != PsdReadResult::kOk) return E_OUTOFMEMORY;

    ComPtr<IWICStream> stream;
    HRESULT result = m_imagingFactory->CreateStream(stream.Put());
    if (FAILED(result)) return result;
    result = stream->InitializeFromMemory(block.get(), static_cast<DWORD>(block.count()));
    if (FAILED(result)) return result;
    LARGE_INTEGER directory;
    directory.QuadPart = kExifHeaderBytes;
    result = stream->Seek(directory, STREAM_SEEK_CUR, nullptr);
    if (FAILED(result)) return result;
    const DWORD options = static_cast<DWORD>(WICPersistOptionNoCacheStream) |
                          (ExifByteOrder(exif, !xmp.empty()) == ByteOrder::kBigEndian
                               ? static_cast<DWORD>(WICPersistOptionBigEndian)
                               : static_cast<DWORD>(WICPersistOptionLittleEndian));
    return m_componentFactory->CreateMetadataReader(GUID_MetadataFormatIfd, nullptr, options, stream.get(),
                                                    m_metadataReader.Put());
}

STDMETHODIMP CTessaryBitmapFrameDecoder::CopyPixels(const WICRect* area, UINT, UINT, GUID*,
                                                    WICBitmapTransformOptions, UINT stride, UINT bufferSize,
                                                    BYTE* buffer) {
    // What else was asked for is passed over: the methods below have told the caller that there is no such
    // thing.
    return CopyPixels(area, stride, bufferSize, buffer);
}

STDMETHODIMP CTessaryBitmapFrameDecoder::GetClosestSize(UINT* width, UINT* height) {
    return GetSize(width, height);
}

STDMETHODIMP CTessaryBitmapFrameDecoder::GetClosestPixelFormat(GUID* format) {
    return GetPixelFormat(format);
}

STDMETHODIMP CTessaryBitmapFrameDecoder::DoesSupportTransform(WICBitmapTransformOptions transform,
                                                              BOOL* supported) {
    if (!supported) return E_INVALIDARG;
    *supported = transform == WICBitmapTransformRotate0;
    return S_OK;
}

}  // namespace tessary
