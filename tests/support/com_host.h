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
inline ComPtr<IWICColorContext> NewColorContext() {
    ComPtr<IWICColorContext> context;
    const auto factory = Create<IWICImagingFactory>(CLSID_WICImagingFactory, IID_IWICImagingFactory);
    return factory->CreateColorContext(context.Put()), context;
}

inline ComPtr<IClassFactory> DecoderFactory() {
    ComPtr<IClassFactory> factory;
    EXPECT_EQ(GetClassObject(LoadDll())(CLSID_Tessary, IID_IClassFactory, factory.PutVoid()), S_OK);
    return factory;
}

inline bool CanUnload() { return Export<HRESULT WINAPI()>(LoadDll(), "DllCanUnloadNow")() == S_OK; }

inline ComPtr<IWICBitmapDecoder> NewDecoder() {
    ComPtr<IWICBitmapDecoder> decoder;
    EXPECT_EQ(DecoderFactory()->CreateInstance(nullptr, IID_IWICBitmapDecoder, decoder.PutVoid()), S_OK);
    return decoder;
}

inline ComPtr<IWICBitmapDecoder> OpenDecoder(IStream& stream) {
    auto decoder = NewDecoder();
    EXPECT_EQ(decoder->Initialize(&stream, WICDecodeMetadataCacheOnDemand), S_OK);
    return decoder;
}

inline ComPtr<IWICBitmapFrameDecode> FrameOf(IWICBitmapDecoder* decoder) {
    ComPtr<IWICBitmapFrameDecode> frame;
    EXPECT_EQ(decoder->GetFrame(0, frame.Put()), S_OK);
    return frame;
}

// Top row first, empty on failure.
inline Bytes PixelsOf(IWICBitmapFrameDecode* frame) {
    UINT width = 0, height = 0;
    frame->GetSize(&width, &height);
    Bytes pixels(size_t{width} * height * 4);
    const UINT size = static_cast<UINT>(pixels.size());
    return SUCCEEDED(frame->CopyPixels(nullptr, width * 4, size, pixels.data())) ? pixels : Bytes();
}

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
