// Writes documents, sound and damaged ones, for tests, samples and the fuzzers' first inputs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "document/psd_document.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {

// A big-endian writer. Each verb appends and returns the writer.
class ByteWriter {
public:
    ByteWriter& U8(uint32_t value) { return Number(value, 1); }
    ByteWriter& U16(uint32_t value) { return Number(value, 2); }
    ByteWriter& U32(uint32_t value) { return Number(value, 4); }
    ByteWriter& I16(int32_t value) { return U16(static_cast<uint32_t>(value)); }
    ByteWriter& I32(int32_t value) { return U32(static_cast<uint32_t>(value)); }
    ByteWriter& Fixed(double value);  // 16.16
    ByteWriter& F32(float value);
    ByteWriter& F64(double value);
    ByteWriter& Text(std::string_view text);  // a key or signature: the characters as they are
    ByteWriter& Raw(const Bytes& bytes);
    ByteWriter& Zeros(size_t count) { return m_bytes.resize(m_bytes.size() + count), *this; }
    ByteWriter& RectTlbr(const Rect& rect);  // top, left, bottom, right
    // Length byte, text, zeros up to the alignment.
    ByteWriter& Pascal(std::string_view text, size_t alignment);
    ByteWriter& Unicode(std::u16string_view text);  // 32-bit length in units, then the units
    // 32-bit length in bytes, then the bytes.
    ByteWriter& Counted(const Bytes& bytes) { return U32(static_cast<uint32_t>(bytes.size())).Raw(bytes); }
    // Descriptor pieces.
    // Four characters as a key (length 0), anything else by its length.
    ByteWriter& Id(std::string_view key) {
        return U32(key.size() == 4 ? 0 : static_cast<uint32_t>(key.size())).Text(key);
    }
    // An empty Unicode name and the class id.
    ByteWriter& ClassName(std::string_view classId) { return U32(0).Id(classId); }
    ByteWriter& ItemHead(std::string_view key, std::string_view type) { return Id(key).Text(type); }
    ByteWriter& Bool(std::string_view key, bool value) { return ItemHead(key, "bool").U8(value); }
    ByteWriter& Long(std::string_view key, int32_t value) { return ItemHead(key, "long").I32(value); }
    ByteWriter& Double(std::string_view key, double value) { return ItemHead(key, "doub").F64(value); }
    ByteWriter& Unit(std::string_view key, std::string_view unit, double value) {
        return ItemHead(key, "UntF").Text(unit).F64(value);
    }
    ByteWriter& Enum(std::string_view key, std::string_view type, std::string_view value) {
        return ItemHead(key, "enum").Id(type).Id(value);
    }
    ByteWriter& ColorItem(std::string_view key, double red, double green, double blue);  // 0..255 each

    size_t size() const { return m_bytes.size(); }
    const Bytes& bytes() const { return m_bytes; }
    operator Bytes() const { return m_bytes; }  // NOLINT: a writer is passed where bytes are wanted

private:
    ByteWriter& Number(uint64_t value, int size);
    Bytes m_bytes;
};

// Compressors. `rowBytes` cuts the plane into rows.
Bytes PackBits(const Bytes& row);
Bytes Zip(const Bytes& data);
// Takes differences, as a writer of predicted rows does; depth 8 or 16.
Bytes Predict(const Bytes& planes, size_t rowBytes, uint32_t depth);

// The channel data of a plane or planes with its compression code in front. For PackBits the table of row
// lengths stands before all rows.
Bytes EncodePlanes(uint16_t compression, const Bytes& planes, size_t rowBytes, uint32_t depth);

// One layer record and its channel data.
class LayerBuilder {
public:
    explicit LayerBuilder(const Rect& bounds) : m_bounds(bounds) {}

    // A channel whose plane is `samples`, rows of the layer's (or mask's) width at the document's depth.
    LayerBuilder& Channel(int16_t id, Bytes samples, uint16_t compression = 0) {
        return m_channels.push_back({id, std::move(samples), false, compression, {}}), *this;
    }
    // A channel whose data, compression code included, is `data` whatever it means.
    LayerBuilder& ChannelData(int16_t id, Bytes data, std::optional<uint32_t> claimedLength = {}) {
        return m_channels.push_back({id, std::move(data), true, 0, claimedLength}), *this;
    }
    // Channels 0, 1, 2 and -1 of one colour everywhere, 8 bits.
    LayerBuilder& Solid(uint32_t argb);
    // Channels -1, 0, 1, 2 of `pixels`, bounds.Width() x bounds.Height() words, 8 bits.
    LayerBuilder& Pixels(const std::vector<uint32_t>& pixels, uint16_t compression = 0);
    LayerBuilder& Mode(std::string_view key) { return m_modeKey = key, *this; }
    LayerBuilder& Opacity(uint8_t value) { return m_opacity = value, *this; }
    LayerBuilder& Clipping(uint8_t value) { return m_clipping = value, *this; }
    LayerBuilder& Flags(uint8_t value) { return m_flags = value, *this; }
    LayerBuilder& Hidden() { return Flags(2); }
    LayerBuilder& Filler(uint8_t value) { return m_filler = value, *this; }
    // The 20-byte mask; `samples` become channel -2 when given. Flag bit 1 disables the mask.
    LayerBuilder& Mask(const Rect& rect, uint8_t defaultColor, uint8_t maskFlags,
                       std::optional<Bytes> samples = {});
    // The 36-byte mask: the first rectangle and the real one.
    LayerBuilder& RealMask(const Rect& rect, uint8_t defaultColor, uint8_t maskFlags, const Rect& realRect,
                           uint8_t realColor, uint8_t realFlags);
    // The mask as it stands behind its size.
    LayerBuilder& MaskBytes(Bytes bytes) { return m_maskBytes = std::move(bytes), *this; }
    // Blending ranges as they stand behind their length.
    LayerBuilder& Ranges(Bytes bytes) { return m_ranges = std::move(bytes), *this; }
    LayerBuilder& Name(std::string_view text) { return m_name = text, *this; }
    LayerBuilder& Block(std::string_view key, const Bytes& data, std::string_view signature = "8BIM");
    LayerBuilder& BlendSignature(std::string_view text) { return m_blendSignature = text, *this; }
    LayerBuilder& ExtraLength(uint32_t value) { return m_extraLength = value, *this; }
    LayerBuilder& ChannelCount(uint16_t value) { return m_channelCount = value, *this; }

private:
    friend class DocumentBuilder;
    struct ChannelEntry {
        int16_t id;
        Bytes data;
        bool encoded;
        uint16_t compression;
        std::optional<uint32_t> claimedLength;
    };
    Bytes Encoded(const ChannelEntry& channel, uint32_t depth) const;
    Bytes Record(uint32_t depth) const;

    Rect m_bounds, m_maskRect, m_userMaskRect;
    std::string m_modeKey = "norm", m_name = "layer", m_blendSignature = "8BIM";
    uint8_t m_opacity = 255, m_clipping = 0, m_flags = 0, m_filler = 0;
    Bytes m_maskBytes, m_ranges;
    ByteWriter m_blocks;
    std::optional<uint32_t> m_extraLength;
    std::optional<uint16_t> m_channelCount;
    std::vector<ChannelEntry> m_channels;
};

// A group's records, as writers store them: the end marker lies below the members, the group's own record
// above.
LayerBuilder GroupEnd();
// `dividerKey` empty: a divider of 4 bytes; otherwise one of 12 bytes with that key.
LayerBuilder GroupHead(std::string_view recordKey = "norm", std::string_view dividerKey = "pass");

class DocumentBuilder {
public:
    DocumentBuilder(uint32_t colorMode, uint32_t depth, uint32_t channels, uint32_t width, uint32_t height)
        : m_colorMode(colorMode), m_depth(depth), m_channels(channels), m_width(width), m_height(height) {}

    DocumentBuilder& Signature(std::string_view text) { return m_signature = text, *this; }
    DocumentBuilder& Version(uint16_t value) { return m_version = value, *this; }
    DocumentBuilder& ColorModeData(Bytes bytes) { return m_colorModeData = std::move(bytes), *this; }
    DocumentBuilder& Resource(uint16_t id, const Bytes& data, std::string_view name = "",
                              std::string_view resourceSignature = "8BIM");
    DocumentBuilder& HasRealMergedData(bool value);              // resource 1057
    DocumentBuilder& Resolution(double perUnit, uint16_t unit);  // resource 1005, both axes
    DocumentBuilder& Layer(LayerBuilder layer) { return m_layers.push_back(std::move(layer)), *this; }
    // In place of the true one.
    DocumentBuilder& LayerCount(int16_t value) { return m_layerCount = value, *this; }
    // Puts the layer info into a document-level block of this key, as 16-bit documents do.
    DocumentBuilder& LayersInBlock(std::string_view key) { return m_layerBlock = key, *this; }
    DocumentBuilder& DocumentBlock(std::string_view key, const Bytes& data);
    DocumentBuilder& GlobalMask(Bytes bytes) { return m_globalMask = std::move(bytes), *this; }
    // All planes one after another, colour first. Without a call: zeros, raw.
    DocumentBuilder& Merged(Bytes planes, uint16_t compression = 0);
    // The merged section as it is, compression code included; empty for none.
    DocumentBuilder& MergedData(Bytes bytes) {
        return m_hasMergedData = true, m_mergedData = std::move(bytes), *this;
    }

    Bytes LayerInfo() const;  // without its length
    Bytes Build() const;

private:
    uint32_t m_colorMode, m_depth, m_channels, m_width, m_height;
    std::string m_signature = "8BPS", m_layerBlock;
    uint16_t m_version = 1;
    Bytes m_colorModeData, m_globalMask;
    ByteWriter m_resources, m_documentBlocks;
    std::vector<LayerBuilder> m_layers;
    std::optional<int16_t> m_layerCount;
    bool m_hasMergedData = false;  // else zeros stand for it
    Bytes m_mergedData;
};

// Opens `file` from a memory stream. `result` tells how it went; the document is null on failure.
struct Opened {
    Owned<PsdDocument> document;
    PsdReadResult result = PsdReadResult::kOk;
};
Opened OpenBytes(const Bytes& file, uint32_t mode = kReadEverything);

// A document whose reader stands at the first of `bytes`.
struct StreamReader {
    explicit StreamReader(Bytes bytes) : stream(std::move(bytes)) { document.reader.stream = &stream; }
    MemoryStream stream;
    PsdDocument document;
};

}  // namespace tessary::test
