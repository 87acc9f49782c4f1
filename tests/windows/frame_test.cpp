#include <gtest/gtest.h>
#include <propidl.h>

#include <functional>
#include <string>

#include "tests/support/com_host.h"

namespace tessary::test {
namespace {

using Frame = IWICBitmapFrameDecode;

ComPtr<IWICMetadataBlockReader> BlocksOf(Frame* frame) {
    return ComPtr<Frame>(frame).As<IWICMetadataBlockReader>(IID_IWICMetadataBlockReader);
}

ComPtr<IWICColorContext> NewContext() {
    ComPtr<IWICImagingFactory> factory;
    ComPtr<IWICColorContext> context;
    CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                     factory.PutVoid());
    factory->CreateColorContext(context.Put());
    return context;
}

TEST(Frame, ChecksArgumentsWithAndWithoutADocument) {
    MemoryStream stream(RichDocument().Build());
    const auto fresh = FrameOf(NewDecoder().get()), open = FrameOf(OpenDecoder(stream).get());
    UINT number;
    GUID guid;
    double dpi;
    BYTE bytes[64];
    BOOL yes;
    const auto context = NewContext();
    IWICColorContext* contexts[17] = {};
    ComPtr<IWICMetadataReader> reader;
    ComPtr<IEnumUnknown> enumerator;
    ComPtr<IWICBitmapSource> thumbnail;
    const auto transform = [](Frame* f) {
        return ComPtr<Frame>(f).As<IWICBitmapSourceTransform>(IID_IWICBitmapSourceTransform);
    };
    const auto copy = [&](INT x, INT y, INT width, INT height) {
        return [&bytes, area = WICRect{x, y, width, height}](Frame* f) {
            return f->CopyPixels(&area, 16, sizeof(bytes), bytes);
        };
    };
    const struct {
        const char* what;
        std::function<HRESULT(Frame*)> call;
        HRESULT without;
        HRESULT with;
    } cases[] = {
        {"null width", [&](Frame* f) { return f->GetSize(nullptr, &number); }, E_INVALIDARG, E_INVALIDARG},
        {"null height", [&](Frame* f) { return f->GetSize(&number, nullptr); }, E_INVALIDARG, E_INVALIDARG},
        {"null format", [](Frame* f) { return f->GetPixelFormat(nullptr); }, E_INVALIDARG, E_INVALIDARG},
        {"null dpi", [&](Frame* f) { return f->GetResolution(&dpi, nullptr); }, E_INVALIDARG, E_INVALIDARG},
        {"null palette", [](Frame* f) { return f->CopyPalette(nullptr); }, E_INVALIDARG, E_INVALIDARG},
        {"null buffer", [](Frame* f) { return f->CopyPixels(nullptr, 16, 48, nullptr); }, E_INVALIDARG,
         E_INVALIDARG},
        {"all pixels", [&](Frame* f) { return f->CopyPixels(nullptr, 16, 48, bytes); }, WINCODEC_ERR_BADIMAGE,
         S_OK},
        {"left of the image", copy(-1, 0, 2, 2), E_INVALIDARG, E_INVALIDARG},
        {"too wide", copy(1, 0, 4, 2), E_INVALIDARG, E_INVALIDARG},
        {"too high", copy(0, 1, 4, 3), E_INVALIDARG, E_INVALIDARG},
        {"sums that wrap", copy(1, 0, 0x7FFFFFFF, 1), E_INVALIDARG, E_INVALIDARG},
        {"negative height", copy(0, 1, 1, -1), E_INVALIDARG, E_INVALIDARG},
        {"nothing, but inside", copy(0, 0, 0, 0), WINCODEC_ERR_BADIMAGE, S_OK},
        {"null query reader", [](Frame* f) { return f->GetMetadataQueryReader(nullptr); }, E_INVALIDARG,
         E_INVALIDARG},
        {"no profile count", [](Frame* f) { return f->GetColorContexts(0, nullptr, nullptr); }, E_INVALIDARG,
         E_INVALIDARG},
        {"profiles for none", [&](Frame* f) { return f->GetColorContexts(0, contexts, &number); },
         E_INVALIDARG, E_INVALIDARG},
        {"no array", [&](Frame* f) { return f->GetColorContexts(1, nullptr, &number); }, E_INVALIDARG,
         E_INVALIDARG},
        {"a null among two",
         [&](Frame* f) {
             contexts[0] = context.get();
             return f->GetColorContexts(2, contexts, &number);
         },
         E_INVALIDARG, E_INVALIDARG},
        {"17 contexts",
         [&](Frame* f) {
             std::fill_n(contexts, 17, context.get());
             return f->GetColorContexts(17, contexts, &number);
         },
         E_INVALIDARG, E_INVALIDARG},
        {"16 contexts", [&](Frame* f) { return f->GetColorContexts(16, contexts, &number); }, S_OK, S_OK},
        {"null thumbnail", [](Frame* f) { return f->GetThumbnail(nullptr); }, E_INVALIDARG, E_INVALIDARG},
        {"thumbnail", [&](Frame* f) { return f->GetThumbnail(thumbnail.Put()); },
         WINCODEC_ERR_CODECNOTHUMBNAIL, S_OK},
        {"null block format", [](Frame* f) { return BlocksOf(f)->GetContainerFormat(nullptr); }, E_INVALIDARG,
         E_INVALIDARG},
        {"null block count", [](Frame* f) { return BlocksOf(f)->GetCount(nullptr); }, E_INVALIDARG,
         E_INVALIDARG},
        {"null reader", [](Frame* f) { return BlocksOf(f)->GetReaderByIndex(0, nullptr); }, E_INVALIDARG,
         E_INVALIDARG},
        {"second reader", [&](Frame* f) { return BlocksOf(f)->GetReaderByIndex(1, reader.Put()); },
         WINCODEC_ERR_UNSUPPORTEDOPERATION, WINCODEC_ERR_UNSUPPORTEDOPERATION},
        {"null enumerator", [](Frame* f) { return BlocksOf(f)->GetEnumerator(nullptr); }, E_INVALIDARG,
         E_INVALIDARG},
        {"null closest size", [&](Frame* f) { return transform(f)->GetClosestSize(&number, nullptr); },
         E_INVALIDARG, E_INVALIDARG},
        {"null closest format", [&](Frame* f) { return transform(f)->GetClosestPixelFormat(nullptr); },
         E_INVALIDARG, E_INVALIDARG},
        {"null answer", [&](Frame* f) { return transform(f)->DoesSupportTransform({}, nullptr); },
         E_INVALIDARG, E_INVALIDARG},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(test.call(fresh.get()), test.without) << test.what << " without";
        EXPECT_EQ(test.call(open.get()), test.with) << test.what << " with";
    }

    EXPECT_EQ(open->GetPixelFormat(&guid), S_OK);
    EXPECT_TRUE(IsEqualGUID(guid, GUID_WICPixelFormat32bppBGRA));
    EXPECT_EQ(open->GetResolution(&dpi, &dpi), S_OK);
    EXPECT_EQ(dpi, 300.0);
    UINT width = 1, height = 1;
    EXPECT_EQ(transform(open.get())->GetClosestSize(&width, &height), S_OK);
    EXPECT_EQ(width * 10 + height, 43u);
    for (const auto option : {WICBitmapTransformRotate0, WICBitmapTransformFlipVertical}) {
        EXPECT_EQ(transform(open.get())->DoesSupportTransform(option, &yes), S_OK);
        EXPECT_EQ(yes, option == WICBitmapTransformRotate0);
    }
}

TEST(Frame, CopiesWhatFitsTheBuffer) {
    MemoryStream stream(RichDocument().Build());
    const auto frame = FrameOf(OpenDecoder(stream).get());
    const Bytes all = RichPixels();
    const WICRect area = {1, 1, 2, 2};
    Bytes got(40, 0xEE);
    EXPECT_EQ(frame->CopyPixels(&area, 20, 13, got.data()), S_OK);
    Bytes want(40, 0xEE);
    std::copy_n(&all[20], 8, &want[0]);   // pixel (1, 1) and its neighbour
    std::copy_n(&all[36], 5, &want[20]);  // of the second row only what the budget leaves
    EXPECT_EQ(got, want);
    const auto transform = frame.As<IWICBitmapSourceTransform>(IID_IWICBitmapSourceTransform);
    Bytes whole(48);
    EXPECT_EQ(
        transform->CopyPixels(nullptr, 1, 1, nullptr, WICBitmapTransformFlipVertical, 16, 48, whole.data()),
        S_OK);
    EXPECT_EQ(whole, all);
}

TEST(Frame, ReadsLayersWhereTheFileDoesNotVouchForItsPicture) {
    const auto layered = RichDocument().HasRealMergedData(false);
    const Rect whole{0, 0, 4, 3};
    MemoryStream sound(DocumentBuilder(layered).Layer(LayerBuilder(whole).Solid(0xFF102030)).Build());
    MemoryStream damaged(DocumentBuilder(layered).Layer(LayerBuilder(whole).Filler(1)).Build());
    ByteWriter want;
    for (int i = 0; i < 12; ++i) want.U8(0x30).U8(0x20).U8(0x10).U8(0xFF);
    EXPECT_EQ(PixelsOf(FrameOf(OpenDecoder(sound).get()).get()), want.bytes());
    Bytes buffer(48);
    EXPECT_EQ(FrameOf(OpenDecoder(damaged).get())->CopyPixels(nullptr, 16, 48, buffer.data()),
              WINCODEC_ERR_BADIMAGE);
}

TEST(Frame, TriesAFailedDecodeAgain) {
    MemoryStream stream(RichDocument().Build());
    const auto decoder = NewDecoder();
    DWORD capability;
    EXPECT_EQ(decoder->QueryCapability(&stream, &capability), S_OK);  // no buffer in between
    const auto frame = FrameOf(decoder.get());
    Bytes buffer(48);
    stream.failCall = stream.calls + 1;
    stream.failLater = true;
    EXPECT_EQ(frame->CopyPixels(nullptr, 16, 48, buffer.data()), WINCODEC_ERR_BADIMAGE);
    stream.failCall = 0;
    stream.Replace(DocumentBuilder(kColorRgb, 8, 3, 3, 4).Build());
    EXPECT_EQ(frame->CopyPixels(nullptr, 16, 48, buffer.data()), WINCODEC_ERR_BADIMAGE)
        << "pixels of another size than the frame's";
    stream.Replace(RichDocument().Build());
    EXPECT_EQ(PixelsOf(frame.get()), RichPixels());
    stream.failLater = true;
    stream.failCall = 1;
    EXPECT_EQ(PixelsOf(frame.get()), RichPixels()) << "what is decoded stays";
}

TEST(Frame, GivesTheProfileButNotToTheMediaCentre) {
    wchar_t own[MAX_PATH], folder[MAX_PATH];
    GetModuleFileNameW(nullptr, own, MAX_PATH);
    const bool mediaCentre = std::wstring(own).ends_with(L"EHShell.exe");
    MemoryStream stream(RichDocument().Build());
    const auto frame = FrameOf(OpenDecoder(stream).get());
    UINT actual = 9;
    if (mediaCentre) {
        EXPECT_EQ(frame->GetColorContexts(17, nullptr, &actual), S_FALSE);
        EXPECT_EQ(actual, 0u);
        return;
    }
    EXPECT_EQ(frame->GetColorContexts(0, nullptr, &actual), S_OK);
    EXPECT_EQ(actual, 1u);
    const auto first = NewContext(), second = NewContext();
    IWICColorContext* contexts[] = {first.get(), second.get()};
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(frame->GetColorContexts(2, contexts, &actual), S_OK);
        EXPECT_EQ(actual, 1u);
        Bytes bytes(kProfile.size());
        UINT size = 0;
        EXPECT_EQ(first->GetProfileBytes(static_cast<UINT>(bytes.size()), bytes.data(), &size), S_OK);
        EXPECT_EQ(bytes, kProfile);
    }

    GetTempPathW(MAX_PATH, folder);
    const std::wstring copy = std::wstring(folder) + L"EHShell.exe";
    ASSERT_TRUE(CopyFileW(own, copy.c_str(), FALSE));
    std::wstring command = L"\"" + copy + L"\" --gtest_filter=*NotToTheMediaCentre";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process;
    ASSERT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                               &startup, &process));
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD status = 99;
    GetExitCodeProcess(process.hProcess, &status);
    EXPECT_EQ(status, 0u);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    DeleteFileW(copy.c_str());
}

// The value of a tag in the reader's directory.
ULONGLONG TagValue(IWICMetadataReader* reader, USHORT tag, PROPVARIANT& value) {
    PROPVARIANT id;
    PropVariantInit(&id);
    PropVariantInit(&value);
    id.vt = VT_UI2;
    id.uiVal = tag;
    return SUCCEEDED(reader->GetValue(nullptr, &id, &value)) ? value.vt : VT_ILLEGAL;
}

TEST(Frame, ShowsExifWithTheXmpPacketInIt) {
    MemoryStream stream(RichDocument().Build());
    IfdFactory factory;
    const auto frame = FrameOf(OpenDecoder(stream).get());
    const uint64_t position = stream.position;
    Reinitialize(frame.get(), &stream, factory.get());
    const auto blocks = BlocksOf(frame.get());
    UINT count = 0;
    EXPECT_EQ(blocks->GetCount(&count), S_OK);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(IfdFactory::made, 0) << "made before it is asked for";

    ComPtr<IWICMetadataReader> reader;
    ASSERT_EQ(blocks->GetReaderByIndex(0, reader.Put()), S_OK);
    EXPECT_EQ(stream.position, position);
    EXPECT_EQ(IfdFactory::options, 5u) << "big-endian, no cache stream";
    PROPVARIANT value;
    EXPECT_EQ(TagValue(reader.get(), 274, value), ULONGLONG{VT_UI2});
    EXPECT_EQ(value.uiVal, 6);
    EXPECT_EQ(TagValue(reader.get(), 700, value), ULONGLONG{VT_UI1 | VT_VECTOR});
    EXPECT_EQ(std::string(reinterpret_cast<char*>(value.caub.pElems), value.caub.cElems), "<xmp/>");
    PropVariantClear(&value);
    EXPECT_EQ(TagValue(reader.get(), 305, value), ULONGLONG{VT_ILLEGAL});

    ComPtr<IWICMetadataQueryReader> query;
    EXPECT_EQ(frame->GetMetadataQueryReader(query.Put()), S_OK);
    PropVariantInit(&value);
    EXPECT_EQ(query->GetMetadataByName(L"/ifd/{ushort=274}", &value), S_OK);
    EXPECT_EQ(value.uiVal, 6);

    ComPtr<IEnumUnknown> enumerator, copy;
    ASSERT_EQ(blocks->GetEnumerator(enumerator.Put()), S_OK);
    IUnknown* items[2] = {};
    ULONG fetched = 9;
    EXPECT_EQ(enumerator->Next(2, items, nullptr), E_INVALIDARG);
    EXPECT_EQ(enumerator->Clone(copy.Put()), S_OK);
    EXPECT_EQ(enumerator->Next(2, items, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 1u);
    EXPECT_EQ(items[0], reader.As<IUnknown>(IID_IUnknown).get());
    ComPtr<IUnknown>::Attach(items[0]).Reset();
    EXPECT_EQ(enumerator->Skip(1), S_FALSE);
    EXPECT_EQ(enumerator->Reset(), S_OK);
    EXPECT_EQ(enumerator->Skip(1), S_OK);
    EXPECT_EQ(copy->Next(1, items, nullptr), S_OK) << "a copy has its own place";
    ComPtr<IUnknown>::Attach(items[0]).Reset();
    EXPECT_EQ(IfdFactory::made, 1);
}

TEST(Frame, TriesTheMetadataOnlyOnce) {
    MemoryStream stream(RichDocument().Build());
    IfdFactory factory;
    const auto frame = FrameOf(OpenDecoder(stream).get());
    const auto blocks = BlocksOf(frame.get());
    ComPtr<IWICMetadataReader> reader;
    ComPtr<IEnumUnknown> enumerator;
    Reinitialize(frame.get(), &stream, nullptr);
    EXPECT_EQ(blocks->GetEnumerator(enumerator.Put()), E_UNEXPECTED) << "no factory";
    Reinitialize(frame.get(), &stream, factory.get());
    stream.failCall = stream.calls + 3;
    stream.failLater = true;
    EXPECT_EQ(blocks->GetReaderByIndex(0, reader.Put()), WINCODEC_ERR_UNSUPPORTEDOPERATION);
    stream.failCall = 0;
    EXPECT_EQ(blocks->GetReaderByIndex(0, reader.Put()), E_UNEXPECTED);
    EXPECT_EQ(blocks->GetEnumerator(enumerator.Put()), E_UNEXPECTED) << "an item that is null";
    EXPECT_FALSE(enumerator);
    EXPECT_EQ(IfdFactory::made, 0);
}

}  // namespace
}  // namespace tessary::test
