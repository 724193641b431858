// Telling a file's format from its first bytes or its name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace velmora {

constexpr int32_t kDocumentUnknown = 8;
constexpr size_t kDocumentProbeBytes = 1024;

// The document type of a file that begins with `bytes` (up to 1024 of them).
int32_t DocumentTypeOfBytes(const uint8_t* bytes, size_t size);
// The type implied by the extension (after the last "."), 8 when none of the
// library's extensions matches.
int32_t DocumentTypeOfExtension(const std::u16string& extension);
// Capability bits of a type, or -1 for a type the table does not know.
int32_t DocumentTypeCapabilities(int32_t type);

}  // namespace velmora
