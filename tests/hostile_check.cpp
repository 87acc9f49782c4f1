// Does to every document of a folder what files from strangers, bad streams and full memory can do to the
// codec:
//   hostile_check FOLDER [ONE_OF]
// Every truncation, every byte of everything but pixels damaged in five ways, every allocation and every call
// of the stream failing once and from then on, streams that lie or change. ONE_OF takes that part of the
// cases only. Prints what it did and fails when anything came out wrong; a crash, a leak or a hang shows by
// itself.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "tests/support/document_sections.h"
#include "tests/support/portable_codec.h"

namespace tessary::test {
namespace {

using Clock = std::chrono::steady_clock;
using Outcome = std::pair<PsdReadResult, Bytes>;

constexpr uint64_t kMostBytes =
    129u << 20;  // of one allocation; no sample has pixels worth more than is believed
constexpr uint32_t kBufferBytes = 4096;  // of the read-ahead
constexpr double kMostSeconds = 20;      // of one case, under sanitizers on a busy machine

struct Sample {
    std::string name;
    Bytes bytes;
    Outcome sound = {};  // on a sound stream; no pixels where they differ each time
    uint64_t allocations = 0;
    bool isLossy = false;  // without memory it can be drawn without a part
};

class Check {
public:
    explicit Check(uint64_t oneOf) : m_oneOf(oneOf) {}

    bool Run(std::vector<Sample>& samples) {
        for (Sample& sample : samples) {
            sample.sound = Use(sample.bytes);
            sample.allocations = m_allocations;
            // Effects and adjustments without theirs are left out.
            for (const std::string_view key : {"lfx2", "lrFX", "levl", "curv", "brit", "blnc", "hue2", "selc",
                                               "thrs", "nvrt", "post", "mixr", "grdm"})
                sample.isLossy |= std::search(sample.bytes.begin(), sample.bytes.end(), key.begin(),
                                              key.end()) != sample.bytes.end();
            // Dissolved pixels are other ones each time.
            if (Use(sample.bytes) != sample.sound) sample.sound.second.clear();
        }
        for (size_t i = 0; i < samples.size(); ++i) {
            m_name = samples[i].name;
            Truncate(samples[i]);
            Damage(samples[i]);
            FailAllocations(samples[i]);
            SpoilCalls(samples[i], samples[(i + 1) % samples.size()].bytes);
            Lie(samples[i]);
        }
        std::cout << samples.size() << " documents, " << m_cases << " cases, " << m_failures
                  << " failures; slowest case " << m_slowest << " s, largest allocation " << m_largest
                  << " bytes\n";
        return m_failures == 0;
    }

private:
    // Calls for each of `count` places with each of `variants`, as far as this run takes part.
    template <class Act>
    void ForEach(uint64_t variants, uint64_t count, const Act& act) {
        for (uint64_t n = 0; n < variants * count; ++n) {
            if (m_counter++ % m_oneOf != 0) continue;
            ++m_cases;
            act(n / count, n % count);
        }
    }

    void Expect(bool right, const char* what, uint64_t place) {
        if (right) return;
        ++m_failures;
        std::cerr << m_name << ", case " << m_cases << ", at " << place << ": " << what << '\n';
    }

    // Everything that clients ask for, then the layers. Watches time, memory and what stays behind.
    Outcome Watched(PortableCodec& codec, [[maybe_unused]] uint64_t failAllocation = 0,
                    [[maybe_unused]] bool later = false) {
        const Clock::time_point start = Clock::now();
#if defined(TESSARY_FAULT_INJECTION)
        FailAllocationNumber(failAllocation, later);
#endif
        Outcome outcome;
        {  // its pixels are gone before memory is counted
            outcome.first = codec.Everything();
            DocumentPixels picture = std::move(codec.picture), layers;
            codec.picture = {};
            if (outcome.first == PsdReadResult::kOk)
                outcome.first = DecodeDocumentPixels(codec.stream, layers, PictureChoice::kAlwaysLayers);
            for (const DocumentPixels* pixels : {&picture, &layers}) {
                const auto* first = reinterpret_cast<const uint8_t*>(pixels->pixels.get());
                outcome.second.insert(outcome.second.end(), first, first + 4 * pixels->pixels.count());
            }
        }
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        m_slowest = std::max(m_slowest, seconds);
        Expect(seconds < kMostSeconds, "took too long", 0);
#if defined(TESSARY_FAULT_INJECTION)
        m_allocations = AllocationCount();
        m_largest = std::max(m_largest, LargestAllocation());
        Expect(LargestAllocation() <= kMostBytes, "took too much memory", 0);
        Expect(LiveAllocations() == 0, "kept memory", 0);
        FailAllocationNumber(0);
#endif
        return outcome;
    }

    Outcome Use(Bytes bytes) {
        MemoryStream stream(std::move(bytes));
        PortableCodec codec(&stream, kBufferBytes);
        return Watched(codec);
    }

    static bool IsSound(const Sample& sample, const Outcome& outcome) {
        return outcome == sample.sound ||
               (sample.sound.second.empty() && outcome.first == sample.sound.first);
    }

    void Truncate(const Sample& sample) {
        ForEach(1, sample.bytes.size(), [&](uint64_t, uint64_t size) {
            Bytes file = sample.bytes;
            file.resize(static_cast<size_t>(size));
            Expect(Use(std::move(file)).first != PsdReadResult::kOk || size > 25, "opened without a header",
                   size);
        });
    }

    void Damage(const Sample& sample) {
        const auto sections = FindSections(sample.bytes);
        std::vector<size_t> places;
        for (size_t at = 0; at < sample.bytes.size(); ++at) {
            // The two bytes of the compression code are no pixels.
            const auto isPixel = [at](const Section& section) {
                return section.kind >= Section::kChannel && at >= section.begin + 2 && at < section.end;
            };
            if (std::ranges::none_of(sections, isPixel)) places.push_back(at);
        }
        ForEach(5, places.size(), [&](uint64_t variant, uint64_t place) {
            Bytes file = sample.bytes;
            uint8_t& byte = file[places[place]];
            const int damaged[] = {0, 255, byte ^ 128, byte + 1, byte + 255};
            byte = static_cast<uint8_t>(damaged[variant]);
            static_cast<void>(Use(std::move(file)));
        });
    }

    void FailAllocations(const Sample& sample) {
        ForEach(2, sample.allocations + 1, [&](uint64_t later, uint64_t place) {
            MemoryStream stream(sample.bytes);
            PortableCodec codec(&stream, kBufferBytes);
            const Outcome outcome = Watched(codec, place + 1, later != 0);
            // The probe has one code for every failure, and the reader without its buffer reads nothing.
            const auto codes = {PsdReadResult::kOutOfMemory, PsdReadResult::kInflateSetup,
                                PsdReadResult::kShortRead, PortableCodec::kProbeFailed, sample.sound.first};
            Expect(std::ranges::find(codes, outcome.first) != codes.end(), "wrong code", place);
            const bool isPicture = outcome.first != sample.sound.first || IsSound(sample, outcome);
            Expect(isPicture || sample.isLossy, "wrong pixels", place);
            Expect(place < sample.allocations || IsSound(sample, outcome), "failed with all memory", place);
            Expect(IsSound(sample, Watched(codec)), "did not recover", place);
        });
    }

    // Calls that fail, once or from then on, and contents that change between calls.
    void SpoilCalls(const Sample& sample, const Bytes& other) {
        const auto middle = sample.bytes.begin() + static_cast<std::ptrdiff_t>(sample.bytes.size() / 2);
        const Bytes changes[] = {other, Bytes(sample.bytes.begin(), middle), {}, Bytes(5000, 255)};
        for (const uint32_t bufferBytes : {0u, 64u, kBufferBytes}) {
            MemoryStream sound(sample.bytes);
            PortableCodec whole(&sound, bufferBytes);
            static_cast<void>(Watched(whole));
            ForEach(2 + std::size(changes), sound.calls, [&](uint64_t variant, uint64_t place) {
                MemoryStream stream(sample.bytes);
                PortableCodec codec(&stream, bufferBytes);
                stream.failLater = variant == 1;
                (variant < 2 ? stream.failCall : stream.changeCall) = place + 1;
                if (variant >= 2) stream.changed = changes[variant - 2];
                static_cast<void>(Watched(codec));
                stream.failCall = 0;
                Expect(variant >= 2 || IsSound(sample, Watched(codec)), "did not recover", place);
            });
        }
    }

    void Lie(const Sample& sample) {
        const int64_t misses[] = {1, -1, int64_t{1} << 40};
        const uint64_t sizes[] = {0, INT32_MAX, 1u << 31, uint64_t{1} << 63};
        ForEach(2, 13, [&](uint64_t direct, uint64_t lie) {
            MemoryStream stream(sample.bytes);
            PortableCodec codec(&stream, direct ? 0 : kBufferBytes);
            if (lie < 2) stream.maxBytesPerRead = static_cast<uint32_t>(lie);
            stream.claimsMore = lie == 2;
            stream.canSeek = lie != 3;
            stream.seekSticks = lie == 4;
            if (lie >= 5 && lie < 8) stream.seekMisses = misses[lie - 5];
            stream.hasSize = lie >= 8 && lie < 12;
            if (stream.hasSize) stream.size = sizes[lie - 8];
            stream.statFails = lie == 12;
            const Outcome outcome = Watched(codec);
            Expect(lie != 1 || IsSound(sample, outcome), "one byte at a time", 0);
            Expect(lie != 12 || IsSound(sample, outcome), "no size", 0);
        });
    }

    uint64_t m_oneOf, m_counter = 0, m_cases = 0, m_failures = 0, m_allocations = 0, m_largest = 0;
    double m_slowest = 0;
    std::string m_name;
};

}  // namespace
}  // namespace tessary::test

int main(int count, char** arguments) {
    const int oneOf = count == 3 ? std::atoi(arguments[2]) : 1;
    std::vector<tessary::test::Sample> samples;
    if (count >= 2 && oneOf > 0) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(arguments[1])) {
            if (!entry.is_regular_file() || entry.path().filename() == "stamp") continue;
            std::ifstream file(entry.path(), std::ios::binary);
            samples.push_back({entry.path().stem().string(), {std::istreambuf_iterator<char>(file), {}}});
        }
    }
    if (samples.empty()) {
        std::cerr << "usage: hostile_check FOLDER_OF_DOCUMENTS [ONE_OF]\n";
        return 2;
    }
    std::ranges::sort(samples, {}, &tessary::test::Sample::name);
    return tessary::test::Check(static_cast<uint64_t>(oneOf)).Run(samples) ? 0 : 1;
}
