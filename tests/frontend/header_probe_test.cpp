#include "frontend/header_probe.h"

#include <gtest/gtest.h>

#include "tests/support/document_builder.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {
namespace {

// A document without merged data, so that large sizes cost nothing.
DocumentBuilder Header(uint32_t width, uint32_t height, uint32_t channels = 3, uint32_t depth = 8,
                       uint32_t mode = kColorRgb) {
    return DocumentBuilder(mode, depth, channels, width, height).MergedData({});
}

HRESULT Probe(const Bytes& file, HeaderInfo& info) {
    MemoryStream stream(file);
    return ProbeHeader(&stream, info);
}

TEST(HeaderProbe, KeepsToTheLimits) {
    Bytes cut = Header(4, 4).Build();
    cut.resize(25);
    const struct {
        const char* what;
        Bytes file;
        HRESULT want;
        uint32_t width;  // reported even where the probe fails
    } cases[] = {
        {"plain", Header(4, 4).Build(), S_OK, 4},
        {"largest", Header(30000, 30000).Build(), S_OK, 30000},
        {"too wide", Header(30001, 1).Build(), E_FAIL, 30001},
        {"too high", Header(1, 30001).Build(), E_FAIL, 1},
        {"no width", Header(0, 1).Build(), E_FAIL, 0},
        {"no height", Header(7, 0).Build(), E_FAIL, 7},
        {"56 channels", Header(4, 4, 56).Build(), S_OK, 4},
        {"57 channels", Header(4, 4, 57).Build(), E_FAIL, 4},
        {"no channels", Header(4, 4, 0).Build(), E_FAIL, 4},
        {"32 bits", Header(4, 4, 3, 32).Build(), S_OK, 4},
        {"24 bits, no depth of documents", Header(4, 4, 3, 24).Build(), E_FAIL, 4},
        {"33 bits", Header(4, 4, 3, 33).Build(), E_FAIL, 4},
        {"Lab", Header(4, 4, 3, 8, kColorLab).Build(), S_OK, 4},
        {"mode 10", Header(4, 4, 3, 8, 10).Build(), E_FAIL, 4},
        {"large document", Header(4, 4).Version(2).Build(), E_FAIL, 0},
        {"other signature", Header(4, 4).Signature("8BPT").Build(), E_FAIL, 0},
        {"25 bytes", cut, E_FAIL, 0},
        {"nothing", {}, E_FAIL, 0},
    };
    for (const auto& test : cases) {
        HeaderInfo info;
        EXPECT_EQ(Probe(test.file, info), test.want) << test.what;
        EXPECT_EQ(info.width, test.width) << test.what;
    }
    HeaderInfo info;
    EXPECT_EQ(ProbeHeader(nullptr, info), E_INVALIDARG);
}

TEST(HeaderProbe, TruncatesTheResolutionToWholeDots) {
    const struct {
        double value;
        uint16_t unit;
        uint32_t want;
    } cases[] = {{300, 1, 300}, {299.99, 1, 299}, {28.35, 2, 72}, {118.1, 2, 299},
                 {300, 0, 72},  {300, 3, 72},     {0, 1, 0}};
    for (const auto& test : cases) {
        HeaderInfo info;
        ASSERT_EQ(Probe(Header(1, 1).Resolution(test.value, test.unit).Build(), info), S_OK);
        EXPECT_EQ(info.dpiX, test.want) << test.value << " of unit " << test.unit;
        EXPECT_EQ(info.dpiY, test.want) << test.value << " of unit " << test.unit;
    }
    HeaderInfo info;
    ASSERT_EQ(Probe(Header(1, 1).Build(), info), S_OK);
    EXPECT_EQ(info.dpiX, 72u);

    const Bytes twoUnits = ByteWriter().Fixed(150).U16(1).U16(1).Fixed(100).U16(2).U16(1);
    ASSERT_EQ(Probe(Header(1, 1).Resource(1005, twoUnits).Build(), info), S_OK);
    EXPECT_EQ(info.dpiX, 150u);
    EXPECT_EQ(info.dpiY, 254u);
}

TEST(HeaderProbe, TellsWhatTheDocumentCarries) {
    const Bytes data(40, 1);
    const struct {
        uint16_t id;
        uint32_t mode;
        const char* want;  // profile, thumbnail, EXIF, XMP
    } cases[] = {{1039, kColorRgb, "1000"},  {1039, kColorCmyk, "0000"}, {1033, kColorRgb, "0100"},
                 {1036, kColorRgb, "0100"},  {1058, kColorRgb, "0010"},  {1059, kColorRgb, "0010"},
                 {1060, kColorCmyk, "0001"}, {1061, kColorRgb, "0000"}};
    for (const auto& test : cases) {
        for (const bool empty : {false, true}) {
            HeaderInfo info;
            DocumentBuilder document = Header(1, 1, 4, 8, test.mode);
            ASSERT_EQ(Probe(document.Resource(test.id, empty ? Bytes() : data).Build(), info), S_OK);
            std::string flags;
            for (const bool flag : {info.hasColorProfile, info.hasThumbnail, info.hasExif, info.hasXmp})
                flags += flag ? '1' : '0';
            EXPECT_EQ(flags, empty ? "0000" : test.want) << test.id << (empty ? " without data" : "");
        }
    }
}

TEST(HeaderProbe, LooksAtTheStartWhenItStandsElsewhere) {
    const Bytes file = Header(9, 5).Build();
    for (const uint64_t position : {0ull, 4ull, 26ull, 1000ull}) {
        MemoryStream stream(file);
        stream.position = position;
        HeaderInfo info;
        EXPECT_EQ(ProbeHeader(&stream, info), S_OK) << position;
        EXPECT_EQ(info.width, 9u);
        EXPECT_EQ(stream.position, position);
    }
    MemoryStream other(Bytes(100, 7));
    other.position = 50;
    HeaderInfo info;
    EXPECT_EQ(ProbeHeader(&other, info), E_FAIL);
    EXPECT_EQ(other.position, 50u);
}

TEST(HeaderProbe, SurvivesBadStreams) {
    const Bytes file = Header(9, 5).Resolution(96, 1).Resource(1060, Bytes(10, 1)).Build();
    const auto probe = [](MemoryStream& stream) {
        HeaderInfo info;
        const HRESULT result = ProbeHeader(&stream, info);
        if (result == S_OK) {
            EXPECT_EQ(info.width, 9u);
            EXPECT_LE(info.height, 5u);
        }
        return result;
    };
    MemoryStream crumbs(file);
    crumbs.maxBytesPerRead = 1;
    EXPECT_EQ(probe(crumbs), S_OK);
    MemoryStream boasting(file);
    boasting.claimsMore = true;
    probe(boasting);

    MemoryStream counted(file);
    probe(counted);
    for (uint64_t n = 1; n <= counted.calls; ++n) {
        MemoryStream stream(file);
        stream.failCall = n;
        probe(stream);
        stream.failLater = true;
        stream.calls = 0;
        stream.position = 0;
        EXPECT_TRUE(probe(stream) == E_FAIL || n > 2) << "no header without the first read";
    }
    for (size_t size = 0; size < file.size(); ++size) {
        MemoryStream stream(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size)));
        EXPECT_TRUE(probe(stream) == E_FAIL || size >= 26) << size;
    }
}

}  // namespace
}  // namespace tessary::test
