#include "pdf/document_info.h"

#include "frame/formatter.h"
#include "frame/library.h"
#include "platform/local_time.h"
#include "platform/platform.h"

namespace velmora {
namespace {

void SetDate(PdfObject* dictionary, const char* key, const char* date, ErrorRecord* record) {
    PdfDictionarySetString(dictionary, key, date, -1, false, record);
}

void NowText(char* date) {
    SYSTEMTIME local;
    platform::LocalNow(&local);
    int32_t bias = 0;
    bool known = platform::StandardZoneBias(&bias);
    FormatPdfDate(local, known, bias, date);
}

}  // namespace

size_t FormatPdfDate(const SYSTEMTIME& local, bool zoneKnown, int32_t bias, char* out) {
    size_t length = FormatNarrow(out, kPdfDateSize, "D:%04u%02u%02u%02u%02u%02u", local.wYear, local.wMonth, local.wDay,
                                 local.wHour, local.wMinute, local.wSecond);
    if (!zoneKnown) return length;
    if (bias == 0) return length + FormatNarrow(out + length, kPdfDateSize - length, "Z");
    uint32_t minutes = bias < 0 ? 0u - static_cast<uint32_t>(bias) : static_cast<uint32_t>(bias);
    return length + FormatNarrow(out + length, kPdfDateSize - length, "%c%02u'%02u'", bias < 0 ? '-' : '+',
                                 minutes / 60, minutes % 60);
}

void PdfDictionarySetDate(PdfObject* dictionary, const char* key, ErrorRecord* record) {
    char date[kPdfDateSize];
    NowText(date);
    SetDate(dictionary, key, date, record);
}

PdfObject* MakeDocumentInformation(ErrorRecord* record) {
    char producer[128];
    uint32_t error = 0;
    if (!platform::WideToNarrow(VersionText().c_str(), producer, sizeof producer, &error)) producer[0] = 0;
    char date[kPdfDateSize];
    NowText(date);
    PdfObject* info = PdfMakeDictionary(record);
    if (info == nullptr) return nullptr;
    PdfDictionarySetString(info, "Creator", producer, -1, false, record);
    PdfDictionarySetString(info, "Producer", producer, -1, false, record);
    SetDate(info, "CreationDate", date, record);
    SetDate(info, "ModDate", date, record);
    if (record->failed()) {
        PdfFreeObject(info);
        return nullptr;
    }
    return info;
}

void UpdateModificationDate(PdfDocument* document, ErrorRecord* record) {
    if (record->failed()) return;
    if (document->info.number == 0) {
        PdfObject* info = PdfMakeDictionary(record);
        uint32_t number = NewPdfObjectNumber(document, record);
        SetPdfObject(document, number, info, record);
        if (record->failed()) return;
        document->info = {number, 0};
    }
    PdfObject* info = PdfLoadedObject(document, document->info.number);
    if (info == nullptr) return;
    PdfDictionarySetDate(info, "ModDate", record);
    MarkPdfObjectChanged(document, document->info.number);
}

}  // namespace velmora
