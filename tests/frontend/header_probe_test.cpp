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
        {"56 channels", Header(4, 4, 56).Build(), S_OK, 4},
        {"57 channels", Header(4, 4, 57).Build(), E_FAIL, 4},
        {"no channels", Header(4, 4, 0).Build(), E_FAIL, 4},
        {"24 bits, no depth of documents", Header(4, 4, 3, 24).Build(), E_FAIL, 4},
        {"mode 10", Header(4, 4, 3, 8, 10).Build(), E_FAIL, 4},
        {"large document", Header(4, 4).Version(2).Build(), E_FAIL, 0},
        {"other signature", Header(4, 4).Signature("8BPT").Build(), E_FAIL, 0},
        {"25 bytes", cut, E_FAIL, 0},
    };
    for (const auto& test : cases) {
        HeaderInfo info;
        EXPECT_EQ(Probe(test.file, info), test.want) << test.what;
        EXPECT_EQ(info.width, test.width) << test.what;
    }
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

TEST(HeaderProbe, SurvivesBadStreams) {
    const Bytes file = Header(9, 5).Resolution(96, 1).Resource(1060, Bytes(10, 1)).Build();
    HeaderInfo info;
    MemoryStream crumbs(file);
    crumbs.maxBytesPerRead = 1;
    EXPECT_EQ(ProbeHeader(&crumbs, info), S_OK);
    EXPECT_TRUE(info.dpiX == 96 && info.hasXmp);
    for (uint64_t n = 1; n < 20; ++n) {
        MemoryStream stream(file);
        stream.failCall = n;
        stream.failLater = true;
        stream.claimsMore = n % 2 == 0;
        EXPECT_TRUE(ProbeHeader(&stream, info) == E_FAIL || n > 3) << n;
    }
}

}  // namespace
}  // namespace tessary::test
