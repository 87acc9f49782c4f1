// Pictures in files and in memory, opened and written through the imaging component.
#pragma once

#include <windows.h>

#include <wincodec.h>

#include <span>
#include <string>

#include "frontend/com_support.h"

namespace tessary::tools {

// A failure in words, with its number.
std::wstring Explain(HRESULT result);
std::wstring GuidText(REFGUID guid);

HRESULT StartImaging(ComPtr<IWICImagingFactory>& factory);

struct Picture {
    ComPtr<IWICBitmapDecoder> decoder;
    ComPtr<IWICBitmapFrameDecode> frame;
};
HRESULT OpenPicture(IWICImagingFactory* factory, const std::wstring& path, Picture& picture);
// The bytes must outlive the picture.
HRESULT OpenPicture(IWICImagingFactory* factory, std::span<BYTE> bytes, Picture& picture);

// The name and the class of the decoder that has opened a picture; empty and zero when they cannot be had.
std::wstring DecoderName(IWICBitmapDecoder* decoder);
CLSID DecoderClass(IWICBitmapDecoder* decoder);
// The name of a pixel format or the like, with its identifier.
std::wstring ComponentName(IWICImagingFactory* factory, REFGUID component);

// The frame's own thumbnail, else the file's.
HRESULT GetThumbnail(const Picture& picture, ComPtr<IWICBitmapSource>& thumbnail);

// Leaves no half-written file behind.
HRESULT WritePng(IWICImagingFactory* factory, IWICBitmapSource* source, const std::wstring& path);

}  // namespace tessary::tools
