// What clients make the codec do, in an order that the last bytes of the input choose, over a stream that
// fails, lies or changes and with memory that runs out. Documents of every size are drawn.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>

#include "tests/support/portable_codec.h"

using namespace tessary;

namespace {

constexpr size_t kScriptBytes = 32;  // zeros make a client and a stream as they should be
constexpr uint32_t kBufferSizes[] = {65536, 4096, 0, 17};
constexpr uint64_t kSizes[] = {0, 1, 26, 4096, 0x7FFFFFFF, 0x80000000, uint64_t{1} << 32, uint64_t{1} << 63};

class Script {
public:
    explicit Script(std::span<const uint8_t> bytes) : m_bytes(bytes) {}
    uint8_t Next() {
        if (m_bytes.empty()) return 0;
        const uint8_t value = m_bytes.front();
        m_bytes = m_bytes.subspan(1);
        return value;
    }
    // A part of `whole`, or now and then something that cannot be.
    int32_t NextPart(uint32_t whole) {
        const uint8_t value = Next();
        if (value == 255) return -1;
        if (value == 254) return INT32_MAX;
        return static_cast<int32_t>((uint64_t{whole} * (253u - std::min<uint32_t>(value, 253)) + 252) / 253);
    }
    CopyArea NextArea(const HeaderInfo& info) {
        const int32_t width = NextPart(info.width), height = NextPart(info.height);
        const int32_t x = WrapSubtract(static_cast<int32_t>(info.width), NextPart(info.width));
        const int32_t y = WrapSubtract(static_cast<int32_t>(info.height), NextPart(info.height));
        return {x, y, width, height};
    }

private:
    std::span<const uint8_t> m_bytes;
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
    case 10: stream.position = amount; break;
    case 11:
    case 12:  // other bytes in the middle of a step
        stream.changeCall = stream.calls + 1 + amount % 32;
        stream.changed = file;
        if (amount & 64) stream.changed.resize(file.size() * amount / 256);
        for (size_t i = amount; i < stream.changed.size(); i += 64 + how) stream.changed[i] ^= how;
        break;
    case 13: stream.Replace(file); break;
#if defined(TESSARY_FAULT_INJECTION)
    case 14: FailAllocationNumber(1 + amount, how & 16); break;
#endif
    default: break;
    }
}

void Act(test::PortableCodec& codec, Script& script) {
    switch (const uint8_t step = script.Next(); step % 9) {
    case 0: static_cast<void>(codec.Everything()); break;
    case 1: static_cast<void>(codec.Probe()); break;
    case 2: static_cast<void>(codec.Metadata()); break;
    case 3: static_cast<void>(codec.Thumbnail(script.NextArea({.width = 160, .height = 160}))); break;
    case 4: static_cast<void>(codec.Open(step % 16)); break;
    case 5: codec.picture = {}; [[fallthrough]];
    case 6: static_cast<void>(codec.Picture(script.NextArea(codec.info))); break;
    case 7: static_cast<void>(EnableReadAhead(codec.buffered.ahead, step % 2)); break;
    case 8: EmptyReadAhead(codec.buffered.ahead); break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const size_t scriptBytes = std::min(size, kScriptBytes);
    Script script({data + size - scriptBytes, scriptBytes});
    const test::Bytes file(data, data + size - scriptBytes);
    test::MemoryStream source(file);
    const uint8_t buffering = script.Next();
    test::PortableCodec codec(&source, kBufferSizes[buffering % std::size(kBufferSizes)]);
    for (uint32_t step = 0; step < 1u + (buffering >> 2) % 8; ++step) {
        Misbehave(source, script, file);
        Act(codec, script);
#if defined(TESSARY_FAULT_INJECTION)
        FailAllocationNumber(0);
#endif
    }
    return 0;
}
