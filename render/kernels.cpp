#include "render/kernels.h"

#include <immintrin.h>

#if defined(_MSC_VER)
#include <intrin.h>
#else
#include <cpuid.h>
#endif

namespace tessary {

namespace avx2 {
extern const Kernels kKernels;
}

namespace {

struct CpuidRegisters {
    unsigned a, b, c, d;
};

CpuidRegisters Cpuid(unsigned leaf) {
#if defined(_MSC_VER)
    int registers[4];
    __cpuidex(registers, static_cast<int>(leaf), 0);
    return {static_cast<unsigned>(registers[0]), static_cast<unsigned>(registers[1]),
            static_cast<unsigned>(registers[2]), static_cast<unsigned>(registers[3])};
#else
    CpuidRegisters registers = {};
    __cpuid_count(leaf, 0, registers.a, registers.b, registers.c, registers.d);
    return registers;
#endif
}

bool HasAvx2() {
    constexpr unsigned kSystemSavesState = 1u << 27, kAvx2 = 1u << 5;  // in leaves 1 and 7
    constexpr unsigned kWideRegisters = 6;                             // saved by the system
    if (Cpuid(0).a < 7 || !(Cpuid(1).c & kSystemSavesState)) return false;
    const bool areSaved = (_xgetbv(0) & kWideRegisters) == kWideRegisters;
    return areSaved && (Cpuid(7).b & kAvx2);
}

const Kernels& kWidest = HasAvx2() ? avx2::kKernels : sse2::kKernels;

}  // namespace

const Kernels& WidestKernels() { return kWidest; }

}  // namespace tessary
