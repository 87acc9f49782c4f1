#include "render/composite.h"

namespace tessary {

CompositeSource CompositeSourceOf(const PsdLayer&) { return {}; }
void CompositeLayer(PsdDocument&, const CompositeSource&, const Rect&) {}

}  // namespace tessary
