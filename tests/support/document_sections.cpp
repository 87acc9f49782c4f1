#include "tests/support/document_sections.h"

#include <algorithm>
#include <cstdlib>

#include "document/big_endian.h"

namespace tessary::test {
namespace {

struct Parser {
    const uint8_t* m_data;
    size_t m_size;
    std::vector<Section> m_sections = {};

    std::vector<Section> Parse() {
        if (m_size < 38) return {};
        size_t at = 26;
        Counted(at);
        const size_t resources = at + 4, resourcesEnd = Counted(at);
        Resources(resources, resourcesEnd);
        const size_t layers = at + 4, layersEnd = Counted(at);
        if (layersEnd > layers + 4) {
            size_t inner = layers;
            const size_t info = inner + 4;
            LayerInfo(info, std::min(Counted(inner), layersEnd));
            Counted(inner);
            Blocks(inner, layersEnd);
        }
        if (at < m_size) m_sections.push_back({Section::kRest, 0, 0, at, m_size});
        return m_sections;
    }

    uint32_t U32(size_t at) const { return at + 4 <= m_size ? LoadU32(m_data + at) : 0; }

    // A length and what it counts; moves behind it and returns that place.
    size_t Counted(size_t& at, size_t head = 0, size_t padding = 1) {
        const size_t begin = at + 4, length = U32(at);
        if (begin > m_size) return at = m_size;
        const size_t end = begin + std::min(length, m_size - begin);
        m_sections.push_back({Section::kCounted, head, at, begin, end});
        return at = std::min(begin + (length + padding - 1) / padding * padding, m_size);
    }

    void Resources(size_t at, size_t end) {
        while (at + 12 <= end) {
            const size_t head = at;
            at += 7 + (m_data[at + 6] | 1u);
            Counted(at, head, 2);
        }
    }

    void Blocks(size_t at, size_t end) {
        while (at + 12 <= end && U32(at) == FourCC("8BIM")) {
            const size_t head = at;
            at += 8;
            const size_t blockEnd = Counted(at, head, 2);
            if (U32(head + 4) == FourCC("Lr16")) LayerInfo(head + 12, blockEnd);
        }
    }

    void LayerInfo(size_t at, size_t end) {
        const int count = static_cast<int16_t>(U32(at) >> 16);
        std::vector<size_t> channels;
        at += 2;
        for (int i = 0; i < std::abs(count) && at + 34 <= end; ++i) {
            const uint32_t channelCount = U32(at + 16) >> 16;
            at += 18;
            for (uint32_t k = 0; k < channelCount && at + 6 <= end; ++k, at += 6) channels.push_back(at + 2);
            at += 12;
            size_t extra = at + 4;
            const size_t extraEnd = std::min(Counted(at), end);
            Counted(extra);
            Counted(extra);
            if (extra < extraEnd) Blocks(extra + (m_data[extra] + 4u) / 4 * 4, extraEnd);
        }
        for (const size_t lengthAt : channels) {
            const size_t length = std::min<size_t>(U32(lengthAt), end - std::min(at, end));
            m_sections.push_back({Section::kChannel, 0, lengthAt, at, at + length});
            at += length;
        }
    }
};

}  // namespace

std::vector<Section> FindSections(std::span<const uint8_t> document) {
    return Parser{document.data(), document.size()}.Parse();
}

}  // namespace tessary::test
