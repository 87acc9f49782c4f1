// The thumbnail that a document carries, as a bitmap source.
#pragma once

#include "frontend/codec.h"
#include "frontend/com_object.h"
#include "frontend/thumbnail_image.h"

namespace tessary {

// Serves a decoded thumbnail as it is; never changes after Initialize, so its methods take no lock.
class CThumbnailBitmapSource final
    : public FreeThreadedObject<CThumbnailBitmapSource, IWICBitmapSource, IThumbnailBitmapSourcePrivate> {
public:
    static std::span<const InterfaceRow> InterfaceTable();

    // IThumbnailBitmapSourcePrivate
    STDMETHODIMP Initialize(ThumbnailRecord* record) override;

    // IWICBitmapSource
    STDMETHODIMP GetSize(UINT* width, UINT* height) override;
    STDMETHODIMP GetPixelFormat(WICPixelFormatGUID* format) override;
    STDMETHODIMP GetResolution(double* x, double* y) override;
    STDMETHODIMP CopyPalette(IWICPalette* palette) override;
    STDMETHODIMP CopyPixels(const WICRect* area, UINT stride, UINT bufferSize, BYTE* buffer) override;

private:
    bool m_initialized = false;
    ThumbnailRecord m_record;
    INT m_originX = -1;  // where the picture starts in its buffer; -1: at the buffer's start
    INT m_originY = -1;
};

// Reads the document's thumbnail and decodes it. The lock is held while the document is read and the stream
// put back where it was; a null stream has no thumbnail. The factory may be null: only thumbnails that need
// neither conversion nor scaling can be had then. On any failure `source` is null.
HRESULT CreateThumbnailSource(IWICComponentFactory* factory, IStream* stream, CriticalSection& lock,
                              ComPtr<IWICBitmapSource>& source);

}  // namespace tessary
