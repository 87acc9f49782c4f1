#include "document/descriptor.h"

#include <algorithm>
#include <cstring>

#include "document/big_endian.h"
#include "document/byte_reader.h"

namespace tessary {
namespace {

void SkipBytes(PsdDocument& document, uint64_t count) {
    Skip(document, static_cast<int32_t>(BytesOfLength(count)));
}

// What the data of a type or of a reference form is made of.
enum class Piece : uint8_t {
    kNone,
    kText,     // Unicode string
    kId,       // ID string
    kCounted,  // 32-bit length and that many bytes
    kByte,
    kFour,
    kEight,
    kTwelve,
    // These open a level of their own:
    kItems,     // a descriptor behind its name and class
    kElements,  // a list
    kForms,     // a reference
};

struct Shape {
    uint32_t key;
    Piece pieces[4];
};

constexpr Shape kTypes[] = {
    {FourCC("Objc"), {Piece::kText, Piece::kId, Piece::kItems}},
    {FourCC("GlbO"), {Piece::kText, Piece::kId, Piece::kItems}},
    {FourCC("VlLs"), {Piece::kElements}},
    {FourCC("obj "), {Piece::kForms}},
    {FourCC("type"), {Piece::kText, Piece::kId}},
    {FourCC("GlbC"), {Piece::kText, Piece::kId}},
    {FourCC("enum"), {Piece::kId, Piece::kId}},
    {FourCC("long"), {Piece::kFour}},
    {FourCC("bool"), {Piece::kByte}},
    {FourCC("doub"), {Piece::kEight}},
    {FourCC("UntF"), {Piece::kTwelve}},
    {FourCC("TEXT"), {Piece::kText}},
    {FourCC("alis"), {Piece::kCounted}},
};

constexpr Shape kForms[] = {
    {FourCC("prop"), {Piece::kText, Piece::kId, Piece::kId}},
    {FourCC("Clss"), {Piece::kText, Piece::kId}},
    {FourCC("Enmr"), {Piece::kText, Piece::kId, Piece::kId, Piece::kId}},
    {FourCC("rele"), {Piece::kText, Piece::kId, Piece::kFour}},
    {FourCC("Idnt"), {Piece::kFour}},
    {FourCC("indx"), {Piece::kFour}},
    {FourCC("name"), {Piece::kText}},
};

// The levels that are open: how many entries each still has, and of what kind. Grows from the machine stack
// to the heap; every level costs the file at least eight bytes, so the input bounds it.
class LevelStack {
public:
    bool IsEmpty() const { return m_count == 0; }
    void Pop() { --m_count; }

    struct Level {
        Piece kind;
        uint32_t remaining;
    };
    Level& Top() { return m_levels[m_count - 1]; }

    bool Push(Piece kind, uint32_t remaining) {
        if (m_count == m_capacity) {
            Owned<Level> larger = AllocateZeroed<Level>({m_capacity, 2});
            if (!larger) return false;
            std::copy_n(m_levels, m_count, larger.get());
            m_heap = std::move(larger);
            m_levels = m_heap.get();
            m_capacity *= 2;
        }
        m_levels[m_count++] = {kind, remaining};
        return true;
    }

private:
    Level m_first[64];
    Owned<Level> m_heap;
    Level* m_levels = m_first;
    size_t m_count = 0;
    size_t m_capacity = 64;
};

// Consumes what a shape says; false when the level it opens does not fit in memory.
bool SkipShape(PsdDocument& document, std::span<const Shape> shapes, uint32_t key, LevelStack& levels) {
    const auto shape = std::ranges::find(shapes, key, &Shape::key);
    if (shape == shapes.end()) return true;
    for (const Piece piece : shape->pieces) {
        switch (piece) {
        case Piece::kNone: return true;
        case Piece::kText: SkipUnicodeString(document); break;
        case Piece::kId: SkipIdString(document); break;
        case Piece::kCounted: SkipBytes(document, ReadU32(document)); break;
        case Piece::kByte: Skip(document, 1); break;
        case Piece::kFour: Skip(document, 4); break;
        case Piece::kEight: Skip(document, 8); break;
        case Piece::kTwelve: Skip(document, 12); break;
        case Piece::kItems:
        case Piece::kElements:
        case Piece::kForms: return levels.Push(piece, ReadU32(document));
        }
    }
    return true;
}

void SkipTree(PsdDocument& document, std::span<const Shape> shapes, uint32_t key) {
    LevelStack levels;
    if (!SkipShape(document, shapes, key, levels)) return;
    while (!levels.IsEmpty()) {
        LevelStack::Level& level = levels.Top();
        if (level.remaining == 0) {
            levels.Pop();
            continue;
        }
        --level.remaining;
        const Piece kind = level.kind;
        const uint32_t start = Position(document);
        if (kind == Piece::kItems) SkipIdString(document);
        const uint32_t type = ReadU32(document);
        // Nothing arrives any more: all that is still open would consume nothing either, however often it is
        // counted.
        if (Position(document) == start) return;
        if (!SkipShape(document, kind == Piece::kForms ? std::span<const Shape>(kForms) : kTypes, type,
                       levels))
            return;
    }
}

}  // namespace

void SkipDescriptor(PsdDocument& document) { SkipTree(document, kTypes, FourCC("Objc")); }
void SkipList(PsdDocument& document) { SkipTree(document, kTypes, FourCC("VlLs")); }
void SkipItem(PsdDocument& document, uint32_t type) { SkipTree(document, kTypes, type); }
void SkipReference(PsdDocument& document) { SkipTree(document, kTypes, FourCC("obj ")); }
void SkipClass(PsdDocument& document) { SkipTree(document, kTypes, FourCC("type")); }
void SkipEnum(PsdDocument& document) { SkipTree(document, kTypes, FourCC("enum")); }

void SkipIdString(PsdDocument& document) {
    const uint32_t length = ReadU32(document);
    SkipBytes(document, length ? length : 4);
}

void SkipUnicodeString(PsdDocument& document) { SkipBytes(document, uint64_t{2} * ReadU32(document)); }

void ReadItemKey(PsdDocument& document, PsdItemKey& key) {
    const uint32_t stored = ReadU32(document);
    const uint32_t length = stored ? BytesOfLength(stored) : 4;
    const uint32_t kept = std::min<uint32_t>(length, sizeof key.text);
    std::memset(key.text, 0, sizeof key.text);
    Read(document, key.text, kept);
    key.length = static_cast<uint8_t>(kept);
    SkipBytes(document, length - kept);
}

PsdReadResult ReadDescriptorItems(PsdDocument& document, std::span<const DescriptorItemRow> rows,
                                  void* record) {
    for (uint32_t remaining = ReadU32(document); remaining > 0; --remaining) {
        const uint32_t start = Position(document);
        PsdItemKey key;
        ReadItemKey(document, key);
        const uint32_t type = ReadU32(document);
        if (Position(document) == start) break;
        const auto row =
            std::ranges::find_if(rows, [&](const DescriptorItemRow& entry) { return key == entry.key; });
        if (row == rows.end()) {
            SkipItem(document, type);
        } else if (const PsdReadResult result = row->read(document, type, record);
                   result != PsdReadResult::kOk) {
            return result;
        }
    }
    return PsdReadResult::kOk;
}

PsdReadResult ReadListElements(PsdDocument& document,
                               PsdReadResult (*read)(PsdDocument& document, uint32_t type, void* record),
                               void* record) {
    for (uint32_t remaining = ReadU32(document); remaining > 0; --remaining) {
        const uint32_t start = Position(document);
        const uint32_t type = ReadU32(document);
        if (Position(document) == start) break;
        if (const PsdReadResult result = read(document, type, record); result != PsdReadResult::kOk)
            return result;
    }
    return PsdReadResult::kOk;
}

}  // namespace tessary
