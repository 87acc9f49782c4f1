// What clients make the codec do, in an order that the last bytes of the input choose, over a stream that
// fails, lies or changes and with memory that runs out. Documents of every size are drawn.
#include <algorithm>
#include <iterator>

#include "tests/support/portable_codec.h"

using namespace tessary;

namespace {

constexpr size_t kScriptBytes = 32;  // zeros make a client and a stream as they should be
constexpr uint32_t kBufferSizes[] = {65536, 4096, 0, 17};
constexpr uint64_t kSizes[] = {0, 1, 26, 4096, 0x7FFFFFFF, 0x80000000, uint64_t{1} << 32, uint64_t{1} << 63};

struct Script {
    uint8_t Next() { return bytes == end ? uint8_t{0} : *bytes++; }
    // A part of 160 pixels, or now and then something that cannot be.
    int32_t NextPart() {
        const uint8_t value = Next();
        return value == 254 ? INT32_MAX : value == 255 ? -1 : value * 160 / 253;
    }
    const uint8_t *bytes, *end;
};

void Misbehave(test::MemoryStream& stream, Script& script, const test::Bytes& file) {
    const uint8_t how = script.Next();
    const uint8_t amount = how ? script.Next() : uint8_t{0};
    stream.failCall = stream.changeCall = 0;
    switch (how & 15) {
    case 1: stream.maxBytesPerRead = amount; break;
    case 2: stream.maxBytesPerRead = 0xFFFFFFFF; break;
    case 3: stream.canSeek = amount % 2; break;
    case 4: stream.seekSticks = amount % 2; break;
    case 5: stream.seekMisses = static_cast<int8_t>(amount); break;
    case 6: stream.claimsMore = amount % 2; break;
    case 7: stream.hasSize = true, stream.size = kSizes[amount % std::size(kSizes)]; break;
    case 8: stream.hasSize = false; break;
    case 9: stream.failCall = stream.calls + 1 + amount % 32, stream.failLater = how & 16; break;
    case 10: stream.statFails = amount % 2; break;
    case 11:  // other bytes in the middle of a step
        stream.changeCall = stream.calls + 1 + amount % 32;
        stream.changed = file;
        if (amount & 64) stream.changed.resize(file.size() * amount / 256);
        for (size_t i = amount; i < stream.changed.size(); i += 64 + how) stream.changed[i] ^= how;
        break;
    case 12: stream.Replace(file); break;
#if defined(TESSARY_FAULT_INJECTION)
    case 13: FailAllocationNumber(1 + amount, how & 16); break;
#endif
    default: break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const size_t fileSize = size - std::min(size, kScriptBytes);
    Script script{data + fileSize, data + size};
    const test::Bytes file(data, data + fileSize);
    test::MemoryStream source(file);
    const uint8_t buffering = script.Next();
    test::PortableCodec codec(&source, kBufferSizes[buffering % std::size(kBufferSizes)]);
    for (uint32_t steps = 0; steps < 1u + (buffering >> 2) % 8; ++steps) {
        Misbehave(source, script, file);
        switch (const uint8_t step = script.Next(); step % 8) {
        case 0: static_cast<void>(codec.Everything()); break;
        case 1: static_cast<void>(codec.Probe()); break;
        case 2:
            static_cast<void>(codec.Open(
                step / 8 % 16, {script.NextPart(), script.NextPart(), script.NextPart(), script.NextPart()}));
            break;
        case 3: codec.picture = {}; [[fallthrough]];
        case 4: static_cast<void>(codec.Picture()); break;
        case 7:
            static_cast<void>(
                DecodeDocumentPixels(codec.stream, codec.picture, PictureChoice::kAlwaysLayers));
            break;
        case 5: static_cast<void>(EnableReadAhead(codec.buffered.ahead, step & 8)); break;
        case 6: EmptyReadAhead(codec.buffered.ahead); break;
        }
#if defined(TESSARY_FAULT_INJECTION)
        FailAllocationNumber(0);
#endif
    }
    return 0;
}
