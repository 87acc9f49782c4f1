#include "properties/adjustment_readers.h"

#include <algorithm>
#include <bit>

#include "document/big_endian.h"
#include "document/byte_reader.h"
#include "properties/setting_readers.h"

namespace tessary {
namespace {

// Whether the block goes on behind its fixed fields. Up to four bytes are padding.
bool HasExtraPart(const PsdDocument& document, const AdjustmentBlock& block) {
    return BytesUntil(document, block.end) > 4;
}

// Flags stored in 16 bits, of which only the low byte is one.
bool ReadLowByteFlag(PsdDocument& document) { return (ReadU16(document) & 255) != 0; }

// Calls `readElement(i)` for each of `count` elements, but not on and on where the input has ended: elements
// that consume nothing are all alike, and the zeros that the first one got stand for the rest.
template <class ReadElement>
void ReadEach(PsdDocument& document, uint32_t count, ReadElement readElement) {
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t before = Position(document);
        readElement(i);
        if (Position(document) == before) break;
    }
}

LevelRecord ReadLevel(PsdDocument& document) {
    LevelRecord level;
    level.inputFloor = ReadU16(document);
    level.inputCeiling = ReadU16(document);
    level.outputFloor = ReadU16(document);
    level.outputCeiling = ReadU16(document);
    level.gamma = static_cast<float>(ReadU16(document) * 0.01);
    return level;
}

CurvePoint ReadCurvePoint(PsdDocument& document) {
    CurvePoint point;
    point.output = ReadU16(document);
    point.input = ReadU16(document);
    return point;
}

void ReadCurve(PsdDocument& document, CurveRecord& curve) {
    curve.pointCount = ReadU16(document);
    ReadEach(document, curve.pointCount, [&](uint32_t i) {
        const CurvePoint point = ReadCurvePoint(document);
        if (i < CurveRecord::kMaxPoints) curve.points[i] = point;
    });
}

// Reads a curve's second copy. Its channel counts; everything else must be what the first copy says, as far
// as that was kept. False on the first difference.
bool ReadCurveCopy(PsdDocument& document, CurveRecord& curve) {
    curve.channel = ReadU16(document);
    if (ReadU16(document) != curve.pointCount) return false;
    const uint32_t kept = std::min<uint32_t>(curve.pointCount, CurveRecord::kMaxPoints);
    for (uint32_t i = 0; i < kept; ++i) {
        if (ReadCurvePoint(document) != curve.points[i]) return false;
    }
    ReadEach(document, curve.pointCount - kept, [&](uint32_t) { ReadCurvePoint(document); });
    return true;
}

void ReadHueSettings(PsdDocument& document, HueSettings& settings) {
    settings.hue = ReadI16(document);
    settings.saturation = ReadI16(document);
    settings.lightness = ReadI16(document);
}

}  // namespace

PsdReadResult ReadLevels(PsdDocument& document, LevelsRecord& levels, AdjustmentBlock& block) {
    if (ReadU16(document) != 2) return PsdReadResult::kBadLevelsVersion;
    for (LevelRecord& level : levels.levels) level = ReadLevel(document);
    if (HasExtraPart(document, block)) {
        uint32_t signature = 0;
        if (!ReadKey(document, signature) || signature != FourCC("Lvls"))
            return PsdReadResult::kBadLevelsSignature;
        if (ReadU16(document) != 3) return PsdReadResult::kBadLevelsExtraVersion;
        const uint32_t total = ReadU16(document);
        const uint32_t extra = std::max(total, LevelsRecord::kLevelCount) - LevelsRecord::kLevelCount;
        levels.extraLevels = AllocateZeroed<LevelRecord>({extra});
        if (!levels.extraLevels) return PsdReadResult::kOutOfMemory;
        ReadEach(document, extra, [&](uint32_t i) { levels.extraLevels[i] = ReadLevel(document); });
    }
    SkipTo(document, block.end);
    return Position(document) == block.end ? PsdReadResult::kOk : PsdReadResult::kBadLevelsEnd;
}

PsdReadResult ReadCurves(PsdDocument& document, CurvesRecord& curves, AdjustmentBlock& block) {
    Skip(document, 1);
    curves.version = ReadU16(document);
    if (curves.version != 1 && curves.version != 4) return PsdReadResult::kBadCurvesVersion;
    const uint32_t channels = ReadU32(document);
    const uint32_t count = static_cast<uint32_t>(std::popcount(channels));
    curves.curves = AllocateZeroed<CurveRecord>({count});
    if (!curves.curves) return PsdReadResult::kOutOfMemory;
    uint32_t next = 0;
    for (uint16_t channel = 0; channel < 32; ++channel) {
        if (!(channels >> channel & 1)) continue;
        CurveRecord& curve = curves.curves[next++];
        curve.channel = channel;
        ReadCurve(document, curve);
    }
    if (!HasExtraPart(document, block)) return PsdReadResult::kOk;

    uint32_t signature = 0;
    if (!ReadKey(document, signature) || signature != FourCC("Crv "))
        return PsdReadResult::kBadCurvesSignature;
    if (ReadU16(document) != 4) return PsdReadResult::kBadCurvesExtraVersion;
    block.rebuildTables = false;
    if (ReadU32(document) != count) return PsdReadResult::kOk;
    for (CurveRecord& curve : curves.curves.span()) {
        if (!ReadCurveCopy(document, curve)) return PsdReadResult::kOk;
    }
    block.rebuildTables = true;
    return PsdReadResult::kOk;
}

PsdReadResult ReadBrightness(PsdDocument& document, BrightnessRecord& brightness, AdjustmentBlock&) {
    brightness.brightness = ReadI16(document);
    brightness.contrast = ReadI16(document);
    brightness.meanValue = ReadI16(document);
    brightness.labOnly = ReadBool(document);
    return PsdReadResult::kOk;
}

PsdReadResult ReadBalance(PsdDocument& document, BalanceRecord& balance, AdjustmentBlock&) {
    // The file goes by tone, the record by axis, because each axis has a table of its own.
    for (int16_t BalanceValues::*tone :
         {&BalanceValues::shadows, &BalanceValues::midtones, &BalanceValues::highlights}) {
        balance.cyanRed.*tone = ReadI16(document);
        balance.magentaGreen.*tone = ReadI16(document);
        balance.yellowBlue.*tone = ReadI16(document);
    }
    balance.preserveLuminosity = ReadLowByteFlag(document);
    return PsdReadResult::kOk;
}

PsdReadResult ReadHue(PsdDocument& document, HueRecord& hue, AdjustmentBlock&) {
    if (ReadU16(document) != 2) return PsdReadResult::kBadHueVersion;
    hue.colorize = ReadBool(document);
    Skip(document, 1);
    ReadHueSettings(document, hue.colorizeSettings);
    ReadHueSettings(document, hue.master);
    for (HueRange& range : hue.ranges) {
        range.beginRamp = ReadI16(document);
        range.beginFull = ReadI16(document);
        range.endFull = ReadI16(document);
        range.endRamp = ReadI16(document);
        ReadHueSettings(document, range.settings);
    }
    return PsdReadResult::kOk;
}

PsdReadResult ReadSelective(PsdDocument& document, SelectiveRecord& selective, AdjustmentBlock&) {
    if (ReadU16(document) != 1) return PsdReadResult::kBadSelectiveVersion;
    selective.absolute = ReadU16(document) == 1;
    for (InkAdjustment& ink : selective.inks) {
        ink.cyan = ReadI16(document);
        ink.magenta = ReadI16(document);
        ink.yellow = ReadI16(document);
        ink.black = ReadI16(document);
    }
    return PsdReadResult::kOk;
}

PsdReadResult ReadThreshold(PsdDocument& document, ThresholdRecord& threshold, AdjustmentBlock&) {
    threshold.level = ReadU16(document);
    Skip(document, 2);
    return PsdReadResult::kOk;
}

PsdReadResult ReadPosterize(PsdDocument& document, PosterizeRecord& posterize, AdjustmentBlock&) {
    posterize.levels = ReadU16(document);
    Skip(document, 2);
    return PsdReadResult::kOk;
}

PsdReadResult ReadMixer(PsdDocument& document, MixerRecord& mixer, AdjustmentBlock&) {
    if (ReadU16(document) != 1) return PsdReadResult::kBadMixerVersion;
    mixer.monochrome = ReadLowByteFlag(document);
    for (MixerRow& row : mixer.rows) {
        row.red = ReadI16(document);
        row.green = ReadI16(document);
        row.blue = ReadI16(document);
        row.black = ReadI16(document);
        row.constant = ReadI16(document);
    }
    return PsdReadResult::kOk;
}

PsdReadResult ReadGradientMap(PsdDocument& document, GradientMapRecord& map, AdjustmentBlock&) {
    if (ReadU16(document) != 1) return PsdReadResult::kBadGradientMapVersion;
    map.reverse = ReadBool(document);
    map.dither = ReadBool(document);
    const PsdReadResult nameResult = ReadLongText(document, map.name);
    if (nameResult != PsdReadResult::kOk) return nameResult;

    map.colorStops = AllocateZeroed<MapColorStop>({ReadU16(document)});
    if (!map.colorStops) return PsdReadResult::kOutOfMemory;
    ReadEach(document, static_cast<uint32_t>(map.colorStops.count()), [&](uint32_t i) {
        MapColorStop& stop = map.colorStops[i];
        stop.location = ReadU32(document);
        stop.midpoint = ReadU32(document);
        stop.color = ReadColor(document);
        Skip(document, 2);
    });
    map.transparencyStops = AllocateZeroed<MapTransparencyStop>({ReadU16(document)});
    if (!map.transparencyStops) return PsdReadResult::kOutOfMemory;
    ReadEach(document, static_cast<uint32_t>(map.transparencyStops.count()), [&](uint32_t i) {
        MapTransparencyStop& stop = map.transparencyStops[i];
        stop.location = ReadU32(document);
        stop.midpoint = ReadU32(document);
        stop.opacity = ReadU16(document);
    });

    map.expansionCount = ReadU16(document);
    map.interpolation = ReadU16(document);
    map.length = ReadU16(document);
    map.mode = ReadU16(document);
    map.randomSeed = ReadU32(document);
    map.showTransparency = ReadU16(document) != 0;
    map.useVectorColor = ReadU16(document) != 0;
    map.roughness = ReadU32(document);
    map.colorModel = ReadU16(document);
    for (uint16_t& component : map.minimumColor) component = ReadU16(document);
    for (uint16_t& component : map.maximumColor) component = ReadU16(document);
    Skip(document, 2);
    return PsdReadResult::kOk;
}

PsdReadResult ReadPhotoFilter(PsdDocument& document, PhotoFilterRecord& filter, AdjustmentBlock& block) {
    const auto reaches = [&](int32_t bytes) { return BytesUntil(document, block.end) >= bytes; };
    if (reaches(2)) filter.version = ReadU16(document);
    if (filter.version == 3) {
        for (int32_t& value : filter.xyz) value = reaches(4) ? ReadI32(document) : 0;
    } else if (filter.version == 2) {
        if (reaches(2)) filter.colorSpace = ReadU16(document);
        for (uint16_t& component : filter.components)
            component = reaches(2) ? ReadU16(document) : uint16_t{0};
    } else {
        return PsdReadResult::kOk;
    }
    if (reaches(4)) filter.density = ReadU32(document);
    if (reaches(1)) filter.preserveLuminosity = ReadBool(document);
    return PsdReadResult::kOk;
}

}  // namespace tessary
