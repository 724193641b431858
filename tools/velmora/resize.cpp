// velmora resize: page 1 of a TIFF file at another pixel size, written as a
// Windows bitmap or a one-page TIFF file.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "command.h"

namespace velmora_cli {

int RunResize(int argc, char** argv) {
    const char* in = nullptr;
    const char* out = nullptr;
    unsigned long width = 0, height = 0;
    WORD flags = VELMORA_RESIZE_SMOOTH;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--size") == 0 && i + 1 < argc) {
            if (!ParseSize(argv[++i], 16777216, &width, &height)) {
                std::fprintf(stderr, "velmora: --size takes WIDTHxHEIGHT, each 1 to 16777216: %s\n", argv[i]);
                return 2;
            }
        } else if (std::strcmp(argv[i], "--smooth") == 0) {
            flags = VELMORA_RESIZE_SMOOTH;
        } else if (std::strcmp(argv[i], "--nearest") == 0) {
            flags = 0;
        } else if (in == nullptr) {
            in = argv[i];
        } else if (out == nullptr) {
            out = argv[i];
        } else {
            in = nullptr;
            break;
        }
    }
    if (in == nullptr || out == nullptr || width == 0) {
        std::fprintf(stderr, "usage: velmora resize IN.tif OUT --size WxH [--smooth|--nearest]\n");
        return 2;
    }
    HGLOBAL source = OpenVelmoraTIFF(in, 0x80000000u, 0);
    if (source == nullptr) return Fail(in);
    const VelmoraProgressProc progress = TerminalProgress();
    HGLOBAL page = ReadVelmoraOpenTIFFDIBProgress(source, 1, progress, 0);
    CloseVelmoraTIFF(source);
    if (page == nullptr) {
        ClearProgress(progress);
        return Fail(in);
    }
    auto* header = static_cast<const BITMAPINFOHEADER*>(GlobalLock(page));
    VelmoraResizeDIB resize = {};
    resize.size = VELMORA_RESIZE_DIB_SIZE_V1;
    resize.flags = flags;
    resize.width = static_cast<DWORD>(width);
    resize.height = static_cast<DWORD>(height);
    resize.bits = GetVelmoraDIBData(header);
    resize.header = header;
    resize.progress = progress;
    HGLOBAL resized = ResizeVelmoraDIBEx(&resize);
    ClearProgress(progress);
    const int result = resized == nullptr ? Fail(in) : 0;
    GlobalUnlock(page);
    GlobalFree(page);
    if (resized == nullptr) return result;
    const int saved = SaveImage(resized, out);
    GlobalFree(resized);
    return saved;
}

}  // namespace velmora_cli
