// velmora: the command-line face of the library. It is a host like any
// other and calls only the library's exported C interface.
#include <cerrno>
#include <cstdint>
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

#include "velmora/velmora.h"

namespace {

struct Command {
    const char* name;
    const char* usage;
    const char* summary;
    int (*run)(int argc, char** argv);
};

int RunVersion(int argc, char** argv);
int RunError(int argc, char** argv);

int RunInfo(int argc, char** argv);
int RunRender(int argc, char** argv);
int RunSample(int argc, char** argv);

const Command kCommands[] = {
    {"version", "velmora version", "Print the library's version.", RunVersion},
    {"error", "velmora error CODE", "Print the library's message for an error code (decimal, or hexadecimal with 0x).",
     RunError},
    {"info", "velmora info FILE [--json]",
     "Describe a document: its type, its pages and, per page, size, colour, compression,\n"
     "photometric interpretation, resolution, tiling and orientation (for JPEG files: the\n"
     "JPEG process and the sampling). --json prints one JSON object.",
     RunInfo},
    {"render", "velmora render FILE [--page N] -o OUT.bmp",
     "Decode one page of a TIFF or JPEG file (the first by default) and save it as a\n"
     "Windows bitmap.\n"
     "Shows progress on standard error when that is a terminal.",
     RunRender},
    {"sample", "velmora sample OUT.tif",
     "Write a small two-page TIFF (a grey page and a colour page) to try the other commands on.", RunSample},
};

void PrintUsage(FILE* out) {
    std::fprintf(out, "usage: velmora COMMAND [ARGUMENTS]\n\ncommands:\n");
    for (const Command& command : kCommands) {
        const char* summary = command.summary;
        const char* end = std::strchr(summary, '\n');
        std::fprintf(out, "  %-42s %.*s\n", command.usage, static_cast<int>(end ? end - summary : std::strlen(summary)),
                     summary);
    }
    std::fprintf(out, "\n'velmora COMMAND --help' describes one command.\n");
}

bool WantsHelp(int argc, char** argv) {
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) return true;
    }
    return false;
}

// Reports the library's last error on standard error.
int Fail(const char* what) {
    DWORD code = GetLastVelmoraErrorCode();
    char message[1024];
    if (!GetVelmoraErrorMessage(code, message, sizeof message))
        std::snprintf(message, sizeof message, "error %lu", static_cast<unsigned long>(code));
    std::fprintf(stderr, "velmora: %s: %s (0x%08lX)\n", what, message, static_cast<unsigned long>(code));
    return 1;
}

int RunVersion(int argc, char**) {
    if (argc != 0) {
        std::fprintf(stderr, "usage: velmora version\n");
        return 2;
    }
    char text[256];
    SHORT number = GetVelmoraVersion(text, sizeof text);
    if (number == 0) return Fail("cannot read the version");
    std::printf("%s\n", text);
    return 0;
}

int RunError(int argc, char** argv) {
    if (argc != 1) {
        std::fprintf(stderr, "usage: velmora error CODE\n");
        return 2;
    }
    char* end = nullptr;
    errno = 0;
    unsigned long long code = std::strtoull(argv[0], &end, 0);
    if (errno != 0 || end == argv[0] || *end != '\0' || code > 0xFFFFFFFFull) {
        std::fprintf(stderr, "velmora: not an error code: %s\n", argv[0]);
        return 2;
    }
    char message[2048];
    if (!GetVelmoraErrorMessage(static_cast<DWORD>(code), message, sizeof message)) {
        return Fail("cannot build the message");
    }
    std::printf("%s\n", message);
    return 0;
}

const char* DocumentTypeName(LONG type) {
    switch (type) {
        case 0: return "BMP";
        case 1: return "GIF";
        case 2: return "JPEG";
        case 4: return "PCX";
        case 5: return "PNG";
        case 6: return "TIFF";
        case 9: return "PDF";
        case 11: return "icon";
        case 12: return "cursor";
        case 13: return "CALS";
        case 14: return "portable anymap";
        case 15: return "working TIFF";
        case 17: return "working PDF";
        default: return "unknown";
    }
}

const char* CompressionName(WORD code) {
    switch (code) {
        case 0: return "none";
        case 1: return "PackBits";
        case 2: return "CCITT Group 4";
        case 4: return "CCITT Group 3";
        case 5: return "LZW";
        case 6: return "JPEG (old style)";
        case 7: return "JPEG";
        case 8: return "CCITT modified Huffman (word-aligned)";
        case 9: return "ThunderScan";
        case 10: return "CCITT modified Huffman";
        default: return "other";
    }
}

const char* PhotometricName(LONG value) {
    switch (value) {
        case 0: return "min-is-white";
        case 1: return "min-is-black";
        case 2: return "RGB";
        case 3: return "palette";
        case 4: return "mask";
        case 5: return "separated";
        case 6: return "YCbCr";
        case 8: return "CIELab";
        default: return "absent";
    }
}

struct ColourKind {
    const char* name;
    int bits;
};

ColourKind ColourOf(LONG type) {
    static const ColourKind kKinds[] = {{"black and white", 1},
                                        {"2-colour palette", 1},
                                        {"16 greys", 4},
                                        {"16-colour palette", 4},
                                        {"256 greys", 8},
                                        {"256-colour palette", 8},
                                        {"RGB", 24},
                                        {"YCbCr", 24},
                                        {"other", 0}};
    return type >= 0 && type <= 8 ? kKinds[type] : ColourKind{"unknown", 0};
}

const char* UnitName(WORD unit) {
    switch (unit) {
        case 2: return "inch";
        case 3: return "centimeter";
        default: return "unit";
    }
}

const char* JpegProcessName(BYTE process) {
    static const char* const kNames[] = {"JPEG (Baseline)",
                                         "JPEG (Extended DCT, Huffman coding)",
                                         "JPEG (Progressive DCT, Huffman coding)",
                                         "JPEG (Lossless, Huffman coding)",
                                         "JPEG (Hierarchical)",
                                         "JPEG (Extended DCT, arithmetic coding)",
                                         "JPEG (Progressive DCT, arithmetic coding)",
                                         "JPEG (Lossless, arithmetic coding)"};
    return process < 8 ? kNames[process] : "JPEG";
}

// A JPEG file as a JPEG handle: a movable block holding the whole stream.
// Null with errno set when the file cannot be read.
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

struct PageFacts {
    DWORD width = 0, length = 0;
    LONG colour = -1, photometric = -1;
    WORD compression = 3;
    DWORD tiled = 0;
    VelmoraResolutionScale resolution = {};
    DWORD orientation = 0;  // 0: unknown
};

// Reads what the interface says of a page; false at the end of the document
// (or on an error, which then is the library's last error).
bool ReadPage(HGLOBAL tiff, DWORD page, PageFacts* facts) {
    if (!GetVelmoraTIFFSize(tiff, page, &facts->width, &facts->length)) return false;
    facts->colour = GetVelmoraTIFFColorType(tiff, page);
    facts->photometric = GetVelmoraTIFFPhotoInt(tiff, page);
    GetVelmoraTIFFCompression(tiff, page, &facts->compression);
    IsVelmoraTIFFTiled(tiff, page, &facts->tiled);
    GetVelmoraTIFFResolution(tiff, page, &facts->resolution);
    return true;
}

// The TIFF Orientation values by where row 0 and column 0 lie.
const char* OrientationName(DWORD orientation) {
    static const char* const kNames[] = {"top-left", "top-right", "bottom-right", "bottom-left",
                                         "left-top", "right-top", "right-bottom", "left-bottom"};
    return orientation >= 1 && orientation <= 8 ? kNames[orientation - 1] : "unknown";
}

// Fills in each page's orientation from the document view of the file; a
// file the document cannot describe leaves them unknown.
void ReadOrientations(const char* path, std::vector<PageFacts>* pages) {
    HGLOBAL document = OpenVelmoraTIFFDocument(path);
    if (document == nullptr) return;
    for (size_t i = 0; i < pages->size(); ++i) {
        VelmoraTIFFDocumentIFDInfo info = {};
        info.size = VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V3;
        if (GetVelmoraTIFFDocumentIFDInfo(document, static_cast<DWORD>(i + 1), &info)) {
            (*pages)[i].orientation = info.orientation;
        }
    }
    CloseVelmoraTIFFDocument(document);
}

double Value(DWORD numerator, DWORD denominator) {
    return denominator == 0 ? 0.0 : static_cast<double>(numerator) / denominator;
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

int ShowJpegInfo(const char* path, bool json) {
    HGLOBAL jpeg = LoadJpeg(path);
    if (jpeg == nullptr) {
        std::fprintf(stderr, "velmora: %s: %s\n", path, std::strerror(errno));
        return 1;
    }
    VelmoraJPEGInfo info = {};
    info.size = VELMORA_JPEG_INFO_SIZE_V1;
    info.request = VELMORA_JPEG_INFO_WHOLE;
    BOOL ok = GetVelmoraJPEGInfoProgress(jpeg, nullptr, 0, &info);
    int result = ok ? 0 : Fail(path);
    CloseVelmoraJPEG(jpeg);
    if (!ok) return result;
    const char* colour = info.components == 1 ? "256 greys" : info.components == 4 ? "CMYK" : "RGB";
    const int bits = info.components == 1 ? 8 : 24;
    const int samplingH = info.components == 1 ? 1 : info.mcuWidth / 8;
    const int samplingV = info.components == 1 ? 1 : info.mcuHeight / 8;
    const double x = Value(info.xDensityNumerator, info.xDensityDenominator);
    const double y = Value(info.yDensityNumerator, info.yDensityDenominator);
    if (json) {
        std::printf(
            "{\"file\": %s, \"type\": \"JPEG\", \"typeId\": 2, \"pages\": [\n  {\"page\": 1, "
            "\"width\": %u, \"length\": %u, \"bits\": %d, \"colour\": %s, \"compression\": %s, "
            "\"components\": %u, \"precision\": %u, \"sampling\": \"%dx%d\", \"restartInterval\": %u, "
            "\"xResolution\": %g, \"yResolution\": %g, \"resolutionUnit\": %s}\n]}\n",
            JsonString(path).c_str(), info.width, info.height, bits, JsonString(colour).c_str(),
            JsonString(JpegProcessName(info.process)).c_str(), info.components, info.precision, samplingH, samplingV,
            info.restartInterval, x, y, JsonString(UnitName(info.densityUnit)).c_str());
        return 0;
    }
    std::printf(
        "%s: JPEG\n  page 1: %u x %u, %s (%d bits), %s, %u component%s of %u bits, sampling %dx%d, "
        "%g x %g per %s\n",
        path, info.width, info.height, colour, bits, JpegProcessName(info.process), info.components,
        info.components == 1 ? "" : "s", info.precision, samplingH, samplingV, x, y, UnitName(info.densityUnit));
    return 0;
}

int RunInfo(int argc, char** argv) {
    const char* path = nullptr;
    bool json = false;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--json") == 0) {
            json = true;
        } else if (path == nullptr) {
            path = argv[i];
        } else {
            path = nullptr;
            break;
        }
    }
    if (path == nullptr) {
        std::fprintf(stderr, "usage: velmora info FILE [--json]\n");
        return 2;
    }
    LONG type = GetVelmoraDocumentType(path);
    if (type < 0) return Fail(path);

    if (type == 2) return ShowJpegInfo(path, json);
    std::vector<PageFacts> pages;
    if (type == 6) {
        HGLOBAL tiff = OpenVelmoraTIFF(path, 0x80000000u, 0);
        if (tiff == nullptr) return Fail(path);
        PageFacts facts;
        while (ReadPage(tiff, static_cast<DWORD>(pages.size() + 1), &facts)) pages.push_back(facts);
        DWORD code = GetLastVelmoraErrorCode();
        CloseVelmoraTIFF(tiff);
        if (code != VELMORA_ERROR_IFD_NOT_FOUND) return Fail(path);
        ReadOrientations(path, &pages);
    }

    if (json) {
        std::printf("{\"file\": %s, \"type\": %s, \"typeId\": %ld, \"pages\": [", JsonString(path).c_str(),
                    JsonString(DocumentTypeName(type)).c_str(), static_cast<long>(type));
        for (size_t i = 0; i < pages.size(); ++i) {
            const PageFacts& p = pages[i];
            ColourKind colour = ColourOf(p.colour);
            std::printf(
                "%s\n  {\"page\": %zu, \"width\": %lu, \"length\": %lu, \"bits\": %d, \"colour\": %s, "
                "\"compression\": %s, \"photometric\": %s, \"xResolution\": %g, \"yResolution\": %g, "
                "\"resolutionUnit\": %s, \"layout\": %s, \"orientation\": %s}",
                i == 0 ? "" : ",", i + 1, static_cast<unsigned long>(p.width), static_cast<unsigned long>(p.length),
                colour.bits, JsonString(colour.name).c_str(), JsonString(CompressionName(p.compression)).c_str(),
                JsonString(PhotometricName(p.photometric)).c_str(),
                Value(p.resolution.xNumerator, p.resolution.xDenominator),
                Value(p.resolution.yNumerator, p.resolution.yDenominator),
                JsonString(UnitName(p.resolution.unit)).c_str(), JsonString(p.tiled ? "tiles" : "strips").c_str(),
                p.orientation == 0 ? "null" : std::to_string(p.orientation).c_str());
        }
        std::printf("%s]}\n", pages.empty() ? "" : "\n");
        return 0;
    }
    std::printf("%s: %s", path, DocumentTypeName(type));
    if (type == 6) std::printf(", %zu page%s", pages.size(), pages.size() == 1 ? "" : "s");
    std::printf("\n");
    for (size_t i = 0; i < pages.size(); ++i) {
        const PageFacts& p = pages[i];
        ColourKind colour = ColourOf(p.colour);
        std::printf("  page %zu: %lu x %lu, %s (%d bit%s), %s, %s, %g x %g per %s, %s, orientation %s\n", i + 1,
                    static_cast<unsigned long>(p.width), static_cast<unsigned long>(p.length), colour.name, colour.bits,
                    colour.bits == 1 ? "" : "s", CompressionName(p.compression), PhotometricName(p.photometric),
                    Value(p.resolution.xNumerator, p.resolution.xDenominator),
                    Value(p.resolution.yNumerator, p.resolution.yDenominator), UnitName(p.resolution.unit),
                    p.tiled ? "tiles" : "strips", OrientationName(p.orientation));
    }
    return 0;
}

// Draws a progress bar on standard error.
BOOL VELMORA_CALLBACK ShowProgress(DWORD percent, UINT_PTR) {
    if (percent > 100) return TRUE;
    const int width = 40;
    int filled = static_cast<int>(percent) * width / 100;
    std::fprintf(stderr, "\r[%.*s%*s] %3lu%%", filled, "========================================", width - filled, "",
                 static_cast<unsigned long>(percent));
    std::fflush(stderr);
    return TRUE;
}

int RunRender(int argc, char** argv) {
    const char* path = nullptr;
    const char* out = nullptr;
    unsigned long page = 1;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "-o") == 0 && i + 1 < argc) {
            out = argv[++i];
        } else if (std::strcmp(argv[i], "--page") == 0 && i + 1 < argc) {
            char* end = nullptr;
            page = std::strtoul(argv[++i], &end, 10);
            if (*end != '\0' || page == 0 || page > 0xFFFFFFFFul) {
                std::fprintf(stderr, "velmora: not a page number: %s\n", argv[i]);
                return 2;
            }
        } else if (path == nullptr) {
            path = argv[i];
        } else {
            path = nullptr;
            break;
        }
    }
    if (path == nullptr || out == nullptr) {
        std::fprintf(stderr, "usage: velmora render FILE [--page N] -o OUT.bmp\n");
        return 2;
    }
    const bool terminal = isatty(fileno(stderr)) != 0;
    const VelmoraProgressProc progress = terminal ? ShowProgress : nullptr;
    HGLOBAL dib = nullptr;
    if (GetVelmoraDocumentType(path) == 2) {
        if (page != 1) {
            std::fprintf(stderr, "velmora: %s has one page\n", path);
            return 2;
        }
        HGLOBAL jpeg = LoadJpeg(path);
        if (jpeg == nullptr) {
            std::fprintf(stderr, "velmora: %s: %s\n", path, std::strerror(errno));
            return 1;
        }
        dib = ReadVelmoraJPEGDIBProgress(jpeg, progress, 0);
        if (terminal) std::fprintf(stderr, "\r%50s\r", "");
        int result = dib == nullptr ? Fail(path) : 0;
        CloseVelmoraJPEG(jpeg);
        if (dib == nullptr) return result;
    } else {
        HGLOBAL tiff = OpenVelmoraTIFF(path, 0x80000000u, 0);
        if (tiff == nullptr) return Fail(path);
        dib = ReadVelmoraOpenTIFFDIBProgress(tiff, static_cast<DWORD>(page), progress, 0);
        if (terminal) std::fprintf(stderr, "\r%50s\r", "");
        int result = dib == nullptr ? Fail(path) : 0;
        CloseVelmoraTIFF(tiff);
        if (dib == nullptr) return result;
    }
    auto* header = static_cast<const BITMAPINFOHEADER*>(GlobalLock(dib));
    const void* bits = header != nullptr ? GetVelmoraDIBData(header) : nullptr;
    BOOL saved = header != nullptr && bits != nullptr && SaveVelmoraBMPDIB(out, bits, header);
    GlobalUnlock(dib);
    GlobalFree(dib);
    if (!saved) return Fail(out);
    return 0;
}

// The pixel of the sample pages at (x, y): soft gradients crossed by bars
// and a checkered block, so that every page shows detail and flat areas.
uint8_t SampleValue(uint32_t x, uint32_t y, uint32_t channel) {
    if (y >= 40 && y < 60 && (x / 8) % 2 == 0) return static_cast<uint8_t>(channel == 1 ? 40 : 20);
    if (x >= 220 && x < 300 && y >= 100 && y < 180) return ((x / 10 + y / 10) % 2) ? 250 : 10;
    return static_cast<uint8_t>((x * (channel + 1) * 255 / 320 + y * (3 - channel) * 255 / 600) % 256);
}

// A little-endian TIFF page, uncompressed, in one strip.
// The new directory is linked after the last one in the file.
void AppendSamplePage(std::vector<uint8_t>* file, uint16_t samples) {
    auto put = [file](uint32_t value, int bytes) {
        for (int i = 0; i < bytes; ++i) file->push_back(static_cast<uint8_t>(value >> (8 * i)));
    };
    const uint32_t width = 320, height = 200;
    const uint32_t pixels = static_cast<uint32_t>(file->size());
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            for (uint32_t c = 0; c < samples; ++c) file->push_back(SampleValue(x, y, samples == 1 ? 1 : c));
        }
    }
    const uint32_t bits = static_cast<uint32_t>(file->size());
    for (uint16_t c = 0; c < samples; ++c) put(8, 2);
    const uint32_t resolution = static_cast<uint32_t>(file->size());
    put(200, 4);
    put(1, 4);
    if (file->size() % 2 != 0) file->push_back(0);
    struct Entry {
        uint16_t tag, type;
        uint32_t count, value;
    };
    const Entry entries[] = {
        {256, 4, 1, width},
        {257, 4, 1, height},
        {258, 3, samples, samples == 1 ? 8u : bits},
        {259, 3, 1, 1},
        {262, 3, 1, samples == 1 ? 1u : 2u},
        {273, 4, 1, pixels},
        {277, 3, 1, samples},
        {278, 4, 1, height},
        {279, 4, 1, width * height * samples},
        {282, 5, 1, resolution},
        {283, 5, 1, resolution},
        {296, 3, 1, 2},
    };
    const uint32_t directory = static_cast<uint32_t>(file->size());
    put(sizeof entries / sizeof entries[0], 2);
    for (const Entry& e : entries) {
        put(e.tag, 2);
        put(e.type, 2);
        put(e.count, 4);
        put(e.value, 4);
    }
    put(0, 4);
    uint32_t link = 4;
    while (true) {
        uint32_t at =
            (*file)[link] | (*file)[link + 1] << 8 | (*file)[link + 2] << 16 | uint32_t{(*file)[link + 3]} << 24;
        if (at == 0) break;
        link = at + 2 + 12 * ((*file)[at] | (*file)[at + 1] << 8);
    }
    for (int i = 0; i < 4; ++i) (*file)[link + i] = static_cast<uint8_t>(directory >> (8 * i));
}

int RunSample(int argc, char** argv) {
    if (argc != 1) {
        std::fprintf(stderr, "usage: velmora sample OUT.tif\n");
        return 2;
    }
    std::vector<uint8_t> file = {'I', 'I', 42, 0, 0, 0, 0, 0};
    AppendSamplePage(&file, 1);
    AppendSamplePage(&file, 3);
    FILE* out = std::fopen(argv[0], "wb");
    if (out == nullptr || std::fwrite(file.data(), 1, file.size(), out) != file.size() || std::fclose(out) != 0) {
        std::fprintf(stderr, "velmora: %s: %s\n", argv[0], std::strerror(errno));
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0 ||
        std::strcmp(argv[1], "help") == 0) {
        PrintUsage(argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    for (const Command& command : kCommands) {
        if (std::strcmp(argv[1], command.name) != 0) continue;
        if (WantsHelp(argc - 2, argv + 2)) {
            std::printf("usage: %s\n\n%s\n", command.usage, command.summary);
            return 0;
        }
        return command.run(argc - 2, argv + 2);
    }
    std::fprintf(stderr, "velmora: unknown command '%s'\n\n", argv[1]);
    PrintUsage(stderr);
    return 2;
}
