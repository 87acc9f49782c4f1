// Descriptors and the blocks made of them. The first byte says which reader gets the rest.
#include <cstddef>
#include <cstdint>

#include "document/big_endian.h"
#include "document/descriptor.h"
#include "properties/property_readers.h"
#include "tests/support/memory_stream.h"

using namespace tessary;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr uint32_t kKeys[] = {
        FourCC("lfx2"), FourCC("lrFX"), FourCC("SoCo"), FourCC("GdFl"), FourCC("PtFl"), FourCC("levl"),
        FourCC("curv"), FourCC("brit"), FourCC("blnc"), FourCC("hue2"), FourCC("selc"), FourCC("thrs"),
        FourCC("nvrt"), FourCC("post"), FourCC("mixr"), FourCC("grdm"), FourCC("phfl"),
    };
    if (size == 0) return 0;
    test::MemoryStream stream(test::Bytes(data + 1, data + size));
    PsdDocument document;
    document.reader.stream = &stream;
    document.streamSize = static_cast<int32_t>(size - 1);
    const size_t choice = data[0] % (std::size(kKeys) + 1);
    if (choice == std::size(kKeys)) {
        SkipDescriptor(document);
    } else {
        PsdLayer layer;
        static_cast<void>(
            ReadPropertyBlock(document, layer, kKeys[choice], static_cast<uint32_t>(size - 1) & ~1u));
    }
    return 0;
}
