#include "properties/property_readers.h"

namespace tessary {

PsdReadResult ReadPropertyBlock(PsdDocument&, PsdLayer&, uint32_t, uint32_t) { return PsdReadResult::kOk; }

}  // namespace tessary
