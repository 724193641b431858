#include "annotations/page_annotations.h"

#include "annotations/annotation_stream.h"
#include "annotations/companion_store.h"
#include "annotations/sheet_chunk_reader.h"
#include "annotations/wang_reader.h"
#include "frame/memory_handle.h"
#include "platform/platform.h"
#include "tiff/document.h"
#include "tiff/outside_annotations.h"
#include "tiff/page_info.h"

namespace velmora {

namespace {

// A page-info block locked for reading.
class BlockBytes {
public:
    explicit BlockBytes(const TiffBlock& block)
        : handle_(block.handle),
          bytes_(handle_ != nullptr ? static_cast<const uint8_t*>(platform::MemLock(handle_)) : nullptr),
          size_(block.size) {}
    ~BlockBytes() {
        if (bytes_ != nullptr) platform::MemUnlock(handle_);
    }
    BlockBytes(const BlockBytes&) = delete;
    BlockBytes& operator=(const BlockBytes&) = delete;
    const uint8_t* bytes() const { return bytes_; }
    uint32_t size() const { return size_; }

private:
    HGLOBAL handle_;
    const uint8_t* bytes_;
    uint32_t size_;
};

class PageInfoGuard {
public:
    PageInfoGuard() = default;
    ~PageInfoGuard() { FreePageInfo(&info); }
    PageInfoGuard(const PageInfoGuard&) = delete;
    PageInfoGuard& operator=(const PageInfoGuard&) = delete;
    TiffPageInfo info;
};

double Resolution(const TiffPageInfo& info, uint32_t field, const TiffRational& value) {
    if (!IsPresent(&info, field) || value.denominator == 0) return 0;
    return static_cast<double>(value.numerator) / value.denominator;
}

// Notes the source of every annotation appended since `before`.
bool NoteSources(const AnnotationList& list, size_t before, AnnotationSource source,
                 CheckedArray<AnnotationSource>* sources, ErrorRecord* record) {
    if (sources == nullptr) return true;
    for (size_t i = before; i < list.size(); ++i) {
        if (!sources->Append(source, record)) return false;
    }
    return true;
}

struct Plan {
    bool useOwn = true;
    bool consultCompanion = false;
    const uint8_t* companion = nullptr;
    size_t companionSize = 0;
    uint32_t wanted = kAllAnnotationSources;  // the sources the caller asks for

    bool Reads(AnnotationSource source, const TiffBlock& block) const {
        return useOwn && block.handle != nullptr && (wanted & SourceBit(source)) != 0;
    }
    bool ReadsCompanion() const { return consultCompanion && (wanted & SourceBit(AnnotationSource::Companion)) != 0; }
};

Plan PlanSources(const TiffFile* tiff, const TiffPageInfo& info, const uint8_t* companionBytes) {
    Plan plan;
    const TiffDocument* document = tiff->document;
    if (document == nullptr || companionBytes == nullptr) return plan;
    const size_t size = platform::MemSize(document->companion);
    if (!IsCompanionStore(companionBytes, size)) return plan;
    plan.companion = companionBytes;
    plan.companionSize = size;
    const bool pageHasAny = info.hasAnnotations;
    switch (document->companionMode) {
        case kCompanionReplace:
            plan.useOwn = false;
            plan.consultCompanion = true;
            break;
        case kCompanionAdd: plan.consultCompanion = true; break;
        default: plan.consultCompanion = !pageHasAny; break;
    }
    return plan;
}

// The companion's bytes, locked while the guard lives.
class CompanionBytes {
public:
    explicit CompanionBytes(const TiffFile* tiff)
        : handle_(tiff->document != nullptr ? tiff->document->companion : nullptr),
          bytes_(handle_ != nullptr ? static_cast<const uint8_t*>(platform::MemLock(handle_)) : nullptr) {}
    ~CompanionBytes() {
        if (bytes_ != nullptr) platform::MemUnlock(handle_);
    }
    CompanionBytes(const CompanionBytes&) = delete;
    CompanionBytes& operator=(const CompanionBytes&) = delete;
    const uint8_t* bytes() const { return bytes_; }

private:
    HGLOBAL handle_;
    const uint8_t* bytes_;
};

bool ReadSources(TiffFile* tiff, uint32_t page, const TiffPageInfo& info, const Plan& plan, AnnotationList* list,
                 CheckedArray<AnnotationSource>* sources, uint32_t* loadResult, ErrorRecord* record) {
    if (plan.Reads(AnnotationSource::Own, info.annotations)) {
        BlockBytes own(info.annotations);
        const size_t before = list->size();
        if (!ReadAnnotationStream(own.bytes(), own.size(), list, loadResult, record) ||
            !NoteSources(*list, before, AnnotationSource::Own, sources, record)) {
            return false;
        }
    }
    if (plan.Reads(AnnotationSource::Wang, info.wangAnnotations)) {
        BlockBytes wang(info.wangAnnotations);
        const size_t before = list->size();
        if (!ReadWangAnnotations(wang.bytes(), wang.size(), list, loadResult, record) ||
            !NoteSources(*list, before, AnnotationSource::Wang, sources, record)) {
            return false;
        }
    }
    if (plan.Reads(AnnotationSource::SheetChunks, info.secondAnnotations)) {
        BlockBytes chunks(info.secondAnnotations);
        const size_t before = list->size();
        if (!ReadSheetChunkAnnotations(chunks.bytes(), chunks.size(),
                                       Resolution(info, kFieldXResolution, info.xResolution),
                                       Resolution(info, kFieldYResolution, info.yResolution), list, record) ||
            !NoteSources(*list, before, AnnotationSource::SheetChunks, sources, record)) {
            return false;
        }
    }
    if (plan.ReadsCompanion()) {
        const uint8_t* stream;
        uint32_t streamSize;
        if (!CompanionPageStream(plan.companion, plan.companionSize, page, &stream, &streamSize, record)) return false;
        const size_t before = list->size();
        if (stream != nullptr && (!ReadAnnotationStream(stream, streamSize, list, loadResult, record) ||
                                  !NoteSources(*list, before, AnnotationSource::Companion, sources, record))) {
            return false;
        }
    }
    return record->ok();
}

bool ReadInfo(TiffFile* tiff, uint32_t page, TiffPageInfo* info, ErrorRecord* record) {
    SetWantedList(info, kFieldAnnotations, kFieldWangAnnotations, kFieldSecondAnnotations, kFieldXResolution,
                  kFieldYResolution, kFieldListEnd);
    return ReadPageInfo(tiff, page, 0, info, record);
}

// The annotations of every source `plan` uses, written anew as one stream;
// null for a page with none.
bool MergedStream(TiffFile* tiff, uint32_t page, const TiffPageInfo& info, const Plan& plan, HGLOBAL* stream,
                  uint32_t* size, ErrorRecord* record) {
    AnnotationList list;
    uint32_t loadResult = 0;
    if (!ReadSources(tiff, page, info, plan, &list, nullptr, &loadResult, record)) return false;
    const bool any = !list.empty() || plan.Reads(AnnotationSource::Own, info.annotations);
    if (!any) return true;
    *stream = WriteAnnotationStream(list, false, size, record);
    return *stream != nullptr;
}

}  // namespace

bool ReadPageAnnotations(TiffFile* tiff, uint32_t page, AnnotationList* list, CheckedArray<AnnotationSource>* sources,
                         uint32_t* loadResult, ErrorRecord* record) {
    if (record->failed()) return false;
    PageInfoGuard guard;
    if (!ReadInfo(tiff, page, &guard.info, record)) return false;
    CompanionBytes companion(tiff);
    const Plan plan = PlanSources(tiff, guard.info, companion.bytes());
    return ReadSources(tiff, page, guard.info, plan, list, sources, loadResult, record);
}

bool PageAnnotationStream(TiffFile* tiff, uint32_t page, uint32_t sources, HGLOBAL* stream, uint32_t* size,
                          ErrorRecord* record) {
    *stream = nullptr;
    *size = 0;
    if (record->failed()) return false;
    PageInfoGuard guard;
    if (!ReadInfo(tiff, page, &guard.info, record)) return false;
    CompanionBytes companion(tiff);
    Plan plan = PlanSources(tiff, guard.info, companion.bytes());
    plan.wanted = sources;
    const TiffPageInfo& info = guard.info;
    const bool readsOwn = plan.Reads(AnnotationSource::Own, info.annotations);
    const bool ownOnly = readsOwn && !plan.ReadsCompanion() &&
                         !plan.Reads(AnnotationSource::Wang, info.wangAnnotations) &&
                         !plan.Reads(AnnotationSource::SheetChunks, info.secondAnnotations);
    if (ownOnly) {
        // The page's own block is handed over as it is stored, in a block of
        // exactly its size (hosts measure blocks with GlobalSize).
        HGLOBAL own = guard.info.annotations.handle;
        guard.info.annotations.handle = nullptr;
        if (own != nullptr && info.annotations.size == 0) {
            FreeHandle(&own);  // an empty block holds no annotations
        } else if (own != nullptr && platform::MemSize(own) != info.annotations.size) {
            HGLOBAL exact = platform::MemReAlloc(own, info.annotations.size, GMEM_MOVEABLE);
            if (exact == nullptr) {
                FreeHandle(&own);
                SetRecordError(record, kErrNotEnoughMemory, 0);
                return false;
            }
            own = exact;
        }
        *stream = own;
        *size = info.annotations.size;
        return true;
    }
    return MergedStream(tiff, page, info, plan, stream, size, record);
}

bool MergeOutsideAnnotations(TiffFile* tiff, uint32_t page, HGLOBAL* merged, uint32_t* size, ErrorRecord* record) {
    *merged = nullptr;
    *size = 0;
    if (record->failed()) return false;
    PageInfoGuard guard;
    if (!ReadInfo(tiff, page, &guard.info, record)) return false;
    const TiffPageInfo& info = guard.info;
    if (info.wangAnnotations.handle == nullptr && info.secondAnnotations.handle == nullptr) return true;
    return MergedStream(tiff, page, info, Plan{}, merged, size, record);
}

}  // namespace velmora
