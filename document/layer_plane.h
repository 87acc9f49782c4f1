// One plane of a layer: from the data of its channel to samples that wait for conversion.
#pragma once

#include "document/channel_codec.h"
#include "document/psd_document.h"

namespace tessary {

// The planes that a layer can have a use for. Other channels are passed over, as are those that repeat an id.
enum PlaneSlot : uint32_t {
    kSlotAlpha,
    kSlotColor,
    kSlotBlack = kSlotColor + 3,
    kSlotMask = kSlotColor + 4,
    kSlotDropped,  // the user mask beside a real one
    kSlotCount,
};

// Buffers that the reading of one layer leaves to that of the next.
struct LayerPixelState {
    Owned<uint8_t> slots[kSlotCount];  // planes that wait: short stored data as it came, else bytes
    Owned<uint8_t> input;
    Owned<uint8_t> pieces;  // that are decoded
    Owned<uint8_t> steps;   // that are converted
};

// Samples of 16 and 32 bits are cut to bytes as they arrive; only packed rows can wait as they came.
struct Plane {
    const PsdChannelInfo* channel = nullptr;  // null: the layer has no such plane
    uint32_t width = 0;
    uint32_t height = 0;
    size_t rowBytes = 0;  // in the file
    size_t bytes = 0;
    size_t waitingBytes = 0;  // that the whole plane is until conversion; 0: the data is only checked
    bool isFlat = false;      // its rows are long: samples are counted, not rows
    bool inPixels = false;    // waits at their end
    PlaneRows rows;           // of what waits
    bool used = false;        // they have been gone through
    bool isCounted = false;
    uint64_t filled = 0;  // what came out of the data, where `rows` does not tell
};

// How a plane is gone through so that its steps stay in the cache: by rows, or by samples if it is flat.
struct PlaneSteps {
    uint64_t units;
    uint64_t unitsPerStep;
    uint32_t unitSamples;
    size_t bytes;  // room for one step
};

// 1 also for bits, of which the bytes are kept.
size_t SampleBytes(uint32_t depth);

// False when the plane is larger than any file could fill.
bool SetPlaneSize(Plane& plane, int64_t width, int64_t height, uint32_t depth);

PlaneSteps StepsOf(const Plane& plane);

// The next samples, of bytes or bits, zero where the data does not reach: in place, or else in `buffer`,
// which has room for a step.
const uint8_t* TakeSamples(Plane& plane, uint64_t units, uint32_t depth, uint8_t* buffer);

// Bytes that come out of the plane's data.
//   buffer  as above
uint64_t FilledBytes(Plane plane, uint8_t* buffer);

// Makes room for `need` bytes. Grows by doubling, for layers that grow little by little; what the buffer held
// is lost.
bool Grow(Owned<uint8_t>& buffer, uint64_t need);

// Reads the data of a plane that has a slot, `length` bytes behind its compression code. Data of masks goes
// to layer.mask.data if it does not wait as it came, that of a large fourth colour to the end of layer.image.
// kShortRead, kOutOfMemory, kInflateSetup and kInflateFailed.
PsdReadResult ReadPlane(PsdDocument& document, uint16_t compression, uint32_t length, uint32_t slot,
                        Plane& plane, PsdLayer& layer, LayerPixelState& state);

}  // namespace tessary
