// Big-endian loads from bytes that are already in memory, and four-character codes.
#pragma once

#include <bit>
#include <cstdint>

namespace tessary {

constexpr uint16_t LoadU16(const uint8_t* bytes) { return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]); }

constexpr uint32_t LoadU32(const uint8_t* bytes) {
    return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
           static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
}

constexpr float LoadFloat(const uint8_t* bytes) { return std::bit_cast<float>(LoadU32(bytes)); }

constexpr double LoadDouble(const uint8_t* bytes) {
    return std::bit_cast<double>(static_cast<uint64_t>(LoadU32(bytes)) << 32 | LoadU32(bytes + 4));
}

// A key or signature as the value it has when its four characters are read as one big-endian number.
consteval uint32_t FourCC(const char (&text)[5]) {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value = value << 8 | static_cast<uint8_t>(text[i]);
    return value;
}

}  // namespace tessary
