#include "frame/resources.h"

#include "frame/resource_data.h"

namespace velmora {

namespace {

constexpr uint32_t kMessageRowSize = 6;

bool EntryBefore(const ResourceEntry& entry, uint16_t type, uint16_t id) {
    return entry.type < type || (entry.type == type && entry.id < id);
}

uint32_t ReadU32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

uint16_t ReadU16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

}  // namespace

bool FindResourceBytes(uint16_t type, uint16_t id, ResourceBytes* out) {
    // Lower bound over the table, which the generator sorts by (type, id).
    uint32_t low = 0;
    uint32_t high = kResourceEntryCount;
    while (low < high) {
        uint32_t middle = low + (high - low) / 2;
        if (EntryBefore(kResourceEntries[middle], type, id)) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    if (low == kResourceEntryCount || kResourceEntries[low].type != type || kResourceEntries[low].id != id) {
        return false;
    }
    out->data = kResourceEntries[low].bytes;
    out->size = kResourceEntries[low].size;
    return true;
}

bool CompactStringAt(ResourceBytes block, unsigned index, ResourceBytes* text) {
    if (index >= kStringsPerBlock || (block.data == nullptr && block.size != 0)) {
        return false;
    }
    uint32_t position = 0;
    for (unsigned entry = 0;; ++entry) {
        if (position >= block.size) {
            return false;
        }
        uint32_t length = block.data[position++];
        if (length >= 128) {
            if (position >= block.size) {
                return false;
            }
            length = (length - 128) + 128u * block.data[position++];
        }
        // position <= size here, so the subtraction cannot wrap.
        if (length > block.size - position) {
            return false;
        }
        if (entry == index) {
            text->data = block.data + position;
            text->size = length;
            return true;
        }
        position += length;
    }
}

bool MessageStringId(ResourceBytes table, uint32_t code, uint16_t* stringId) {
    if (code == 0 || table.data == nullptr) {
        return false;
    }
    for (uint32_t row = 0; table.size - row >= kMessageRowSize; row += kMessageRowSize) {
        uint32_t rowCode = ReadU32(table.data + row);
        if (rowCode == 0) {
            return false;
        }
        if (rowCode == code) {
            *stringId = ReadU16(table.data + row + 4);
            return true;
        }
    }
    return false;
}

}  // namespace velmora
