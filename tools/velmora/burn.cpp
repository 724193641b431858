// velmora burn: every page of a TIFF file with its annotations drawn into
// its pixels (or only its redactions, keeping the other annotations as
// annotations), written to a new TIFF file.
#include <cstdio>
#include <cstring>
#include <string>

#include "command.h"

namespace velmora_cli {

HGLOBAL BurnPage(HGLOBAL tiff, DWORD page, HGLOBAL dib, bool redactionsOnly, HGLOBAL* rest, DWORD* restSize) {
    *rest = nullptr;
    *restSize = 0;
    HGLOBAL stream = nullptr;
    DWORD size = 0;
    if (!GetVelmoraTIFFAnnotations(tiff, page, &stream, &size)) return nullptr;
    if (stream == nullptr) return dib;
    auto* header = static_cast<LPBITMAPINFOHEADER>(GlobalLock(dib));
    const DWORD flags = redactionsOnly ? VELMORA_BURN_IN_KEEP_IMAGE | VELMORA_BURN_IN_REDACTIONS_ONLY
                                       : VELMORA_BURN_IN_CHOOSE_FORMAT | VELMORA_BURN_IN_KEEP_IMAGE;
    HGLOBAL burned =
        BurnInVelmoraAnnotations(stream, redactionsOnly ? reinterpret_cast<UINT_PTR>(&size) : size, dib, header, flags);
    GlobalUnlock(dib);
    if (burned != nullptr && redactionsOnly && size != 0 && size < GlobalSize(stream)) {
        // What is left was rewritten at the start of the block, and a page
        // stores its annotation block whole: cut the block to the stream.
        HGLOBAL exact = GlobalReAlloc(stream, size, GMEM_MOVEABLE);
        if (exact == nullptr) {
            if (burned != VELMORA_BURNED_IN_PLACE) GlobalFree(burned);
            burned = nullptr;
        } else {
            stream = exact;
        }
    }
    if (burned == nullptr || !redactionsOnly || size == 0) {
        DestroyVelmoraAnnotations(stream);
    } else {
        *rest = stream;
        *restSize = size;
    }
    if (burned == nullptr) return nullptr;
    if (burned == VELMORA_BURNED_IN_PLACE) return dib;
    GlobalFree(dib);
    return burned;
}

int RunBurn(int argc, char** argv) {
    const char* in = nullptr;
    const char* out = nullptr;
    bool redactionsOnly = false;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--redactions-only") == 0) {
            redactionsOnly = true;
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
        std::fprintf(stderr, "usage: velmora burn IN.tif OUT.tif [--redactions-only]\n");
        return 2;
    }
    HGLOBAL document = OpenVelmoraTIFFDocument(in);
    if (document == nullptr) return Fail(in);
    HGLOBAL tiff = GetVelmoraTIFFDocumentTIFF(document);
    const int result = RewritePages(in, AllPages(CountTiffPages(tiff)), out, [&](DWORD page, HGLOBAL target) {
        HGLOBAL rest = nullptr;
        DWORD restSize = 0;
        HGLOBAL read = ReadVelmoraOpenTIFFDIB(tiff, page);
        HGLOBAL dib = read != nullptr ? BurnPage(tiff, page, read, redactionsOnly, &rest, &restSize) : nullptr;
        if (dib == nullptr && read != nullptr) GlobalFree(read);
        VelmoraAppendTIFF append = {};
        append.size = VELMORA_APPEND_TIFF_SIZE_V1;
        append.compression = VELMORA_COMPRESSION_DEFAULT;
        append.dib = dib;
        if (rest != nullptr) {
            append.flags |= VELMORA_APPEND_ANNOTATIONS;
            append.annotations = rest;
        }
        const bool ok = dib != nullptr && AppendVelmoraOpenTIFFEx(target, &append);
        if (dib != nullptr) GlobalFree(dib);
        DestroyVelmoraAnnotations(rest);
        return ok;
    });
    CloseVelmoraTIFFDocument(document);
    return result;
}

}  // namespace velmora_cli
