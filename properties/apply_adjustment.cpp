#include "properties/apply_adjustment.h"

#include "properties/adjustment_pixels.h"
#include "properties/adjustment_tables.h"
#include "render/kernels.h"

namespace tessary {
namespace {

// Where the pixels come from and go to: `width` x `height` of them, rows apart by their own lengths.
struct PixelArea {
    const uint32_t* canvas = nullptr;
    size_t canvasRowPixels = 0;
    uint32_t* pixels = nullptr;
    size_t rowPixels = 0;
    size_t width = 0;
    size_t height = 0;
};

template <class MapRow>
void MapRows(const PixelArea& area, MapRow mapRow) {
    for (size_t y = 0; y < area.height; ++y)
        mapRow(area.canvas + y * area.canvasRowPixels, area.pixels + y * area.rowPixels, area.width);
}

// --- the parts of a kind's row

using BuildFunction = void (*)(void* record, bool grayscale);
using TablesFunction = void (*)(const void* record, ColorTables& tables);
using DrawFunction = void (*)(const void* record, const PixelArea& area);

template <class Record, void (*Build)(Record&)>
void BuildWith(void* record, bool) {
    Build(*static_cast<Record*>(record));
}

template <class Record, void (*Build)(Record&, bool)>
void BuildForMode(void* record, bool grayscale) {
    Build(*static_cast<Record*>(record), grayscale);
}

template <class Record>
void TableOfRecord(const void* record, ColorTables& tables) {
    const ByteTable& table = static_cast<const Record*>(record)->table;
    tables.SetChannels(table, table, table);
}

template <class Record>
void TablesOfRecord(const void* record, ColorTables& tables) {
    const ChannelTables& channels = static_cast<const Record*>(record)->tables;
    tables.SetChannels(channels.red, channels.green, channels.blue);
}

void TablesOfThreshold(const void* record, ColorTables& tables) {
    const uint32_t level = static_cast<const ThresholdRecord*>(record)->level;
    tables.SetLuminance([level](uint32_t luminance) { return luminance >= level ? 0xFFFFFFu : 0; });
}

void TablesOfGradientMap(const void* record, ColorTables& tables) {
    const auto& map = *static_cast<const GradientMapRecord*>(record);
    const size_t flip = map.reverse ? 255 : 0;  // ^ 255 is 255 - luminance
    tables.SetLuminance([&](uint32_t luminance) { return map.table[luminance ^ flip]; });
}

void DrawMixer(const void* record, const PixelArea& area) {
    const MixerMap map(*static_cast<const MixerRecord*>(record));
    MapRows(area, [&](const uint32_t* in, uint32_t* out, size_t count) {
        for (size_t x = 0; x < count; ++x) {
            int32_t red = static_cast<int32_t>(Red(in[x]));
            int32_t green = static_cast<int32_t>(Green(in[x]));
            int32_t blue = static_cast<int32_t>(Blue(in[x]));
            map(red, green, blue);
            out[x] = PackPixel(Alpha(in[x]), static_cast<uint32_t>(red), static_cast<uint32_t>(green),
                               static_cast<uint32_t>(blue));
        }
    });
}

template <class Record, class Map, auto Kernels::*mapRow>
void DrawRecordRows(const void* record, const PixelArea& area) {
    const Map map(*static_cast<const Record*>(record));
    MapRows(area, [&](const uint32_t* in, uint32_t* out, size_t count) {
        (WidestKernels().*mapRow)(map, in, out, count);
    });
}

constexpr ByteTable kInverse = [] {
    ByteTable table{};
    for (size_t i = 0; i < table.size(); ++i) table[i] = static_cast<uint8_t>(255 - i);
    return table;
}();

void TablesOfInvert(const void*, ColorTables& tables) { tables.SetChannels(kInverse, kInverse, kInverse); }

constexpr uint32_t kAnyMode = 0xFFFFFFFF;
constexpr uint32_t kRgbOnly = 1u << kColorRgb;
constexpr uint32_t kGrayscaleOrRgb = 1u << kColorGrayscale | 1u << kColorRgb;
constexpr uint32_t kNoRecord = 0;

struct KindRow {
    uint32_t layerKind;
    uint32_t propertyCode;  // of the record, or kNoRecord
    uint32_t colorModes;    // a bit for each mode of documents that the adjustment works in
    uint64_t steps;         // nanoseconds a pixel, in whole ones
    BuildFunction build;    // of the record's tables; null: it has none
    TablesFunction tables;  // null: colours are not only looked up, but drawn by
    DrawFunction draw;
};

constexpr KindRow kKindRows[] = {
    {kLayerLevels, kPropertyLevels, kGrayscaleOrRgb, 1, BuildForMode<LevelsRecord, BuildLevelsTables>,
     TablesOfRecord<LevelsRecord>, nullptr},
    {kLayerCurves, kPropertyCurves, kGrayscaleOrRgb, 1, BuildForMode<CurvesRecord, BuildCurvesTables>,
     TablesOfRecord<CurvesRecord>, nullptr},
    {kLayerBrightness, kPropertyBrightness, kAnyMode, 1, BuildWith<BrightnessRecord, BuildBrightnessTable>,
     TableOfRecord<BrightnessRecord>, nullptr},
    {kLayerBalance, kPropertyBalance, kAnyMode, 1, BuildWith<BalanceRecord, BuildBalanceTables>,
     TablesOfRecord<BalanceRecord>, nullptr},
    {kLayerHue, kPropertyHue, kAnyMode, 3, BuildWith<HueRecord, BuildHueWeights>, nullptr,
     DrawRecordRows<HueRecord, HueMap, &Kernels::mapHueRow>},
    {kLayerSelective, kPropertySelective, kAnyMode, 4, nullptr, nullptr,
     DrawRecordRows<SelectiveRecord, SelectiveMap, &Kernels::mapSelectiveRow>},
    {kLayerThreshold, kPropertyThreshold, kAnyMode, 1, nullptr, TablesOfThreshold, nullptr},
    {kLayerInvert, kNoRecord, kAnyMode, 1, nullptr, TablesOfInvert, nullptr},
    {kLayerPosterize, kPropertyPosterize, kAnyMode, 1, BuildWith<PosterizeRecord, BuildPosterizeTable>,
     TableOfRecord<PosterizeRecord>, nullptr},
    {kLayerMixer, kPropertyMixer, kRgbOnly, 3, nullptr, nullptr, DrawMixer},
    {kLayerGradientMap, kPropertyGradientMap, kAnyMode, 1,
     BuildWith<GradientMapRecord, BuildGradientMapTable>, TablesOfGradientMap, nullptr},
};

const KindRow* FindKind(uint32_t layerKind) {
    for (const KindRow& row : kKindRows) {
        if (row.layerKind == layerKind) return &row;
    }
    return nullptr;
}

Rect DocumentRect(const PsdDocument& document) {
    return {0, 0, static_cast<int32_t>(document.width), static_cast<int32_t>(document.height)};
}

bool EnsurePixels(const PsdDocument& document, PsdLayer& layer) {
    if (layer.image) return true;
    layer.image = AllocateZeroed<uint32_t>({document.width, document.height});
    if (layer.image) CoverDocument(document, layer);
    return static_cast<bool>(layer.image);
}

// The kind of an adjustment that acts in the document, and its record; null otherwise.
const KindRow* ActingKind(const PsdDocument& document, PsdLayer& layer, void*& record) {
    const KindRow* row = FindKind(layer.layerKind);
    record = row && row->propertyCode != kNoRecord ? FindProperty<void>(layer, row->propertyCode) : nullptr;
    if (!row || (row->propertyCode != kNoRecord && !record)) return nullptr;
    return document.colorMode < 32 && (row->colorModes >> document.colorMode & 1) ? row : nullptr;
}

// The same with its tables, which are built when they are not yet.
const KindRow* PrepareKind(const PsdDocument& document, PsdLayer& layer, void*& record) {
    const KindRow* row = ActingKind(document, layer, record);
    if (!row || !document.canvas) return nullptr;
    if (layer.rebuildTables && row->build) row->build(record, document.colorMode == kColorGrayscale);
    layer.rebuildTables = false;
    return row;
}

}  // namespace

void CoverDocument(const PsdDocument& document, PsdLayer& layer) {
    layer.bounds = DocumentRect(document);
    layer.width = layer.bounds.right;
    layer.height = layer.bounds.bottom;
}

bool AdjustmentActs(const PsdDocument& document, PsdLayer& layer) {
    void* record = nullptr;
    return ActingKind(document, layer, record) != nullptr;
}

uint64_t AdjustmentStepsPerPixel(const PsdLayer& layer) {
    const KindRow* row = FindKind(layer.layerKind);
    return row ? row->steps : 0;
}

bool RecolorCanvas(const PsdDocument& document, PsdLayer& layer, const Rect& area, uint32_t* pixels,
                   size_t rowPixels) {
    void* record = nullptr;
    const KindRow* row = PrepareKind(document, layer, record);
    if (!row || area.IsEmpty()) return row != nullptr;
    const uint32_t* canvas = document.canvas.get() + static_cast<size_t>(area.top) * document.width +
                             static_cast<size_t>(area.left);
    const PixelArea rows = {canvas,
                            document.width,
                            pixels,
                            rowPixels,
                            static_cast<size_t>(area.Width()),
                            static_cast<size_t>(area.Height())};
    if (!row->tables) {
        row->draw(record, rows);
        return true;
    }
    ColorTables tables;
    row->tables(record, tables);
    MapRows(rows, [&](const uint32_t* in, uint32_t* out, size_t count) { tables.MapRow(in, out, count); });
    return true;
}

bool MakeColorTables(const PsdDocument& document, PsdLayer& layer, ColorTables& tables) {
    void* record = nullptr;
    const KindRow* row = PrepareKind(document, layer, record);
    if (!row || !row->tables) return false;
    row->tables(record, tables);
    return true;
}

bool ApplyAdjustment(PsdDocument& document, PsdLayer& layer, const Rect& area) {
    if (layer.layerKind < kLayerLevels || !EnsurePixels(document, layer)) return false;
    const Rect shared = Intersect(Intersect(area, DocumentRect(document)), layer.bounds);
    if (shared.IsEmpty() || layer.width <= 0) return RecolorCanvas(document, layer, {}, nullptr, 0);
    const size_t rowPixels = static_cast<size_t>(layer.width);
    uint32_t* pixels = layer.image.get() +
                       static_cast<size_t>(int64_t{shared.top} - layer.bounds.top) * rowPixels +
                       static_cast<size_t>(int64_t{shared.left} - layer.bounds.left);
    return RecolorCanvas(document, layer, shared, pixels, rowPixels);
}

}  // namespace tessary
