#include "frontend/read_ahead.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/support/memory_stream.h"

namespace tessary::test {
namespace {

constexpr uint32_t kBuffer = 16;

Bytes Counting(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + i / 256);
    return bytes;
}

struct Buffered {
    explicit Buffered(size_t size, bool enable = true)
        : bytes(Counting(size)), source(bytes), buffer(kBuffer) {
        state.source = &source;
        state.buffer = buffer.data();
        state.bufferSize = kBuffer;
        if (enable) EnableReadAhead(state, true);
    }

    HRESULT Read(uint32_t count) {
        out.assign(count, 0xEE);
        got = 0xDDDD;
        return ReadAheadRead(state, out.data(), count, &got);
    }
    HRESULT Seek(int64_t move, DWORD origin) {
        LARGE_INTEGER by;
        by.QuadPart = move;
        return ReadAheadSeek(state, by, origin, &reached);
    }
    bool GotBytesOf(size_t from) const {
        return got <= out.size() && from + got <= bytes.size() &&
               std::equal(out.begin(), out.begin() + got, bytes.begin() + static_cast<std::ptrdiff_t>(from));
    }

    Bytes bytes;
    MemoryStream source;
    Bytes buffer;
    ReadAhead state;
    Bytes out;
    ULONG got = 0;
    ULARGE_INTEGER reached = {};
};

TEST(ReadAhead, ServesTheSameBytesAsTheSource) {
    for (const uint32_t crumbs : {1u, 3u, 0xFFFFFFFFu}) {
        Buffered stream(200);
        stream.source.maxBytesPerRead = crumbs;
        std::mt19937 random(crumbs);
        int64_t position = 0;
        for (int step = 0; step < 5000; ++step) {
            const uint32_t value = static_cast<uint32_t>(random() % 240);
            switch (random() % 5) {
            case 0: stream.Seek(position = value, STREAM_SEEK_SET); break;
            case 1:
                position += value / 4 - 25;
                stream.Seek(value / 4 - 25, STREAM_SEEK_CUR);
                break;
            case 2:
                position = 200 - value / 2;
                stream.Seek(-static_cast<int64_t>(value / 2), STREAM_SEEK_END);
                break;
            default: {
                const uint32_t count = value % 30;
                const HRESULT result = stream.Read(count);
                if (position < 0) {
                    ASSERT_EQ(result, E_INVALIDARG);  // the source's own answer
                    ASSERT_EQ(stream.got, 0u);
                    break;
                }
                const int64_t left = std::max<int64_t>(200 - position, 0);
                // What passes the buffer by comes as the source gives it.
                const uint32_t most = count > kBuffer ? std::min(count, crumbs) : count;
                ASSERT_EQ(stream.got, std::min<int64_t>(left, most));
                ASSERT_EQ(result, stream.got == count && (count != 0 || left > 0) ? S_OK : S_FALSE);
                ASSERT_TRUE(stream.got == 0 || stream.GotBytesOf(static_cast<size_t>(position)));
                position += stream.got;
            }
            }
            ASSERT_EQ(stream.state.position, position);
        }
    }
}

TEST(ReadAhead, RefillsWhereTheBufferEnds) {
    Buffered stream(100);
    stream.Read(1);
    stream.Seek(kBuffer - 6, STREAM_SEEK_SET);
    EXPECT_EQ(stream.source.bytesRead, kBuffer);
    EXPECT_EQ(stream.Read(10), S_OK);
    EXPECT_TRUE(stream.GotBytesOf(kBuffer - 6));
    EXPECT_EQ(stream.source.bytesRead, 2 * kBuffer);
    EXPECT_EQ(stream.state.bufferStart, kBuffer);

    // One byte more than the buffer holds goes past it, and nothing stays buffered.
    EXPECT_EQ(stream.Read(kBuffer + 1), S_OK);
    EXPECT_TRUE(stream.GotBytesOf(kBuffer + 4));
    EXPECT_EQ(stream.source.bytesRead, 3 * kBuffer + 1);
    EXPECT_EQ(stream.state.valid, 0u);
}

TEST(ReadAhead, SeeksWithoutTheSourceButForTheEnd) {
    Buffered stream(100);
    const uint64_t calls = stream.source.calls;
    EXPECT_EQ(stream.Seek(-5, STREAM_SEEK_SET), S_OK);
    EXPECT_EQ(stream.reached.QuadPart, static_cast<uint64_t>(-5));
    EXPECT_EQ(stream.Seek(9, 7), S_OK);  // no such origin
    EXPECT_EQ(stream.state.position, -5);
    EXPECT_EQ(stream.source.calls, calls);
    EXPECT_EQ(ReadAheadSeek(stream.state, {}, STREAM_SEEK_END, nullptr), S_OK);
    EXPECT_EQ(stream.state.position, 100);
    stream.source.canSeek = false;
    EXPECT_EQ(stream.Seek(0, STREAM_SEEK_END), E_FAIL);
    EXPECT_EQ(stream.state.position, 100);
}

TEST(ReadAhead, StartsBufferingWhereTheSourceStands) {
    Buffered stream(100, false);
    EXPECT_EQ(stream.Read(5), S_OK);
    EXPECT_EQ(stream.Seek(3, STREAM_SEEK_CUR), S_OK);
    EXPECT_EQ(stream.reached.QuadPart, 8u);
    EXPECT_EQ(stream.state.position, 0);
    EnableReadAhead(stream.state, true);
    EXPECT_EQ(stream.Read(4), S_OK);
    EXPECT_TRUE(stream.GotBytesOf(8));
    stream.state.source = nullptr;
    EXPECT_EQ(stream.Read(1), E_UNEXPECTED);
    EXPECT_EQ(stream.Seek(0, STREAM_SEEK_SET), E_UNEXPECTED);
    EXPECT_EQ(EnableReadAhead(stream.state, true), E_UNEXPECTED);
}

TEST(ReadAhead, EndsOnSourcesThatLie) {
    Buffered stuck(100);
    stuck.source.position = 50;
    stuck.source.seekSticks = true;
    EXPECT_EQ(stuck.Read(4), S_FALSE);
    EXPECT_EQ(stuck.got, 0u);
    EXPECT_EQ(stuck.source.bytesRead, kBuffer);  // one refill, not one after another

    for (const uint32_t count : {4u, kBuffer, kBuffer + 1}) {
        Buffered boasting(100);
        boasting.source.claimsMore = true;
        boasting.Read(count);
        EXPECT_EQ(boasting.got, count);
        EXPECT_EQ(boasting.state.position, count);
        EnableReadAhead(boasting.state, false);
        boasting.Read(count);
        EXPECT_EQ(boasting.got, count);
    }
}

TEST(ReadAhead, ReportsTheCallThatFails) {
    int failures = 0;
    for (uint64_t n = 1; n < 12; ++n) {
        Buffered stream(40);
        stream.source.calls = 0;
        stream.source.failCall = n;
        size_t position = 0;
        for (const uint32_t count : {10u, 10u, 17u, 3u}) {
            const HRESULT result = stream.Read(count);
            failures += FAILED(result);
            EXPECT_TRUE(stream.GotBytesOf(position));
            EXPECT_TRUE(FAILED(result) || stream.got == count);
            position += stream.got;
        }
    }
    EXPECT_EQ(failures, 8);  // four refills or reads past the buffer, a Seek and a Read each
}

}  // namespace
}  // namespace tessary::test
