#include "document/merged_image.h"

namespace tessary {

PsdReadResult ReadMergedImage(PsdDocument&) { return PsdReadResult::kOk; }

}  // namespace tessary
