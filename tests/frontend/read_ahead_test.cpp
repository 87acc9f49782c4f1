#include "frontend/read_ahead.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "tests/support/memory_stream.h"

namespace tessary::test {
namespace {

constexpr uint32_t kBuffer = 16;

// 200 bytes, each its own place, behind a small buffer.
struct Buffered {
    Buffered() {
        Bytes bytes(200);
        std::iota(bytes.begin(), bytes.end(), uint8_t{0});
        source.Replace(bytes);
        EnableReadAhead(state, true);
    }
    HRESULT Read(uint32_t count) { return ReadAheadRead(state, out, count, &got); }
    HRESULT Seek(int64_t move, DWORD origin) {
        return ReadAheadSeek(state, {.QuadPart = move}, origin, nullptr);
    }

    MemoryStream source{{}};
    uint8_t buffer[kBuffer] = {};
    ReadAhead state{&source, buffer, kBuffer};
    uint8_t out[64] = {};
    ULONG got = 0;
};

TEST(ReadAhead, ServesTheSameBytesAsTheSource) {
    for (const uint32_t crumbs : {1u, 3u, 0xFFFFFFFFu}) {
        Buffered stream;
        stream.source.maxBytesPerRead = crumbs;
        std::mt19937 random(crumbs);
        int64_t position = 0;
        for (int step = 0; step < 5000; ++step) {
            const int64_t value = static_cast<int64_t>(random() % 240);
            const uint64_t kind = random() % 5;
            if (kind == 0) stream.Seek(position = value, STREAM_SEEK_SET);
            if (kind == 1) stream.Seek(value / 4 - 25, STREAM_SEEK_CUR), position += value / 4 - 25;
            if (kind == 2) stream.Seek(-value / 2, STREAM_SEEK_END), position = 200 - value / 2;
            ASSERT_EQ(stream.state.position, position);
            const uint32_t count = static_cast<uint32_t>(value) % 30;
            const HRESULT result = stream.Read(count);
            if (position < 0) {
                ASSERT_EQ(result, E_INVALIDARG) << "the source's own answer";
                continue;
            }
            const int64_t left = std::max<int64_t>(200 - position, 0);
            // What goes past the buffer comes as the source gives it.
            ASSERT_EQ(stream.got, std::min<int64_t>(left, count > kBuffer ? std::min(count, crumbs) : count));
            ASSERT_EQ(result, stream.got == count && (count != 0 || left > 0) ? S_OK : S_FALSE);
            for (uint32_t i = 0; i < stream.got; ++i) ASSERT_EQ(stream.out[i], position + i);
            position += stream.got;
        }
    }
}

TEST(ReadAhead, RefillsWhereTheBufferEndsAndBelievesNoSource) {
    Buffered stream;
    stream.Read(1);
    stream.Seek(kBuffer - 6, STREAM_SEEK_SET);
    EXPECT_EQ(stream.source.bytesRead, kBuffer);
    EXPECT_EQ(stream.Read(10), S_OK);
    EXPECT_EQ(stream.state.bufferStart, kBuffer);
    // One byte more than the buffer holds goes past it, and nothing stays buffered.
    EXPECT_EQ(stream.Read(kBuffer + 1), S_OK);
    EXPECT_EQ(stream.source.bytesRead, 3 * kBuffer + 1);
    EXPECT_EQ(stream.state.valid, 0u);
    stream.source.failCall = stream.source.calls + 2;
    EXPECT_EQ(stream.Read(4), E_FAIL);

    EnableReadAhead(stream.state, false);
    stream.Seek(8, STREAM_SEEK_SET);
    EnableReadAhead(stream.state, true);
    EXPECT_EQ(stream.Read(1), S_OK);
    EXPECT_EQ(stream.out[0], 8) << "buffering starts where the source stands";
    stream.state.source = nullptr;
    EXPECT_EQ(stream.Read(1), E_UNEXPECTED);
    EXPECT_EQ(stream.Seek(0, STREAM_SEEK_SET), E_UNEXPECTED);

    Buffered stuck;
    stuck.source.position = 50;
    stuck.source.seekSticks = true;
    EXPECT_EQ(stuck.Read(4), S_FALSE);
    EXPECT_EQ(stuck.source.bytesRead, kBuffer) << "one refill, not one after another";
    for (const uint32_t count : {4u, kBuffer, kBuffer + 1}) {
        Buffered boasting;
        boasting.source.claimsMore = true;
        boasting.Read(count);
        EXPECT_EQ(boasting.got, count);
        EXPECT_EQ(boasting.state.position, count);
    }
}

}  // namespace
}  // namespace tessary::test
