// Does to every document of a folder what files from strangers, bad streams and full memory can do to the
// codec:
//   hostile_check FOLDER [ONE_OF]
// Every truncation, every byte of everything but pixels damaged in five ways, every allocation and every call
// of the stream failing once and from then on, streams that lie or change. ONE_OF takes that part of the
// cases only. Prints what it did and fails when anything came out wrong; a crash, a leak or a hang shows by
// itself.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/support/document_sections.h"
#include "tests/support/portable_codec.h"

namespace tessary::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint64_t kMostBytes = 80u << 20;  // of one allocation; no sample has pixels worth as much
constexpr uint32_t kBufferBytes = 4096;     // of the read-ahead
constexpr double kMostSeconds = 20;         // of one case, under sanitizers on a busy machine

struct Sample {
    std::string name;
    Bytes bytes;
    PsdReadResult result = PsdReadResult::kOk;  // of the sound document on a sound stream
    Bytes pixels;                               // empty where they differ each time
    uint64_t allocations = 0;
};

struct Outcome {
    PsdReadResult result = PsdReadResult::kOk;
    Bytes pixels;
    friend bool operator==(const Outcome&, const Outcome&) = default;
};

class Check {
public:
    Check(std::vector<Sample> samples, uint64_t oneOf) : m_samples(std::move(samples)), m_oneOf(oneOf) {}

    bool Run() {
        for (Sample& sample : m_samples) {
            m_name = sample.name;
            MemoryStream stream(sample.bytes);
            const Outcome sound = Use(stream);
            sample.result = sound.result;
            sample.allocations = m_allocations;
            MemoryStream again(sample.bytes);
            // Dissolved pixels are other ones each time.
            if (Use(again) == sound) sample.pixels = sound.pixels;
        }
        const struct {
            const char* what;
            void (Check::*run)(const Sample& sample);
        } parts[] = {
            {"truncations", &Check::Truncate},
            {"damaged bytes", &Check::Damage},
            {"failing allocations", &Check::FailAllocations},
            {"failing calls", &Check::FailCalls},
            {"lying streams", &Check::Lie},
            {"changing contents", &Check::Change},
        };
        uint64_t all = 0;
        for (const auto& part : parts) {
            const Clock::time_point start = Clock::now();
            m_cases = 0;
            for (const Sample& sample : m_samples) {
                m_name = sample.name + ", " + part.what;
                (this->*part.run)(sample);
            }
            all += m_cases;
            std::printf("%-20s %8llu cases %7.1f s\n", part.what, static_cast<unsigned long long>(m_cases),
                        std::chrono::duration<double>(Clock::now() - start).count());
            std::fflush(stdout);
        }
        std::printf(
            "%zu documents, %llu cases, %llu failures; slowest case %.3f s, largest allocation %.1f MiB\n",
            m_samples.size(), static_cast<unsigned long long>(all),
            static_cast<unsigned long long>(m_failures), m_slowest,
            static_cast<double>(m_largest) / (1 << 20));
        return m_failures == 0;
    }

private:
    // Calls for 1 to `count`, as far as this run takes part.
    template <class Act>
    void ForEach(uint64_t count, const Act& act) {
        for (uint64_t n = 1; n <= count; ++n) {
            if (m_counter++ % m_oneOf != 0) continue;
            ++m_cases;
            act(n);
        }
    }

    void Expect(bool right, const char* what, uint64_t n) {
        if (right) return;
        ++m_failures;
        std::fprintf(stderr, "%s %llu: %s\n", m_name.c_str(), static_cast<unsigned long long>(n), what);
    }

    // Everything that clients ask for, then the layers.
    Outcome UseCodec(PortableCodec& codec) {
        Outcome outcome;
        outcome.result = codec.Everything();
        DocumentPixels layers;
        if (outcome.result == PsdReadResult::kOk)
            outcome.result = DecodeDocumentPixels(codec.stream, layers, PictureChoice::kAlwaysLayers);
        for (const DocumentPixels* picture : {&codec.picture, &layers}) {
            const auto bytes = std::as_bytes(picture->pixels.span());
            const auto* first = reinterpret_cast<const uint8_t*>(bytes.data());
            outcome.pixels.insert(outcome.pixels.end(), first, first + bytes.size());
        }
        codec.picture = {};
        return outcome;
    }

    // Watches time, memory and what stays behind.
    Outcome Watched(PortableCodec& codec, uint64_t failAllocation = 0, bool later = false) {
        const Clock::time_point start = Clock::now();
#if defined(TESSARY_FAULT_INJECTION)
        FailAllocationNumber(failAllocation, later);
#else
        static_cast<void>(failAllocation), static_cast<void>(later);
#endif
        Outcome outcome = UseCodec(codec);
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        m_slowest = std::max(m_slowest, seconds);
        Expect(seconds < kMostSeconds, "took too long, of cases", m_cases);
#if defined(TESSARY_FAULT_INJECTION)
        m_allocations = AllocationCount();
        m_largest = std::max(m_largest, LargestAllocation());
        Expect(LargestAllocation() <= kMostBytes, "took too much memory, of cases", m_cases);
        Expect(LiveAllocations() == 0, "kept memory, of cases", m_cases);
        FailAllocationNumber(0);
#endif
        return outcome;
    }

    Outcome Use(MemoryStream& stream) {
        PortableCodec codec(&stream, kBufferBytes);
        return Watched(codec);
    }

    bool IsSound(const Sample& sample, const Outcome& outcome) const {
        return outcome.result == sample.result && (sample.pixels.empty() || outcome.pixels == sample.pixels);
    }

    void Truncate(const Sample& sample) {
        ForEach(sample.bytes.size(), [&](uint64_t n) {
            Bytes file = sample.bytes;
            file.resize(static_cast<size_t>(n - 1));
            MemoryStream stream(std::move(file));
            Expect(Use(stream).result != PsdReadResult::kOk || n > 26, "opened without a header", n);
        });
    }

    void Damage(const Sample& sample) {
        std::vector<size_t> places;
        std::vector<bool> isPixel(sample.bytes.size());
        for (const Section& section : FindSections(sample.bytes)) {
            if (section.kind != Section::kChannel && section.kind != Section::kRest) continue;
            // The two bytes of the compression code are none.
            for (size_t at = section.begin + 2; at < section.end; ++at) isPixel[at] = true;
        }
        for (size_t at = 0; at < isPixel.size(); ++at) {
            if (!isPixel[at]) places.push_back(at);
        }
        ForEach(5 * places.size(), [&](uint64_t n) {
            Bytes file = sample.bytes;
            uint8_t& byte = file[places[(n - 1) / 5]];
            const int damaged[] = {0, 255, byte ^ 128, byte + 1, byte + 255};
            byte = static_cast<uint8_t>(damaged[(n - 1) % 5]);
            MemoryStream stream(std::move(file));
            static_cast<void>(Use(stream));
        });
    }

    void FailAllocations(const Sample& sample) {
        for (const bool later : {false, true}) {
            ForEach(sample.allocations + 1, [&](uint64_t n) {
                MemoryStream stream(sample.bytes);
                PortableCodec codec(&stream, kBufferBytes);
                const Outcome outcome = Watched(codec, n, later);
                // The probe has one code for every failure, and the reader without its buffer reads nothing.
                // Effects without theirs are left out.
                const auto codes = {PsdReadResult::kOutOfMemory, PsdReadResult::kInflateSetup,
                                    PsdReadResult::kShortRead, PortableCodec::kProbeFailed, sample.result};
                Expect(std::ranges::find(codes, outcome.result) != codes.end(), "wrong code", n);
                Expect(n <= sample.allocations || IsSound(sample, outcome), "failed with all memory", n);
                Expect(IsSound(sample, Watched(codec)), "did not recover", n);
            });
        }
    }

    void FailCalls(const Sample& sample) {
        for (const uint32_t bufferBytes : {0u, 64u, kBufferBytes}) {
            MemoryStream sound(sample.bytes);
            PortableCodec whole(&sound, bufferBytes);
            static_cast<void>(Watched(whole));
            for (const bool later : {false, true}) {
                ForEach(sound.calls, [&](uint64_t n) {
                    MemoryStream stream(sample.bytes);
                    PortableCodec codec(&stream, bufferBytes);
                    stream.failCall = n;
                    stream.failLater = later;
                    static_cast<void>(Watched(codec));
                    stream.failCall = 0;
                    Expect(IsSound(sample, Watched(codec)), "did not recover", n);
                });
            }
        }
    }

    void Lie(const Sample& sample) {
        const struct {
            const char* what;
            void (*set)(MemoryStream& stream);
            bool isHarmless;
        } lies[] = {
            {"one byte at a time", [](MemoryStream& stream) { stream.maxBytesPerRead = 1; }, true},
            {"reports more than asked", [](MemoryStream& stream) { stream.claimsMore = true; }, false},
            {"success with nothing", [](MemoryStream& stream) { stream.maxBytesPerRead = 0; }, false},
            {"no seeking", [](MemoryStream& stream) { stream.canSeek = false; }, false},
            {"seeks stay", [](MemoryStream& stream) { stream.seekSticks = true; }, false},
            {"seeks go ahead", [](MemoryStream& stream) { stream.seekMisses = 1; }, false},
            {"seeks stay behind", [](MemoryStream& stream) { stream.seekMisses = -1; }, false},
            {"seeks go far", [](MemoryStream& stream) { stream.seekMisses = int64_t{1} << 40; }, false},
            {"size 0", [](MemoryStream& stream) { stream.hasSize = true; }, false},
            {"size 2^31", [](MemoryStream& stream) { stream.hasSize = true, stream.size = 1u << 31; }, false},
            {"size 2^63",
             [](MemoryStream& stream) { stream.hasSize = true, stream.size = uint64_t{1} << 63; }, false},
            {"size 2^31 - 1", [](MemoryStream& stream) { stream.hasSize = true, stream.size = INT32_MAX; },
             false},
        };
        ForEach(2 * std::size(lies), [&](uint64_t n) {
            MemoryStream stream(sample.bytes);
            PortableCodec codec(&stream, n % 2 ? 0 : kBufferBytes);
            const auto& lie = lies[(n - 1) / 2];
            lie.set(stream);
            const Outcome outcome = Watched(codec);
            Expect(!lie.isHarmless || IsSound(sample, outcome), lie.what, n);
        });
    }

    void Change(const Sample& sample) {
        const size_t next = static_cast<size_t>(&sample - m_samples.data() + 1) % m_samples.size();
        const Bytes half(sample.bytes.begin(),
                         sample.bytes.begin() + static_cast<std::ptrdiff_t>(sample.bytes.size() / 2));
        MemoryStream sound(sample.bytes);
        PortableCodec whole(&sound, 64);
        static_cast<void>(Watched(whole));
        for (const Bytes& changed : {m_samples[next].bytes, half, Bytes(), Bytes(5000, 255)}) {
            ForEach(sound.calls, [&](uint64_t n) {
                MemoryStream stream(sample.bytes);
                PortableCodec codec(&stream, 64);
                stream.changeCall = n;
                stream.changed = changed;
                static_cast<void>(Watched(codec));
            });
        }
    }

    std::vector<Sample> m_samples;
    uint64_t m_oneOf, m_counter = 0, m_cases = 0, m_failures = 0, m_allocations = 0, m_largest = 0;
    double m_slowest = 0;
    std::string m_name;
};

std::vector<Sample> SamplesIn(const char* folder) {
    std::vector<Sample> samples;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file() || entry.path().filename() == "stamp") continue;
        std::ifstream file(entry.path(), std::ios::binary);
        samples.push_back(
            {entry.path().stem().string(), Bytes(std::istreambuf_iterator<char>(file), {}), {}, {}});
    }
    std::ranges::sort(samples, {}, &Sample::name);
    return samples;
}

}  // namespace
}  // namespace tessary::test

int main(int count, char** arguments) {
    const int oneOf = count == 3 ? std::atoi(arguments[2]) : 1;
    std::vector<tessary::test::Sample> samples;
    if (count == 2 || (count == 3 && oneOf > 0)) samples = tessary::test::SamplesIn(arguments[1]);
    if (samples.empty()) {
        std::fputs("usage: hostile_check FOLDER_OF_DOCUMENTS [ONE_OF]\n", stderr);
        return 2;
    }
    return tessary::test::Check(std::move(samples), static_cast<uint64_t>(oneOf)).Run() ? 0 : 1;
}
