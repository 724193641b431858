// velmora annotations: the annotations of each page of a TIFF file (its own
// block, the Wang and sheet-chunk blocks converted, and a ".art" companion's
// for pages without their own), with what the exports tell of each.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "command.h"

namespace velmora_cli {
namespace {

const char* FamilyName(BYTE type) {
    switch (type) {
        case VELMORA_ANNOTATION_TYPE_ELLIPSE: return "ellipse";
        case VELMORA_ANNOTATION_TYPE_LINE: return "line";
        case VELMORA_ANNOTATION_TYPE_IMAGE: return "image";
        case VELMORA_ANNOTATION_TYPE_FREEHAND: return "freehand";
        case VELMORA_ANNOTATION_TYPE_RECTANGLE: return "rectangle";
        case VELMORA_ANNOTATION_TYPE_TEXT_LINE: return "line with text";
        case VELMORA_ANNOTATION_TYPE_MEASURE_LINE: return "measurement line";
        case VELMORA_ANNOTATION_TYPE_LINE_SUBTYPE3: return "special line";
        default: return "unknown";
    }
}

bool Property(HGLOBAL stream, DWORD size, DWORD index, const char* name, VARIANT* value) {
    std::memset(value, 0, sizeof *value);
    return GetVelmoraAnnotationProperty(stream, size, index, name, value) != 0;
}

// Prints one page's annotations; false after reporting a failure.
bool PrintPage(HGLOBAL tiff, DWORD page, bool json, bool* first) {
    HGLOBAL stream = nullptr;
    DWORD size = 0;
    if (!GetVelmoraTIFFAnnotations(tiff, page, &stream, &size)) return false;
    const LONG count = stream != nullptr ? GetVelmoraAnnotationsCount(stream, size) : 0;
    const bool redactions = stream != nullptr && VelmoraAnnotationsHaveRedactions(stream, size);
    if (count < 0) {
        DestroyVelmoraAnnotations(stream);
        return false;
    }
    if (json) {
        std::printf("%s{\"page\": %lu, \"redactions\": %s, \"annotations\": [", *first ? "" : ", ",
                    static_cast<unsigned long>(page), redactions ? "true" : "false");
    } else {
        std::printf("page %lu: %ld annotation%s%s\n", static_cast<unsigned long>(page), static_cast<long>(count),
                    count == 1 ? "" : "s", redactions ? ", with pending redactions" : "");
    }
    *first = false;
    for (LONG i = 0; i < count; ++i) {
        VARIANT type, border, background, transparent;
        if (!Property(stream, size, static_cast<DWORD>(i), VELMORA_PROPERTY_TYPE, &type)) break;
        const bool rectangle = type.bVal == VELMORA_ANNOTATION_TYPE_RECTANGLE;
        const bool hasBorder = rectangle && Property(stream, size, i, VELMORA_PROPERTY_BORDER_STYLE, &border);
        const bool hasBackground = rectangle && Property(stream, size, i, VELMORA_PROPERTY_HAS_BACKGROUND, &background) &&
                                   background.boolVal != VARIANT_FALSE;
        const bool highlighter = hasBackground &&
                                 Property(stream, size, i, VELMORA_PROPERTY_BACK_COLOR_TRANSPARENT, &transparent) &&
                                 transparent.boolVal != VARIANT_FALSE;
        if (json) {
            std::printf("%s{\"index\": %ld, \"family\": \"%s\", \"type\": %u", i == 0 ? "" : ", ",
                        static_cast<long>(i), FamilyName(type.bVal), type.bVal);
            if (rectangle) {
                std::printf(", \"border_style\": %u, \"background\": %s, \"highlighter\": %s",
                            hasBorder ? border.bVal : 0u, hasBackground ? "true" : "false",
                            highlighter ? "true" : "false");
            }
            std::printf("}");
        } else {
            std::printf("  %ld: %s (type %u)", static_cast<long>(i), FamilyName(type.bVal), type.bVal);
            if (rectangle) {
                std::printf(", border style %u, %s", hasBorder ? border.bVal : 0u,
                            highlighter ? "highlighter background" : hasBackground ? "background" : "no background");
            }
            std::printf("\n");
        }
    }
    if (json) std::printf("]}");
    DestroyVelmoraAnnotations(stream);
    return true;
}

}  // namespace

int RunAnnotations(int argc, char** argv) {
    const char* path = nullptr;
    bool json = false;
    unsigned long only = 0;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--json") == 0) {
            json = true;
        } else if (std::strcmp(argv[i], "--page") == 0 && i + 1 < argc) {
            if (!ParsePage(argv[++i], &only)) return 2;
        } else if (path == nullptr) {
            path = argv[i];
        } else {
            path = nullptr;
            break;
        }
    }
    if (path == nullptr) {
        std::fprintf(stderr, "usage: velmora annotations FILE [--page N] [--json]\n");
        return 2;
    }
    HGLOBAL document = OpenVelmoraTIFFDocument(path);
    if (document == nullptr) return Fail(path);
    HGLOBAL tiff = GetVelmoraTIFFDocumentTIFF(document);
    const DWORD pages = CountTiffPages(tiff);
    if (only > pages) {
        CloseVelmoraTIFFDocument(document);
        std::fprintf(stderr, "velmora: %s has %lu pages\n", path, static_cast<unsigned long>(pages));
        return 2;
    }
    if (json) std::printf("{\"file\": %s, \"pages\": [", JsonString(path).c_str());
    bool first = true;
    int result = 0;
    for (DWORD page = only != 0 ? only : 1; page <= (only != 0 ? only : pages); ++page) {
        if (!PrintPage(tiff, page, json, &first)) {
            if (json) std::printf("\n");
            result = Fail(path);
            break;
        }
    }
    if (json && result == 0) std::printf("]}\n");
    CloseVelmoraTIFFDocument(document);
    return result;
}

}  // namespace velmora_cli
