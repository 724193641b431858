// velmora convert and velmora append: writing TIFF files page by page, and
// single pages as bitmaps or JPEG files.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "command.h"

namespace velmora_cli {
namespace {

struct CompressionName {
    const char* name;
    WORD code;
};

const CompressionName kCompressions[] = {
    {"g4", VELMORA_COMPRESSION_GROUP4},       {"g3", VELMORA_COMPRESSION_GROUP3},
    {"g3-2d", VELMORA_COMPRESSION_GROUP3_2D}, {"mh", VELMORA_COMPRESSION_CCITT_RLE},
    {"lzw", VELMORA_COMPRESSION_LZW},         {"packbits", VELMORA_COMPRESSION_PACKBITS},
    {"none", VELMORA_COMPRESSION_NONE},       {"jpeg", VELMORA_COMPRESSION_JPEG},
    {"deflate", VELMORA_COMPRESSION_DEFLATE},
};

struct ColorName {
    const char* name;
    LONG target;
};

const ColorName kColors[] = {
    {"bw", VELMORA_COLOR_BW},           {"dither", VELMORA_COLOR_DITHERED_BW}, {"gray16", VELMORA_COLOR_GRAY16},
    {"gray256", VELMORA_COLOR_GRAY256}, {"pal16", VELMORA_COLOR_PALETTE16},    {"pal256", VELMORA_COLOR_PALETTE256},
    {"rgb", VELMORA_COLOR_RGB},
};

bool ParseColor(const char* text, LONG* target) {
    for (const ColorName& entry : kColors) {
        if (std::strcmp(entry.name, text) == 0) {
            *target = entry.target;
            return true;
        }
    }
    return false;
}

// Where the pages come from: an open TIFF, or any other image file read
// page by page (GIF frames, the single page of the others).
struct Source {
    const char* path = nullptr;
    HGLOBAL tiff = nullptr;  // null for image files

    Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    ~Source() {
        if (tiff != nullptr) CloseVelmoraTIFF(tiff);
    }

    HGLOBAL Read(DWORD page, VelmoraProgressProc progress) const {
        return tiff != nullptr ? ReadVelmoraOpenTIFFDIBProgress(tiff, page, progress, 0)
                               : ReadVelmoraDIBProgress(path, page, progress, 0);
    }
};

// Page `page` decoded and, with `convert`, turned into the colour type
// `color`; null after an error.
HGLOBAL ReadPage(const Source& source, DWORD page, bool convert, LONG color, VelmoraProgressProc progress) {
    HGLOBAL dib = source.Read(page, progress);
    if (dib == nullptr || !convert) return dib;
    auto* header = static_cast<const BITMAPINFOHEADER*>(GlobalLock(dib));
    HGLOBAL converted = ChangeVelmoraDIBColorProgress(GetVelmoraDIBData(header), header, color, progress, 0);
    GlobalUnlock(dib);
    GlobalFree(dib);
    return converted;
}

// Writes one page as a bitmap or JPEG file.
int SaveFile(const Source& source, DWORD page, bool convert, LONG color, WORD quality, const char* out) {
    const VelmoraProgressProc progress = TerminalProgress();
    HGLOBAL dib = ReadPage(source, page, convert, color, progress);
    ClearProgress(progress);
    if (dib == nullptr) return Fail(source.path);
    VelmoraSaveDIBJPEGOptions jpeg = {};
    jpeg.size = VELMORA_SAVE_DIB_JPEG_OPTIONS_SIZE_V1;
    jpeg.quality = quality;
    jpeg.options = VELMORA_SAVE_JPEG_JFIF;
    VelmoraSaveDIBOptions options = {};
    options.size = VELMORA_SAVE_DIB_OPTIONS_SIZE_V1;
    options.jpeg = &jpeg;
    auto* header = static_cast<const BITMAPINFOHEADER*>(GlobalLock(dib));
    const BOOL saved = SaveVelmoraDIB(out, GetVelmoraDIBData(header), header, OutputType(out), &options);
    GlobalUnlock(dib);
    GlobalFree(dib);
    return saved ? 0 : Fail(out);
}

bool ParseCompression(const char* text, WORD* code) {
    for (const CompressionName& entry : kCompressions) {
        if (std::strcmp(entry.name, text) == 0) {
            *code = entry.code;
            return true;
        }
    }
    return false;
}

}  // namespace

// "1,3-5" as the pages 1, 3, 4, 5 (within `count`); false for a malformed
// list or a page outside the document.
bool ParsePages(const char* text, DWORD count, std::vector<DWORD>* pages) {
    const char* at = text;
    while (*at != '\0') {
        char* end = nullptr;
        unsigned long first = std::strtoul(at, &end, 10), last = first;
        if (end == at) return false;
        if (*end == '-') {
            at = end + 1;
            last = std::strtoul(at, &end, 10);
            if (end == at) return false;
        }
        if (first == 0 || last < first || last > count) return false;
        for (unsigned long page = first; page <= last; ++page) pages->push_back(static_cast<DWORD>(page));
        if (*end == ',')
            ++end;
        else if (*end != '\0')
            return false;
        at = end;
    }
    return !pages->empty();
}

namespace {

// The pages of the source: a TIFF's pages are asked for until the library
// reports "IFD not found.", a GIF's frames read until there is none, other
// files have one.
DWORD CountPages(const Source& source) {
    DWORD pages = 0;
    if (source.tiff != nullptr) {
        pages = CountTiffPages(source.tiff);
    } else if (GetVelmoraDocumentType(source.path) == VELMORA_DOCTYPE_GIF) {
        while (HGLOBAL frame = ReadVelmoraDIB(source.path, pages + 1)) {
            GlobalFree(frame);
            ++pages;
        }
    } else {
        pages = 1;
    }
    return pages;
}

// Pages of a TIFF file (every page for an empty list) appended to a new PDF
// one at a time, in the order asked for, with the library's conversion
// defaults (a text layer, annotations burned in); the progress bar, when
// there is one, after each page.
int ConvertPageByPage(const char* in, const char* out, std::vector<DWORD> pages, VelmoraProgressProc progress) {
    if (pages.empty()) {
        HGLOBAL tiff = OpenVelmoraTIFF(in, 0x80000000u, 0);
        if (tiff == nullptr) return Fail(in);
        const DWORD count = CountTiffPages(tiff);
        CloseVelmoraTIFF(tiff);
        pages = AllPages(count);
    }
    HGLOBAL pdf = CreateVelmoraPDF(out, nullptr);
    if (pdf == nullptr) return Fail(out);
    int result = 0;
    for (size_t i = 0; i < pages.size() && result == 0; ++i) {
        if (!AppendVelmoraPDFPage(pdf, in, pages[i])) {
            ClearProgress(progress);
            result = FailPage(in, pages[i]);
        } else if (progress != nullptr) {
            progress(static_cast<DWORD>((i + 1) * 100 / pages.size()), 0);
        }
    }
    if (result == 0 && !SaveVelmoraPDF(pdf)) result = Fail(out);
    ClearProgress(progress);
    CloseVelmoraPDF(pdf);
    if (result != 0) std::remove(out);
    return result;
}

// Every page of a TIFF file as an image PDF: pages copied where their coding
// allows, annotations burned in and the OCR text as a text layer unless
// asked otherwise. On a terminal, a conversion with those defaults shows its
// progress page by page.
int ConvertToPdf(const char* in, const char* out, bool archive, bool textLayer, bool burn) {
    const VelmoraProgressProc progress = TerminalProgress();
    if (progress != nullptr && !archive && textLayer && burn) return ConvertPageByPage(in, out, {}, progress);
    VelmoraTIFFToPDFInfo info = {};
    info.size = VELMORA_TIFF_TO_PDF_INFO_SIZE_V2;
    info.flags =
        VELMORA_TIFF_TO_PDF_PDFA_VALID | VELMORA_TIFF_TO_PDF_TEXT_LAYER_VALID | VELMORA_TIFF_TO_PDF_MASKED_VALUES;
    info.options = (archive ? VELMORA_TIFF_TO_PDF_PDFA : 0) | (textLayer ? VELMORA_TIFF_TO_PDF_TEXT_LAYER : 0);
    info.source = in;
    info.destination = out;
    info.valueMask = VELMORA_TIFF_TO_PDF_VALUE_BURN_IN;
    info.values = burn ? VELMORA_TIFF_TO_PDF_VALUE_BURN_IN : 0;
    if (ConvertVelmoraTIFFToPDFEx(&info)) return 0;
    const int result = Fail(in);
    std::remove(out);
    return result;
}

// ConvertToPdf of a copy of the file with its pages recognised first; the
// input itself is left as it is.
int ConvertRecognised(const char* in, const char* out, bool archive, bool burn) {
    const std::string copy = std::string(out) + ".velmora-ocr.tif";
    std::error_code error;
    if (!std::filesystem::copy_file(in, copy, std::filesystem::copy_options::overwrite_existing, error)) {
        std::fprintf(stderr, "velmora: cannot copy %s: %s\n", in, error.message().c_str());
        return 1;
    }
    int result = RecogniseTiff(copy.c_str(), "eng", nullptr);
    if (result == 0) result = ConvertToPdf(copy.c_str(), out, archive, true, burn);
    std::remove(copy.c_str());
    return result;
}

// The pages of the source as a new TIFF file, each copied (keeping its
// coding unless another compression is asked for) or read and converted.
int WriteTiffPages(const Source& source, const std::vector<DWORD>& pages, WORD compression, WORD quality,
                   bool convertColor, LONG color, const char* in, const char* out) {
    const VelmoraProgressProc progress = TerminalProgress();
    const int result = RewritePages(in, pages, out, [&](DWORD page, HGLOBAL target) {
        VelmoraAppendTIFF append = {};
        append.size = VELMORA_APPEND_TIFF_SIZE_V4;
        append.compression = compression;
        if (quality != 0) {
            append.flags |= VELMORA_APPEND_JPEG_QUALITY;
            append.extraData = &quality;
        }
        if (progress != nullptr) {
            append.flags |= VELMORA_APPEND_PROGRESS;
            append.progress = progress;
        }
        BOOL done = FALSE;
        if (source.tiff != nullptr && !convertColor) {
            // The page is copied, keeping its coding unless another is asked for.
            append.sourceTIFF = source.tiff;
            append.sourcePage = page;
            done = AppendVelmoraOpenTIFFEx(target, &append);
        } else if (HGLOBAL dib = ReadPage(source, page, convertColor, color, progress)) {
            append.dib = dib;
            done = AppendVelmoraOpenTIFFEx(target, &append);
            GlobalFree(dib);
        }
        if (!done) ClearProgress(progress);
        return done != FALSE;
    });
    ClearProgress(progress);
    return result;
}

}  // namespace

int RunConvert(int argc, char** argv) {
    const char* in = nullptr;
    const char* out = nullptr;
    const char* pageList = nullptr;
    WORD compression = VELMORA_COMPRESSION_DEFAULT;
    WORD quality = 0;
    LONG color = -1;
    bool convertColor = false;
    bool archive = false, textLayer = true, burn = true, recognise = false;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--ocr") == 0) {
            recognise = true;
            continue;
        }
        if (std::strcmp(argv[i], "--pdfa") == 0 || std::strcmp(argv[i], "--no-text-layer") == 0 ||
            std::strcmp(argv[i], "--no-burn") == 0) {
            archive = archive || argv[i][2] == 'p';
            textLayer = textLayer && std::strcmp(argv[i], "--no-text-layer") != 0;
            burn = burn && std::strcmp(argv[i], "--no-burn") != 0;
            continue;
        }
        if (std::strcmp(argv[i], "--color") == 0 && i + 1 < argc) {
            if (!ParseColor(argv[++i], &color)) {
                std::fprintf(stderr, "velmora: unknown colour type: %s\n", argv[i]);
                return 2;
            }
            convertColor = true;
            continue;
        }
        if (std::strcmp(argv[i], "--compression") == 0 && i + 1 < argc) {
            if (!ParseCompression(argv[++i], &compression)) {
                std::fprintf(stderr, "velmora: unknown compression: %s\n", argv[i]);
                return 2;
            }
        } else if (std::strcmp(argv[i], "--quality") == 0 && i + 1 < argc) {
            char* end = nullptr;
            const long value = std::strtol(argv[++i], &end, 10);
            if (*end != '\0' || value < 1 || value > 100) {
                std::fprintf(stderr, "velmora: the quality is a number from 1 to 100: %s\n", argv[i]);
                return 2;
            }
            quality = static_cast<WORD>(value);
        } else if (std::strcmp(argv[i], "--pages") == 0 && i + 1 < argc) {
            pageList = argv[++i];
        } else if (in == nullptr) {
            in = argv[i];
        } else if (out == nullptr) {
            out = argv[i];
        } else {
            in = nullptr;
            break;
        }
    }
    if (in == nullptr || out == nullptr) {
        std::fprintf(
            stderr,
            "usage: velmora convert IN OUT [--compression NAME] [--quality Q] [--pages LIST] "
            "[--color TYPE]\n       velmora convert IN.tif OUT.pdf [--pdfa] [--no-text-layer] [--no-burn] [--ocr] "
            "[--pages LIST]\n");
        return 2;
    }
    const bool pdf = OutputType(out) == VELMORA_DOCTYPE_PDF;
    if (pdf) {
        if (convertColor || compression != VELMORA_COMPRESSION_DEFAULT || quality != 0 || (recognise && !textLayer)) {
            std::fprintf(stderr,
                         "velmora: a PDF takes its pages as they are (--pages, --pdfa, --no-text-layer or "
                         "--ocr, --no-burn)\n");
            return 2;
        }
        if (pageList == nullptr) {
            return recognise ? ConvertRecognised(in, out, archive, burn)
                             : ConvertToPdf(in, out, archive, textLayer, burn);
        }
    }
    if (recognise) {
        std::fprintf(stderr, "velmora: --ocr makes a PDF (OUT.pdf); 'velmora ocr' recognises a TIFF file\n");
        return 2;
    }
    Source source;
    source.path = in;
    const LONG type = GetVelmoraDocumentType(in);
    if (type == VELMORA_DOCTYPE_TIFF) {
        source.tiff = OpenVelmoraTIFF(in, 0x80000000u, 0);
        if (source.tiff == nullptr) return Fail(in);
    } else if (type < 0) {
        return Fail(in);
    }
    const DWORD count = CountPages(source);
    std::vector<DWORD> pages;
    if (pageList == nullptr) {
        pages = AllPages(count);
    } else if (!ParsePages(pageList, count, &pages)) {
        std::fprintf(stderr, "velmora: %s: not pages of %s (%lu pages)\n", pageList, in,
                     static_cast<unsigned long>(count));
        return 2;
    }
    if (pages.empty()) return Fail(in);
    if (pdf && !recognise && !archive && textLayer && burn) {
        return ConvertPageByPage(in, out, pages, TerminalProgress());
    }
    if (pdf) {
        // The pages asked for are gathered in a TIFF file of their own first;
        // copied pages keep their page numbers, so they come in document order.
        std::sort(pages.begin(), pages.end());
        pages.erase(std::unique(pages.begin(), pages.end()), pages.end());
        const std::string selected = std::string(out) + ".velmora-pages.tif";
        std::remove(selected.c_str());
        int result = WriteTiffPages(source, pages, VELMORA_COMPRESSION_DEFAULT, 0, false, 0, in, selected.c_str());
        if (result == 0) {
            result = recognise ? ConvertRecognised(selected.c_str(), out, archive, burn)
                               : ConvertToPdf(selected.c_str(), out, archive, textLayer, burn);
        }
        std::remove(selected.c_str());
        return result;
    }
    if (OutputType(out) != VELMORA_DOCTYPE_TIFF) {
        // A bitmap or a JPEG file holds one page: the first one asked for.
        return SaveFile(source, pages.front(), convertColor, color, quality, out);
    }
    return WriteTiffPages(source, pages, compression, quality, convertColor, color, in, out);
}

int RunAppend(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: velmora append DEST.tif SOURCE.tif...\n");
        return 2;
    }
    for (int i = 1; i < argc; ++i) {
        if (!AppendVelmoraTIFF(argv[0], argv[i])) {
            std::string what = std::string(argv[i]) + " onto " + argv[0];
            return Fail(what.c_str());
        }
    }
    return 0;
}

int RunThumbnail(int argc, char** argv) {
    const char* path = nullptr;
    unsigned long width = 0, height = 0;
    bool nearest = false;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--max") == 0 && i + 1 < argc) {
            if (!ParseSize(argv[++i], 512, &width, &height)) {
                std::fprintf(stderr, "velmora: --max takes WIDTHxHEIGHT, each 1 to 512: %s\n", argv[i]);
                return 2;
            }
        } else if (std::strcmp(argv[i], "--nearest") == 0) {
            nearest = true;
        } else if (path == nullptr) {
            path = argv[i];
        } else {
            path = nullptr;
            break;
        }
    }
    if (path == nullptr || width == 0) {
        std::fprintf(stderr, "usage: velmora thumbnail FILE --max WxH [--nearest]\n");
        return 2;
    }
    if (!AppendVelmoraThumbnail(width, height, nearest ? 1 : 0, path)) return Fail(path);
    return 0;
}

}  // namespace velmora_cli
