// velmora ocr and ocr-attach: recognised text stored with the pages of a
// TIFF file, from tesseract's word boxes or from a JSON list of words.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <system_error>
#include <tuple>
#include <vector>

#include "command.h"

namespace velmora_cli {
namespace {

void FreeRecords(std::vector<HGLOBAL>* records) {
    for (HGLOBAL record : *records) GlobalFree(record);
    records->clear();
}

// The word rows (level 5) of tesseract's TSV output, a line per block,
// paragraph and line number, in reading order.
std::vector<OcrLine> ReadTsv(std::istream& in) {
    std::map<std::tuple<LONG, LONG, LONG>, size_t> index;
    std::vector<OcrLine> lines;
    std::string row;
    while (std::getline(in, row)) {
        std::vector<std::string> fields;
        std::stringstream cells(row);
        for (std::string cell; std::getline(cells, cell, '\t');) fields.push_back(cell);
        if (fields.size() < 12 || fields[0] != "5") continue;
        std::string text = fields[11];
        while (!text.empty() && (text.back() == '\r' || text.back() == ' ')) text.pop_back();
        if (text.empty()) continue;
        auto number = [&fields](int i) { return static_cast<LONG>(std::atol(fields[i].c_str())); };
        const RECT box = {number(6), number(7), number(6) + number(8), number(7) + number(9)};
        const auto key = std::make_tuple(number(2), number(3), number(4));
        auto found = index.find(key);
        if (found == index.end()) found = index.emplace(key, lines.size()).first, lines.emplace_back();
        lines[found->second].push_back(OcrWord{text, box});
    }
    return lines;
}

// `text` as one word of a shell command.
std::string Quoted(const std::string& text) {
#ifdef _WIN32
    return "\"" + text + "\"";
#else
    std::string quoted = "'";
    for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
#endif
}

// Runs tesseract on a bitmap and reads its words: 0, or 1 after saying why.
int Recognise(const std::string& bitmap, const std::string& base, const char* language, std::vector<OcrLine>* lines) {
#ifdef _WIN32
    const char* quiet = " >NUL 2>NUL";
#else
    const char* quiet = " >/dev/null 2>&1";
#endif
    const std::string command =
        "tesseract " + Quoted(bitmap) + " " + Quoted(base) + " -l " + Quoted(language) + " tsv" + quiet;
    const int status = std::system(command.c_str());
    std::ifstream tsv(base + ".tsv");
    if (status != 0 || !tsv) {
        std::fprintf(stderr,
                     "velmora: tesseract could not recognise the page (is tesseract installed, with the "
                     "language %s?)\n",
                     language);
        return 1;
    }
    *lines = ReadTsv(tsv);
    return 0;
}

void SkipBlanks(const char*& at) {
    while (*at == ' ' || *at == '\t' || *at == '\r' || *at == '\n') ++at;
}

// Skips blanks; then whether `c` is next, consuming it.
bool Next(const char*& at, char c) {
    SkipBlanks(at);
    if (*at != c) return false;
    ++at;
    return true;
}

// A \uXXXX escape's character (not a surrogate) appended as UTF-8.
bool JsonUnicode(const char*& at, std::string* text) {
    unsigned long point = 0;
    for (int i = 0; i < 4; ++i) {
        const char c = *++at;
        const char* digit = c != '\0' ? std::strchr("0123456789abcdef", c | 0x20) : nullptr;
        if (digit == nullptr) return false;
        point = point << 4 | static_cast<unsigned long>(digit - "0123456789abcdef");
    }
    if (point >= 0xD800 && point < 0xE000) return false;
    if (point < 0x80) {
        text->push_back(static_cast<char>(point));
    } else if (point < 0x800) {
        text->push_back(static_cast<char>(0xC0 | point >> 6));
        text->push_back(static_cast<char>(0x80 | (point & 0x3F)));
    } else {
        text->push_back(static_cast<char>(0xE0 | point >> 12));
        text->push_back(static_cast<char>(0x80 | ((point >> 6) & 0x3F)));
        text->push_back(static_cast<char>(0x80 | (point & 0x3F)));
    }
    return true;
}

bool JsonText(const char*& at, std::string* text) {
    if (!Next(at, '"')) return false;
    for (; *at != '"'; ++at) {
        if (static_cast<unsigned char>(*at) < 0x20) return false;
        if (*at != '\\') {
            text->push_back(*at);
            continue;
        }
        static const char kEscapes[] = "\"\"\\\\//b\bf\fn\nr\rt\t";
        ++at;
        if (*at == 'u') {
            if (!JsonUnicode(at, text)) return false;
            continue;
        }
        const char* escape = *at != '\0' ? std::strchr(kEscapes, *at) : nullptr;
        if (escape == nullptr || (escape - kEscapes) % 2 != 0) return false;
        text->push_back(escape[1]);
    }
    ++at;
    return true;
}

bool JsonBox(const char*& at, RECT* box) {
    LONG* v[4] = {&box->left, &box->top, &box->right, &box->bottom};
    if (!Next(at, '[')) return false;
    for (int i = 0; i < 4; ++i) {
        if (i > 0 && !Next(at, ',')) return false;
        SkipBlanks(at);
        char* end = nullptr;
        const long value = std::strtol(at, &end, 10);
        if (end == at || value < 0 || value > 0x7FFFFFFF) return false;
        *v[i] = static_cast<LONG>(value);
        at = end;
    }
    return Next(at, ']') && box->left < box->right && box->top < box->bottom;
}

// [{"text": "word", "box": [left, top, right, bottom]}, ...]: the words that
// share a top make a line, in the order the lines first appear.
bool ParseWords(const char* at, std::vector<OcrLine>* lines) {
    std::map<LONG, size_t> index;
    if (!Next(at, '[')) return false;
    bool first = true;
    while (!Next(at, ']')) {
        if (!first && !Next(at, ',')) return false;
        first = false;
        OcrWord word;
        bool text = false, box = false;
        if (!Next(at, '{')) return false;
        for (bool firstKey = true; !Next(at, '}'); firstKey = false) {
            std::string key;
            if ((!firstKey && !Next(at, ',')) || !JsonText(at, &key) || !Next(at, ':')) return false;
            if (key == "text" && !text) {
                text = JsonText(at, &word.text);
                if (!text) return false;
            } else if (key == "box" && !box) {
                box = JsonBox(at, &word.box);
                if (!box) return false;
            } else {
                return false;
            }
        }
        if (!text || !box || word.text.empty()) return false;
        auto found = index.find(word.box.top);
        if (found == index.end()) found = index.emplace(word.box.top, lines->size()).first, lines->emplace_back();
        (*lines)[found->second].push_back(word);
    }
    SkipBlanks(at);
    return *at == '\0' && !lines->empty();
}

}  // namespace

int RecogniseTiff(const char* path, const char* language, const char* pageList) {
    HGLOBAL tiff = OpenVelmoraTIFF(path, 0x80000000u, 0);
    if (tiff == nullptr) return Fail(path);
    const DWORD count = CountTiffPages(tiff);
    std::vector<DWORD> pages;
    if (pageList == nullptr) {
        pages = AllPages(count);
    } else if (!ParsePages(pageList, count, &pages)) {
        std::fprintf(stderr, "velmora: %s: not pages of %s (%lu pages)\n", pageList, path,
                     static_cast<unsigned long>(count));
        CloseVelmoraTIFF(tiff);
        return 2;
    }
    std::error_code error;
    const std::filesystem::path directory = std::filesystem::temp_directory_path(error);
    const std::string base = (directory / ("velmora-ocr-" + std::to_string(std::random_device{}()))).string();
    const std::string bitmap = base + ".bmp";
    std::vector<HGLOBAL> records(count, nullptr);
    int result = 0;
    for (DWORD page : pages) {
        HGLOBAL dib = ReadVelmoraOpenTIFFDIB(tiff, page);
        if (dib == nullptr) {
            result = FailPage(path, page);
            break;
        }
        result = SaveImage(dib, bitmap.c_str());
        GlobalFree(dib);
        std::vector<OcrLine> lines;
        if (result == 0) result = Recognise(bitmap, base, language, &lines);
        std::remove(bitmap.c_str());
        std::remove((base + ".tsv").c_str());
        if (result != 0) break;
        if ((records[page - 1] = BuildOcrRecord(lines)) == nullptr) {
            std::fprintf(stderr, "velmora: page %lu: unusable recognised text\n", static_cast<unsigned long>(page));
            result = 1;
            break;
        }
    }
    CloseVelmoraTIFF(tiff);
    if (result == 0) result = StoreOcrRecords(path, records);
    FreeRecords(&records);
    return result;
}

int RunOcr(int argc, char** argv) {
    const char* path = nullptr;
    const char* language = "eng";
    const char* pageList = nullptr;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--lang") == 0 && i + 1 < argc) {
            language = argv[++i];
        } else if (std::strcmp(argv[i], "--pages") == 0 && i + 1 < argc) {
            pageList = argv[++i];
        } else if (path == nullptr && argv[i][0] != '-') {
            path = argv[i];
        } else {
            path = nullptr;
            break;
        }
    }
    // Language names (eng, deu+fra, chi_sim) go into a shell command as they are.
    if (path == nullptr || *language == '\0' ||
        std::strspn(language, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_+") !=
            std::strlen(language)) {
        std::fprintf(stderr, "usage: velmora ocr FILE.tif [--lang eng] [--pages LIST]\n");
        return 2;
    }
    return RecogniseTiff(path, language, pageList);
}

int RunOcrAttach(int argc, char** argv) {
    const char* path = nullptr;
    const char* words = nullptr;
    unsigned long page = 0;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--page") == 0 && i + 1 < argc) {
            if (!ParsePage(argv[++i], &page)) return 2;
        } else if (path == nullptr) {
            path = argv[i];
        } else if (words == nullptr) {
            words = argv[i];
        } else {
            words = nullptr;
            break;
        }
    }
    if (path == nullptr || words == nullptr || page == 0) {
        std::fprintf(stderr, "usage: velmora ocr-attach FILE.tif --page N WORDS.json\n");
        return 2;
    }
    std::ifstream in(words, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    std::vector<OcrLine> lines;
    if (!in || !ParseWords(text.str().c_str(), &lines)) {
        std::fprintf(stderr, "velmora: %s: not a list of {\"text\": ..., \"box\": [l, t, r, b]} words\n", words);
        return 2;
    }
    HGLOBAL tiff = OpenVelmoraTIFF(path, 0x80000000u, 0);
    if (tiff == nullptr) return Fail(path);
    const DWORD count = CountTiffPages(tiff);
    CloseVelmoraTIFF(tiff);
    if (!PageWithin(path, page, count)) return 2;
    std::vector<HGLOBAL> records(page, nullptr);
    records[page - 1] = BuildOcrRecord(lines);
    if (records[page - 1] == nullptr) {
        std::fprintf(stderr, "velmora: %s: a word is not UTF-8 text\n", words);
        return 2;
    }
    const int result = StoreOcrRecords(path, records);
    FreeRecords(&records);
    return result;
}

}  // namespace velmora_cli
