#include "tools/document_builder.h"

#include <zlib.h>

#include <stdexcept>

#include "document/plane_format.h"

namespace tessary::test {

Bytes Zip(const Bytes& data) {
    uLongf size = compressBound(static_cast<uLong>(data.size()));
    Bytes packed(size);
    if (compress(packed.data(), &size, data.data(), static_cast<uLong>(data.size())) != Z_OK)
        throw std::runtime_error("zlib cannot compress");
    return packed.resize(size), packed;
}

namespace {

Bytes PackBits(const Bytes& row) {
    const auto runsAt = [&](size_t at) {
        return at + 2 < row.size() && row[at] == row[at + 1] && row[at] == row[at + 2];
    };
    Bytes packed;
    for (size_t i = 0, end = 0; i < row.size(); i = end) {
        const bool run = runsAt(i);
        while (end < row.size() && end - i < 128 && (run ? row[end] == row[i] : !runsAt(end))) ++end;
        packed.push_back(static_cast<uint8_t>(run ? 257 - (end - i) : end - i - 1));
        packed.insert(packed.end(), &row[i], &row[i] + (run ? 1 : end - i));
    }
    return packed;
}

// Takes differences, as a writer of predicted rows does.
Bytes Predict(const Bytes& planes, size_t rowBytes, uint32_t depth) {
    Bytes result = planes;
    const size_t step = depth / 8;
    for (size_t i = rowBytes ? planes.size() / step * step : 0; i-- > 0;) {
        // Byte by byte from the sample's last, with the borrow of the byte below.
        if (i % rowBytes < step) continue;
        bool borrow = false;
        for (size_t k = i - i % step + step - 1; k > i; --k) borrow = planes[k] < planes[k - step] + borrow;
        result[i] = static_cast<uint8_t>(planes[i] - planes[i - step] - borrow);
    }
    return result;
}

size_t RowBytes(int64_t width, uint32_t depth) {
    return width < 1 ? 0 : (static_cast<size_t>(width) * depth + 7) / 8;
}

}  // namespace

Bytes EncodePlanes(uint16_t compression, const Bytes& planes, size_t rowBytes, uint32_t depth) {
    ByteWriter out, rows;
    out.U16(compression);
    if (compression == kCompressionZip) return out.Raw(Zip(planes));
    if (compression == kCompressionZipPrediction) return out.Raw(Zip(Predict(planes, rowBytes, depth)));
    if (compression != kCompressionPackBits) return out.Raw(planes);
    for (size_t at = 0; rowBytes != 0 && at + rowBytes <= planes.size(); at += rowBytes) {
        const Bytes row = PackBits(Bytes(&planes[at], &planes[at] + rowBytes));
        out.U16(static_cast<uint32_t>(row.size()));
        rows.Raw(row);
    }
    return out.Raw(rows);
}

LayerBuilder& LayerBuilder::Solid(uint32_t argb) {
    const size_t count = m_bounds.IsEmpty() ? 0 : static_cast<size_t>(m_bounds.Width() * m_bounds.Height());
    return Pixels(std::vector<uint32_t>(count, argb));
}

LayerBuilder& LayerBuilder::Pixels(const std::vector<uint32_t>& pixels, uint16_t compression) {
    for (int16_t id = -1; id <= 2; ++id) {
        Bytes plane;
        for (const uint32_t pixel : pixels) plane.push_back(static_cast<uint8_t>(pixel >> (16 - 8 * id)));
        Channel(id, std::move(plane), compression);
    }
    return *this;
}

LayerBuilder& LayerBuilder::Mask(const Rect& rect, uint8_t defaultColor, uint8_t maskFlags,
                                 std::optional<Bytes> samples) {
    m_maskRect = m_userMaskRect = rect;
    m_maskBytes = ByteWriter().RectTlbr(rect).U8(defaultColor).U8(maskFlags).U16(0);
    return samples ? Channel(-2, std::move(*samples)) : *this;
}

LayerBuilder& LayerBuilder::RealMask(const Rect& rect, uint8_t defaultColor, uint8_t maskFlags,
                                     const Rect& realRect, uint8_t realColor, uint8_t realFlags) {
    m_userMaskRect = rect;
    m_maskRect = realRect;
    ByteWriter bytes = ByteWriter().RectTlbr(rect).U8(defaultColor).U8(maskFlags).U8(realFlags).U8(realColor);
    return MaskBytes(bytes.RectTlbr(realRect));
}

Bytes LayerBuilder::Encoded(const ChannelEntry& channel, uint32_t depth) const {
    if (!channel.compression) return channel.data;
    const Rect& rect = channel.id == -3 ? m_maskRect : channel.id == -2 ? m_userMaskRect : m_bounds;
    return EncodePlanes(*channel.compression, channel.data, RowBytes(rect.Width(), depth), depth);
}

Bytes LayerBuilder::Record(uint32_t depth) const {
    ByteWriter extra, record;
    extra.Counted(m_maskBytes).Counted(m_ranges).Pascal(m_name, 4).Raw(m_blocks);
    record.RectTlbr(m_bounds).U16(m_channelCount.value_or(static_cast<uint16_t>(m_channels.size())));
    for (const ChannelEntry& channel : m_channels) {
        const uint32_t length = static_cast<uint32_t>(Encoded(channel, depth).size());
        record.I16(channel.id).U32(channel.claimedLength.value_or(length));
    }
    record.Text("8BIM").Text(m_modeKey).U8(m_opacity).U8(m_clipping).U8(m_flags).U8(m_filler);
    record.U32(m_extraLength.value_or(static_cast<uint32_t>(extra.size()))).Raw(extra.bytes());
    return record;
}

// Writers give every record, group markers too, the four channels of an empty layer.
LayerBuilder GroupEnd() {
    return LayerBuilder({}).Solid(0).Name("</Layer group>").Block("lsct", ByteWriter().U32(3));
}

LayerBuilder GroupHead(std::string_view recordKey, std::string_view dividerKey) {
    ByteWriter divider = ByteWriter().U32(1);
    if (!dividerKey.empty()) divider.Text("8BIM").Text(dividerKey);
    return LayerBuilder({}).Solid(0).Name("group").Mode(recordKey).Block("lsct", divider);
}

Bytes DocumentBuilder::LayerInfo() const {
    ByteWriter info = ByteWriter().I16(m_layerCount.value_or(static_cast<int16_t>(m_layers.size())));
    for (const LayerBuilder& layer : m_layers) info.Raw(layer.Record(m_depth));
    for (const LayerBuilder& layer : m_layers) {
        for (const auto& channel : layer.m_channels) info.Raw(layer.Encoded(channel, m_depth));
    }
    return info.Zeros(info.size() % 2);
}

Bytes DocumentBuilder::Build() const {
    ByteWriter file, section;
    file.Text(m_signature).U16(m_version).Zeros(6).U16(m_channels).U32(m_height).U32(m_width);
    file.U16(m_depth).U16(m_colorMode);
    file.Counted(m_colorModeData).Counted(m_resources.bytes());

    const bool hasLayers = !m_layers.empty() || m_layerCount;
    const bool inBlock = hasLayers && !m_layerBlock.empty();
    if (hasLayers || m_documentBlocks.size() || !m_globalMask.empty())
        section.Counted(hasLayers && !inBlock ? LayerInfo() : Bytes()).Counted(m_globalMask);
    // The length of the block is the length of the layer info.
    if (inBlock) section.Text("8BIM").Text(m_layerBlock).Counted(LayerInfo());
    file.Counted(section.Raw(m_documentBlocks));

    if (m_hasMergedData) return file.Raw(m_mergedData);
    return file.U16(0).Zeros(RowBytes(m_width, m_depth) * m_height * m_channels);
}

Opened OpenBytes(const Bytes& file, uint32_t mode) {
    MemoryStream stream(file);
    Opened opened;
    opened.result = OpenDocument(opened.document, &stream, mode);
    return opened;
}

}  // namespace tessary::test
