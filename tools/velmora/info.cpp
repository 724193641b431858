// velmora info: what the library reads of a document and its pages.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "command.h"

namespace velmora_cli {
namespace {

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

}  // namespace

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

// A file of another type, described by its first page read as a DIB.
int ShowDibInfo(const char* path, LONG type, bool json) {
    HGLOBAL dib = ReadVelmoraDIB(path, 1);
    if (dib == nullptr) return Fail(path);
    auto* header = static_cast<const BITMAPINFOHEADER*>(GlobalLock(dib));
    const ColourKind colour = ColourOf(GetVelmoraDIBColorType(GetVelmoraDIBData(header), header));
    const long width = header->biWidth, length = header->biHeight;
    const int bits = header->biBitCount;
    // Pixels per metre as dots per inch.
    const double x = header->biXPelsPerMeter * 0.0254, y = header->biYPelsPerMeter * 0.0254;
    GlobalUnlock(dib);
    GlobalFree(dib);
    if (json) {
        std::printf(
            "{\"file\": %s, \"type\": %s, \"typeId\": %ld, \"pages\": [\n  {\"page\": 1, \"width\": %ld, "
            "\"length\": %ld, \"bits\": %d, \"colour\": %s, \"xResolution\": %g, \"yResolution\": %g, "
            "\"resolutionUnit\": \"inch\"}\n]}\n",
            JsonString(path).c_str(), JsonString(DocumentTypeName(type)).c_str(), static_cast<long>(type), width,
            length, bits, JsonString(colour.name).c_str(), x, y);
        return 0;
    }
    std::printf("%s: %s\n  page 1: %ld x %ld, %s (%d bit%s), %g x %g per inch\n", path, DocumentTypeName(type), width,
                length, colour.name, bits, bits == 1 ? "" : "s", x, y);
    return 0;
}

int RunInfo(int argc, char** argv) {
    const char* path = nullptr;
    bool json = false;
    if (!ParseFileAndJson(argc, argv, &path, &json)) {
        std::fprintf(stderr, "usage: velmora info FILE [--json]\n");
        return 2;
    }
    LONG type = GetVelmoraDocumentType(path);
    if (type < 0) return Fail(path);

    if (type == 2) return ShowJpegInfo(path, json);
    if (type == 0 || type == 1 || type == 4 || type == 5) return ShowDibInfo(path, type, json);
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

}  // namespace velmora_cli
