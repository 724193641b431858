// velmora sample: a small document of the pages the library is made for — a
// fax page at fine and one at normal resolution in Group 4, a grey page, a
// colour page stored as JPEG, and a page carrying annotations and a pending
// redaction. Each page's lines of text are drawn by burning text annotations
// into it, and are stored with the page as recognised text whose word boxes
// are measured from the ink drawn, as a recogniser would report them.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "command.h"

namespace velmora_cli {
namespace {

// What a page shows under its text.
enum class Ground { kWhite, kGreyWedge, kColourBars };

struct TextLine {
    const char* text;
    LONG left, top;  // where its box starts, in pixels of the page as drawn
    WORD points;
};

struct SamplePage {
    const char* description;  // stored as the page's ImageDescription
    LONG width, height;       // pixels, as drawn
    DWORD xDpi, yDpi;         // as drawn
    WORD bits;                // 1, 8 or 24
    Ground ground = Ground::kWhite;
    COLORREF ink = 0;  // of the text
    WORD compression = VELMORA_COMPRESSION_GROUP4;
    bool normalFax = false;  // stored with every other row, at half the vertical resolution
    std::vector<TextLine> lines;
    int highlight = -1;            // the line a highlighter marks, or -1
    const char* redact = nullptr;  // the word a pending redaction covers, or null
    const char* stamp = nullptr;   // the text of a bordered box at stampBox, or null
    RECT stampBox = {};
};

constexpr COLORREF kNavy = 0x800000, kRed = 0x0000FF, kYellow = 0x00FFFF;

// Fax pages are 1728 pixels across; every page is of letter size, 11 inches
// down.
const SamplePage kPages[] = {
    {.description = "Fax page, fine resolution",
     .width = 1728,
     .height = 2156,
     .xDpi = 204,
     .yDpi = 196,
     .bits = 1,
     .lines = {{"Velmora sample document", 204, 196, 24},
               {"A fax page at fine resolution, 204 by 196 dots per inch,", 204, 400, 12},
               {"coded in Group 4 as fax machines send it.", 204, 460, 12},
               {"Every page carries the recognised text of its lines, so that", 204, 560, 12},
               {"a PDF made of this document can be searched.", 204, 620, 12}}},
    {.description = "Fax page, normal resolution",
     .width = 1728,
     .height = 2156,
     .xDpi = 204,
     .yDpi = 196,
     .bits = 1,
     .normalFax = true,
     .lines = {{"Normal resolution", 204, 196, 24},
               {"The same paper at 204 by 98 dots per inch: every other row", 204, 400, 12},
               {"of a fine page, as a fax machine sends it in normal mode.", 204, 460, 12}}},
    {.description = "Grey page",
     .width = 850,
     .height = 1100,
     .xDpi = 100,
     .yDpi = 100,
     .bits = 8,
     .ground = Ground::kGreyWedge,
     .compression = VELMORA_COMPRESSION_LZW,
     .lines = {{"Grey page", 100, 100, 24}, {"Sixteen shades from white to black, 8 bits to a pixel.", 100, 200, 12}}},
    {.description = "Colour page",
     .width = 850,
     .height = 1100,
     .xDpi = 100,
     .yDpi = 100,
     .bits = 24,
     .ground = Ground::kColourBars,
     .ink = kNavy,
     .compression = VELMORA_COMPRESSION_JPEG,
     .lines = {{"Colour page", 100, 100, 24}, {"Stored as JPEG, as colour scans and photographs are.", 100, 200, 12}}},
    {.description = "Annotated page",
     .width = 1700,
     .height = 2200,
     .xDpi = 200,
     .yDpi = 200,
     .bits = 1,
     .lines = {{"Annotated page", 200, 200, 24},
               {"The highlighted line, the stamp and the black bar are annotations,", 200, 400, 12},
               {"drawn into the page whenever it is shown or converted.", 200, 460, 12},
               {"Customer account 4471-2290-8836 is covered by a redaction:", 200, 560, 12},
               {"the number is gone from the picture and from the text layer.", 200, 620, 12}},
     .highlight = 1,
     .redact = "4471-2290-8836",
     .stamp = "APPROVED",
     .stampBox = {1100, 180, 1440, 270}},
};

// The band of the grey wedge or of the colour bars, in pixels.
constexpr LONG kBandLeft = 105, kBandTop = 300, kBandWidth = 640, kBandHeight = 260;

// The eight colour bars, left to right, as 0x00BBGGRR.
const COLORREF kBars[] = {0xFFFFFF, 0x00FFFF, 0xFFFF00, 0x00FF00, 0xFF00FF, 0x0000FF, 0xFF0000, 0x000000};

// A movable block freed when it goes out of scope.
struct Block {
    HGLOBAL handle = nullptr;
    Block() = default;
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    ~Block() {
        if (handle != nullptr) GlobalFree(handle);
    }
};

uint32_t Stride(LONG width, WORD bits) { return (static_cast<uint32_t>(width) * bits + 31) / 32 * 4; }

// dpi as the DIB header counts it, in pixels per metre.
LONG PelsPerMetre(DWORD dpi) { return static_cast<LONG>((dpi * 5000 + 63) / 127); }

// A white packed DIB, bottom row first: 1-bit (entry 0 black), 8-bit grey or
// 24-bit colour, its resolution in pixels per metre. Null when memory runs
// out.
HGLOBAL NewDib(LONG width, LONG height, WORD bits, LONG xPels, LONG yPels) {
    const DWORD colours = bits == 24 ? 0 : 1u << bits;
    const size_t size = sizeof(BITMAPINFOHEADER) + 4 * colours + size_t{Stride(width, bits)} * height;
    HGLOBAL dib = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, size);
    if (dib == nullptr) return nullptr;
    auto* header = static_cast<BITMAPINFOHEADER*>(GlobalLock(dib));
    header->biSize = sizeof(BITMAPINFOHEADER);
    header->biWidth = width;
    header->biHeight = height;
    header->biPlanes = 1;
    header->biBitCount = bits;
    header->biSizeImage = Stride(width, bits) * static_cast<DWORD>(height);
    header->biXPelsPerMeter = xPels;
    header->biYPelsPerMeter = yPels;
    header->biClrUsed = colours;
    auto* table = reinterpret_cast<uint8_t*>(header + 1);
    for (DWORD i = 0; i < colours; ++i) std::memset(table + 4 * i, static_cast<int>(i * 255 / (colours - 1)), 3);
    std::memset(table + 4 * colours, 0xFF, header->biSizeImage);
    GlobalUnlock(dib);
    return dib;
}

// Row y (top row 0) of a locked bottom-up DIB.
uint8_t* Row(BITMAPINFOHEADER* header, LONG y) {
    return static_cast<uint8_t*>(GetVelmoraDIBData(header)) +
           size_t{Stride(header->biWidth, header->biBitCount)} * (header->biHeight - 1 - y);
}

// A grey wedge of sixteen steps under a gently darkening page, or eight
// colour bars on a soft colour wash.
void PaintGround(BITMAPINFOHEADER* header, Ground ground) {
    if (ground == Ground::kWhite) return;
    const LONG width = header->biWidth, height = header->biHeight;
    for (LONG y = 0; y < height; ++y) {
        uint8_t* row = Row(header, y);
        const bool band = y >= kBandTop && y < kBandTop + kBandHeight;
        for (LONG x = 0; x < width; ++x) {
            const LONG step =
                band && x >= kBandLeft && x < kBandLeft + kBandWidth ? (x - kBandLeft) * 16 / kBandWidth : -1;
            if (ground == Ground::kGreyWedge) {
                row[x] = static_cast<uint8_t>(step >= 0 ? 255 - 17 * step : 255 - 40 * y / height);
                continue;
            }
            const COLORREF wash = static_cast<COLORREF>((255 - 35 * y / height) | (250 - 30 * x / width) << 8 |
                                                        (235 + 20 * y / height) << 16);
            const COLORREF colour = step >= 0 ? kBars[step / 2] : wash;
            for (int c = 0; c < 3; ++c) row[3 * x + c] = static_cast<uint8_t>(colour >> (16 - 8 * c));
        }
    }
}

bool Dark(const uint8_t* row, LONG x, WORD bits) {
    if (bits == 1) return (row[x / 8] & (0x80 >> (x % 8))) == 0;
    if (bits == 8) return row[x] < 96;
    return row[3 * x] + row[3 * x + 1] + row[3 * x + 2] < 3 * 96;
}

// The box a line of text is drawn in: from its start to the same margin on
// the right, two lines high.
RECT LineBox(const SamplePage& page, const TextLine& line) {
    const LONG height = static_cast<LONG>(2 * line.points * page.yDpi / 72);
    return {line.left, line.top, page.width - line.left, line.top + height};
}

// Draws the page's lines by burning them in as text annotations. Returns the
// page (a new handle when the library replaced it), or null.
HGLOBAL DrawLines(HGLOBAL dib, const SamplePage& page) {
    HGLOBAL stream = nullptr;
    DWORD size = 0;
    for (const TextLine& line : page.lines) {
        RectangleMark mark;
        mark.rect = LineBox(page, line);
        mark.text = line.text;
        mark.points = line.points;
        mark.textColor = page.ink;
        if (!InsertRectangle(&stream, &size, mark)) {
            DestroyVelmoraAnnotations(stream);
            return nullptr;
        }
    }
    auto* header = static_cast<LPBITMAPINFOHEADER>(GlobalLock(dib));
    HGLOBAL burned = BurnInVelmoraAnnotations(stream, size, dib, header, VELMORA_BURN_IN_KEEP_IMAGE);
    GlobalUnlock(dib);
    DestroyVelmoraAnnotations(stream);
    return burned == VELMORA_BURNED_IN_PLACE ? dib : burned;
}

// Every other row of a page, at half its vertical resolution: a fine fax
// page as a machine sends it at normal resolution.
HGLOBAL EveryOtherRow(HGLOBAL fine) {
    auto* from = static_cast<BITMAPINFOHEADER*>(GlobalLock(fine));
    const LONG height = from->biHeight / 2;
    HGLOBAL normal = NewDib(from->biWidth, height, from->biBitCount, from->biXPelsPerMeter, from->biYPelsPerMeter / 2);
    if (normal != nullptr) {
        auto* to = static_cast<BITMAPINFOHEADER*>(GlobalLock(normal));
        for (LONG y = 0; y < height; ++y) {
            std::memcpy(Row(to, y), Row(from, 2 * y), Stride(from->biWidth, from->biBitCount));
        }
        GlobalUnlock(normal);
    }
    GlobalUnlock(fine);
    return normal;
}

// Splits `text` at its spaces.
std::vector<std::string> Words(const char* text) {
    std::vector<std::string> words;
    for (const char* at = text; *at != '\0';) {
        const char* end = std::strchr(at, ' ');
        if (end == nullptr) end = at + std::strlen(at);
        if (end > at) words.emplace_back(at, end);
        at = *end == ' ' ? end + 1 : end;
    }
    return words;
}

// The words of a line drawn in `area`, boxed as the ink shows them: the
// columns holding dark pixels are split at their widest gaps into as many
// runs as the line has words; each word spans its run across and the line's
// ink down. False when the ink shows fewer runs than there are words.
bool MeasureLine(BITMAPINFOHEADER* header, const RECT& area, const char* text, OcrLine* line) {
    const std::vector<std::string> words = Words(text);
    std::vector<bool> inked(static_cast<size_t>(area.right - area.left), false);
    LONG top = area.bottom, bottom = area.top;
    for (LONG y = area.top; y < area.bottom; ++y) {
        const uint8_t* row = Row(header, y);
        for (LONG x = area.left; x < area.right; ++x) {
            if (!Dark(row, x, header->biBitCount)) continue;
            inked[x - area.left] = true;
            top = std::min(top, y);
            bottom = std::max(bottom, y + 1);
        }
    }
    std::vector<std::pair<LONG, LONG>> runs;  // [first, end) columns
    for (LONG x = area.left; x < area.right; ++x) {
        if (!inked[x - area.left]) continue;
        if (runs.empty() || runs.back().second != x) runs.emplace_back(x, x);
        runs.back().second = x + 1;
    }
    if (runs.size() < words.size() || words.empty()) return false;
    std::vector<size_t> gaps;  // gap i lies before run i
    for (size_t i = 1; i < runs.size(); ++i) gaps.push_back(i);
    std::stable_sort(gaps.begin(), gaps.end(), [&runs](size_t a, size_t b) {
        return runs[a].first - runs[a - 1].second > runs[b].first - runs[b - 1].second;
    });
    gaps.resize(words.size() - 1);
    std::sort(gaps.begin(), gaps.end());
    gaps.push_back(runs.size());
    size_t first = 0;
    for (size_t w = 0; w < words.size(); ++w) {
        line->push_back({words[w], {runs[first].first, top, runs[gaps[w] - 1].second, bottom}});
        first = gaps[w];
    }
    return true;
}

RECT Grown(const RECT& r, LONG by) { return {r.left - by, r.top - by, r.right + by, r.bottom + by}; }

// The page's own annotations: a highlighter over one line, a bordered stamp
// and a pending redaction over one word, in that order. False with the
// library's error set.
bool AddMarks(const SamplePage& page, const std::vector<OcrLine>& text, HGLOBAL* stream, DWORD* size) {
    if (page.highlight >= 0) {
        const OcrLine& words = text[static_cast<size_t>(page.highlight)];
        RectangleMark mark;
        mark.rect =
            Grown({words.front().box.left, words.front().box.top, words.back().box.right, words.back().box.bottom}, 6);
        mark.fill = kYellow;
        mark.highlight = true;
        if (!InsertRectangle(stream, size, mark)) return false;
    }
    if (page.stamp != nullptr) {
        RectangleMark mark;
        mark.rect = page.stampBox;
        mark.border = kRed;
        mark.borderWidth = 4;
        mark.text = page.stamp;
        mark.points = 20;
        mark.textColor = kRed;
        if (!InsertRectangle(stream, size, mark)) return false;
    }
    for (const OcrLine& words : text) {
        for (const OcrWord& word : words) {
            if (page.redact == nullptr || word.text != page.redact) continue;
            const RECT bar = Grown(word.box, 2);
            if (InsertVelmoraRedaction(stream, size, &bar, 0) < 0) return false;
        }
    }
    return true;
}

// Makes one page and appends it, with its text and annotations: 0, or 1
// after saying why.
int AppendPage(HGLOBAL tiff, const char* path, DWORD number, const SamplePage& page) {
    Block dib, record;
    dib.handle = NewDib(page.width, page.height, page.bits, PelsPerMetre(page.xDpi), PelsPerMetre(page.yDpi));
    if (dib.handle == nullptr) return FailPage(path, number);
    auto* header = static_cast<BITMAPINFOHEADER*>(GlobalLock(dib.handle));
    PaintGround(header, page.ground);
    GlobalUnlock(dib.handle);
    HGLOBAL drawn = DrawLines(dib.handle, page);
    if (drawn == nullptr) return FailPage(path, number);
    if (drawn != dib.handle) {
        GlobalFree(dib.handle);
        dib.handle = drawn;
    }
    if (page.normalFax) {
        HGLOBAL normal = EveryOtherRow(dib.handle);
        if (normal == nullptr) return FailPage(path, number);
        GlobalFree(dib.handle);
        dib.handle = normal;
    }
    const LONG rows = page.normalFax ? 2 : 1;
    std::vector<OcrLine> text(page.lines.size());
    header = static_cast<BITMAPINFOHEADER*>(GlobalLock(dib.handle));
    bool measured = true;
    for (size_t i = 0; i < page.lines.size() && measured; ++i) {
        const RECT box = LineBox(page, page.lines[i]);
        measured =
            MeasureLine(header, {box.left, box.top / rows, box.right, box.bottom / rows}, page.lines[i].text, &text[i]);
    }
    GlobalUnlock(dib.handle);
    if (!measured) {
        std::fprintf(stderr, "velmora: %s page %lu: a line of text did not come out as drawn\n", path,
                     static_cast<unsigned long>(number));
        return 1;
    }
    record.handle = BuildOcrRecord(text);
    HGLOBAL marks = nullptr;
    DWORD marksSize = 0;
    VelmoraAppendTIFF append = {};
    append.size = VELMORA_APPEND_TIFF_SIZE_V6;
    append.flags = VELMORA_APPEND_OCR_TEXT | VELMORA_APPEND_TEXT(1) | VELMORA_APPEND_TEXT(5);
    append.dib = dib.handle;
    append.compression = page.compression;
    append.ocrText = record.handle;
    append.texts[1] = page.description;
    append.texts[5] = "velmora sample";
    bool done = record.handle != nullptr && AddMarks(page, text, &marks, &marksSize);
    if (done && marks != nullptr) {
        append.flags |= VELMORA_APPEND_ANNOTATIONS;
        append.annotations = marks;
    }
    done = done && AppendVelmoraOpenTIFFEx(tiff, &append);
    DestroyVelmoraAnnotations(marks);
    return done ? 0 : FailPage(path, number);
}

}  // namespace

int RunSample(int argc, char** argv) {
    if (argc != 1) {
        std::fprintf(stderr, "usage: velmora sample OUT.tif\n");
        return 2;
    }
    HGLOBAL tiff = OpenVelmoraTIFF(argv[0], 0xC0000000u, 1);
    if (tiff == nullptr) return Fail(argv[0]);
    int result = 0;
    for (DWORD p = 0; p < sizeof kPages / sizeof kPages[0] && result == 0; ++p) {
        result = AppendPage(tiff, argv[0], p + 1, kPages[p]);
    }
    if (!CloseVelmoraTIFF(tiff) && result == 0) result = Fail(argv[0]);
    if (result != 0) std::remove(argv[0]);
    return result;
}

}  // namespace velmora_cli
