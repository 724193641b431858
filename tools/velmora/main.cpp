// velmora: the command-line face of the library. It is a host like any
// other and calls only the library's exported C interface.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "command.h"

namespace {

using namespace velmora_cli;

struct Command {
    const char* name;
    const char* usage;
    const char* summary;
    int (*run)(int argc, char** argv);
};

int RunVersion(int argc, char** argv);
int RunError(int argc, char** argv);

const Command kCommands[] = {
    {"version", "velmora version", "Print the library's version.", RunVersion},
    {"error", "velmora error CODE", "Print the library's message for an error code (decimal, or hexadecimal with 0x).",
     RunError},
    {"info", "velmora info FILE [--json]",
     "Describe a document: its type, its pages and, per page, size, colour, compression,\n"
     "photometric interpretation, resolution, tiling and orientation (for JPEG files: the\n"
     "JPEG process and the sampling). --json prints one JSON object.",
     RunInfo},
    {"render", "velmora render FILE [--page N] [--burn] -o OUT.bmp",
     "Decode one page of a TIFF or JPEG file (the first by default) and save it as a\n"
     "Windows bitmap. --burn draws a TIFF page's annotations into it.\n"
     "Shows progress on standard error when that is a terminal.",
     RunRender},
    {"convert", "velmora convert IN OUT [--compression NAME] [--quality Q] [--pages LIST] [--color TYPE]",
     "Write the pages of a TIFF file, or of a BMP, GIF, JPEG, PCX or PNG file (all, or a list\n"
     "such as 1,3-5; a GIF's frames are its pages) into a new TIFF file, or the first of them\n"
     "into a bitmap (OUT.bmp) or a JPEG file (OUT.jpg). TIFF pages\n"
     "keep their coding unless --compression names another: g4, g3, g3-2d, mh (bi-level pages),\n"
     "lzw, deflate, packbits, none (every page), jpeg (grey and colour pages; --quality from 1 to\n"
     "100, 75 by default). --color converts every page\n"
     "to bw, dither (dithered black and white), gray16, gray256, pal16, pal256 or rgb. Pages that\n"
     "are decoded to be coded again are stored upright. Shows progress on a terminal.\n"
     "OUT.pdf makes an image PDF of the pages of a TIFF file (all, or --pages): pages copied where their\n"
     "coding allows, annotations burned in (not with --no-burn), OCR text as an invisible\n"
     "text layer (not with --no-text-layer); --pdfa makes a PDF/A-1b file with the system's\n"
     "sRGB profile. --ocr recognises the pages with tesseract first (in a copy) for the text layer.\n"
     "Without --pdfa, --no-burn, --no-text-layer and --ocr, pages come in the order --pages gives\n"
     "and progress shows page by page on a terminal; with them, pages come in document order.",
     RunConvert},
    {"ocr", "velmora ocr FILE.tif [--lang eng] [--pages LIST]",
     "Recognise the text of every page of a TIFF file (or of a list such as 1,3-5) with\n"
     "tesseract, which must be installed with the language asked for, and store it with\n"
     "each page as OCR text, a box per character. The file is rewritten and left\n"
     "unchanged when anything fails.",
     RunOcr},
    {"ocr-attach", "velmora ocr-attach FILE.tif --page N WORDS.json",
     "Store words recognised elsewhere with page N of a TIFF file as its OCR text. WORDS.json\n"
     "is a list of {\"text\": \"word\", \"box\": [left, top, right, bottom]} in page pixels;\n"
     "words with the same top make a line. The file is rewritten and left unchanged when\n"
     "anything fails.",
     RunOcrAttach},
    {"append", "velmora append DEST.tif SOURCE.tif...",
     "Append every page of each SOURCE to DEST, creating it when it does not exist. DEST is\n"
     "rewritten through a temporary file and left unchanged when anything fails.",
     RunAppend},
    {"thumbnail", "velmora thumbnail FILE --max WxH [--nearest]",
     "Add a thumbnail of page 1, at most W x H pixels (each 1 to 512), as the last image of a\n"
     "TIFF file: averaged (grey or colour), or with --nearest picked pixels of the page's own\n"
     "colour type. The file is rewritten and left unchanged when anything fails.",
     RunThumbnail},
    {"resize", "velmora resize IN.tif OUT --size WxH [--smooth|--nearest]",
     "Write page 1 of a TIFF file at W x H pixels, keeping its physical size: as a Windows bitmap\n"
     "when OUT ends in .bmp, else as a one-page TIFF file. Reductions average the pixels (a\n"
     "black and white page becomes grey) unless --nearest picks the nearest pixel; enlargements\n"
     "always pick. Shows progress on a terminal.",
     RunResize},
    {"pages", "velmora pages FILE [--json]",
     "List the images of a TIFF file as a document: for each, the page it belongs to, whether\n"
     "it is a page, a reduced-resolution image (thumbnail) or a mask, and its size as shown;\n"
     "and whether the file's page numbers could be used.",
     RunPages},
    {"despeckle", "velmora despeckle IN.tif OUT --max N [--black] [--white]",
     "Remove specks of at most N pixels (1 to 254) from page 1 of a black-and-white TIFF file:\n"
     "--black removes small dots, --white fills small holes (both when neither is given); each\n"
     "speck's bounding rectangle takes the other colour. OUT is a one-page TIFF file, or a\n"
     "Windows bitmap when its name ends in .bmp. Shows progress on a terminal.",
     RunDespeckle},
    {"annotations", "velmora annotations FILE [--page N] [--json]",
     "List the annotations of each page of a TIFF file (or of page N): the page's own, those\n"
     "of Wang/Eastman and sheet-chunk blocks, and those of a companion FILE.art for pages\n"
     "without any; per annotation where it came from, its family and type code, rectangle,\n"
     "border, fill colours, text with its font and colour, flags (pending redactions among\n"
     "them), groups and creation time. --json prints one JSON object.",
     RunAnnotations},
    {"annotate",
     "velmora annotate IN.tif OUT.tif --page N --rect L,T,R,B [--text TEXT] [--border RRGGBB] [--fill RRGGBB] "
     "[--highlight] [--redact]",
     "Copy a TIFF file, adding to page N a rectangle annotation: a border, a fill (a\n"
     "transparent highlighter with --highlight), a text in 12-point Arial; or, with --redact\n"
     "(alone), a pending redaction that burning in blackens. Every page's annotations are\n"
     "stored in the library's own block of the copy.",
     RunAnnotate},
    {"burn", "velmora burn IN.tif OUT.tif [--redactions-only]",
     "Write every page of a TIFF file with its annotations drawn into its pixels, the page\n"
     "turned into a colour type that shows them. --redactions-only draws only the pending\n"
     "redactions and keeps the other annotations as annotations.",
     RunBurn},
    {"sample", "velmora sample OUT.tif",
     "Write a small TIFF document to try the other commands on: fax pages in Group 4 at 204 x 196\n"
     "and 204 x 98 dpi, a grey page, a colour page stored as JPEG, and a page with annotations\n"
     "and a redaction; every page carries the recognised text of its lines.",
     RunSample},
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
