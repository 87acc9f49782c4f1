#include "properties/adjustment_readers.h"

#include <gtest/gtest.h>

#include "document/big_endian.h"
#include "document/byte_reader.h"
#include "properties/property_readers.h"
#include "tests/support/document_builder.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {
namespace {

struct BlockReader {
    explicit BlockReader(Bytes bytes) : stream(std::move(bytes)) { document.reader.stream = &stream; }

    PsdReadResult Read(std::string_view key, uint32_t length) {
        const uint8_t text[] = {uint8_t(key[0]), uint8_t(key[1]), uint8_t(key[2]), uint8_t(key[3])};
        return ReadPropertyBlock(document, layer, LoadU32(text), length);
    }

    MemoryStream stream;
    PsdDocument document;
    PsdLayer layer;
};

ByteWriter Level(uint32_t floor, uint32_t ceiling, uint32_t outFloor, uint32_t outCeiling, uint32_t gamma) {
    return ByteWriter().U16(floor).U16(ceiling).U16(outFloor).U16(outCeiling).U16(gamma);
}

Bytes Levels(uint32_t version, const Bytes& extra = {}) {
    ByteWriter levels;
    levels.U16(version);
    for (uint32_t i = 0; i < 29; ++i) levels.Raw(Level(i, 255 - i, 1, 254, 100 + i));
    return levels.Raw(extra);
}

// Composite and blue, two points each; `bluePoint` is the input of the last point of blue's second copy.
Bytes Curves(uint32_t version, std::string_view signature, uint32_t extraVersion, uint32_t count,
             uint32_t bluePoint) {
    ByteWriter curves;
    curves.U8(0).U16(version).U32(1 << 0 | 1 << 3);
    for (int i = 0; i < 2; ++i) curves.U16(2).U16(10).U16(20).U16(200).U16(250);
    if (signature.empty()) return curves.U32(0);
    curves.Text(signature).U16(extraVersion).U32(count);
    curves.U16(1).U16(2).U16(10).U16(20).U16(200).U16(250);
    return curves.U16(2).U16(2).U16(10).U16(20).U16(200).U16(bluePoint);
}

TEST(AdjustmentReaders, TurnBlocksIntoKindsAndCodes) {
    const Bytes twoLevels = ByteWriter().Text("Lvls").U16(3).U16(31).Raw(Level(9, 8, 7, 6, 50)).Zeros(10);
    const auto v = [](uint32_t version, size_t zeros) { return ByteWriter().U16(version).Zeros(zeros); };
    const struct {
        const char* key;
        Bytes block;
        uint32_t kind, property;
        int32_t result = 0;
        bool rebuild = true;
        uint32_t length = 0;  // 0: the block's own
    } cases[] = {
        {"levl", Levels(2), 6, 1},
        {"levl", Levels(2, Bytes(4)), 6, 1},
        {"levl", Levels(2, twoLevels), 6, 1},
        {"levl", Levels(2, ByteWriter().Text("Lvls").U16(3).U16(65535)), 6, 1},
        {"levl", Levels(1), 6, 1, -503, false},
        {"levl", Levels(2, ByteWriter().Text("lvls").Zeros(4)), 6, 1, -505, false},
        {"levl", Levels(2), 6, 1, -505, false, 300},
        {"levl", Levels(2), 6, 1, -506, false, 290},
        {"levl", Levels(2), 6, 1, -506, false, 296},
        {"levl", Levels(2, ByteWriter().Text("Lvls").Zeros(4)), 6, 1, -507, false},
        {"curv", Curves(1, "", 0, 0, 0), 7, 2},
        {"curv", Curves(4, "Crv ", 4, 2, 250), 7, 2},
        {"curv", Curves(1, "Crv ", 4, 2, 251), 7, 2, 0, false},  // copies that differ
        {"curv", Curves(1, "Crv ", 4, 3, 250), 7, 2, 0, false},  // a copy too many
        {"curv", Curves(2, "", 0, 0, 0), 7, 2, -508, false},
        {"curv", Curves(1, "Crv_", 4, 2, 250), 7, 2, -509, false},
        {"curv", Curves(1, "Crv ", 3, 2, 250), 7, 2, -510, false},
        {"brit", Bytes(8), 8, 3},
        {"blnc", Bytes(20), 9, 4},
        {"hue2", v(2, 100), 10, 5},
        {"hue2", v(0, 100), 10, 5, -511, false},
        {"selc", v(1, 82), 11, 6},
        {"selc", v(0, 82), 11, 6, -512, false},
        {"thrs", Bytes(4), 12, 7},
        {"nvrt", {}, 13, 8},
        {"post", Bytes(4), 14, 9},
        {"mixr", v(1, 42), 15, 10},
        {"mixr", v(0, 42), 15, 10, -513, false},
        {"grdm", v(1, 60), 16, 11},
        {"grdm", v(3, 60), 16, 11, -515, false},
        {"phfl", v(3, 17), 17, 12},
        {"phfl", v(0, 18), 17, 12},  // of another version
        {"expA", Bytes(20), 0, 0, 0, false},
    };
    for (const auto& test : cases) {
        BlockReader reader(test.block);
        const uint32_t length = test.length ? test.length : static_cast<uint32_t>(test.block.size());
        EXPECT_EQ(static_cast<int32_t>(reader.Read(test.key, length)), test.result) << &test - cases;
        EXPECT_EQ(reader.layer.layerKind, test.kind) << test.key;
        EXPECT_EQ(reader.layer.propertyList.entries[0].propertyCode, test.property) << test.key;
        EXPECT_EQ(reader.layer.rebuildTables, test.rebuild) << &test - cases;
    }
}

TEST(AdjustmentReaders, KeepTheFieldsInTheirPlaces) {
    BlockReader levels(Levels(2, ByteWriter().Text("Lvls").U16(3).U16(30).Raw(Level(9, 8, 7, 6, 50))));
    ASSERT_EQ(levels.Read("levl", 310), PsdReadResult::kOk);
    const auto* level = FindProperty<LevelsRecord>(levels.layer, kPropertyLevels);
    EXPECT_TRUE(level->levels[3].inputCeiling == 252 && level->extraLevels[0].gamma == 0.5f);
    EXPECT_FLOAT_EQ(level->levels[28].gamma, 1.28f);

    ByteWriter tones;
    for (int32_t i = 1; i <= 9; ++i) tones.I16(-i);
    BlockReader balance(tones.U16(0x0100));
    ASSERT_EQ(balance.Read("blnc", 20), PsdReadResult::kOk);
    const auto* tone = FindProperty<BalanceRecord>(balance.layer, kPropertyBalance);
    EXPECT_TRUE(tone->cyanRed.highlights == -7 && tone->yellowBlue.midtones == -6);
    EXPECT_FALSE(tone->preserveLuminosity) << "only the low byte is the flag";

    const Bytes stops =
        ByteWriter().U16(1).U32(2048).U32(50).U16(0).U16(0x1234).U16(0x5678).U16(0x9ABC).Zeros(4);
    BlockReader map(
        ByteWriter().U16(1).U16(0x0100).Unicode(u"ab").Raw(stops).U16(1).U32(7).U32(8).U16(9).Zeros(52));
    ASSERT_EQ(map.Read("grdm", 200), PsdReadResult::kOk);
    const auto* gradient = FindProperty<GradientMapRecord>(map.layer, kPropertyGradientMap);
    EXPECT_TRUE(gradient->reverse && gradient->transparencyStops[0].opacity == 9);
    EXPECT_TRUE(gradient->colorStops[0].location == 2048 && gradient->colorStops[0].color == 0xFF12569A);
}

TEST(AdjustmentReaders, CurvesKeepNineteenPointsAndTheirLaterChannel) {
    for (const bool differs : {false, true}) {
        ByteWriter curves;
        curves.U8(0).U16(1).U32(2).U16(25);
        for (uint32_t i = 0; i < 25; ++i) curves.U16(i).U16(i * 10);
        curves.Text("Crv ").U16(4).U32(1).U16(2).U16(25);
        for (uint32_t i = 0; i < 25; ++i) curves.U16(differs && i == 18 ? 99 : i).U16(i * 10);
        BlockReader reader(curves);
        ASSERT_EQ(reader.Read("curv", static_cast<uint32_t>(curves.size())), PsdReadResult::kOk);
        const CurveRecord& curve = FindProperty<CurvesRecord>(reader.layer, kPropertyCurves)->curves[0];
        EXPECT_TRUE(curve.channel == 2 && curve.points[18] == (CurvePoint{18, 180}));
        EXPECT_EQ(reader.layer.rebuildTables, !differs);
        EXPECT_EQ(Position(reader.document), curves.size() - (differs ? 6 * 4 : 0));
    }
}

TEST(AdjustmentReaders, CountsThatTheInputCannotHoldCostNothing) {
    const Bytes curves = ByteWriter().U8(0).U16(1).U32(0xFFFFFFFF).U16(65535).U16(1);
    const Bytes name = ByteWriter().U16(1).U16(0).U32(0xFFFFFFFF);
    const Bytes stops = ByteWriter().U16(1).U16(0).U32(0).U16(65535).U32(16);
    for (const Bytes& block : {curves, name, stops}) {
        BlockReader reader(block);
        EXPECT_EQ(reader.Read(block == curves ? "curv" : "grdm", 8), PsdReadResult::kOk);
        EXPECT_LT(reader.stream.calls, 1000u);
    }
}

TEST(AdjustmentReaders, AFullListDropsTheBlockWhole) {
    BlockReader reader(ByteWriter().U16(1).Zeros(40));
    for (uint32_t i = 0; i < 19; ++i) ASSERT_EQ(reader.Read("nvrt", 0), PsdReadResult::kOk);
    ASSERT_EQ(reader.Read("thrs", 4), PsdReadResult::kOk);
    const uint32_t before = Position(reader.document);
    EXPECT_EQ(reader.Read("levl", 292), PsdReadResult::kOk);  // not even its wrong version is seen
    EXPECT_EQ(Position(reader.document), before);
    EXPECT_EQ(reader.layer.layerKind, static_cast<uint32_t>(kLayerThreshold));
    EXPECT_EQ(reader.layer.propertyList.count, 20u);
}

}  // namespace
}  // namespace tessary::test
