// The document and everything it owns. Filled by one forward pass over the stream, read-only afterwards but
// for what rendering adds: the canvas, the noise map, tables and effect buffers.
#pragma once

#include <cstdint>
#include <new>
#include <utility>

#include "document/allowance.h"
#include "document/checked_math.h"
#include "document/plane_format.h"
#include "document/platform.h"
#include "document/psd_result.h"
#include "render/pixel.h"

namespace tessary {

// What OpenDocument reads.
enum PsdReadMode : uint32_t {
    kReadEverything = 0,
    kReadHeader = 1,       // header and resolution, and which of profile, thumbnail, EXIF and XMP are there
    kReadNoThumbnail = 2,  // merged image only when there are no layers
    kReadMerged = 3,       // no layers
    kReadThumbnail = 4,
    kReadMetadata = 5,  // EXIF and XMP
    kReadProfile = 6,
};

// What becomes of the merged image in the read modes that read it. Its data is checked in any case.
enum PsdMergedUse : uint32_t {
    kMergedKept = 0,
    kMergedKeptIfReal,  // only when the file vouches for it
    kMergedChecked,
};

// In the order of the file format's own list of keys; render/blend_loops.h indexes its table with it.
enum PsdBlendMode : uint32_t {
    kBlendNormal = 0,
    kBlendDissolve,
    kBlendDarken,
    kBlendMultiply,
    kBlendColorBurn,
    kBlendLinearBurn,
    kBlendLighten,
    kBlendScreen,
    kBlendColorDodge,
    kBlendLinearDodge,
    kBlendOverlay,
    kBlendSoftLight,
    kBlendHardLight,
    kBlendVividLight,
    kBlendLinearLight,
    kBlendPinLight,
    kBlendHardMix,
    kBlendDifference,
    kBlendExclusion,
    kBlendHue,
    kBlendSaturation,
    kBlendColor,
    kBlendLuminosity,
    kBlendPassThrough,  // 23, groups only
};

// What a record stands for; kLayerLevels and above get a pixel buffer at render time.
enum PsdLayerKind : uint32_t {
    kLayerOrdinary = 0,
    kLayerGroupEnd = 1,
    kLayerGroup = 2,
    kLayerSolidFill = 3,
    kLayerGradientFill = 4,
    kLayerLevels = 6,
    kLayerCurves = 7,
    kLayerBrightness = 8,
    kLayerBalance = 9,
    kLayerHue = 10,
    kLayerSelective = 11,
    kLayerThreshold = 12,
    kLayerInvert = 13,
    kLayerPosterize = 14,
    kLayerMixer = 15,
    kLayerGradientMap = 16,
    kLayerPhotoFilter = 17,
    kLayerPatternFill = 19,
};

enum PsdPropertyCode : uint32_t {
    kPropertyLevels = 1,
    kPropertyCurves = 2,
    kPropertyBrightness = 3,
    kPropertyBalance = 4,
    kPropertyHue = 5,
    kPropertySelective = 6,
    kPropertyThreshold = 7,
    kPropertyInvert = 8,
    kPropertyPosterize = 9,
    kPropertyMixer = 10,
    kPropertyGradientMap = 11,
    kPropertyPhotoFilter = 12,
    kPropertyTypeTool = 13,
    kPropertyOldEffects = 15,
    kPropertyEffects = 16,
    kPropertySolidFill = 17,
    kPropertyGradientFill = 18,
    kPropertyPatternFill = 19,
};

// UTF-16 text as the file stores it: big-endian units, zero-terminated; length counts units without the zero.
struct PsdUnicodeString {
    uint32_t length = 0;
    Owned<uint8_t> bytes;
};

// Up to 255 bytes of text, zero-terminated.
struct PsdPascalString {
    uint8_t length = 0;
    char text[256] = {};
};

// One entry of a layer's property list: a code and the record that a block reader made for it (null for
// invert).
class PsdProperty {
public:
    PsdProperty() = default;
    PsdProperty(const PsdProperty&) = delete;
    PsdProperty& operator=(const PsdProperty&) = delete;
    ~PsdProperty() { Reset(); }
    void Reset() {
        if (record) destroy(std::exchange(record, nullptr));
        propertyCode = recordBytes = 0;
    }

    uint32_t propertyCode = 0;
    uint32_t recordBytes = 0;
    void* record = nullptr;
    void (*destroy)(void*) = nullptr;
};

struct PsdPropertyList {
    static constexpr uint32_t kCapacity = 20;
    uint32_t count = 0;
    PsdProperty entries[kCapacity];

    void Clear() {
        while (count > 0) entries[--count].Reset();
    }
};

struct PsdChannelInfo {
    int16_t id = 0;           // 0.. colour, -1 transparency, -2 mask, -3 real mask
    uint32_t dataLength = 0;  // with the two bytes of the compression code
    bool excluded = false;    // from blending
};

struct PsdLayerMask {
    Rect bounds;  // canvas coordinates, as the file states them
    int32_t width = 0;
    int32_t height = 0;
    uint8_t defaultColor = 255;  // 0 or 255, holds outside the data
    bool relativeToLayer = false;
    bool disabled = true;
    bool inverted = false;
    bool hasReal = false;  // the record has a user mask and a real one; all of the above is the real one's
    Rect userBounds;       // of the user mask, channel -2
    Owned<uint8_t> data;   // width x height bytes, or null
};

// Four 16-bit values of a blending range: two of a split black point, two of a split white point. Only the
// first of each pair narrows; the stored values decide whether there is a range at all.
struct PsdBlendRange {
    uint16_t black = 0;  // both bytes of the pair as stored: first value in the high byte
    uint16_t white = 0xFFFF;
    bool IsFull() const { return black == 0 && white == 0xFFFF; }
    uint32_t BlackPoint() const { return black >> 8; }
    uint32_t WhitePoint() const { return white >> 8; }
};

// This layer's range and the range of what lies under it.
struct PsdBlendRanges {
    PsdBlendRange source;
    PsdBlendRange destination;
};

// What a record and its blocks say. Of that nothing looks at clipping, the protections, obsolete,
// pixelDataIrrelevant, the names and ids, sheetColor, and the flags of blending from blendClippedElements on
// but for the reference point: they do not change what is drawn here.
struct PsdLayer {
    uint32_t layerKind = kLayerOrdinary;
    Rect bounds;  // canvas coordinates, as the file states them
    int32_t width = 0;
    int32_t height = 0;
    int16_t channelCount = 0;
    Owned<PsdChannelInfo> channels;
    PsdBlendMode blendMode = kBlendNormal;
    uint8_t opacity = 255;
    bool clipping = false;
    bool transparencyProtected = false;
    bool visible = true;
    bool obsolete = false;
    bool pixelDataIrrelevant = false;
    PsdLayerMask mask;
    PsdBlendRanges grayRanges;
    int32_t channelRangeCount = 0;
    Owned<PsdBlendRanges> channelRanges;
    PsdPascalString name;
    Owned<uint32_t> image;      // width x height pixels and perhaps more; null for a layer without any
    uint64_t filledPixels = 0;  // of them, that the layer's data has filled
    int32_t coveredTop = 0;     // rows of the image as the file has it: all others are transparent
    int32_t coveredBottom = INT32_MAX;
    PsdPropertyList propertyList;
    bool hasAdjustment = false;
    bool rebuildTables = false;
    bool advancedBlending = false;  // routes to the range routines even with default ranges; no block sets it
    uint8_t fillOpacity = 255;
    PsdUnicodeString unicodeName;
    int32_t nameSourceId = 0;
    int32_t layerId = 0;
    int32_t layerVersion = 0;
    uint32_t sheetColor = 0;  // ARGB
    bool blendClippedElements = true;
    bool blendInteriorElements = false;
    bool knockout = false;
    bool protectTransparency = false;
    bool protectComposite = false;
    bool protectPosition = false;
    int32_t referenceX = 0;
    int32_t referenceY = 0;
    bool transparencyShapesLayer = true;
    bool layerMaskAsGlobalMask = false;
    bool vectorMaskAsGlobalMask = false;
    int32_t sectionType = 0;
    PsdBlendMode sectionBlendMode = kBlendPassThrough;
    bool hasSectionBlendMode = false;  // the divider block carried a key of its own
    const PsdLayer* parent = nullptr;  // the group's record in the same array
};

// A tile that effects paint with.
struct PsdPattern {
    PsdPascalString identifier;
    uint32_t width = 0;
    uint32_t height = 0;
    Owned<uint32_t> pixels;  // width x height
};

struct PsdResolution {
    bool present = false;
    float horizontal = 0;         // in the unit beside it
    uint16_t horizontalUnit = 0;  // 1 pixels per inch, 2 pixels per centimetre
    uint16_t widthUnit = 0;
    float vertical = 0;
    uint16_t verticalUnit = 0;
    uint16_t heightUnit = 0;
};

struct PsdAlphaChannel {
    PsdPascalString name;
    PsdUnicodeString unicodeName;
    int32_t id = 0;
};

struct PsdDisplayInfo {
    bool present = false;
    uint32_t color = 0;  // ARGB
    uint16_t opacity = 0;
    uint8_t kind = 0;
};

struct PsdBorder {
    bool present = false;
    float width = 0;
    uint16_t unit = 0;
};

struct PsdPrintFlags {
    bool present = false;
    bool flags[8] =
        {};  // labels, crop marks, colour bars, registration marks, negative, flip, interpolate, caption
};

struct PsdGuide {
    int32_t location = 0;
    uint8_t direction = 0;
};

struct PsdGridAndGuides {
    bool present = false;
    int32_t horizontalGrid = 0;
    int32_t verticalGrid = 0;
    Owned<PsdGuide> guides;
};

struct PsdColorSampler {
    int32_t x = 0;
    int32_t y = 0;
    uint16_t colorSpace = 0;
    uint16_t depth = 0;  // version 2 only
};

struct PsdSlice {
    int32_t id = 0;
    int32_t groupId = 0;
    int32_t origin = 0;
    int32_t associatedLayerId = 0;  // only with origin 1
    PsdUnicodeString name;
    int32_t type = 0;
    Rect bounds;
    PsdUnicodeString url;
    PsdUnicodeString target;
    PsdUnicodeString message;
    PsdUnicodeString altTag;
    bool cellTextIsHtml = false;
    PsdUnicodeString cellText;
    int32_t horizontalAlignment = 0;
    int32_t verticalAlignment = 0;
    uint32_t color = 0;  // ARGB as stored
};

struct PsdSlices {
    bool present = false;
    Rect bounds;
    PsdUnicodeString name;
    Owned<PsdSlice> slices;
};

struct PsdUrl {
    int32_t operation = 0;
    int32_t id = 0;
    PsdUnicodeString text;
};

struct PsdVersionInfo {
    bool present = false;
    int32_t version = 0;
    bool hasRealMergedData = true;  // trusted unless the file says otherwise
    PsdUnicodeString writer;
    PsdUnicodeString reader;
    int32_t fileVersion = 0;
};

struct PsdPrintScale {
    bool present = false;
    uint16_t style = 0;
    float x = 0;
    float y = 0;
    float scale = 0;
};

struct PsdPrintFlagsInfo {
    bool present = false;
    bool centerCropMarks = false;
    int32_t bleedWidth = 0;
    uint16_t bleedWidthScale = 0;
};

struct PsdThumbnail {
    bool present = false;
    uint32_t format = 0;  // 1 = JPEG
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t rowBytes = 0;
    uint32_t totalSize = 0;
    uint32_t compressedSize = 0;
    int16_t bitsPerPixel = 0;
    int16_t planes = 0;
    Owned<uint8_t> data;    // the JPEG stream: data.count() bytes
    bool redFirst = false;  // from resource 1033, which stores R, G, B order
};

// A resource kept as it is.
struct PsdBlob {
    bool present = false;  // known to be there with a size above 0, even where the bytes were not asked for
    Owned<uint8_t> bytes;  // bytes.count() is the length
};

// Read because a document whose resources cannot be read is refused, and kept as they were read. Nothing in
// this project looks at displayInfo to printFlags, targetLayer to gridAndGuides, rightsMarked, colorSamplers,
// resource1042, paletteCount, slices, urls, and what stands behind xmp; nor at the names and ids of alphas.
struct PsdImageResources {
    PsdResolution resolution;
    int32_t alphaCount = 0;  // names or ids met
    Owned<PsdAlphaChannel> alphas;
    bool hasAlphaNames = false;
    PsdDisplayInfo displayInfo;
    PsdPascalString caption;
    PsdBorder border;
    PsdPrintFlags printFlags;
    uint16_t targetLayer = 0;
    Owned<uint16_t> layerGroupIds;
    PsdGridAndGuides gridAndGuides;
    PsdThumbnail thumbnail;
    bool rightsMarked = false;
    int32_t globalAngle = 30;
    Owned<PsdColorSampler> colorSamplers;
    PsdBlob profile;
    uint16_t resource1042 = 0;
    int32_t paletteCount = -1;       // resource 1046, -1 when absent
    int32_t transparencyIndex = -1;  // resource 1047, -1 when absent
    int32_t globalAltitude = 30;
    PsdSlices slices;
    Owned<PsdUrl> urls;
    PsdVersionInfo versionInfo;
    PsdBlob exif;
    PsdBlob xmp;
    PsdPrintScale printScale;
    double pixelAspectRatio = 0;
    PsdPrintFlagsInfo printFlagsInfo;
};

// The forward-only buffered reader; its operations are in document/byte_reader.h.
struct PsdByteReader {
    static constexpr uint32_t kBufferSize = 65536;
    IStream* stream = nullptr;  // borrowed, only during OpenDocument
    Owned<uint8_t> buffer;
    uint32_t filled = 0;
    uint32_t cursor = 0;     // next unread byte
    uint32_t position = 0;   // bytes consumed since the start of the file; wraps by definition
    uint64_t delivered = 0;  // by the stream, in all
};

struct LayerSink;

struct PsdDocument {
    PsdByteReader reader;
    int32_t streamSize = 0;
    uint32_t stage = 0;
    uint32_t readMode = kReadEverything;
    PsdMergedUse mergedUse = kMergedKept;
    uint32_t soundMergedAt = 0;  // where merged data begins that has been read without a fault; 0: nowhere
    const LayerSink* sink = nullptr;  // borrowed, only during OpenDocument

    uint32_t width = 0;
    uint32_t height = 0;
    uint16_t channels = 0;       // of the merged image
    uint16_t colorChannels = 0;  // channels less the named alpha channels
    uint16_t depth = 0;          // bits: 1, 8, 16 or 32
    uint32_t colorMode = kColorBitmap;
    Owned<uint32_t> palette;  // ARGB

    PsdImageResources resources;

    int32_t layerCount = 0;
    Owned<PsdLayer> layers;        // bottom layer first
    uint32_t globalMaskColor = 0;  // ARGB; nothing looks at the global mask
    uint16_t globalMaskOpacity = 0;
    uint8_t globalMaskKind = 0;

    uint32_t patternCount = 0;
    Owned<PsdPattern> patterns;  // the first `patternCount` are in use

    Owned<uint32_t> mergedPixels;  // width x height, or null when the read mode passes it over

    Owned<uint32_t> canvas;       // width x height, made by Render
    Owned<uint8_t> paintedTiles;  // of the canvas, see painted_tiles.h; made with it
    Owned<uint8_t> noiseMap;      // width x height, made when the first layer that dissolves is drawn
    uint64_t noiseSeed = 0;       // 0 takes the clock
    Owned<uint32_t> sparePixels;  // of a layer that was drawn, for the next one's
    Allowance allowance;
};

// Whom a document hands its layers to while it is read. What `layer` does not move out or free stays with
// the layer, as it does without a sink.
struct LayerSink {
    // A layer info begins; all its records are read, and groups are linked. A second one in the same document
    // takes the place of the first.
    void (*begin)(PsdDocument& document, void* context) = nullptr;
    // Whether the layer's pixels will be looked at. Those that are not are only decoded.
    bool (*wants)(const PsdLayer& layer) = nullptr;
    // The layer's pixels have been read. A failure ends the reading.
    PsdReadResult (*layer)(PsdDocument& document, PsdLayer& layer, void* context) = nullptr;
    void* context = nullptr;
};

struct OpenOptions {
    PsdMergedUse mergedUse = kMergedKept;
    uint32_t soundMergedAt = 0;  // of the same stream, opened before: merged data there is not checked again
    const LayerSink* sink = nullptr;  // null: the document keeps all layers
};

// Reads a document from the start of `stream`, which is rewound and borrowed for the call only.
// Gives null and a code on failure.
PsdReadResult OpenDocument(Owned<PsdDocument>& document, IStream* stream, uint32_t mode,
                           const OpenOptions& options = {});

// Frees the document and all it owns and leaves null. kNoDocument when there is none.
PsdReadResult CloseDocument(Owned<PsdDocument>& document);

// Appends a record of type T to the layer's list and gives it out, still owned by the list; null without
// memory. The list must not be full.
template <class T>
T* AppendProperty(PsdLayer& layer, uint32_t code) {
    void* memory = AllocateZeroedBytes(sizeof(T));
    if (!memory) return nullptr;
    T* record = new (memory) T();
    PsdProperty& entry = layer.propertyList.entries[layer.propertyList.count++];
    entry.propertyCode = code;
    entry.recordBytes = sizeof(T);
    entry.record = record;
    entry.destroy = [](void* data) {
        static_cast<T*>(data)->~T();
        FreeBytes(data);
    };
    return record;
}

// The record of the first entry with this code, or null. T must be the type it was appended with.
template <class T>
T* FindProperty(const PsdLayer& layer, uint32_t code) {
    for (uint32_t i = 0; i < layer.propertyList.count; ++i) {
        if (layer.propertyList.entries[i].propertyCode == code)
            return static_cast<T*>(layer.propertyList.entries[i].record);
    }
    return nullptr;
}

}  // namespace tessary
