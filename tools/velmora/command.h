// What the commands of the velmora program share: reporting the library's
// errors, the progress bar, JSON strings, and reading a JPEG file into a
// JPEG handle. Each command lives in a file of its own.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "velmora/velmora.h"

namespace velmora_cli {

// Reports the library's last error on standard error, after `what`; 1.
int Fail(const char* what);
// Fail("FILE page N"): the library's last error for one page of a file; 1.
int FailPage(const char* path, DWORD page);
// Draws a progress bar on standard error (a VelmoraProgressProc).
BOOL VELMORA_CALLBACK ShowProgress(DWORD percent, UINT_PTR user);
// The progress callback for standard error: the bar on a terminal, else none.
VelmoraProgressProc TerminalProgress();
// Clears the bar's line when one was drawn.
void ClearProgress(VelmoraProgressProc progress);
// `text` as a JSON string literal.
std::string JsonString(const char* text);
// A JPEG file as a JPEG handle: a movable block holding the whole stream.
// Null with errno set when the file cannot be read.
HGLOBAL LoadJpeg(const char* path);
// The arguments FILE [--json]: false when they are anything else.
bool ParseFileAndJson(int argc, char** argv, const char** path, bool* json);
// The document type a file name asks for: VELMORA_DOCTYPE_BMP, _JPEG or _PDF
// by its extension (any case), VELMORA_DOCTYPE_TIFF otherwise.
LONG OutputType(const char* path);
// A page number from 1 to 2^32 - 1: false after saying on standard error
// that `text` is not one.
bool ParsePage(const char* text, unsigned long* page);
// WIDTHxHEIGHT, each 1 to `largest`: false for anything else.
bool ParseSize(const char* text, unsigned long largest, unsigned long* width, unsigned long* height);
// Writes `dib` to `path`: a Windows bitmap for a name ending in .bmp, else a
// new one-page TIFF (Group 4 when bi-level, LZW otherwise). 0, or 1 after
// reporting the library's error and removing what was written.
int SaveImage(HGLOBAL dib, const char* path);
// The number of pages of an open TIFF.
DWORD CountTiffPages(HGLOBAL tiff);
// Draws the annotations of `page` of `tiff` into `dib` (a page read from it):
// all of them, the page turned into a colour type that shows them, or only
// the pending redactions, whose remaining annotations are then handed back
// in *rest (null when none are left). Returns the page to use (`dib` itself,
// or a new image that replaced and freed it), or null after a failure with
// `dib` still the caller's.
HGLOBAL BurnPage(HGLOBAL tiff, DWORD page, HGLOBAL dib, bool redactionsOnly, HGLOBAL* rest, DWORD* restSize);
// A rectangle annotation: a border (none when `border` is VELMORA_COLOR_NONE),
// a fill (none when `fill` is VELMORA_COLOR_NONE; a highlighter's when
// `highlight`) and a text (none when null) in Arial of `points`.
struct RectangleMark {
    RECT rect = {};
    COLORREF border = VELMORA_COLOR_NONE;
    WORD borderWidth = 1;
    COLORREF fill = VELMORA_COLOR_NONE;
    bool highlight = false;
    const char* text = nullptr;
    WORD points = 12;
    COLORREF textColor = 0;
};
// Appends `mark` to an annotation stream (*stream may be null: a new one);
// false with the library's error set.
bool InsertRectangle(HGLOBAL* stream, DWORD* size, const RectangleMark& mark);
// numerator / denominator, 0 for a zero denominator.
double Value(DWORD numerator, DWORD denominator);

// A recognised word (UTF-8) and its box in page pixels.
struct OcrWord {
    std::string text;
    RECT box;
};
using OcrLine = std::vector<OcrWord>;
// The lines as a recognised-text record (a movable block), or null for a
// word that is empty or not UTF-8, or when memory runs out.
HGLOBAL BuildOcrRecord(const std::vector<OcrLine>& lines);
// Rewrites a TIFF file with records[p - 1] stored with page p (none where
// null or missing), through a temporary file: 0, or 1 with the file unchanged.
int StoreOcrRecords(const char* path, const std::vector<HGLOBAL>& records);
// Recognises the pages of a TIFF file (every page for a null list) with
// tesseract and stores the text with them: 0, or 1 after saying why.
int RecogniseTiff(const char* path, const char* language, const char* pageList);
// The pages a list such as 1,3-5 names, each from 1 to count.
bool ParsePages(const char* text, DWORD count, std::vector<DWORD>* pages);
// Whether `page` is one of the `pages` of `path`; false after saying on
// standard error that it is not.
bool PageWithin(const char* path, DWORD page, DWORD pages);
// The pages 1 to count.
std::vector<DWORD> AllPages(DWORD count);
// Writes the new TIFF file `out`, one page for each of `pages`:
// `writePage(page, target)` appends it to the open `target` and returns
// false after a library call failed. 0; or 1 after reporting the page (of
// `in`) or the file that failed, with `out` removed.
int RewritePages(const char* in, const std::vector<DWORD>& pages, const char* out,
                 const std::function<bool(DWORD page, HGLOBAL target)>& writePage);

int RunAnnotate(int argc, char** argv);
int RunAnnotations(int argc, char** argv);
int RunAppend(int argc, char** argv);
int RunBurn(int argc, char** argv);
int RunConvert(int argc, char** argv);
int RunDespeckle(int argc, char** argv);
int RunInfo(int argc, char** argv);
int RunOcr(int argc, char** argv);
int RunOcrAttach(int argc, char** argv);
int RunPages(int argc, char** argv);
int RunRender(int argc, char** argv);
int RunResize(int argc, char** argv);
int RunSample(int argc, char** argv);
int RunThumbnail(int argc, char** argv);

}  // namespace velmora_cli
