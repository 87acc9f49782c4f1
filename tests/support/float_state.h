// Hosts' settings of the floating-point units, and documents that take much arithmetic.
#pragma once

#include <emmintrin.h>

#include <utility>
#include <vector>

#include "tools/sample_blocks.h"

namespace tessary::test {

// The control registers of both units.
struct FloatState {
    uint32_t vectors;
    uint16_t stack;

    bool operator==(const FloatState&) const = default;

    static FloatState Get() {
        uint16_t control;
        __asm__ volatile("fnstcw %0" : "=m"(control));
        return {_mm_getcsr(), control};
    }
    void Set() const {
        _mm_setcsr(vectors);
        // What earlier work has left would be trapped as soon as it may be.
        __asm__ volatile("fnclex\n\tfldcw %0" : : "m"(stack));
    }
};

// Rounding up and denormals taken for zero in both: one traps every exception, the other has the least
// precision and flags of earlier work.
inline constexpr FloatState kFloatStates[] = {{0xC040, 0x0B40}, {0xDFFF, 0x087F}};

// Makes a call in this state; false when it comes back in another one.
template <class Call>
bool KeepsFloatState(const FloatState& state, Call call) {
    const FloatState own = FloatState::Get();
    state.Set();
    call();
    const FloatState after = FloatState::Get();
    own.Set();
    return after == state;
}

inline std::vector<Bytes> DocumentsOfMuchArithmetic() {
    ByteWriter colors, floats;
    for (uint32_t i = 0; i < 3 * 16 * 16; ++i) colors.U8(i * 37 ^ i >> 3), floats.U32(i * 0x01234567);
    std::vector<Bytes> files = {DocumentBuilder(kColorRgb, 32, 3, 16, 16).Merged(floats).Build(),
                                DocumentBuilder(kColorLab, 8, 3, 16, 16).Merged(colors).Build()};
    const auto add = [&](std::string_view key, const Bytes& block) {
        LayerBuilder back({0, 0, 16, 16}), layer({4, 4, 9, 9});
        for (int16_t id = 0; id < 3; ++id)
            back.Channel(id, Bytes(&colors.bytes()[256u * static_cast<size_t>(id)],
                                   &colors.bytes()[256u * static_cast<size_t>(id)] + 256));
        layer.Solid(0xC0804020).Mode("vLit").Block(key, block);
        DocumentBuilder document(kColorRgb, 8, 3, 16, 16);
        document.HasRealMergedData(false).Resolution(118.11, 2).Layer(back);
        files.push_back(document.Layer(layer).Build());
    };
    for (const auto& sample : tools::AdjustmentSamples()) add(sample.key, sample.data);
    for (const Bytes& block : {tools::DropShadow(75, 120, 3, 5), tools::OuterGlow(), tools::GradientGlow()})
        add("lfx2", block);
    return files;
}

}  // namespace tessary::test
