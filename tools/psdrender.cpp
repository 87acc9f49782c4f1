// Renders a document to a PNG or to raw pixels with the engine alone, and measures how long that takes.
#include <png.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <string_view>
#include <vector>

#include "document/psd_result.h"
#include "frontend/document_pixels.h"
#include "frontend/header_probe.h"
#include "tools/file_stream.h"

namespace tessary::tools {
namespace {

const char* NameOf(PsdReadResult result) {
    static constexpr struct {
        PsdReadResult result;
        const char* name;
    } kNames[] = {
#define NAMED(name) {PsdReadResult::name, #name}
        NAMED(kOk),
        NAMED(kNoDocument),
        NAMED(kBadLayer),  // -2 is also kNoStream, which cannot happen here
        NAMED(kUnknownStage),
        NAMED(kOutOfMemory),
        NAMED(kShortRead),
        NAMED(kHeaderStage),
        NAMED(kColorModeStage),
        NAMED(kResourceStage),
        NAMED(kLayerStage),
        NAMED(kMergedStage),
        NAMED(kBadDepth),
        NAMED(kBadColorMode),
        NAMED(kBadCompression),
        NAMED(kEmptyBlendRanges),
        NAMED(kEmptyArea),
        NAMED(kInflateSetup),
        NAMED(kInflateFailed),
        NAMED(kBadSignature),
        NAMED(kBadVersion),
        NAMED(kBadResourceSignature),
        NAMED(kBadLayerSignature),
        NAMED(kBadLevelsVersion),
        NAMED(kBadLevelsSignature),
        NAMED(kBadLevelsEnd),
        NAMED(kBadLevelsExtraVersion),
        NAMED(kBadCurvesVersion),
        NAMED(kBadCurvesSignature),
        NAMED(kBadCurvesExtraVersion),
        NAMED(kBadHueVersion),
        NAMED(kBadSelectiveVersion),
        NAMED(kBadMixerVersion),
        NAMED(kBadGradientMapVersion),
        NAMED(kBadEffectsVersion),
        NAMED(kBadEffectSignature),
        NAMED(kBadEffectKey),
        NAMED(kBadCommonStateVersion),
        NAMED(kBadSolidFillVersion),
        NAMED(kBadGradientFillVersion),
        NAMED(kBadBlockSignature),
        NAMED(kBadDividerSignature),
        NAMED(kBadPatternFillVersion),
#undef NAMED
    };
    for (const auto& row : kNames) {
        if (row.result == result) return row.name;
    }
    return "unnamed";
}

struct Options {
    const char* input = nullptr;
    const char* output = nullptr;
    int runs = 0;  // 0: no measurement
    PictureChoice choice = PictureChoice::kAsTheFileSays;
};

// The most memory that this program has had, in KiB, where the system tells.
long PeakMemory() {
    std::FILE* file = std::fopen("/proc/self/status", "r");
    long peak = 0;
    char line[256];
    while (file && peak == 0 && std::fgets(line, sizeof line, file))
        static_cast<void>(std::sscanf(line, "VmHWM: %ld", &peak));
    if (file) std::fclose(file);
    return peak;
}

PsdReadResult Measure(const Options& options, DocumentPixels& picture) {
    std::vector<double> milliseconds;
    for (int run = 0; run < options.runs; ++run) {
        picture = {};
        const auto start = std::chrono::steady_clock::now();
        FileStream stream(options.input);
        const PsdReadResult result = DecodeDocumentPixels(&stream, picture, options.choice);
        const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
        if (result != PsdReadResult::kOk) return result;
        milliseconds.push_back(elapsed.count());
    }
    std::sort(milliseconds.begin(), milliseconds.end());
    const size_t half = milliseconds.size() / 2;
    const double median =
        milliseconds.size() % 2 ? milliseconds[half] : (milliseconds[half - 1] + milliseconds[half]) / 2;
    std::printf("%s: %u x %u, best %.3f ms, median %.3f ms of %d, peak %ld KiB\n", options.input,
                picture.width, picture.height, milliseconds.front(), median, options.runs, PeakMemory());
    return PsdReadResult::kOk;
}

// libpng leaves through longjmp, so nothing in here may need a destructor.
bool WritePng(std::FILE* file, const DocumentPixels& picture) {
    const auto fail = [](png_structp writer, png_const_charp) { png_longjmp(writer, 1); };
    const auto ignore = [](png_structp, png_const_charp) {};
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, fail, ignore);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, picture.width, picture.height, 8, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    png_set_bgr(png);
    for (uint32_t y = 0; y < picture.height; ++y) {
        const uint32_t* row = picture.pixels.get() + size_t{y} * picture.width;
        png_write_row(png, reinterpret_cast<png_const_bytep>(row));
    }
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return true;
}

bool WriteBgra(std::FILE* file, const DocumentPixels& picture) {
    static_assert(std::endian::native == std::endian::little, "pixel words are B, G, R, A in memory");
    const size_t count = size_t{picture.width} * picture.height;
    return std::fwrite(picture.pixels.get(), 4, count, file) == count;
}

bool IsPng(const char* path) { return std::string_view(path).ends_with(".png"); }

bool WritePicture(const char* path, const DocumentPixels& picture) {
    std::FILE* file = std::fopen(path, "wb");
    if (!file) return false;
    const bool written = IsPng(path) ? WritePng(file, picture) : WriteBgra(file, picture);
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed) std::remove(path);
    return written && closed;
}

std::optional<Options> ParseArguments(int count, char** arguments) {
    constexpr int kDefaultRuns = 10;
    Options options;
    for (int i = 1; i < count; ++i) {
        const std::string_view text = arguments[i];
        if (text == "--layers") {
            options.choice = PictureChoice::kAlwaysLayers;
        } else if (text == "--time") {
            options.runs = kDefaultRuns;
        } else if (text.starts_with("--time=")) {
            const char* end = text.data() + text.size();
            const auto parsed = std::from_chars(text.data() + 7, end, options.runs);
            if (parsed.ec != std::errc() || parsed.ptr != end || options.runs < 1) return std::nullopt;
        } else if (text.starts_with("-") || options.output) {
            return std::nullopt;
        } else {
            (options.input ? options.output : options.input) = arguments[i];
        }
    }
    if (!options.input || (!options.output && options.runs == 0)) return std::nullopt;
    if (options.output && !IsPng(options.output) && !std::string_view(options.output).ends_with(".bgra")) {
        return std::nullopt;
    }
    return options;
}

int Run(int count, char** arguments) {
    const auto options = ParseArguments(count, arguments);
    if (!options) {
        std::fputs("usage: psdrender [--layers] [--time[=RUNS]] IN.psd OUT.(png|bgra)\n"
                   "  --layers  composite the layers although the merged image is trusted\n"
                   "  --time    print the milliseconds of opening and decoding; OUT may be left out\n",
                   stderr);
        return 2;
    }
    FileStream stream(options->input);
    if (!stream.IsOpen()) {
        std::fprintf(stderr, "psdrender: cannot open %s: %s\n", options->input, std::strerror(errno));
        return 1;
    }
    HeaderInfo header;
    const bool isTaken = SUCCEEDED(ProbeHeader(&stream, header));
    DocumentPixels picture;
    const PsdReadResult result =
        options->runs ? Measure(*options, picture) : DecodeDocumentPixels(&stream, picture, options->choice);
    if (result != PsdReadResult::kOk) {
        std::fprintf(stderr, "psdrender: cannot decode %s: %s (%d)\n", options->input, NameOf(result),
                     static_cast<int>(result));
        return 1;
    }
    if (!isTaken) {  // the engine itself reads whatever is laid out as version 1 is
        std::fprintf(stderr, "psdrender: %s is not of version 1, or beyond the limits\n", options->input);
        return 1;
    }
    if (options->output && !WritePicture(options->output, picture)) {
        std::fprintf(stderr, "psdrender: cannot write %s\n", options->output);
        return 1;
    }
    return 0;
}

}  // namespace
}  // namespace tessary::tools

int main(int count, char** arguments) {
    try {
        return tessary::tools::Run(count, arguments);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "psdrender: %s\n", exception.what());
        return 1;
    }
}
