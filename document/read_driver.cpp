#include "document/read_driver.h"

#include <limits>

#include "document/big_endian.h"
#include "document/byte_reader.h"
#include "document/image_resources.h"
#include "document/layer_section.h"
#include "document/merged_image.h"

namespace tessary {
namespace {

// Modes that want nothing behind the image resources, and no palette.
bool StopsAfterResources(const PsdDocument& document) {
    return document.readMode == kReadHeader || document.readMode == kReadProfile;
}

// Version 2 goes on as version 1, with 32-bit lengths throughout.
PsdReadResult ReadHeader(PsdDocument& document) {
    uint8_t header[26];
    if (Read(document, header, sizeof header) != sizeof header) return PsdReadResult::kShortRead;
    if (LoadU32(header) != FourCC("8BPS")) return PsdReadResult::kBadSignature;
    const uint32_t version = LoadU16(header + 4);
    if (version != 1 && version != 2) return PsdReadResult::kBadVersion;
    document.channels = LoadU16(header + 12);
    document.colorChannels = document.channels;
    document.height = LoadU32(header + 14);
    document.width = LoadU32(header + 18);
    document.depth = LoadU16(header + 22);
    document.colorMode = LoadU16(header + 24);

    switch (document.depth) {
    case 1:
    case 8:
    case 16:
    case 32: break;
    default: return PsdReadResult::kBadDepth;
    }
    switch (document.colorMode) {
    case kColorBitmap:
    case kColorGrayscale:
    case kColorIndexed:
    case kColorRgb:
    case kColorCmyk:
    case kColorMultichannel:
    case kColorDuotone:
    case kColorLab: return PsdReadResult::kOk;
    default: return PsdReadResult::kBadColorMode;
    }
}

// HDR toning and duotone curves stand where other documents have their palette.
bool IsPalette(const uint8_t* bytes, uint32_t size) {
    return size < 4 || (LoadU32(bytes) != FourCC("hdrt") && LoadU32(bytes) != 0x00010001);
}

PsdReadResult ReadColorModeData(PsdDocument& document) {
    const int32_t length = ReadI32(document);
    if (StopsAfterResources(document)) {
        Skip(document, length);
        return PsdReadResult::kOk;
    }
    if (length < 1) return PsdReadResult::kOk;

    const uint32_t size = static_cast<uint32_t>(length);
    const uint32_t entries = size / 3;
    // An entry is worth four bytes for its three in the file.
    if (!IsBelieved(uint64_t{4} * entries, InputLeft(document), 2)) return PsdReadResult::kOutOfMemory;
    Owned<uint8_t> bytes;
    if (const auto result = ReadBytes(document, size, bytes); result != PsdReadResult::kOk) return result;
    if (!IsPalette(bytes.get(), size)) return PsdReadResult::kOk;

    document.palette = AllocateZeroed<uint32_t>({entries});
    if (!document.palette) return PsdReadResult::kOutOfMemory;
    const uint8_t* const red = bytes.get();
    const uint8_t* const green = red + entries;
    const uint8_t* const blue = green + entries;
    for (size_t i = 0; i < entries; ++i) document.palette[i] = PackPixel(255, red[i], green[i], blue[i]);
    return PsdReadResult::kOk;
}

struct StageRow {
    PsdReadResult (*read)(PsdDocument&);
    PsdReadResult unknownStage;  // what the stage's own kUnknownStage becomes
};

constexpr StageRow kStages[kStageDone] = {
    {ReadHeader, PsdReadResult::kHeaderStage},           {ReadColorModeData, PsdReadResult::kColorModeStage},
    {ReadImageResources, PsdReadResult::kResourceStage}, {ReadLayerSection, PsdReadResult::kLayerStage},
    {ReadMergedImage, PsdReadResult::kMergedStage},
};

// The stream's size as the reader counts: 32 bits, signed. One that is asked in vain is sent to its end, from
// where the caller brings it back. Sizes that cannot be, and no answer at all, mean that it does not know its
// end; it is then read until it delivers nothing.
int32_t StreamSize(IStream* stream) {
    constexpr int32_t kUnknown = std::numeric_limits<int32_t>::max();
    STATSTG stat = {};
    ULARGE_INTEGER& size = stat.cbSize;
    if (FAILED(stream->Stat(&stat, STATFLAG_NONAME)) &&
        FAILED(stream->Seek(LARGE_INTEGER{}, STREAM_SEEK_END, &size)))
        return kUnknown;
    if (size.QuadPart >> 63) return kUnknown;
    return static_cast<int32_t>(static_cast<uint32_t>(size.QuadPart));
}

}  // namespace

PsdReadResult RunReadStages(PsdDocument& document) {
    if (document.streamSize < 1) return PsdReadResult::kShortRead;
    if (document.stage > kStageDone) return PsdReadResult::kUnknownStage;
    while (document.stage < kStageDone) {
        const StageRow& row = kStages[document.stage];
        const PsdReadResult result = row.read(document);
        if (result == PsdReadResult::kUnknownStage) return row.unknownStage;
        if (result != PsdReadResult::kOk) return result;
        const bool last = document.stage == kStageResources && StopsAfterResources(document);
        document.stage = last ? kStageDone : document.stage + 1;
    }
    return PsdReadResult::kOk;
}

PsdReadResult OpenDocument(Owned<PsdDocument>& document, IStream* stream, uint32_t mode,
                           const OpenOptions& options) {
    document.Reset();
    if (!stream) return PsdReadResult::kNoStream;
    Owned<PsdDocument> opened = AllocateZeroed<PsdDocument>({1});
    if (!opened) return PsdReadResult::kOutOfMemory;
    opened->reader.stream = stream;
    opened->readMode = mode;
    opened->mergedUse = options.mergedUse;
    opened->soundMergedAt = options.soundMergedAt;
    opened->sink = options.sink;
    opened->streamSize = StreamSize(stream);
    stream->Seek(LARGE_INTEGER{}, STREAM_SEEK_SET, nullptr);

    const PsdReadResult result = RunReadStages(*opened);
    if (result != PsdReadResult::kOk) return result;
    opened->reader.buffer.Reset();
    opened->reader.filled = opened->reader.cursor = 0;
    opened->reader.stream = nullptr;
    opened->sink = nullptr;
    opened->sparePixels.Reset();
    document = std::move(opened);
    return PsdReadResult::kOk;
}

}  // namespace tessary
