#include "frontend/thumbnail_source.h"

#include <utility>

namespace tessary {
namespace {

constexpr double kResolution = 72.0;

// Takes the thumbnail out of the document. The lock is let go of before anything is decoded.
HRESULT ReadThumbnail(IStream* stream, CriticalSection& lock, PsdThumbnail& thumbnail) {
    const StreamPositionKeeper keep(lock, stream);
    Owned<PsdDocument> document;
    const PsdReadResult result = OpenDocument(document, stream, kReadThumbnail);
    if (result == PsdReadResult::kOutOfMemory) return E_OUTOFMEMORY;
    if (result != PsdReadResult::kOk) return E_FAIL;
    thumbnail = std::move(document->resources.thumbnail);
    return S_OK;
}

// A stream of its own with the JPEG bytes, standing at their start.
HRESULT MakeJpegStream(const PsdThumbnail& thumbnail, ComPtr<IStream>& jpeg) {
    HRESULT result = CreateStreamOnHGlobal(nullptr, TRUE, jpeg.Put());
    if (FAILED(result)) return result;
    ULONG written = 0;
    result = jpeg->Write(thumbnail.data.get(), thumbnail.compressedSize, &written);
    if (FAILED(result)) return result;
    if (written != thumbnail.compressedSize) return E_OUTOFMEMORY;
    const LARGE_INTEGER start = {};
    return jpeg->Seek(start, STREAM_SEEK_SET, nullptr);
}

HRESULT OpenJpegFrame(IStream* jpeg, ComPtr<IWICBitmapFrameDecode>& frame) {
    ComPtr<IWICBitmapDecoder> decoder;
    HRESULT result = CoCreateInstance(CLSID_WICJpegDecoder, nullptr,
                                      CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER |
                                          CLSCTX_REMOTE_SERVER,
                                      IID_IWICBitmapDecoder, decoder.PutVoid());
    if (FAILED(result)) return result;
    result = decoder->Initialize(jpeg, WICDecodeMetadataCacheOnDemand);
    return FAILED(result) ? result : decoder->GetFrame(0, frame.Put());
}

// Puts a converter to `format` behind `picture`.
HRESULT ConvertTo(REFWICPixelFormatGUID format, IWICComponentFactory* factory,
                  ComPtr<IWICBitmapSource>& picture) {
    ComPtr<IWICFormatConverter> converter;
    HRESULT result = factory->CreateFormatConverter(converter.Put());
    if (FAILED(result)) return result;
    result = converter->Initialize(picture.get(), format, WICBitmapDitherTypeNone, nullptr, 0.0,
                                   WICBitmapPaletteTypeCustom);
    picture = ComPtr<IWICBitmapSource>(converter.get());
    return result;
}

// Makes `picture` 24 bits BGR unless it is. Goes by 32 bits, to which every converter knows the way from grey
// and CMYK; not every one knows the direct way.
HRESULT ConvertToBgr(IWICComponentFactory* factory, ComPtr<IWICBitmapSource>& picture) {
    WICPixelFormatGUID format = {};
    HRESULT result = picture->GetPixelFormat(&format);
    if (FAILED(result) || IsEqualGUID(format, GUID_WICPixelFormat24bppBGR)) return result;
    if (!factory) return E_FAIL;
    result = ConvertTo(GUID_WICPixelFormat32bppBGRA, factory, picture);
    return FAILED(result) ? result : ConvertTo(GUID_WICPixelFormat24bppBGR, factory, picture);
}

// Puts a scaler behind `picture` unless its size is as wanted already.
HRESULT ScaleTo(UINT width, UINT height, IWICComponentFactory* factory, ComPtr<IWICBitmapSource>& picture) {
    UINT pictureWidth = 0;
    UINT pictureHeight = 0;
    HRESULT result = picture->GetSize(&pictureWidth, &pictureHeight);
    if (FAILED(result) || (pictureWidth == width && pictureHeight == height)) return result;
    if (!factory || !IsThumbnailSize(pictureWidth, pictureHeight)) return E_FAIL;
    ComPtr<IWICBitmapScaler> scaler;
    result = factory->CreateBitmapScaler(scaler.Put());
    if (FAILED(result)) return result;
    result = scaler->Initialize(picture.get(), width, height, WICBitmapInterpolationModeFant);
    picture = ComPtr<IWICBitmapSource>(scaler.get());
    return result;
}

HRESULT DecodeThumbnail(IWICComponentFactory* factory, ThumbnailRecord& record) {
    const PsdThumbnail& stored = record.stored;
    record.pixels = AllocateZeroed<uint8_t>({stored.height, stored.rowBytes});
    if (!record.pixels) return E_OUTOFMEMORY;
    ComPtr<IStream> jpeg;
    HRESULT result = MakeJpegStream(stored, jpeg);
    if (FAILED(result)) return result;
    ComPtr<IWICBitmapFrameDecode> frame;
    result = OpenJpegFrame(jpeg.get(), frame);
    if (FAILED(result)) return result;
    ComPtr<IWICBitmapSource> picture(frame.get());
    result = ConvertToBgr(factory, picture);
    if (SUCCEEDED(result)) result = ScaleTo(stored.width, stored.height, factory, picture);
    if (FAILED(result)) return result;
    return picture->CopyPixels(nullptr, stored.rowBytes, static_cast<UINT>(record.pixels.count()),
                               record.pixels.get());
}

}  // namespace

std::span<const InterfaceRow> CThumbnailBitmapSource::InterfaceTable() {
    static constexpr InterfaceRow kRows[] = {
        Row<CThumbnailBitmapSource, IWICBitmapSource>(IID_IWICBitmapSource),
        Row<CThumbnailBitmapSource, IThumbnailBitmapSourcePrivate>(IID_IThumbnailBitmapSourcePrivate),
    };
    return kRows;
}

STDMETHODIMP CThumbnailBitmapSource::Initialize(ThumbnailRecord* record) {
    if (m_initialized) return E_UNEXPECTED;
    if (!record || !record->pixels) return E_INVALIDARG;
    m_record = std::move(*record);
    record->stored.redFirst = false;
    m_initialized = true;
    return S_OK;
}

STDMETHODIMP CThumbnailBitmapSource::GetSize(UINT* width, UINT* height) {
    if (!width || !height) return E_INVALIDARG;
    if (!m_initialized) return E_UNEXPECTED;
    *width = m_record.stored.width;
    *height = m_record.stored.height;
    return S_OK;
}

STDMETHODIMP CThumbnailBitmapSource::GetPixelFormat(WICPixelFormatGUID* format) {
    if (!format) return E_INVALIDARG;
    if (!m_initialized) return E_UNEXPECTED;
    if (!IsThumbnailFormat(m_record.stored)) return E_FAIL;
    *format = m_record.stored.redFirst ? GUID_WICPixelFormat24bppRGB : GUID_WICPixelFormat24bppBGR;
    return S_OK;
}

STDMETHODIMP CThumbnailBitmapSource::GetResolution(double* x, double* y) {
    if (!x || !y) return E_INVALIDARG;
    if (!m_initialized) return E_UNEXPECTED;
    *x = *y = kResolution;
    return S_OK;
}

STDMETHODIMP CThumbnailBitmapSource::CopyPalette(IWICPalette*) {
    return m_initialized ? WINCODEC_ERR_PALETTEUNAVAILABLE : E_UNEXPECTED;
}

STDMETHODIMP CThumbnailBitmapSource::CopyPixels(const WICRect* area, UINT stride, UINT, BYTE* buffer) {
    if (!m_initialized) return E_UNEXPECTED;
    CopyArea copied = {0, 0, static_cast<INT>(m_record.stored.width),
                       static_cast<INT>(m_record.stored.height)};
    if (area) copied = {area->X, area->Y, area->Width, area->Height};
    if (!buffer || !CheckRect(copied, m_record.stored.width, m_record.stored.height)) return E_INVALIDARG;
    if (!m_record.Served()) return E_UNEXPECTED;
    CopyThumbnail(m_record, copied, m_originX, m_originY, stride, buffer);
    return S_OK;
}

HRESULT CreateThumbnailSource(IWICComponentFactory* factory, IStream* stream, CriticalSection& lock,
                              ComPtr<IWICBitmapSource>& source) {
    source.Reset();
    if (!stream) return E_UNEXPECTED;
    ThumbnailRecord record;
    HRESULT result = ReadThumbnail(stream, lock, record.stored);
    if (FAILED(result)) return result;
    if (!IsUsableThumbnail(record.stored)) return E_FAIL;
    result = DecodeThumbnail(factory, record);
    if (FAILED(result)) return result;

    ComPtr<CThumbnailBitmapSource> made;
    result = ConstructComObject(made);
    if (SUCCEEDED(result)) result = made->Initialize(&record);
    if (SUCCEEDED(result)) source = ComPtr<IWICBitmapSource>(made.get());
    return result;
}

}  // namespace tessary
