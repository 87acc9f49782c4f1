// Readers of descriptor values that fills and effects share. Each consumes one item's value; a value of a
// type that the reader does not expect is passed over and leaves the setting as it was.
#pragma once

#include <algorithm>
#include <cstdint>

#include "document/descriptor.h"
#include "properties/setting_records.h"

namespace tessary {

PsdReadResult ReadFlagValue(PsdDocument& document, uint32_t type, bool& value);

// A number with or without a unit.
PsdReadResult ReadNumberValue(PsdDocument& document, uint32_t type, double& value);

// The same, limited to a range; not a number counts as its lower end.
template <int32_t low, int32_t high>
PsdReadResult ReadNumberWithin(PsdDocument& document, uint32_t type, double& value) {
    const PsdReadResult result = ReadNumberValue(document, type, value);
    value = value > low ? std::min(value, static_cast<double>(high)) : low;
    return result;
}

// A number truncated toward zero; not a number counts as 0.
PsdReadResult ReadIntegerValue(PsdDocument& document, uint32_t type, int32_t& value);

// The same, limited to a range.
PsdReadResult ReadLimitedValue(PsdDocument& document, uint32_t type, int32_t low, int32_t high,
                               int32_t& value);
template <int32_t low, int32_t high>
PsdReadResult ReadLimited(PsdDocument& document, uint32_t type, int32_t& value) {
    return ReadLimitedValue(document, type, low, high, value);
}
int32_t LimitSetting(double value, int32_t low, int32_t high);

// Percent to 0..255.
PsdReadResult ReadPercentValue(PsdDocument& document, uint32_t type, uint8_t& value);
uint8_t OpacityFromPercent(double percent);

// The value of an enumeration; false when the item is of another type. The type of the enumeration is not
// looked at.
bool ReadEnumValue(PsdDocument& document, uint32_t type, PsdItemKey& value);

PsdReadResult ReadBlendModeValue(PsdDocument& document, uint32_t type, PsdBlendMode& value);
PsdReadResult ReadGradientStyleValue(PsdDocument& document, uint32_t type, GradientStyle& value);
PsdReadResult ReadGradientMethodValue(PsdDocument& document, uint32_t type, GradientMethod& value);

// A Unicode string of any length: its first units are kept, the rest is passed over.
PsdReadResult ReadLongText(PsdDocument& document, PsdUnicodeString& value);
PsdReadResult ReadTextValue(PsdDocument& document, uint32_t type, PsdUnicodeString& value);

// A colour object, ARGB. ReadColorDescriptor starts behind the type.
PsdReadResult ReadColorObject(PsdDocument& document, uint32_t type, uint32_t& color);
PsdReadResult ReadColorDescriptor(PsdDocument& document, uint32_t& color);

PsdReadResult ReadGradientObject(PsdDocument& document, uint32_t type, GradientSettings& gradient);
PsdReadResult ReadContourObject(PsdDocument& document, uint32_t type, ContourSettings& contour);
PsdReadResult ReadPatternObject(PsdDocument& document, uint32_t type, PatternSettings& pattern);
PsdReadResult ReadOffsetObject(PsdDocument& document, uint32_t type, OffsetSettings& offset);

// Reads an object's items by rows; an item that is no object is passed over.
PsdReadResult ReadObject(PsdDocument& document, uint32_t type, std::span<const DescriptorItemRow> rows,
                         void* record);
bool IsObject(uint32_t type);

// What stands before the items of a descriptor: the version it has in a block, then name and class.
constexpr uint32_t kDescriptorVersion = 16;
void SkipNameAndClass(PsdDocument& document);

// Glues a member of a record and the reader of its value into the function of a row.
template <class Member>
struct MemberOf;
template <class Record, class Value>
struct MemberOf<Value Record::*> {
    using RecordType = Record;
};
template <auto member, auto reader>
PsdReadResult Into(PsdDocument& document, uint32_t type, void* record) {
    using Record = typename MemberOf<decltype(member)>::RecordType;
    return reader(document, type, static_cast<Record*>(record)->*member);
}

}  // namespace tessary
