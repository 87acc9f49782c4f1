#include "document/layer_section.h"

namespace tessary {

PsdReadResult ReadLayerSection(PsdDocument&) { return PsdReadResult::kOk; }

}  // namespace tessary
