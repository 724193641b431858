// Decoder of zlib streams: RFC 1950 framing around RFC 1951 Deflate data.
//
// The stream is held whole in memory; its output is handed to a sink in
// pieces as it is decoded. Every fault of the stream - its header, an
// invalid code, a read past its last byte, a wrong Adler-32 trailer - gives
// 0x02000004 "Bad file data.", after everything decoded before the fault has
// reached the sink. Back references reach into a window of the size the
// header names, which starts out as zeros for every stream: references
// before the stream's first byte read zeros.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "frame/scratch_block.h"
#include "frame/error_record.h"

namespace velmora {

class InflateSink {
public:
    // Takes the next `count` decoded bytes; false stops the decoding (with
    // the reason in the record).
    virtual bool Take(const uint8_t* bytes, size_t count, ErrorRecord* record) = 0;
    // With an output area: the next `count` bytes of the area are decoded
    // and final (the decoder no longer reads them). False stops the decoding.
    virtual bool Settled(size_t count, ErrorRecord* record) {
        (void)count;
        return !record->failed();
    }

protected:
    ~InflateSink() = default;
};

struct InflateTables;

class Inflater {
public:
    Inflater();
    ~Inflater();
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    // Decodes one zlib stream. The window's memory is kept for the next.
    bool DecodeZlibStream(const uint8_t* data, size_t size, InflateSink* sink, ErrorRecord* record);
    // The same, with the first `areaSize` bytes of output decoded straight
    // into `area` (whose contents are overwritten) and settled to the sink
    // as they become final; output past the area goes to the sink's Take.
    // Bytes of the area that the stream does not reach are cleared to
    // zero. An area too small to pay off is left alone and all output goes
    // to Take.
    bool DecodeZlibStream(const uint8_t* data, size_t size, uint8_t* area, size_t areaSize, InflateSink* sink,
                          ErrorRecord* record);
    // Frees the window.
    void Release();

private:
    bool PrepareWindow(uint32_t size, ErrorRecord* record);

    std::unique_ptr<InflateTables> tables_;
    ScratchBlock buffer_;      // the window's history followed by room for new output
    uint32_t windowSize_ = 0;  // the ring the stream's back references wrap in
    uint32_t zeroFrom_ = 0;    // the history is zero from here to its end
};

}  // namespace velmora
