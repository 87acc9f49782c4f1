// wicview: shows what the Windows Imaging Component makes of files, and writes the pictures as PNG.
// Knows no decoder by name; only --doctor looks for Tessary.
#include <windows.h>

#include <objbase.h>
#include <wincodec.h>
#include <wincodecsdk.h>

#include <chrono>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tessary_version.h"
#include "tools/windows/console.h"
#include "tools/windows/doctor.h"
#include "tools/windows/picture_file.h"
#include "tools/windows/registration_facts.h"

namespace {

using namespace tessary::tools;
using tessary::ComPtr;

bool Fail(const std::wstring& what) {
    std::fflush(stdout);
    Print(stderr, L"wicview: " + what);
    return false;
}
bool Fail(const std::wstring& what, HRESULT result) { return Fail(what + L": " + Explain(result)); }

std::wstring SizeText(IWICBitmapSource* source) {
    UINT width = 0, height = 0;
    const HRESULT result = source->GetSize(&width, &height);
    if (FAILED(result)) return Explain(result);
    return std::to_wstring(width) + L" x " + std::to_wstring(height);
}

void PrintFacts(IWICImagingFactory* factory, const Picture& picture) {
    IWICBitmapDecoder* const decoder = picture.decoder.get();
    IWICBitmapFrameDecode* const frame = picture.frame.get();
    PrintFact(L"decoder", DecoderName(decoder));
    GUID guid = {};
    HRESULT result = decoder->GetContainerFormat(&guid);
    PrintFact(L"container", SUCCEEDED(result) ? GuidText(guid) : Explain(result));
    UINT count = 0;
    result = decoder->GetFrameCount(&count);
    PrintFact(L"frames", SUCCEEDED(result) ? std::to_wstring(count) : Explain(result));
    PrintFact(L"size", SizeText(frame));
    result = frame->GetPixelFormat(&guid);
    PrintFact(L"pixel format", SUCCEEDED(result) ? ComponentName(factory, guid) : Explain(result));

    double dpiX = 0, dpiY = 0;
    result = frame->GetResolution(&dpiX, &dpiY);
    wchar_t resolution[80] = {};
    swprintf(resolution, 80, L"%.2f x %.2f dpi", dpiX, dpiY);
    PrintFact(L"resolution", SUCCEEDED(result) ? resolution : Explain(result));

    result = frame->GetColorContexts(0, nullptr, &count);
    PrintFact(L"colour contexts", SUCCEEDED(result) ? std::to_wstring(count) : Explain(result));
    ComPtr<IWICBitmapSource> thumbnail;
    result = GetThumbnail(picture, thumbnail);
    PrintFact(L"thumbnail", SUCCEEDED(result)                         ? SizeText(thumbnail.get())
                            : result == WINCODEC_ERR_CODECNOTHUMBNAIL ? L"none"
                                                                      : Explain(result));
    ComPtr<IWICMetadataBlockReader> blocks;
    result = frame->QueryInterface(__uuidof(IWICMetadataBlockReader), blocks.PutVoid());
    if (SUCCEEDED(result)) result = blocks->GetCount(&count);
    PrintFact(L"metadata", result == E_NOINTERFACE ? L"none"
                           : SUCCEEDED(result)     ? std::to_wstring(count)
                                                   : Explain(result));
}

// Opens the file and prints how long each thing takes that a client asks for, each once in this process.
bool Time(IWICImagingFactory* factory, const std::wstring& input) {
    auto last = std::chrono::steady_clock::now();
    const auto print = [&](const wchar_t* what, HRESULT outcome) {
        const auto now = std::chrono::steady_clock::now();
        wchar_t text[40];
        swprintf(text, 40, L"%.2f ms", std::chrono::duration<double, std::milli>(now - last).count());
        PrintFact(what, SUCCEEDED(outcome) ? text : Explain(outcome));
        last = std::chrono::steady_clock::now();
    };
    Picture picture;
    HRESULT result = OpenPicture(factory, input, picture);
    if (FAILED(result)) return Fail(L"cannot open " + input, result);
    print(L"open", result);
    IWICBitmapFrameDecode* const frame = picture.frame.get();
    ComPtr<IWICBitmapSource> thumbnail;
    print(L"thumbnail", GetThumbnail(picture, thumbnail));

    UINT width = 0, height = 0;
    result = frame->GetSize(&width, &height);
    if (FAILED(result) || height == 0) return Fail(L"no size", result);
    const uint64_t bytes = uint64_t{4} * width * height;
    if (width > UINT_MAX / 4 || bytes > UINT_MAX) return Fail(L"too large to be timed", E_OUTOFMEMORY);
    std::vector<BYTE> pixels(static_cast<size_t>(bytes), 1);
    const auto copy = [&] {
        return frame->CopyPixels(nullptr, 4 * width, static_cast<UINT>(bytes), pixels.data());
    };
    last = std::chrono::steady_clock::now();
    const HRESULT first = copy();
    print(L"pixels", first);
    const HRESULT second = copy();
    print(L"pixels again", second);
    if (FAILED(first) || FAILED(second)) return false;
    std::vector<BYTE> plain(pixels.size(), 1);
    last = std::chrono::steady_clock::now();
    std::memcpy(plain.data(), pixels.data(), pixels.size());
    print(L"plain copy", plain[0] == pixels[0] ? S_OK : E_FAIL);
    return true;
}

struct Options {
    std::vector<std::wstring> inputs;
    std::wstring output;  // a file, or with several inputs a folder
    bool toFolder = false;
    bool thumbnail = false;
    bool time = false;
    bool doctor = false;
};

bool View(IWICImagingFactory* factory, const std::wstring& input, const std::wstring& output,
          bool wantThumbnail) {
    Picture picture;
    HRESULT result = OpenPicture(factory, input, picture);
    if (FAILED(result)) return Fail(L"cannot open " + input, result);
    PrintFacts(factory, picture);
    if (output.empty()) return true;
    ComPtr<IWICBitmapSource> thumbnail;
    if (wantThumbnail) {
        result = GetThumbnail(picture, thumbnail);
        if (FAILED(result)) return Fail(L"no thumbnail of " + input, result);
    }
    result = WritePng(factory, wantThumbnail ? thumbnail.get() : picture.frame.get(), output);
    if (FAILED(result)) return Fail(L"cannot write " + output, result);
    PrintFact(L"written", output);
    return true;
}

// "folder\name.png" for a file of any extension.
std::wstring OutputIn(const std::wstring& folder, const std::wstring& input) {
    const std::wstring name = NameOf(input);
    return folder + L"\\" + name.substr(0, name.rfind(L'.')) + L".png";
}

int ViewAll(const Options& options) {
    ComPtr<IWICImagingFactory> factory;
    const HRESULT result = StartImaging(factory);
    if (FAILED(result)) return Fail(L"the imaging component does not start", result) ? 0 : 1;
    size_t failed = 0;
    for (const std::wstring& input : options.inputs) {
        if (options.inputs.size() > 1) Print(stdout, (&input == &options.inputs[0] ? L"" : L"\n") + input);
        const std::wstring output = options.toFolder ? OutputIn(options.output, input) : options.output;
        const bool done =
            options.time ? Time(factory.get(), input) : View(factory.get(), input, output, options.thumbnail);
        failed += !done;
    }
    if (options.inputs.size() > 1)
        Print(stdout, L"\n" + std::to_wstring(options.inputs.size()) + L" files, " + std::to_wstring(failed) +
                          L" failed");
    return failed > 0;
}

constexpr wchar_t kUsage[] =
    L"usage: wicview FILE...                  shows what imaging clients see of pictures; * and ? stand for "
    L"names\n"
    L"       wicview FILE OUT.png             writes the picture as PNG, too\n"
    L"       wicview FILE... --to FOLDER      the same for several, each under its own name\n"
    L"       wicview --doctor [FILE]          does Tessary work on this machine, and if not, why?\n"
    L"  --thumbnail  writes the embedded thumbnail instead of the picture\n"
    L"  --time       says how long opening, the thumbnail and the pixels take\n"
    L"  --version    prints the version, --help this\n"
    L"The exit code is 0 when all went well, 1 when something failed, 2 when the command was not understood.";

int Usage() {
    Print(stderr, kUsage);
    return 2;
}

// Replaces a name with wildcards by the files that have such names; one that nobody has stays, to be missed.
void AddInputs(const std::wstring& pattern, std::vector<std::wstring>& inputs) {
    if (NameOf(pattern).find_first_of(L"*?") == pattern.npos) return inputs.push_back(pattern);
    const std::wstring folder = pattern.substr(0, pattern.size() - NameOf(pattern).size());
    WIN32_FIND_DATAW found = {};
    const HANDLE search = FindFirstFileW(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return inputs.push_back(pattern);
    do {
        if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) inputs.push_back(folder + found.cFileName);
    } while (FindNextFileW(search, &found));
    FindClose(search);
}

bool HasExtension(const std::wstring& path, const wchar_t* extension) {
    const std::wstring name = NameOf(path);
    const size_t dot = name.rfind(L'.');
    return dot != name.npos && SameText(name.substr(dot), extension);
}

// Two names are one to read and one to write, unless the second is there and cannot be meant to be written.
bool SplitOutput(std::vector<std::wstring>& paths, Options& options) {
    if (options.toFolder || options.time || options.doctor || paths.size() != 2) return true;
    const bool isPng = HasExtension(paths[1], L".png");
    const bool isInput = NameOf(paths[1]).find_first_of(L"*?") != std::wstring::npos || FileExists(paths[1]);
    if (!isPng && isInput) return true;
    if (!isPng)
        return Fail(L"cannot write " + paths[1] +
                    L": pictures are written as PNG only, so its name has to end in .png");
    options.output = paths[1];
    paths.pop_back();
    return true;
}

// 0 when the options are to be carried out, else an exit code; -1 when everything has been done.
int ParseArguments(int count, wchar_t** arguments, Options& options) {
    std::vector<std::wstring> paths;
    for (int i = 1; i < count; ++i) {
        const std::wstring argument = arguments[i];
        if (argument == L"--help" || argument == L"-h" || argument == L"/?") {
            Print(stdout, kUsage);
            return -1;
        }
        if (argument == L"--version") {
            Print(stdout, L"wicview " TESSARY_VERSION_WIDE);
            return -1;
        }
        if (argument == L"--doctor") {
            options.doctor = true;
        } else if (argument == L"--thumbnail") {
            options.thumbnail = true;
        } else if (argument == L"--time") {
            options.time = true;
        } else if (argument == L"--to" && i + 1 < count) {
            options.toFolder = true;
            options.output = arguments[++i];
        } else if (argument.starts_with(L"--")) {
            return Usage();
        } else {
            paths.push_back(argument);
        }
    }
    if (!SplitOutput(paths, options)) return 2;
    for (const std::wstring& path : paths) AddInputs(path, options.inputs);
    const bool writes = !options.output.empty();
    if (options.doctor)
        return options.inputs.size() > 1 || writes || options.thumbnail || options.time ? Usage() : 0;
    if (options.inputs.empty() || (options.thumbnail && !writes) || (options.time && writes)) return Usage();
    return 0;
}

int Run(int count, wchar_t** arguments) {
    Options options;
    const int code = ParseArguments(count, arguments, options);
    if (code != 0) return code < 0 ? 0 : code;
    if (options.doctor) return Doctor(options.inputs.empty() ? L"" : options.inputs[0]);
    return ViewAll(options);
}

}  // namespace

extern "C" int wmain(int count, wchar_t** arguments) {
    SetConsoleOutputCP(CP_UTF8);
    const HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (FAILED(result)) return Fail(L"COM does not start", result) ? 0 : 1;
    int status = Run(count, arguments);
    CoUninitialize();
    if (std::fflush(stdout) != 0) status = 1;
    return status;
}
