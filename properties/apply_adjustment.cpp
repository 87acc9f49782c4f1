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

template <class Map>
void MapPixels(const PixelArea& area, Map map) {
    MapRows(area, [&](const uint32_t* in, uint32_t* out, size_t count) {
        for (size_t x = 0; x < count; ++x) out[x] = map(in[x]);
    });
}

// The three drivers: a table a channel, one table for all, and a callback that gets the colours as integers.

void DrawTables(const PixelArea& area, const ByteTable& red, const ByteTable& green, const ByteTable& blue) {
    MapPixels(area, [&](uint32_t pixel) {
        return (pixel & 0xFF000000) | static_cast<uint32_t>(red[Red(pixel)]) << 16 |
               static_cast<uint32_t>(green[Green(pixel)]) << 8 | blue[Blue(pixel)];
    });
}

void DrawTable(const PixelArea& area, const ByteTable& table) { DrawTables(area, table, table, table); }

template <class Callback>
void DrawCallback(const PixelArea& area, const Callback& callback) {
    MapPixels(area, [&](uint32_t pixel) {
        int32_t red = static_cast<int32_t>(Red(pixel));
        int32_t green = static_cast<int32_t>(Green(pixel));
        int32_t blue = static_cast<int32_t>(Blue(pixel));
        callback(red, green, blue);
        return PackPixel(Alpha(pixel), static_cast<uint32_t>(red), static_cast<uint32_t>(green),
                         static_cast<uint32_t>(blue));
    });
}

// --- the parts of a kind's row

using BuildFunction = void (*)(void* record, bool grayscale);
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
void DrawRecordTable(const void* record, const PixelArea& area) {
    DrawTable(area, static_cast<const Record*>(record)->table);
}

template <class Record>
void DrawRecordTables(const void* record, const PixelArea& area) {
    const ChannelTables& tables = static_cast<const Record*>(record)->tables;
    DrawTables(area, tables.red, tables.green, tables.blue);
}

template <class Record, class Map>
void DrawRecordMap(const void* record, const PixelArea& area) {
    DrawCallback(area, Map(*static_cast<const Record*>(record)));
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

void DrawInverse(const void*, const PixelArea& area) { DrawTable(area, kInverse); }

constexpr uint32_t kAnyMode = 0xFFFFFFFF;
constexpr uint32_t kRgbOnly = 1u << kColorRgb;
constexpr uint32_t kGrayscaleOrRgb = 1u << kColorGrayscale | 1u << kColorRgb;
constexpr uint32_t kNoRecord = 0;

struct KindRow {
    uint32_t layerKind;
    uint32_t propertyCode;  // of the record, or kNoRecord
    uint32_t colorModes;    // a bit for each mode of documents that the adjustment works in
    uint64_t steps;         // nanoseconds a pixel, in whole ones
    BuildFunction build;    // null: no tables
    DrawFunction draw;
};

constexpr KindRow kKindRows[] = {
    {kLayerLevels, kPropertyLevels, kGrayscaleOrRgb, 1, BuildForMode<LevelsRecord, BuildLevelsTables>,
     DrawRecordTables<LevelsRecord>},
    {kLayerCurves, kPropertyCurves, kGrayscaleOrRgb, 1, BuildForMode<CurvesRecord, BuildCurvesTables>,
     DrawRecordTables<CurvesRecord>},
    {kLayerBrightness, kPropertyBrightness, kAnyMode, 1, BuildWith<BrightnessRecord, BuildBrightnessTable>,
     DrawRecordTable<BrightnessRecord>},
    {kLayerBalance, kPropertyBalance, kAnyMode, 1, BuildWith<BalanceRecord, BuildBalanceTables>,
     DrawRecordTables<BalanceRecord>},
    {kLayerHue, kPropertyHue, kAnyMode, 3, BuildWith<HueRecord, BuildHueWeights>,
     DrawRecordRows<HueRecord, HueMap, &Kernels::mapHueRow>},
    {kLayerSelective, kPropertySelective, kAnyMode, 4, nullptr,
     DrawRecordRows<SelectiveRecord, SelectiveMap, &Kernels::mapSelectiveRow>},
    {kLayerThreshold, kPropertyThreshold, kAnyMode, 1, nullptr, DrawRecordMap<ThresholdRecord, ThresholdMap>},
    {kLayerInvert, kNoRecord, kAnyMode, 1, nullptr, DrawInverse},
    {kLayerPosterize, kPropertyPosterize, kAnyMode, 1, BuildWith<PosterizeRecord, BuildPosterizeTable>,
     DrawRecordTable<PosterizeRecord>},
    {kLayerMixer, kPropertyMixer, kRgbOnly, 3, nullptr, DrawRecordMap<MixerRecord, MixerMap>},
    {kLayerGradientMap, kPropertyGradientMap, kAnyMode, 1,
     BuildWith<GradientMapRecord, BuildGradientMapTable>, DrawRecordMap<GradientMapRecord, GradientMapMap>},
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

}  // namespace

void CoverDocument(const PsdDocument& document, PsdLayer& layer) {
    layer.bounds = DocumentRect(document);
    layer.width = layer.bounds.right;
    layer.height = layer.bounds.bottom;
}

uint64_t AdjustmentStepsPerPixel(const PsdLayer& layer) {
    const KindRow* row = FindKind(layer.layerKind);
    return row ? row->steps : 0;
}

bool RecolorCanvas(const PsdDocument& document, PsdLayer& layer, const Rect& area, uint32_t* pixels,
                   size_t rowPixels) {
    const KindRow* row = FindKind(layer.layerKind);
    if (!row || !document.canvas) return false;
    void* record = nullptr;
    if (row->propertyCode != kNoRecord) {
        record = FindProperty<void>(layer, row->propertyCode);
        if (!record) return false;
    }
    if (document.colorMode >= 32 || !(row->colorModes >> document.colorMode & 1)) return false;

    if (layer.rebuildTables && row->build) row->build(record, document.colorMode == kColorGrayscale);
    layer.rebuildTables = false;
    if (area.IsEmpty()) return true;
    const uint32_t* canvas = document.canvas.get() + static_cast<size_t>(area.top) * document.width +
                             static_cast<size_t>(area.left);
    row->draw(record, {canvas, document.width, pixels, rowPixels, static_cast<size_t>(area.Width()),
                       static_cast<size_t>(area.Height())});
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
