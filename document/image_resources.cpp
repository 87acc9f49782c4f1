#include "document/image_resources.h"

namespace tessary {

PsdReadResult ReadImageResources(PsdDocument&) { return PsdReadResult::kOk; }

}  // namespace tessary
