#include "document/section_source.h"

#include <algorithm>
#include <cstring>

#include "document/byte_reader.h"

namespace tessary {
namespace {

// Asks the reader for bytes of the section; one that has less is not asked again.
size_t Fetch(SectionSource& source, uint8_t* to, size_t count) {
    const size_t wanted = static_cast<size_t>(std::min<uint64_t>(count, source.left));
    if (wanted == 0) return 0;
    const size_t got = Read(*source.document, to, wanted);
    source.arrived += got;
    source.isShort |= got < wanted;
    source.left = source.isShort ? 0 : source.left - got;
    return got;
}

}  // namespace

bool BeginSection(SectionSource& source, PsdDocument& document, uint64_t count) {
    if (!source.window)
        source.window = AllocateZeroed<uint8_t>({SectionSource::kWindowBytes + SectionSource::kSlackBytes});
    source.document = &document;
    source.left = count;
    source.arrived = 0;
    source.isShort = false;
    source.begin = source.end = 0;
    return static_cast<bool>(source.window);
}

std::span<const uint8_t> Peek(SectionSource& source, size_t count) {
    uint8_t* const window = source.window.get();
    if (source.end - source.begin < count && source.left != 0) {
        const size_t kept = source.end - source.begin;
        if (kept) std::memmove(window, window + source.begin, kept);
        source.begin = 0;
        source.end = kept + Fetch(source, window + kept, SectionSource::kWindowBytes - kept);
    }
    return {window + source.begin, std::min(source.end - source.begin, count)};
}

size_t CopyTo(SectionSource& source, uint8_t* to, size_t count) {
    const size_t waiting = std::min(count, source.end - source.begin);
    if (waiting) std::memcpy(to, source.window.get() + source.begin, waiting);
    source.begin += waiting;
    return waiting + Fetch(source, to + waiting, count - waiting);
}

void Drain(SectionSource& source) {
    if (source.left > 1) Skip(*source.document, static_cast<int32_t>(source.left - 1));
    source.left = std::min<uint64_t>(source.left, 1);
    Fetch(source, source.window.get(), 1);  // to skip can lead beyond the end
    source.begin = source.end = 0;
}

}  // namespace tessary
