// What adjustment blocks say, each with the tables that drawing builds from it. Values are kept as the file
// states them; the table builders and pixel maps bring them into range.
#pragma once

#include <cstdint>

#include "document/psd_document.h"
#include "properties/curve_spline.h"

namespace tessary {

constexpr int32_t ClampToByte(int32_t value) { return value < 0 ? 0 : value > 255 ? 255 : value; }

// One table a channel.
struct ChannelTables {
    ByteTable red{};
    ByteTable green{};
    ByteTable blue{};
};

struct BrightnessRecord {
    int16_t brightness = 0;
    int16_t contrast = 0;
    int16_t meanValue = 0;
    bool labOnly = false;  // read, not applied
    ByteTable table{};
};

struct LevelRecord {
    uint16_t inputFloor = 0;
    uint16_t inputCeiling = 0;
    uint16_t outputFloor = 0;
    uint16_t outputCeiling = 0;
    float gamma = 0;
};

struct LevelsRecord {
    static constexpr uint32_t kLevelCount = 29;
    LevelRecord levels[kLevelCount];  // composite, red, green, blue, further channels
    Owned<LevelRecord> extraLevels;   // kept, not applied
    ChannelTables tables;
};

struct CurveRecord {
    static constexpr uint32_t kMaxPoints = 19;
    uint16_t channel = 0;     // 0 composite, 1 red, 2 green, 3 blue
    uint16_t pointCount = 0;  // as stated; only kMaxPoints of them are kept
    CurvePoint points[kMaxPoints];
};

struct CurvesRecord {
    uint16_t version = 0;
    Owned<CurveRecord> curves;
    ChannelTables tables;
};

struct BalanceValues {
    int16_t shadows = 0;
    int16_t midtones = 0;
    int16_t highlights = 0;
};

struct BalanceRecord {
    BalanceValues cyanRed;
    BalanceValues magentaGreen;
    BalanceValues yellowBlue;
    bool preserveLuminosity = false;  // read, not applied
    ChannelTables tables;
};

struct HueSettings {
    int16_t hue = 0;
    int16_t saturation = 0;
    int16_t lightness = 0;
    bool IsZero() const { return hue == 0 && saturation == 0 && lightness == 0; }
};

struct HueRange {
    int16_t beginRamp = 0;  // degrees, as the other three
    int16_t beginFull = 0;
    int16_t endFull = 0;
    int16_t endRamp = 0;
    HueSettings settings;
};

using HueWeights = std::array<uint8_t, 360>;

struct HueRecord {
    static constexpr uint32_t kRangeCount = 6;
    bool colorize = false;  // read, not applied, as are its settings
    HueSettings colorizeSettings;
    HueSettings master;
    HueRange ranges[kRangeCount];
    HueWeights weights[kRangeCount] = {};
};

struct InkAdjustment {
    int16_t cyan = 0;  // percent, as the other three
    int16_t magenta = 0;
    int16_t yellow = 0;
    int16_t black = 0;
    bool IsZero() const { return cyan == 0 && magenta == 0 && yellow == 0 && black == 0; }
};

struct SelectiveRecord {
    enum { kReserved, kReds, kYellows, kGreens, kCyans, kBlues, kMagentas, kWhites, kNeutrals, kBlacks };
    static constexpr uint32_t kInkCount = 10;
    bool absolute = false;
    InkAdjustment inks[kInkCount];
};

struct ThresholdRecord {
    uint16_t level = 0;
};

struct PosterizeRecord {
    uint16_t levels = 0;
    ByteTable table{};
};

// What one output channel takes from each input channel, in percent.
struct MixerRow {
    int16_t red = 0;
    int16_t green = 0;
    int16_t blue = 0;
    int16_t black = 0;
    int16_t constant = 0;
};

struct MixerRecord {
    enum { kRed, kGreen, kBlue, kBlack };
    static constexpr uint32_t kRowCount = 4;
    bool monochrome = false;
    MixerRow rows[kRowCount];
};

struct MapColorStop {
    uint32_t location = 0;  // 0..4096
    uint32_t midpoint = 0;  // percent of the way to the next stop
    uint32_t color = 0;     // ARGB
};

struct MapTransparencyStop {
    uint32_t location = 0;
    uint32_t midpoint = 0;
    uint16_t opacity = 0;
};

struct GradientMapRecord {
    bool reverse = false;
    bool dither = false;
    PsdUnicodeString name;
    Owned<MapColorStop> colorStops;
    Owned<MapTransparencyStop> transparencyStops;  // this and what follows: kept, not applied
    uint16_t expansionCount = 0;
    uint16_t interpolation = 0;
    uint16_t length = 0;
    uint16_t mode = 0;
    uint32_t randomSeed = 0;
    bool showTransparency = false;
    bool useVectorColor = false;
    uint32_t roughness = 0;
    uint16_t colorModel = 0;
    uint16_t minimumColor[4] = {};
    uint16_t maximumColor[4] = {};
    std::array<uint32_t, 256> table{};
};

// Kept, never applied.
struct PhotoFilterRecord {
    uint16_t version = 0;
    int32_t xyz[3] = {};      // version 3
    uint16_t colorSpace = 0;  // version 2, as the components
    uint16_t components[4] = {};
    uint32_t density = 0;
    bool preserveLuminosity = false;
};

}  // namespace tessary
