// velmora despeckle: removing specks from the first page of a TIFF file.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "command.h"

namespace velmora_cli {

int RunDespeckle(int argc, char** argv) {
    const char* in = nullptr;
    const char* out = nullptr;
    long maximum = -1;
    DWORD flags = 0;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--max") == 0 && i + 1 < argc) {
            char* end = nullptr;
            maximum = std::strtol(argv[++i], &end, 10);
            if (*end != '\0' || maximum < 1 || maximum > VELMORA_DESPECKLE_MAXIMUM) {
                std::fprintf(stderr, "velmora: --max takes a speck size from 1 to %d: %s\n", VELMORA_DESPECKLE_MAXIMUM,
                             argv[i]);
                return 2;
            }
        } else if (std::strcmp(argv[i], "--black") == 0) {
            flags |= VELMORA_DESPECKLE_BLACK;
        } else if (std::strcmp(argv[i], "--white") == 0) {
            flags |= VELMORA_DESPECKLE_WHITE;
        } else if (in == nullptr) {
            in = argv[i];
        } else if (out == nullptr) {
            out = argv[i];
        } else {
            in = nullptr;
            break;
        }
    }
    if (in == nullptr || out == nullptr || maximum < 0) {
        std::fprintf(stderr, "usage: velmora despeckle IN.tif OUT.tif|OUT.bmp --max N [--black] [--white]\n");
        return 2;
    }
    if (flags == 0) flags = VELMORA_DESPECKLE_BLACK | VELMORA_DESPECKLE_WHITE;
    HGLOBAL source = OpenVelmoraTIFF(in, 0x80000000u, 0);
    if (source == nullptr) return Fail(in);
    HGLOBAL page = ReadVelmoraOpenTIFFDIB(source, 1);
    CloseVelmoraTIFF(source);
    if (page == nullptr) return Fail(in);
    const VelmoraProgressProc progress = TerminalProgress();
    auto* header = static_cast<BITMAPINFOHEADER*>(GlobalLock(page));
    if (header->biBitCount != 1) {
        GlobalUnlock(page);
        GlobalFree(page);
        std::fprintf(stderr, "velmora: %s: page 1 is not black and white\n", in);
        return 1;
    }
    HGLOBAL cleaned =
        DespeckleVelmoraDIB(GetVelmoraDIBData(header), header, static_cast<DWORD>(maximum), flags, progress, 0);
    ClearProgress(progress);
    GlobalUnlock(page);
    GlobalFree(page);
    if (cleaned == nullptr) return Fail(in);
    const int result = SaveImage(cleaned, out);
    GlobalFree(cleaned);
    return result;
}

}  // namespace velmora_cli
