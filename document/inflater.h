// One zlib stream after another, inflated piece by piece.
#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <span>

#include "document/psd_result.h"
#include "document/section_source.h"

namespace tessary {

class Inflater {
public:
    Inflater() = default;
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;
    ~Inflater() {
        if (m_created) inflateEnd(&m_stream);
    }

    // Begins a new stream. Its memory comes from where all memory of the engine comes from, and stays for the
    // next one. kInflateSetup.
    PsdReadResult Begin();

    // Behind the stream's end nothing comes any more, and nothing can fail.
    bool HasEnded() const { return m_ended; }

    // Fills `output` as far as the stream goes; `produced` tells how far, also on failure. An end before that
    // is no error. kInflateFailed for corrupt data, and for input that ends before the output is full and the
    // stream's end has come; kOutOfMemory.
    //   source      the input; all of a window of it is taken at a time
    //   endIsSound  input that ends early is taken for the stream's end
    PsdReadResult Inflate(SectionSource& source, std::span<uint8_t> output, bool endIsSound,
                          size_t& produced);

private:
    z_stream m_stream = {};
    bool m_created = false;
    bool m_ended = false;
};

}  // namespace tessary
