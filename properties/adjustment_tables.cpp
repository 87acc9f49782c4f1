#include "properties/adjustment_tables.h"

#include <algorithm>
#include <cmath>

#include "document/checked_math.h"
#include "properties/curve_spline.h"
#include "properties/stop_table.h"

namespace tessary {
namespace {

constexpr uint8_t ToByte(int32_t value) { return static_cast<uint8_t>(ClampToByte(value)); }

// NaN becomes 0.
uint8_t TruncateToByte(double value) {
    return static_cast<uint8_t>(value > 0 ? std::min(value, 255.0) : 0.0);
}

ByteTable IdentityTable() {
    ByteTable table;
    for (size_t i = 0; i < table.size(); ++i) table[i] = static_cast<uint8_t>(i);
    return table;
}

// table[i] = map[table[i]]
void Follow(ByteTable& table, const ByteTable& map) {
    for (uint8_t& entry : table) entry = map[entry];
}

// --- levels

bool IsIdentity(const LevelRecord& level) {
    return level.inputFloor == 0 && level.inputCeiling == 255 && level.outputFloor == 0 &&
           level.outputCeiling == 255 && level.gamma == 1.0f;
}

uint8_t LevelInput(const LevelRecord& level, int32_t value) {
    const int32_t above = value - level.inputFloor;
    const int32_t span = level.inputCeiling - level.inputFloor;
    if (span == 0) return above > 0 ? 255 : 0;
    // Only the power is rounded; the straight line is cut.
    if (level.gamma == 1.0f) return TruncateToByte(above * 255.0 / span);
    const float share = static_cast<float>(above) / static_cast<float>(span);
    if (share < 0) return 0;
    // Gamma 0 makes the exponent infinite: 0 below a share of 1.
    return TruncateToByte(std::pow(static_cast<double>(share), 1.0 / level.gamma) * 255 + 0.5);
}

uint8_t LevelOutput(const LevelRecord& level, int32_t value) {
    if (level.outputFloor == 0 && level.outputCeiling == 255) return static_cast<uint8_t>(value);
    return ToByte(level.outputFloor + (128 + value * (level.outputCeiling - level.outputFloor)) / 255);
}

ByteTable LevelMap(const LevelRecord& level) {
    ByteTable map;
    for (int32_t i = 0; i < 256; ++i) map[static_cast<size_t>(i)] = LevelOutput(level, LevelInput(level, i));
    return map;
}

// --- curves

// Draws a curve of at least two points onto the table.
void DrawCurve(ByteTable& table, const CurveRecord& curve) {
    const size_t count = std::min<size_t>(curve.pointCount, CurveRecord::kMaxPoints);
    const auto pointAt = [&](size_t i) {
        return CurvePoint{curve.points[i].output, std::min<uint16_t>(curve.points[i].input, 255)};
    };
    const CurvePoint first = pointAt(0);
    const CurvePoint last = pointAt(count - 1);
    std::fill_n(table.begin(), first.input, ToByte(first.output));
    std::fill(table.begin() + last.input, table.end(), ToByte(last.output));
    DrawSpline(table, count, pointAt);
}

// --- colour balance

struct TransferCurves {
    double fading[256];  // highlights that gain; mirrored: shadows that lose
    double hump[256];    // all others, strongest in the middle
};

constexpr TransferCurves kTransfer = [] {
    TransferCurves curves{};
    for (int i = 0; i < 256; ++i) {
        const double fromMiddle = (i - 127) / 127.0;
        curves.fading[i] = 1.075 - 1 / (i / 16.0 + 1);
        curves.hump[i] = 0.667 * (1 - fromMiddle * fromMiddle);
    }
    return curves;
}();

ByteTable BalanceTable(const BalanceValues& axis) {
    ByteTable table;
    for (int32_t i = 0; i < 256; ++i) {
        int32_t value = i;
        const auto add = [&](int32_t amount, double transfer) {
            value = ClampToByte(value + TruncateToInt32(amount * transfer));
        };
        // Each tone starts from what the one before has left.
        add(axis.shadows, axis.shadows > 0 ? kTransfer.hump[value] : kTransfer.fading[255 - value]);
        add(axis.midtones, kTransfer.hump[value]);
        add(axis.highlights, axis.highlights > 0 ? kTransfer.fading[value] : kTransfer.hump[value]);
        table[static_cast<size_t>(i)] = static_cast<uint8_t>(value);
    }
    return table;
}

// --- hue

// The four corners of a range in degrees. From where they fall on they belong to the next turn.
struct HueRamp {
    int32_t corners[4];
    bool wraps = false;

    explicit HueRamp(const HueRange& range)
        : corners{range.beginRamp, range.beginFull, range.endFull, range.endRamp} {
        for (int i = 1; i < 4; ++i) {
            if (corners[i] < corners[i - 1]) wraps = true;
            if (wraps) corners[i] += 360;
        }
    }

    // Each divisor is positive where its branch is taken.
    int32_t WeightAt(int32_t hue) const {
        const auto& [a, b, c, d] = corners;
        if (hue >= b && hue < c) return 255;
        if (hue >= a && hue < b) return (hue - a) * 255 / (b - a);
        if (hue >= c && hue < d) return (d - hue) * 255 / (d - c);
        return 0;
    }
};

}  // namespace

void BuildBrightnessTable(BrightnessRecord& record) {
    record.table = IdentityTable();
    if (record.brightness == 0 || record.contrast == 0 || record.meanValue == 0) return;
    const float mean = record.meanValue;
    const float brightness = static_cast<float>(record.brightness) / mean;
    const float contrast = static_cast<float>(record.contrast) / mean;
    const double slope = std::tan((contrast + 1.0) * 0.7853982);
    for (size_t i = 0; i < 256; ++i) {
        double x = static_cast<double>(i) * 0.003921569;
        if (brightness < 0) x = x * (brightness + 1.0);
        if (brightness > 0) x = x + (1 - x) * brightness;
        x = (x - 0.5) * slope + 0.5;
        record.table[i] = TruncateToByte(x * 255 + 0.5);
    }
}

void BuildLevelsTables(LevelsRecord& record, bool grayscale) {
    ChannelTables& tables = record.tables;
    tables = {IdentityTable(), IdentityTable(), IdentityTable()};
    const auto apply = [&](size_t index, std::initializer_list<ByteTable*> targets) {
        const LevelRecord& level = record.levels[index];
        if (IsIdentity(level)) return;
        const ByteTable map = LevelMap(level);
        for (ByteTable* table : targets) Follow(*table, map);
    };
    apply(0, {&tables.red, &tables.green, &tables.blue});
    if (grayscale) return;
    apply(1, {&tables.red});
    apply(2, {&tables.green});
    apply(3, {&tables.blue});
}

void BuildCurvesTables(CurvesRecord& record, bool grayscale) {
    ByteTable working[4] = {IdentityTable(), IdentityTable(), IdentityTable(), IdentityTable()};
    for (const CurveRecord& curve : record.curves.span()) {
        if (curve.pointCount < 2 || curve.channel > 3) continue;
        if (!grayscale) {
            DrawCurve(working[curve.channel], curve);
        } else if (curve.channel == 0) {
            DrawCurve(record.tables.red, curve);
        }
    }
    if (grayscale) return;
    for (ByteTable* table : {&record.tables.red, &record.tables.green, &record.tables.blue})
        *table = working[0];
    Follow(record.tables.red, working[1]);
    Follow(record.tables.green, working[2]);
    Follow(record.tables.blue, working[3]);
}

void BuildBalanceTables(BalanceRecord& record) {
    record.tables.red = BalanceTable(record.cyanRed);
    record.tables.green = BalanceTable(record.magentaGreen);
    record.tables.blue = BalanceTable(record.yellowBlue);
}

void BuildHueWeights(HueRecord& record) {
    for (size_t r = 0; r < HueRecord::kRangeCount; ++r) {
        const HueRange& range = record.ranges[r];
        HueWeights& weights = record.weights[r];
        weights = {};
        if (range.settings.IsZero()) continue;
        const HueRamp ramp(range);
        for (int32_t hue = 0; hue < 360; ++hue) {
            int32_t weight = ramp.WeightAt(hue);
            if (weight == 0 && ramp.wraps) weight = ramp.WeightAt(hue + 360);
            weights[static_cast<size_t>(hue)] = static_cast<uint8_t>(weight);
        }
    }
}

void BuildPosterizeTable(PosterizeRecord& record) {
    record.table = {};
    if (record.levels == 0) return;
    const float step = 255.0f / static_cast<float>(record.levels);
    const float share = 1.0f / step;
    for (int32_t i = 0; i < 256; ++i) {
        const int32_t level = TruncateToInt32(i * static_cast<double>(share) + 0.5);
        record.table[static_cast<size_t>(i)] = TruncateToByte(level * static_cast<double>(step) + 0.5);
    }
}

void BuildGradientMapTable(GradientMapRecord& record) {
    constexpr uint32_t kOpaqueBlack = 0xFF000000;
    BuildStopTable(record.table, record.colorStops.span(), kOpaqueBlack, [](const MapColorStop& stop) {
        return TableStop{static_cast<int32_t>(std::min<uint32_t>(stop.location, 4096) / 16),
                         static_cast<int32_t>(std::min<uint32_t>(stop.midpoint, 100)),
                         stop.color | kOpaqueBlack};
    });
}

}  // namespace tessary
