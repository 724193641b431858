// Fuzz target for the language module file parser: parse the input, then
// walk every resource it lists, look each one up by type and id, and read
// every string of every compact string block.

#include <cstddef>
#include <cstdint>

#include "frame/language_file.h"
#include "frame/resources.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    velmora::LanguageFile file;
    if (!velmora::ParseLanguageFile(data, size, &file)) {
        return 0;
    }
    uint32_t checksum = file.language() ^ file.languageVersion();
    for (uint32_t i = 0; i < file.resourceCount(); ++i) {
        velmora::LanguageResource resource;
        if (!file.ResourceAt(i, &resource)) {
            __builtin_trap();  // every listed row must be readable
        }
        velmora::ResourceBytes found;
        if (!file.FindResourceBytes(resource.type, resource.id, &found) || found.data != resource.bytes.data ||
            found.size != resource.bytes.size) {
            __builtin_trap();  // rows are unique, so lookup must find this very row
        }
        if (resource.type != velmora::kResourceTypeCompactString) {
            continue;
        }
        for (unsigned index = 0; index < velmora::kStringsPerBlock; ++index) {
            velmora::ResourceBytes text;
            if (velmora::CompactStringAt(resource.bytes, index, &text)) {
                for (uint32_t k = 0; k < text.size; ++k) {
                    checksum += text.data[k];
                }
            }
        }
    }
    // Keep the reads from being optimised away.
    volatile uint32_t sink = checksum;
    (void)sink;
    return 0;
}
