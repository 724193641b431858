// The operating system's own text for a system error code, as the message
// builder asks for it before it falls back to the library's message table.

#ifndef VELMORA_PLATFORM_SYSTEM_MESSAGES_H
#define VELMORA_PLATFORM_SYSTEM_MESSAGES_H

#include <cstddef>
#include <cstdint>

namespace velmora {

// Writes the system's message for `code` into `buffer` as a terminated UTF-16
// string of at most `size` characters (terminator included), truncated when
// longer; the text has no trailing line break. False, with nothing written,
// when the system has no text for the code. A size of 0 writes nothing.
bool SystemMessageText(uint32_t code, char16_t* buffer, size_t size);

}  // namespace velmora

#endif  // VELMORA_PLATFORM_SYSTEM_MESSAGES_H
