#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <numeric>
#include <random>
#include <tuple>

#include "frontend/document_pixels.h"
#include "frontend/exif_graft.h"
#include "frontend/header_probe.h"
#include "frontend/pixel_copy.h"
#include "frontend/read_ahead.h"
#include "frontend/thumbnail_image.h"
#include "tests/support/portable_codec.h"
#include "tools/document_builder.h"

namespace tessary::test {
namespace {

constexpr uint32_t kMergedColor = 0xFF000000, kLayerColor = 0xFF8090A0;

struct Decoded {
    explicit Decoded(const DocumentBuilder& document, PictureChoice choice = PictureChoice::kAsTheFileSays)
        : stream(document.Build()) {
        stream.position = 7;
        result = DecodeDocumentPixels(&stream, picture, choice);
        if (picture.pixels) color = picture.pixels[0];
        EXPECT_EQ(result == PsdReadResult::kOk, static_cast<bool>(picture.pixels));
    }
    MemoryStream stream;
    DocumentPixels picture;
    PsdReadResult result;
    uint32_t color = 0;  // of the first pixel; 0 without a picture
};

TEST(DocumentPixels, TakesThePictureThatTheFileVouchesFor) {
    const auto layerless = [](uint32_t width, uint32_t height) {
        return DocumentBuilder(kColorRgb, 8, 3, width, height).HasRealMergedData(false);
    };
    // A merged image of one colour above a layer of another.
    DocumentBuilder both(kColorRgb, 8, 3, 2, 2);
    both.Layer(LayerBuilder({0, 0, 2, 2}).Solid(kLayerColor));
    const auto with = [&](const Bytes& word) { return DocumentBuilder(both).Resource(1057, word); };
    const DocumentBuilder sound = with({0, 0, 0, 1, 1}), unsound = with({0, 0, 0, 1, 0});
    const std::tuple<const char*, DocumentBuilder, uint32_t> cases[] = {
        {"no word", both, kMergedColor},
        {"vouched for", sound, kMergedColor},
        {"not vouched for", unsound, kLayerColor},
        {"no layers", layerless(2, 2), kBackground},
        {"damaged resources", DocumentBuilder(both).Resource(1005, {}, "", "8BIX"), 0},
        {"damaged layers", DocumentBuilder(unsound).Layer(LayerBuilder({}).Filler(1)), 0},
        // Nothing can be composited, and the merged image, which has been read, must not stand in for it.
        {"no columns", layerless(0, 2), 0},
        {"no room", layerless(30000, 30000).MergedData({}), 0},
    };
    for (const auto& [what, document, want] : cases) {
        const Decoded decoded(document);
        EXPECT_EQ(decoded.color, want) << what;
        if (want == 0) continue;
        EXPECT_EQ(All(decoded.picture.pixels.count(), decoded.picture.width), All(4, 2)) << what;
        EXPECT_EQ(decoded.stream.position == 7, want == kMergedColor)
            << what << ": only the reading of the layers may move the stream";
    }
    EXPECT_EQ(Decoded(sound, PictureChoice::kAlwaysLayers).color, kLayerColor);
}

// A document without merged data, so that large sizes cost nothing.
DocumentBuilder Header(uint32_t width, uint32_t height, uint32_t channels = 3, uint32_t depth = 8,
                       uint32_t mode = kColorRgb) {
    return DocumentBuilder(mode, depth, channels, width, height).MergedData({});
}

HeaderInfo Probe(const Bytes& file, HRESULT want = S_OK) {
    MemoryStream stream(file);
    HeaderInfo info;
    EXPECT_EQ(ProbeHeader(&stream, info), want);
    return info;
}

TEST(HeaderProbe, KeepsToTheLimits) {
    Bytes cut = Header(4, 4).Build();
    cut.resize(25);
    const std::tuple<Bytes, HRESULT, uint32_t> cases[] = {
        // the width is reported even where the probe fails
        {Header(30000, 30000).Build(), S_OK, 30000},
        {Header(30001, 1).Build(), E_FAIL, 30001},
        {Header(0, 1).Build(), E_FAIL, 0},
        {Header(4, 4, 56).Build(), S_OK, 4},
        {Header(4, 4, 57).Build(), E_FAIL, 4},
        {Header(4, 4, 3, 8, 10).Build(), E_FAIL, 4},
        {Header(4, 4).Version(2).Build(), E_FAIL, 0},
        {cut, E_FAIL, 0},
    };
    for (const auto& [file, want, width] : cases) EXPECT_EQ(Probe(file, want).width, width);
}

TEST(HeaderProbe, TruncatesTheResolutionToWholeDots) {
    const std::tuple<double, uint16_t, uint32_t> cases[] = {{299.99, 1, 299}, {28.35, 2, 72}, {118.1, 2, 299},
                                                            {300, 0, 72},     {300, 3, 72},   {0, 1, 0}};
    for (const auto& [value, unit, want] : cases) {
        const Bytes mixed = ByteWriter().Fixed(150).U16(1).U16(1).Fixed(value).U16(unit).U16(1);
        const HeaderInfo info = Probe(Header(1, 1).Resource(1005, mixed).Build());
        EXPECT_EQ(All(info.dpiX, info.dpiY), All(150, want)) << value << " of unit " << unit;
        EXPECT_EQ(Probe(Header(1, 1).Resolution(value, unit).Build()).dpiX, want) << value;
    }
}

TEST(HeaderProbe, TellsWhatTheDocumentCarries) {
    const std::tuple<uint16_t, uint32_t, int> cases[] = {
        // profile, thumbnail, EXIF, XMP
        {1039, kColorRgb, 1000}, {1039, kColorCmyk, 0}, {1033, kColorRgb, 100}, {1036, kColorRgb, 100},
        {1058, kColorRgb, 10},   {1059, kColorRgb, 10}, {1060, kColorCmyk, 1},  {1061, kColorRgb, 0}};
    for (const auto& [id, mode, want] : cases) {
        for (const size_t size : {0u, 40u}) {
            const HeaderInfo i = Probe(Header(1, 1, 4, 8, mode).Resource(id, Bytes(size, 1)).Build());
            EXPECT_EQ(i.hasColorProfile * 1000 + i.hasThumbnail * 100 + i.hasExif * 10 + i.hasXmp,
                      size ? want : 0)
                << id;
        }
    }
}

TEST(PixelCopy, TakesOnlyAreasInsideTheImage) {
    for (const CopyArea& area : {CopyArea{0, 0, 30, 20}, CopyArea{29, 19, 1, 1}, CopyArea{30, 20, 0, 0}})
        EXPECT_TRUE(CheckRect(area, 30, 20)) << area.x;
    const CopyArea outside[] = {{25, 0, 10, 1}, {0, 15, 1, 6}, {-1, 0, 1, 1},      {0, -1, 1, 1},
                                {5, 5, -1, 1},  {5, 5, 1, -1}, {1, 0, INT_MAX, 1}, {0, INT_MAX, 1, INT_MAX}};
    for (const CopyArea& area : outside) EXPECT_FALSE(CheckRect(area, 30, 20)) << area.x << ' ' << area.y;
}

TEST(PixelCopy, StopsWhenTheBudgetIsSpent) {
    uint32_t image[6 * 5];
    for (uint32_t i = 0; i < 30; ++i) image[i] = 0x01010101u * ('A' + i);
    const std::pair<uint32_t, const char*> cases[] = {
        {0, ".............................."},    {1, "I............................."},
        {8, "IIIIJJJJ......................"},    {9, "IIIIJJJJ..O..................."},
        {23, "IIIIJJJJ..OOOOPPPP..UUUUVVV..."},   {24, "IIIIJJJJ..OOOOPPPP..UUUUVVVV.."},
        {1000, "IIIIJJJJ..OOOOPPPP..UUUUVVVV.."},
    };
    for (const auto& [budget, want] : cases) {
        std::string buffer(30, '.');
        CopyRows(image, 6, {2, 1, 2, 3}, 10, budget, reinterpret_cast<uint8_t*>(buffer.data()));
        EXPECT_EQ(buffer, want) << budget;
    }
}

TEST(ThumbnailImage, RefusesNumbersThatDisagree) {
    // Format, width, height, compressed size, bits, planes.
    const uint32_t good[] = {1, 2, 3, 5, 24, 1};
    const std::pair<size_t, uint32_t> bad[] = {{0, 0}, {1, 0},  {1, 3}, {1, 0x55555556}, {2, (1 << 23) + 1},
                                               {3, 6}, {4, 32}, {5, 2}, {9, 0}};
    for (const auto& [field, value] : bad) {
        uint32_t n[10];
        std::copy_n(good, 6, n);
        n[field] = value;
        PsdThumbnail thumbnail{true, n[0], n[1], n[2], 8, 24, n[3], int16_t(n[4]), int16_t(n[5]), {}};
        thumbnail.data = AllocateZeroed<uint8_t>({5});
        EXPECT_EQ(IsUsableThumbnail(thumbnail), field == 9) << field << ' ' << value;
    }
}

TEST(ThumbnailImage, CopiesRowsThatAreThere) {
    ThumbnailRecord record;
    record.stored.rowBytes = 10, record.stored.bitsPerPixel = 24;
    record.pixels = AllocateZeroed<uint8_t>({20});
    std::iota(record.pixels.get(), record.pixels.get() + 20, uint8_t{0});
    const struct {
        const char* what;
        CopyArea area;
        int32_t originX, originY;
        Bytes want;  // rows of four bytes
    } cases[] = {
        {"in place", {1, 0, 1, 2}, -1, -1, {3, 4, 5, 99, 13, 14, 15, 99}},
        {"half an origin", {1, 0, 1, 2}, 1, -1, {3, 4, 5, 99, 13, 14, 15, 99}},
        {"moved", {0, 0, 1, 1}, 1, 1, {13, 14, 15, 99, 99, 99, 99, 99}},
        {"to the last byte", {0, 1, 1, 2}, -1, -1, {10, 11, 12, 99, 99, 99, 99, 99}},
    };
    for (const auto& test : cases) {
        Bytes buffer(8, 99);
        CopyThumbnail(record, test.area, test.originX, test.originY, 4, buffer.data());
        EXPECT_EQ(buffer, test.want) << test.what;
    }
    record.stored.rowBytes = 9, record.pixels = AllocateZeroed<uint8_t>({9});
    Bytes whole(9, 99);
    CopyThumbnail(record, {0, 0, 3, 1}, -1, -1, 9, whole.data());
    EXPECT_EQ(whole, Bytes(9)) << "the whole of the last row";
}

constexpr uint32_t kBuffer = 16;

// 200 bytes, each its own place, behind a small buffer.
struct Buffered {
    Buffered() {
        Bytes bytes(200);
        std::iota(bytes.begin(), bytes.end(), uint8_t{0});
        source.Replace(bytes);
        EnableReadAhead(state, true);
    }
    HRESULT Read(uint32_t count) { return ReadAheadRead(state, out, count, &got); }
    HRESULT Seek(int64_t move, DWORD origin) {
        return ReadAheadSeek(state, {.QuadPart = move}, origin, nullptr);
    }

    MemoryStream source{{}};
    uint8_t buffer[kBuffer] = {};
    ReadAhead state{&source, buffer, kBuffer};
    uint8_t out[64] = {};
    ULONG got = 0;
};

TEST(ReadAhead, ServesTheSameBytesAsTheSource) {
    for (const uint32_t crumbs : {1u, 3u, 0xFFFFFFFFu}) {
        Buffered stream;
        stream.source.maxBytesPerRead = crumbs;
        std::mt19937 random(crumbs);
        int64_t position = 0;
        for (int step = 0; step < 5000; ++step) {
            const int64_t value = static_cast<int64_t>(random() % 240);
            const uint64_t kind = random() % 5;
            if (kind == 0) stream.Seek(position = value, STREAM_SEEK_SET);
            if (kind == 1) stream.Seek(value / 4 - 25, STREAM_SEEK_CUR), position += value / 4 - 25;
            if (kind == 2) stream.Seek(-value / 2, STREAM_SEEK_END), position = 200 - value / 2;
            ASSERT_EQ(stream.state.position, position);
            const uint32_t count = static_cast<uint32_t>(value) % 30;
            const HRESULT result = stream.Read(count);
            if (position < 0) {
                ASSERT_EQ(result, E_INVALIDARG) << "the source's own answer";
                continue;
            }
            const int64_t left = std::max<int64_t>(200 - position, 0);
            // What goes past the buffer comes as the source gives it.
            ASSERT_EQ(stream.got, std::min<int64_t>(left, count > kBuffer ? std::min(count, crumbs) : count));
            ASSERT_EQ(result, stream.got == count && (count != 0 || left > 0) ? S_OK : S_FALSE);
            for (uint32_t i = 0; i < stream.got; ++i) ASSERT_EQ(stream.out[i], position + i);
            position += stream.got;
        }
    }
}

TEST(ReadAhead, RefillsWhereTheBufferEndsAndBelievesNoSource) {
    Buffered stream;
    stream.Read(1);
    stream.Seek(kBuffer - 6, STREAM_SEEK_SET);
    EXPECT_EQ(stream.source.bytesRead, kBuffer);
    EXPECT_EQ(stream.Read(10), S_OK);
    EXPECT_EQ(stream.state.bufferStart, kBuffer);
    // One byte more than the buffer holds goes past it, and nothing stays buffered.
    EXPECT_EQ(stream.Read(kBuffer + 1), S_OK);
    EXPECT_EQ(stream.source.bytesRead, 3 * kBuffer + 1);
    EXPECT_EQ(stream.state.valid, 0u);
    stream.source.failCall = stream.source.calls + 2;
    EXPECT_EQ(stream.Read(4), E_FAIL);
    EnableReadAhead(stream.state, false);
    const uint64_t before = stream.source.bytesRead;
    EXPECT_EQ(stream.Read(4), S_OK);
    EXPECT_EQ(stream.source.bytesRead, before + 4) << "buffered though it is off";
    for (const uint32_t count : {4u, kBuffer, kBuffer + 1}) {
        Buffered boasting;
        boasting.source.claimsMore = true;
        boasting.Read(count);
        EXPECT_EQ(All(boasting.got, boasting.state.position), All(0, 0));
    }
}

TEST(ReadAhead, TakesSourcesThatDoNotTellTheirSize) {
    const Bytes file = Header(1, 1).HasRealMergedData(false).Resolution(90, 1).Merged({1, 2, 3}).Build();
    for (const uint32_t size : {0u, 8u, 4096u}) {  // of the buffer, 0 for none
        MemoryStream source(file);
        source.statFails = true;
        source.position = 3;
        PortableCodec codec(&source, size);
        EXPECT_EQ(codec.Everything(), PsdReadResult::kOk) << size;
        EXPECT_EQ(codec.info.dpiX, 90u) << size;
    }
}

void Put(Bytes& bytes, bool big, int size, uint32_t value) {
    for (int i = 0; i < size; ++i)
        bytes.push_back(static_cast<uint8_t>(value >> 8 * (big ? size - 1 - i : i)));
}
void PutEntry(Bytes& bytes, bool big, uint32_t tag, uint32_t type, uint32_t count, uint32_t value) {
    Put(bytes, big, 2, tag), Put(bytes, big, 2, type), Put(bytes, big, 4, count), Put(bytes, big, 4, value);
}

// An EXIF block whose directory claims `claimed` entries and holds those of `tags`.
Bytes Exif(bool big, uint32_t claimed, const std::vector<uint16_t>& tags) {
    Bytes bytes = big ? Bytes{'M', 'M'} : Bytes{'I', 'I'};
    Put(bytes, big, 2, 42), Put(bytes, big, 4, 8), Put(bytes, big, 2, claimed);
    for (const uint16_t tag : tags) PutEntry(bytes, big, tag, 2, 0x11223344, 0x55667788);
    return bytes;
}

Bytes Graft(const Bytes& exif, const Bytes& xmp) {
    Owned<uint8_t> grafted;
    EXPECT_EQ(GraftXmp(exif, xmp, grafted), PsdReadResult::kOk);
    return Bytes(grafted.get(), grafted.get() + grafted.count());
}

TEST(ExifGraft, TurnsTheFirstSoftwareEntryIntoTheXmpEntry) {
    for (const bool big : {true, false}) {
        const Bytes exif = Exif(big, 3, {271, 305, 305});
        Bytes want = Exif(big, 3, {271});
        PutEntry(want, big, 700, 1, 3, 46);  // three bytes behind the 46 of the block
        want.insert(want.end(), exif.begin() + 34, exif.end());
        want.insert(want.end(), {'x', 'm', 'p'});
        EXPECT_EQ(Graft(exif, {'x', 'm', 'p'}), want);
        EXPECT_EQ(Graft(exif, {'x', 'm', 'p', 0}), want) << "the packet's closing zero does not count";
        EXPECT_EQ(Graft(exif, {}), exif) << "no packet";
    }
    EXPECT_EQ(ExifByteOrder(Bytes{'I', 'M'}, false), ByteOrder::kBigEndian) << "a guess";
    EXPECT_EQ(ExifByteOrder(Bytes{'I', 'M'}, true), ByteOrder::kLittleEndian);
}

TEST(ExifGraft, ReadsNothingBeyondTheBlock) {
    // The packet looks like an entry: it must not be taken for one.
    const Bytes xmp = {0x01, 0x31, 0x01, 0x31, 0x01, 0x31, 0x01, 0x31, 0x01, 0x31, 0x01, 0x31, 0x01};
    for (const uint32_t claimed : {0u, 1u, 2u, 3u, 0xFFFFu}) {
        const Bytes whole = Exif(true, claimed, {271, 305});
        for (size_t size = 0; size <= whole.size(); ++size) {
            const Bytes exif(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            Bytes unchanged = exif;
            unchanged.insert(unchanged.end(), xmp.begin(), xmp.end());
            const bool found = claimed >= 2 && size == whole.size();
            EXPECT_EQ(Graft(exif, xmp) != unchanged, found) << claimed << " claimed, " << size;
        }
    }
}

}  // namespace
}  // namespace tessary::test
