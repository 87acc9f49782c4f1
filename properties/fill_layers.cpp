#include "properties/fill_layers.h"

#include "document/byte_reader.h"
#include "properties/setting_readers.h"

namespace tessary {
namespace {

constexpr DescriptorItemRow kGradientFillItems[] = {
    {"Algn", Into<&GradientFill::align, ReadFlagValue>},
    {"Angl", Into<&GradientFill::angleDegrees, ReadNumberValue>},
    {"Dthr", Into<&GradientFill::dither, ReadFlagValue>},
    {"Grad", Into<&GradientFill::gradient, ReadGradientObject>},
    {"Ofst", Into<&GradientFill::offset, ReadOffsetObject>},
    {"Rvrs", Into<&GradientFill::reverse, ReadFlagValue>},
    {"Scl ", Into<&GradientFill::scalePercent, ReadIntegerValue>},
    {"Type", Into<&GradientFill::style, ReadGradientStyleValue>},
};
constexpr DescriptorItemRow kPatternFillItems[] = {
    {"Ptrn", Into<&PatternFill::pattern, ReadPatternObject>},
    {"Scl ", Into<&PatternFill::scalePercent, ReadIntegerValue>},
};

template <class Record>
PsdReadResult ReadFillDescriptor(PsdDocument& document, PsdLayer& layer, PsdPropertyCode code,
                                 PsdLayerKind kind, PsdReadResult badVersion,
                                 std::span<const DescriptorItemRow> rows) {
    Record* record = AppendProperty<Record>(layer, code);
    if (!record) return PsdReadResult::kOutOfMemory;
    layer.layerKind = kind;
    if (ReadU32(document) != kDescriptorVersion) return badVersion;
    SkipNameAndClass(document);
    return ReadDescriptorItems(document, rows, record);
}

}  // namespace

PsdReadResult ReadSolidFill(PsdDocument& document, PsdLayer& layer) {
    SolidFill* fill = AppendProperty<SolidFill>(layer, kPropertySolidFill);
    if (!fill) return PsdReadResult::kOutOfMemory;
    layer.layerKind = kLayerSolidFill;
    if (ReadU32(document) != kDescriptorVersion) return PsdReadResult::kBadSolidFillVersion;
    SkipUnicodeString(document);
    // A fixed shape: the class id, then the single item, whatever its key says.
    Skip(document, 4);
    fill->classId = ReadU32(document);
    Skip(document, 4 + 4 + 4);  // item count, length of the key, key
    Skip(document, 4);          // type
    return ReadColorDescriptor(document, fill->color);
}

PsdReadResult ReadGradientFill(PsdDocument& document, PsdLayer& layer) {
    return ReadFillDescriptor<GradientFill>(document, layer, kPropertyGradientFill, kLayerGradientFill,
                                            PsdReadResult::kBadGradientFillVersion, kGradientFillItems);
}

PsdReadResult ReadPatternFill(PsdDocument& document, PsdLayer& layer) {
    return ReadFillDescriptor<PatternFill>(document, layer, kPropertyPatternFill, kLayerPatternFill,
                                           PsdReadResult::kBadPatternFillVersion, kPatternFillItems);
}

}  // namespace tessary
