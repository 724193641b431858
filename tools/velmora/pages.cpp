// velmora pages: a TIFF file as a document: its images, the page each
// belongs to and what kind of image it is.
#include <cstdio>
#include <cstring>

#include "command.h"

namespace velmora_cli {
namespace {

// What NewSubfileType says an image is.
const char* SubfileClass(DWORD subfileType) {
    switch (subfileType & 5) {
        case 0: return "page";
        case 1: return "reduced";
        case 4: return "mask";
        default: return "reduced mask";
    }
}

}  // namespace

int RunPages(int argc, char** argv) {
    const char* path = nullptr;
    bool json = false;
    if (!ParseFileAndJson(argc, argv, &path, &json)) {
        std::fprintf(stderr, "usage: velmora pages FILE [--json]\n");
        return 2;
    }
    HGLOBAL document = OpenVelmoraTIFFDocument(path);
    if (document == nullptr) return Fail(path);
    const DWORD images = GetVelmoraTIFFDocumentIFDCount(document);
    const LONG pages = GetVelmoraTIFFDocumentPageCount(document);
    const bool numbered = GetVelmoraTIFFDocumentPageNumbersOK(document) != 0;
    if (json) {
        std::printf("{\"file\": %s, \"pages\": %ld, \"page_numbers_ok\": %s, \"images\": [", JsonString(path).c_str(),
                    static_cast<long>(pages), numbered ? "true" : "false");
    } else {
        std::printf("%s: %ld pages in %lu images; page numbers %s\n", path, static_cast<long>(pages),
                    static_cast<unsigned long>(images), numbered ? "OK" : "not used");
    }
    for (DWORD ifd = 1; ifd <= images; ++ifd) {
        VelmoraTIFFDocumentIFDInfo info = {};
        info.size = VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V3;
        if (!GetVelmoraTIFFDocumentIFDInfo(document, ifd, &info)) {
            CloseVelmoraTIFFDocument(document);
            return Fail(path);
        }
        if (json) {
            std::printf(
                "%s{\"ifd\": %lu, \"page\": %lu, \"class\": \"%s\", \"subfile_type\": %lu, \"width\": %lu, "
                "\"height\": %lu, \"orientation\": %lu}",
                ifd == 1 ? "" : ", ", static_cast<unsigned long>(ifd), static_cast<unsigned long>(info.page),
                SubfileClass(info.subfileType), static_cast<unsigned long>(info.subfileType),
                static_cast<unsigned long>(info.width), static_cast<unsigned long>(info.height),
                static_cast<unsigned long>(info.orientation));
        } else {
            std::printf("  image %lu: page %lu, %s, %lu x %lu as shown, orientation %lu\n",
                        static_cast<unsigned long>(ifd), static_cast<unsigned long>(info.page),
                        SubfileClass(info.subfileType), static_cast<unsigned long>(info.width),
                        static_cast<unsigned long>(info.height), static_cast<unsigned long>(info.orientation));
        }
    }
    if (json) std::printf("]}\n");
    CloseVelmoraTIFFDocument(document);
    return 0;
}

}  // namespace velmora_cli
