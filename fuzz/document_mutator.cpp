// Changes documents without breaking their lengths: the bytes that a length field counts are mutated,
// repeated or taken away, and all lengths around them follow. Plain mutations come between, for lengths that
// lie are worth trying, too.
#include <algorithm>
#include <cstring>
#include <random>

#include "tests/support/document_sections.h"

using tessary::test::Section;

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned int seed) {
    std::minstd_rand random(seed);
    const std::vector<Section> sections = tessary::test::FindSections({data, size});
    if (sections.empty() || random() % 4 == 0) return LLVMFuzzerMutate(data, size, maxSize);
    const Section& chosen = sections[random() % sections.size()];
    // A resource or block ends with its padding.
    const size_t padding = chosen.head == 0 ? 0 : (chosen.end - chosen.begin) % 2;
    const size_t end = std::min(chosen.end + padding, size);
    const bool wholly = chosen.head != 0 && random() % 3 == 0;
    const size_t begin = wholly ? chosen.head : chosen.begin;
    std::vector<uint8_t> bytes(data + begin, data + end);
    if (wholly) {
        bytes.resize(random() % 2 ? 2 * bytes.size() : 0);
        if (!bytes.empty()) std::copy_n(bytes.begin(), end - begin, bytes.begin() + ptrdiff_t(end - begin));
    } else {
        bytes.resize(std::min(2 * bytes.size() + 64, bytes.size() + maxSize - std::min(size, maxSize)));
        if (bytes.empty()) return LLVMFuzzerMutate(data, size, maxSize);
        bytes.resize(LLVMFuzzerMutate(bytes.data(), end - begin, bytes.size()));
        if (chosen.head != 0 && bytes.size() % 2) bytes.push_back(0);
    }
    const size_t newSize = size - (end - begin) + bytes.size();
    if (newSize > maxSize) return LLVMFuzzerMutate(data, size, maxSize);
    for (const Section& section : sections) {
        const bool grows =
            &section == &chosen ? !wholly : section.begin <= chosen.lengthAt && section.end >= chosen.end;
        if (!grows || section.kind == Section::kRest) continue;
        const size_t length = section.end - section.begin + bytes.size() - (end - begin);
        for (size_t i = 0; i < 4; ++i)
            data[section.lengthAt + i] = static_cast<uint8_t>(length >> (24 - 8 * i) & 255);
    }
    std::memmove(data + begin + bytes.size(), data + end, size - end);
    std::ranges::copy(bytes, data + begin);
    return newSize;
}
