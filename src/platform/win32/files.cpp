// Windows files.
#include <windows.h>

#include <string>

#include "platform/platform.h"

namespace velmora::platform {
namespace {

const wchar_t* W(const std::u16string& text) { return reinterpret_cast<const wchar_t*>(text.c_str()); }

HANDLE H(FileHandle file) { return reinterpret_cast<HANDLE>(file); }

}  // namespace

FileHandle FileOpen(const std::u16string& path, FileAccess access, uint32_t* error) {
    DWORD desired = GENERIC_READ;
    DWORD disposition = OPEN_EXISTING;
    switch (access) {
        case FileAccess::Read: break;
        case FileAccess::ReadWrite: desired |= GENERIC_WRITE; break;
        case FileAccess::CreateReadWrite:
            desired |= GENERIC_WRITE;
            disposition = CREATE_ALWAYS;
            break;
        case FileAccess::CreateNew:
            desired |= GENERIC_WRITE;
            disposition = CREATE_NEW;
            break;
    }
    HANDLE file = ::CreateFileW(W(path), desired, FILE_SHARE_READ | (access == FileAccess::Read ? FILE_SHARE_WRITE : 0),
                                nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        *error = ::GetLastError();
        return kNoFile;
    }
    return reinterpret_cast<FileHandle>(file);
}

bool FileRead(FileHandle file, void* buffer, size_t size, size_t* done, uint32_t* error) {
    *done = 0;
    auto* out = static_cast<unsigned char*>(buffer);
    while (*done < size) {
        DWORD chunk = size - *done > 0x40000000 ? 0x40000000 : static_cast<DWORD>(size - *done);
        DWORD got = 0;
        if (!::ReadFile(H(file), out + *done, chunk, &got, nullptr)) {
            *error = ::GetLastError();
            return false;
        }
        if (got == 0) break;
        *done += got;
    }
    return true;
}

bool FileWrite(FileHandle file, const void* buffer, size_t size, uint32_t* error) {
    const auto* in = static_cast<const unsigned char*>(buffer);
    size_t written = 0;
    while (written < size) {
        DWORD chunk = size - written > 0x40000000 ? 0x40000000 : static_cast<DWORD>(size - written);
        DWORD put = 0;
        if (!::WriteFile(H(file), in + written, chunk, &put, nullptr)) {
            *error = ::GetLastError();
            return false;
        }
        written += put;
    }
    return true;
}

bool FileSeek(FileHandle file, uint64_t offset, uint32_t* error) {
    LARGE_INTEGER to;
    to.QuadPart = static_cast<LONGLONG>(offset);
    if (offset > 0x7FFFFFFFFFFFFFFFull || !::SetFilePointerEx(H(file), to, nullptr, FILE_BEGIN)) {
        *error = offset > 0x7FFFFFFFFFFFFFFFull ? ERROR_INVALID_PARAMETER : ::GetLastError();
        return false;
    }
    return true;
}

bool FileSize(FileHandle file, uint64_t* size, uint32_t* error) {
    LARGE_INTEGER length;
    if (!::GetFileSizeEx(H(file), &length)) {
        *error = ::GetLastError();
        return false;
    }
    *size = static_cast<uint64_t>(length.QuadPart);
    return true;
}

bool FileTruncate(FileHandle file, uint64_t size, uint32_t* error) {
    return FileSeek(file, size, error) && (::SetEndOfFile(H(file)) || ((*error = ::GetLastError()), false));
}

void FileClose(FileHandle file) {
    if (file != kNoFile) ::CloseHandle(H(file));
}

bool FileExists(const std::u16string& path, uint32_t* error) {
    WIN32_FIND_DATAW data;
    HANDLE find = ::FindFirstFileW(W(path), &data);
    if (find == INVALID_HANDLE_VALUE) {
        *error = ::GetLastError();
        return false;
    }
    ::FindClose(find);
    return true;
}

bool FileDelete(const std::u16string& path, uint32_t* error) {
    if (!::DeleteFileW(W(path))) {
        *error = ::GetLastError();
        return false;
    }
    return true;
}

bool FileReplace(const std::u16string& from, const std::u16string& to, uint32_t* error) {
    if (!::MoveFileExW(W(from), W(to), MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED)) {
        *error = ::GetLastError();
        return false;
    }
    return true;
}

bool FileWriteTime(const std::u16string& path, uint64_t* time, uint32_t* error) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!::GetFileAttributesExW(W(path), GetFileExInfoStandard, &data)) {
        *error = ::GetLastError();
        return false;
    }
    *time = (static_cast<uint64_t>(data.ftLastWriteTime.dwHighDateTime) << 32) | data.ftLastWriteTime.dwLowDateTime;
    return true;
}

bool CreateTempFile(const std::u16string& directory, const std::u16string& prefix, std::u16string* path,
                    uint32_t* error) {
    wchar_t name[MAX_PATH];
    if (::GetTempFileNameW(W(directory), W(prefix), 0, name) == 0) {
        *error = ::GetLastError();
        return false;
    }
    *path = reinterpret_cast<const char16_t*>(name);
    return true;
}

bool CreateDirectories(const std::u16string& path, uint32_t* error) {
    for (size_t i = 1; i <= path.size(); ++i) {
        if (i == path.size() || IsPathSeparator(path[i])) {
            std::u16string part = path.substr(0, i);
            if (part.size() == 2 && part[1] == u':') continue;  // a drive
            if (!::CreateDirectoryW(W(part), nullptr) && ::GetLastError() != ERROR_ALREADY_EXISTS) {
                *error = ::GetLastError();
                return false;
            }
        }
    }
    return true;
}

bool FullPathName(const std::u16string& path, std::u16string* full, uint32_t* error) {
    // MAX_PATH first; a longer result is asked for once more in the size the
    // system reported.
    std::wstring buffer(MAX_PATH, L'\0');
    DWORD length = ::GetFullPathNameW(W(path), MAX_PATH, buffer.data(), nullptr);
    if (length >= MAX_PATH) {
        buffer.assign(length, L'\0');
        length = ::GetFullPathNameW(W(path), static_cast<DWORD>(buffer.size()), buffer.data(), nullptr);
        if (length >= buffer.size()) {
            ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
            length = 0;
        }
    }
    if (length == 0) {
        *error = ::GetLastError();
        return false;
    }
    full->assign(reinterpret_cast<const char16_t*>(buffer.data()), length);
    return true;
}

bool IsDirectory(const std::u16string& path) {
    DWORD attributes = ::GetFileAttributesW(W(path));
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool ComStreamStat(IStream* stream, uint64_t* size, std::u16string* name, uint32_t* mode, uint32_t* error) {
    STATSTG stat = {};
    HRESULT result = stream->Stat(&stat, name != nullptr ? STATFLAG_DEFAULT : STATFLAG_NONAME);
    if (FAILED(result)) {
        *error = static_cast<uint32_t>(result);
        return false;
    }
    *size = stat.cbSize.QuadPart;
    if (mode != nullptr) *mode = stat.grfMode;
    if (name != nullptr) {
        name->clear();
        if (stat.pwcsName != nullptr) {
            *name = reinterpret_cast<const char16_t*>(stat.pwcsName);
            ::CoTaskMemFree(stat.pwcsName);
        }
    }
    return true;
}

bool ComStreamRead(IStream* stream, void* buffer, uint32_t size, uint32_t* done, uint32_t* error) {
    ULONG got = 0;
    HRESULT result = stream->Read(buffer, size, &got);
    *done = got;
    if (FAILED(result)) {
        *error = static_cast<uint32_t>(result);
        return false;
    }
    return true;
}

bool ComStreamWrite(IStream* stream, const void* buffer, uint32_t size, uint32_t* done, uint32_t* error) {
    ULONG put = 0;
    HRESULT result = stream->Write(buffer, size, &put);
    *done = put;
    if (FAILED(result)) {
        *error = static_cast<uint32_t>(result);
        return false;
    }
    return true;
}

bool ComStreamSeek(IStream* stream, uint64_t offset, uint32_t* error) {
    LARGE_INTEGER to;
    to.QuadPart = static_cast<LONGLONG>(offset);
    HRESULT result = stream->Seek(to, STREAM_SEEK_SET, nullptr);
    if (FAILED(result)) {
        *error = static_cast<uint32_t>(result);
        return false;
    }
    return true;
}

bool ComStreamSetSize(IStream* stream, uint64_t size, uint32_t* error) {
    ULARGE_INTEGER to;
    to.QuadPart = size;
    HRESULT result = stream->SetSize(to);
    if (FAILED(result)) {
        *error = static_cast<uint32_t>(result);
        return false;
    }
    return true;
}

void ComStreamAddRef(IStream* stream) { stream->AddRef(); }
void ComStreamRelease(IStream* stream) { stream->Release(); }

}  // namespace velmora::platform
