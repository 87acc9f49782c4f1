#include "properties/draw_effects.h"

namespace tessary {

void DrawEffectsBelow(PsdDocument&, PsdLayer&, const Rect&) {}
void DrawEffectsAbove(PsdDocument&, PsdLayer&, const Rect&) {}

}  // namespace tessary
