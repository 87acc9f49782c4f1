// Action descriptors: self-describing trees of keyed, typed values inside tagged blocks. What a reader has no
// use for is walked and dropped, at any depth, without recursion. Types and forms that are not known consume
// nothing; callers skip to the end of their block afterwards, which brings the reader back into step. So it
// is with lengths of 2 GiB and more, which no file can have.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "document/psd_document.h"

namespace tessary {

// The bytes that a stated length stands for.
constexpr uint32_t BytesOfLength(uint64_t stated) { return stated >> 31 ? 0 : static_cast<uint32_t>(stated); }

void SkipDescriptor(PsdDocument& document);
void SkipList(PsdDocument& document);
// The data of one item whose type has been read.
void SkipItem(PsdDocument& document, uint32_t type);
void SkipReference(PsdDocument& document);
void SkipClass(PsdDocument& document);
void SkipEnum(PsdDocument& document);
void SkipIdString(PsdDocument& document);
void SkipUnicodeString(PsdDocument& document);

// An ID string: the key of an item, a class or an enumerated value.
struct PsdItemKey {
    uint8_t length = 0;
    char text[255];  // the first `length` characters count

    bool operator==(std::string_view other) const { return std::string_view(text, length) == other; }
};

// Reads an ID string; of one longer than 255 bytes the rest is passed over.
void ReadItemKey(PsdDocument& document, PsdItemKey& key);

// One key that a reader of a descriptor understands. `read` gets the item's type, consumes its value and
// stores it in `record`.
struct DescriptorItemRow {
    std::string_view key;
    PsdReadResult (*read)(PsdDocument& document, uint32_t type, void* record);
};

// Reads an item count and the items: those with a row by the row, all others are skipped by their type. Stops
// early with the stream.
PsdReadResult ReadDescriptorItems(PsdDocument& document, std::span<const DescriptorItemRow> rows,
                                  void* record);

// Reads elements of a list, its count first, each given to `read` as an item of its type. Stops early with
// the stream.
PsdReadResult ReadListElements(PsdDocument& document,
                               PsdReadResult (*read)(PsdDocument& document, uint32_t type, void* record),
                               void* record);

}  // namespace tessary
