#include "document/channel_codec.h"

namespace tessary {

PsdReadResult DecodePlanes(uint16_t, std::span<const uint8_t>, const PlaneShape&, std::span<uint8_t>) {
    return PsdReadResult::kBadCompression;
}

}  // namespace tessary
