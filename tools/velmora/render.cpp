// velmora render: one page of an image file (TIFF, BMP, JPEG, any type the
// library reads) as a Windows bitmap, a TIFF page with its annotations burned
// in when asked.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "command.h"

namespace velmora_cli {

int RunRender(int argc, char** argv) {
    const char* path = nullptr;
    const char* out = nullptr;
    unsigned long page = 1;
    bool burn = false;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--burn") == 0) {
            burn = true;
        } else if (std::strcmp(argv[i], "-o") == 0 && i + 1 < argc) {
            out = argv[++i];
        } else if (std::strcmp(argv[i], "--page") == 0 && i + 1 < argc) {
            if (!ParsePage(argv[++i], &page)) return 2;
        } else if (path == nullptr) {
            path = argv[i];
        } else {
            path = nullptr;
            break;
        }
    }
    if (path == nullptr || out == nullptr) {
        std::fprintf(stderr, "usage: velmora render FILE [--page N] [--burn] -o OUT.bmp\n");
        return 2;
    }
    const VelmoraProgressProc progress = TerminalProgress();
    HGLOBAL dib = nullptr;
    if (GetVelmoraDocumentType(path) == 6) {
        HGLOBAL tiff = OpenVelmoraTIFF(path, 0x80000000u, 0);
        if (tiff == nullptr) return Fail(path);
        dib = ReadVelmoraOpenTIFFDIBProgress(tiff, static_cast<DWORD>(page), progress, 0);
        ClearProgress(progress);
        if (dib != nullptr && burn) {
            HGLOBAL rest = nullptr;
            DWORD restSize = 0;
            HGLOBAL burned = BurnPage(tiff, static_cast<DWORD>(page), dib, false, &rest, &restSize);
            if (burned == nullptr) GlobalFree(dib);
            dib = burned;
        }
        int result = dib == nullptr ? Fail(path) : 0;
        CloseVelmoraTIFF(tiff);
        if (dib == nullptr) return result;
    } else {
        // Every other type through the library's reading by content.
        VelmoraReadDIB read = {};
        read.size = VELMORA_READ_DIB_SIZE_V1;
        read.path = path;
        read.page = static_cast<DWORD>(page);
        read.progress = progress;
        dib = ReadVelmoraDIBEx(&read);
        ClearProgress(progress);
        if (dib == nullptr) return Fail(path);
    }
    auto* header = static_cast<const BITMAPINFOHEADER*>(GlobalLock(dib));
    const void* bits = header != nullptr ? GetVelmoraDIBData(header) : nullptr;
    BOOL saved = header != nullptr && bits != nullptr && SaveVelmoraBMPDIB(out, bits, header);
    GlobalUnlock(dib);
    GlobalFree(dib);
    if (!saved) return Fail(out);
    return 0;
}

}  // namespace velmora_cli
