// Loads the DLL under test and uses it as a client does.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "frontend/codec.h"
#include "frontend/com_support.h"
#include "tests/support/document_builder.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {

HMODULE LoadDll();  // once, for the life of the process

template <class Function>
Function* Export(HMODULE module, const char* name) {
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

inline auto* GetClassObject(HMODULE module) {
    return Export<HRESULT WINAPI(REFCLSID, REFIID, void**)>(module, "DllGetClassObject");
}

// Expects the same of several calls, which are made in any order.
template <class... Results>
void ExpectAll(HRESULT want, Results... results) {
    EXPECT_THAT((std::vector<HRESULT>{results...}), ::testing::Each(want));
}

// An object of the system's.
template <class T>
ComPtr<T> Create(REFCLSID classId, REFIID id) {
    ComPtr<T> object;
    CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER, id, object.PutVoid());
    return object;
}
ComPtr<IWICColorContext> NewColorContext();

ComPtr<IClassFactory> DecoderFactory();
bool CanUnload();

ComPtr<IWICBitmapDecoder> NewDecoder();
ComPtr<IWICBitmapDecoder> OpenDecoder(IStream& stream);  // initialised; the test fails if that cannot be
ComPtr<IWICBitmapFrameDecode> FrameOf(IWICBitmapDecoder* decoder);
Bytes PixelsOf(IWICBitmapFrameDecode* frame);  // top row first, empty on failure

// A JPEG file with one colour in its left and one in its right half, given as bytes of a pixel.
struct JpegColors {
    GUID format;
    Bytes left, right;
};
Bytes EncodeJpeg(UINT width, UINT height, const JpegColors& colors);

// 4 x 3 RGB pixels with profile, thumbnail, EXIF and XMP. Pixel i is red i, green 16 + i, blue 32 + i, alpha
// 48 + i.
DocumentBuilder RichDocument();
Bytes RichPixels();                      // of RichDocument, as a frame gives them
inline const Bytes kProfile(200, 0x5A);  // of RichDocument

// A component factory that makes the reader of image file directories, which Wine's own factory does not.
// It is the system's one with that method replaced; one at a time.
class IfdFactory {
public:
    IfdFactory();
    ~IfdFactory();
    IWICComponentFactory* get() const { return m_factory.get(); }

    static inline std::atomic<int> made{0};
    static inline std::atomic<DWORD> options{0};

private:
    ComPtr<IWICComponentFactory> m_factory;
    void** m_table = nullptr;
    void* m_patched[35] = {};
};

// Puts behind a frame of RichDocument what the framework offers to viewers, from plain C. Gives 0, or the
// line of the viewer that saw something wrong.
extern "C" int ViewInC(IWICImagingFactory* factory, IWICBitmapFrameDecode* frame, const BYTE* pixels);

// The frame told all again, with the factory in place of its own.
void Reinitialize(IWICBitmapFrameDecode* frame, IStream* stream, IWICComponentFactory* factory);

}  // namespace tessary::test
