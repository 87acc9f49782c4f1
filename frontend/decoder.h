// The decoder: what the imaging component framework makes for a document. Looks at the header, hands out the
// frame.
#pragma once

#include "frontend/com_object.h"

namespace tessary {

class CTessary final
    : public FreeThreadedObject<CTessary, ITessary, IWICBitmapDecoder, IWICMetadataBlockReader> {
public:
    static std::span<const InterfaceRow> InterfaceTable();

    // ITessary
    STDMETHODIMP_(ITessary*) GetTessary() override;

    // IWICBitmapDecoder
    STDMETHODIMP QueryCapability(IStream* stream, DWORD* capability) override;
    STDMETHODIMP Initialize(IStream* stream, WICDecodeOptions cacheOptions) override;
    STDMETHODIMP GetContainerFormat(GUID* format) override;  // of both interfaces
    STDMETHODIMP GetDecoderInfo(IWICBitmapDecoderInfo** info) override;
    STDMETHODIMP CopyPalette(IWICPalette* palette) override;
    STDMETHODIMP GetMetadataQueryReader(IWICMetadataQueryReader** reader) override;
    STDMETHODIMP GetPreview(IWICBitmapSource** source) override;
    STDMETHODIMP GetColorContexts(UINT count, IWICColorContext** contexts, UINT* actual) override;
    STDMETHODIMP GetThumbnail(IWICBitmapSource** thumbnail) override;
    STDMETHODIMP GetFrameCount(UINT* count) override;
    STDMETHODIMP GetFrame(UINT index, IWICBitmapFrameDecode** frame) override;

    // IWICMetadataBlockReader: the container has no blocks, the frame has them.
    STDMETHODIMP GetCount(UINT* count) override;
    STDMETHODIMP GetReaderByIndex(UINT index, IWICMetadataReader** reader) override;
    STDMETHODIMP GetEnumerator(IEnumUnknown** enumerator) override;

private:
    HRESULT ProbeStream();
    IWICImagingFactory* ImagingFactory();
    IWICComponentFactory* ComponentFactory();

    uint32_t m_width = 0;
    uint32_t m_height = 0;
    uint32_t m_dpiX = 0;
    uint32_t m_dpiY = 0;
    uint8_t m_hasColorProfile = 0;
    uint8_t m_hasThumbnail = 0;
    uint8_t m_hasExif = 0;
    uint8_t m_hasXmp = 0;
    ComPtr<IWICBitmapSource> m_thumbnailSource;
    ComPtr<IStream> m_stream;
    ReadyCriticalSection m_lock;  // for every use of the stream, and for the fields that change
    ComPtr<IWICImagingFactory> m_imagingFactory;
    ComPtr<IWICComponentFactory> m_componentFactory;
};

}  // namespace tessary
