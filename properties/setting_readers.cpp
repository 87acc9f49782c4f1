#include "properties/setting_readers.h"

#include <algorithm>
#include <cmath>

#include "document/big_endian.h"
#include "document/byte_reader.h"
#include "render/color_convert.h"

namespace tessary {
namespace {

constexpr struct {
    std::string_view key;
    PsdBlendMode mode;
} kBlendModes[] = {
    {"Nrml", kBlendNormal},
    {"Dslv", kBlendDissolve},
    {"Drkn", kBlendDarken},
    {"Mltp", kBlendMultiply},
    {"CBrn", kBlendColorBurn},
    {"linearBurn", kBlendLinearBurn},
    {"Lghn", kBlendLighten},
    {"Scrn", kBlendScreen},
    {"CDdg", kBlendColorDodge},
    {"linearDodge", kBlendLinearDodge},
    {"Ovrl", kBlendOverlay},
    {"SftL", kBlendSoftLight},
    {"HrdL", kBlendHardLight},
    {"vividLight", kBlendVividLight},
    {"linearLight", kBlendLinearLight},
    {"pinLight", kBlendPinLight},
    {"hardMix", kBlendHardMix},
    {"Dfrn", kBlendDifference},
    {"Xclu", kBlendExclusion},
    {"H   ", kBlendHue},
    {"Strt", kBlendSaturation},
    {"Clr ", kBlendColor},
    {"Lmns", kBlendLuminosity},
};

// The components of all colour classes; which of them count is the class's matter.
struct ColorComponents {
    double first = 0;
    double second = 0;
    double third = 0;
    double fourth = 0;
};

template <double ColorComponents::*component>
constexpr auto kComponent = Into<component, ReadNumberValue>;

constexpr DescriptorItemRow kRgbItems[] = {{"Rd  ", kComponent<&ColorComponents::first>},
                                           {"Grn ", kComponent<&ColorComponents::second>},
                                           {"Bl  ", kComponent<&ColorComponents::third>}};
constexpr DescriptorItemRow kCmykItems[] = {{"Cyn ", kComponent<&ColorComponents::first>},
                                            {"Mgnt", kComponent<&ColorComponents::second>},
                                            {"Ylw ", kComponent<&ColorComponents::third>},
                                            {"Blck", kComponent<&ColorComponents::fourth>}};
constexpr DescriptorItemRow kHsbItems[] = {{"H   ", kComponent<&ColorComponents::first>},
                                           {"Strt", kComponent<&ColorComponents::second>},
                                           {"Brgh", kComponent<&ColorComponents::third>}};
constexpr DescriptorItemRow kLabItems[] = {{"Lmnc", kComponent<&ColorComponents::first>},
                                           {"A   ", kComponent<&ColorComponents::second>},
                                           {"B   ", kComponent<&ColorComponents::third>}};
constexpr DescriptorItemRow kGrayItems[] = {{"Gry ", kComponent<&ColorComponents::first>}};

uint32_t RoundedByte(double value) { return static_cast<uint32_t>(LimitSetting(value + 0.5, 0, 255)); }

uint32_t RgbColor(const ColorComponents& c) {
    return PackPixel(255, RoundedByte(c.first), RoundedByte(c.second), RoundedByte(c.third));
}
uint32_t CmykColor(const ColorComponents& c) {
    return CmykToArgb(c.first * 0.01, c.second * 0.01, c.third * 0.01, c.fourth * 0.01);
}
uint32_t HsbColor(const ColorComponents& c) {
    return HsbToArgb(255, TruncateToInt32(c.first), c.second * 0.01, c.third * 0.01);
}
uint32_t LabColor(const ColorComponents& c) {
    return LabToArgb(255, TruncateToInt32(c.first), TruncateToInt32(c.second), TruncateToInt32(c.third));
}
// Stored as ink: 100 is black.
uint32_t GrayColor(const ColorComponents& c) { return HsbToArgb(255, 0, 0, 1 - c.first * 0.01); }

constexpr struct {
    std::string_view classId;
    std::span<const DescriptorItemRow> items;
    uint32_t (*convert)(const ColorComponents& components);
} kColorClasses[] = {
    {"RGBC", kRgbItems, RgbColor}, {"CMYC", kCmykItems, CmykColor}, {"HSBC", kHsbItems, HsbColor},
    {"LbCl", kLabItems, LabColor}, {"Grsc", kGrayItems, GrayColor},
};

// False when the item holds no number; its value is passed over then.
bool ReadNumber(PsdDocument& document, uint32_t type, double& value) {
    switch (type) {
    case FourCC("UntF"): Skip(document, 4); [[fallthrough]];
    case FourCC("doub"): value = ReadDouble(document); return true;
    case FourCC("long"): value = ReadI32(document); return true;
    default: SkipItem(document, type); return false;
    }
}

PsdReadResult ReadStopKind(PsdDocument& document, uint32_t type, GradientColorStop::Kind& kind) {
    PsdItemKey value;
    if (!ReadEnumValue(document, type, value)) return PsdReadResult::kOk;
    kind = value == "FrgC"   ? GradientColorStop::kForegroundColor
           : value == "BckC" ? GradientColorStop::kBackgroundColor
                             : GradientColorStop::kUserColor;
    return PsdReadResult::kOk;
}

template <uint32_t limit>
PsdReadResult ReadUpTo(PsdDocument& document, uint32_t type, uint32_t& value) {
    int32_t limited = static_cast<int32_t>(value);
    const PsdReadResult result = ReadLimitedValue(document, type, 0, static_cast<int32_t>(limit), limited);
    value = static_cast<uint32_t>(limited);
    return result;
}

constexpr DescriptorItemRow kColorStopItems[] = {
    {"Clr ", Into<&GradientColorStop::color, ReadColorObject>},
    {"Type", Into<&GradientColorStop::kind, ReadStopKind>},
    {"Lctn", Into<&GradientColorStop::location, ReadUpTo<4096>>},
    {"Mdpn", Into<&GradientColorStop::midpoint, ReadUpTo<100>>},
};
constexpr DescriptorItemRow kOpacityStopItems[] = {
    {"Opct", Into<&GradientOpacityStop::opacity, ReadPercentValue>},
    {"Lctn", Into<&GradientOpacityStop::location, ReadUpTo<4096>>},
    {"Mdpn", Into<&GradientOpacityStop::midpoint, ReadUpTo<100>>},
};

PsdReadResult ReadByteValue(PsdDocument& document, uint32_t type, uint8_t& value) {
    int32_t limited = value;
    const PsdReadResult result = ReadLimitedValue(document, type, 0, 255, limited);
    value = static_cast<uint8_t>(limited);
    return result;
}
constexpr DescriptorItemRow kContourPointItems[] = {
    {"Hrzn", Into<&ContourPoint::x, ReadByteValue>},
    {"Vrtc", Into<&ContourPoint::y, ReadByteValue>},
    {"Cnty", Into<&ContourPoint::isSmooth, ReadFlagValue>},
};

template <class T, auto& rows>
PsdReadResult ReadElement(PsdDocument& document, uint32_t type, void* list) {
    if (!IsObject(type)) {
        SkipItem(document, type);
        return PsdReadResult::kOk;
    }
    T* element = static_cast<SettingList<T>*>(list)->Append();
    if (!element) return PsdReadResult::kOutOfMemory;
    return ReadObject(document, type, rows, element);
}

template <class T, auto& rows>
PsdReadResult ReadListOf(PsdDocument& document, uint32_t type, SettingList<T>& list) {
    if (type != FourCC("VlLs")) {
        SkipItem(document, type);
        return PsdReadResult::kOk;
    }
    return ReadListElements(document, ReadElement<T, rows>, &list);
}

PsdReadResult ReadGradientForm(PsdDocument& document, uint32_t type, bool& isNoise) {
    PsdItemKey value;
    if (ReadEnumValue(document, type, value)) isNoise = value == "ClNs";
    return PsdReadResult::kOk;
}

constexpr DescriptorItemRow kGradientItems[] = {
    {"Nm  ", Into<&GradientSettings::name, ReadTextValue>},
    {"GrdF", Into<&GradientSettings::isNoise, ReadGradientForm>},
    {"Intr", Into<&GradientSettings::interpolation, ReadLimited<0, 4096>>},
    {"Clrs", Into<&GradientSettings::colorStops, ReadListOf<GradientColorStop, kColorStopItems>>},
    {"Trns", Into<&GradientSettings::opacityStops, ReadListOf<GradientOpacityStop, kOpacityStopItems>>},
};
constexpr DescriptorItemRow kContourItems[] = {
    {"Nm  ", Into<&ContourSettings::name, ReadTextValue>},
    {"Crv ", Into<&ContourSettings::points, ReadListOf<ContourPoint, kContourPointItems>>},
};
constexpr DescriptorItemRow kPatternItems[] = {
    {"Nm  ", Into<&PatternSettings::name, ReadTextValue>},
    {"Idnt", Into<&PatternSettings::identifier, ReadTextValue>},
};
constexpr DescriptorItemRow kOffsetItems[] = {
    {"Hrzn", Into<&OffsetSettings::horizontal, ReadNumberValue>},
    {"Vrtc", Into<&OffsetSettings::vertical, ReadNumberValue>},
};

}  // namespace

PsdReadResult ReadFlagValue(PsdDocument& document, uint32_t type, bool& value) {
    if (type == FourCC("bool")) {
        value = ReadBool(document);
    } else {
        SkipItem(document, type);
    }
    return PsdReadResult::kOk;
}

PsdReadResult ReadNumberValue(PsdDocument& document, uint32_t type, double& value) {
    ReadNumber(document, type, value);
    return PsdReadResult::kOk;
}

PsdReadResult ReadIntegerValue(PsdDocument& document, uint32_t type, int32_t& value) {
    double number = value;
    ReadNumber(document, type, number);
    value = TruncateToInt32(number);
    return PsdReadResult::kOk;
}

int32_t LimitSetting(double value, int32_t low, int32_t high) {
    if (std::isnan(value)) return std::clamp(0, low, high);
    return static_cast<int32_t>(
        std::clamp(std::trunc(value), static_cast<double>(low), static_cast<double>(high)));
}

PsdReadResult ReadLimitedValue(PsdDocument& document, uint32_t type, int32_t low, int32_t high,
                               int32_t& value) {
    double number = value;
    ReadNumber(document, type, number);
    value = LimitSetting(number, low, high);
    return PsdReadResult::kOk;
}

uint8_t OpacityFromPercent(double percent) {
    return static_cast<uint8_t>(LimitSetting(percent * 2.55 + 0.5, 0, 255));
}

PsdReadResult ReadPercentValue(PsdDocument& document, uint32_t type, uint8_t& value) {
    double percent = 0;
    if (ReadNumber(document, type, percent)) value = OpacityFromPercent(percent);
    return PsdReadResult::kOk;
}

bool ReadEnumValue(PsdDocument& document, uint32_t type, PsdItemKey& value) {
    if (type != FourCC("enum")) {
        SkipItem(document, type);
        return false;
    }
    SkipIdString(document);
    ReadItemKey(document, value);
    return true;
}

PsdReadResult ReadBlendModeValue(PsdDocument& document, uint32_t type, PsdBlendMode& value) {
    PsdItemKey key;
    if (!ReadEnumValue(document, type, key)) return PsdReadResult::kOk;
    value = kBlendNormal;
    for (const auto& row : kBlendModes) {
        if (key == row.key) value = row.mode;
    }
    return PsdReadResult::kOk;
}

PsdReadResult ReadGradientStyleValue(PsdDocument& document, uint32_t type, GradientStyle& value) {
    PsdItemKey key;
    if (!ReadEnumValue(document, type, key)) return PsdReadResult::kOk;
    value = key == "Rdl "   ? GradientStyle::kRadial
            : key == "Angl" ? GradientStyle::kAngle
            : key == "Rflc" ? GradientStyle::kReflected
            : key == "Dmnd" ? GradientStyle::kDiamond
                            : GradientStyle::kLinear;
    return PsdReadResult::kOk;
}

PsdReadResult ReadLongText(PsdDocument& document, PsdUnicodeString& value) {
    const uint32_t units = BytesOfLength(uint64_t{2} * ReadU32(document)) / 2;
    const uint32_t kept = std::min(units, kMaxUnicodeUnits);
    value.length = 0;
    value.bytes = AllocateZeroed<uint8_t>({kept + uint64_t{1}, 2});
    if (!value.bytes) return PsdReadResult::kOutOfMemory;
    value.length = kept;
    Read(document, value.bytes.get(), size_t{2} * kept);
    Skip(document, static_cast<int32_t>(2 * (units - kept)));
    return PsdReadResult::kOk;
}

PsdReadResult ReadTextValue(PsdDocument& document, uint32_t type, PsdUnicodeString& value) {
    if (type == FourCC("TEXT")) return ReadLongText(document, value);
    SkipItem(document, type);
    return PsdReadResult::kOk;
}

bool IsObject(uint32_t type) { return type == FourCC("Objc") || type == FourCC("GlbO"); }

PsdReadResult ReadObject(PsdDocument& document, uint32_t type, std::span<const DescriptorItemRow> rows,
                         void* record) {
    if (!IsObject(type)) {
        SkipItem(document, type);
        return PsdReadResult::kOk;
    }
    SkipNameAndClass(document);
    return ReadDescriptorItems(document, rows, record);
}

void SkipNameAndClass(PsdDocument& document) {
    SkipUnicodeString(document);
    SkipIdString(document);
}

PsdReadResult ReadColorDescriptor(PsdDocument& document, uint32_t& color) {
    SkipUnicodeString(document);
    PsdItemKey classId;
    ReadItemKey(document, classId);
    for (const auto& row : kColorClasses) {
        if (!(classId == row.classId)) continue;
        ColorComponents components;
        const PsdReadResult result = ReadDescriptorItems(document, row.items, &components);
        color = row.convert(components);
        return result;
    }
    return ReadDescriptorItems(document, {}, nullptr);
}

PsdReadResult ReadColorObject(PsdDocument& document, uint32_t type, uint32_t& color) {
    if (!IsObject(type)) {
        SkipItem(document, type);
        return PsdReadResult::kOk;
    }
    return ReadColorDescriptor(document, color);
}

PsdReadResult ReadGradientObject(PsdDocument& document, uint32_t type, GradientSettings& gradient) {
    gradient = {};
    return ReadObject(document, type, kGradientItems, &gradient);
}
PsdReadResult ReadContourObject(PsdDocument& document, uint32_t type, ContourSettings& contour) {
    contour = {};
    return ReadObject(document, type, kContourItems, &contour);
}
PsdReadResult ReadPatternObject(PsdDocument& document, uint32_t type, PatternSettings& pattern) {
    return ReadObject(document, type, kPatternItems, &pattern);
}
PsdReadResult ReadOffsetObject(PsdDocument& document, uint32_t type, OffsetSettings& offset) {
    return ReadObject(document, type, kOffsetItems, &offset);
}

}  // namespace tessary
