// One zlib stream, inflated piece by piece.
#pragma once

#include <zlib.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "document/psd_result.h"

namespace tessary {

class Inflater {
public:
    // Its memory comes from where all memory of the engine comes from.
    Inflater();
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;
    ~Inflater() {
        if (m_created) inflateEnd(&m_stream);
    }
    bool IsCreated() const { return m_created; }

    // Behind the stream's end nothing comes any more, and nothing can fail.
    bool HasEnded() const { return m_ended; }

    // Fills `output` as far as the stream goes; `produced` tells how far, also on failure. An end before that
    // is no error. kInflateFailed for corrupt data, and for input that ends before the output is full and the
    // stream's end has come; kOutOfMemory.
    //   refill  gives the next piece of the input, below 4 GiB, empty when there is none; called when the
    //           last one is used up. A piece is kept between calls and must live until the next one is asked
    //           for.
    template <class Refill>
    PsdReadResult Inflate(std::span<uint8_t> output, Refill refill, size_t& produced) {
        produced = 0;
        size_t left = output.size();
        m_stream.next_out = output.data();
        m_stream.avail_out = 0;
        while (!m_ended && !output.empty()) {
            if (m_stream.avail_in == 0) {
                const std::span<const uint8_t> piece = refill();
                m_stream.next_in = const_cast<Bytef*>(piece.data());  // zlib does not write through it
                m_stream.avail_in = static_cast<uInt>(piece.size());
            }
            const bool noInput = m_stream.avail_in == 0;
            if (m_stream.avail_out == 0) {
                m_stream.avail_out = static_cast<uInt>(std::min(left, kMostBytes));
                left -= m_stream.avail_out;
            }
            const int code = m_stream.next_in ? inflate(&m_stream, Z_NO_FLUSH) : Z_BUF_ERROR;
            produced = output.size() - left - m_stream.avail_out;
            if (code == Z_STREAM_END) m_ended = true;
            if (code == Z_MEM_ERROR) return PsdReadResult::kOutOfMemory;
            if (code != Z_STREAM_END && code != Z_OK && code != Z_BUF_ERROR)
                return PsdReadResult::kInflateFailed;
            // With input left over the stream waits for room: it is sound as far as it was asked for.
            // Without, the check sum behind the last byte may still be to come.
            if (produced == output.size() && (m_stream.avail_in != 0 || noInput)) break;
            if (noInput && !m_ended) return PsdReadResult::kInflateFailed;
        }
        return PsdReadResult::kOk;
    }

    static constexpr size_t kMostBytes = 1u << 30;  // that are asked of zlib at once: it counts in 32 bits

private:
    z_stream m_stream = {};
    bool m_created = false;
    bool m_ended = false;
};

}  // namespace tessary
