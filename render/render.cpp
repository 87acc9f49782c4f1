#include "render/render.h"

namespace tessary {

PsdReadResult Render(PsdDocument*, int32_t, int32_t, int32_t, int32_t, uint64_t) {
    return PsdReadResult::kNoDocument;
}

}  // namespace tessary
