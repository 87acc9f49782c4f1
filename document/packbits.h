// Rows of bytes in runs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tessary {

// Unpacks one PackBits row. Runs are cut at the end of the row and of their bytes. May read and write
// SectionSource::kSlackBytes behind both. Returns the bytes that came.
size_t UnpackBits(std::span<const uint8_t> input, std::span<uint8_t> output);

}  // namespace tessary
