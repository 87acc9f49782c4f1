// The least that decoding a document can cost: reads the file, unpacks or inflates, interleaves to 32-bit
// pixels in fresh memory, and does nothing else. Not a decoder: it trusts its input, knows PackBits rows, raw
// planes and one zlib stream, converts no colours and composites nothing.
#include <emmintrin.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

struct Freed {
    void operator()(void* memory) const { std::free(memory); }
};
using Memory = std::unique_ptr<uint8_t, Freed>;

// Fresh and not touched; the room behind is for copies in steps of 16.
Memory Fresh(size_t bytes) { return Memory(static_cast<uint8_t*>(std::malloc(bytes + 256))); }

uint32_t Load(const uint8_t* bytes, int count) {
    uint32_t value = 0;
    for (int i = 0; i < count; ++i) value = value << 8 | bytes[i];
    return value;
}

// Buffers that have been used go to the next reader.
std::vector<Memory> g_buffers;
size_t g_pixels = 0;  // of the document

// Reads one place of the file on, a piece at a time that stays in the cache.
class Cursor {
public:
    Cursor(int file, size_t offset, size_t piece = kMost) : m_file(file), m_offset(offset), m_piece(piece) {
        if (g_buffers.empty()) g_buffers.push_back(Fresh(2 * kMost));
        m_buffer = std::move(g_buffers.back());
        g_buffers.pop_back();
    }
    Cursor(const Cursor&) = delete;
    Cursor& operator=(const Cursor&) = delete;
    ~Cursor() { g_buffers.push_back(std::move(m_buffer)); }

    // At least `count` bytes, at most 64 KiB, if the file has them.
    const uint8_t* Need(size_t count) {
        while (m_end - m_at < count) {
            std::memmove(m_buffer.get(), m_buffer.get() + m_at, m_end - m_at);
            m_end -= m_at;
            m_at = 0;
            const ssize_t got = pread(m_file, m_buffer.get() + m_end, m_piece, static_cast<off_t>(m_offset));
            if (got <= 0) break;
            m_offset += static_cast<size_t>(got);
            m_end += static_cast<size_t>(got);
        }
        return m_buffer.get() + m_at;
    }
    const uint8_t* Take(size_t count) {
        const uint8_t* bytes = Need(count);
        m_at += count;
        return bytes;
    }
    uint32_t Number(int count) { return Load(Take(static_cast<size_t>(count)), count); }
    void Skip(size_t count) {
        for (; count > kMost; count -= kMost) Take(kMost);
        Take(count);
    }
    size_t Left() const { return m_end - m_at; }

private:
    static constexpr size_t kMost = 1u << 16;
    int m_file;
    size_t m_offset, m_piece, m_at = 0, m_end = 0;
    Memory m_buffer;
};

// A compression code and the row lengths behind it; none when the rows are raw.
std::vector<uint8_t> RowLengths(int file, size_t at, size_t rows) {
    std::vector<uint8_t> table(2 + 2 * rows);
    if (pread(file, table.data(), table.size(), static_cast<off_t>(at)) < 2 || Load(table.data(), 2) != 1)
        return {};
    table.erase(table.begin(), table.begin() + 2);
    return table;
}

void UnpackRow(const uint8_t* in, size_t packed, uint8_t* out) {
    const uint8_t* const end = in + packed;
    while (in < end) {
        const uint32_t head = *in++;
        if (head < 128) {
            for (uint32_t i = 0; i <= head; i += 16)
                _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i),
                                 _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i)));
            in += head + 1;
            out += head + 1;
        } else if (head > 128) {
            const __m128i value = _mm_set1_epi8(static_cast<char>(*in++));
            for (uint32_t i = 0; i < 257 - head; i += 16)
                _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), value);
            out += 257 - head;
        }
    }
}

// Adds up the differences of one row.
void Undo8(uint8_t* row, size_t count) {
    __m128i carry = _mm_setzero_si128();
    size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        __m128i* const at = reinterpret_cast<__m128i*>(row + i);
        __m128i sum = _mm_loadu_si128(at);
        sum = _mm_add_epi8(sum, _mm_slli_si128(sum, 1));
        sum = _mm_add_epi8(sum, _mm_slli_si128(sum, 2));
        sum = _mm_add_epi8(sum, _mm_slli_si128(sum, 4));
        sum = _mm_add_epi8(_mm_add_epi8(sum, _mm_slli_si128(sum, 8)), carry);
        _mm_storeu_si128(at, sum);
        carry = _mm_set1_epi8(static_cast<char>(row[i + 15]));
    }
    for (; i < count; ++i) row[i] = static_cast<uint8_t>(row[i] + (i ? row[i - 1] : 0));
}

void Undo16(uint8_t* row, size_t count) {
    uint32_t sum = 0;
    for (size_t i = 0; i < 2 * count; i += 2) {
        sum += Load(row + i, 2);
        row[i] = static_cast<uint8_t>(sum >> 8);
        row[i + 1] = static_cast<uint8_t>(sum);
    }
}

// Rows of four planes to pixels of four bytes; 16 pixels at a time, the last ones overrun into the room
// behind.
void Interleave(const uint8_t* const planes[4], uint8_t* out, size_t count) {
    for (size_t i = 0; i < count; i += 16) {
        const auto load = [&](int p) {
            return _mm_loadu_si128(reinterpret_cast<const __m128i*>(planes[p] + i));
        };
        const __m128i a = load(0), b = load(1), c = load(2), d = load(3);
        const __m128i lowAb = _mm_unpacklo_epi8(a, b), highAb = _mm_unpackhi_epi8(a, b);
        const __m128i lowCd = _mm_unpacklo_epi8(c, d), highCd = _mm_unpackhi_epi8(c, d);
        __m128i* const to = reinterpret_cast<__m128i*>(out + 4 * i);
        _mm_storeu_si128(to, _mm_unpacklo_epi16(lowAb, lowCd));
        _mm_storeu_si128(to + 1, _mm_unpackhi_epi16(lowAb, lowCd));
        _mm_storeu_si128(to + 2, _mm_unpacklo_epi16(highAb, highCd));
        _mm_storeu_si128(to + 3, _mm_unpackhi_epi16(highAb, highCd));
    }
}

// The high bytes of a row, in place.
void Halve(uint8_t* row, size_t count) {
    const __m128i mask = _mm_set1_epi16(0xFF);
    for (size_t i = 0; i < count; i += 16) {
        const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + 2 * i));
        const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + 2 * i + 16));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(row + i),
                         _mm_packus_epi16(_mm_and_si128(low, mask), _mm_and_si128(high, mask)));
    }
}

// One plane of a layer or of the merged image: where its rows are and, when packed, how long they are.
struct Plane {
    Plane(int file, size_t data, const uint8_t* lengths) : rows(file, data, 1u << 15), counts(lengths) {}
    const uint8_t* Row(size_t rowBytes, uint8_t* buffer) {
        if (!counts) return rows.Take(rowBytes);
        const uint32_t count = Load(counts, 2);
        counts += 2;
        UnpackRow(rows.Take(count), count, buffer);
        return buffer;
    }
    Cursor rows;
    const uint8_t* counts;
};

// Planes in the order blue, green, red, alpha; null is opaque.
void Compose(Plane* const planes[4], size_t width, size_t height, size_t depth, uint8_t* pixels) {
    std::vector<uint8_t> buffers(4 * (width * 2 + 256), 255);
    for (size_t y = 0; y < height; ++y) {
        const uint8_t* rows[4];
        for (size_t p = 0; p < 4; ++p) {
            uint8_t* buffer = buffers.data() + p * (width * 2 + 256);
            rows[p] = planes[p] ? planes[p]->Row(width * depth / 8, buffer) : buffer;
            if (!planes[p] || depth != 16) continue;
            if (rows[p] != buffer) std::memcpy(buffer, rows[p], 2 * width);
            Halve(buffer, width);
            rows[p] = buffer;
        }
        Interleave(rows, pixels + 4 * width * y, width);
    }
}

Memory Inflated(Cursor& input, size_t bytes) {
    Memory output = Fresh(bytes);
    z_stream stream = {};
    inflateInit2(&stream, 15);
    stream.next_out = output.get();
    stream.avail_out = static_cast<uInt>(bytes);
    for (int code = Z_OK; code == Z_OK && stream.avail_out != 0;) {
        stream.next_in = const_cast<Bytef*>(input.Need(1));
        stream.avail_in = static_cast<uInt>(input.Left());
        input.Take(input.Left());
        code = inflate(&stream, Z_NO_FLUSH);
    }
    inflateEnd(&stream);
    return output;
}

Memory Merged(int file, size_t at, size_t channels, size_t width, size_t height, size_t depth) {
    Cursor head(file, at);
    const uint32_t compression = head.Number(2);
    const size_t rowBytes = width * depth / 8;
    constexpr size_t kOrder[4] = {2, 1, 0, 3};
    if (compression >= 2) {
        Memory planes = Inflated(head, rowBytes * height * channels);
        if (compression == 3) {
            for (size_t row = 0; row < height * channels; ++row)
                (depth == 16 ? Undo16 : Undo8)(planes.get() + row * rowBytes, width);
        }
        Memory pixels = Fresh(4 * width * height);
        std::vector<uint8_t> buffers(4 * (rowBytes + 256), 255);
        for (size_t y = 0; y < height; ++y) {
            const uint8_t* rows[4];
            for (size_t p = 0; p < 4; ++p) {
                uint8_t* buffer = buffers.data() + p * (rowBytes + 256);
                rows[p] = buffer;
                if (kOrder[p] >= channels) continue;
                const uint8_t* row = planes.get() + (kOrder[p] * height + y) * rowBytes;
                if (depth == 8) {
                    rows[p] = row;
                } else {
                    std::memcpy(buffer, row, rowBytes);
                    Halve(buffer, width);
                }
            }
            Interleave(rows, pixels.get() + 4 * width * y, width);
        }
        return pixels;
    }
    const std::vector<uint8_t> lengths = RowLengths(file, at, height * channels);
    std::vector<std::unique_ptr<Plane>> planes;
    size_t data = at + 2 + lengths.size();
    for (size_t channel = 0; channel < channels; ++channel) {
        const uint8_t* own = lengths.empty() ? nullptr : lengths.data() + 2 * height * channel;
        planes.push_back(std::make_unique<Plane>(file, data, own));
        for (size_t y = 0; y < height; ++y) data += own ? Load(own + 2 * y, 2) : rowBytes;
    }
    Plane* order[4] = {};
    for (size_t p = 0; p < 4; ++p) order[p] = kOrder[p] < channels ? planes[kOrder[p]].get() : nullptr;
    Memory pixels = Fresh(4 * width * height);
    Compose(order, width, height, depth, pixels.get());
    return pixels;
}

struct Channel {
    int id;
    size_t length;
};
struct Layer {
    size_t width, height, maskWidth = 0, maskHeight = 0;
    std::vector<Channel> channels;
};

// Memory that one layer leaves to the next.
class Reused {
public:
    uint8_t* Room(size_t bytes) {
        if (bytes > m_bytes) m_memory = Fresh(m_bytes = bytes);
        return m_memory.get();
    }

private:
    Memory m_memory;
    size_t m_bytes = 0;
};

// Each layer is left to the next as soon as it is there; what would stay is a canvas.
Memory Layers(int file, size_t at, size_t depth) {
    Cursor head(file, at);
    const size_t start = at + 4;
    head.Number(4);
    size_t read = 2;
    std::vector<Layer> layers(head.Number(2));
    const auto number = [&](int count) {
        read += static_cast<size_t>(count);
        return head.Number(count);
    };
    for (Layer& layer : layers) {
        const uint32_t top = number(4), left = number(4), bottom = number(4), right = number(4);
        layer.width = right - left;
        layer.height = bottom - top;
        layer.channels.resize(number(2));
        for (Channel& channel : layer.channels) {
            channel.id = static_cast<int16_t>(number(2));
            channel.length = number(4);
        }
        for (int i = 0; i < 3; ++i) number(4);
        const uint32_t extra = number(4), extraStart = static_cast<uint32_t>(read);
        if (number(4) != 0) {
            const uint32_t maskTop = number(4), maskLeft = number(4);
            layer.maskHeight = number(4) - maskTop;
            layer.maskWidth = number(4) - maskLeft;
        }
        const size_t rest = extra - (read - extraStart);
        head.Skip(rest);
        read += rest;
    }
    Memory canvas = Fresh(4 * g_pixels);
    std::memset(canvas.get(), 0, 4 * g_pixels);
    Reused image, mask;
    size_t data = start + read;
    for (const Layer& layer : layers) {
        std::unique_ptr<Plane> planes[5];
        std::vector<uint8_t> lengths[5];
        for (const Channel& channel : layer.channels) {
            const bool isMask = channel.id == -2;
            const size_t slot = isMask ? 4 : channel.id == -1 ? 3 : static_cast<size_t>(2 - channel.id);
            lengths[slot] = RowLengths(file, data, isMask ? layer.maskHeight : layer.height);
            planes[slot] = std::make_unique<Plane>(file, data + 2 + lengths[slot].size(),
                                                   lengths[slot].empty() ? nullptr : lengths[slot].data());
            data += channel.length;
        }
        if (layer.width * layer.height == 0) continue;
        Plane* const order[4] = {planes[0].get(), planes[1].get(), planes[2].get(), planes[3].get()};
        Compose(order, layer.width, layer.height, depth, image.Room(4 * layer.width * layer.height));
        if (!planes[4]) continue;
        uint8_t* const out = mask.Room(layer.maskWidth * layer.maskHeight);
        std::vector<uint8_t> buffer(layer.maskWidth + 256);
        for (size_t y = 0; y < layer.maskHeight; ++y)
            std::memcpy(out + y * layer.maskWidth, planes[4]->Row(layer.maskWidth, buffer.data()),
                        layer.maskWidth);
    }
    return canvas;
}

// Where the file has layers they are wanted, else its merged image.
Memory Decode(const char* path) {
    const int file = open(path, O_RDONLY);
    Cursor head(file, 0);
    head.Take(12);
    const uint32_t channels = head.Number(2), height = head.Number(4), width = head.Number(4);
    g_pixels = size_t{width} * height;
    const uint32_t depth = head.Number(2);
    head.Number(2);
    const uint32_t colors = head.Number(4);
    Cursor resources(file, 30 + colors);
    const uint32_t resourceBytes = resources.Number(4);
    const size_t section = size_t{34} + colors + resourceBytes;
    Cursor sections(file, section);
    const uint32_t sectionBytes = sections.Number(4);
    Memory pixels = sectionBytes != 0
                        ? Layers(file, section + 4, depth)
                        : Merged(file, section + 4, std::min(channels, 4u), width, height, depth);
    close(file);
    return pixels;
}

// The merged image, to see that it is one.
void Write(const char* path, const uint8_t* pixels) {
    std::FILE* file = std::fopen(path, "wb");
    if (!file) return;
    std::fwrite(pixels, 4, g_pixels, file);
    std::fclose(file);
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 2 || count > 4) {
        std::fputs("usage: floor IN.psd [RUNS [OUT.bgra]]\n", stderr);
        return 2;
    }
    std::vector<double> milliseconds;
    for (int run = count > 2 ? std::atoi(arguments[2]) : 10; run > 0; --run) {
        const auto start = std::chrono::steady_clock::now();
        const Memory pixels = Decode(arguments[1]);
        const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
        milliseconds.push_back(elapsed.count());
        if (count == 4) Write(arguments[3], pixels.get());
    }
    std::sort(milliseconds.begin(), milliseconds.end());
    std::printf("%s: best %.3f ms, median %.3f ms of %zu\n", arguments[1], milliseconds.front(),
                milliseconds[milliseconds.size() / 2], milliseconds.size());
    return 0;
}
