#include "document/image_resources.h"

#include <algorithm>

#include "document/big_endian.h"
#include "document/byte_reader.h"

namespace tessary {
namespace {

// Puts the document's reader over the bytes of one resource for its own lifetime. Readers may so believe what
// a resource claims of itself: behind its bytes they find zeros and nothing of what follows in the file, and
// InputLeft bounds their counts.
class ResourceBytes {
public:
    ResourceBytes(PsdDocument& document, Owned<uint8_t> bytes, size_t count)
        : m_document(document), m_reader(std::move(document.reader)), m_streamSize(document.streamSize) {
        document.reader = {};
        document.reader.buffer = std::move(bytes);
        document.reader.filled = static_cast<uint32_t>(count);
        document.streamSize = static_cast<int32_t>(count);
    }
    ResourceBytes(const ResourceBytes&) = delete;
    ResourceBytes& operator=(const ResourceBytes&) = delete;
    ~ResourceBytes() {
        m_document.reader = std::move(m_reader);
        m_document.streamSize = m_streamSize;
    }

private:
    PsdDocument& m_document;
    PsdByteReader m_reader;
    int32_t m_streamSize;
};

// How many of the `claimed` items, each of at least `itemBytes`, the rest of the resource can hold.
uint32_t BoundedCount(const PsdDocument& document, int32_t claimed, uint32_t itemBytes) {
    return static_cast<uint32_t>(std::clamp<int64_t>(claimed, 0, InputLeft(document) / itemBytes));
}

// Makes room for the records of `count` alpha channels and keeps what is there.
PsdReadResult GrowAlphas(PsdImageResources& resources, uint32_t count) {
    if (resources.alphas && resources.alphas.count() >= count) return PsdReadResult::kOk;
    Owned<PsdAlphaChannel> alphas = AllocateZeroed<PsdAlphaChannel>({count});
    if (!alphas) return PsdReadResult::kOutOfMemory;
    for (size_t i = 0; i < resources.alphas.count(); ++i) alphas[i] = std::move(resources.alphas[i]);
    resources.alphas = std::move(alphas);
    return PsdReadResult::kOk;
}

// Counts names of one kind without reading them. `nameBytes` tells the size of the name at an offset, or 0
// when no whole length stands there.
template <class NameBytes>
uint32_t CountNames(std::span<const uint8_t> bytes, NameBytes nameBytes) {
    uint32_t names = 0;
    for (size_t at = 0; at < bytes.size() && names < kMostAlphaNames; ++names) {
        const size_t size = nameBytes(bytes.subspan(at));
        if (size == 0) break;
        at += size;
    }
    return names;
}

PsdReadResult TakeAlphaNames(PsdDocument& document, uint32_t names) {
    if (names == 0) return PsdReadResult::kOk;
    PsdImageResources& resources = document.resources;
    if (const auto result = GrowAlphas(resources, names); result != PsdReadResult::kOk) return result;
    resources.hasAlphaNames = true;
    resources.alphaCount = static_cast<int32_t>(names);
    document.colorChannels =
        static_cast<uint16_t>(document.channels - std::min<uint32_t>(document.channels, names));
    return PsdReadResult::kOk;
}

std::span<const uint8_t> UnreadBytes(const PsdDocument& document) {
    return document.reader.buffer.span().first(document.reader.filled).subspan(document.reader.cursor);
}

// The first resource with names wins, whichever kind it is.
PsdReadResult ReadAlphaNames(PsdDocument& document, uint32_t) {
    if (document.resources.hasAlphaNames) return PsdReadResult::kOk;
    const uint32_t names = CountNames(UnreadBytes(document),
                                      [](std::span<const uint8_t> bytes) { return size_t{1} + bytes[0]; });
    const PsdReadResult result = TakeAlphaNames(document, names);
    if (result != PsdReadResult::kOk) return result;
    for (uint32_t i = 0; i < names; ++i) ReadPascalString(document, 1, document.resources.alphas[i].name);
    return PsdReadResult::kOk;
}

PsdReadResult ReadUnicodeAlphaNames(PsdDocument& document, uint32_t) {
    if (document.resources.hasAlphaNames) return PsdReadResult::kOk;
    const uint32_t names = CountNames(UnreadBytes(document), [](std::span<const uint8_t> bytes) {
        return bytes.size() < 4 ? 0 : 4 + size_t{2} * std::min(LoadU32(bytes.data()), kMaxUnicodeUnits);
    });
    PsdReadResult result = TakeAlphaNames(document, names);
    for (uint32_t i = 0; i < names && result == PsdReadResult::kOk; ++i) {
        result = ReadUnicodeString(document, kMaxUnicodeUnits, document.resources.alphas[i].unicodeName);
    }
    return result;
}

// Identifiers alone say nothing about how many channels are colours.
PsdReadResult ReadAlphaIds(PsdDocument& document, uint32_t) {
    PsdImageResources& resources = document.resources;
    const uint32_t ids = std::min(InputLeft(document) / 4, kMostAlphaNames);
    if (const auto result = GrowAlphas(resources, ids); result != PsdReadResult::kOk) return result;
    for (uint32_t i = 0; i < ids; ++i) resources.alphas[i].id = ReadI32(document);
    if (!resources.hasAlphaNames) resources.alphaCount = static_cast<int32_t>(ids);
    return PsdReadResult::kOk;
}

PsdReadResult ReadResolution(PsdDocument& document, uint32_t) {
    PsdResolution& resolution = document.resources.resolution;
    resolution.horizontal = ReadFixed(document);
    resolution.horizontalUnit = ReadU16(document);
    resolution.widthUnit = ReadU16(document);
    resolution.vertical = ReadFixed(document);
    resolution.verticalUnit = ReadU16(document);
    resolution.heightUnit = ReadU16(document);
    resolution.present = true;
    return PsdReadResult::kOk;
}

PsdReadResult ReadDisplayInfo(PsdDocument& document, uint32_t) {
    PsdDisplayInfo& info = document.resources.displayInfo;
    info.color = ReadColor(document);
    info.opacity = ReadU16(document);
    info.kind = ReadU8(document);
    info.present = true;
    return PsdReadResult::kOk;
}

PsdReadResult ReadCaption(PsdDocument& document, uint32_t) {
    ReadPascalString(document, 1, document.resources.caption);
    return PsdReadResult::kOk;
}

PsdReadResult ReadBorder(PsdDocument& document, uint32_t) {
    PsdBorder& border = document.resources.border;
    border.width = ReadFixed(document);
    border.unit = ReadU16(document);
    border.present = true;
    return PsdReadResult::kOk;
}

PsdReadResult ReadPrintFlags(PsdDocument& document, uint32_t) {
    PsdPrintFlags& print = document.resources.printFlags;
    for (bool& flag : print.flags) flag = ReadBool(document);
    print.present = true;
    return PsdReadResult::kOk;
}

PsdReadResult ReadLayerGroupIds(PsdDocument& document, uint32_t) {
    const uint32_t count = InputLeft(document) / 2;
    Owned<uint16_t> ids = AllocateZeroed<uint16_t>({count});
    if (!ids) return PsdReadResult::kOutOfMemory;
    for (uint32_t i = 0; i < count; ++i) ids[i] = ReadU16(document);
    document.resources.layerGroupIds = std::move(ids);
    return PsdReadResult::kOk;
}

PsdReadResult ReadGridAndGuides(PsdDocument& document, uint32_t) {
    PsdGridAndGuides& grid = document.resources.gridAndGuides;
    ReadU32(document);  // version
    grid.horizontalGrid = ReadI32(document);
    grid.verticalGrid = ReadI32(document);
    const uint32_t count = BoundedCount(document, ReadI32(document), 5);
    grid.guides = AllocateZeroed<PsdGuide>({count});
    if (!grid.guides) return PsdReadResult::kOutOfMemory;
    for (uint32_t i = 0; i < count; ++i) {
        grid.guides[i].location = ReadI32(document);
        grid.guides[i].direction = ReadU8(document);
    }
    grid.present = true;
    return PsdReadResult::kOk;
}

constexpr uint32_t kThumbnailHeader = 28;

template <bool kRedFirst>
PsdReadResult ReadThumbnail(PsdDocument& document, uint32_t size) {
    PsdThumbnail& thumbnail = document.resources.thumbnail;
    thumbnail.format = ReadU32(document);
    thumbnail.width = ReadU32(document);
    thumbnail.height = ReadU32(document);
    thumbnail.rowBytes = ReadU32(document);
    thumbnail.totalSize = ReadU32(document);
    thumbnail.compressedSize = ReadU32(document);
    thumbnail.bitsPerPixel = ReadI16(document);
    thumbnail.planes = ReadI16(document);
    thumbnail.redFirst = kRedFirst;
    thumbnail.present = true;
    return ReadBytes(document, size - std::min(size, kThumbnailHeader), thumbnail.data);
}

PsdReadResult ReadRightsMarked(PsdDocument& document, uint32_t) {
    document.resources.rightsMarked = ReadU16(document) != 0;
    return PsdReadResult::kOk;
}

template <int32_t PsdImageResources::*kField>
PsdReadResult ReadLongInto(PsdDocument& document, uint32_t) {
    document.resources.*kField = ReadI32(document);
    return PsdReadResult::kOk;
}

template <auto kField>
PsdReadResult ReadShortInto(PsdDocument& document, uint32_t) {
    document.resources.*kField = ReadU16(document);
    return PsdReadResult::kOk;
}

PsdReadResult ReadColorSamplers(PsdDocument& document, uint32_t) {
    const bool hasDepth = ReadU32(document) == 2;
    const uint32_t count = BoundedCount(document, ReadI32(document), hasDepth ? 12 : 10);
    Owned<PsdColorSampler> samplers = AllocateZeroed<PsdColorSampler>({count});
    if (!samplers) return PsdReadResult::kOutOfMemory;
    for (uint32_t i = 0; i < count; ++i) {
        samplers[i].x = ReadI32(document);
        samplers[i].y = ReadI32(document);
        samplers[i].colorSpace = ReadU16(document);
        if (hasDepth) samplers[i].depth = ReadU16(document);
    }
    document.resources.colorSamplers = std::move(samplers);
    return PsdReadResult::kOk;
}

template <PsdBlob PsdImageResources::*kField, bool kFirstOnly>
PsdReadResult ReadBlob(PsdDocument& document, uint32_t size) {
    PsdBlob& blob = document.resources.*kField;
    if (kFirstOnly && blob.present) return PsdReadResult::kOk;
    blob.present = true;
    return ReadBytes(document, size, blob.bytes);
}

PsdReadResult ReadSlice(PsdDocument& document, PsdSlice& slice) {
    slice.id = ReadI32(document);
    slice.groupId = ReadI32(document);
    slice.origin = ReadI32(document);
    if (slice.origin == 1) slice.associatedLayerId = ReadI32(document);
    if (const auto result = ReadUnicodeString(document, kMaxUnicodeUnits, slice.name);
        result != PsdReadResult::kOk) {
        return result;
    }
    slice.type = ReadI32(document);
    slice.bounds.left = ReadI32(document);
    slice.bounds.top = ReadI32(document);
    slice.bounds.right = ReadI32(document);
    slice.bounds.bottom = ReadI32(document);
    for (PsdUnicodeString* text : {&slice.url, &slice.target, &slice.message, &slice.altTag}) {
        const PsdReadResult result = ReadUnicodeString(document, kMaxUnicodeUnits, *text);
        if (result != PsdReadResult::kOk) return result;
    }
    slice.cellTextIsHtml = ReadBool(document);
    if (const auto result = ReadUnicodeString(document, kMaxUnicodeUnits, slice.cellText);
        result != PsdReadResult::kOk) {
        return result;
    }
    slice.horizontalAlignment = ReadI32(document);
    slice.verticalAlignment = ReadI32(document);
    slice.color = ReadU32(document);
    return PsdReadResult::kOk;
}

PsdReadResult ReadSlices(PsdDocument& document, uint32_t) {
    if (ReadU32(document) != 6) return PsdReadResult::kOk;  // later versions are descriptors
    constexpr uint32_t kLeastSliceBytes = 69;               // all texts empty
    PsdSlices& slices = document.resources.slices;
    slices.bounds = ReadRect(document);
    PsdReadResult result = ReadUnicodeString(document, kMaxUnicodeUnits, slices.name);
    if (result != PsdReadResult::kOk) return result;
    const uint32_t count = BoundedCount(document, ReadI32(document), kLeastSliceBytes);
    slices.slices = AllocateZeroed<PsdSlice>({count});
    if (!slices.slices) return PsdReadResult::kOutOfMemory;
    for (uint32_t i = 0; i < count && result == PsdReadResult::kOk; ++i) {
        result = ReadSlice(document, slices.slices[i]);
    }
    slices.present = true;
    return result;
}

PsdReadResult ReadUrls(PsdDocument& document, uint32_t) {
    const uint32_t count = BoundedCount(document, ReadI32(document), 12);
    Owned<PsdUrl> urls = AllocateZeroed<PsdUrl>({count});
    if (!urls) return PsdReadResult::kOutOfMemory;
    for (PsdUrl& url : urls.span()) {
        url.operation = ReadI32(document);
        url.id = ReadI32(document);
        const PsdReadResult result = ReadUnicodeString(document, kMaxUnicodeUnits, url.text);
        if (result != PsdReadResult::kOk) return result;
    }
    document.resources.urls = std::move(urls);
    return PsdReadResult::kOk;
}

PsdReadResult ReadVersionInfo(PsdDocument& document, uint32_t) {
    PsdVersionInfo& info = document.resources.versionInfo;
    info.version = ReadI32(document);
    info.hasRealMergedData = ReadBool(document);
    for (PsdUnicodeString* name : {&info.writer, &info.reader}) {
        const PsdReadResult result = ReadUnicodeString(document, kMaxUnicodeUnits, *name);
        if (result != PsdReadResult::kOk) return result;
    }
    info.fileVersion = ReadI32(document);
    info.present = true;
    return PsdReadResult::kOk;
}

PsdReadResult ReadPrintScale(PsdDocument& document, uint32_t) {
    PsdPrintScale& print = document.resources.printScale;
    print.style = ReadU16(document);
    print.x = ReadFloat(document);
    print.y = ReadFloat(document);
    print.scale = ReadFloat(document);
    print.present = true;
    return PsdReadResult::kOk;
}

PsdReadResult ReadPixelAspectRatio(PsdDocument& document, uint32_t) {
    ReadU32(document);  // version
    document.resources.pixelAspectRatio = ReadDouble(document);
    return PsdReadResult::kOk;
}

PsdReadResult ReadPrintFlagsInfo(PsdDocument& document, uint32_t) {
    PsdPrintFlagsInfo& info = document.resources.printFlagsInfo;
    ReadU16(document);  // version
    info.centerCropMarks = ReadBool(document);
    Skip(document, 1);
    info.bleedWidth = ReadI32(document);
    info.bleedWidthScale = ReadU16(document);
    info.present = true;
    return PsdReadResult::kOk;
}

template <auto kField>
void Note(PsdImageResources& resources) {
    (resources.*kField).present = true;
}

constexpr uint32_t Modes(std::initializer_list<PsdReadMode> modes) {
    uint32_t bits = 0;
    for (const PsdReadMode mode : modes) bits |= 1u << mode;
    return bits;
}
constexpr uint32_t kFull = Modes({kReadEverything, kReadNoThumbnail});
constexpr uint32_t kPixels = kFull | Modes({kReadMerged});
constexpr uint32_t kMetadata = kFull | Modes({kReadMetadata});

constexpr uint32_t kAll = 0x7FFFFFFF;
constexpr uint32_t kTextBytes = 4 + 2 * kMaxUnicodeUnits;

struct ResourceRow {
    uint16_t id;
    uint32_t modes;                                      // bit n: parsed in read mode n
    uint32_t atMost;                                     // bytes that the reader looks at
    PsdReadResult (*read)(PsdDocument&, uint32_t size);  // size: as stated, of which less may have arrived
    void (*note)(PsdImageResources&) = nullptr;          // where only its presence is asked for
};

using R = PsdImageResources;
constexpr uint32_t kThumbnailModes = Modes({kReadEverything, kReadThumbnail});
constexpr ResourceRow kResources[] = {
    {1005, kPixels | Modes({kReadHeader}), 16, ReadResolution},
    {1006, kPixels, kAll, ReadAlphaNames},
    {1007, kFull, 14, ReadDisplayInfo},
    {1008, kFull, 256, ReadCaption},
    {1009, kFull, 6, ReadBorder},
    {1011, kFull, 8, ReadPrintFlags},
    {1024, kFull, 2, ReadShortInto<&R::targetLayer>},
    {1026, kFull, kAll, ReadLayerGroupIds},
    {1032, kFull, kAll, ReadGridAndGuides},
    {1033, kThumbnailModes, kAll, ReadThumbnail<true>, Note<&R::thumbnail>},
    {1034, kFull, 2, ReadRightsMarked},
    {1036, kThumbnailModes, kAll, ReadThumbnail<false>, Note<&R::thumbnail>},
    {1037, kFull, 4, ReadLongInto<&R::globalAngle>},
    {1038, kFull, kAll, ReadColorSamplers},
    {1039, kFull | Modes({kReadProfile}), kAll, ReadBlob<&R::profile, false>, Note<&R::profile>},
    {1042, kFull, 2, ReadShortInto<&R::resource1042>},
    {1045, kPixels, kAll, ReadUnicodeAlphaNames},
    {1046, kPixels, 2, ReadShortInto<&R::paletteCount>},
    {1047, kPixels, 2, ReadShortInto<&R::transparencyIndex>},
    {1049, kFull, 4, ReadLongInto<&R::globalAltitude>},
    {1050, kFull, kAll, ReadSlices},
    {1053, kPixels, kAll, ReadAlphaIds},
    {1054, kFull, kAll, ReadUrls},
    {1057, kPixels, 9 + 2 * kTextBytes, ReadVersionInfo},
    {1058, kMetadata, kAll, ReadBlob<&R::exif, true>, Note<&R::exif>},
    {1059, kMetadata, kAll, ReadBlob<&R::exif, true>, Note<&R::exif>},
    {1060, kMetadata, kAll, ReadBlob<&R::xmp, false>, Note<&R::xmp>},
    {1062, kFull, 14, ReadPrintScale},
    {1064, kFull, 12, ReadPixelAspectRatio},
    {10000, kFull, 10, ReadPrintFlagsInfo},
};

PsdReadResult ReadResource(PsdDocument& document, uint16_t id, uint32_t size) {
    const auto* const row = std::find_if(std::begin(kResources), std::end(kResources),
                                         [id](const ResourceRow& candidate) { return candidate.id == id; });
    if (row == std::end(kResources)) return PsdReadResult::kOk;
    if (row->note && document.readMode == kReadHeader) row->note(document.resources);
    if (document.readMode > 31 || (row->modes >> document.readMode & 1) == 0) return PsdReadResult::kOk;

    Owned<uint8_t> bytes;
    size_t delivered = 0;
    const PsdReadResult result =
        ReadBytes(document, std::min({size, row->atMost, InputLeft(document)}), bytes, delivered);
    if (result != PsdReadResult::kOk) return result;
    ResourceBytes over(document, std::move(bytes), delivered);
    return row->read(document, size);
}

// True when nothing that follows can matter to the read mode.
bool HasAllItWants(const PsdDocument& document) {
    const PsdImageResources& resources = document.resources;
    switch (document.readMode) {
    case kReadHeader:
        return resources.resolution.present && resources.profile.present && resources.thumbnail.present &&
               resources.exif.present && resources.xmp.present;
    case kReadThumbnail: return resources.thumbnail.present;
    case kReadProfile: return resources.profile.present;
    default: return false;
    }
}

bool IsResourceSignature(uint32_t signature) {
    return signature == FourCC("8BIM") || signature == FourCC("MeSa") || signature == FourCC("PHUT") ||
           signature == FourCC("AgHg") || signature == FourCC("DCSR");
}

PsdReadResult WalkResources(PsdDocument& document, int32_t length) {
    // Counted down in 32 bits, as positions are; each turn takes at least 12 bytes from the stream or ends.
    uint32_t left = static_cast<uint32_t>(length);
    while (static_cast<int32_t>(left) > 0) {
        uint32_t signature;
        if (!ReadKey(document, signature) || !IsResourceSignature(signature)) {
            return PsdReadResult::kBadResourceSignature;
        }
        const uint16_t id = ReadU16(document);
        const uint32_t nameBytes =
            ReadU8(document) | 1u;  // with its length byte the name fills an even count
        Skip(document, static_cast<int32_t>(nameBytes));
        const uint32_t size = ReadU32(document);
        const uint32_t padded = WrapAdd(size, 1u) & ~1u;
        left = WrapSubtract(left, WrapAdd(padded, 6 + 1 + nameBytes + 4));

        const uint32_t end = WrapAdd(Position(document), padded);
        if (static_cast<int32_t>(size) > 0) {
            const PsdReadResult result = ReadResource(document, id, size);
            if (result != PsdReadResult::kOk) return result;
            if (HasAllItWants(document)) break;
        }
        SkipTo(document, end);
    }
    return PsdReadResult::kOk;
}

}  // namespace

PsdReadResult ReadImageResources(PsdDocument& document) {
    document.resources.globalAngle = document.resources.globalAltitude = 30;
    const PsdReadResult result = WalkResources(document, ReadI32(document));
    // Only RGB documents use their profile.
    if (document.colorMode != kColorRgb) document.resources.profile.present = false;
    return result;
}

}  // namespace tessary
