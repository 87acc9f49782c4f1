// Changes documents without breaking their lengths: the bytes that a length field counts are mutated,
// repeated, taken away or exchanged for those of another document, and all lengths around them follow. Plain
// mutations come between, for lengths that lie are worth trying, too.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "document/big_endian.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

using tessary::FourCC;
using tessary::LoadU16;
using tessary::LoadU32;

enum class Kind { kSection, kResource, kRecordPart, kBlock, kChannel, kRest };

// Bytes [begin, end) and the 32-bit field that counts them, perhaps with a code or padding more. A resource
// or block starts at `head`, where all of it can be repeated or taken away.
struct Section {
    Kind kind;
    size_t head, lengthAt, begin, end;
};

class Parser {
public:
    Parser(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}

    std::vector<Section> Sections() {
        if (m_size < 38) return {};
        size_t at = 26;
        Counted(at, Kind::kSection);
        const size_t resources = at + 4, resourcesEnd = Counted(at, Kind::kSection);
        Resources(resources, resourcesEnd);
        const size_t layers = at + 4, layersEnd = Counted(at, Kind::kSection);
        if (layersEnd > layers + 4) {
            size_t inner = layers;
            const size_t info = inner + 4;
            LayerInfo(info, std::min(Counted(inner, Kind::kSection), layersEnd));
            Counted(inner, Kind::kSection);
            Blocks(inner, layersEnd);
        }
        if (at < m_size) m_sections.push_back({Kind::kRest, 0, 0, at, m_size});
        return m_sections;
    }

private:
    uint32_t U32(size_t at) const { return at + 4 <= m_size ? LoadU32(m_data + at) : 0; }
    uint32_t U16(size_t at) const { return at + 2 <= m_size ? LoadU16(m_data + at) : 0; }

    // A length and what it counts; moves behind it and returns that place.
    size_t Counted(size_t& at, Kind kind, size_t head = 0, size_t padding = 1) {
        const size_t begin = at + 4, length = U32(at);
        if (begin > m_size) return at = m_size;
        const size_t end = begin + std::min(length, m_size - begin);
        m_sections.push_back({kind, head, at, begin, end});
        return at = std::min(begin + (length + padding - 1) / padding * padding, m_size);
    }

    void Resources(size_t at, size_t end) {
        while (at + 12 <= end) {
            const size_t head = at, name = m_data[at + 6] | 1u;
            at += 7 + name;
            Counted(at, Kind::kResource, head, 2);
        }
    }

    void Blocks(size_t at, size_t end) {
        while (at + 12 <= end && U32(at) == FourCC("8BIM")) {
            const size_t head = at;
            const bool layers = U32(at + 4) == FourCC("Lr16");
            at += 8;
            const size_t begin = at + 4, blockEnd = Counted(at, Kind::kBlock, head, 2);
            if (layers) LayerInfo(begin, blockEnd);
        }
    }

    void LayerInfo(size_t at, size_t end) {
        const int count = static_cast<int16_t>(U16(at));
        std::vector<size_t> channels;
        at += 2;
        for (int i = 0; i < std::abs(count) && at + 34 <= end; ++i) {
            const uint32_t channelCount = U16(at + 16);
            at += 18;
            for (uint32_t k = 0; k < channelCount && at + 6 <= end; ++k, at += 6) channels.push_back(at + 2);
            at += 12;
            size_t extra = at + 4;
            const size_t extraEnd = std::min(Counted(at, Kind::kRecordPart), end);
            Counted(extra, Kind::kRecordPart);
            Counted(extra, Kind::kRecordPart);
            if (extra < extraEnd) Blocks(extra + (m_data[extra] + 4u) / 4 * 4, extraEnd);
        }
        for (const size_t lengthAt : channels) {
            const size_t length = std::min<size_t>(U32(lengthAt), end - std::min(at, end));
            m_sections.push_back({Kind::kChannel, 0, lengthAt, at, at + length});
            at += length;
        }
    }

    const uint8_t* m_data;
    size_t m_size;
    std::vector<Section> m_sections;
};

// Puts `bytes` in place of [begin, end), which is the content of the chosen section, all of it, or the place
// in front of it. What that changes is added to the lengths around it. Returns the new size, 0 when it does
// not fit.
size_t Replace(uint8_t* data, size_t size, size_t maxSize, const std::vector<Section>& sections,
               const Section& chosen, size_t begin, size_t end, const std::vector<uint8_t>& bytes) {
    const size_t newSize = size - (end - begin) + bytes.size();
    if (newSize > maxSize) return 0;
    for (const Section& section : sections) {
        const bool grows = &section == &chosen
                               ? begin == chosen.begin
                               : section.begin <= chosen.lengthAt && section.end >= chosen.end;
        if (!grows || section.kind == Kind::kRest) continue;
        const size_t length = section.end - section.begin + bytes.size() - (end - begin);
        for (size_t i = 0; i < 4; ++i)
            data[section.lengthAt + i] = static_cast<uint8_t>(length >> (24 - 8 * i) & 255);
    }
    std::memmove(data + begin + bytes.size(), data + end, size - end);
    std::ranges::copy(bytes, data + begin);
    return newSize;
}

// Where the section ends with its padding.
size_t PaddedEnd(const Section& section, size_t size) {
    return section.head == 0 ? section.end : std::min(section.end + (section.end - section.begin) % 2, size);
}

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned int seed) {
    std::minstd_rand random(seed);
    const auto below = [&](size_t limit) { return random() % limit; };
    const std::vector<Section> sections = Parser(data, size).Sections();
    if (sections.empty() || below(4) == 0) return LLVMFuzzerMutate(data, size, maxSize);
    const Section& section = sections[below(sections.size())];
    const size_t end = PaddedEnd(section, size);
    size_t begin = section.begin;
    std::vector<uint8_t> bytes;
    if (section.head != 0 && below(3) == 0) {
        begin = section.head;
        for (size_t copies = 2 * below(2); copies > 0; --copies)
            bytes.insert(bytes.end(), data + begin, data + end);
    } else {
        bytes.assign(data + begin, data + end);
        bytes.resize(std::min(2 * bytes.size() + 64, bytes.size() + maxSize - std::min(size, maxSize)));
        if (bytes.empty()) return LLVMFuzzerMutate(data, size, maxSize);
        bytes.resize(LLVMFuzzerMutate(bytes.data(), end - begin, bytes.size()));
        if (section.head != 0 && bytes.size() % 2) bytes.push_back(0);
    }
    const size_t newSize = Replace(data, size, maxSize, sections, section, begin, end, bytes);
    return newSize ? newSize : LLVMFuzzerMutate(data, size, maxSize);
}

extern "C" size_t LLVMFuzzerCustomCrossOver(const uint8_t* data, size_t size, const uint8_t* other,
                                            size_t otherSize, uint8_t* out, size_t maxSize,
                                            unsigned int seed) {
    std::minstd_rand random(seed);
    if (size > maxSize) return 0;
    std::copy(data, data + size, out);
    const std::vector<Section> sections = Parser(out, size).Sections();
    const std::vector<Section> donors = Parser(other, otherSize).Sections();
    for (int attempt = 0; attempt < 8 && !sections.empty() && !donors.empty(); ++attempt) {
        const Section& section = sections[random() % sections.size()];
        const Section& donor = donors[random() % donors.size()];
        if (section.kind != donor.kind) continue;
        // A whole resource or block comes with its key and its own length, in front of one or in its place.
        const size_t begin = section.head ? section.head : section.begin;
        const size_t end = section.head && random() % 2 ? begin : PaddedEnd(section, size);
        const size_t from = donor.head ? donor.head : donor.begin;
        const std::vector<uint8_t> bytes(other + from, other + PaddedEnd(donor, otherSize));
        return Replace(out, size, maxSize, sections, section, begin, end, bytes);
    }
    return 0;
}
