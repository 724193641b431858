#include "tiff/document.h"

#include "frame/memory_handle.h"
#include "io/stream.h"
#include "platform/platform.h"
#include "tiff/page_info.h"
#include "tiff/page_numbering.h"
#include "tiff/tags.h"

namespace velmora {
namespace {

constexpr uint32_t kDocumentSignature = 0x54444F43u;  // "TDOC"

// SubfileType (255), the tag NewSubfileType replaced: 2 = reduced resolution.
constexpr uint32_t kOldSubfileReduced = 2;

bool AppendRow(TiffDocument* document, const TiffIfdRow& row, ErrorRecord* record) {
    if (record->failed()) return false;
    if (document->rowCount == document->rowCapacity) {
        uint32_t capacity = document->rowCapacity == 0 ? 16 : document->rowCapacity * 2;
        size_t bytes = size_t{capacity} * sizeof(TiffIfdRow);
        if (document->rowsHandle == nullptr) {
            document->rowsHandle = AllocHandle(bytes, 0, record);
            if (document->rowsHandle == nullptr) return false;
        } else {
            platform::MemUnlock(document->rowsHandle);
            HGLOBAL grown = platform::MemReAlloc(document->rowsHandle, bytes, GMEM_MOVEABLE);
            if (grown == nullptr) {
                document->rows = static_cast<TiffIfdRow*>(platform::MemLock(document->rowsHandle));
                SetRecordError(record, kErrNotEnoughMemory, 0);
                return false;
            }
            document->rowsHandle = grown;
        }
        document->rows = static_cast<TiffIfdRow*>(platform::MemLock(document->rowsHandle));
        document->rowCapacity = capacity;
    }
    document->rows[document->rowCount++] = row;
    return true;
}

// The flags and orientation of the directory ReadPageInfo left loaded. Only
// the presence of the private blocks matters here, so none is read. An
// Orientation that is not a single integer counts as absent.
void DescribeLoadedDirectory(TiffFile* tiff, TiffIfdRow* row) {
    uint32_t orientation = 1;
    if (!GetScalar(tiff, kTagOrientation, 1, &orientation)) orientation = 1;
    row->orientation = orientation;
    if (orientation >= 5 && orientation <= 8) row->flags |= kIfdExchanged;
    bool wang = FindEntry(tiff, kTagWangAnnotations) != nullptr;
    bool second = FindEntry(tiff, kTagSecondAnnotations) != nullptr;
    bool own = FindEntry(tiff, kTagAnnotations) != nullptr;
    if (wang || second || own) row->flags |= kIfdHasAnnotations;
    bool xScale = FindEntry(tiff, kTagXScale) != nullptr;
    bool yScale = FindEntry(tiff, kTagYScale) != nullptr;
    if (xScale || yScale) row->flags |= kIfdHasScale;
    if (FindEntry(tiff, kTagOcrText) != nullptr) row->flags |= kIfdHasOcrText;
    if (FindEntry(tiff, kTagPageInformation) != nullptr) row->flags |= kIfdHasPageInformation;
}

// Whether a chain that reported IFD `ifd` missing still pointed somewhere:
// then the directory there was damaged, rather than the chain ending.
bool ChainPointedOn(const TiffFile* tiff, uint32_t ifd) {
    if (tiff->cacheCount >= ifd) return false;
    uint64_t next = tiff->cacheCount == 0 ? tiff->firstDirectory : tiff->nextDirectory;
    return next != 0;
}

// Reads every IFD into rows; false with the record set on an error other
// than the end of the chain.
bool ReadRows(TiffDocument* document, ProgressReporter* progress, PageNumberScan* scan, ErrorRecord* record) {
    TiffFile* tiff = document->tiff;
    for (uint32_t ifd = 1; record->ok(); ++ifd) {
        TiffPageInfo info;
        SetWantedList(&info, kFieldPageNumber, kFieldImageLength, kFieldImageWidth, kFieldSubfileType,
                      kFieldPhotometric, kFieldListEnd);
        ErrorRecord read;
        if (!ReadPageInfo(tiff, ifd, 0, &info, &read)) {
            if (read.code == kErrIfdNotFound) {
                if (ChainPointedOn(tiff, ifd)) document->flags |= kDocumentDamagedChain;
                return true;
            }
            *record = read;
            return false;
        }
        if (progress != nullptr && !progress->Percent(ifd, record)) {
            FreePageInfo(&info);
            return false;
        }
        TiffIfdRow row = {};
        row.ifd = ifd;
        DescribeLoadedDirectory(tiff, &row);
        bool exchanged = (row.flags & kIfdExchanged) != 0;
        row.width = exchanged ? info.length : info.width;
        row.height = exchanged ? info.width : info.length;
        row.subfileType = info.newSubfileType;
        if (row.subfileType == 0 && info.subfileType == kOldSubfileReduced) row.subfileType = kSubfileReduced;
        row.photometric = info.photometric;
        bool numbered = IsPresent(&info, kFieldPageNumber);
        if (numbered) row.page = uint32_t{info.pageNumber[0]} + 1;
        scan->Add(numbered, info.pageNumber[1]);
        FreePageInfo(&info);
        AppendRow(document, row, record);
    }
    return false;
}

// Numbers the pages and sets the document's flags from the rows.
void Classify(TiffDocument* document, const PageNumberScan& scan) {
    TiffIfdRow* rows = document->rows;
    uint32_t count = document->rowCount;
    bool ok = false;
    document->pageCount = NumberPages(rows, count, scan, &ok);
    if (ok) document->flags |= kDocumentPageNumbersOk;
    bool allReduced = count > 0;
    for (uint32_t i = 0; i < count; ++i) {
        if ((rows[i].subfileType & kSubfileReduced) == 0) allReduced = false;
    }
    if (!allReduced) {
        document->flags |= kDocumentHasFullImage;
    } else {
        // Thumbnails alone: they are the pages.
        for (uint32_t i = 0; i < count; ++i) rows[i].subfileType &= ~kSubfileReduced;
    }
}

void FreeDocument(TiffDocument* document) {
    if (document->rowsHandle != nullptr) {
        platform::MemUnlock(document->rowsHandle);
        FreeHandle(&document->rowsHandle);
    }
    FreeHandle(&document->companion);
    HGLOBAL self = document->self;
    document->signature = 0;
    platform::MemUnlock(self);
    FreeHandle(&self);
}

void CloseOwnedTiff(TiffFile* tiff, ErrorRecord* record) {
    // A memory TIFF hands its stream back; the document discards its data.
    Stream* left = CloseTiff(tiff, record);
    if (left != nullptr) {
        HGLOBAL data = CloseStream(left, record);
        FreeHandle(&data);
    }
}

// The largest companion file read: a store of annotations for every page of
// a document is far smaller.
constexpr uint64_t kMaxCompanionSize = 64u << 20;

// Attaches the companion annotation file of `path` in `mode`: its bytes
// become the document's companion and the TIFF is linked to the document,
// so that the TIFF's annotation queries see it. What the bytes hold is the
// annotation layer's business; a file that is missing, empty, too large or
// unreadable is ignored, like one that does not hold an annotation store.
void AttachCompanion(TiffDocument* document, const char16_t* path, uint8_t mode) {
    document->companionMode = mode;
    ErrorRecord record;
    const std::u16string name = CompanionPath(path);
    Stream* stream = OpenFileStream(name.c_str(), kStreamRead, true, false, &record);
    if (stream == nullptr) return;
    const uint64_t size = StreamSize64(stream, &record);
    HGLOBAL bytes = nullptr;
    if (record.ok() && size >= 4 && size <= kMaxCompanionSize) {
        bytes = AllocHandle(static_cast<size_t>(size), 0, &record);
        if (bytes != nullptr) {
            StreamSeek(stream, 0, &record);
            StreamRead(stream, platform::MemLock(bytes), static_cast<uint32_t>(size), kErrBadFileData, &record);
            platform::MemUnlock(bytes);
        }
    }
    CloseStream(stream, &record);
    if (record.failed()) {
        FreeHandle(&bytes);
        return;
    }
    document->companion = bytes;
    if (bytes != nullptr) document->tiff->document = document;
}

}  // namespace

TiffDocument* BuildTiffDocument(TiffFile* tiff, bool ownsTiff, ProgressReporter* progress, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    HGLOBAL handle = AllocHandle(sizeof(TiffDocument), GMEM_ZEROINIT, record);
    if (handle == nullptr) return nullptr;
    auto* document = static_cast<TiffDocument*>(platform::MemLock(handle));
    document->signature = kDocumentSignature;
    document->self = handle;
    document->tiff = tiff;
    PageNumberScan scan;
    if (!ReadRows(document, progress, &scan, record)) {
        FreeDocument(document);
        return nullptr;
    }
    Classify(document, scan);
    if (ownsTiff) document->flags |= kDocumentOwnsTiff;
    return document;
}

TiffDocument* OpenTiffDocumentFile(const char16_t* path, uint8_t companionMode, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    TiffFile* tiff = OpenTiffFile(path, kStreamRead, false, record);
    if (tiff == nullptr) return nullptr;
    TiffDocument* document = BuildTiffDocument(tiff, true, nullptr, record);
    if (document == nullptr) {
        CloseOwnedTiff(tiff, nullptr);
        return nullptr;
    }
    document->flags |= kDocumentOwnsStream;
    AttachCompanion(document, path, companionMode);
    return document;
}

void CloseTiffDocument(TiffDocument* document, ErrorRecord* record) {
    ErrorRecord ignored;
    if (record == nullptr) record = &ignored;
    // The TIFF owns the file stream it was opened with, so closing the TIFF
    // closes the stream as well.
    if (document->tiff->document == document) document->tiff->document = nullptr;
    if ((document->flags & kDocumentOwnsTiff) != 0) CloseOwnedTiff(document->tiff, record);
    FreeDocument(document);
}

HGLOBAL TiffDocumentHandle(const TiffDocument* document) { return document->self; }

TiffDocument* TiffDocumentFromHandle(HGLOBAL handle) {
    if (!platform::IsValidHandle(handle) || platform::MemSize(handle) < sizeof(TiffDocument)) return nullptr;
    auto* document = static_cast<TiffDocument*>(platform::MemLock(handle));
    if (document == nullptr) return nullptr;
    platform::MemUnlock(handle);
    return document->signature == kDocumentSignature && document->self == handle ? document : nullptr;
}

const TiffIfdRow* TiffDocumentRow(const TiffDocument* document, uint32_t ifd) {
    if (ifd == 0 || ifd > document->rowCount) return nullptr;
    return &document->rows[ifd - 1];
}

std::u16string CompanionPath(const std::u16string& path) {
    size_t name = 0;
    for (size_t i = 0; i < path.size(); ++i) {
        if (platform::IsPathSeparator(path[i])) name = i + 1;
    }
    size_t dot = path.rfind(u'.');
    std::u16string stem = dot != std::u16string::npos && dot >= name ? path.substr(0, dot) : path;
    return stem + u".art";
}

}  // namespace velmora
