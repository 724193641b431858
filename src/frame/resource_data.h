// The library's built-in resources as bytes, generated at build time by
// tools/resgen/resgen.py from strings.txt and messages.txt. Read them through
// FindResourceBytes (resources.h), not directly.

#ifndef VELMORA_FRAME_RESOURCE_DATA_H
#define VELMORA_FRAME_RESOURCE_DATA_H

#include <cstdint>

namespace velmora {

struct ResourceEntry {
    uint16_t type;
    uint16_t id;
    uint16_t language;
    uint32_t size;
    const uint8_t* bytes;
};

extern const ResourceEntry kResourceEntries[];  // sorted by (type, id, language)
extern const uint32_t kResourceEntryCount;

}  // namespace velmora

#endif  // VELMORA_FRAME_RESOURCE_DATA_H
