// Documents whose layers have some of everything, extreme rectangles included.
#pragma once

#include <limits>
#include <random>

#include "tools/document_builder.h"
#include "tools/sample_blocks.h"

namespace tessary::test {

class RandomDocument {
public:
    // Without effects and adjustments when it is plain.
    RandomDocument(uint32_t seed, uint32_t width, uint32_t height, bool isPlain)
        : m_random(seed), m_width(width), m_height(height), m_isPlain(isPlain) {}

    Bytes File() {
        const uint32_t mode = m_isPlain && Below(5) == 0 ? kColorGrayscale : kColorRgb;
        DocumentBuilder document(mode, 8, 3, m_width, m_height), second = document;
        for (uint32_t left = 2 + Below(6); left > 0; --left) {
            const bool isGroup = Sometimes();
            if (isGroup) document.Layer(GroupEnd()).Layer(NextLayer());
            document.Layer(NextLayer());
            LayerBuilder head = GroupHead(Mode(), Sometimes() ? "" : Mode()).Opacity(Byte());
            if (Below(10) == 0) head.Hidden();
            if (isGroup) document.Layer(head);
            second.Layer(NextLayer());
        }
        if (!m_isPlain && Below(3) == 0) document.LayersInBlock("Lr16");
        if (!m_isPlain && Below(5) == 0) document.DocumentBlock("Lr16", second.LayerInfo());
        return document.MergedData({}).Build();
    }

private:
    uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(m_random()) % limit; }
    bool Sometimes() { return Below(4) == 0; }
    uint8_t Byte() { return Below(3) ? 255 : static_cast<uint8_t>(Below(2) * Below(256)); }
    int32_t Near(uint32_t size) { return static_cast<int32_t>(Below(size + 8)) - 4; }
    Rect Bounds() {
        const int32_t left = Near(m_width), top = Near(m_height);
        return {left, top, left + Near(m_width), top + Near(m_height)};
    }
    std::string_view Mode() {
        static constexpr std::string_view kKeys =
            "normdissdarkmul idivlbrnlitescrndiv lddgoversLithLitvLitlLitpLithMixdiffsmudhue sat colrlum "
            "pass";
        return Sometimes() ? "norm" : kKeys.substr(4 * Below(24), 4);
    }

    // Four to a range of a source and of what it is blended with.
    void AddRanges(ByteWriter& ranges) {
        for (int i = 0; i < 2; ++i)
            ranges.U16(Below(2) * Below(0x8000)).U16(0xFFFF - Below(2) * Below(0x8000));
    }
    void AddBlending(LayerBuilder& layer) {
        ByteWriter ranges, excluded;
        if (Below(20) == 0) {
            ranges.U16(0x8040).U16(0x8040).U16(0).U16(0xFFFF);
        } else {
            AddRanges(ranges);
        }
        for (uint32_t left = 1 + Below(5); left > 0; --left) AddRanges(ranges);
        for (int32_t id = -1; id < 3; ++id) {
            if (Below(3) == 0) excluded.I32(id);
        }
        layer.Ranges(ranges);
        if (Below(2)) layer.Block("brst", excluded);
    }
    void AddMask(LayerBuilder& layer) {
        constexpr int32_t kLeast = std::numeric_limits<int32_t>::min(), kMost = ~kLeast;
        const uint32_t which = Below(4);
        const Rect bounds = which == 0   ? Rect{kLeast, kLeast, kMost, kMost}
                            : which == 1 ? Rect{kMost - 2, 0, kMost, 2}
                                         : Bounds();
        layer.Mask(bounds, Below(2) ? 0 : 255, Below(2) ? 2 : 0);
        if (which == 0 || bounds.IsEmpty()) return;  // nothing can fill the first
        Bytes bytes(static_cast<size_t>(bounds.Width() * bounds.Height()));
        for (uint8_t& byte : bytes) byte = Byte();
        layer.Channel(-2, bytes);
    }

    LayerBuilder NextLayer() {
        const uint32_t kind = m_isPlain ? 9 : Below(8);
        const Rect bounds = kind == 0 ? Rect{} : Below(8) == 0 ? Rect{-1, 0, 1200, 12} : Bounds();
        LayerBuilder layer(bounds);
        layer.Mode(Mode()).Opacity(Byte()).Clipping(Sometimes()).Block("iOpa", {Byte(), 0, 0, 0});
        if (kind < 2 || bounds.IsEmpty()) {
            layer.ChannelData(-1, {}).ChannelData(0, {0, 0});
        } else {
            std::vector<uint32_t> pixels(static_cast<size_t>(bounds.Width() * bounds.Height()));
            for (uint32_t& pixel : pixels) pixel = PackPixel(Byte(), Below(256), Below(256), Below(256));
            layer.Pixels(pixels, static_cast<uint16_t>(Below(4)));
        }
        if (Below(2)) AddMask(layer);
        if (Sometimes()) AddBlending(layer);
        if (Below(10) == 0) layer.Hidden();
        if (m_isPlain) return layer;
        if (kind == 0 || Below(5) == 0)
            layer.Block(Below(2) ? "nvrt" : "blnc", ByteWriter().I16(40).Zeros(18));
        if (Sometimes()) layer.Block("lfx2", tools::DropShadow(75, 120, 4, static_cast<int>(Below(9))));
        if (Sometimes()) layer.Block("lfx2", tools::ColorOverlay());
        return layer;
    }

    std::mt19937 m_random;
    uint32_t m_width, m_height;
    bool m_isPlain;
};

}  // namespace tessary::test
