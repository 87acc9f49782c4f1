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
        Bytes file;
        HRESULT want;
        uint32_t width;  // reported even where the probe fails
    } cases[] = {
        {Header(30000, 30000).Build(), S_OK, 30000},
        {Header(30001, 1).Build(), E_FAIL, 30001},
        {Header(1, 30001).Build(), E_FAIL, 1},
        {Header(0, 1).Build(), E_FAIL, 0},
        {Header(4, 4, 56).Build(), S_OK, 4},
        {Header(4, 4, 57).Build(), E_FAIL, 4},
        {Header(4, 4, 0).Build(), E_FAIL, 4},
        {Header(4, 4, 3, 24).Build(), E_FAIL, 4},
        {Header(4, 4, 3, 8, 10).Build(), E_FAIL, 4},
        {Header(4, 4).Version(2).Build(), E_FAIL, 0},
        {Header(4, 4).Signature("8BPT").Build(), E_FAIL, 0},
        {cut, E_FAIL, 0},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        HeaderInfo info;
        EXPECT_EQ(Probe(cases[i].file, info), cases[i].want) << i;
        EXPECT_EQ(info.width, cases[i].width) << i;
    }
}

TEST(HeaderProbe, TruncatesTheResolutionToWholeDots) {
    const struct {
        double value;
        uint16_t unit;
        uint32_t want;
    } cases[] = {{299.99, 1, 299}, {28.35, 2, 72}, {118.1, 2, 299}, {300, 0, 72}, {300, 3, 72}, {0, 1, 0}};
    for (const auto& [value, unit, want] : cases) {
        HeaderInfo info;
        const Bytes units = ByteWriter().Fixed(150).U16(1).U16(1).Fixed(value).U16(unit).U16(1);
        ASSERT_EQ(Probe(Header(1, 1).Resource(1005, units).Build(), info), S_OK);
        EXPECT_EQ(info.dpiX, 150u);
        EXPECT_EQ(info.dpiY, want) << value << " of unit " << unit;
        ASSERT_EQ(Probe(Header(1, 1).Resolution(value, unit).Build(), info), S_OK);
        EXPECT_EQ(info.dpiX, want) << value << " of unit " << unit;
    }
}

TEST(HeaderProbe, TellsWhatTheDocumentCarries) {
    const struct {
        uint16_t id;
        uint32_t mode;
        int want;  // profile, thumbnail, EXIF, XMP
    } cases[] = {{1039, kColorRgb, 1000}, {1039, kColorCmyk, 0}, {1033, kColorRgb, 100},
                 {1036, kColorRgb, 100},  {1058, kColorRgb, 10}, {1059, kColorRgb, 10},
                 {1060, kColorCmyk, 1},   {1061, kColorRgb, 0}};
    for (const auto& [id, mode, want] : cases) {
        for (const size_t size : {0u, 40u}) {
            HeaderInfo info;
            ASSERT_EQ(Probe(Header(1, 1, 4, 8, mode).Resource(id, Bytes(size, 1)).Build(), info), S_OK);
            const int got =
                info.hasColorProfile * 1000 + info.hasThumbnail * 100 + info.hasExif * 10 + info.hasXmp;
            EXPECT_EQ(got, size ? want : 0) << id << ", " << size << " bytes";
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
