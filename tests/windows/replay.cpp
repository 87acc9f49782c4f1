// Opens every file of some folders through the DLL as clients do: replay.exe FOLDER...
// The files are opened in a child process with limited memory. When it crashes or stands still the file
// counts as a failure and another child goes on behind it. After each file no object of the codec may be
// left.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/support/com_host.h"

namespace tessary::test {
namespace {

constexpr SIZE_T kMostMemory = SIZE_T{2} << 30;
constexpr ULONGLONG kMostMilliseconds = 60000;  // for one file
constexpr uint64_t kMostPixels = 1u << 24;      // that are copied at once
constexpr int kNothingToDo = 77;

// What the child tells.
struct Progress {
    std::atomic<LONG> current, opened, pictures, thumbnails, metadata, kept;
};

std::vector<std::filesystem::path> FilesIn(int count, wchar_t** folders) {
    std::vector<std::filesystem::path> files;
    for (int i = 0; i < count; ++i) {
        std::error_code none;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folders[i], none)) {
            if (entry.is_regular_file() && entry.path().filename() != L"stamp") files.push_back(entry.path());
        }
    }
    std::ranges::sort(files);
    return files;
}

void OpenAsClientsDo(MemoryStream& stream, Progress& progress) {
    const ComPtr<IWICBitmapDecoder> decoder = NewDecoder();
    DWORD capability = 0;
    static_cast<void>(decoder->QueryCapability(&stream, &capability));
    if (FAILED(decoder->Initialize(&stream, WICDecodeMetadataCacheOnDemand))) return;
    ++progress.opened;
    ComPtr<IWICBitmapSource> thumbnail;
    static_cast<void>(decoder->GetThumbnail(thumbnail.Put()));
    ComPtr<IWICBitmapFrameDecode> frame;
    if (FAILED(decoder->GetFrame(0, frame.Put()))) return;
    if (SUCCEEDED(frame->GetThumbnail(thumbnail.Put()))) {
        UINT width = 0, height = 0;
        ++progress.thumbnails;
        if (SUCCEEDED(thumbnail->GetSize(&width, &height)) && uint64_t{width} * height <= kMostPixels) {
            Bytes pixels(size_t{width} * height * 3);
            static_cast<void>(
                thumbnail->CopyPixels(nullptr, width * 3, static_cast<UINT>(pixels.size()), pixels.data()));
        }
    }
    ComPtr<IWICMetadataQueryReader> reader;
    if (SUCCEEDED(frame->GetMetadataQueryReader(reader.Put()))) {
        ++progress.metadata;
        ComPtr<IEnumString> names;
        LPOLESTR name = nullptr;
        if (SUCCEEDED(reader->GetEnumerator(names.Put()))) {
            while (names->Next(1, &name, nullptr) == S_OK) CoTaskMemFree(name);
        }
    }
    ComPtr<IWICColorContext> profile = NewColorContext();
    IWICColorContext* const contexts[] = {profile.get()};
    UINT profiles = 0, width = 0, height = 0;
    static_cast<void>(frame->GetColorContexts(1, const_cast<IWICColorContext**>(contexts), &profiles));
    if (FAILED(frame->GetSize(&width, &height))) return;
    const UINT rows = static_cast<UINT>(std::min<uint64_t>(height, kMostPixels / std::max(width, 1u)));
    Bytes pixels(size_t{width} * rows * 4);
    const WICRect part = {0, static_cast<INT>(height - rows), static_cast<INT>(width),
                          static_cast<INT>(rows)};
    if (SUCCEEDED(frame->CopyPixels(&part, width * 4, static_cast<UINT>(pixels.size()), pixels.data())))
        ++progress.pictures;
}

int RunChild(HANDLE mapping, size_t first, const std::vector<std::filesystem::path>& files) {
    auto* progress =
        static_cast<Progress*>(MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Progress)));
    if (!progress || FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) return 2;
    for (size_t i = first; i < files.size(); ++i) {
        progress->current = static_cast<LONG>(i);
        std::ifstream file(files[i], std::ios::binary);
        MemoryStream stream(Bytes(std::istreambuf_iterator<char>(file), {}));
        OpenAsClientsDo(stream, *progress);
        if (!CanUnload() || stream.references != 1) {
            ++progress->kept;
            std::wprintf(L"%ls: objects are left\n", files[i].c_str());
        }
    }
    return 0;
}

// A copy of this program that opens the files from `first` on.
HANDLE StartChild(HANDLE job, HANDLE mapping, size_t first, const std::wstring& folders) {
    wchar_t program[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring line = L"\"" + std::wstring(program) + L"\" --child " +
                        std::to_wstring(reinterpret_cast<uintptr_t>(mapping)) + L" " +
                        std::to_wstring(first) + folders;
    STARTUPINFOW start = {};
    start.cb = sizeof start;
    PROCESS_INFORMATION child = {};
    if (!CreateProcessW(program, line.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr, nullptr,
                        &start, &child))
        return nullptr;
    AssignProcessToJobObject(job, child.hProcess);
    ResumeThread(child.hThread);
    CloseHandle(child.hThread);
    return child.hProcess;
}

// The child's exit code, or STILL_ACTIVE when it had to be ended.
DWORD Supervise(HANDLE child, const Progress& progress) {
    LONG last = -1;
    ULONGLONG since = GetTickCount64();
    while (WaitForSingleObject(child, 200) == WAIT_TIMEOUT) {
        if (progress.current != last) last = progress.current, since = GetTickCount64();
        if (GetTickCount64() - since < kMostMilliseconds) continue;
        TerminateProcess(child, 1);
        WaitForSingleObject(child, INFINITE);
        return STILL_ACTIVE;
    }
    DWORD code = 1;
    GetExitCodeProcess(child, &code);
    return code;
}

int Run(int count, wchar_t** arguments) {
    if (count > 4 && std::wstring(arguments[1]) == L"--child") {
        const auto mapping =
            reinterpret_cast<HANDLE>(static_cast<uintptr_t>(std::wcstoull(arguments[2], nullptr, 10)));
        return RunChild(mapping, std::wcstoull(arguments[3], nullptr, 10), FilesIn(count - 4, arguments + 4));
    }
    const auto files = FilesIn(count - 1, arguments + 1);
    if (files.empty()) {
        std::puts("usage: replay FOLDER...; there are no files in the folders");
        return kNothingToDo;
    }
    std::wstring folders;
    for (int i = 1; i < count; ++i) folders += L" \"" + std::wstring(arguments[i]) + L"\"";
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    const HANDLE mapping =
        CreateFileMappingW(INVALID_HANDLE_VALUE, &inherited, PAGE_READWRITE, 0, sizeof(Progress), nullptr);
    auto* progress =
        static_cast<Progress*>(MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Progress)));
    const HANDLE job = CreateJobObjectW(nullptr, nullptr);
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags =
        JOB_OBJECT_LIMIT_PROCESS_MEMORY | JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    limits.ProcessMemoryLimit = kMostMemory;
    SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits);

    int crashes = 0, hangs = 0;
    for (size_t first = 0; first < files.size();) {
        progress->current = static_cast<LONG>(first);
        const HANDLE child = StartChild(job, mapping, first, folders);
        if (!child) return 2;
        const DWORD code = Supervise(child, *progress);
        CloseHandle(child);
        if (code == 0) break;
        const size_t at = static_cast<size_t>(progress->current);
        std::wprintf(L"%ls: %ls (%lx)\n", files[at].c_str(),
                     code == STILL_ACTIVE ? L"stands still" : L"crash", code);
        ++(code == STILL_ACTIVE ? hangs : crashes);
        first = at + 1;
    }
    std::printf(
        "%zu files: %ld opened, %ld pictures, %ld thumbnails, %ld with metadata; %d crashes, %d hangs, "
        "%ld with objects left\n",
        files.size(), progress->opened.load(), progress->pictures.load(), progress->thumbnails.load(),
        progress->metadata.load(), crashes, hangs, progress->kept.load());
    return crashes + hangs + progress->kept != 0;
}

}  // namespace
}  // namespace tessary::test

int wmain(int count, wchar_t** arguments) { return tessary::test::Run(count, arguments); }
