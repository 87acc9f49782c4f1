#include "properties/property_readers.h"

#include "document/big_endian.h"
#include "document/byte_reader.h"
#include "properties/adjustment_readers.h"
#include "properties/effect_blocks.h"
#include "properties/effect_settings.h"
#include "properties/fill_layers.h"

namespace tessary {
namespace {

// Appends the property and reads its fields. `end` is the position behind the block.
using PropertyReader = PsdReadResult (*)(PsdDocument& document, PsdLayer& layer, uint32_t propertyCode,
                                         uint32_t end);

constexpr uint32_t kKindUnchanged = kLayerOrdinary;

struct PropertyRow {
    uint32_t key;
    uint32_t propertyCode;
    uint32_t layerKind;  // what the layer becomes, or kKindUnchanged
    PropertyReader reader;
};

void BecomeAdjustment(PsdLayer& layer, bool rebuildTables) {
    layer.hasAdjustment = true;
    // An earlier block of the layer may have set it already, and that stays.
    if (rebuildTables) layer.rebuildTables = true;
}

template <class Record, PsdReadResult (*Read)(PsdDocument&, Record&, AdjustmentBlock&)>
PsdReadResult ReadAdjustment(PsdDocument& document, PsdLayer& layer, uint32_t propertyCode, uint32_t end) {
    Record* record = AppendProperty<Record>(layer, propertyCode);
    if (!record) return PsdReadResult::kOutOfMemory;
    AdjustmentBlock block;
    block.end = end;
    const PsdReadResult result = Read(document, *record, block);
    if (result == PsdReadResult::kOk) BecomeAdjustment(layer, block.rebuildTables);
    return result;
}

// An adjustment without settings: an entry without a record, nothing read.
PsdReadResult AppendBareAdjustment(PsdDocument&, PsdLayer& layer, uint32_t propertyCode, uint32_t) {
    layer.propertyList.entries[layer.propertyList.count++].propertyCode = propertyCode;
    BecomeAdjustment(layer, true);
    return PsdReadResult::kOk;
}

// A reader that appends its record and sets the layer's kind itself.
template <PsdReadResult (*Read)(PsdDocument&, PsdLayer&)>
PsdReadResult ReadSettings(PsdDocument& document, PsdLayer& layer, uint32_t, uint32_t) {
    return Read(document, layer);
}

bool TakeLastRecord(PsdDocument& document, const PsdLayer& layer) {
    const uint64_t bytes = layer.propertyList.entries[layer.propertyList.count - 1].recordBytes;
    return TakeRecord(document.allowance, bytes, document.reader.delivered);
}

constexpr PropertyRow kPropertyRows[] = {
    {FourCC("levl"), kPropertyLevels, kLayerLevels, ReadAdjustment<LevelsRecord, ReadLevels>},
    {FourCC("curv"), kPropertyCurves, kLayerCurves, ReadAdjustment<CurvesRecord, ReadCurves>},
    {FourCC("brit"), kPropertyBrightness, kLayerBrightness, ReadAdjustment<BrightnessRecord, ReadBrightness>},
    {FourCC("blnc"), kPropertyBalance, kLayerBalance, ReadAdjustment<BalanceRecord, ReadBalance>},
    {FourCC("hue2"), kPropertyHue, kLayerHue, ReadAdjustment<HueRecord, ReadHue>},
    {FourCC("selc"), kPropertySelective, kLayerSelective, ReadAdjustment<SelectiveRecord, ReadSelective>},
    {FourCC("thrs"), kPropertyThreshold, kLayerThreshold, ReadAdjustment<ThresholdRecord, ReadThreshold>},
    {FourCC("nvrt"), kPropertyInvert, kLayerInvert, AppendBareAdjustment},
    {FourCC("post"), kPropertyPosterize, kLayerPosterize, ReadAdjustment<PosterizeRecord, ReadPosterize>},
    {FourCC("mixr"), kPropertyMixer, kLayerMixer, ReadAdjustment<MixerRecord, ReadMixer>},
    {FourCC("grdm"), kPropertyGradientMap, kLayerGradientMap,
     ReadAdjustment<GradientMapRecord, ReadGradientMap>},
    {FourCC("phfl"), kPropertyPhotoFilter, kLayerPhotoFilter,
     ReadAdjustment<PhotoFilterRecord, ReadPhotoFilter>},
    {FourCC("SoCo"), kPropertySolidFill, kKindUnchanged, ReadSettings<ReadSolidFill>},
    {FourCC("GdFl"), kPropertyGradientFill, kKindUnchanged, ReadSettings<ReadGradientFill>},
    {FourCC("PtFl"), kPropertyPatternFill, kKindUnchanged, ReadSettings<ReadPatternFill>},
    {FourCC("lrFX"), kPropertyOldEffects, kKindUnchanged, ReadSettings<ReadOldEffects>},
    {FourCC("lfx2"), kPropertyEffects, kKindUnchanged, ReadSettings<ReadObjectEffects>},
};

}  // namespace

PsdReadResult ReadPropertyBlock(PsdDocument& document, PsdLayer& layer, uint32_t key, uint32_t length) {
    for (const PropertyRow& row : kPropertyRows) {
        if (row.key != key) continue;
        if (layer.propertyList.count == PsdPropertyList::kCapacity) return PsdReadResult::kOk;
        if (row.layerKind != kKindUnchanged) layer.layerKind = row.layerKind;
        const PsdReadResult result =
            row.reader(document, layer, row.propertyCode, WrapAdd(Position(document), length));
        if (result != PsdReadResult::kOk) return result;
        return TakeLastRecord(document, layer) ? PsdReadResult::kOk : PsdReadResult::kOutOfMemory;
    }
    return PsdReadResult::kOk;
}

}  // namespace tessary
