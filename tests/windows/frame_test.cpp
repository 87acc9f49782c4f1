#include <process.h>

#include <algorithm>
#include <string>

#include "tests/support/com_host.h"

namespace tessary::test {
namespace {

using Frame = IWICBitmapFrameDecode;

ComPtr<IWICMetadataBlockReader> BlocksOf(Frame* frame) {
    return ComPtr<Frame>(frame).As<IWICMetadataBlockReader>(IID_IWICMetadataBlockReader);
}

TEST(Frame, AnswersWithAndWithoutADocument) {
    MemoryStream stream(RichDocument().Build());
    const auto context = NewColorContext();
    IWICColorContext* contexts[17];
    std::fill_n(contexts, 17, context.get());
    IWICColorContext* half[] = {context.get(), nullptr};
    for (const bool open : {false, true}) {
        const auto f = FrameOf((open ? OpenDecoder(stream) : NewDecoder()).get());
        const auto blocks = BlocksOf(f.get());
        const auto transform = f.As<IWICBitmapSourceTransform>(IID_IWICBitmapSourceTransform);
        UINT width = 9, height = 9, number = 9;
        double x = 9, y = 9;
        GUID container;
        BYTE bytes[64];
        ComPtr<IWICBitmapSource> thumbnail;
        ComPtr<IWICMetadataReader> reader;
        const auto copy = [&](const WICRect& area) { return f->CopyPixels(&area, 16, sizeof(bytes), bytes); };
        ExpectAll(E_INVALIDARG, f->GetSize(nullptr, &height), f->GetSize(&width, nullptr),
                  f->GetPixelFormat(nullptr), f->GetResolution(&x, nullptr), f->CopyPalette(nullptr),
                  f->CopyPixels(nullptr, 16, 48, nullptr), copy({0, 1, 4, 3}),
                  f->GetMetadataQueryReader(nullptr), f->GetColorContexts(0, nullptr, nullptr),
                  f->GetColorContexts(0, contexts, &number), f->GetColorContexts(1, nullptr, &number),
                  f->GetColorContexts(2, half, &number), f->GetColorContexts(17, contexts, &number),
                  f->GetThumbnail(nullptr), blocks->GetContainerFormat(nullptr), blocks->GetCount(nullptr),
                  blocks->GetReaderByIndex(0, nullptr), blocks->GetEnumerator(nullptr),
                  transform->GetClosestSize(&width, nullptr), transform->GetClosestPixelFormat(nullptr),
                  transform->DoesSupportTransform(WICBitmapTransformRotate0, nullptr));
        ExpectAll(S_OK, f->GetSize(&width, &height), f->GetColorContexts(16, contexts, &number),
                  f->GetResolution(&x, &y), blocks->GetContainerFormat(&container));
        EXPECT_EQ(f->CopyPixels(nullptr, 16, 48, bytes), open ? S_OK : WINCODEC_ERR_BADIMAGE);
        EXPECT_EQ(copy({0, 0, 0, 0}), open ? S_OK : WINCODEC_ERR_BADIMAGE);
        EXPECT_EQ(f->GetThumbnail(thumbnail.Put()), open ? S_OK : WINCODEC_ERR_CODECNOTHUMBNAIL);
        EXPECT_EQ(blocks->GetReaderByIndex(1, reader.Put()), WINCODEC_ERR_UNSUPPORTEDOPERATION);
        EXPECT_EQ(width * 10 + height, open ? 43u : 0u);
        EXPECT_EQ(x, open ? 300.0 : 0.0);
        EXPECT_EQ(container.Data1, 0x9B2C4F61u);
    }
}

TEST(Frame, CopiesWhatFitsTheBufferAndServesAViewerInPlainC) {
    MemoryStream stream(RichDocument().Build());
    const auto frame = FrameOf(OpenDecoder(stream).get());
    const Bytes all = RichPixels();
    const WICRect area = {1, 1, 2, 2};
    Bytes got(40, 0xEE), want(40, 0xEE);
    EXPECT_EQ(frame->CopyPixels(&area, 20, 13, got.data()), S_OK);
    std::copy_n(&all[20], 8, &want[0]);   // pixel (1, 1) and its neighbour
    std::copy_n(&all[36], 5, &want[20]);  // of the second row only what the budget leaves
    EXPECT_EQ(got, want);
    const auto factory = Create<IWICImagingFactory>(CLSID_WICImagingFactory, IID_IWICImagingFactory);
    EXPECT_EQ(ViewInC(factory.get(), frame.get(), all.data()), 0);
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
    const auto layered = RichDocument().HasRealMergedData(false);
    stream.Replace(DocumentBuilder(layered).Layer(LayerBuilder({}).Filler(1)).Build());
    EXPECT_EQ(frame->CopyPixels(nullptr, 16, 48, buffer.data()), WINCODEC_ERR_BADIMAGE) << "layers are read";
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
    const auto context = NewColorContext();
    IWICColorContext* contexts[] = {context.get()};
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(frame->GetColorContexts(1, contexts, &actual), S_OK);
        Bytes bytes(kProfile.size());
        EXPECT_EQ(context->GetProfileBytes(static_cast<UINT>(bytes.size()), bytes.data(), &actual), S_OK);
        EXPECT_EQ(bytes, kProfile);
    }

    GetTempPathW(MAX_PATH, folder);
    const std::wstring copy = std::wstring(folder) + L"EHShell.exe";
    ASSERT_TRUE(CopyFileW(own, copy.c_str(), FALSE));
    EXPECT_EQ(
        _wspawnl(_P_WAIT, copy.c_str(), L"EHShell.exe", L"--gtest_filter=*NotToTheMediaCentre", nullptr), 0);
    DeleteFileW(copy.c_str());
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
    ComPtr<IWICMetadataQueryReader> query;
    EXPECT_EQ(frame->GetMetadataQueryReader(query.Put()), S_OK);
    PROPVARIANT value;
    PropVariantInit(&value);
    EXPECT_EQ(query->GetMetadataByName(L"/ifd/{ushort=274}", &value), S_OK);
    EXPECT_EQ(value.uiVal, 6);
    EXPECT_EQ(query->GetMetadataByName(L"/ifd/{ushort=700}", &value), S_OK);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(value.caub.pElems), value.caub.cElems), "<xmp/>");
    PropVariantClear(&value);
    EXPECT_NE(query->GetMetadataByName(L"/ifd/{ushort=305}", &value), S_OK);

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
    ExpectAll(E_UNEXPECTED, blocks->GetReaderByIndex(0, reader.Put()),
              blocks->GetEnumerator(enumerator.Put()));
    EXPECT_EQ(IfdFactory::made, 0);
}

}  // namespace
}  // namespace tessary::test
