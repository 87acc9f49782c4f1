// Changes documents without breaking their lengths: the bytes that a length field counts are mutated,
// repeated or taken away, and all lengths around them follow. Plain mutations come between, for lengths that
// lie are worth trying, too.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "tests/support/document_sections.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

using namespace tessary::test;

// Puts `bytes` in place of [begin, end), which is the content of the chosen section or all of it. What that
// changes is added to the lengths around it. Returns the new size, 0 when it does not fit.
size_t Replace(uint8_t* data, size_t size, size_t maxSize, const std::vector<Section>& sections,
               const Section& chosen, size_t begin, size_t end, const std::vector<uint8_t>& bytes) {
    const size_t newSize = size - (end - begin) + bytes.size();
    if (newSize > maxSize) return 0;
    for (const Section& section : sections) {
        const bool grows = &section == &chosen
                               ? begin == chosen.begin
                               : section.begin <= chosen.lengthAt && section.end >= chosen.end;
        if (!grows || section.kind == Section::kRest) continue;
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
    const std::vector<Section> sections = FindSections({data, size});
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
