// Descriptors and a layer's tagged blocks, and what is drawn with the settings in them. Of the first two
// bytes one is the document's colour mode or says that the rest is a bare descriptor, the other the read
// mode.
#include "document/descriptor.h"
#include "document/tagged_blocks.h"
#include "properties/effect_records.h"
#include "render/render.h"
#include "tools/memory_stream.h"

using namespace tessary;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    test::MemoryStream stream(test::Bytes(data + 2, data + size));
    PsdDocument document;
    document.reader.stream = &stream;
    document.streamSize = static_cast<int32_t>(size - 2);
    document.width = document.height = 24;
    document.colorMode = data[0];
    document.readMode = data[1];
    document.layers = AllocateZeroed<PsdLayer>({1});
    PsdLayer& layer = document.layers[0];
    if (data[0] == 255) return SkipDescriptor(document), 0;
    static_cast<void>(ReadTaggedBlocks(document, layer, 0, static_cast<uint32_t>(size - 2)));
    layer.bounds = {4, 4, 20, 20};
    layer.width = layer.height = 16;
    layer.image = AllocateZeroed<uint32_t>({16, 16});
    for (uint32_t i = 0; i < layer.image.count(); ++i) layer.image[i] = i * 0x00FDFBF7u;
    for (const uint32_t code : {kPropertyEffects, kPropertyOldEffects}) {
        // Large radii draw nothing that small ones do not, they only take their time.
        auto* effects = FindProperty<EffectsRecord>(layer, code);
        if (!effects) continue;
        for (ShadowSettings* shadow : {&effects->dropShadow, &effects->innerShadow}) shadow->size %= 16;
        for (GlowSettings* glow : {&effects->outerGlow, &effects->innerGlow}) glow->size %= 16;
        for (int32_t* reach :
             {&effects->satin.size, &effects->stroke.size, &effects->bevel.size, &effects->bevel.soften})
            *reach %= 16;
    }
    static_cast<void>(Render(&document, 0, 0, 24, 24, 1));
    return 0;
}
