// Everything the engine asks of the system it runs on: the input stream's type, a clock, and memory. (What
// its processor can do is found out in render/kernels.cpp.)
#pragma once

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <objidl.h>
#endif

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <new>
#include <span>
#include <type_traits>
#include <utility>

#include "document/checked_math.h"

#if !defined(_WIN32)
// The few names of the Windows interface that the engine uses, with the same widths and values.
using HRESULT = int32_t;
using ULONG = uint32_t;
using DWORD = uint32_t;

union LARGE_INTEGER {
    int64_t QuadPart;
};
union ULARGE_INTEGER {
    uint64_t QuadPart;
};
struct STATSTG {
    ULARGE_INTEGER cbSize;
};

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
inline constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFFu);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
constexpr bool SUCCEEDED(HRESULT result) { return result >= 0; }
constexpr bool FAILED(HRESULT result) { return result < 0; }

enum STREAM_SEEK : DWORD { STREAM_SEEK_SET = 0, STREAM_SEEK_CUR = 1, STREAM_SEEK_END = 2 };
enum STATFLAG : DWORD { STATFLAG_NONAME = 1 };

#define STDMETHODCALLTYPE
struct IStream {
    virtual HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG count, ULONG* read) = 0;
    virtual HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) = 0;
    virtual HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD flags) = 0;

protected:
    ~IStream() = default;
};
#endif

namespace tessary {

// The system clock in 100-nanosecond ticks.
uint64_t SystemTimeSeed();

// Zero-filled memory, or null. A request for 0 bytes gets a valid pointer. FreeBytes takes null.
void* AllocateZeroedBytes(size_t bytes);
void FreeBytes(void* memory);

#if defined(TESSARY_FAULT_INJECTION)
// Makes the n-th allocation from now (1 is the next) return null: that one only, or it and all after it.
// 0 turns the faults off. AllocationCount and LargestAllocation tell how many were asked for since this call,
// and the bytes of the largest.
void FailAllocationNumber(uint64_t n, bool andAllLater = false);
uint64_t AllocationCount();
uint64_t LargestAllocation();
uint64_t LiveAllocations();  // not freed yet, whenever they were made
#endif

// The only owner of an array from AllocateZeroed. Moving leaves null behind.
template <class T>
class Owned {
public:
    Owned() = default;
    Owned(T* data, size_t count) : m_data(data), m_count(count) {}
    Owned(Owned&& other) noexcept
        : m_data(std::exchange(other.m_data, nullptr)), m_count(std::exchange(other.m_count, 0)) {}
    Owned& operator=(Owned&& other) noexcept {
        if (this != &other) {
            Reset();
            m_data = std::exchange(other.m_data, nullptr);
            m_count = std::exchange(other.m_count, 0);
        }
        return *this;
    }
    ~Owned() { Reset(); }

    void Reset() {
        if (!m_data) return;
        if constexpr (!std::is_trivially_destructible_v<T>) {
            for (size_t i = m_count; i > 0; --i) m_data[i - 1].~T();
        }
        FreeBytes(std::exchange(m_data, nullptr));
        m_count = 0;
    }

    explicit operator bool() const { return m_data != nullptr; }
    T* get() const { return m_data; }
    T& operator*() const { return *m_data; }
    T* operator->() const { return m_data; }
    T& operator[](size_t index) const { return m_data[index]; }
    size_t count() const { return m_count; }
    std::span<T> span() const { return {m_data, m_count}; }

private:
    T* m_data = nullptr;
    size_t m_count = 0;
};

// An array of product(extents) elements, zero-filled and then given its members' initialisers.
// Null when the size does not fit or memory has run out.
template <class T>
[[nodiscard]] Owned<T> AllocateZeroed(std::initializer_list<uint64_t> extents) {
    static_assert(alignof(T) <= alignof(std::max_align_t));
    const auto count = CheckedProduct(extents);
    if (!count) return {};
    const auto bytes = CheckedProduct({*count, sizeof(T)});
    if (!bytes) return {};
    void* memory = AllocateZeroedBytes(*bytes);
    if (!memory) return {};
    T* data = static_cast<T*>(memory);
    if constexpr (!std::is_trivially_default_constructible_v<T>) {
        for (size_t i = 0; i < *count; ++i) new (data + i) T();
    }
    return {data, *count};
}

}  // namespace tessary
