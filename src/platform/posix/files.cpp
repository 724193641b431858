// POSIX files: descriptors behind the platform's file interface, errors
// translated into the Win32 codes the library reports.
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/platform.h"

namespace velmora::platform {
namespace {

uint32_t ErrorFromErrno(int e) {
    switch (e) {
        case ENOENT: return ERROR_FILE_NOT_FOUND;
        case ENOTDIR: return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
        case EROFS:
        case EISDIR: return ERROR_ACCESS_DENIED;
        case EEXIST: return 80;  // ERROR_FILE_EXISTS
        case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
        case EMFILE:
        case ENFILE: return 4;          // ERROR_TOO_MANY_OPEN_FILES
        case ENOSPC: return 112;        // ERROR_DISK_FULL
        case ENAMETOOLONG: return 206;  // ERROR_FILENAME_EXCED_RANGE
        case EBUSY:
        case ETXTBSY: return ERROR_SHARING_VIOLATION;
        case EINVAL: return ERROR_INVALID_PARAMETER;
        case EFBIG: return 223;  // ERROR_FILE_TOO_LARGE
        default: return 31;      // ERROR_GEN_FAILURE
    }
}

int Fd(FileHandle file) { return static_cast<int>(file); }

}  // namespace

FileHandle FileOpen(const std::u16string& path, FileAccess access, uint32_t* error) {
    int flags = O_CLOEXEC;
    switch (access) {
        case FileAccess::Read: flags |= O_RDONLY; break;
        case FileAccess::ReadWrite: flags |= O_RDWR; break;
        case FileAccess::CreateReadWrite: flags |= O_RDWR | O_CREAT | O_TRUNC; break;
        case FileAccess::CreateNew: flags |= O_RDWR | O_CREAT | O_EXCL; break;
    }
    int fd = ::open(Utf8FromWide(path).c_str(), flags, 0666);
    if (fd < 0) {
        *error = ErrorFromErrno(errno);
        return kNoFile;
    }
    struct stat st;
    if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        ::close(fd);
        *error = ERROR_ACCESS_DENIED;
        return kNoFile;
    }
    return fd;
}

bool FileRead(FileHandle file, void* buffer, size_t size, size_t* done, uint32_t* error) {
    *done = 0;
    auto* out = static_cast<unsigned char*>(buffer);
    while (*done < size) {
        ssize_t got = ::read(Fd(file), out + *done, size - *done);
        if (got < 0) {
            if (errno == EINTR) continue;
            *error = ErrorFromErrno(errno);
            return false;
        }
        if (got == 0) break;
        *done += static_cast<size_t>(got);
    }
    return true;
}

bool FileWrite(FileHandle file, const void* buffer, size_t size, uint32_t* error) {
    const auto* in = static_cast<const unsigned char*>(buffer);
    size_t written = 0;
    while (written < size) {
        ssize_t put = ::write(Fd(file), in + written, size - written);
        if (put < 0) {
            if (errno == EINTR) continue;
            *error = ErrorFromErrno(errno);
            return false;
        }
        written += static_cast<size_t>(put);
    }
    return true;
}

bool FileSeek(FileHandle file, uint64_t offset, uint32_t* error) {
    if (offset > static_cast<uint64_t>(INT64_MAX) || ::lseek(Fd(file), static_cast<off_t>(offset), SEEK_SET) < 0) {
        *error = ERROR_INVALID_PARAMETER;
        return false;
    }
    return true;
}

bool FileSize(FileHandle file, uint64_t* size, uint32_t* error) {
    struct stat st;
    if (fstat(Fd(file), &st) != 0) {
        *error = ErrorFromErrno(errno);
        return false;
    }
    *size = static_cast<uint64_t>(st.st_size);
    return true;
}

bool FileTruncate(FileHandle file, uint64_t size, uint32_t* error) {
    if (ftruncate(Fd(file), static_cast<off_t>(size)) != 0) {
        *error = ErrorFromErrno(errno);
        return false;
    }
    return true;
}

void FileClose(FileHandle file) {
    if (file != kNoFile) ::close(Fd(file));
}

bool FileExists(const std::u16string& path, uint32_t* error) {
    struct stat st;
    if (::stat(Utf8FromWide(path).c_str(), &st) != 0) {
        *error = ErrorFromErrno(errno);
        return false;
    }
    return true;
}

bool FileDelete(const std::u16string& path, uint32_t* error) {
    if (::unlink(Utf8FromWide(path).c_str()) != 0) {
        *error = ErrorFromErrno(errno);
        return false;
    }
    return true;
}

bool FileReplace(const std::u16string& from, const std::u16string& to, uint32_t* error) {
    if (std::rename(Utf8FromWide(from).c_str(), Utf8FromWide(to).c_str()) != 0) {
        *error = ErrorFromErrno(errno);
        return false;
    }
    return true;
}

bool FileWriteTime(const std::u16string& path, uint64_t* time, uint32_t* error) {
    struct stat st;
    if (::stat(Utf8FromWide(path).c_str(), &st) != 0) {
        *error = ErrorFromErrno(errno);
        return false;
    }
    *time = static_cast<uint64_t>(st.st_mtim.tv_sec) * 10000000u + static_cast<uint64_t>(st.st_mtim.tv_nsec) / 100u;
    return true;
}

bool CreateTempFile(const std::u16string& directory, const std::u16string& prefix, std::u16string* path,
                    uint32_t* error) {
    std::string dir = Utf8FromWide(directory);
    if (!dir.empty() && dir.back() != '/') dir += '/';
    std::string pattern = dir + Utf8FromWide(prefix) + "XXXXXX";
    std::string buffer = pattern;
    int fd = mkstemp(buffer.data());
    if (fd < 0) {
        *error = ErrorFromErrno(errno);
        return false;
    }
    ::close(fd);
    *path = WideFromUtf8(buffer);
    return true;
}

bool CreateDirectories(const std::u16string& path, uint32_t* error) {
    std::string p = Utf8FromWide(path);
    for (size_t i = 1; i <= p.size(); ++i) {
        if (i == p.size() || p[i] == '/') {
            std::string part = p.substr(0, i);
            if (::mkdir(part.c_str(), 0777) != 0 && errno != EEXIST) {
                *error = ErrorFromErrno(errno);
                return false;
            }
        }
    }
    return true;
}

bool FullPathName(const std::u16string& path, std::u16string* full, uint32_t* error) {
    std::string text = Utf8FromWide(path);
    if (text.empty()) {
        *error = ERROR_INVALID_PARAMETER;
        return false;
    }
    if (text[0] != '/') {
        std::vector<char> cwd(4096);
        while (::getcwd(cwd.data(), cwd.size()) == nullptr) {
            if (errno != ERANGE || cwd.size() > (1u << 20)) {
                *error = ErrorFromErrno(errno);
                return false;
            }
            cwd.resize(cwd.size() * 2);
        }
        text = std::string(cwd.data()) + "/" + text;
    }
    // Resolve ".", ".." and repeated separators by name, without asking the
    // file system (the file need not exist yet).
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find('/', start);
        if (end == std::string::npos) end = text.size();
        std::string part = text.substr(start, end - start);
        if (part == "..") {
            if (!parts.empty()) parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        start = end + 1;
    }
    std::string result;
    for (const std::string& part : parts) result += "/" + part;
    if (result.empty() || text.back() == '/') result += "/";
    *full = WideFromUtf8(result);
    return true;
}

bool IsDirectory(const std::u16string& path) {
    struct stat st;
    return ::stat(Utf8FromWide(path).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool ComStreamStat(IStream*, uint64_t*, std::u16string*, uint32_t*, uint32_t* error) {
    *error = ERROR_CALL_NOT_IMPLEMENTED;
    return false;
}
bool ComStreamRead(IStream*, void*, uint32_t, uint32_t* done, uint32_t* error) {
    *done = 0;
    *error = ERROR_CALL_NOT_IMPLEMENTED;
    return false;
}
bool ComStreamWrite(IStream*, const void*, uint32_t, uint32_t* done, uint32_t* error) {
    *done = 0;
    *error = ERROR_CALL_NOT_IMPLEMENTED;
    return false;
}
bool ComStreamSeek(IStream*, uint64_t, uint32_t* error) {
    *error = ERROR_CALL_NOT_IMPLEMENTED;
    return false;
}
bool ComStreamSetSize(IStream*, uint64_t, uint32_t* error) {
    *error = ERROR_CALL_NOT_IMPLEMENTED;
    return false;
}
void ComStreamAddRef(IStream*) {}
void ComStreamRelease(IStream*) {}

}  // namespace velmora::platform
