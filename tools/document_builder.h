// Writes documents, sound and damaged ones, for tests, samples and the fuzzers' first inputs.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "document/psd_document.h"
#include "tools/memory_stream.h"

namespace tessary::test {

// A big-endian writer. Each verb appends and returns the writer.
class ByteWriter {
public:
    ByteWriter& U8(uint32_t value) { return Number(value, 1); }
    ByteWriter& U16(uint32_t value) { return Number(value, 2); }
    ByteWriter& U32(uint32_t value) { return Number(value, 4); }
    ByteWriter& I16(int32_t value) { return U16(static_cast<uint32_t>(value)); }
    ByteWriter& I32(int32_t value) { return U32(static_cast<uint32_t>(value)); }
    // 16.16
    ByteWriter& Fixed(double value) { return I32(static_cast<int32_t>(std::lround(value * 65536))); }
    ByteWriter& F32(float value) { return U32(std::bit_cast<uint32_t>(value)); }
    ByteWriter& F64(double value) { return Number(std::bit_cast<uint64_t>(value), 8); }
    // A key or signature: the characters as they are.
    ByteWriter& Text(std::string_view text) { return Raw(Bytes(text.begin(), text.end())); }
    ByteWriter& Raw(const Bytes& bytes) {
        return m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end()), *this;
    }
    ByteWriter& Zeros(size_t count) { return Raw(Bytes(count)); }
    ByteWriter& RectTlbr(const Rect& r) { return I32(r.top).I32(r.left).I32(r.bottom).I32(r.right); }
    // Length byte, text, zeros up to the alignment.
    ByteWriter& Pascal(std::string_view text, size_t alignment) {
        U8(static_cast<uint32_t>(text.size())).Text(text);
        return Zeros((alignment - (1 + text.size()) % alignment) % alignment);
    }
    // 32-bit length in units, then the units.
    ByteWriter& Unicode(std::u16string_view text) {
        U32(static_cast<uint32_t>(text.size()));
        for (const char16_t unit : text) U16(unit);
        return *this;
    }
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
    // 0..255 each.
    ByteWriter& ColorItem(std::string_view key, double red, double green, double blue) {
        ItemHead(key, "Objc").ClassName("RGBC").U32(3).Double("Rd  ", red);
        return Double("Grn ", green).Double("Bl  ", blue);
    }

    size_t size() const { return m_bytes.size(); }
    const Bytes& bytes() const { return m_bytes; }
    operator Bytes() const { return m_bytes; }  // NOLINT: a writer is passed where bytes are wanted

private:
    ByteWriter& Number(uint64_t value, int size) {
        while (--size >= 0) m_bytes.push_back(static_cast<uint8_t>(value >> 8 * size));
        return *this;
    }
    Bytes m_bytes;
};

Bytes Zip(const Bytes& data);

// The channel data of a plane or planes with its compression code in front. `rowBytes` cuts it into rows. For
// PackBits the table of row lengths stands before all rows.
Bytes EncodePlanes(uint16_t compression, const Bytes& planes, size_t rowBytes, uint32_t depth);

// One layer record and its channel data.
class LayerBuilder {
public:
    explicit LayerBuilder(const Rect& bounds) : m_bounds(bounds) {}

    // A channel whose plane is `samples`, rows of the layer's (or mask's) width at the document's depth.
    LayerBuilder& Channel(int16_t id, Bytes samples, uint16_t compression = 0) {
        return m_channels.push_back({id, std::move(samples), compression, {}}), *this;
    }
    // A channel whose data, compression code included, is `data` whatever it means.
    LayerBuilder& ChannelData(int16_t id, Bytes data, std::optional<uint32_t> claimedLength = {}) {
        return m_channels.push_back({id, std::move(data), {}, claimedLength}), *this;
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
    LayerBuilder& Block(std::string_view key, const Bytes& data, std::string_view signature = "8BIM") {
        return m_blocks.Text(signature).Text(key).Counted(data).Zeros(data.size() % 2), *this;
    }
    LayerBuilder& ExtraLength(uint32_t value) { return m_extraLength = value, *this; }
    LayerBuilder& ChannelCount(uint16_t value) { return m_channelCount = value, *this; }

private:
    friend class DocumentBuilder;
    struct ChannelEntry {
        int16_t id;
        Bytes data;
        std::optional<uint16_t> compression;  // none: the data is encoded
        std::optional<uint32_t> claimedLength;
    };
    Bytes Encoded(const ChannelEntry& channel, uint32_t depth) const;
    Bytes Record(uint32_t depth) const;

    Rect m_bounds, m_maskRect, m_userMaskRect;
    std::string m_modeKey = "norm", m_name = "layer";
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
                              std::string_view signature = "8BIM") {
        m_resources.Text(signature).U16(id).Pascal(name, 2).Counted(data).Zeros(data.size() % 2);
        return *this;
    }
    DocumentBuilder& HasRealMergedData(bool value) {
        return Resource(1057, ByteWriter().U32(1).U8(value).Unicode(u"writer").Unicode(u"reader").U32(1));
    }
    // Of both axes.
    DocumentBuilder& Resolution(double perUnit, uint16_t unit) {
        return Resource(1005, ByteWriter().Fixed(perUnit).U16(unit).U16(1).Fixed(perUnit).U16(unit).U16(1));
    }
    DocumentBuilder& Layer(LayerBuilder layer) { return m_layers.push_back(std::move(layer)), *this; }
    // In place of the true one.
    DocumentBuilder& LayerCount(int16_t value) { return m_layerCount = value, *this; }
    // Puts the layer info into a document-level block of this key, as 16-bit documents do.
    DocumentBuilder& LayersInBlock(std::string_view key) { return m_layerBlock = key, *this; }
    DocumentBuilder& DocumentBlock(std::string_view key, const Bytes& data) {
        return m_documentBlocks.Text("8BIM").Text(key).Counted(data), *this;
    }
    DocumentBuilder& GlobalMask(Bytes bytes) { return m_globalMask = std::move(bytes), *this; }
    // All planes one after another, colour first. Without a call: zeros, raw.
    DocumentBuilder& Merged(const Bytes& planes, uint16_t compression = 0) {
        return MergedData(EncodePlanes(compression, planes, (size_t{m_width} * m_depth + 7) / 8, m_depth));
    }
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
    bool m_hasMergedData = false;  // else zeros, raw
    Bytes m_mergedData;
};

// Several values as one, which a test that fails shows side by side.
template <class... Values>
std::tuple<Values...> All(const Values&... values) {
    return {values...};
}

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
