// velmora annotate: a copy of a TIFF file with a rectangle annotation (a box,
// a filled or highlighted area, a text box) or a redaction added to one page.
// Every page is copied with its annotations gathered into the file's own
// annotation block, so annotations of other programs' formats are kept in
// that form.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "command.h"

namespace velmora_cli {
namespace {

// RRGGBB (hexadecimal) as 0x00BBGGRR.
bool ParseColor(const char* text, COLORREF* color) {
    char* end = nullptr;
    const unsigned long rgb = std::strtoul(text, &end, 16);
    if (std::strlen(text) != 6 || *end != '\0') return false;
    *color = static_cast<COLORREF>(((rgb >> 16) & 0xFF) | (rgb & 0xFF00) | ((rgb & 0xFF) << 16));
    return true;
}

bool ParseRect(const char* text, RECT* rect) {
    long v[4];
    int used = 0;
    if (std::sscanf(text, "%ld,%ld,%ld,%ld%n", &v[0], &v[1], &v[2], &v[3], &used) != 4 || text[used] != '\0') {
        return false;
    }
    *rect = RECT{static_cast<LONG>(v[0]), static_cast<LONG>(v[1]), static_cast<LONG>(v[2]), static_cast<LONG>(v[3])};
    return rect->left >= 0 && rect->top >= 0 && rect->left < rect->right && rect->top < rect->bottom;
}

}  // namespace

int RunAnnotate(int argc, char** argv) {
    const char* in = nullptr;
    const char* out = nullptr;
    const char* text = nullptr;
    unsigned long page = 0;
    RECT rect = {};
    bool hasRect = false, highlight = false, redact = false;
    COLORREF border = VELMORA_COLOR_NONE, fill = VELMORA_COLOR_NONE;
    for (int i = 0; i < argc; ++i) {
        const bool more = i + 1 < argc;
        if (std::strcmp(argv[i], "--page") == 0 && more) {
            if (!ParsePage(argv[++i], &page)) return 2;
        } else if (std::strcmp(argv[i], "--rect") == 0 && more) {
            hasRect = ParseRect(argv[++i], &rect);
        } else if (std::strcmp(argv[i], "--text") == 0 && more) {
            text = argv[++i];
        } else if (std::strcmp(argv[i], "--border") == 0 && more) {
            if (!ParseColor(argv[++i], &border)) border = VELMORA_COLOR_NONE, hasRect = false;
        } else if (std::strcmp(argv[i], "--fill") == 0 && more) {
            if (!ParseColor(argv[++i], &fill)) fill = VELMORA_COLOR_NONE, hasRect = false;
        } else if (std::strcmp(argv[i], "--highlight") == 0) {
            highlight = true;
        } else if (std::strcmp(argv[i], "--redact") == 0) {
            redact = true;
        } else if (in == nullptr) {
            in = argv[i];
        } else if (out == nullptr) {
            out = argv[i];
        } else {
            in = nullptr;
            break;
        }
    }
    // A redaction is a black area of its own: it takes no text, border or fill.
    const bool styled = text != nullptr || border != VELMORA_COLOR_NONE || fill != VELMORA_COLOR_NONE || highlight;
    if (in == nullptr || out == nullptr || page == 0 || !hasRect || (redact && styled)) {
        std::fprintf(stderr,
                     "usage: velmora annotate IN.tif OUT.tif --page N --rect L,T,R,B [--text TEXT] [--border RRGGBB] "
                     "[--fill RRGGBB] [--highlight]\n"
                     "       velmora annotate IN.tif OUT.tif --page N --rect L,T,R,B --redact\n");
        return 2;
    }
    HGLOBAL document = OpenVelmoraTIFFDocument(in);
    if (document == nullptr) return Fail(in);
    HGLOBAL tiff = GetVelmoraTIFFDocumentTIFF(document);
    const DWORD pages = CountTiffPages(tiff);
    if (!PageWithin(in, page, pages)) {
        CloseVelmoraTIFFDocument(document);
        return 2;
    }
    const int result = RewritePages(in, AllPages(pages), out, [&](DWORD p, HGLOBAL target) {
        HGLOBAL stream = nullptr;
        DWORD size = 0;
        BOOL ok = GetVelmoraTIFFAnnotations(tiff, p, &stream, &size);
        if (ok && p == page && redact) {
            ok = InsertVelmoraRedaction(&stream, &size, &rect, 0) >= 0;
        } else if (ok && p == page) {
            RectangleMark mark;
            mark.rect = rect;
            mark.border = border;
            mark.fill = fill;
            mark.highlight = highlight;
            mark.text = text;
            ok = InsertRectangle(&stream, &size, mark);
        }
        VelmoraAppendTIFF append = {};
        append.size = VELMORA_APPEND_TIFF_SIZE_V1;
        append.compression = VELMORA_COMPRESSION_DEFAULT;
        append.sourceTIFF = tiff;
        append.sourcePage = p;
        if (stream != nullptr) {
            append.flags |= VELMORA_APPEND_ANNOTATIONS;
            append.annotations = stream;
        }
        ok = ok && AppendVelmoraOpenTIFFEx(target, &append);
        DestroyVelmoraAnnotations(stream);
        return ok != FALSE;
    });
    CloseVelmoraTIFFDocument(document);
    return result;
}

}  // namespace velmora_cli
