// Where the parts of a document lie.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tessary::test {

// Bytes [begin, end) and the 32-bit field that counts them. A resource or block starts at `head`, where all
// of it can be repeated or taken away; elsewhere that is 0.
struct Section {
    enum Kind { kCounted, kChannel, kRest };
    Kind kind;  // kRest is the merged image, which nothing counts
    size_t head, lengthAt, begin, end;
};

// Every section with those inside it, as far as lengths can be followed; nothing for less than a document.
std::vector<Section> FindSections(std::span<const uint8_t> document);

}  // namespace tessary::test
