#include "frontend/decoder.h"

#include "frontend/buffered_stream.h"
#include "frontend/frame.h"
#include "frontend/header_probe.h"
#include "frontend/thumbnail_source.h"

namespace tessary {
namespace {

constexpr DWORD kCapability = WICBitmapDecoderCapabilityCanDecodeAllImages |
                              WICBitmapDecoderCapabilityCanEnumerateMetadata |
                              WICBitmapDecoderCapabilityCanDecodeThumbnail;

// The caller's stream behind a read-ahead buffer, or as it is when there is no memory for one.
ComPtr<IStream> BufferStream(IStream* stream) {
    ComPtr<CBufferedStream> buffered;
    if (SUCCEEDED(ConstructComObject(buffered))) {
        const auto init = buffered.As<IBufferedStreamInit>(IID_IBufferedStreamInit);
        if (init && SUCCEEDED(init->Initialize(stream, kReadAheadBytes))) {
            init->EnableBuffering(1);
            return ComPtr<IStream>(buffered.get());
        }
    }
    return ComPtr<IStream>(stream);
}

}  // namespace

std::span<const InterfaceRow> CTessary::InterfaceTable() {
    static constexpr InterfaceRow kTable[] = {
        Row<CTessary, ITessary>(IID_ITessary),
        Row<CTessary, IWICBitmapDecoder>(IID_IWICBitmapDecoder),
        Row<CTessary, IWICMetadataBlockReader>(IID_IWICMetadataBlockReader),
    };
    return kTable;
}

STDMETHODIMP_(ITessary*) CTessary::GetTessary() { return this; }

// Looks at the held stream, which stays where it is. What is not a document leaves its size at most.
HRESULT CTessary::ProbeStream() {
    HeaderInfo info;
    const HRESULT result = Guarded([&] {
        const StreamPositionKeeper keep(m_lock, m_stream.get());
        return ProbeHeader(m_stream.get(), info);
    });
    m_width = info.width;
    m_height = info.height;
    m_dpiX = info.dpiX;
    m_dpiY = info.dpiY;
    m_hasColorProfile = info.hasColorProfile;
    m_hasThumbnail = info.hasThumbnail;
    m_hasExif = info.hasExif;
    m_hasXmp = info.hasXmp;
    return SUCCEEDED(result) ? S_OK : WINCODEC_ERR_UNKNOWNIMAGEFORMAT;
}

STDMETHODIMP CTessary::QueryCapability(IStream* stream, DWORD* capability) {
    if (!stream || !capability) return E_INVALIDARG;
    *capability = 0;
    const LockHolder hold(m_lock);
    // Kept although only a question was asked: a frame can be taken without Initialize.
    m_stream = ComPtr<IStream>(stream);
    if (FAILED(ProbeStream()) || m_width == 0 || m_height == 0) return WINCODEC_ERR_UNKNOWNIMAGEFORMAT;
    *capability = kCapability;
    return S_OK;
}

STDMETHODIMP CTessary::Initialize(IStream* stream, WICDecodeOptions) {
    if (!stream) return E_INVALIDARG;
    const LockHolder hold(m_lock);
    m_stream = BufferStream(stream);
    return ProbeStream();
}

STDMETHODIMP CTessary::GetContainerFormat(GUID* format) {
    if (!format) return E_INVALIDARG;
    return CLSIDFromString(kContainerFormatText, format);
}

STDMETHODIMP CTessary::GetDecoderInfo(IWICBitmapDecoderInfo** info) {
    if (!info) return E_INVALIDARG;
    *info = nullptr;
    ComPtr<IWICComponentInfo> component;
    if (IWICComponentFactory* factory = ComponentFactory()) {
        factory->CreateComponentInfo(CLSID_Tessary, component.Put());
    }
    if (!component) return E_UNEXPECTED;
    return component->QueryInterface(IID_IWICBitmapDecoderInfo, reinterpret_cast<void**>(info));
}

STDMETHODIMP CTessary::CopyPalette(IWICPalette* palette) {
    return palette ? WINCODEC_ERR_PALETTEUNAVAILABLE : E_INVALIDARG;
}

STDMETHODIMP CTessary::GetMetadataQueryReader(IWICMetadataQueryReader** reader) {
    if (!reader) return E_INVALIDARG;
    *reader = nullptr;
    IWICComponentFactory* factory = ComponentFactory();
    return factory ? factory->CreateQueryReaderFromBlockReader(this, reader) : E_UNEXPECTED;
}

STDMETHODIMP CTessary::GetPreview(IWICBitmapSource** source) {
    return source ? WINCODEC_ERR_UNSUPPORTEDOPERATION : E_INVALIDARG;
}

STDMETHODIMP CTessary::GetColorContexts(UINT count, IWICColorContext** contexts, UINT* actual) {
    if (!actual || (count != 0 && !contexts)) return E_INVALIDARG;
    *actual = 0;
    return S_OK;
}

STDMETHODIMP CTessary::GetThumbnail(IWICBitmapSource** thumbnail) {
    if (!thumbnail) return E_INVALIDARG;
    *thumbnail = nullptr;
    const LockHolder hold(m_lock);
    if (!m_hasThumbnail) return WINCODEC_ERR_CODECNOTHUMBNAIL;
    if (!m_thumbnailSource) {
        // With the factory as it stands: none is made for a thumbnail, which mostly does without.
        Guarded([this] {
            return CreateThumbnailSource(m_componentFactory.get(), m_stream.get(), m_lock, m_thumbnailSource);
        });
    }
    if (!m_thumbnailSource) return WINCODEC_ERR_CODECNOTHUMBNAIL;
    return m_thumbnailSource->QueryInterface(IID_IWICBitmapSource, reinterpret_cast<void**>(thumbnail));
}

STDMETHODIMP CTessary::GetFrameCount(UINT* count) {
    if (!count) return E_INVALIDARG;
    const LockHolder hold(m_lock);
    if (!m_stream) return WINCODEC_ERR_NOTINITIALIZED;
    *count = 1;
    return S_OK;
}

STDMETHODIMP CTessary::GetFrame(UINT index, IWICBitmapFrameDecode** frame) {
    if (!frame) return E_INVALIDARG;
    *frame = nullptr;
    if (index != 0) return WINCODEC_ERR_FRAMEMISSING;
    ComPtr<CTessaryBitmapFrameDecoder> made;
    HRESULT result = ConstructComObject(made);
    if (FAILED(result)) return result;
    const auto init = made.As<ITessaryBitmapFrameDecodePrivate>(IID_ITessaryBitmapFrameDecodePrivate);
    if (!init) return E_UNEXPECTED;
    GUID containerFormat;
    GetContainerFormat(&containerFormat);
    const LockHolder hold(m_lock);
    IWICImagingFactory* imagingFactory = ImagingFactory();
    IWICComponentFactory* componentFactory = ComponentFactory();
    result = init->Initialize(m_stream.get(), imagingFactory, componentFactory, containerFormat, m_width,
                              m_height, m_dpiX, m_dpiY, m_hasColorProfile, m_hasThumbnail,
                              m_thumbnailSource.get(), m_hasExif, m_hasXmp);
    if (SUCCEEDED(result)) *frame = made.Detach();
    return result;
}

STDMETHODIMP CTessary::GetCount(UINT* count) {
    if (!count) return E_INVALIDARG;
    *count = 0;
    return S_OK;
}

STDMETHODIMP CTessary::GetReaderByIndex(UINT, IWICMetadataReader** reader) {
    return reader ? WINCODEC_ERR_UNSUPPORTEDOPERATION : E_INVALIDARG;
}

STDMETHODIMP CTessary::GetEnumerator(IEnumUnknown** enumerator) {
    return enumerator ? WINCODEC_ERR_UNSUPPORTEDOPERATION : E_INVALIDARG;
}

// The factories stay once they are there, so a pointer to them outlasts the lock. Null when they cannot be
// made.
IWICImagingFactory* CTessary::ImagingFactory() {
    const LockHolder hold(m_lock);
    if (!m_imagingFactory) {
        CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                         m_imagingFactory.PutVoid());
    }
    return m_imagingFactory.get();
}

IWICComponentFactory* CTessary::ComponentFactory() {
    const LockHolder hold(m_lock);
    if (!m_componentFactory && ImagingFactory()) {
        m_componentFactory = m_imagingFactory.As<IWICComponentFactory>(IID_IWICComponentFactory);
    }
    return m_componentFactory.get();
}

}  // namespace tessary
