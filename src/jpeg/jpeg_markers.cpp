#include "jpeg/jpeg_markers.h"

#include <cstring>

#include "jpeg/jpeg_marker_codes.h"
#include "jpeg/jpeg_private_segment.h"

namespace velmora::jpeg {

const uint8_t kZigZagToNatural[80] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33,
                                      40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36,
                                      29, 22, 15, 23, 30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54,
                                      47, 55, 62, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63};

namespace {

constexpr uint16_t kJfifDamagedDensity = 65499;  // 0xFFDB: the bytes of a DQT marker

uint32_t Big16(const uint8_t* p) { return (uint32_t{p[0]} << 8) | p[1]; }

bool IsFrameMarker(uint8_t m) { return m >= 0xC0 && m <= 0xCF && m != kMarkerDht && m != kMarkerJpg && m != kMarkerDac; }

}  // namespace

MarkerReader::MarkerReader(JpegInput* input, DecoderTables* tables, uint8_t* segmentBuffer, uint32_t request,
                           ErrorRecord* record)
    : in_(input), tables_(tables), buffer_(segmentBuffer), request_(request), record_(record) {}

bool MarkerReader::Fail() {
    SetRecordError(record_, kErrBadFileData, 0);
    return false;
}

bool MarkerReader::ReadStart() {
    if (record_->failed()) return false;
    uint8_t head[2] = {};
    if (!in_->Read(head, 2, record_) || head[0] != 0xFF || head[1] != kMarkerSoi) {
        SetRecordError(record_, kErrUnrecognizedFormat, 0);
        return false;
    }
    previous_ = kMarkerSoi;
    flags_ = kSingleTables;
    return true;
}

MarkerEvent MarkerReader::Next(ScanHeader* scan) {
    while (record_->ok()) {
        uint32_t marker = pending_;
        pending_ = 0;
        if (marker == kEndOfData) return MarkerEvent::EndOfData;
        if (marker == 0) {
            // Bytes before the next 0xFF are stray; 0xFF bytes are fill.
            uint8_t byte = 0;
            for (;;) {
                if (!in_->ReadByte(&byte, record_)) return MarkerEvent::EndOfData;
                if (byte != 0xFF) continue;
                do {
                    if (!in_->ReadByte(&byte, record_)) return MarkerEvent::EndOfData;
                } while (byte == 0xFF);
                if (byte != 0) break;
            }
            marker = byte;
        }
        uint8_t m = static_cast<uint8_t>(marker);
        bool ok = true;
        if (IsFrameMarker(m)) {
            ok = ReadFrame(m);
        } else if ((m >= kMarkerRst0 && m <= kMarkerRst0 + 7) || m == kMarkerTem || m == kMarkerSoi) {
            continue;  // parameterless
        } else {
            switch (m) {
                case kMarkerEoi: return MarkerEvent::End;
                case kMarkerSos: {
                    uint32_t length = 0;
                    if (!ReadSegment(&length) || !ReadScan(length, scan)) return MarkerEvent::EndOfData;
                    previous_ = m;
                    scanSeen = true;
                    return MarkerEvent::Scan;
                }
                case kMarkerDht:
                case kMarkerDqt: {
                    uint32_t length = 0;
                    ok = ReadSegment(&length) && (m == kMarkerDht ? ReadHuffmanTables(length) : ReadQuantTables(length));
                    if (ok && scanSeen) {
                        tablesChanged = true;
                        flags_ &= ~kSingleTables;
                    }
                    break;
                }
                case kMarkerDri:
                case kMarkerDnl: {
                    uint32_t length = 0;
                    ok = ReadSegment(&length);
                    if (ok && length != 2) ok = Fail();
                    if (!ok) break;
                    uint32_t value = Big16(buffer_);
                    if (m == kMarkerDri) {
                        restartInterval = value;
                    } else if (frame.present && frame.height == 0) {
                        if (value == 0) ok = Fail();
                        frame.height = value;
                    }
                    break;
                }
                case kMarkerDhp:
                    hierarchical = true;
                    ok = ReadFrame(m);
                    break;
                case kMarkerApp0: ok = ReadApp0(); break;
                case kMarkerApp1: ok = ReadApp1(); break;
                case kPrivateSegmentMarker: ok = ReadApp3(); break;
                case kMarkerApp14: ok = ReadApp14(); break;
                default: ok = SkipSegment(); break;
            }
        }
        if (!ok) break;
        previous_ = m;
    }
    return MarkerEvent::EndOfData;
}

bool MarkerReader::ReadSegment(uint32_t* length) {
    uint8_t head[2] = {};
    if (!in_->Read(head, 2, record_)) return Fail();
    uint32_t total = Big16(head);
    if (total < 2) return Fail();
    *length = total - 2;
    if (!in_->Read(buffer_, *length, record_)) return Fail();
    return true;
}

bool MarkerReader::SkipSegment() {
    uint8_t head[2] = {};
    if (!in_->Read(head, 2, record_)) return Fail();
    uint32_t total = Big16(head);
    if (total < 2 || !in_->Skip(total - 2, record_)) return Fail();
    return true;
}

void MarkerReader::SkipEntropyData() {
    uint8_t byte = 0;
    while (record_->ok()) {
        if (!in_->ReadByte(&byte, record_)) {
            pending_ = kEndOfData;
            return;
        }
        if (byte != 0xFF) continue;
        do {
            if (!in_->ReadByte(&byte, record_)) {
                pending_ = kEndOfData;
                return;
            }
        } while (byte == 0xFF);
        if (byte == 0 || (byte >= kMarkerRst0 && byte <= kMarkerRst0 + 7)) continue;
        pending_ = byte;
        return;
    }
}

bool MarkerReader::ReadFrame(uint8_t marker) {
    uint32_t length = 0;
    if (!ReadSegment(&length)) return false;
    if (frame.present) {
        // Further frames of a hierarchical stream; never a second frame elsewhere.
        return hierarchical ? true : Fail();
    }
    bool differential = (marker >= 0xC5 && marker <= 0xC7) || (marker >= 0xCD && marker <= 0xCF);
    if (differential && !hierarchical) return Fail();
    if (length < 6) return Fail();
    uint32_t count = buffer_[5];
    if (count == 0 || length != 6 + 3 * count) return Fail();
    frame.marker = marker;
    frame.precision = buffer_[0];
    frame.height = Big16(buffer_ + 1);
    frame.width = Big16(buffer_ + 3);
    frame.componentCount = count;
    uint32_t kind = marker & 3;  // 0 sequential (1 extended), 2 progressive, 3 lossless
    frame.arithmetic = marker >= 0xC8 && marker != kMarkerDhp;
    frame.progressive = marker != kMarkerDhp && kind == 2;
    frame.lossless = marker != kMarkerDhp && kind == 3;
    if (marker == kMarkerDhp) kind = 1;
    uint32_t p = frame.precision;
    bool precisionOk = frame.lossless || marker == kMarkerDhp ? (p >= 2 && p <= 16)
                       : marker == kMarkerSof0                ? p == 8
                                                        : (p == 8 || p == 12);
    if (!precisionOk || frame.width == 0) return Fail();
    if (frame.progressive && count > 4) return Fail();
    frame.hMax = frame.vMax = 1;
    for (uint32_t i = 0; i < count; ++i) {
        const uint8_t* c = buffer_ + 6 + 3 * i;
        FrameComponent& fc = frame.component[i];
        fc.id = c[0];
        fc.h = c[1] >> 4;
        fc.v = c[1] & 15;
        fc.quantTable = c[2];
        if (fc.h < 1 || fc.h > 4 || fc.v < 1 || fc.v > 4 || fc.quantTable > 3) return Fail();
        for (uint32_t j = 0; j < i; ++j) {
            if (frame.component[j].id == fc.id) return Fail();
        }
        if (fc.h > frame.hMax) frame.hMax = fc.h;
        if (fc.v > frame.vMax) frame.vMax = fc.v;
    }
    frame.present = true;
    return true;
}

bool MarkerReader::ReadQuantTables(uint32_t length) {
    uint32_t at = 0;
    while (at < length) {
        uint32_t precision = buffer_[at] >> 4;
        uint32_t id = buffer_[at] & 15;
        if (precision > 1 || id > 3) return Fail();
        uint32_t size = precision == 0 ? 64 : 128;
        if (length - at - 1 < size) return Fail();
        const uint8_t* values = buffer_ + at + 1;
        if (!(frame.present && frame.lossless)) {
            QuantTable& table = tables_->quant[id];
            for (uint32_t k = 0; k < 64; ++k) {
                table.natural[kZigZagToNatural[k]] =
                    static_cast<uint16_t>(precision == 0 ? values[k] : Big16(values + 2 * k));
            }
            table.defined = true;
        }
        at += 1 + size;
    }
    return true;
}

bool MarkerReader::ReadHuffmanTables(uint32_t length) {
    uint32_t at = 0;
    while (at < length) {
        if (length - at < 17) return Fail();
        uint32_t tableClass = buffer_[at] >> 4;
        uint32_t id = buffer_[at] & 15;
        if (tableClass > 1 || id > 3) return Fail();
        const uint8_t* counts = buffer_ + at + 1;
        uint32_t total = 0;
        for (int i = 0; i < 16; ++i) total += counts[i];
        if (total > 256 || length - at - 17 < total) return Fail();
        HuffmanTable& table = tableClass == 0 ? tables_->dc[id] : tables_->ac[id];
        if (!BuildHuffmanTable(counts, buffer_ + at + 17, total, &table)) return Fail();
        at += 17 + total;
    }
    return true;
}

bool MarkerReader::ReadScan(uint32_t length, ScanHeader* scan) {
    if (!frame.present || length < 1) return Fail();
    uint32_t count = buffer_[0];
    if (count < 1 || count > kMaxScanComponents || length != 2 * count + 4) return Fail();
    scan->count = count;
    uint32_t blocks = 0;
    for (uint32_t i = 0; i < count; ++i) {
        uint8_t id = buffer_[1 + 2 * i];
        uint32_t index = 0;
        while (index < frame.componentCount && frame.component[index].id != id) ++index;
        if (index == frame.componentCount) return Fail();
        for (uint32_t j = 0; j < i; ++j) {
            if (scan->componentIndex[j] == index) return Fail();
        }
        scan->componentIndex[i] = static_cast<uint8_t>(index);
        scan->dcTable[i] = buffer_[2 + 2 * i] >> 4;
        scan->acTable[i] = buffer_[2 + 2 * i] & 15;
        if (scan->dcTable[i] > 3 || scan->acTable[i] > 3) return Fail();
        blocks += uint32_t{frame.component[index].h} * frame.component[index].v;
    }
    if (count > 1 && blocks > kMaxBlocksInMcu) return Fail();
    const uint8_t* tail = buffer_ + 1 + 2 * count;
    scan->ss = tail[0];
    scan->se = tail[1];
    scan->ah = tail[2] >> 4;
    scan->al = tail[2] & 15;
    bool needDc = true, needAc = true;
    if (frame.progressive) {
        if (scan->ss > scan->se || scan->se > 63) return Fail();
        if (scan->ss == 0 && scan->se != 0) return Fail();
        if (scan->ss != 0 && count != 1) return Fail();
        if (scan->al > 13 || scan->ah > 13 || (scan->ah != 0 && scan->ah != scan->al + 1)) return Fail();
        needDc = scan->ss == 0 && scan->ah == 0;
        needAc = scan->ss != 0;
    } else if (frame.lossless) {
        if (scan->ss < 1 || scan->ss > 7 || scan->se != 0 || scan->ah != 0 || scan->al >= frame.precision) {
            return Fail();
        }
        needAc = false;
    }
    if (!frame.arithmetic && !hierarchical) {
        for (uint32_t i = 0; i < count; ++i) {
            if (needDc && !tables_->dc[scan->dcTable[i]].defined) return Fail();
            if (needAc && !tables_->ac[scan->acTable[i]].defined) return Fail();
        }
    }
    return true;
}

bool MarkerReader::ReadApp0() {
    uint8_t head[2] = {};
    if (!in_->Read(head, 2, record_)) return Fail();
    uint32_t total = Big16(head);
    if (total < 2) return Fail();
    uint32_t length = total - 2;
    uint32_t read = length < 14 ? length : 14;
    if (!in_->Read(buffer_, read, record_)) return Fail();
    uint64_t dataOffset = in_->Position();
    const uint8_t* d = buffer_;
    bool atStart = previous_ == kMarkerSoi || previous_ == kMarkerCom;
    if (read >= 14 && std::memcmp(d, "JFIF", 5) == 0 && atStart && !jfifSeen_) {
        jfifSeen_ = true;
        uint32_t unit = d[7];
        uint32_t x = Big16(d + 8);
        uint32_t y = Big16(d + 10);
        if (unit < 3 && x != 0 && y != 0) {
            flags_ |= kHasJfif;
            if (x == kJfifDamagedDensity) {
                x = y;
                flags_ |= kDamaged;
            }
            hasJfifDensity_ = true;
            jfifUnit_ = static_cast<uint16_t>(unit + 1);
            jfifX_ = x;
            jfifY_ = y;
            if (d[12] != 0 && d[13] != 0) {
                flags_ |= kHasThumbnail;
                thumbnailWidth_ = d[12];
                thumbnailHeight_ = d[13];
                if ((request_ & kInfoThumbnail) != 0 && length == 14 + 3u * d[12] * d[13]) {
                    thumbnailOffset_ = dataOffset;
                    thumbnailBytes_ = 3u * d[12] * d[13];
                }
            }
        }
    } else if (read >= 6 && std::memcmp(d, "JFXX", 5) == 0 && atStart) {
        uint8_t extension = d[5];
        if (extension == 0x10) {
            flags_ |= kHasThumbnail;  // a JPEG-coded thumbnail, size not given
        } else if ((extension == 0x11 || extension == 0x13) && read >= 8 && d[6] != 0 && d[7] != 0) {
            flags_ |= kHasThumbnail;
            thumbnailWidth_ = d[6];
            thumbnailHeight_ = d[7];
            if (extension == 0x13 && (request_ & kInfoThumbnail) != 0 && length == 8 + 3u * d[6] * d[7]) {
                thumbnailOffset_ = dataOffset - read + 8;
                thumbnailBytes_ = 3u * d[6] * d[7];
            }
        }
    }
    if (!in_->Skip(length - read, record_)) return Fail();
    return true;
}

bool MarkerReader::ReadApp1() {
    uint8_t head[2] = {};
    if (!in_->Read(head, 2, record_)) return Fail();
    uint32_t total = Big16(head);
    if (total < 2) return Fail();
    uint32_t length = total - 2;
    uint32_t read = length < 2 ? length : 2;
    if (!in_->Read(buffer_, read, record_)) return Fail();
    if (read == 2 && buffer_[0] == 0xFF && buffer_[1] != 0xFF) {
        // A writer counted one byte too many: the segment is one byte shorter.
        flags_ |= kDamaged;
        --length;
    }
    if (length < read) return Fail();
    // The metadata inside (Exif, XMP) is not interpreted.
    if (!in_->Skip(length - read, record_)) return Fail();
    return true;
}

bool MarkerReader::ReadApp3() {
    uint32_t length = 0;
    if (!ReadSegment(&length)) return false;
    PrivateSegment segment;
    if (!ParsePrivateSegment(buffer_, length, &segment)) return true;
    uint32_t* target = segment.kind == PrivateSegmentKind::Resolution ? resolution_ : scale_;
    target[0] = segment.xNumerator;
    target[1] = segment.xDenominator;
    target[2] = segment.yNumerator;
    target[3] = segment.yDenominator;
    if (segment.kind == PrivateSegmentKind::Resolution) {
        hasResolution_ = true;
        resolutionUnit_ = segment.unit;
    } else {
        hasScale_ = true;
        scaleUnit_ = segment.unit;
    }
    return true;
}

bool MarkerReader::ReadApp14() {
    uint8_t head[2] = {};
    if (!in_->Read(head, 2, record_)) return Fail();
    uint32_t total = Big16(head);
    if (total < 2) return Fail();
    uint32_t length = total - 2;
    uint32_t read = length < 12 ? length : 12;
    if (!in_->Read(buffer_, read, record_)) return Fail();
    if (read == 12 && std::memcmp(buffer_, "Adobe", 5) == 0) {
        flags_ |= kHasAdobe;
        adobeTransform_ = buffer_[11];
    }
    if (!in_->Skip(length - read, record_)) return Fail();
    return true;
}

void MarkerReader::FillInfo(JpegInfo* info) const {
    *info = JpegInfo{};
    info->width = frame.width;
    info->height = frame.height;
    info->components = static_cast<uint8_t>(frame.componentCount);
    info->precision = frame.precision;
    static const uint8_t kProcessOfMarker[16] = {0, 1, 2, 3, 4, 4, 4, 0, 0, 5, 6, 7, 0, 4, 4, 4};
    info->process = hierarchical ? uint8_t{kProcessHierarchical} : kProcessOfMarker[frame.marker & 15];
    info->adobeTransform = adobeTransform_;
    info->restartInterval = static_cast<uint16_t>(restartInterval);
    bool single = frame.componentCount == 1;
    uint32_t unit = frame.lossless ? 1 : 8;
    info->mcuWidth = static_cast<uint8_t>(unit * (single ? 1 : frame.hMax));
    info->mcuHeight = static_cast<uint8_t>(unit * (single ? 1 : frame.vMax));
    info->thumbnailWidth = thumbnailWidth_;
    info->thumbnailHeight = thumbnailHeight_;
    info->thumbnailOffset = thumbnailOffset_;
    info->thumbnailBytes = thumbnailBytes_;
    info->flags = flags_;
    if (hasResolution_) {
        info->flags |= kHasResolution;
        info->densityUnit = resolutionUnit_;
        info->xDensityNumerator = resolution_[0];
        info->xDensityDenominator = resolution_[1];
        info->yDensityNumerator = resolution_[2];
        info->yDensityDenominator = resolution_[3];
    } else if (hasJfifDensity_) {
        info->densityUnit = jfifUnit_;
        info->xDensityNumerator = jfifX_;
        info->yDensityNumerator = jfifY_;
    }
    info->hasScale = hasScale_;
    info->scaleUnit = scaleUnit_;
    info->xScaleNumerator = scale_[0];
    info->xScaleDenominator = scale_[1];
    info->yScaleNumerator = scale_[2];
    info->yScaleDenominator = scale_[3];
    for (uint32_t i = 0; i < kMaxJpegInfoComponents && i < frame.componentCount; ++i) {
        info->component[i] = JpegComponentInfo{frame.component[i].id, frame.component[i].h, frame.component[i].v,
                                               frame.component[i].quantTable};
    }
}

}  // namespace velmora::jpeg
