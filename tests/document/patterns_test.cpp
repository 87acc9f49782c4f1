#include "document/patterns.h"

#include <gtest/gtest.h>

#include "tools/document_builder.h"
#include "tools/sample_effects.h"

namespace tessary::test {
namespace {

using tools::PatternOf;
const std::vector<uint32_t> kPixels = {0xFF102030, 0x80FFFFFF, 0x00000000,
                                       0xFF00FF00, 0x12345678, 0xFF0000FF};

Owned<PsdDocument> WithBlock(const Bytes& block, std::string_view key = "Patt") {
    DocumentBuilder document(kColorRgb, 8, 3, 4, 4);
    document.Layer(LayerBuilder({0, 0, 1, 1}).Solid(~0u)).DocumentBlock(key, block);
    return std::move(OpenBytes(document.Build()).document);
}

PsdUnicodeString Named(std::string_view text, uint32_t zeros) {
    PsdUnicodeString named;
    named.length = static_cast<uint32_t>(text.size()) + zeros;
    named.bytes = AllocateZeroed<uint8_t>({named.length + uint64_t{1}, 2});
    for (size_t i = 0; i < text.size(); ++i) named.bytes[2 * i + 1] = static_cast<uint8_t>(text[i]);
    return named;
}

TEST(Patterns, AreFoundByTheirIdentifier) {
    for (const std::string_view key : {"Patt", "Pat2"}) {
        for (const uint16_t compression : {uint16_t{0}, uint16_t{1}}) {
            for (const uint32_t depth : {8u, 16u}) {
                ByteWriter block = ByteWriter().Raw(PatternOf("other", 1, {0xFF445566}));
                block.Raw(PatternOf("one", 3, kPixels, compression, depth)).Raw(PatternOf("one", 1, {0}));
                const auto document = WithBlock(block, key);
                const PsdPattern* const pattern = FindPattern(*document, Named("one", 1));
                ASSERT_TRUE(pattern);
                ASSERT_EQ(All(pattern->width, pattern->height), All(3, 2));
                EXPECT_TRUE(std::ranges::equal(pattern->pixels.span(), kPixels)) << compression << depth;
                EXPECT_EQ(FindPattern(*document, Named("other", 0))->pixels[0], 0xFF445566u);
                EXPECT_EQ(All(!FindPattern(*document, Named("on", 0)), !FindPattern(*document, Named("", 2))),
                          All(true, true));
            }
        }
    }
    EXPECT_EQ(WithBlock(PatternOf("one", 3, kPixels), "Pat3")->patternCount, 0u);
}

TEST(Patterns, ComeInSeveralColorModes) {
    const auto pattern = [](uint32_t mode, const std::vector<Bytes>& planes, const Bytes& palette = {}) {
        ByteWriter body = ByteWriter().RectTlbr({0, 0, 2, 1}).U32(static_cast<uint32_t>(planes.size()));
        for (const Bytes& plane : planes)
            body.U32(1).Counted(ByteWriter().U32(8).RectTlbr({0, 0, 2, 1}).U16(8).U8(0).Raw(plane));
        body.U32(0).U32(0);
        ByteWriter head =
            ByteWriter().U32(1).U32(mode).U16(1).U16(2).Unicode(u"").Pascal("a", 1).Raw(palette);
        return ByteWriter().Counted(head.U32(3).Counted(body)).bytes();
    };
    Bytes palette(772);
    palette[3] = 1, palette[4] = 2, palette[5] = 3;
    const struct {
        const char* what;
        Bytes block;
        std::vector<uint32_t> want;
    } cases[] = {
        {"gray", pattern(1, {{7, 255}}), {0xFF070707, 0xFFFFFFFF}},
        {"indexed", pattern(2, {{1, 0}}, palette), {0xFF010203, 0xFF000000}},
        {"CMYK", pattern(4, {{255, 0}, {255, 0}, {255, 0}, {255, 0}}), {0xFFFFFFFF, 0xFF000000}},
        {"Lab", pattern(9, {{0, 0}, {128, 128}, {128, 128}}), {0xFF000000, 0xFF000000}},
        {"bitmap", pattern(0, {{0, 0}}), {}},
        {"too few planes", pattern(3, {{1, 2}, {3, 4}}), {}},
    };
    for (const auto& test : cases) {
        const auto document = WithBlock(test.block);
        const PsdPattern* const found = FindPattern(*document, Named("a", 1));
        EXPECT_EQ(found != nullptr, !test.want.empty()) << test.what;
        EXPECT_TRUE(!found || std::ranges::equal(found->pixels.span(), test.want)) << test.what;
    }
}

// What stands before a malformed pattern is there, what stands behind it is not, and the document is.
TEST(Patterns, EndWithAMalformedOne) {
    const Bytes sound = PatternOf("bad", 3, kPixels), packed = PatternOf("bad", 3, kPixels, 1);
    const struct {
        const char* what;
        size_t at;  // a byte of the pattern
        uint8_t value;
    } cases[] = {
        {"length", 0, 1},         {"short length", 3, 19}, {"version", 7, 2},      {"name", 16, 255},
        {"plane version", 37, 1}, {"empty", 57, 0},        {"inverted", 48, 9},    {"large", 51, 255},
        {"other bounds", 89, 7},  {"depth", 91, 32},       {"compression", 92, 2}, {"plane length", 69, 9},
    };
    const auto reachesLast = [](const Bytes& bad) {
        const Bytes first = PatternOf("first", 3, kPixels), last = PatternOf("last", 3, kPixels);
        const auto document = WithBlock(ByteWriter().Raw(first).Raw(bad).Raw(last));
        EXPECT_TRUE(FindPattern(*document, Named("first", 1)));
        return FindPattern(*document, Named("last", 1)) != nullptr;
    };
    EXPECT_TRUE(reachesLast(sound));
    for (const auto& test : cases) {
        Bytes bad = sound;
        bad[test.at] = test.value;
        EXPECT_FALSE(reachesLast(bad)) << test.what;
    }
    Bytes bad = packed;
    bad[93] = 200;  // a row's length
    EXPECT_FALSE(reachesLast(bad));
}

TEST(Patterns, AreHiddenByAnEarlierOneThatCannotBeDrawn) {
    const Bytes sound = PatternOf("a", 3, kPixels);
    const struct {
        const char* what;
        size_t at;  // a byte of the first pattern
        uint8_t value;
        bool isFound;
    } cases[] = {
        {"mode that is not drawn", 11, 7, false}, {"malformed", 87, 7, false}, {"another", 31, 'b', true}};
    for (const auto& test : cases) {
        Bytes first = sound;
        first[test.at] = test.value;
        DocumentBuilder builder(kColorRgb, 8, 3, 4, 4);
        builder.Layer(LayerBuilder({0, 0, 1, 1}).Solid(~0u)).DocumentBlock("Patt", first);
        const auto document = OpenBytes(builder.DocumentBlock("Pat2", sound).Build()).document;
        EXPECT_EQ(FindPattern(*document, Named("a", 1)) != nullptr, test.isFound) << test.what;
    }
}

}  // namespace
}  // namespace tessary::test
