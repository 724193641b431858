#include "jpeg/jpeg_bit_reader.h"

namespace velmora::jpeg {

void BitReader::FillSlowly() {
    while (count_ <= 56) {
        if (marker_ != 0) {
            count_ += 8;
            padded_ += 8;
            continue;
        }
        uint8_t byte = 0;
        if (!in_->ReadByte(&byte, record_)) {
            marker_ = kEndOfData;
            continue;
        }
        if (byte == 0xFF) {
            uint8_t next = 0;
            uint32_t extra = 0;  // bytes after this one that carry no data
            // Fill bytes (0xFF 0xFF ...) may precede a marker, and are
            // tolerated before a stuffed zero byte too.
            do {
                if (!in_->ReadByte(&next, record_)) {
                    marker_ = kEndOfData;
                    break;
                }
                ++extra;
            } while (next == 0xFF);
            if (marker_ != 0) continue;
            if (next != 0) {
                marker_ = next;
                continue;
            }
            // Bytes loaded more than 8 bytes ago are used up: settle them.
            while (ffHead_ != ffTail_ && ffLoaded_[ffHead_ & 15] + 8 < loaded_) {
                stuffed_ += ffExtra_[ffHead_ & 15];
                ++ffHead_;
            }
            ffExtra_[ffTail_ & 15] = extra;
            ffLoaded_[ffTail_++ & 15] = loaded_;
        }
        bits_ |= static_cast<uint64_t>(byte) << (56 - count_);
        count_ += 8;
        ++loaded_;
    }
}

uint32_t BitReader::FindMarker() {
    bits_ = 0;
    count_ = 0;
    padded_ = 0;
    while (marker_ == 0) {
        uint8_t byte = 0;
        if (!in_->ReadByte(&byte, record_)) {
            marker_ = kEndOfData;
            break;
        }
        if (byte != 0xFF) continue;
        uint8_t next = 0xFF;
        while (next == 0xFF) {
            if (!in_->ReadByte(&next, record_)) {
                marker_ = kEndOfData;
                break;
            }
        }
        if (marker_ == 0 && next != 0) marker_ = next;
    }
    return record_->failed() ? 0 : marker_;
}

void BitReader::BitPosition(uint64_t* byteOffset, uint32_t* bitOffset) {
    int real = count_ - padded_;
    uint64_t bitsUsed = loaded_ * 8 - static_cast<uint64_t>(real > 0 ? real : 0);
    uint64_t byte = bitsUsed / 8;
    // Every 0xFF byte before this one carried a stuffed zero byte after it.
    while (ffHead_ != ffTail_ && ffLoaded_[ffHead_ & 15] < byte) {
        stuffed_ += ffExtra_[ffHead_ & 15];
        ++ffHead_;
    }
    *byteOffset = segmentStart_ + byte + stuffed_;
    *bitOffset = static_cast<uint32_t>(bitsUsed % 8);
}

}  // namespace velmora::jpeg
