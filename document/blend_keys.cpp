#include "document/blend_keys.h"

#include <iterator>

#include "document/big_endian.h"
#include "document/byte_reader.h"

namespace tessary {
namespace {

// In the order of PsdBlendMode.
constexpr uint32_t kBlendKeys[] = {
    FourCC("norm"), FourCC("diss"), FourCC("dark"), FourCC("mul "), FourCC("idiv"), FourCC("lbrn"),
    FourCC("lite"), FourCC("scrn"), FourCC("div "), FourCC("lddg"), FourCC("over"), FourCC("sLit"),
    FourCC("hLit"), FourCC("vLit"), FourCC("lLit"), FourCC("pLit"), FourCC("hMix"), FourCC("diff"),
    FourCC("smud"), FourCC("hue "), FourCC("sat "), FourCC("colr"), FourCC("lum "), FourCC("pass"),
};
static_assert(std::size(kBlendKeys) == kBlendPassThrough + 1);

}  // namespace

PsdBlendMode BlendModeFromKey(uint32_t key) {
    for (uint32_t mode = 0; mode < std::size(kBlendKeys); ++mode) {
        if (kBlendKeys[mode] == key) return static_cast<PsdBlendMode>(mode);
    }
    return kBlendNormal;
}

PsdBlendMode ReadBlendKey(PsdDocument& document) {
    uint32_t key = 0;
    ReadKey(document, key);
    return BlendModeFromKey(key);
}

PsdBlendMode GroupBlendMode(const PsdLayer& group) {
    if (group.hasSectionBlendMode) return group.sectionBlendMode;
    return group.blendMode == kBlendNormal ? kBlendPassThrough : group.blendMode;
}

}  // namespace tessary
