// The one frame of a document: its pixels, colour profile, metadata and thumbnail.
#pragma once

#include <atomic>

#include "document/platform.h"
#include "frontend/com_object.h"

namespace tessary {

class CTessaryBitmapFrameDecoder final
    : public FreeThreadedObject<CTessaryBitmapFrameDecoder, IWICBitmapFrameDecode, IWICMetadataBlockReader,
                                IWICBitmapSourceTransform, ITessaryBitmapFrameDecodePrivate> {
public:
    static std::span<const InterfaceRow> InterfaceTable();

    CTessaryBitmapFrameDecoder() = default;
    ~CTessaryBitmapFrameDecoder() override;

    // ITessaryBitmapFrameDecodePrivate: called once, before anyone else sees the frame, so what it sets is
    // read without a lock.
    STDMETHODIMP Initialize(IStream* stream, IWICImagingFactory* imagingFactory,
                            IWICComponentFactory* componentFactory, REFGUID containerFormat, UINT width,
                            UINT height, UINT dpiX, UINT dpiY, BYTE hasColorProfile, BYTE hasThumbnail,
                            IWICBitmapSource* thumbnailSource, BYTE hasExif, BYTE hasXmp) override;

    // IWICBitmapFrameDecode
    STDMETHODIMP GetSize(UINT* width, UINT* height) override;
    STDMETHODIMP GetPixelFormat(GUID* format) override;
    STDMETHODIMP GetResolution(double* dpiX, double* dpiY) override;
    STDMETHODIMP CopyPalette(IWICPalette* palette) override;
    STDMETHODIMP CopyPixels(const WICRect* area, UINT stride, UINT bufferSize, BYTE* buffer) override;
    STDMETHODIMP GetMetadataQueryReader(IWICMetadataQueryReader** reader) override;
    STDMETHODIMP GetColorContexts(UINT count, IWICColorContext** contexts, UINT* actual) override;
    STDMETHODIMP GetThumbnail(IWICBitmapSource** thumbnail) override;

    // IWICMetadataBlockReader: the EXIF block, with the XMP packet in it, is the only one.
    STDMETHODIMP GetContainerFormat(GUID* format) override;
    STDMETHODIMP GetCount(UINT* count) override;
    STDMETHODIMP GetReaderByIndex(UINT index, IWICMetadataReader** reader) override;
    STDMETHODIMP GetEnumerator(IEnumUnknown** enumerator) override;

    // IWICBitmapSourceTransform: offers the identity and nothing else.
    STDMETHODIMP CopyPixels(const WICRect* area, UINT width, UINT height, GUID* format,
                            WICBitmapTransformOptions transform, UINT stride, UINT bufferSize,
                            BYTE* buffer) override;
    STDMETHODIMP GetClosestSize(UINT* width, UINT* height) override;
    STDMETHODIMP GetClosestPixelFormat(GUID* format) override;
    STDMETHODIMP DoesSupportTransform(WICBitmapTransformOptions transform, BOOL* supported) override;

private:
    HRESULT DecodeOnce();
    HRESULT Decode();
    HRESULT BuildColorContext();
    HRESULT ReadColorContext();
    HRESULT BuildMetadataReader();
    HRESULT ReadMetadata();

    GUID m_containerFormat = {};
    ComPtr<IStream> m_stream;
    ComPtr<IWICImagingFactory> m_imagingFactory;
    ComPtr<IWICComponentFactory> m_componentFactory;
    ComPtr<IWICColorContext> m_colorContext;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
    uint32_t m_dpiX = 0;
    uint32_t m_dpiY = 0;
    uint8_t m_hasColorProfile = 0;
    uint8_t m_hasThumbnail = 0;
    uint8_t m_hasExif = 0;
    uint8_t m_hasXmp = 0;
    ComPtr<IWICBitmapSource> m_thumbnailSource;
    Owned<uint32_t> m_pixels;  // width x height words, B G R A in memory; never changes once m_decoded
    std::atomic<uint8_t> m_decoded{0};
    ReadyCriticalSection m_lock;  // for every use of the stream and for what is made on first need
    ComPtr<IWICMetadataReader> m_metadataReader;
    uint8_t m_metadataTried = 0;
};

}  // namespace tessary
