// A stream over a file, for the native tools.
#pragma once

#include <cstdint>
#include <cstdio>

#include "document/platform.h"

namespace tessary::tools {

class FileStream final : public IStream {
public:
    explicit FileStream(const char* path) : m_file(std::fopen(path, "rb")) {
        if (!m_file) return;
        std::setvbuf(m_file, nullptr, _IONBF, 0);  // the reader has a buffer of its own
        if (fseeko(m_file, 0, SEEK_END) != 0) return;
        const off_t size = ftello(m_file);
        m_size = size > 0 ? static_cast<uint64_t>(size) : 0;
    }
    FileStream(const FileStream&) = delete;
    FileStream& operator=(const FileStream&) = delete;
    ~FileStream() {
        if (m_file) std::fclose(m_file);
    }

    bool IsOpen() const { return m_file != nullptr; }

    HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG count, ULONG* read) override {
        if (read) *read = 0;
        if (fseeko(m_file, static_cast<off_t>(m_position), SEEK_SET) != 0) return E_FAIL;
        const size_t taken = std::fread(buffer, 1, count, m_file);
        m_position += taken;
        if (read) *read = static_cast<ULONG>(taken);
        return std::ferror(m_file) ? E_FAIL : taken == count ? S_OK : S_FALSE;
    }

    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) override {
        const int64_t base = origin == STREAM_SEEK_SET   ? 0
                             : origin == STREAM_SEEK_CUR ? static_cast<int64_t>(m_position)
                                                         : static_cast<int64_t>(m_size);
        if (move.QuadPart < -base || move.QuadPart > INT64_MAX - base) return E_INVALIDARG;
        m_position = static_cast<uint64_t>(base + move.QuadPart);
        if (newPosition) newPosition->QuadPart = m_position;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD) override {
        if (!stat) return E_INVALIDARG;
        stat->cbSize.QuadPart = m_size;
        return S_OK;
    }

private:
    std::FILE* m_file;
    uint64_t m_position = 0;
    uint64_t m_size = 0;
};

}  // namespace tessary::tools
