// velmora annotations: the annotations of each page of a TIFF file (its own
// block, the Wang and sheet-chunk blocks converted, and a ".art" companion's
// for pages without their own), each with where it came from and what the
// library tells of it: family, type, rectangle, border, fill, text and font,
// flags, groups and times.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "command.h"

namespace velmora_cli {
namespace {

struct Source {
    DWORD bit;
    const char* name;
};

// In the order the library collects them.
const Source kSources[] = {{VELMORA_ANNOTATION_SOURCE_OWN, "own"},
                           {VELMORA_ANNOTATION_SOURCE_WANG, "wang"},
                           {VELMORA_ANNOTATION_SOURCE_SHEET_CHUNKS, "sheet-chunks"},
                           {VELMORA_ANNOTATION_SOURCE_COMPANION, "companion"}};

const char* const kFamilyNames[] = {"unknown", "rectangle", "line", "freehand", "image", "ellipse"};

const char* TypeName(DWORD type) {
    switch (type) {
        case VELMORA_ANNOTATION_TYPE_ELLIPSE: return "ellipse";
        case VELMORA_ANNOTATION_TYPE_LINE: return "line";
        case VELMORA_ANNOTATION_TYPE_IMAGE: return "image";
        case VELMORA_ANNOTATION_TYPE_FREEHAND: return "freehand";
        case VELMORA_ANNOTATION_TYPE_RECTANGLE: return "rectangle";
        case VELMORA_ANNOTATION_TYPE_TEXT_LINE: return "line with text";
        case VELMORA_ANNOTATION_TYPE_MEASURE_LINE: return "measurement line";
        case VELMORA_ANNOTATION_TYPE_LINE_SUBTYPE3: return "special line";
        default: return "unknown";
    }
}

struct FlagName {
    bool object;  // a bit of objectFlags, else of flags
    DWORD bit;
    const char* name;
};

const FlagName kFlagNames[] = {
    {false, VELMORA_ANNOTATION_REDACTION, "redaction"}, {false, VELMORA_ANNOTATION_REDACTION2, "redaction2"},
    {false, VELMORA_ANNOTATION_LABEL, "label"},         {false, VELMORA_ANNOTATION_APPLIED, "applied"},
    {false, VELMORA_ANNOTATION_MARKER, "marker"},       {false, VELMORA_ANNOTATION_SELECTED, "selected"},
    {true, VELMORA_ANNOTATION_HIDDEN, "hidden"},        {true, VELMORA_ANNOTATION_PROTECTED1, "protected1"},
    {true, VELMORA_ANNOTATION_PROTECTED2, "protected2"}};

bool IsPending(const VelmoraAnnotationInfo& info) {
    return (info.flags & (VELMORA_ANNOTATION_REDACTION | VELMORA_ANNOTATION_REDACTION2)) != 0 &&
           (info.flags & (VELMORA_ANNOTATION_APPLIED | VELMORA_ANNOTATION_LABEL)) == 0;
}

// The flag names, "pending" first for a redaction that burning in blacks out.
std::vector<std::string> FlagNames(const VelmoraAnnotationInfo& info) {
    std::vector<std::string> names;
    if (IsPending(info)) names.push_back("pending");
    for (const FlagName& flag : kFlagNames) {
        if (((flag.object ? info.objectFlags : info.flags) & flag.bit) != 0) names.push_back(flag.name);
    }
    return names;
}

// UTF-16 as UTF-8; an unpaired surrogate becomes U+FFFD.
std::string Utf8(const WCHAR* text, size_t length) {
    std::string out;
    for (size_t i = 0; i < length; ++i) {
        unsigned long c = text[i];
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < length && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000) {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
        } else if (c >= 0xD800 && c < 0xE000) {
            c = 0xFFFD;
        }
        // The lead byte, then 0 to 3 continuation bytes of six bits each.
        const int more = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
        static const unsigned char kLead[] = {0x00, 0xC0, 0xE0, 0xF0};
        out += static_cast<char>(kLead[more] | c >> (6 * more));
        for (int k = more - 1; k >= 0; --k) out += static_cast<char>(0x80 | ((c >> (6 * k)) & 0x3F));
    }
    return out;
}

// The colour as "#RRGGBB" (quoted for JSON), or none / null.
std::string Color(COLORREF color, bool json) {
    if (color == VELMORA_COLOR_NONE) return json ? "null" : "none";
    char text[16];
    std::snprintf(text, sizeof text, json ? "\"#%02X%02X%02X\"" : "#%02X%02X%02X", static_cast<unsigned>(color & 0xFF),
                  static_cast<unsigned>((color >> 8) & 0xFF), static_cast<unsigned>((color >> 16) & 0xFF));
    return text;
}

bool Highlighter(COLORREF color) { return color != VELMORA_COLOR_NONE && (color & VELMORA_COLOR_HIGHLIGHTER) != 0; }

// The time as "YYYY-MM-DDTHH:MM:SSZ", empty for none.
std::string Time(const SYSTEMTIME& time) {
    if (time.wYear == 0) return "";
    char text[48];
    std::snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02uZ", time.wYear, time.wMonth, time.wDay, time.wHour,
                  time.wMinute, time.wSecond);
    return text;
}

std::string JsonTime(const SYSTEMTIME& time) {
    const std::string text = Time(time);
    return text.empty() ? "null" : JsonString(text.c_str());
}

std::string JsonList(const std::vector<std::string>& items) {
    std::string out = "[";
    for (const std::string& item : items) out += (out.size() > 1 ? ", " : "") + JsonString(item.c_str());
    return out + "]";
}

// One annotation described, with its text and group names.
struct Described {
    VelmoraAnnotationInfo info;
    std::string text;
    std::vector<std::string> groups;
};

// Annotation `index` of a stream; false when the call fails (error 2 past
// the last annotation).
bool Describe(HGLOBAL stream, DWORD size, DWORD index, Described* out) {
    std::vector<WCHAR> text(256), groups(256);
    for (;;) {
        VelmoraAnnotationInfo& info = out->info;
        info = VelmoraAnnotationInfo{};
        info.size = VELMORA_ANNOTATION_INFO_SIZE_V1;
        info.text = text.data();
        info.textCapacity = static_cast<DWORD>(text.size());
        info.groups = groups.data();
        info.groupsCapacity = static_cast<DWORD>(groups.size());
        if (!GetVelmoraAnnotationInfo(stream, size, index, &info)) return false;
        if (info.textLength < text.size() && info.groupsLength < groups.size()) break;
        text.resize(info.textLength + 1);
        groups.resize(info.groupsLength + 1);
    }
    out->text = Utf8(text.data(), out->info.textLength);
    out->groups.clear();
    for (const WCHAR* name = groups.data(); *name != 0;) {
        size_t length = 0;
        while (name[length] != 0) ++length;
        out->groups.push_back(Utf8(name, length));
        name += length + 1;
    }
    return true;
}

void PrintJson(const Described& d, long index, const char* source, bool first) {
    const VelmoraAnnotationInfo& i = d.info;
    const RECT& r = i.rect;
    std::printf(
        "%s{\"index\": %ld, \"source\": \"%s\", \"family\": \"%s\", \"type\": %lu, "
        "\"rect\": [%ld, %ld, %ld, %ld], \"border\": {\"style\": %u, \"width\": %u, \"color\": %s}, "
        "\"fill\": %s, \"fill2\": %s, \"highlighter\": %s, \"textColor\": %s, "
        "\"font\": {\"face\": %s, \"size\": %u}, \"rotation\": %u, \"text\": %s, \"flags\": %s, "
        "\"groups\": %s, \"created\": %s, \"changed\": %s",
        first ? "" : ", ", index, source, kFamilyNames[i.family <= 5 ? i.family : 0],
        static_cast<unsigned long>(i.type), static_cast<long>(r.left), static_cast<long>(r.top),
        static_cast<long>(r.right), static_cast<long>(r.bottom), i.borderStyle, i.borderWidth,
        Color(i.borderColor, true).c_str(), Color(i.fillColor, true).c_str(), Color(i.fillColor2, true).c_str(),
        Highlighter(i.fillColor) ? "true" : "false", Color(i.textColor, true).c_str(),
        JsonString(Utf8(i.fontFace, std::char_traits<WCHAR>::length(i.fontFace)).c_str()).c_str(), i.textSize,
        i.rotation, JsonString(d.text.c_str()).c_str(), JsonList(FlagNames(i)).c_str(), JsonList(d.groups).c_str(),
        JsonTime(i.created).c_str(), JsonTime(i.changed).c_str());
    if (i.family == VELMORA_ANNOTATION_FAMILY_LINE) {
        std::printf(", \"points\": [[%ld, %ld], [%ld, %ld]], \"ends\": %u", static_cast<long>(i.lineStart.x),
                    static_cast<long>(i.lineStart.y), static_cast<long>(i.lineEnd.x), static_cast<long>(i.lineEnd.y),
                    i.lineEnds);
    }
    std::printf("}");
}

void PrintLine(const Described& d, long index, const char* source) {
    const VelmoraAnnotationInfo& i = d.info;
    const RECT& r = i.rect;
    std::printf("  %ld: %s %s (type %lu) %ld,%ld,%ld,%ld; border style %u width %u %s; fill %s%s", index, source,
                TypeName(i.type), static_cast<unsigned long>(i.type), static_cast<long>(r.left),
                static_cast<long>(r.top), static_cast<long>(r.right), static_cast<long>(r.bottom), i.borderStyle,
                i.borderWidth, Color(i.borderColor, false).c_str(), Color(i.fillColor, false).c_str(),
                Highlighter(i.fillColor) ? " highlighter" : "");
    if (i.fillColor2 != VELMORA_COLOR_NONE) std::printf(" and %s", Color(i.fillColor2, false).c_str());
    if (i.family == VELMORA_ANNOTATION_FAMILY_LINE) {
        std::printf("; from %ld,%ld to %ld,%ld", static_cast<long>(i.lineStart.x), static_cast<long>(i.lineStart.y),
                    static_cast<long>(i.lineEnd.x), static_cast<long>(i.lineEnd.y));
    }
    if (i.fontFace[0] != 0 || !d.text.empty()) {
        std::printf("; text %s in %s %upt %s", JsonString(d.text.c_str()).c_str(),
                    Utf8(i.fontFace, std::char_traits<WCHAR>::length(i.fontFace)).c_str(), i.textSize,
                    Color(i.textColor, false).c_str());
    }
    if (i.rotation != 0) std::printf("; turned %u", i.rotation);
    std::string flags;
    for (const std::string& name : FlagNames(i)) flags += (flags.empty() ? "" : ",") + name;
    if (!flags.empty()) std::printf("; flags %s", flags.c_str());
    if (!d.groups.empty()) std::printf("; groups %s", JsonList(d.groups).c_str());
    const std::string created = Time(i.created);
    if (!created.empty()) std::printf("; created %s", created.c_str());
    std::printf("\n");
}

// The page's annotations, source by source, in the order of the collected
// stream.
bool CollectPage(HGLOBAL tiff, DWORD page, std::vector<std::pair<const char*, Described>>* out) {
    for (const Source& source : kSources) {
        HGLOBAL stream = nullptr;
        DWORD size = 0;
        if (!GetVelmoraTIFFAnnotationsEx(tiff, page, source.bit, &stream, &size)) return false;
        if (stream == nullptr) continue;
        Described described;
        DWORD index = 0;
        while (Describe(stream, size, index, &described)) {
            out->emplace_back(source.name, described);
            ++index;
        }
        const bool ended = GetLastVelmoraErrorCode() == 2;
        DestroyVelmoraAnnotations(stream);
        if (!ended) return false;
    }
    return true;
}

// Prints one page's annotations; false after reporting a failure.
bool PrintPage(HGLOBAL tiff, DWORD page, bool json, bool* first) {
    std::vector<std::pair<const char*, Described>> annotations;
    if (!CollectPage(tiff, page, &annotations)) return false;
    bool redactions = false;
    for (const auto& a : annotations) redactions = redactions || IsPending(a.second.info);
    const size_t count = annotations.size();
    if (json) {
        std::printf("%s{\"page\": %lu, \"redactions\": %s, \"annotations\": [", *first ? "" : ", ",
                    static_cast<unsigned long>(page), redactions ? "true" : "false");
    } else {
        std::printf("page %lu: %lu annotation%s%s\n", static_cast<unsigned long>(page),
                    static_cast<unsigned long>(count), count == 1 ? "" : "s",
                    redactions ? ", with pending redactions" : "");
    }
    *first = false;
    for (size_t i = 0; i < count; ++i) {
        if (json) {
            PrintJson(annotations[i].second, static_cast<long>(i), annotations[i].first, i == 0);
        } else {
            PrintLine(annotations[i].second, static_cast<long>(i), annotations[i].first);
        }
    }
    if (json) std::printf("]}");
    return true;
}

}  // namespace

int RunAnnotations(int argc, char** argv) {
    const char* path = nullptr;
    bool json = false;
    unsigned long only = 0;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--json") == 0) {
            json = true;
        } else if (std::strcmp(argv[i], "--page") == 0 && i + 1 < argc) {
            if (!ParsePage(argv[++i], &only)) return 2;
        } else if (path == nullptr) {
            path = argv[i];
        } else {
            path = nullptr;
            break;
        }
    }
    if (path == nullptr) {
        std::fprintf(stderr, "usage: velmora annotations FILE [--page N] [--json]\n");
        return 2;
    }
    HGLOBAL document = OpenVelmoraTIFFDocument(path);
    if (document == nullptr) return Fail(path);
    HGLOBAL tiff = GetVelmoraTIFFDocumentTIFF(document);
    const DWORD pages = CountTiffPages(tiff);
    if (!PageWithin(path, only, pages)) {
        CloseVelmoraTIFFDocument(document);
        return 2;
    }
    if (json) std::printf("{\"file\": %s, \"pages\": [", JsonString(path).c_str());
    bool first = true;
    int result = 0;
    for (DWORD page = only != 0 ? only : 1; page <= (only != 0 ? only : pages); ++page) {
        if (!PrintPage(tiff, page, json, &first)) {
            if (json) std::printf("\n");
            result = FailPage(path, page);
            break;
        }
    }
    if (json && result == 0) std::printf("]}\n");
    CloseVelmoraTIFFDocument(document);
    return result;
}

}  // namespace velmora_cli
