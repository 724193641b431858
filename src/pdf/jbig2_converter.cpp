#include "pdf/jbig2_converter.h"

#include <cstring>

#include "dib/color_conversion.h"
#include "dib/dib_layout.h"
#include "dib/image.h"
#include "frame/checked_array.h"
#include "io/file_names.h"
#include "io/stream.h"
#include "pdf/image_page.h"
#include "platform/platform.h"
#include "tiff/page_decoder.h"
#include "tiff/page_info.h"
#include "tiff/page_writer.h"

namespace velmora {
namespace {

constexpr uint16_t kUnableToRunProgramId = 431;
constexpr char kEntryName[] = "i2pdfocr";

std::u16string& ConverterPath() {
    static std::u16string path;
    return path;
}

// Whether `c` ends a PDF name: white space or a delimiter.
bool EndsName(uint8_t c) { return std::strchr(" \t\r\n\f()<>[]{}/%", c) != nullptr || c == 0; }

// Appends page `page` of `tiff` to `out` as a bi-level page.
bool AppendBilevelPage(TiffFile* out, TiffDocument* tiff, uint32_t page, const Jbig2Choices& choices,
                       ErrorRecord* record) {
    const uint32_t ifd = PageImageIfd(tiff, page);
    TiffPageInfo info;
    if (!ReadPageInfo(tiff->tiff, ifd, kReadStructure, &info, record)) return false;
    const bool bilevel = info.bitsPerSample == 1 && info.samplesPerPixel == 1 && info.photometric <= 1;
    const bool invert = info.photometric == 1 && choices.whiteIsZero;
    FreePageInfo(&info);
    PageWriteOptions options;
    if (bilevel && !invert) return AppendTiffPage(out, tiff->tiff, ifd, options, record);

    HGLOBAL dib = ReadUprightPage(tiff->tiff, ifd, 0, nullptr, record);
    if (dib == nullptr) return false;
    BITMAPINFOHEADER* header = LockImage(dib);
    PageKind kind = PageKind::Palette;
    if (!DibPageKind(header, &kind) || kind != PageKind::BiLevel) {
        header = ReplaceWithBilevel(&dib, header, choices.dither, record);
        if (header == nullptr) return false;
    }
    options.compression = VELMORA_COMPRESSION_GROUP4;
    AppendDibPage(out, nullptr, header, PackedBits(header), options, record);
    UnlockImage(dib);
    FreeImage(&dib);
    return record->ok();
}

// Writes every page of `tiff` bi-level to the new TIFF file at `path`.
bool WriteBilevelTiff(TiffDocument* tiff, const std::u16string& path, const Jbig2Choices& choices,
                      ErrorRecord* record) {
    TiffFile* out = OpenTiffFile(path.c_str(), kStreamRead | kStreamWrite, true, record);
    if (out == nullptr) return false;
    for (uint32_t page = 1; page <= tiff->pageCount && record->ok(); ++page) {
        AppendBilevelPage(out, tiff, page, choices, record);
    }
    CloseTiff(out, record);
    return record->ok();
}

// `path` in the code page the converter reads, appended to `command` in
// double quotes.
bool AppendQuoted(const std::u16string& path, CheckedArray<char>* command, ErrorRecord* record) {
    CheckedArray<char> narrow;
    const uint64_t room = 4 * uint64_t{path.size()} + 1;
    uint32_t error = 0;
    if (!narrow.Sized(room, record)) return false;
    if (!platform::WideToNarrow(path.c_str(), narrow.data(), narrow.size(), &error)) {
        SetRecordError(record, error, 0);
        return false;
    }
    bool ok = command->Append('"', record);
    for (const char* c = narrow.data(); *c != '\0' && ok; ++c) ok = command->Append(*c, record);
    return ok && command->Append('"', record);
}

bool AppendText(const char* text, CheckedArray<char>* command, ErrorRecord* record) {
    for (; *text != '\0'; ++text) {
        if (!command->Append(*text, record)) return false;
    }
    return true;
}

// Runs the converter on the TIFF at `input`, checks its PDF at `output` and
// copies that to `destination`.
bool RunConverter(Jbig2Entry entry, const std::u16string& input, const std::u16string& output, uint32_t pages,
                  const std::u16string& destination, bool checkColor, ErrorRecord* record) {
    CheckedArray<char> command;
    if (!AppendText(checkColor ? "-chkbwcolor -bwimg 2 " : "-bwimg 2 ", &command, record) ||
        !AppendQuoted(input, &command, record) || !command.Append(' ', record) ||
        !AppendQuoted(output, &command, record) || !command.Append('\0', record)) {
        return false;
    }
    CheckedArray<uint8_t> pdf;
    if (entry(command.data()) != 0 || !ReadWholeFile(output.c_str(), &pdf, record) ||
        CountPdfPageObjects(pdf.data(), pdf.size()) != pages) {
        SetRecordError(record, kErrGeneral, 0);
        return false;
    }
    Stream* out = OpenFileStream(destination.c_str(), kStreamWrite, false, true, record);
    if (out == nullptr) return false;
    StreamWrite(out, pdf.data(), static_cast<uint32_t>(pdf.size()), record);
    CloseStream(out, record);
    return record->ok();
}

}  // namespace

void SetJbig2ConverterPath(const std::u16string& path) { ConverterPath() = path; }

Jbig2Entry LoadJbig2Converter(void** module, ErrorRecord* record) {
    *module = nullptr;
    if (record->failed()) return nullptr;
    const std::u16string name = ConverterPath().empty() ? platform::SharedLibraryName(u"i2pocrsdk") : ConverterPath();
    uint32_t error = 0;
    *module = platform::LoadModule(name, &error);
    void* entry = *module == nullptr ? nullptr : platform::ModuleSymbol(*module, kEntryName);
    if (entry == nullptr) {
        platform::UnloadModule(*module);
        *module = nullptr;
        SetRecordError(record, kErrFunctionDisabled, kUnableToRunProgramId, name.c_str());
        return nullptr;
    }
    return reinterpret_cast<Jbig2Entry>(entry);
}

bool ConvertThroughJbig2(Jbig2Entry entry, TiffDocument* tiff, const std::u16string& destination,
                         const Jbig2Choices& choices, ErrorRecord* record) {
    if (record->failed()) return false;
    std::u16string input;
    std::u16string output;
    if (MakeTempFile(nullptr, kTempPrefixId, u".tif", &input, record) &&
        WriteBilevelTiff(tiff, input, choices, record) &&
        MakeTempFile(nullptr, kTempPrefixId, u".pdf", &output, record)) {
        RunConverter(entry, input, output, tiff->pageCount, destination, choices.checkColor, record);
    }
    for (const std::u16string* temporary : {&input, &output}) {
        ErrorRecord ignored;
        if (!temporary->empty()) DeleteFileName(temporary->c_str(), &ignored);
    }
    return record->ok();
}

uint32_t CountPdfPageObjects(const uint8_t* bytes, size_t size) {
    static const char kType[] = "/Type";
    static const char kPage[] = "/Page";
    uint32_t count = 0;
    for (size_t at = 0; at + 10 <= size; ++at) {
        if (std::memcmp(bytes + at, kType, 5) != 0) continue;
        size_t next = at + 5;
        while (next < size && std::strchr(" \t\r\n\f", bytes[next]) != nullptr && bytes[next] != 0) ++next;
        if (next + 5 <= size && std::memcmp(bytes + next, kPage, 5) == 0 &&
            (next + 5 == size || EndsName(bytes[next + 5]))) {
            ++count;
        }
    }
    return count;
}

}  // namespace velmora
