// A stated number of the reader's bytes, a window at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "document/psd_document.h"

namespace tessary {

struct SectionSource {
    static constexpr size_t kWindowBytes = 1u << 17;  // stays in the caches
    static constexpr size_t kSlackBytes = 128;        // that may be read behind what Peek gives

    PsdDocument* document = nullptr;  // borrowed
    uint64_t left = 0;                // that the reader may still be asked for
    uint64_t arrived = 0;             // from the reader, until they are counted for pixels
    bool isShort = false;             // the reader had less than was stated
    size_t begin = 0, end = 0;        // of what has arrived and is not used yet
    Owned<uint8_t> window;            // stays from one section to the next
};

// Begins with the next `count` bytes of the reader, below 2 GiB. False without memory for the window.
bool BeginSection(SectionSource& source, PsdDocument& document, uint64_t count);

// The next bytes, up to `count` (at most the window's) as far as they arrive. They stay unused, and where
// they are until the next call.
std::span<const uint8_t> Peek(SectionSource& source, size_t count);

// Uses up `count` bytes that Peek gave.
inline void Use(SectionSource& source, size_t count) { source.begin += count; }

// Copies up to `count` bytes, uses them up and tells how many there were.
size_t CopyTo(SectionSource& source, uint8_t* to, size_t count);

inline bool IsExhausted(const SectionSource& source) {
    return source.left == 0 && source.begin == source.end;
}

// Passes over the rest, so that the reader stands behind the section.
void Drain(SectionSource& source);

}  // namespace tessary
