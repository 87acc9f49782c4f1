#include "document/inflater.h"

#include <algorithm>
#include <utility>

namespace tessary {
namespace {

voidpf AllocateForZlib(voidpf, uInt items, uInt size) {
    const auto bytes = CheckedProduct({items, size});
    return bytes ? AllocateZeroedBytes(*bytes) : nullptr;
}

void FreeForZlib(voidpf, voidpf memory) { FreeBytes(memory); }

constexpr size_t kMostAtOnce = 1u << 30;  // that zlib is asked for: it counts in 32 bits

}  // namespace

PsdReadResult Inflater::Begin() {
    m_ended = false;
    m_stream.next_in = nullptr;
    m_stream.avail_in = 0;
    if (m_created) return inflateReset(&m_stream) == Z_OK ? PsdReadResult::kOk : PsdReadResult::kInflateSetup;
    m_stream.zalloc = AllocateForZlib;
    m_stream.zfree = FreeForZlib;
    m_created = inflateInit2(&m_stream, 15) == Z_OK;
    return m_created ? PsdReadResult::kOk : PsdReadResult::kInflateSetup;
}

PsdReadResult Inflater::Inflate(SectionSource& source, std::span<uint8_t> output, bool endIsSound,
                                size_t& produced) {
    produced = 0;
    size_t left = output.size();
    m_stream.next_out = output.data();
    m_stream.avail_out = 0;
    while (!m_ended && !output.empty()) {
        if (m_stream.avail_in == 0) {
            const std::span<const uint8_t> piece = Peek(source, SectionSource::kWindowBytes);
            Use(source, piece.size());
            m_stream.next_in = const_cast<Bytef*>(piece.data());  // zlib does not write through it
            m_stream.avail_in = static_cast<uInt>(piece.size());
        }
        const bool noInput = m_stream.avail_in == 0;
        if (m_stream.avail_out == 0) {
            m_stream.avail_out = static_cast<uInt>(std::min(left, kMostAtOnce));
            left -= m_stream.avail_out;
        }
        const int code = inflate(&m_stream, Z_NO_FLUSH);
        produced = output.size() - left - m_stream.avail_out;
        if (code == Z_STREAM_END) m_ended = true;
        if (code == Z_MEM_ERROR) return PsdReadResult::kOutOfMemory;
        if (code != Z_STREAM_END && code != Z_OK && code != Z_BUF_ERROR) return PsdReadResult::kInflateFailed;
        // With input left over the stream waits for room: it is sound as far as it was asked for. Without,
        // the check sum behind the last byte may still be to come.
        if (produced == output.size() && (m_stream.avail_in != 0 || noInput)) break;
        if (!noInput || m_ended) continue;
        if (!endIsSound) return PsdReadResult::kInflateFailed;
        m_ended = true;
    }
    return PsdReadResult::kOk;
}

}  // namespace tessary
