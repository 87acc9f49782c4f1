#include "document/platform.h"

#include <cstdlib>

#if !defined(_WIN32)
#include <chrono>
#endif

namespace tessary {

uint64_t SystemTimeSeed() {
#if defined(_WIN32)
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    return static_cast<uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
#else
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count() / 100);
#endif
}

#if defined(TESSARY_FAULT_INJECTION)
namespace {
uint64_t g_allocations = 0;
uint64_t g_failAt = 0;
bool g_failLater = false;
size_t g_largest = 0;
uint64_t g_live = 0;

bool AllocationFails(size_t bytes) {
    ++g_allocations;
    if (bytes > g_largest) g_largest = bytes;
    return g_failAt != 0 && (g_allocations == g_failAt || (g_failLater && g_allocations > g_failAt));
}
}  // namespace

void FailAllocationNumber(uint64_t n, bool andAllLater) {
    g_allocations = 0;
    g_failAt = n;
    g_failLater = andAllLater;
    g_largest = 0;
}

uint64_t AllocationCount() { return g_allocations; }
uint64_t LargestAllocation() { return g_largest; }
uint64_t LiveAllocations() { return g_live; }
#endif

void* AllocateZeroedBytes(size_t bytes) {
#if defined(TESSARY_FAULT_INJECTION)
    if (AllocationFails(bytes)) return nullptr;
    void* const memory = std::calloc(bytes ? bytes : 1, 1);
    g_live += memory != nullptr;
    return memory;
#else
    return std::calloc(bytes ? bytes : 1, 1);
#endif
}

void FreeBytes(void* memory) {
#if defined(TESSARY_FAULT_INJECTION)
    g_live -= memory != nullptr;
#endif
    std::free(memory);
}

}  // namespace tessary
