// Renders a document to a PNG or to raw pixels with the engine alone, and measures how long that takes.
#include <png.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "document/psd_result.h"
#include "frontend/document_pixels.h"
#include "frontend/header_probe.h"
#include "render/render.h"
#include "tessary_version.h"
#include "tools/file_stream.h"

namespace tessary::tools {
namespace {

// What keeps a document from being drawn, as a sentence goes on behind its name.
const char* Explain(PsdReadResult result) {
    static constexpr struct {
        PsdReadResult result;
        const char* meaning;
    } kMeanings[] = {
        {PsdReadResult::kBadLayer, "has a layer record that contradicts itself"},
        {PsdReadResult::kOutOfMemory, "needs more memory than there is, or than its bytes can fill"},
        {PsdReadResult::kShortRead, "ends before its picture does"},
        {PsdReadResult::kBadDepth, "has a depth that its colour mode cannot have"},
        {PsdReadResult::kBadColorMode, "has an unknown colour mode"},
        {PsdReadResult::kBadCompression, "has planes of an unknown compression"},
        {PsdReadResult::kEmptyBlendRanges, "has a layer with empty blending ranges"},
        {PsdReadResult::kEmptyArea, "has an empty canvas"},
        {PsdReadResult::kInflateSetup, "cannot be unpacked: the unpacker does not start"},
        {PsdReadResult::kInflateFailed, "has planes with damaged zip data"},
        {PsdReadResult::kBadSignature, "is not a Photoshop document"},
        {PsdReadResult::kBadVersion, "is of a version that is not read"},
        {PsdReadResult::kBadResourceSignature, "has damaged image resources"},
        {PsdReadResult::kBadLayerSignature, "has a damaged layer record"},
        {PsdReadResult::kBadBlockSignature, "has a layer with a damaged block"},
        {PsdReadResult::kBadDividerSignature, "has a damaged group of layers"},
    };
    for (const auto& row : kMeanings) {
        if (row.result == result) return row.meaning;
    }
    const int code = static_cast<int>(result);
    if (code <= -503 && code >= -515)
        return "has an adjustment layer that is damaged or of an unknown version";
    if (code <= -516 && code >= -519) return "has layer effects that are damaged or of an unknown version";
    if (code <= -525 && code >= -530) return "has a fill layer that is damaged or of an unknown version";
    return "cannot be read";
}

struct Options {
    std::vector<std::string> inputs;
    std::string output;     // a file, or with toFolder a folder; may be empty when time is measured
    bool toFolder = false;  // each picture under its document's name
    int runs = 0;           // 0: no measurement
    PictureChoice choice = PictureChoice::kAsTheFileSays;
    bool isWhole = false;  // all layers are read before the first is drawn
};

// The most memory that this program has had, in KiB, where the system tells.
long PeakMemory() {
    std::FILE* file = std::fopen("/proc/self/status", "r");
    long peak = 0;
    char line[256];
    while (file && peak == 0 && std::fgets(line, sizeof line, file)) {
        if (std::strncmp(line, "VmHWM:", 6) == 0) peak = std::strtol(line + 6, nullptr, 10);
    }
    if (file) std::fclose(file);
    return peak;
}

PsdReadResult Decode(const Options& options, IStream* stream, DocumentPixels& picture) {
    if (!options.isWhole) return DecodeDocumentPixels(stream, picture, options.choice);
    Owned<PsdDocument> document;
    PsdReadResult result = OpenDocument(document, stream, kReadEverything, {kMergedChecked});
    if (result != PsdReadResult::kOk) return result;
    picture.width = document->width;
    picture.height = document->height;
    result = Render(document.get(), 0, 0, static_cast<int32_t>(picture.width),
                    static_cast<int32_t>(picture.height), 1);
    picture.pixels = std::move(document->canvas);
    return result;
}

PsdReadResult Measure(const Options& options, const std::string& input, DocumentPixels& picture) {
    std::vector<double> milliseconds;
    for (int run = 0; run < options.runs; ++run) {
        picture = {};
        const auto start = std::chrono::steady_clock::now();
        FileStream stream(input.c_str());
        const PsdReadResult result = Decode(options, &stream, picture);
        const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
        if (result != PsdReadResult::kOk) return result;
        milliseconds.push_back(elapsed.count());
    }
    std::sort(milliseconds.begin(), milliseconds.end());
    const size_t half = milliseconds.size() / 2;
    const double median =
        milliseconds.size() % 2 ? milliseconds[half] : (milliseconds[half - 1] + milliseconds[half]) / 2;
    std::printf("%s: %u x %u, best %.3f ms, median %.3f ms of %d, peak %ld KiB\n", input.c_str(),
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

bool WritePicture(const std::string& path, const DocumentPixels& picture) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) return false;
    const bool written = path.ends_with(".png") ? WritePng(file, picture) : WriteBgra(file, picture);
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed) std::remove(path.c_str());
    return written && closed;
}

bool Fail(const std::string& what) {
    std::fflush(stdout);
    std::fprintf(stderr, "psdrender: %s\n", what.c_str());
    return false;
}

bool RenderOne(const Options& options, const std::string& input, const std::string& output) {
    FileStream stream(input.c_str());
    if (!stream.IsOpen()) return Fail("cannot open " + input + ": " + std::strerror(errno));
    HeaderInfo header;
    const bool isTaken = SUCCEEDED(ProbeHeader(&stream, header));
    DocumentPixels picture;
    const PsdReadResult result =
        options.runs ? Measure(options, input, picture) : Decode(options, &stream, picture);
    if (result != PsdReadResult::kOk) return Fail(input + " " + Explain(result));
    // The engine itself reads whatever is laid out as version 1 is.
    if (!isTaken) return Fail(input + " is not of version 1, or beyond the limits");
    if (!output.empty() && !WritePicture(output, picture)) return Fail("cannot write " + output);
    return true;
}

constexpr char kUsage[] =
    "usage: psdrender [--layers|--whole] [--time[=RUNS]] IN.psd OUT.(png|bgra)\n"
    "       psdrender [--layers|--whole] [--time[=RUNS]] IN.psd... --to FOLDER\n"
    "  --to       writes FOLDER/IN.png for every IN.psd\n"
    "  --layers   composites the layers although the merged image is trusted\n"
    "  --whole    the same, but reads all layers before it draws the first\n"
    "  --time     prints the milliseconds of opening and decoding; nothing need be written\n"
    "  --version  prints the version, --help this\n"
    "The exit code is 0 when all went well, 1 when a document failed, 2 when the command was not "
    "understood.\n";

// Two names are one to read and one to write.
std::string SplitOutput(Options& options) {
    if (options.toFolder) return options.inputs.empty() ? "there is nothing to read" : "";
    if (options.inputs.empty()) return "there is nothing to read";
    if (options.inputs.size() == 1)
        return options.runs ? "" : "the picture needs a name, too: OUT.png, or a folder behind --to";
    if (options.inputs.size() > 2) return "several documents need a folder to be written to, behind --to";
    options.output = options.inputs.back();
    options.inputs.pop_back();
    if (options.output.ends_with(".png") || options.output.ends_with(".bgra")) return "";
    return "cannot write " + options.output + ": its name has to end in .png, or .bgra for raw pixels";
}

// Says what is wrong with the arguments; empty when nothing is.
std::string ParseArguments(int count, char** arguments, Options& options) {
    constexpr int kDefaultRuns = 10;
    for (int i = 1; i < count; ++i) {
        const std::string_view text = arguments[i];
        if (text == "--layers") {
            options.choice = PictureChoice::kAlwaysLayers;
        } else if (text == "--whole") {
            options.isWhole = true;
        } else if (text == "--time") {
            options.runs = kDefaultRuns;
        } else if (text.starts_with("--time=")) {
            const char* end = text.data() + text.size();
            const auto parsed = std::from_chars(text.data() + 7, end, options.runs);
            if (parsed.ec != std::errc() || parsed.ptr != end || options.runs < 1)
                return "behind --time= stands how often, a number from 1 on";
        } else if (text == "--to" && i + 1 < count) {
            options.toFolder = true;
            options.output = arguments[++i];
        } else if (text.starts_with("-")) {
            return "there is no option " + std::string(text) + ", or something is missing behind it";
        } else {
            options.inputs.emplace_back(text);
        }
    }
    return SplitOutput(options);
}

int Run(int count, char** arguments) {
    for (int i = 1; i < count; ++i) {
        const std::string_view text = arguments[i];
        if (text == "--help" || text == "-h") return std::fputs(kUsage, stdout) < 0;
        if (text == "--version") return std::puts("psdrender " TESSARY_VERSION) < 0;
    }
    Options options;
    const std::string fault = ParseArguments(count, arguments, options);
    if (!fault.empty()) {
        Fail(fault);
        std::fputs(kUsage, stderr);
        return 2;
    }
    size_t failed = 0;
    for (const std::string& input : options.inputs) {
        const std::filesystem::path name = std::filesystem::path(input).filename().replace_extension(".png");
        const std::string output =
            options.toFolder ? (std::filesystem::path(options.output) / name).string() : options.output;
        failed += !RenderOne(options, input, output);
    }
    if (options.inputs.size() > 1) std::printf("%zu documents, %zu failed\n", options.inputs.size(), failed);
    return failed > 0;
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
