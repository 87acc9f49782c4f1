// Rows that hold each sample's difference to the one before it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tessary {

// Adds up the differences in one row of big-endian samples, in place. 32-bit samples are treated one by one,
// as this format's readers do, and bits stay as they are.
void UndoPrediction(uint8_t* row, size_t rowBytes, uint32_t depth);

}  // namespace tessary
