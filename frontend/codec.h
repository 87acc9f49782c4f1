// What the codec is called and the interfaces that only its own classes know.
#pragma once

#include <windows.h>

#include <objbase.h>
#include <wincodec.h>
#include <wincodecsdk.h>

// A public interface of the framework that some compilers' headers leave out.
#if !defined(__IWICBitmapSourceTransform_INTERFACE_DEFINED__)
#define __IWICBitmapSourceTransform_INTERFACE_DEFINED__
inline constexpr IID IID_IWICBitmapSourceTransform = {
    0x3B16811B, 0x6A43, 0x4EC9, {0xB7, 0x13, 0x3D, 0x5A, 0x0C, 0x13, 0xB9, 0x40}};
struct IWICBitmapSourceTransform : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE CopyPixels(const WICRect* area, UINT width, UINT height,
                                                 WICPixelFormatGUID* format,
                                                 WICBitmapTransformOptions transform, UINT stride,
                                                 UINT bufferSize, BYTE* buffer) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetClosestSize(UINT* width, UINT* height) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetClosestPixelFormat(WICPixelFormatGUID* format) = 0;
    virtual HRESULT STDMETHODCALLTYPE DoesSupportTransform(WICBitmapTransformOptions transform,
                                                           BOOL* supported) = 0;
};
#endif

namespace tessary {

inline constexpr CLSID CLSID_Tessary = {
    0x3D6A1E52, 0x7C41, 0x4B9F, {0xA0, 0xD3, 0x5E, 0x8B, 0x24, 0xC9, 0x1F, 0x07}};

// Parsed where it is handed out, as the registry holds it in this form too.
inline constexpr wchar_t kContainerFormatText[] = L"{9B2C4F61-0E3A-4D57-8C1B-6F4A2E9D3B85}";

inline constexpr UINT kReadAheadBytes = 0x40000;

inline constexpr IID IID_ITessary = {
    0xA422EB9B, 0xAE62, 0x4C4A, {0x82, 0xCB, 0x52, 0x27, 0x68, 0xDA, 0x9E, 0x24}};
inline constexpr IID IID_ITessaryBitmapFrameDecodePrivate = {
    0x80F1B9B9, 0xE967, 0x4DE1, {0x83, 0xBC, 0x3E, 0x08, 0x5C, 0xB2, 0x12, 0x37}};
inline constexpr IID IID_IBufferedStreamInit = {
    0x23FB32E4, 0xD1A8, 0x4543, {0x99, 0x23, 0xF7, 0x05, 0x38, 0x2B, 0xCE, 0x47}};
inline constexpr IID IID_ISharedStream = {
    0xD15B596C, 0xC597, 0x4F2A, {0xAA, 0x73, 0x6F, 0xAB, 0x60, 0xB5, 0x35, 0xBE}};
inline constexpr IID IID_IEnumUnknownPrivate = {
    0xC508764C, 0x9A2B, 0x4661, {0xB1, 0x2E, 0x87, 0x07, 0x6D, 0xA6, 0x10, 0x80}};
inline constexpr IID IID_IThumbnailBitmapSourcePrivate = {
    0x8864BEA7, 0x393E, 0x4D25, {0x8E, 0xCD, 0x4C, 0xF5, 0xE8, 0xA5, 0x5F, 0x4E}};

// Answers the object's own pointer; no reference is added.
struct ITessary : public IUnknown {
    virtual ITessary* STDMETHODCALLTYPE GetTessary() = 0;
};

// Gives a fresh frame all it knows. The frame takes references of its own; any pointer may be null.
struct ITessaryBitmapFrameDecodePrivate : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Initialize(IStream* stream, IWICImagingFactory* imagingFactory,
                                                 IWICComponentFactory* componentFactory,
                                                 REFGUID containerFormat, UINT width, UINT height, UINT dpiX,
                                                 UINT dpiY, BYTE hasColorProfile, BYTE hasThumbnail,
                                                 IWICBitmapSource* thumbnailSource, BYTE hasExif,
                                                 BYTE hasXmp) = 0;
};

struct IBufferedStreamInit : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Initialize(IStream* source, UINT bufferSize) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnableBuffering(BOOL enable) = 0;
};

// A stream that decoder and frames use at the same time has a re-entrant lock of its own, held for a whole
// use of it: position saved, document opened, position restored. It is always the last lock taken.
struct ISharedStream : public IUnknown {
    virtual void STDMETHODCALLTYPE BeginUse() = 0;
    virtual void STDMETHODCALLTYPE EndUse() = 0;
};

struct IEnumUnknownPrivate : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Initialize(IUnknown* item) = 0;
};

struct ThumbnailRecord;

// Takes the pixels out of `record`.
struct IThumbnailBitmapSourcePrivate : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Initialize(ThumbnailRecord* record) = 0;
};

}  // namespace tessary
