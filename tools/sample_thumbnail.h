// The thumbnail of a sample: its picture made small, as a JPEG file in a resource.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <stdexcept>

#include "frontend/document_pixels.h"
#include "tools/document_builder.h"
#include "tools/memory_stream.h"

namespace tessary::tools {

// Writes baseline JPEG files of three full-size components. Every code has one length, 4 bits for the first
// coefficient of a block and 8 for the others: larger than need be, and as short as can be said.
class JpegWriter {
public:
    // `samples` are three bytes a pixel; the sides are multiples of 8.
    static test::Bytes Write(const test::Bytes& samples, uint32_t width, uint32_t height) {
        JpegWriter writer;
        writer.WriteHead(width, height);
        std::array<int, 3> last = {};
        for (uint32_t y = 0; y < height; y += 8) {
            for (uint32_t x = 0; x < width; x += 8) {
                for (uint32_t c = 0; c < 3; ++c)
                    writer.WriteBlock(&samples[3 * (size_t{y} * width + x) + c], 3 * size_t{width}, last[c]);
            }
        }
        writer.Put(0x7F, 7);  // fills the last byte
        return writer.m_bytes.U16(0xFFD9);
    }

private:
    static constexpr int kStep = 6;  // of every coefficient

    void WriteHead(uint32_t width, uint32_t height) {
        m_bytes.U16(0xFFD8).U16(0xFFDB).U16(67).U8(0);
        for (int i = 0; i < 64; ++i) m_bytes.U8(kStep);
        m_bytes.U16(0xFFC0).U16(17).U8(8).U16(height).U16(width).U8(3);
        for (uint32_t c = 1; c <= 3; ++c) m_bytes.U8(c).U8(0x11).U8(0);
        m_bytes.U16(0xFFC4).U16(19 + 12).U8(0x00).Zeros(3).U8(12).Zeros(12);
        for (uint32_t size = 0; size < 12; ++size) m_bytes.U8(size);
        m_bytes.U16(0xFFC4).U16(19 + 176).U8(0x10).Zeros(7).U8(176).Zeros(8);
        for (uint32_t i = 0; i < 176; ++i) m_bytes.U8(i / 11 << 4 | i % 11);  // zeros before it, its size
        m_bytes.U16(0xFFDA).U16(12).U8(3);
        for (uint32_t c = 1; c <= 3; ++c) m_bytes.U8(c).U8(0);
        m_bytes.U8(0).U8(63).U8(0);
    }

    void Put(uint32_t bits, uint32_t count) {
        for (uint32_t i = count; i-- > 0;) {
            m_pending = m_pending << 1 | (bits >> i & 1);
            if (++m_pendingCount < 8) continue;
            m_bytes.U8(m_pending & 0xFF);
            if ((m_pending & 0xFF) == 0xFF) m_bytes.U8(0);
            m_pending = m_pendingCount = 0;
        }
    }

    // A code that ends on the size of the value in bits, and those bits.
    void PutValue(int value, uint32_t zeros, uint32_t codeBits) {
        uint32_t size = 0;
        while (std::abs(value) >> size) ++size;
        Put(zeros * 11 + size, codeBits);
        Put(static_cast<uint32_t>(value < 0 ? value + (1 << size) - 1 : value), size);
    }

    static int Coefficient(const uint8_t* samples, size_t rowBytes, int u, int v) {
        const auto wave = [](int i, int frequency) {
            return std::cos((2 * i + 1) * frequency * std::numbers::pi / 16) *
                   (frequency ? 0.5 : std::sqrt(0.125));
        };
        double sum = 0;
        for (int i = 0; i < 64; ++i) {
            const size_t offset = static_cast<size_t>(i / 8) * rowBytes + 3 * static_cast<size_t>(i % 8);
            sum += (samples[offset] - 128) * wave(i % 8, u) * wave(i / 8, v);
        }
        return static_cast<int>(std::lround(sum / kStep));
    }

    void WriteBlock(const uint8_t* samples, size_t rowBytes, int& last) {
        const int mean = Coefficient(samples, rowBytes, 0, 0);
        PutValue(mean - last, 0, 4);
        last = mean;
        uint32_t zeros = 0;
        // Diagonal by diagonal, every second one the other way.
        for (int sum = 1; sum < 15; ++sum) {
            for (int i = std::max(0, sum - 7); i <= std::min(sum, 7); ++i) {
                const int u = sum % 2 ? sum - i : i;
                const int value = Coefficient(samples, rowBytes, u, sum - u);
                if (value == 0) {
                    ++zeros;
                    continue;
                }
                for (; zeros > 15; zeros -= 16) Put(15 * 11, 8);
                PutValue(value, zeros, 8);
                zeros = 0;
            }
        }
        if (zeros > 0) Put(0, 8);
    }

    test::ByteWriter m_bytes;
    uint32_t m_pending = 0, m_pendingCount = 0;
};

// The data of resource 1036 for a document: what it looks like on white, a quarter as wide and high.
inline test::Bytes ThumbnailOf(const test::Bytes& document) {
    constexpr uint32_t kPart = 4;
    test::MemoryStream stream(document);
    DocumentPixels picture;
    if (DecodeDocumentPixels(&stream, picture) != PsdReadResult::kOk)
        throw std::runtime_error("a sample cannot be drawn");
    const uint32_t width = picture.width / kPart / 8 * 8, height = picture.height / kPart / 8 * 8;
    test::Bytes samples;
    for (uint32_t i = 0; i < width * height; ++i) {
        double sums[3] = {};
        for (uint32_t k = 0; k < kPart * kPart; ++k) {
            const uint32_t x = i % width * kPart + k % kPart, y = i / width * kPart + k / kPart;
            const uint32_t pixel = picture.pixels.get()[size_t{y} * picture.width + x];
            for (int c = 0; c < 3; ++c) {
                const double alpha = (pixel >> 24) / 255.0;
                sums[c] += (alpha * (pixel >> (16 - 8 * c) & 0xFF) + (1 - alpha) * 255) / (kPart * kPart);
            }
        }
        const auto [r, g, b] = sums;
        for (const double sample :
             {0.299 * r + 0.587 * g + 0.114 * b, 128 - 0.168736 * r - 0.331264 * g + 0.5 * b,
              128 + 0.5 * r - 0.418688 * g - 0.081312 * b})
            samples.push_back(static_cast<uint8_t>(std::clamp(std::lround(sample), 0L, 255L)));
    }
    const test::Bytes jpeg = JpegWriter::Write(samples, width, height);
    test::ByteWriter data;
    data.U32(1).U32(width).U32(height).U32(3 * width).U32(3 * width * height);
    return data.U32(static_cast<uint32_t>(jpeg.size())).U16(24).U16(1).Raw(jpeg);
}

}  // namespace tessary::tools
