// Exported functions of the TIFF family: opening and closing TIFF files on
// disk and in memory, page queries, reading pages as DIBs, resolution and
// scale values, and document types.
#include <cstring>
#include <string>
#include <vector>

#include "dib/image.h"
#include "frame/progress.h"
#include "frame/export_call.h"
#include "frame/memory_handle.h"
#include "frame/wide_text.h"
#include "io/stream.h"
#include "platform/platform.h"
#include "tiff/document_type.h"
#include "tiff/exact_fraction.h"
#include "tiff/compression.h"
#include "tiff/page_decoder.h"
#include "tiff/page_info.h"
#include "tiff/tiff_file.h"
#include "velmora/velmora.h"

using velmora::ErrorRecord;
using velmora::ExportCall;
using velmora::Fraction;
using velmora::FromHost;
using velmora::TiffFile;
using velmora::TiffPageInfo;

namespace {

constexpr DWORD kAccessRead = 0x80000000u;
constexpr DWORD kAccessWrite = 0x40000000u;
constexpr uint32_t kReadInformation = velmora::kReadStructure;
constexpr uint32_t kErrNotFound = 1168;  // ERROR_NOT_FOUND

// The information of a page with the fields given, read for one export and
// freed with it; ok() is false with the record set when it could not be read.
class PageRead {
public:
    PageRead(TiffFile* tiff, DWORD page, ErrorRecord* record, std::initializer_list<uint32_t> fields) {
        for (uint32_t field : fields) velmora::SetWanted(&info_, field);
        ok_ = velmora::ReadPageInfo(tiff, page, kReadInformation, &info_, record);
    }
    ~PageRead() { velmora::FreePageInfo(&info_); }
    PageRead(const PageRead&) = delete;
    PageRead& operator=(const PageRead&) = delete;
    bool ok() const { return ok_; }
    const TiffPageInfo* operator->() const { return &info_; }
    const TiffPageInfo& operator*() const { return info_; }

private:
    TiffPageInfo info_;
    bool ok_ = false;
};

HGLOBAL OpenTiff(const char16_t* name, DWORD access, DWORD create) {
    ExportCall call;
    if (!call.Value(access != 0 && (access & ~(kAccessRead | kAccessWrite)) == 0)) return nullptr;
    TiffFile* tiff = name != nullptr ? velmora::OpenTiffFile(name, access, create != 0, &call.record)
                                     : velmora::OpenMemoryTiff(&call.record);
    if (!call.Finish()) return nullptr;
    return velmora::TiffHandle(tiff);
}

constexpr uint32_t kUnitNone = 1;
constexpr uint32_t kLastUnit = 17;

bool IsUnit(uint32_t unit) { return unit >= kUnitNone && unit <= kLastUnit; }

bool IsComplete(const VelmoraResolutionScale& value) {
    return value.xNumerator != 0 && value.xDenominator != 0 && value.yNumerator != 0 && value.yDenominator != 0 &&
           IsUnit(value.unit);
}

Fraction Horizontal(const VelmoraResolutionScale& value) { return Fraction{value.xNumerator, value.xDenominator}; }
Fraction Vertical(const VelmoraResolutionScale& value) { return Fraction{value.yNumerator, value.yDenominator}; }

void Store(VelmoraResolutionScale* out, Fraction x, Fraction y, uint32_t unit) {
    out->xDenominator = x.denominator;
    out->xNumerator = x.numerator;
    out->yDenominator = y.denominator;
    out->yNumerator = y.numerator;
    out->unit = static_cast<WORD>(unit);
}

}  // namespace

BOOL VELMORA_API ConvertVelmoraTIFFResolutionScale(VelmoraResolutionScale* value, LONG newUnit) {
    ExportCall call;
    if (!call.Gate() || !call.Writable(value, sizeof *value)) return 0;
    uint32_t target = static_cast<uint32_t>(newUnit);
    if (!call.Value(IsComplete(*value) && IsUnit(target) && (value->unit != kUnitNone || target == kUnitNone))) {
        return 0;
    }
    if (value->unit == target) return 1;
    if (target == kUnitNone) {
        value->unit = static_cast<WORD>(target);
        return 1;
    }
    // Pixels per old unit, divided by the old unit's length, times the new
    // unit's length: pixels per new unit.
    Fraction oldLength, newLength;
    velmora::UnitLengthInMillimetres(value->unit, &oldLength);
    velmora::UnitLengthInMillimetres(target, &newLength);
    Fraction x =
        velmora::Multiply(velmora::Divide(Horizontal(*value), oldLength, &call.record), newLength, &call.record);
    Fraction y = velmora::Multiply(velmora::Divide(Vertical(*value), oldLength, &call.record), newLength, &call.record);
    if (call.record.ok()) Store(value, x, y, target);
    return call.Finish();
}

BOOL VELMORA_API MultiplyVelmoraTIFFResolutionScale(VelmoraResolutionScale* value, DWORD numerator, DWORD denominator) {
    ExportCall call;
    if (!call.Gate() || !call.Writable(value, sizeof *value)) return 0;
    if (!call.Value(value->xNumerator != 0 && value->xDenominator != 0 && value->yNumerator != 0 &&
                    value->yDenominator != 0 && numerator != 0 && denominator != 0)) {
        return 0;
    }
    Fraction factor{numerator, denominator};
    Fraction x = velmora::Multiply(Horizontal(*value), factor, &call.record);
    Fraction y = velmora::Multiply(Vertical(*value), factor, &call.record);
    if (call.record.ok()) Store(value, x, y, value->unit);
    return call.Finish();
}

BOOL VELMORA_API SetVelmoraTIFFResolutionScale(VelmoraResolutionScale* value, DWORD xNumerator, DWORD xDenominator,
                                               DWORD yNumerator, DWORD yDenominator, DWORD unit) {
    ExportCall call;
    if (!call.Gate() ||
        !call.Value(xNumerator != 0 && xDenominator != 0 && yNumerator != 0 && yDenominator != 0 && IsUnit(unit)) ||
        !call.Writable(value, sizeof *value)) {
        return 0;
    }
    Store(value, velmora::Reduce(Fraction{xNumerator, xDenominator}),
          velmora::Reduce(Fraction{yNumerator, yDenominator}), unit);
    value->reserved = 0;
    return 1;
}

BOOL VELMORA_API VelmoraDoubleToURational(double value, DWORD* numerator, DWORD* denominator) {
    ExportCall call;
    if (!call.Gate() || !call.Value(!(value < 0)) || !call.Out(numerator) || !call.Out(denominator)) {
        return 0;
    }
    Fraction result = velmora::FractionFromDouble(value, &call.record);
    if (call.record.ok()) {
        *numerator = result.numerator;
        *denominator = result.denominator;
    }
    return call.Finish();
}

HGLOBAL VELMORA_API OpenVelmoraTIFF(LPCSTR name, DWORD access, DWORD create) {
    ExportCall call;
    if (!call.Gate() || (name != nullptr && !call.String(name))) return nullptr;
    if (name == nullptr) return OpenTiff(nullptr, access, create);
    std::u16string wide;
    if (!call.Widen(name, &wide)) {
        call.Finish();
        return nullptr;
    }
    return OpenTiff(wide.c_str(), access, create);
}

HGLOBAL VELMORA_API OpenVelmoraTIFFW(LPCWSTR name, DWORD access, DWORD create) {
    ExportCall call;
    if (!call.Gate() || (name != nullptr && !call.String(FromHost(name)))) return nullptr;
    return OpenTiff(FromHost(name), access, create);
}

BOOL VELMORA_API CloseVelmoraTIFF(HGLOBAL handle) {
    ExportCall call;
    TiffFile* tiff;
    if (!call.Gate() || (tiff = call.Object(handle, velmora::TiffFromHandle)) == nullptr) return 0;
    velmora::Stream* stream = velmora::CloseTiff(tiff, &call.record);
    // A memory TIFF's data goes with it.
    if (stream != nullptr) {
        HGLOBAL data = velmora::CloseStream(stream, &call.record);
        velmora::FreeHandle(&data);
    }
    return call.Finish();
}

BOOL VELMORA_API CloseMemoryVelmoraTIFF(HGLOBAL handle, HGLOBAL* memory, DWORD* size) {
    ExportCall call;
    TiffFile* tiff;
    if (!call.Gate() || (tiff = call.Object(handle, velmora::TiffFromHandle)) == nullptr ||
        !call.Writable(memory, sizeof *memory) || !call.Writable(size, sizeof *size)) {
        return 0;
    }
    *memory = nullptr;
    *size = 0;
    // Errors finishing the TIFF do not keep its data from the caller.
    velmora::Stream* stream = velmora::CloseTiff(tiff, nullptr);
    if (stream != nullptr) {
        uint32_t length = velmora::StreamSize(stream, &call.record);
        HGLOBAL data = velmora::CloseStream(stream, &call.record);
        if (call.record.ok() && length != 0) {
            *memory = data;
            *size = length;
        } else {
            velmora::FreeHandle(&data);
        }
    }
    return call.Finish();
}

LONG VELMORA_API SetMemoryVelmoraTIFFSize(HGLOBAL handle, LONG capacity, LONG reserve) {
    ExportCall call;
    TiffFile* tiff;
    if (!call.Gate() || (tiff = call.Object(handle, velmora::TiffFromHandle)) == nullptr) return -1;
    velmora::Stream* stream = velmora::GetTiffStream(tiff);
    if (!call.Value(velmora::StreamIsMemory(stream) && capacity >= 0)) return -1;
    velmora::SetMemoryStreamSize(stream, static_cast<uint32_t>(capacity), reserve, &call.record);
    uint32_t length = velmora::StreamSize(stream, &call.record);
    return call.Finish() ? static_cast<LONG>(length) : -1;
}

BOOL VELMORA_API GetVelmoraTIFFSize(HGLOBAL handle, DWORD page, DWORD* width, DWORD* length) {
    ExportCall call;
    TiffFile* tiff;
    if (!call.Gate() || (tiff = call.Object(handle, velmora::TiffFromHandle)) == nullptr || !call.Value(page != 0) ||
        !call.Out(width) || !call.Out(length)) {
        return 0;
    }
    PageRead info(tiff, page, &call.record, {velmora::kFieldImageWidth, velmora::kFieldImageLength});
    if (info.ok()) {
        *width = info->width;
        *length = info->length;
    }
    return call.Finish();
}

BOOL VELMORA_API IsVelmoraTIFFTiled(HGLOBAL handle, DWORD page, DWORD* tiled) {
    ExportCall call;
    TiffFile* tiff;
    if (!call.Gate() || (tiff = call.Object(handle, velmora::TiffFromHandle)) == nullptr || !call.Value(page != 0) ||
        !call.Out(tiled)) {
        return 0;
    }
    PageRead info(tiff, page, &call.record, {velmora::kFieldImage});
    if (info.ok()) {
        if (info->tiled) *tiled = 0xFFFFFFFFu;
    }
    return call.Finish();
}

BOOL VELMORA_API GetVelmoraTIFFCompression(HGLOBAL handle, DWORD page, WORD* code) {
    ExportCall call;
    TiffFile* tiff;
    if (!call.Gate() || (tiff = call.Object(handle, velmora::TiffFromHandle)) == nullptr || !call.Value(page != 0) ||
        !call.Writable(code, sizeof *code)) {
        return 0;
    }
    *code = VELMORA_COMPRESSION_OTHER;
    PageRead info(tiff, page, &call.record, {velmora::kFieldImage});
    if (info.ok()) {
        const velmora::TiffCompression* compression = velmora::FindCompression(info->compression);
        if (compression != nullptr) *code = compression->reported;
    }
    return call.Finish();
}

LONG VELMORA_API GetVelmoraTIFFPhotoInt(HGLOBAL handle, DWORD page) {
    ExportCall call;
    TiffFile* tiff;
    if (!call.Gate() || (tiff = call.Object(handle, velmora::TiffFromHandle)) == nullptr || !call.Value(page != 0))
        return -1;
    PageRead info(tiff, page, &call.record, {velmora::kFieldPhotometric});
    LONG result = -1;
    if (info.ok()) {
        uint16_t p = info->photometric;
        result = (p <= 6 || p == 8) ? p : -2;
    }
    return call.Finish() ? result : -1;
}

namespace {

// The colour type of a page from its photometric interpretation, samples and
// colour map (the high byte of each entry).
LONG PageColourType(const TiffPageInfo& info) {
    const uint16_t bits = info.bitsPerSample;
    const uint16_t photometric = info.photometric;
    const bool oneSample = info.samplesPerPixel == 1;
    if ((photometric == 0 || photometric == 1) && oneSample) {
        if (bits == 1) return 0;
        if (bits == 4) return 2;
        if (bits == 8) return 4;
    }
    if (photometric == 3 && oneSample && (bits == 1 || bits == 4 || bits == 8)) {
        uint32_t n = 1u << bits;
        const uint64_t* map = info.colorMap.values;
        bool greys = map != nullptr && info.colorMap.count >= 3 * n;
        bool blackWhite = greys;
        for (uint32_t i = 0; greys && i < n; ++i) {
            uint64_t r = map[i] >> 8, g = map[n + i] >> 8, b = map[2 * n + i] >> 8;
            greys = r == g && g == b;
            blackWhite = blackWhite && greys && (r == 0 || r == 0xFF);
        }
        if (bits == 1) return blackWhite ? 0 : 1;
        if (bits == 4) return greys ? 2 : 3;
        return greys ? 4 : 5;
    }
    if (photometric == 2 && info.samplesPerPixel == 3 && bits == 8) return 6;
    if (photometric == 6 && info.samplesPerPixel == 3 && bits == 8) return 7;
    return 8;
}

// A resolution pair as a host record; an absent direction gets a first field
// of 0.
void StoreResolution(VelmoraResolutionScale* out, velmora::TiffRational x, velmora::TiffRational y, bool anyPresent,
                     uint16_t unit) {
    std::memset(out, 0, sizeof *out);
    out->xDenominator = x.denominator;
    out->xNumerator = x.numerator;
    out->yDenominator = y.denominator;
    out->yNumerator = y.numerator;
    out->unit = anyPresent ? unit : 1;
}

}  // namespace

LONG VELMORA_API GetVelmoraTIFFColorType(HGLOBAL handle, DWORD page) {
    ExportCall call;
    TiffFile* tiff;
    if (!call.Gate() || (tiff = call.Object(handle, velmora::TiffFromHandle)) == nullptr || !call.Value(page != 0))
        return -1;
    PageRead info(tiff, page, &call.record, {velmora::kFieldImage});
    LONG result = -1;
    if (info.ok()) {
        result = PageColourType(*info);
    }
    return call.Finish() ? result : -1;
}

BOOL VELMORA_API GetVelmoraTIFFResolution(HGLOBAL handle, DWORD page, VelmoraResolutionScale* resolution) {
    ExportCall call;
    TiffFile* tiff;
    if (!call.Gate() || (tiff = call.Object(handle, velmora::TiffFromHandle)) == nullptr || !call.Value(page != 0) ||
        !call.Out(resolution)) {
        return 0;
    }
    PageRead info(tiff, page, &call.record, {velmora::kFieldXResolution, velmora::kFieldYResolution});
    if (info.ok()) {
        bool x = velmora::IsPresent(&*info, velmora::kFieldXResolution);
        bool y = velmora::IsPresent(&*info, velmora::kFieldYResolution);
        StoreResolution(resolution, x ? info->xResolution : velmora::TiffRational{},
                        y ? info->yResolution : velmora::TiffRational{}, x || y, info->resolutionUnit);
    }
    return call.Finish();
}

BOOL VELMORA_API GetVelmoraTIFFScale(HGLOBAL handle, DWORD page, VelmoraResolutionScale* scale) {
    ExportCall call;
    TiffFile* tiff;
    if (!call.Gate() || (tiff = call.Object(handle, velmora::TiffFromHandle)) == nullptr || !call.Value(page != 0) ||
        !call.Out(scale)) {
        return 0;
    }
    PageRead info(tiff, page, &call.record, {velmora::kFieldXScale, velmora::kFieldYScale});
    if (info.ok()) {
        bool x = velmora::IsPresent(&*info, velmora::kFieldXScale);
        bool y = velmora::IsPresent(&*info, velmora::kFieldYScale);
        StoreResolution(scale, x ? info->xScale : velmora::TiffRational{}, y ? info->yScale : velmora::TiffRational{},
                        x || y, info->scaleUnit);
    }
    return call.Finish();
}

namespace {

// "YYYY:MM:DD HH:MM:SS" (a colon also in place of the space).
bool ParseDateTime(const char* text, size_t size, VelmoraTIFFDateTime* out) {
    static const char kShape[] = "dddd:dd:dd?dd:dd:dd";
    if (size < 19) return false;
    for (size_t i = 0; i < 19; ++i) {
        char c = text[i];
        bool ok = kShape[i] == 'd' ? (c >= '0' && c <= '9') : kShape[i] == ':' ? c == ':' : (c == ' ' || c == ':');
        if (!ok) return false;
    }
    auto number = [&](size_t at, size_t digits) {
        unsigned v = 0;
        for (size_t i = 0; i < digits; ++i) v = v * 10 + static_cast<unsigned>(text[at + i] - '0');
        return v;
    };
    unsigned month = number(5, 2), day = number(8, 2), hour = number(11, 2), minute = number(14, 2),
             second = number(17, 2);
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 59) return false;
    out->day = static_cast<BYTE>(day);
    out->hour = static_cast<BYTE>(hour);
    out->minute = static_cast<BYTE>(minute);
    out->month = static_cast<BYTE>(month);
    out->second = static_cast<BYTE>(second);
    out->reserved = 0;
    out->year = static_cast<WORD>(number(0, 4));
    return true;
}

}  // namespace

BOOL VELMORA_API GetVelmoraTIFFDateTime(HGLOBAL handle, DWORD page, VelmoraTIFFDateTime* dateTime, HGLOBAL* text) {
    if (text != nullptr) *text = nullptr;
    ExportCall call;
    TiffFile* tiff;
    if (!call.Gate() || (tiff = call.Object(handle, velmora::TiffFromHandle)) == nullptr || !call.Value(page != 0) ||
        !call.Out(dateTime) || !call.Out(text)) {
        return 0;
    }
    PageRead info(tiff, page, &call.record, {velmora::kFieldDateTime});
    if (info.ok()) {
        if (!velmora::IsPresent(&*info, velmora::kFieldDateTime) || info->dateTime.handle == nullptr) {
            velmora::SetRecordError(&call.record, kErrNotFound, 0);
        } else {
            auto* raw = static_cast<const char*>(velmora::platform::MemLock(info->dateTime.handle));
            size_t length = raw != nullptr ? strnlen(raw, info->dateTime.size) : 0;
            if (raw != nullptr && !ParseDateTime(raw, length, dateTime)) {
                std::memset(dateTime, 0, sizeof *dateTime);
                HGLOBAL copy = velmora::AllocHandle(length + 1, GMEM_ZEROINIT, &call.record);
                if (copy != nullptr) {
                    std::memcpy(velmora::platform::MemLock(copy), raw, length);
                    velmora::platform::MemUnlock(copy);
                    *text = copy;
                }
            }
            if (raw != nullptr) velmora::platform::MemUnlock(info->dateTime.handle);
        }
    }
    return call.Finish();
}

LONG VELMORA_API GetVelmoraTIFFIFDSize(HGLOBAL handle, DWORD page) {
    ExportCall call;
    TiffFile* tiff;
    if (!call.Gate() || (tiff = call.Object(handle, velmora::TiffFromHandle)) == nullptr || !call.Value(page != 0))
        return -1;
    uint64_t size = velmora::GetPageDirectorySize(tiff, page, &call.record);
    if (call.record.ok() && size > 0x7FFFFFFF) velmora::SetRecordError(&call.record, velmora::kErrBadFileData, 0);
    return call.Finish() ? static_cast<LONG>(size) : -1;
}

BOOL VELMORA_API GetVelmoraTIFFOCRText(HGLOBAL handle, DWORD page, HGLOBAL* text, LPDWORD size) {
    ExportCall call;
    if (!call.Gate() || !call.Handle(handle) || !call.Value(page != 0) || !call.Out(text) || !call.Out(size)) {
        return 0;
    }
    // Reading OCR text is not part of this edition.
    ExportCall::Fail(velmora::kErrCallNotImplemented);
    return 0;
}

BOOL VELMORA_API OCRVelmoraTIFF(UINT_PTR value1, UINT_PTR value2, UINT_PTR value3, UINT_PTR value4) {
    struct Request {
        WORD size;
        WORD reserved;
        UINT_PTR values[4];
        BYTE rest[44 - 4 - 4 * 4];
    } request = {};
    request.size = 44;
    request.values[0] = value1;
    request.values[1] = value2;
    request.values[2] = value3;
    request.values[3] = value4;
    return OCRVelmoraTIFFEx(&request) != nullptr;
}

HGLOBAL VELMORA_API ReadVelmoraOpenTIFFDIBProgress(HGLOBAL tiff, DWORD page, VelmoraProgressProc progress,
                                                   UINT_PTR user) {
    VelmoraReadTIFFDIB request = {};
    request.size = VELMORA_READ_TIFF_DIB_SIZE_V2;
    request.tiff = tiff;
    request.page = page;
    request.progress = progress;
    request.progressUser = user;
    return ReadVelmoraOpenTIFFDIBEx(&request);
}

HGLOBAL VELMORA_API ReadVelmoraOpenTIFFDIB(HGLOBAL tiff, DWORD page) {
    return ReadVelmoraOpenTIFFDIBProgress(tiff, page, nullptr, 0);
}

HGLOBAL VELMORA_API ReadVelmoraTIFFDIB(LPCSTR name, DWORD page) {
    HGLOBAL tiff = OpenVelmoraTIFF(name, kAccessRead, 0);
    if (tiff == nullptr) return nullptr;
    HGLOBAL dib = ReadVelmoraOpenTIFFDIBProgress(tiff, page, nullptr, 0);
    // A successful close leaves a failed read's error in place.
    CloseVelmoraTIFF(tiff);
    return dib;
}

namespace {

LONG DocumentTypeOfFile(const std::u16string& path) {
    ErrorRecord record;
    uint32_t error = 0;
    velmora::platform::FileHandle file = velmora::platform::FileOpen(path, velmora::platform::FileAccess::Read, &error);
    if (file == velmora::platform::kNoFile) {
        velmora::SetRecordError(&record, error, 0);
        velmora::FinishWithRecord(record);
        return -1;
    }
    uint8_t bytes[velmora::kDocumentProbeBytes];
    size_t got = 0;
    bool read = velmora::platform::FileRead(file, bytes, sizeof bytes, &got, &error);
    velmora::platform::FileClose(file);
    if (!read) {
        velmora::SetRecordError(&record, error, 0);
        velmora::FinishWithRecord(record);
        return -1;
    }
    return velmora::DocumentTypeOfBytes(bytes, got);
}

}  // namespace

LONG VELMORA_API GetVelmoraDocumentType(LPCSTR name) {
    ExportCall call;
    std::u16string wide;
    if (!call.Gate() || !call.Widen(name, &wide)) {
        call.Finish();
        return -1;
    }
    return DocumentTypeOfFile(wide);
}

LONG VELMORA_API GetVelmoraDocumentTypeW(LPCWSTR name) {
    ExportCall call;
    if (!call.Gate() || !call.String(FromHost(name))) return -1;
    return DocumentTypeOfFile(FromHost(name));
}

LONG VELMORA_API GetVelmoraDocumentTypeFromExtension(LPCSTR name) {
    ExportCall call;
    if (!call.Gate() || !call.String(name)) return -1;
    const char* dot = std::strrchr(name, '.');
    if (!call.Value(dot != nullptr)) return -1;
    return velmora::DocumentTypeOfExtension(velmora::platform::WideFromUtf8(dot + 1));
}

LONG VELMORA_API GetVelmoraDocumentTypeCaps(LONG type) {
    ExportCall call;
    if (!call.Gate()) return -1;
    int32_t caps = velmora::DocumentTypeCapabilities(type);
    if (!call.Value(caps >= 0)) return -1;
    return caps;
}

