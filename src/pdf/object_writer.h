// Serialises PDF objects: names with "#" escapes, literal and hexadecimal
// strings, arrays, dictionaries and the dictionary part of streams.
//
// Separators are single spaces between members, none inside the brackets:
// "[0 0 612 792]", "<</Type /Page /Parent 3 0 R>>".
#pragma once

#include <cstdint>

#include "frame/error_record.h"
#include "pdf/buffered_writer.h"
#include "pdf/pdf_object.h"

namespace velmora {

// File versions as major * 256 + minor ("%PDF-1.4" is 0x0104).
constexpr uint16_t kPdfVersion11 = 0x0101;
constexpr uint16_t kPdfVersion14 = 0x0104;

// Writes "/" and the name. Files newer than 1.1 escape "#", white space,
// "%" and the delimiters as "#xx"; bytes from 0x80 go out raw. At most 255
// bytes follow the slash: a name that would grow longer is cut before the
// first byte (or escape) that no longer fits.
void WritePdfName(BufferedWriter* out, const uint8_t* text, size_t length, uint16_t version, ErrorRecord* record);
// Writes a string as "<hex>" or as "(literal)". A literal is escaped only
// when it holds CR, LF or a backslash or its parentheses do not balance;
// parentheses are escaped only in the unbalanced case.
void WritePdfString(BufferedWriter* out, const uint8_t* bytes, size_t length, bool hex, ErrorRecord* record);
// Writes an object and everything inside it; a stream is written as its
// dictionary followed by "\r\nstream\r\n".
void WritePdfObject(BufferedWriter* out, const PdfObject* object, uint16_t version, ErrorRecord* record);

}  // namespace velmora
