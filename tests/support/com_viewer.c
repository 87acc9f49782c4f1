// Uses a decoder as a viewer written in plain C does: with the public headers and the method tables only.
#define COBJMACROS
#include <windows.h>

#include <objbase.h>
#include <stdlib.h>
#include <string.h>
#include <wincodec.h>

// A public interface that the headers leave out, written down a second time: slots that differ show here.
typedef struct SourceTransform {
    const struct {
        IUnknownVtbl unknown;
        HRESULT(WINAPI* CopyPixels)(void*, const WICRect*, UINT, UINT, GUID*, int, UINT, UINT, BYTE*);
        HRESULT(WINAPI* GetClosestSize)(void*, UINT*, UINT*);
        HRESULT(WINAPI* GetClosestPixelFormat)(void*, GUID*);
        HRESULT(WINAPI* DoesSupportTransform)(void*, int, BOOL*);
    } * table;
} SourceTransform;
static const IID kTransform = {0x3B16811B, 0x6A43, 0x4EC9, {0xB7, 0x13, 0x3D, 0x5A, 0x0C, 0x13, 0xB9, 0x40}};

#define CHECK(condition) \
    if (!(condition)) return __LINE__
#define CALL(call) CHECK((call) == S_OK)

// Puts behind a frame of 4 x 3 pixels what the framework offers. 0, or the line that saw something wrong.
int ViewInC(IWICImagingFactory* factory, IWICBitmapFrameDecode* frame, const BYTE* wanted) {
    IWICBitmapSource* source = (IWICBitmapSource*)frame;
    IWICFormatConverter* converter;
    SourceTransform* transform;
    IWICMetadataQueryReader* query;
    UINT width = 1, height = 1, count = 9;
    BOOL same = 9, flipped = 9;
    GUID format;
    BYTE bytes[48];

    CALL(IWICImagingFactory_CreateFormatConverter(factory, &converter));
    CALL(IWICFormatConverter_Initialize(converter, source, &GUID_WICPixelFormat32bppPBGRA, 0, NULL, 0, 0));
    CALL(IWICFormatConverter_CopyPixels(converter, NULL, 16, 48, bytes));
    for (int i = 0; i < 48; ++i)
        CHECK(abs((i % 4 == 3 ? wanted[i] : wanted[i] * wanted[i | 3] / 255) - bytes[i]) <= 1);
    IWICFormatConverter_Release(converter);

    CALL(IWICBitmapFrameDecode_QueryInterface(frame, &kTransform, (void**)&transform));
    CALL(transform->table->GetClosestSize(transform, &width, &height));
    CALL(transform->table->GetClosestPixelFormat(transform, &format));
    CALL(transform->table->DoesSupportTransform(transform, WICBitmapTransformRotate0, &same));
    CALL(transform->table->DoesSupportTransform(transform, WICBitmapTransformFlipVertical, &flipped));
    CHECK(width == 4 && height == 3 && IsEqualGUID(&format, &GUID_WICPixelFormat32bppBGRA) && same &&
          !flipped);
    CALL(transform->table->CopyPixels(transform, NULL, 1, 1, NULL, WICBitmapTransformFlipVertical, 16, 48,
                                      bytes));
    CHECK(!memcmp(bytes, wanted, 48));
    transform->table->unknown.Release((IUnknown*)transform);

    CALL(IWICBitmapFrameDecode_GetColorContexts(frame, 0, NULL, &count));
    CHECK(count == 1);
    CALL(IWICBitmapFrameDecode_GetMetadataQueryReader(frame, &query));
    CALL(IWICMetadataQueryReader_GetContainerFormat(query, &format));
    CHECK(format.Data1 == 0x9B2C4F61);
    IWICMetadataQueryReader_Release(query);
    return 0;
}
