#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#if defined(_WIN32)
#include <io.h>
#define isatty _isatty
#define fileno _fileno
#else
#include <unistd.h>
#endif

#include "command.h"

namespace velmora_cli {

int Fail(const char* what) {
    DWORD code = GetLastVelmoraErrorCode();
    char message[1024];
    if (!GetVelmoraErrorMessage(code, message, sizeof message))
        std::snprintf(message, sizeof message, "error %lu", static_cast<unsigned long>(code));
    std::fprintf(stderr, "velmora: %s: %s (0x%08lX)\n", what, message, static_cast<unsigned long>(code));
    return 1;
}

int FailPage(const char* path, DWORD page) {
    const std::string what = std::string(path) + " page " + std::to_string(page);
    return Fail(what.c_str());
}

bool PageWithin(const char* path, DWORD page, DWORD pages) {
    if (page <= pages) return true;
    std::fprintf(stderr, "velmora: %s has %lu pages\n", path, static_cast<unsigned long>(pages));
    return false;
}

std::vector<DWORD> AllPages(DWORD count) {
    std::vector<DWORD> pages;
    for (DWORD page = 1; page <= count; ++page) pages.push_back(page);
    return pages;
}

int RewritePages(const char* in, const std::vector<DWORD>& pages, const char* out,
                 const std::function<bool(DWORD page, HGLOBAL target)>& writePage) {
    HGLOBAL target = OpenVelmoraTIFF(out, 0xC0000000u, 1);
    if (target == nullptr) return Fail(out);
    int result = 0;
    for (size_t i = 0; i < pages.size() && result == 0; ++i) {
        if (!writePage(pages[i], target)) result = FailPage(in, pages[i]);
    }
    if (!CloseVelmoraTIFF(target) && result == 0) result = Fail(out);
    if (result != 0) std::remove(out);
    return result;
}

BOOL VELMORA_CALLBACK ShowProgress(DWORD percent, UINT_PTR) {
    if (percent > 100) return TRUE;
    const int width = 40;
    int filled = static_cast<int>(percent) * width / 100;
    std::fprintf(stderr, "\r[%.*s%*s] %3lu%%", filled, "========================================", width - filled, "",
                 static_cast<unsigned long>(percent));
    std::fflush(stderr);
    return TRUE;
}

VelmoraProgressProc TerminalProgress() { return isatty(fileno(stderr)) != 0 ? ShowProgress : nullptr; }

void ClearProgress(VelmoraProgressProc progress) {
    if (progress != nullptr) std::fprintf(stderr, "\r%50s\r", "");
}

std::string JsonString(const char* text) {
    std::string out = "\"";
    for (const char* c = text; *c != '\0'; ++c) {
        if (*c == '"' || *c == '\\') out += '\\';
        if (static_cast<unsigned char>(*c) < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned char>(*c));
            out += escape;
            continue;
        }
        out += *c;
    }
    return out + "\"";
}

HGLOBAL LoadJpeg(const char* path) {
    FILE* file = std::fopen(path, "rb");
    if (file == nullptr) return nullptr;
    std::vector<unsigned char> bytes;
    unsigned char chunk[65536];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) bytes.insert(bytes.end(), chunk, chunk + got);
    std::fclose(file);
    HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, bytes.empty() ? 1 : bytes.size());
    if (block == nullptr) return nullptr;
    std::memcpy(GlobalLock(block), bytes.data(), bytes.size());
    GlobalUnlock(block);
    return block;
}

DWORD CountTiffPages(HGLOBAL tiff) {
    DWORD pages = 0, width = 0, length = 0;
    while (GetVelmoraTIFFSize(tiff, pages + 1, &width, &length)) ++pages;
    return pages;
}

double Value(DWORD numerator, DWORD denominator) {
    return denominator == 0 ? 0.0 : static_cast<double>(numerator) / denominator;
}

bool InsertRectangle(HGLOBAL* stream, DWORD* size, const RectangleMark& mark) {
    const bool border = mark.border != VELMORA_COLOR_NONE;
    VelmoraInsertAnnotationInfo info = {};
    info.size = VELMORA_INSERT_ANNOTATION_INFO_SIZE_V4;
    info.borderStyle = border ? 1 : 0;
    info.borderWidth = border ? mark.borderWidth : 0;
    info.borderColor = mark.border;
    info.textSize = mark.points;
    info.textColor = mark.text != nullptr ? mark.textColor : VELMORA_COLOR_NONE;
    info.fontName = "Arial";
    info.rect = mark.rect;
    info.backColor =
        mark.fill != VELMORA_COLOR_NONE && mark.highlight ? mark.fill | VELMORA_COLOR_HIGHLIGHTER : mark.fill;
    info.text = mark.text;
    info.backColor2 = VELMORA_COLOR_NONE;
    info.thirdColor = VELMORA_COLOR_NONE;
    return InsertVelmoraAnnotation(stream, size, VELMORA_INSERT_RECTANGLE, &info) >= 0;
}

bool ParseFileAndJson(int argc, char** argv, const char** path, bool* json) {
    *path = nullptr;
    *json = false;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--json") == 0) {
            *json = true;
        } else if (*path == nullptr) {
            *path = argv[i];
        } else {
            return false;
        }
    }
    return *path != nullptr;
}

LONG OutputType(const char* path) {
    const char* dot = std::strrchr(path, '.');
    std::string extension = dot == nullptr ? "" : dot + 1;
    for (char& c : extension) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    if (extension == "bmp") return VELMORA_DOCTYPE_BMP;
    if (extension == "jpg" || extension == "jpeg") return VELMORA_DOCTYPE_JPEG;
    if (extension == "pdf") return VELMORA_DOCTYPE_PDF;
    return VELMORA_DOCTYPE_TIFF;
}

bool ParsePage(const char* text, unsigned long* page) {
    char* end = nullptr;
    *page = std::strtoul(text, &end, 10);
    if (*end == '\0' && *page != 0 && *page <= 0xFFFFFFFFul) return true;
    std::fprintf(stderr, "velmora: not a page number: %s\n", text);
    return false;
}

bool ParseSize(const char* text, unsigned long largest, unsigned long* width, unsigned long* height) {
    char* end = nullptr;
    *width = std::strtoul(text, &end, 10);
    *height = *end == 'x' ? std::strtoul(end + 1, &end, 10) : 0;
    return *end == '\0' && *width >= 1 && *height >= 1 && *width <= largest && *height <= largest;
}

int SaveImage(HGLOBAL dib, const char* path) {
    int result = 0;
    if (OutputType(path) == VELMORA_DOCTYPE_BMP) {
        auto* header = static_cast<const BITMAPINFOHEADER*>(GlobalLock(dib));
        if (!SaveVelmoraBMPDIB(path, GetVelmoraDIBData(header), header)) result = Fail(path);
        GlobalUnlock(dib);
    } else if (HGLOBAL target = OpenVelmoraTIFF(path, 0xC0000000u, 1)) {
        VelmoraAppendTIFF append = {};
        append.size = VELMORA_APPEND_TIFF_SIZE_V1;
        append.compression = VELMORA_COMPRESSION_DEFAULT;
        append.dib = dib;
        // The append's error is reported before closing can replace it.
        if (!AppendVelmoraOpenTIFFEx(target, &append)) result = Fail(path);
        if (!CloseVelmoraTIFF(target) && result == 0) result = Fail(path);
    } else {
        result = Fail(path);
    }
    if (result != 0) std::remove(path);
    return result;
}

}  // namespace velmora_cli
