#include "tools/windows/picture_file.h"

#include <objbase.h>

#include "tools/windows/console.h"

namespace tessary::tools {
namespace {

// The name of a pixel format, decoder or the like; empty when it has none.
std::wstring FriendlyName(IWICComponentInfo* info) {
    UINT length = 0;
    if (!info || FAILED(info->GetFriendlyName(0, nullptr, &length)) || length == 0) return {};
    std::wstring name(length, L'\0');
    if (FAILED(info->GetFriendlyName(length, name.data(), &length))) return {};
    return name.c_str();
}

HRESULT TakeFrame(Picture& picture) {
    const HRESULT result = picture.decoder->GetFrame(0, picture.frame.Put());
    return SUCCEEDED(result) && !picture.frame ? E_FAIL : result;
}

// The source as the encoder takes it: converted only when the pixel format is one that it refuses.
HRESULT WriteInFormat(IWICImagingFactory* factory, IWICBitmapSource* source, IWICBitmapFrameEncode* target) {
    GUID sourceFormat = {};
    HRESULT result = source->GetPixelFormat(&sourceFormat);
    if (FAILED(result)) return result;
    GUID targetFormat = sourceFormat;
    result = target->SetPixelFormat(&targetFormat);
    if (FAILED(result)) return result;
    if (IsEqualGUID(sourceFormat, targetFormat)) return target->WriteSource(source, nullptr);
    ComPtr<IWICFormatConverter> converter;
    result = factory->CreateFormatConverter(converter.Put());
    if (FAILED(result)) return result;
    result = converter->Initialize(source, targetFormat, WICBitmapDitherTypeNone, nullptr, 0,
                                   WICBitmapPaletteTypeCustom);
    return FAILED(result) ? result : target->WriteSource(converter.get(), nullptr);
}

HRESULT EncodePng(IWICImagingFactory* factory, IWICBitmapSource* source, IWICStream* stream) {
    ComPtr<IWICBitmapEncoder> encoder;
    HRESULT result = factory->CreateEncoder(GUID_ContainerFormatPng, nullptr, encoder.Put());
    if (FAILED(result)) return result;
    result = encoder->Initialize(stream, WICBitmapEncoderNoCache);
    if (FAILED(result)) return result;
    ComPtr<IWICBitmapFrameEncode> frame;
    result = encoder->CreateNewFrame(frame.Put(), nullptr);
    if (FAILED(result)) return result;
    result = frame->Initialize(nullptr);
    if (FAILED(result)) return result;

    UINT width = 0, height = 0;
    result = source->GetSize(&width, &height);
    if (FAILED(result)) return result;
    result = frame->SetSize(width, height);
    if (FAILED(result)) return result;
    double dpiX = 0, dpiY = 0;
    if (SUCCEEDED(source->GetResolution(&dpiX, &dpiY)) && dpiX > 0 && dpiY > 0) {
        result = frame->SetResolution(dpiX, dpiY);
        if (FAILED(result)) return result;
    }
    result = WriteInFormat(factory, source, frame.get());
    if (FAILED(result)) return result;
    result = frame->Commit();
    return FAILED(result) ? result : encoder->Commit();
}

}  // namespace

std::wstring Explain(HRESULT result) {
    const struct {
        HRESULT result;
        const wchar_t* meaning;
    } meanings[] = {
        {WINCODEC_ERR_COMPONENTNOTFOUND, L"no decoder accepts this file"},
        {WINCODEC_ERR_UNKNOWNIMAGEFORMAT, L"no decoder knows this format"},
        {WINCODEC_ERR_BADIMAGE, L"the image is damaged"},
        {E_FAIL, L"the image is damaged or of a kind that is not read"},
        {WINCODEC_ERR_BADHEADER, L"the header is damaged"},
        {WINCODEC_ERR_CODECNOTHUMBNAIL, L"there is no thumbnail"},
        {WINCODEC_ERR_UNSUPPORTEDOPERATION, L"not supported"},
        {E_OUTOFMEMORY, L"out of memory"},
        {HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), L"no such file"},
        {HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), L"no such folder"},
        {HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), L"access denied"},
        {HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION), L"in use by another program"},
    };
    for (const auto& row : meanings) {
        if (row.result == result) return std::wstring(row.meaning) + L" (" + Hex(result) + L")";
    }
    return L"error " + Hex(result);
}

std::wstring GuidText(REFGUID guid) {
    wchar_t text[40] = {};
    StringFromGUID2(guid, text, 40);
    return text;
}

HRESULT StartImaging(ComPtr<IWICImagingFactory>& factory) {
    return CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                            factory.PutVoid());
}

HRESULT OpenPicture(IWICImagingFactory* factory, const std::wstring& path, Picture& picture) {
    const HRESULT result = factory->CreateDecoderFromFilename(
        path.c_str(), nullptr, GENERIC_READ, WICDecodeMetadataCacheOnDemand, picture.decoder.Put());
    return FAILED(result) ? result : TakeFrame(picture);
}

HRESULT OpenPicture(IWICImagingFactory* factory, std::span<BYTE> bytes, Picture& picture) {
    ComPtr<IWICStream> stream;
    HRESULT result = factory->CreateStream(stream.Put());
    if (FAILED(result)) return result;
    result = stream->InitializeFromMemory(bytes.data(), static_cast<DWORD>(bytes.size()));
    if (FAILED(result)) return result;
    result = factory->CreateDecoderFromStream(stream.get(), nullptr, WICDecodeMetadataCacheOnDemand,
                                              picture.decoder.Put());
    return FAILED(result) ? result : TakeFrame(picture);
}

std::wstring DecoderName(IWICBitmapDecoder* decoder) {
    ComPtr<IWICBitmapDecoderInfo> info;
    return FAILED(decoder->GetDecoderInfo(info.Put())) ? L"" : FriendlyName(info.get());
}

CLSID DecoderClass(IWICBitmapDecoder* decoder) {
    ComPtr<IWICBitmapDecoderInfo> info;
    CLSID id = {};
    if (SUCCEEDED(decoder->GetDecoderInfo(info.Put()))) info->GetCLSID(&id);
    return id;
}

std::wstring ComponentName(IWICImagingFactory* factory, REFGUID component) {
    ComPtr<IWICComponentInfo> info;
    if (FAILED(factory->CreateComponentInfo(component, info.Put()))) return GuidText(component);
    const std::wstring name = FriendlyName(info.get());
    return name.empty() ? GuidText(component) : name + L" " + GuidText(component);
}

HRESULT GetThumbnail(const Picture& picture, ComPtr<IWICBitmapSource>& thumbnail) {
    const HRESULT result = picture.frame->GetThumbnail(thumbnail.Put());
    if (SUCCEEDED(result) && thumbnail) return result;
    const HRESULT second = picture.decoder->GetThumbnail(thumbnail.Put());
    return SUCCEEDED(second) && !thumbnail ? WINCODEC_ERR_CODECNOTHUMBNAIL : second;
}

HRESULT WritePng(IWICImagingFactory* factory, IWICBitmapSource* source, const std::wstring& path) {
    HRESULT result = S_OK;
    bool created = false;
    {
        ComPtr<IWICStream> stream;
        result = factory->CreateStream(stream.Put());
        if (FAILED(result)) return result;
        result = stream->InitializeFromFilename(path.c_str(), GENERIC_WRITE);
        created = SUCCEEDED(result);
        if (created) result = EncodePng(factory, source, stream.get());
    }
    if (created && FAILED(result)) DeleteFileW(path.c_str());
    return result;
}

}  // namespace tessary::tools
