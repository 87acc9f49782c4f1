// Reads a document whole and in one other mode and through the probe, over streams of several kinds.
#include <cstddef>
#include <cstdint>

#include "document/psd_document.h"
#include "frontend/exif_graft.h"
#include "frontend/header_probe.h"
#include "tools/memory_stream.h"

using namespace tessary;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const test::Bytes file(data, data + size);
    const uint32_t otherMode = kReadHeader + static_cast<uint32_t>(size % kReadProfile);
    for (const uint32_t mode : {uint32_t{kReadEverything}, otherMode}) {
        test::MemoryStream stream(file);
        if (size % 3 == 0) stream.maxBytesPerRead = 1 + size % 4096;
        if (size % 5 == 0) stream.canSeek = false;
        Owned<PsdDocument> document;
        if (OpenDocument(document, &stream, mode) != PsdReadResult::kOk && document) __builtin_trap();
        if (!document || mode != kReadMetadata) continue;
        Owned<uint8_t> grafted;
        const PsdImageResources& resources = document->resources;
        static_cast<void>(GraftXmp(resources.exif.bytes.span(), resources.xmp.bytes.span(), grafted));
    }
    test::MemoryStream stream(file);
    HeaderInfo info;
    static_cast<void>(ProbeHeader(&stream, info));
    if (stream.position != 0) __builtin_trap();
    return 0;
}
