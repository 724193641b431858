#include "jpeg/jpeg_handle.h"

#include <cstring>

#include "frame/memory_handle.h"
#include "io/stream.h"
#include "platform/platform.h"

namespace velmora::jpeg {

namespace {

constexpr uint8_t kSignature[4] = {'V', 'J', 'P', 'G'};
constexpr uint32_t kInfoFilled = 0x2;  // `info` holds a record

}  // namespace

// The layout of a library-made handle's block.
struct JpegHandleAccess::OwnBlock {
    uint8_t signature[4];
    uint32_t flags;
    uint64_t start;   // where the JPEG data begins in the stream
    uint64_t length;  // and its length
    Stream* stream;
    VelmoraJPEGInfo info;  // the last record read, with kInfoFilled
};

HGLOBAL CreateJpegHandle(Stream* stream, uint64_t length, ErrorRecord* record) {
    HGLOBAL handle = AllocHandle(sizeof(JpegHandleAccess::OwnBlock), GMEM_ZEROINIT, record);
    if (handle == nullptr) {
        CloseStream(stream, nullptr);
        return nullptr;
    }
    auto* block = static_cast<JpegHandleAccess::OwnBlock*>(platform::MemLock(handle));
    std::memcpy(block->signature, kSignature, sizeof kSignature);
    block->start = StreamTell(stream);
    block->length = length;
    block->stream = stream;
    platform::MemUnlock(handle);
    return handle;
}

JpegHandleAccess::~JpegHandleAccess() {
    if (handle_ != nullptr) platform::MemUnlock(handle_);
}

bool JpegHandleAccess::Open(HGLOBAL handle, ErrorRecord* record) {
    if (record->failed()) return false;
    if (!platform::IsValidHandle(handle)) {
        SetRecordError(record, kErrInvalidHandle, 0);
        return false;
    }
    bytes_ = static_cast<uint8_t*>(platform::MemLock(handle));
    if (bytes_ == nullptr) {
        SetRecordError(record, kErrInvalidHandle, 0);
        return false;
    }
    handle_ = handle;
    blockSize_ = platform::MemSize(handle);
    if (blockSize_ >= sizeof(OwnBlock) && std::memcmp(bytes_, kSignature, sizeof kSignature) == 0) {
        own_ = reinterpret_cast<OwnBlock*>(bytes_);
    }
    return true;
}

JpegSource JpegHandleAccess::Source(ErrorRecord* record) {
    if (own_ == nullptr) return JpegSource::Memory(bytes_, blockSize_);
    StreamSeek64(own_->stream, own_->start, record);
    return JpegSource::FromStream(own_->stream);
}

uint64_t JpegHandleAccess::Length() const { return own_ != nullptr ? own_->length : blockSize_; }

bool JpegHandleAccess::CachedInfo(uint32_t request, VelmoraJPEGInfo* info) const {
    if (own_ == nullptr || !(own_->flags & kInfoFilled) || (own_->info.request & request) != request) return false;
    *info = own_->info;
    return true;
}

void JpegHandleAccess::CacheInfo(const VelmoraJPEGInfo& info) {
    if (own_ == nullptr) return;
    own_->info = info;
    own_->flags |= kInfoFilled;
}

bool CloseJpegHandle(HGLOBAL handle, ErrorRecord* record) {
    {
        JpegHandleAccess access;
        if (!access.Open(handle, record)) return false;
        if (access.own_ != nullptr) {
            CloseStream(access.own_->stream, nullptr);
            access.own_ = nullptr;
        }
    }
    FreeHandle(&handle);
    return true;
}

}  // namespace velmora::jpeg
