// The floating-point environment that pictures are made in, whatever the host's is.
#pragma once

#include <emmintrin.h>

#include <cfenv>

namespace tessary {

// While it lives, the thread has the environment that programs start with: rounding to nearest, nothing
// trapped, full precision, denormals as they are. Behind it the host's is back, flags included. A host that
// traps divisions by zero would end in the middle of a picture, one that rounds otherwise would get other
// pixels.
class FloatEnvironmentScope {
public:
    FloatEnvironmentScope() : m_hostVectors(_mm_getcsr()) {
        std::fegetenv(&m_host);
        std::fesetenv(FE_DFL_ENV);
        _mm_setcsr(kDefaultVectors);  // not every library sets the vector unit with the rest
    }
    FloatEnvironmentScope(const FloatEnvironmentScope&) = delete;
    FloatEnvironmentScope& operator=(const FloatEnvironmentScope&) = delete;
    ~FloatEnvironmentScope() {
        std::fesetenv(&m_host);
        _mm_setcsr(m_hostVectors);
    }

private:
    static constexpr unsigned kDefaultVectors = 0x1F80;
    std::fenv_t m_host;
    unsigned m_hostVectors;
};

}  // namespace tessary
