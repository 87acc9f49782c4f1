#include "properties/apply_adjustment.h"

namespace tessary {

bool ApplyAdjustment(PsdDocument&, PsdLayer&, const Rect&) { return false; }

}  // namespace tessary
