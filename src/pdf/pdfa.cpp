// PDF/A-1b objects of a new document: the output profile and the metadata.
#include "pdf/pdfa.h"

#include <cstring>
#include <string>

#include "io/stream.h"
#include "pdf/indirect_object.h"
#include "pdf/pdf_object.h"
#include "platform/platform.h"

namespace velmora {
namespace {

constexpr uint32_t kPaddingLine = 100;

static const char kPacketHead[] =
    "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
    "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">\n"
    "<rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n"
    "<rdf:Description rdf:about=\"\"\n"
    "xmlns:pdfaid=\"http://www.aiim.org/pdfa/ns/id/\">\n"
    "<pdfaid:part>1</pdfaid:part>\n"
    "<pdfaid:conformance>B</pdfaid:conformance>\n"
    "</rdf:Description>\n";
static const char kPacketTail[] = "</rdf:RDF>\n</x:xmpmeta>\n<?xpacket end=\"w\"?>";

void Append(CheckedArray<uint8_t>* packet, size_t* at, const void* bytes, size_t size) {
    std::memcpy(packet->data() + *at, bytes, size);
    *at += size;
}

// Reads the whole sRGB profile of the system into `profile`.
void ReadSrgbProfile(CheckedArray<uint8_t>* profile, ErrorRecord* record) {
    std::u16string path;
    uint32_t error = 0;
    if (!platform::SrgbProfilePath(&path, &error)) {
        SetRecordError(record, error, 0);
        return;
    }
    ReadWholeFile(path.c_str(), profile, record);
}

void WriteWholeStream(PdfDocument* document, PdfObject* stream, uint32_t number, const CheckedArray<uint8_t>& data,
                      ErrorRecord* record) {
    if (stream != nullptr) {
        WriteStreamObject(document, stream, number, data.data(), static_cast<uint32_t>(data.size()), record);
    }
    PdfFreeObject(stream);
}

}  // namespace

void BuildXmpPacket(uint32_t padding, CheckedArray<uint8_t>* packet, ErrorRecord* record) {
    if (record->failed()) return;
    const uint64_t lines = (uint64_t{padding} + kPaddingLine - 1) / kPaddingLine;
    const uint64_t size = (sizeof kPacketHead - 1) + uint64_t{padding} + lines + (sizeof kPacketTail - 1);
    if (size > UINT32_MAX) {
        SetRecordError(record, kErrNotEnoughMemory, 0);
        return;
    }
    if (!packet->Sized(size, record)) return;
    size_t at = 0;
    Append(packet, &at, kPacketHead, sizeof kPacketHead - 1);
    static const char kSpaces[kPaddingLine + 1] =
        "                                                  "
        "                                                  ";
    for (uint32_t left = padding; left > 0;) {
        const uint32_t run = left < kPaddingLine ? left : kPaddingLine;
        Append(packet, &at, kSpaces, run);
        Append(packet, &at, "\n", 1);
        left -= run;
    }
    Append(packet, &at, kPacketTail, sizeof kPacketTail - 1);
}

void AddPdfaObjects(PdfDocument* document, uint32_t padding, bool extraMetadata, ErrorRecord* record) {
    if (record->failed()) return;
    CheckedArray<uint8_t> profile;
    ReadSrgbProfile(&profile, record);
    if (record->failed()) return;
    PdfObject* profileStream = PdfMakeStream(record);
    if (profileStream != nullptr) PdfDictionarySetInteger(profileStream, "N", 3, record);
    WriteWholeStream(document, profileStream, kPdfOutputProfileNumber, profile, record);

    if (extraMetadata) SetRecordError(record, kErrUnsupportedImageType, 0);
    CheckedArray<uint8_t> packet;
    BuildXmpPacket(padding, &packet, record);
    if (record->failed()) return;
    PdfObject* metadata = PdfMakeStream(record);
    if (metadata != nullptr) {
        PdfDictionarySetName(metadata, "Type", "Metadata", record);
        PdfDictionarySetName(metadata, "Subtype", "XML", record);
    }
    WriteWholeStream(document, metadata, kPdfMetadataNumber, packet, record);
}

}  // namespace velmora
