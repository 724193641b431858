// JPEG handles: what the JPEG exports work on.
//
// A JPEG handle is a movable memory block of one of two kinds:
//  - a block the library made over an open stream (CreateJpegHandle). It
//    keeps the stream, where the JPEG data starts in it and how long it is,
//    and the last information record read,
//    so that repeated questions need no second parse;
//  - a block a host filled with a complete JPEG stream itself (GlobalAlloc
//    with GMEM_MOVEABLE, the bytes from SOI on). Such a block is read in
//    place; nothing is cached between calls.
// The two are told apart by their first bytes: the library's blocks begin
// with a signature that no JPEG stream (which begins 0xFF 0xD8) can have.
// CloseVelmoraJPEG frees either kind.
#pragma once

#include <cstdint>

#include "jpeg/jpeg_decoder.h"
#include "frame/error_record.h"
#include "velmora/velmora.h"

namespace velmora::jpeg {

// Makes a handle over `stream`, whose JPEG data begins at its current
// position and runs `length` bytes. The handle owns the stream from then on
// (also when this fails: the stream is closed). Null with the record set on
// failure.
HGLOBAL CreateJpegHandle(Stream* stream, uint64_t length, ErrorRecord* record);

// A JPEG handle locked for one export call. Open() fails with error 6 for a
// block that is no valid handle; every other question is answered on the
// handle's data.
class JpegHandleAccess {
public:
    JpegHandleAccess() = default;
    ~JpegHandleAccess();
    JpegHandleAccess(const JpegHandleAccess&) = delete;
    JpegHandleAccess& operator=(const JpegHandleAccess&) = delete;

    bool Open(HGLOBAL handle, ErrorRecord* record);

    // The JPEG data, positioned at its start.
    JpegSource Source(ErrorRecord* record);
    // Bytes of JPEG data (the whole block for a host's block).
    uint64_t Length() const;

    // The handle's information record when one was read with every bit of
    // `request`; false otherwise.
    bool CachedInfo(uint32_t request, VelmoraJPEGInfo* info) const;
    void CacheInfo(const VelmoraJPEGInfo& info);

private:
    friend bool CloseJpegHandle(HGLOBAL handle, ErrorRecord* record);
    friend HGLOBAL CreateJpegHandle(Stream* stream, uint64_t length, ErrorRecord* record);
    struct OwnBlock;
    HGLOBAL handle_ = nullptr;
    uint8_t* bytes_ = nullptr;
    size_t blockSize_ = 0;
    OwnBlock* own_ = nullptr;
};

// Closes the stream of a library-made handle and frees the block;
// a host's block is freed too. Error 6 for an invalid handle.
bool CloseJpegHandle(HGLOBAL handle, ErrorRecord* record);

}  // namespace velmora::jpeg
