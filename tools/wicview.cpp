// wicview: shows what the Windows Imaging Component makes of a file, and writes the picture as PNG.
// Knows no decoder by name; only --doctor looks for Tessary.
#include <windows.h>

#include <objbase.h>
#include <wincodec.h>
#include <wincodecsdk.h>

#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "frontend/com_support.h"

namespace {

using tessary::ComPtr;

void Print(FILE* file, const std::wstring& text) {
    const int length = static_cast<int>(text.size());
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, utf8.data(), bytes, nullptr, nullptr);
    std::fprintf(file, "%s\n", utf8.c_str());
}

void PrintFact(const wchar_t* name, const std::wstring& value) {
    Print(stdout, (std::wstring(name) + L":" + std::wstring(18, L' ')).substr(0, 18) + value);
}

std::wstring Hex(HRESULT result) {
    wchar_t text[16];
    swprintf(text, 16, L"0x%08lx", static_cast<unsigned long>(result));
    return text;
}

std::wstring Explain(HRESULT result) {
    const struct {
        HRESULT result;
        const wchar_t* meaning;
    } meanings[] = {
        {WINCODEC_ERR_COMPONENTNOTFOUND, L"no decoder accepts this file"},
        {WINCODEC_ERR_UNKNOWNIMAGEFORMAT, L"no decoder knows this format"},
        {WINCODEC_ERR_BADIMAGE, L"the image is damaged"},
        {WINCODEC_ERR_BADHEADER, L"the header is damaged"},
        {WINCODEC_ERR_CODECNOTHUMBNAIL, L"there is no thumbnail"},
        {WINCODEC_ERR_UNSUPPORTEDOPERATION, L"not supported"},
        {E_OUTOFMEMORY, L"out of memory"},
        {HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), L"no such file"},
        {HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), L"no such folder"},
        {HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), L"access denied"},
        {HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION), L"in use by another program"},
    };
    for (const auto& row : meanings) {
        if (row.result == result) return std::wstring(row.meaning) + L" (" + Hex(result) + L")";
    }
    return L"error " + Hex(result);
}

int Fail(const std::wstring& what, HRESULT result) {
    Print(stderr, L"wicview: " + what + L": " + Explain(result));
    return 1;
}

std::wstring GuidText(REFGUID guid) {
    wchar_t text[40] = {};
    StringFromGUID2(guid, text, 40);
    return text;
}

// The name of a pixel format, decoder or the like; empty when it has none.
std::wstring FriendlyName(IWICComponentInfo* info) {
    UINT length = 0;
    if (!info || FAILED(info->GetFriendlyName(0, nullptr, &length)) || length == 0) return {};
    std::wstring name(length, L'\0');
    if (FAILED(info->GetFriendlyName(length, name.data(), &length))) return {};
    return name.c_str();
}

std::wstring ComponentName(IWICImagingFactory* factory, REFGUID component) {
    ComPtr<IWICComponentInfo> info;
    if (FAILED(factory->CreateComponentInfo(component, info.Put()))) return GuidText(component);
    const std::wstring name = FriendlyName(info.get());
    return name.empty() ? GuidText(component) : name + L" " + GuidText(component);
}

std::wstring SizeText(IWICBitmapSource* source) {
    UINT width = 0, height = 0;
    const HRESULT result = source->GetSize(&width, &height);
    if (FAILED(result)) return Explain(result);
    return std::to_wstring(width) + L" x " + std::to_wstring(height);
}

// The frame's own thumbnail, else the file's.
HRESULT GetThumbnail(IWICBitmapDecoder* decoder, IWICBitmapFrameDecode* frame,
                     ComPtr<IWICBitmapSource>& thumbnail) {
    const HRESULT result = frame->GetThumbnail(thumbnail.Put());
    if (SUCCEEDED(result) && thumbnail) return result;
    const HRESULT second = decoder->GetThumbnail(thumbnail.Put());
    return SUCCEEDED(second) && !thumbnail ? WINCODEC_ERR_CODECNOTHUMBNAIL : second;
}

void PrintFacts(IWICImagingFactory* factory, IWICBitmapDecoder* decoder, IWICBitmapFrameDecode* frame) {
    ComPtr<IWICBitmapDecoderInfo> info;
    HRESULT result = decoder->GetDecoderInfo(info.Put());
    PrintFact(L"decoder", SUCCEEDED(result) ? FriendlyName(info.get()) : Explain(result));

    GUID guid = {};
    result = decoder->GetContainerFormat(&guid);
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
    result = GetThumbnail(decoder, frame, thumbnail);
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

// The source as the encoder takes it: converted only when the pixel format is one that it refuses.
HRESULT WriteInFormat(IWICImagingFactory* factory, IWICBitmapSource* source, IWICBitmapFrameEncode* target) {
    GUID sourceFormat = {};
    HRESULT result = source->GetPixelFormat(&sourceFormat);
    if (FAILED(result)) return result;
    GUID targetFormat = sourceFormat;
    result = target->SetPixelFormat(&targetFormat);
    if (FAILED(result)) return result;
    if (IsEqualGUID(sourceFormat, targetFormat)) return target->WriteSource(source, nullptr);
    ComPtr<IWICFormatConverter> converter;
    result = factory->CreateFormatConverter(converter.Put());
    if (FAILED(result)) return result;
    result = converter->Initialize(source, targetFormat, WICBitmapDitherTypeNone, nullptr, 0,
                                   WICBitmapPaletteTypeCustom);
    return FAILED(result) ? result : target->WriteSource(converter.get(), nullptr);
}

HRESULT EncodePng(IWICImagingFactory* factory, IWICBitmapSource* source, IWICStream* stream) {
    ComPtr<IWICBitmapEncoder> encoder;
    HRESULT result = factory->CreateEncoder(GUID_ContainerFormatPng, nullptr, encoder.Put());
    if (FAILED(result)) return result;
    result = encoder->Initialize(stream, WICBitmapEncoderNoCache);
    if (FAILED(result)) return result;
    ComPtr<IWICBitmapFrameEncode> frame;
    result = encoder->CreateNewFrame(frame.Put(), nullptr);
    if (FAILED(result)) return result;
    result = frame->Initialize(nullptr);
    if (FAILED(result)) return result;

    UINT width = 0, height = 0;
    result = source->GetSize(&width, &height);
    if (FAILED(result)) return result;
    result = frame->SetSize(width, height);
    if (FAILED(result)) return result;
    double dpiX = 0, dpiY = 0;
    if (SUCCEEDED(source->GetResolution(&dpiX, &dpiY)) && dpiX > 0 && dpiY > 0) {
        result = frame->SetResolution(dpiX, dpiY);
        if (FAILED(result)) return result;
    }
    result = WriteInFormat(factory, source, frame.get());
    if (FAILED(result)) return result;
    result = frame->Commit();
    return FAILED(result) ? result : encoder->Commit();
}

// Leaves no half-written file behind.
HRESULT WritePng(IWICImagingFactory* factory, IWICBitmapSource* source, const wchar_t* path) {
    HRESULT result = S_OK;
    bool created = false;
    {
        ComPtr<IWICStream> stream;
        result = factory->CreateStream(stream.Put());
        if (FAILED(result)) return result;
        result = stream->InitializeFromFilename(path, GENERIC_WRITE);
        created = SUCCEEDED(result);
        if (created) result = EncodePng(factory, source, stream.get());
    }
    if (created && FAILED(result)) DeleteFileW(path);
    return result;
}

HRESULT StartImaging(ComPtr<IWICImagingFactory>& factory) {
    return CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                            factory.PutVoid());
}

// Opens the file and prints how long each thing takes that a client asks for, each once in this process.
int Time(const wchar_t* input) {
    ComPtr<IWICImagingFactory> factory;
    HRESULT result = StartImaging(factory);
    if (FAILED(result)) return Fail(L"the imaging component does not start", result);
    auto last = std::chrono::steady_clock::now();
    const auto print = [&](const wchar_t* what, HRESULT outcome) {
        const auto now = std::chrono::steady_clock::now();
        wchar_t text[40];
        swprintf(text, 40, L"%.2f ms", std::chrono::duration<double, std::milli>(now - last).count());
        PrintFact(what, SUCCEEDED(outcome) ? text : Explain(outcome));
        last = std::chrono::steady_clock::now();
    };
    ComPtr<IWICBitmapDecoder> decoder;
    result = factory->CreateDecoderFromFilename(input, nullptr, GENERIC_READ, WICDecodeMetadataCacheOnDemand,
                                                decoder.Put());
    if (FAILED(result)) return Fail(std::wstring(L"cannot open ") + input, result);
    print(L"open", result);
    ComPtr<IWICBitmapFrameDecode> frame;
    result = decoder->GetFrame(0, frame.Put());
    if (FAILED(result)) return Fail(std::wstring(L"no frame in ") + input, result);
    ComPtr<IWICBitmapSource> thumbnail;
    print(L"thumbnail", GetThumbnail(decoder.get(), frame.get(), thumbnail));

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
    if (FAILED(first) || FAILED(second)) return 1;
    std::vector<BYTE> plain(pixels.size(), 1);
    last = std::chrono::steady_clock::now();
    std::memcpy(plain.data(), pixels.data(), pixels.size());
    print(L"plain copy", plain[0] == pixels[0] ? S_OK : E_FAIL);
    return 0;
}

int View(const wchar_t* input, const wchar_t* output, bool wantThumbnail) {
    ComPtr<IWICImagingFactory> factory;
    HRESULT result = StartImaging(factory);
    if (FAILED(result)) return Fail(L"the imaging component does not start", result);
    ComPtr<IWICBitmapDecoder> decoder;
    result = factory->CreateDecoderFromFilename(input, nullptr, GENERIC_READ, WICDecodeMetadataCacheOnDemand,
                                                decoder.Put());
    if (FAILED(result)) return Fail(std::wstring(L"cannot open ") + input, result);
    ComPtr<IWICBitmapFrameDecode> frame;
    result = decoder->GetFrame(0, frame.Put());
    if (FAILED(result)) return Fail(std::wstring(L"no frame in ") + input, result);
    PrintFacts(factory.get(), decoder.get(), frame.get());
    if (!output) return 0;

    ComPtr<IWICBitmapSource> thumbnail;
    if (wantThumbnail) {
        result = GetThumbnail(decoder.get(), frame.get(), thumbnail);
        if (FAILED(result)) return Fail(std::wstring(L"no thumbnail of ") + input, result);
    }
    result = WritePng(factory.get(), wantThumbnail ? thumbnail.get() : frame.get(), output);
    if (FAILED(result)) return Fail(std::wstring(L"cannot write ") + output, result);
    PrintFact(L"written", output);
    return 0;
}

// --doctor

constexpr wchar_t kDecoderInstances[] = L"CLSID\\{7ED96837-96F0-4812-B211-F13C24117ED3}\\Instance\\";

struct Registration {
    const wchar_t* whom;
    HKEY root;
    std::wstring server;  // as it is written; empty when there is none
    bool expandable = false;
    bool listed = false;  // among the decoders of the imaging component
};

void ReadRegistration(Registration& registration) {
    const std::wstring classes = L"Software\\Classes\\", id = GuidText(tessary::CLSID_Tessary);
    HKEY key = nullptr;
    if (RegOpenKeyExW(registration.root, (classes + kDecoderInstances + id).c_str(), 0, KEY_READ, &key) ==
        ERROR_SUCCESS) {
        registration.listed = true;
        RegCloseKey(key);
    }
    const std::wstring path = classes + L"CLSID\\" + id + L"\\InprocServer32";
    if (RegOpenKeyExW(registration.root, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return;
    std::vector<wchar_t> server(0x8001);
    DWORD type = REG_NONE, bytes = static_cast<DWORD>((server.size() - 1) * sizeof(wchar_t));
    const LSTATUS status =
        RegQueryValueExW(key, nullptr, nullptr, &type, reinterpret_cast<BYTE*>(server.data()), &bytes);
    RegCloseKey(key);
    if (status != ERROR_SUCCESS || (type != REG_SZ && type != REG_EXPAND_SZ)) return;
    registration.server = server.data();
    registration.expandable = type == REG_EXPAND_SZ;
}

std::wstring Expand(const std::wstring& text) {
    const DWORD size = ExpandEnvironmentStringsW(text.c_str(), nullptr, 0);
    std::wstring expanded(size, L'\0');
    if (size == 0 || ExpandEnvironmentStringsW(text.c_str(), expanded.data(), size) == 0) return text;
    return expanded.c_str();
}

// Whether the DLL loads and yields the class object; says why when it does not.
bool CheckServer(const std::wstring& path) {
    const HMODULE module = LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (!module) {
        PrintFact(L"loads", L"no, " + Explain(HRESULT_FROM_WIN32(GetLastError())));
        return false;
    }
    PrintFact(L"loads", L"yes");
    using GetClassObject = HRESULT(WINAPI*)(REFCLSID, REFIID, void**);
    const auto getClassObject = reinterpret_cast<GetClassObject>(
        reinterpret_cast<void*>(GetProcAddress(module, "DllGetClassObject")));
    HRESULT result = HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
    if (getClassObject) {
        ComPtr<IClassFactory> classObject;
        result = getClassObject(tessary::CLSID_Tessary, IID_IClassFactory, classObject.PutVoid());
    }
    PrintFact(L"class object", SUCCEEDED(result) ? L"yes" : L"no, " + Explain(result));
    FreeLibrary(module);
    return SUCCEEDED(result);
}

int Doctor() {
    // A user's own registration goes before the machine's.
    Registration registrations[] = {{L"this user", HKEY_CURRENT_USER, {}},
                                    {L"this machine", HKEY_LOCAL_MACHINE, {}}};
    const Registration* active = nullptr;
    std::wstring whom;
    bool listed = false;
    for (Registration& registration : registrations) {
        ReadRegistration(registration);
        listed |= registration.listed;
        if (registration.server.empty()) continue;
        if (!active) active = &registration;
        whom += (whom.empty() ? L"yes, for " : L" and for ") + std::wstring(registration.whom);
    }
    PrintFact(L"registered", active ? whom : L"no");
    PrintFact(L"listed decoder", listed ? L"yes" : L"no");
    bool works = false;
    if (active) {
        const std::wstring path = active->expandable ? Expand(active->server) : active->server;
        PrintFact(L"written path", active->server);
        PrintFact(L"path", path);
        works = CheckServer(path);
    }
    if (works && listed) return 0;
    Print(stderr, L"wicview: Tessary is not ready for use on this machine");
    return 1;
}

int Usage() {
    Print(stderr, L"usage: wicview IN [OUT.png [--thumbnail]] | wicview IN --time | wicview --doctor");
    return 2;
}

int Run(int count, wchar_t** arguments) {
    bool doctor = false, thumbnail = false, time = false;
    std::vector<const wchar_t*> paths;
    for (int i = 1; i < count; ++i) {
        const std::wstring argument = arguments[i];
        if (argument == L"--doctor") {
            doctor = true;
        } else if (argument == L"--thumbnail") {
            thumbnail = true;
        } else if (argument == L"--time") {
            time = true;
        } else if (argument.starts_with(L"--")) {
            return Usage();
        } else {
            paths.push_back(arguments[i]);
        }
    }
    if (doctor) return paths.empty() && !thumbnail && !time ? Doctor() : Usage();
    if (time) return paths.size() == 1 && !thumbnail ? Time(paths[0]) : Usage();
    if (paths.empty() || paths.size() > 2 || (thumbnail && paths.size() < 2)) return Usage();
    return View(paths[0], paths.size() > 1 ? paths[1] : nullptr, thumbnail);
}

}  // namespace

extern "C" int wmain(int count, wchar_t** arguments) {
    SetConsoleOutputCP(CP_UTF8);
    const HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (FAILED(result)) return Fail(L"COM does not start", result);
    int status = Run(count, arguments);
    CoUninitialize();
    if (std::fflush(stdout) != 0) status = 1;
    return status;
}
