#include "pdf/image_page.h"

#include "pdf/jpeg_strip_join.h"

#include <cstring>
#include <utility>

#include "annotations/burn_in.h"
#include "annotations/page_annotations.h"
#include "codecs/byte_encoders.h"
#include "codecs/fax_encoder.h"
#include "dib/color_conversion.h"
#include "dib/dib_layout.h"
#include "dib/image.h"
#include "frame/checked_array.h"
#include "frame/memory_handle.h"
#include "io/stream.h"
#include "pdf/indirect_object.h"
#include "pdf/jpeg_strip_join.h"
#include "pdf/number_format.h"
#include "pdf/text_layer.h"
#include "platform/platform.h"
#include "tiff/page_decoder.h"
#include "tiff/page_info.h"

namespace velmora {
namespace {

constexpr uint32_t kErrPageDirectoryMissing = 0x02000007;
constexpr uint8_t kRunLengthEnd = 128;

// The image as the PDF receives it.
struct PageImage {
    uint32_t width = 0;
    uint32_t height = 0;
    uint16_t bitsPerComponent = 8;
    const char* colorSpace = "DeviceGray";  // when there is no table
    uint8_t table[3 * 256] = {};
    uint32_t tableEntries = 0;  // 2^depth for an indexed image
    bool tableGrey = false;
    bool invert = false;           // grey samples stored with 0 as white
    const char* filter = nullptr;  // none: raw rows
    PdfObject* decodeParms = nullptr;
    const uint8_t* data = nullptr;
    uint32_t size = 0;
};

// A block of bytes made here and written out once.
struct ByteBlock {
    HGLOBAL handle = nullptr;
    const uint8_t* bytes = nullptr;
    ~ByteBlock() {
        if (handle != nullptr) {
            if (bytes != nullptr) platform::MemUnlock(handle);
            FreeHandle(&handle);
        }
    }
    // Takes the data of a growable memory stream, which it closes.
    bool Take(Stream* stream, ErrorRecord* record) {
        handle = CloseStream(stream, record);
        if (record->failed()) return false;
        if (handle != nullptr) bytes = static_cast<const uint8_t*>(platform::MemLock(handle));
        return true;
    }
    uint32_t size() const { return handle == nullptr ? 0 : static_cast<uint32_t>(platform::MemSize(handle)); }
};

// Marks a colour table whose entries are all grey, which then keeps one byte
// per entry.
void SetTableGrey(PageImage* image) {
    image->tableGrey = true;
    for (uint32_t i = 0; i < image->tableEntries; ++i) {
        const uint8_t* rgb = image->table + 3 * i;
        image->tableGrey = image->tableGrey && rgb[0] == rgb[1] && rgb[1] == rgb[2];
    }
    if (!image->tableGrey) return;
    for (uint32_t i = 0; i < image->tableEntries; ++i) image->table[i] = image->table[3 * i];
}

// The image's colour space; an indexed one writes its table first.
PdfObject* MakeColorSpace(PdfDocument* pdf, const PageImage& image, ErrorRecord* record) {
    if (image.tableEntries == 0) return PdfMakeName(image.colorSpace, record);
    const uint32_t tableNumber = NewPdfObjectNumber(pdf, record);
    PdfObject* table = PdfMakeStream(record);
    if (table != nullptr) {
        WriteStreamObject(pdf, table, tableNumber, image.table, image.tableEntries * (image.tableGrey ? 1 : 3), record);
    }
    PdfFreeObject(table);
    PdfObject* space = PdfMakeArray(record);
    PdfArrayAppend(space, PdfMakeName("Indexed", record), record);
    PdfArrayAppend(space, PdfMakeName(image.tableGrey ? "DeviceGray" : "DeviceRGB", record), record);
    PdfArrayAppend(space, PdfMakeInteger(static_cast<int32_t>(image.tableEntries - 1), record), record);
    PdfArrayAppend(space, PdfMakeReference(tableNumber, 0, record), record);
    return space;
}

// Writes the image XObject (and its colour table) and returns its number.
uint32_t WriteImage(PdfDocument* pdf, PageImage* image, ErrorRecord* record) {
    PdfObject* space = MakeColorSpace(pdf, *image, record);
    const uint32_t number = NewPdfObjectNumber(pdf, record);
    PdfObject* stream = PdfMakeStream(record);
    PdfDictionarySetName(stream, "Type", "XObject", record);
    PdfDictionarySetName(stream, "Subtype", "Image", record);
    PdfDictionarySetUnsigned(stream, "Width", image->width, record);
    PdfDictionarySetUnsigned(stream, "Height", image->height, record);
    PdfDictionarySet(stream, "ColorSpace", space, record);
    PdfDictionarySetInteger(stream, "BitsPerComponent", image->bitsPerComponent, record);
    if (image->invert) {
        PdfObject* decode = PdfMakeArray(record);
        PdfArrayAppend(decode, PdfMakeInteger(1, record), record);
        PdfArrayAppend(decode, PdfMakeInteger(0, record), record);
        PdfDictionarySet(stream, "Decode", decode, record);
    }
    if (image->filter != nullptr) PdfDictionarySetName(stream, "Filter", image->filter, record);
    if (image->decodeParms != nullptr) PdfDictionarySet(stream, "DecodeParms", image->decodeParms, record);
    image->decodeParms = nullptr;
    if (stream != nullptr) WriteStreamObject(pdf, stream, number, image->data, image->size, record);
    PdfFreeObject(stream);
    return number;
}

PdfObject* MakeRealArray(const double* values, size_t count, ErrorRecord* record) {
    PdfObject* array = PdfMakeArray(record);
    for (size_t i = 0; i < count; ++i) PdfArrayAppend(array, PdfMakeReal(values[i], record), record);
    return array;
}

// What a page carries besides its image: the bytes of its text layer (empty
// for none) and the number of its thumbnail image (0 for none).
struct PageParts {
    CheckedArray<uint8_t> text;
    uint32_t thumbnail = 0;
};

// Writes the text layer's content stream, LZW-coded when the document asks
// for coded content and neither PDF/A nor encryption rules LZW out.
uint32_t WriteTextStream(PdfDocument* pdf, const CheckedArray<uint8_t>& text, ErrorRecord* record) {
    const uint32_t number = NewPdfObjectNumber(pdf, record);
    PdfObject* stream = PdfMakeStream(record);
    const uint8_t* data = text.data();
    auto size = static_cast<uint32_t>(text.size());
    ByteBlock coded;
    if (pdf->contentCompression == kPdfContentLzw && pdf->pdfaMode == kPdfaPlain && pdf->encrypted == 0) {
        EncoderStrip strip;
        strip.topRow = text.data();
        strip.rows = 1;
        strip.rowBytes = size;
        strip.out = OpenMemoryStream(false, record);
        if (strip.out != nullptr) EncodeLzwStrip(strip, record);
        if (strip.out != nullptr && coded.Take(strip.out, record)) {
            data = coded.bytes;
            size = coded.size();
            PdfDictionarySetName(stream, "Filter", "LZWDecode", record);
        }
    }
    if (stream != nullptr) WriteStreamObject(pdf, stream, number, data, size, record);
    PdfFreeObject(stream);
    return number;
}

// Writes the content stream and the page of an image of `width` x `height`
// points, with the text layer's content stream after it and the thumbnail
// when `parts` has them, and lists the page last in the page tree.
void WritePage(PdfDocument* pdf, uint32_t imageNumber, double width, double height, uint16_t rotate,
               const PageParts& parts, ErrorRecord* record) {
    char w[kNumberTextSize];
    char h[kNumberTextSize];
    FormatReal(width, w);
    FormatReal(height, h);
    char content[2 * kNumberTextSize + 32];
    std::strcpy(content, "q ");
    std::strcat(content, w);
    std::strcat(content, " 0 0 ");
    std::strcat(content, h);
    std::strcat(content, " 0 0 cm /I1 Do Q");
    const uint32_t contentNumber = NewPdfObjectNumber(pdf, record);
    PdfObject* stream = PdfMakeStream(record);
    if (stream != nullptr) {
        WriteStreamObject(pdf, stream, contentNumber, content, static_cast<uint32_t>(std::strlen(content)), record);
    }
    PdfFreeObject(stream);
    const uint32_t textNumber = parts.text.empty() || record->failed() ? 0 : WriteTextStream(pdf, parts.text, record);

    PdfObject* catalog = PdfLoadedObject(pdf, pdf->root.number);
    PdfObject* pagesReference = catalog == nullptr ? nullptr : PdfDictionaryGet(catalog, "Pages");
    const uint32_t pagesNumber = pagesReference == nullptr ? kPdfPagesNumber : pagesReference->number;
    PdfObject* pages = PdfLoadedObject(pdf, pagesNumber);
    PdfObject* kids = pages == nullptr ? nullptr : PdfDictionaryGet(pages, "Kids");
    PdfObject* count = pages == nullptr ? nullptr : PdfDictionaryGet(pages, "Count");
    if (record->ok() && (kids == nullptr || count == nullptr)) SetRecordError(record, kErrBadFileData, 0);

    const uint32_t pageNumber = NewPdfObjectNumber(pdf, record);
    PdfObject* page = PdfMakeDictionary(record);
    PdfDictionarySetName(page, "Type", "Page", record);
    PdfDictionarySetReference(page, "Parent", pagesNumber, 0, record);
    PdfObject* xobjects = PdfMakeDictionary(record);
    PdfDictionarySetReference(xobjects, "I1", imageNumber, 0, record);
    PdfObject* resources = PdfMakeDictionary(record);
    PdfDictionarySet(resources, "XObject", xobjects, record);
    if (textNumber != 0) {
        PdfObject* courier = PdfMakeDictionary(record);
        PdfDictionarySetName(courier, "Type", "Font", record);
        PdfDictionarySetName(courier, "Subtype", "Type1", record);
        PdfDictionarySetName(courier, "BaseFont", "Courier", record);
        PdfObject* fonts = PdfMakeDictionary(record);
        PdfDictionarySet(fonts, "F1", courier, record);
        PdfDictionarySet(resources, "Font", fonts, record);
    }
    PdfDictionarySet(page, "Resources", resources, record);
    const double box[4] = {0, 0, width, height};
    PdfDictionarySet(page, "MediaBox", MakeRealArray(box, 4, record), record);
    if (textNumber != 0) {
        PdfObject* contents = PdfMakeArray(record);
        PdfArrayAppend(contents, PdfMakeReference(contentNumber, 0, record), record);
        PdfArrayAppend(contents, PdfMakeReference(textNumber, 0, record), record);
        PdfDictionarySet(page, "Contents", contents, record);
    } else {
        PdfDictionarySetReference(page, "Contents", contentNumber, 0, record);
    }
    if (rotate != 0) PdfDictionarySetInteger(page, "Rotate", rotate, record);
    if (parts.thumbnail != 0) PdfDictionarySetReference(page, "Thumb", parts.thumbnail, 0, record);
    if (page != nullptr) WriteIndirectObject(pdf, page, pageNumber, 0, record);
    PdfFreeObject(page);

    if (record->failed()) return;
    PdfArrayAppend(kids, PdfMakeReference(pageNumber, 0, record), record);
    ++count->integer;
    pdf->flags |= kPdfPageTreeChanged;
    MarkPdfObjectChanged(pdf, pagesNumber);
}

// Points per pixel across and down: 72 / resolution, one pixel per point
// for a page without an absolute resolution.
void PointsPerPixel(const TiffPageInfo& info, double* across, double* down) {
    double dpi[2] = {0, 0};
    const TiffRational values[2] = {info.xResolution, info.yResolution};
    for (int i = 0; i < 2; ++i) {
        if (values[i].numerator != 0 && values[i].denominator != 0) {
            dpi[i] = static_cast<double>(values[i].numerator) / values[i].denominator;
        }
    }
    if (dpi[0] == 0) dpi[0] = dpi[1];
    if (dpi[1] == 0) dpi[1] = dpi[0];
    if (info.resolutionUnit == 3) {
        dpi[0] *= 2.54;
        dpi[1] *= 2.54;
    }
    if (info.resolutionUnit == 1 || dpi[0] == 0) {
        dpi[0] = 72;
        dpi[1] = 72;
    }
    *across = 72 / dpi[0];
    *down = 72 / dpi[1];
}

// The clockwise page turn an orientation asks for; false for the mirrored ones.
bool OrientationTurn(uint16_t orientation, uint16_t* turn) {
    static const uint16_t kTurns[9] = {0, 0, 0xFFFF, 180, 0xFFFF, 0xFFFF, 90, 0xFFFF, 270};
    *turn = orientation < 9 ? kTurns[orientation] : 0xFFFF;
    return *turn != 0xFFFF;
}

bool Bilevel(const TiffPageInfo& info) {
    return info.bitsPerSample == 1 && info.samplesPerPixel == 1 && info.photometric <= 1;
}

// Whether the page's one strip is what a PDF filter reads.
bool Copyable(const TiffPageInfo& info, const ImagePageChoices& choices) {
    // JPEG strips may be joined into one stream (JoinJpegStrips).
    const bool strips = info.stripCount != 1 && info.compression != 7;
    if (info.tiled || strips || info.planarConfiguration != 1 || info.orientation != 1 || info.fillOrder != 1 ||
        info.bitsPerSampleDiffer || info.extraSamples.count != 0) {
        return false;
    }
    const uint16_t bits = info.bitsPerSample;
    const uint16_t samples = info.samplesPerPixel;
    if (bits == 8 ? samples != 1 && samples != 3 : (bits != 1 && bits != 2 && bits != 4) || samples != 1) return false;
    switch (info.photometric) {
        case 0:
        case 1:
        case 3:
            if (samples != 1) return false;
            break;
        case 2:
            if (samples != 3) return false;
            break;
        case 6:
            if (samples != 3 || info.compression != 7) return false;
            break;
        default: return false;
    }
    switch (info.compression) {
        case 1: return true;
        case 3:
        case 4: return Bilevel(info);
        case 5: return !choices.archive && info.predictor == 1;
        case 7: return bits == 8 && info.photometric != 3;
        default: return false;
    }
}

// Pages that run-length coding of their samples usually makes smaller.
bool EnhancedCandidate(const TiffPageInfo& info) {
    const bool grey = info.photometric <= 1 && info.samplesPerPixel == 1;
    const bool palette = info.photometric == 3 && info.samplesPerPixel == 1;
    return (grey && info.bitsPerSample == 4) || (palette && (info.bitsPerSample == 4 || info.bitsPerSample == 8));
}

// Whether the page is copied: it can be, and the choices keep its coding.
bool ShouldCopy(const TiffPageInfo& info, const ImagePageChoices& choices) {
    if (!Copyable(info, choices) || (choices.enhanced && EnhancedCandidate(info))) return false;
    if (choices.forceBilevel && (info.compression == 1 || !Bilevel(info))) return false;
    const uint16_t wanted = choices.bilevelCompression;
    return !(Bilevel(info) && info.compression != 1 && wanted != 0 && wanted != info.compression);
}

// The decode parameters of the page's stored fax data; `k` 0 is left out.
PdfObject* FaxParameters(const TiffPageInfo& info, int32_t k, ErrorRecord* record) {
    PdfObject* parms = PdfMakeDictionary(record);
    if (k != 0) PdfDictionarySetInteger(parms, "K", k, record);
    PdfDictionarySetUnsigned(parms, "Columns", info.width, record);
    PdfDictionarySetUnsigned(parms, "Rows", info.length, record);
    if (info.photometric == 1) PdfDictionarySetBoolean(parms, "BlackIs1", true, record);
    return parms;
}

// JPEG data stored with its tables apart: the tables' stream without its
// end marker, then the strip without its start marker.
bool JoinJpegTables(const TiffPageInfo& info, const uint8_t* strip, uint32_t size, CheckedArray<uint8_t>* joined,
                    ErrorRecord* record) {
    HGLOBAL handle = info.jpegTables.handle;
    const uint32_t tablesSize = info.jpegTables.size;
    if (handle == nullptr || tablesSize < 4 || size < 2) return false;
    const auto* tables = static_cast<const uint8_t*>(platform::MemLock(handle));
    if (tables == nullptr) return false;
    const bool framed = tables[0] == 0xFF && tables[1] == 0xD8 && tables[tablesSize - 2] == 0xFF &&
                        tables[tablesSize - 1] == 0xD9 && strip[0] == 0xFF && strip[1] == 0xD8;
    if (framed && joined->Sized(uint64_t{tablesSize} - 2 + size - 2, record)) {
        std::memcpy(joined->data(), tables, tablesSize - 2);
        std::memcpy(joined->data() + tablesSize - 2, strip + 2, size - 2);
    }
    platform::MemUnlock(handle);
    return framed && record->ok();
}

// Writes the page's one strip, or its JPEG strips already joined, as the
// image and returns the image's number.
uint32_t CopyImage(PdfDocument* pdf, TiffFile* tiff, const TiffPageInfo& info, const CheckedArray<uint8_t>& strips,
                   ErrorRecord* record) {
    TiffStripBuffer buffer;
    uint32_t size = static_cast<uint32_t>(strips.size());
    const uint8_t* strip = strips.empty() ? buffer.Read(tiff, &info, 0, &size, record) : strips.data();
    if (strip == nullptr) return 0;
    PageImage image;
    image.width = info.width;
    image.height = info.length;
    image.bitsPerComponent = info.bitsPerSample;
    image.data = strip;
    image.size = size;
    image.colorSpace = info.samplesPerPixel == 3 ? "DeviceRGB" : "DeviceGray";
    image.invert = info.photometric == 0 && info.compression != 3 && info.compression != 4;
    if (info.photometric == 3) {
        image.tableEntries = 1u << info.bitsPerSample;
        for (uint32_t i = 0; i < image.tableEntries; ++i) {
            for (uint32_t c = 0; c < 3; ++c) {
                image.table[3 * i + c] = static_cast<uint8_t>(info.colorMap.values[c * image.tableEntries + i] >> 8);
            }
        }
        SetTableGrey(&image);
    }
    CheckedArray<uint8_t> joined;
    // JPEG data of RGB pages holds the samples untransformed.
    if (info.compression == 7 && info.photometric == 2) {
        image.decodeParms = PdfMakeDictionary(record);
        PdfDictionarySetInteger(image.decodeParms, "ColorTransform", 0, record);
    }
    switch (info.compression) {
        case 3:
            image.filter = "CCITTFaxDecode";
            image.decodeParms = FaxParameters(info, (info.t4Options & 1) != 0 ? 1 : 0, record);
            break;
        case 4:
            image.filter = "CCITTFaxDecode";
            image.decodeParms = FaxParameters(info, -1, record);
            break;
        case 5: image.filter = "LZWDecode"; break;
        case 7:
            image.filter = "DCTDecode";
            if (strips.empty() && JoinJpegTables(info, strip, size, &joined, record)) {
                image.data = joined.data();
                image.size = static_cast<uint32_t>(joined.size());
            }
            break;
        default: break;
    }
    return WriteImage(pdf, &image, record);
}

// The rows of a DIB from the top.
const uint8_t* TopRow(BITMAPINFOHEADER* header, ptrdiff_t* stride) {
    const auto rowBytes = static_cast<ptrdiff_t>(RowStride(header));
    uint8_t* bits = PackedBits(header);
    if (header->biHeight < 0) {
        *stride = rowBytes;
        return bits;
    }
    *stride = -rowBytes;
    return bits + rowBytes * (header->biHeight - 1);
}

uint8_t Grey(const RGBQUAD& entry) { return GreyLevel(entry.rgbRed | entry.rgbGreen << 8 | entry.rgbBlue << 16); }

// Codes a bi-level DIB as CCITT Group 4, or one-dimensional Group 3 for
// `compression` 3, black as the darker table entry.
bool EncodeBilevel(BITMAPINFOHEADER* header, uint16_t compression, PageImage* image, ByteBlock* coded,
                   ErrorRecord* record) {
    EncoderStrip strip;
    strip.topRow = TopRow(header, &strip.stride);
    strip.rows = image->height;
    strip.stripCount = 1;
    strip.rowsPerStrip = image->height;
    const RGBQUAD* table = ColorTable(header);
    CheckedArray<uint8_t> inverted;
    if (Grey(table[0]) < Grey(table[1])) {
        const uint64_t rowBytes = (uint64_t{image->width} + 7) / 8;
        if (!inverted.Sized(rowBytes * image->height, record)) return false;
        for (uint32_t r = 0; r < image->height; ++r) {
            const uint8_t* row = strip.Row(r);
            for (uint64_t i = 0; i < rowBytes; ++i) inverted[r * rowBytes + i] = static_cast<uint8_t>(~row[i]);
        }
        strip.topRow = inverted.data();
        strip.stride = static_cast<ptrdiff_t>(rowBytes);
    }
    FaxEncoderPage page;
    page.compression = compression == 3 ? 3 : 4;
    page.width = image->width;
    FaxEncoder encoder;
    strip.out = OpenMemoryStream(false, record);
    if (strip.out == nullptr || !encoder.Begin(page, record)) {
        if (strip.out != nullptr) CloseStream(strip.out, nullptr);
        return false;
    }
    encoder.Encode(strip, record);
    encoder.End();
    if (!coded->Take(strip.out, record)) return false;
    image->filter = "CCITTFaxDecode";
    PdfObject* parms = PdfMakeDictionary(record);
    if (page.compression == 4) PdfDictionarySetInteger(parms, "K", -1, record);
    PdfDictionarySetUnsigned(parms, "Columns", image->width, record);
    PdfDictionarySetUnsigned(parms, "Rows", image->height, record);
    image->decodeParms = parms;
    image->bitsPerComponent = 1;
    return record->ok();
}

// Codes the rows of a DIB of 1, 4, 8 or 24 bits as run-length data, or with
// `lzw` an 8-bit DIB of colours as LZW data.
bool EncodeSamples(BITMAPINFOHEADER* header, bool lzw, PageImage* image, ByteBlock* coded, ErrorRecord* record) {
    const uint16_t depth = header->biBitCount;
    if (depth != 1 && depth != 4 && depth != 8 && depth != 24) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return false;
    }
    EncoderStrip strip;
    strip.topRow = TopRow(header, &strip.stride);
    strip.rows = image->height;
    strip.rowBytes = static_cast<uint32_t>((uint64_t{image->width} * depth + 7) / 8);
    strip.swapRgb = depth == 24;
    strip.stripCount = 1;
    strip.rowsPerStrip = image->height;
    if (depth == 24) {
        image->colorSpace = "DeviceRGB";
    } else {
        image->bitsPerComponent = depth;
        image->tableEntries = 1u << depth;
        const RGBQUAD* table = ColorTable(header);
        const uint32_t used = ColorCount(header) < image->tableEntries ? ColorCount(header) : image->tableEntries;
        for (uint32_t i = 0; i < used; ++i) {
            image->table[3 * i] = table[i].rgbRed;
            image->table[3 * i + 1] = table[i].rgbGreen;
            image->table[3 * i + 2] = table[i].rgbBlue;
        }
        SetTableGrey(image);
    }
    strip.out = OpenMemoryStream(false, record);
    if (strip.out == nullptr) return false;
    lzw = lzw && depth == 8 && !image->tableGrey;
    if (lzw) {
        EncodeLzwStrip(strip, record);
    } else {
        EncodePackBitsStrip(strip, record);
        StreamWrite(strip.out, &kRunLengthEnd, 1, record);
    }
    if (!coded->Take(strip.out, record)) return false;
    image->filter = lzw ? "LZWDecode" : "RunLengthDecode";
    return record->ok();
}

// Draws `list` into the decoded page `*dib`, which it may replace.
bool BurnIn(AnnotationList* list, uint16_t rotation, HGLOBAL* dib, ErrorRecord* record) {
    const BurnInRequest request = {rotation, *dib, LockImage(*dib), kBurnInChooseFormat | kBurnInKeepImage};
    bool removed = false;
    HGLOBAL burned = BurnInAnnotationList(list, request, &removed, record);
    UnlockImage(*dib);
    if (burned != nullptr && burned != BurnedInPlace()) {
        FreeImage(dib);
        *dib = burned;
    }
    return burned != nullptr;
}

// Decodes the page, draws `annotations` (when not null) into it and codes it
// again.
bool RecompressPage(PdfDocument* pdf, TiffFile* tiff, const TiffPageInfo& info, const ImagePageChoices& choices,
                    AnnotationList* annotations, PageParts* parts, ErrorRecord* record) {
    uint16_t rotation = 0;
    HGLOBAL dib = DecodePage(tiff, info, nullptr, &rotation, record);
    if (dib == nullptr) return false;
    if (annotations != nullptr && !BurnIn(annotations, rotation, &dib, record)) {
        FreeImage(&dib);
        return false;
    }
    BITMAPINFOHEADER* header = LockImage(dib);
    if (choices.forceBilevel && header->biBitCount != 1) {
        header = ReplaceWithBilevel(&dib, header, choices.dither, record);
        if (header == nullptr) return false;
    }
    PageImage image;
    image.width = static_cast<uint32_t>(header->biWidth);
    image.height = static_cast<uint32_t>(header->biHeight < 0 ? -header->biHeight : header->biHeight);
    ByteBlock coded;
    // Bi-level pages are fax coded unless raw, LZW or PackBits data was asked
    // for, which all become run-length data here.
    const uint16_t wanted = choices.bilevelCompression;
    const bool fax = header->biBitCount == 1 && wanted != 1 && wanted != 5 && wanted != 32773;
    // Pages re-coded to be smaller take LZW where it is allowed.
    const bool lzw = choices.enhanced && EnhancedCandidate(info) && !choices.archive;
    if (fax ? EncodeBilevel(header, wanted, &image, &coded, record)
            : EncodeSamples(header, lzw, &image, &coded, record)) {
        image.data = coded.bytes;
        image.size = coded.size();
        const uint32_t number = WriteImage(pdf, &image, record);
        double across = 1;
        double down = 1;
        PointsPerPixel(info, &across, &down);
        // A page decoded from several strips or tiles comes out upright; the
        // boxes of its text no longer fit it.
        if (image.width != info.width) {
            std::swap(across, down);
            parts->text.Clear();
        }
        WritePage(pdf, number, image.width * across, image.height * down, rotation, *parts, record);
    }
    PdfFreeObject(image.decodeParms);
    UnlockImage(dib);
    FreeImage(&dib);
    return record->ok();
}

// The reduced-resolution image stored for page `page` besides its full
// image in IFD `pageIfd`; 0 when there is none.
uint32_t ThumbnailIfd(const TiffDocument* document, uint32_t page, uint32_t pageIfd) {
    for (uint32_t i = 0; i < document->rowCount; ++i) {
        const TiffIfdRow& row = document->rows[i];
        if (row.page == page && row.ifd != pageIfd &&
            (row.subfileType & (kSubfileReduced | kSubfileMask)) == kSubfileReduced) {
            return row.ifd;
        }
    }
    return 0;
}

// Writes the thumbnail in IFD `ifd` as an image, decoded and coded again as
// a re-coded page is (never as LZW data), and returns its number. A
// thumbnail that cannot be read or coded leaves the page without one; only
// a lack of memory fails the page.
uint32_t WriteThumbnail(PdfDocument* pdf, TiffFile* tiff, uint32_t ifd, ErrorRecord* record) {
    if (ifd == 0 || record->failed()) return 0;
    ErrorRecord local;
    HGLOBAL dib = ReadUprightPage(tiff, ifd, 0, nullptr, &local);
    uint32_t number = 0;
    if (dib != nullptr) {
        BITMAPINFOHEADER* header = LockImage(dib);
        PageImage image;
        image.width = static_cast<uint32_t>(header->biWidth);
        image.height = static_cast<uint32_t>(header->biHeight < 0 ? -header->biHeight : header->biHeight);
        ByteBlock coded;
        if (header->biBitCount == 1 ? EncodeBilevel(header, 4, &image, &coded, &local)
                                    : EncodeSamples(header, false, &image, &coded, &local)) {
            image.data = coded.bytes;
            image.size = coded.size();
            number = WriteImage(pdf, &image, record);
        }
        PdfFreeObject(image.decodeParms);
        UnlockImage(dib);
        FreeImage(&dib);
    }
    if (local.code == kErrNotEnoughMemory) SetRecordError(record, kErrNotEnoughMemory, 0);
    return record->ok() ? number : 0;
}

// The text layer of a page that carries an OCR text record, without the
// words that touch a redaction about to be burned into the page. A record
// the text layer cannot use leaves the page without one; only a lack of
// memory fails the page.
void TextLayerOf(const TiffPageInfo& info, const AnnotationList& burned, CheckedArray<uint8_t>* text,
                 ErrorRecord* record) {
    if (info.ocrText.handle == nullptr || record->failed()) return;
    CheckedArray<OcrBox> redactions;
    for (const Annotation* a : burned) {
        if (!IsRedaction(*a) || a->hidden()) continue;
        const AnnotationRect r = a->family == AnnotationFamily::Ellipse    ? a->ellipse.rect
                                 : a->family == AnnotationFamily::Freehand ? a->freehand.bounds
                                                                           : a->rectangle.rect;
        if (!redactions.Append(OcrBox{r.left, r.top, r.right - 1, r.bottom - 1}, record)) return;
    }
    double across = 1;
    double down = 1;
    PointsPerPixel(info, &across, &down);
    TextLayerPage page;
    page.width = static_cast<int32_t>(info.width);
    page.height = static_cast<int32_t>(info.length);
    page.xResolution = 72 / across;
    page.yResolution = 72 / down;
    const auto* bytes = static_cast<const uint8_t*>(platform::MemLock(info.ocrText.handle));
    ErrorRecord local;
    BuildTextLayer(bytes, info.ocrText.size, page, redactions.data(), redactions.size(), text, &local);
    platform::MemUnlock(info.ocrText.handle);
    if (local.code == kErrNotEnoughMemory) SetRecordError(record, kErrNotEnoughMemory, 0);
    if (local.failed()) text->Clear();
}

}  // namespace

uint32_t PageImageIfd(const TiffDocument* document, uint32_t page) {
    uint32_t found = 0;
    for (uint32_t i = 0; i < document->rowCount; ++i) {
        const TiffIfdRow& row = document->rows[i];
        if (row.page != page) continue;
        if ((row.subfileType & (kSubfileReduced | kSubfileMask)) == 0) return row.ifd;
        if (found == 0) found = row.ifd;
    }
    return found;
}

bool AppendTiffPage(PdfDocument* pdf, TiffDocument* tiff, uint32_t page, const ImagePageChoices& choices,
                    ErrorRecord* record) {
    if (record->failed()) return false;
    if (page == 0 || page > tiff->pageCount) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    const uint32_t ifd = PageImageIfd(tiff, page);
    if (ifd == 0) {
        SetRecordError(record, kErrPageDirectoryMissing, 0);
        return false;
    }
    TiffPageInfo info;
    SetWanted(&info, kFieldImage);
    SetWanted(&info, kFieldXResolution);
    SetWanted(&info, kFieldYResolution);
    if (choices.textLayer) SetWanted(&info, kFieldOcrText);
    if (!ReadPageInfo(tiff->tiff, ifd, kReadStructure | kReadCheckImage, &info, record)) return false;
    uint16_t turn = 0;
    if (!OrientationTurn(info.orientation, &turn) || info.bitsPerSample > 8) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
    }
    AnnotationList annotations;
    uint32_t loadResult = 0;
    if (choices.burnAnnotations && record->ok()) {
        ReadPageAnnotations(tiff->tiff, ifd, &annotations, nullptr, &loadResult, record);
    }
    if (record->failed()) {
        FreePageInfo(&info);
        return false;
    }
    PageParts parts;
    CheckedArray<uint8_t> joined;
    if (choices.textLayer) TextLayerOf(info, annotations, &parts.text, record);
    parts.thumbnail = WriteThumbnail(pdf, tiff->tiff, ThumbnailIfd(tiff, page, ifd), record);
    if (!annotations.empty()) {
        RecompressPage(pdf, tiff->tiff, info, choices, &annotations, &parts, record);
    } else if (ShouldCopy(info, choices) &&
               (info.stripCount == 1 || JoinJpegStrips(tiff->tiff, info, &joined, record))) {
        const uint32_t imageNumber = CopyImage(pdf, tiff->tiff, info, joined, record);
        double across = 1;
        double down = 1;
        PointsPerPixel(info, &across, &down);
        WritePage(pdf, imageNumber, info.width * across, info.length * down, 0, parts, record);
    } else if (record->ok()) {
        RecompressPage(pdf, tiff->tiff, info, choices, nullptr, &parts, record);
    }
    FreePageInfo(&info);
    return record->ok();
}

}  // namespace velmora
