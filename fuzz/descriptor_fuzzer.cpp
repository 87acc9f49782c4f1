// Descriptors and a layer's tagged blocks, and what is drawn with the settings in them. Of the first two
// bytes one is the document's colour mode or says that the rest is a bare descriptor, the other the read
// mode.
#include <cstddef>
#include <cstdint>

#include "document/descriptor.h"
#include "document/tagged_blocks.h"
#include "properties/effect_records.h"
#include "render/render.h"
#include "tests/support/memory_stream.h"

using namespace tessary;

namespace {

constexpr int32_t kCanvas = 24;
constexpr int32_t kLayer = 16;
constexpr int32_t kBareDescriptor = 255;

// Large radii draw nothing that small ones do not, they only take their time.
void CutSizes(PsdLayer& layer, uint32_t code) {
    EffectsRecord* effects = FindProperty<EffectsRecord>(layer, code);
    if (!effects) return;
    effects->dropShadow.size %= 16;
    effects->outerGlow.size %= 16;
}

void DrawWith(PsdDocument& document, PsdLayer& layer) {
    document.width = document.height = kCanvas;
    layer.bounds = {4, 4, 4 + kLayer, 4 + kLayer};
    layer.width = layer.height = kLayer;
    layer.image = AllocateZeroed<uint32_t>({kLayer, kLayer});
    if (!layer.image) return;
    for (uint32_t i = 0; i < layer.image.count(); ++i) layer.image[i] = i * 0x00FDFBF7u;
    CutSizes(layer, kPropertyEffects);
    CutSizes(layer, kPropertyOldEffects);
    static_cast<void>(Render(&document, 0, 0, kCanvas, kCanvas, 1));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    test::MemoryStream stream(test::Bytes(data + 2, data + size));
    PsdDocument document;
    document.reader.stream = &stream;
    document.streamSize = static_cast<int32_t>(size - 2);
    document.colorMode = data[0];
    document.readMode = data[1];
    document.layers = AllocateZeroed<PsdLayer>({1});
    if (!document.layers) return 0;
    if (data[0] == kBareDescriptor) {
        SkipDescriptor(document);
        return 0;
    }
    PsdLayer& layer = document.layers[0];
    static_cast<void>(ReadTaggedBlocks(document, layer, 0, static_cast<uint32_t>(size - 2)));
    DrawWith(document, layer);
    return 0;
}
