// The in-memory PDF object graph: one node per object, arrays and
// dictionaries holding their members as a singly linked list (a
// dictionary's list alternates key node and value node), and the builders
// that make and change it.
//
// Builders take an ErrorRecord last and do nothing once it holds an error.
// A builder that adopts a node (set, append) frees it when it fails, so a
// caller never owns a node it handed over. Dictionary keys are matched
// without regard to ASCII case, first match wins; setting an existing key
// replaces its value in place, a new key goes to the end, so dictionaries
// keep their insertion order. Containers keep their last member and their
// count, so members are added and removed through the builders only.
#pragma once

#include <cstdint>

#include "frame/checked_array.h"
#include "frame/error_record.h"

namespace velmora {

enum class PdfKind : uint8_t {
    Array = 0,
    Boolean = 1,
    Dictionary = 2,
    Reference = 3,
    Integer = 4,
    Name = 5,
    Null = 6,
    Reserved = 7,  // written as nothing
    Real = 8,
    Stream = 9,  // a dictionary whose data the writer's caller supplies
    String = 10,
};

// PdfObject::state.
constexpr uint8_t kPdfObjectWritten = 0x01;

// The longest name text, without its slash.
constexpr size_t kPdfNameLimit = 255;

struct PdfObject {
    uint8_t state = 0;
    PdfKind kind = PdfKind::Null;
    PdfObject* next = nullptr;     // the next member of the enclosing array or dictionary
    PdfObject* members = nullptr;  // arrays, dictionaries and streams
    PdfObject* last = nullptr;     // the last member, so that appending takes constant time
    uint32_t count = 0;            // the members (a dictionary's keys and values both count)
    bool boolean = false;
    bool hex = false;  // strings written in hexadecimal form
    int32_t integer = 0;
    double real = 0;
    uint32_t number = 0;  // references
    uint16_t generation = 0;
    CheckedArray<uint8_t> bytes;  // name text, string bytes
};

PdfObject* PdfMakeDictionary(ErrorRecord* record);
PdfObject* PdfMakeArray(ErrorRecord* record);
// A stream: a dictionary that the writer follows with "stream".
PdfObject* PdfMakeStream(ErrorRecord* record);
PdfObject* PdfMakeNull(ErrorRecord* record);
PdfObject* PdfMakeBoolean(bool value, ErrorRecord* record);
PdfObject* PdfMakeInteger(int32_t value, ErrorRecord* record);
PdfObject* PdfMakeReal(double value, ErrorRecord* record);
PdfObject* PdfMakeReference(uint32_t number, uint16_t generation, ErrorRecord* record);
// Names longer than kPdfNameLimit bytes are cut.
PdfObject* PdfMakeName(const char* text, ErrorRecord* record);
// `length` -1 takes `bytes` as a NUL-terminated text.
PdfObject* PdfMakeString(const void* bytes, int64_t length, bool hex, ErrorRecord* record);

// Frees a node with everything below it; null is allowed.
void PdfFreeObject(PdfObject* object);

// Sets `key` to `value`, which the dictionary adopts (also on failure).
void PdfDictionarySet(PdfObject* dictionary, const char* key, PdfObject* value, ErrorRecord* record);
void PdfDictionarySetName(PdfObject* dictionary, const char* key, const char* value, ErrorRecord* record);
void PdfDictionarySetInteger(PdfObject* dictionary, const char* key, int32_t value, ErrorRecord* record);
// Offsets and lengths up to 2^32 - 1: beyond the 32-bit integer kind they
// are stored as reals, whose text is the same digits.
void PdfDictionarySetUnsigned(PdfObject* dictionary, const char* key, uint32_t value, ErrorRecord* record);
void PdfDictionarySetReal(PdfObject* dictionary, const char* key, double value, ErrorRecord* record);
void PdfDictionarySetBoolean(PdfObject* dictionary, const char* key, bool value, ErrorRecord* record);
void PdfDictionarySetReference(PdfObject* dictionary, const char* key, uint32_t number, uint16_t generation,
                               ErrorRecord* record);
void PdfDictionarySetString(PdfObject* dictionary, const char* key, const void* bytes, int64_t length, bool hex,
                            ErrorRecord* record);
// The value of `key`, or null.
PdfObject* PdfDictionaryGet(const PdfObject* dictionary, const char* key);
// Removes `key` and frees its value; nothing when it is absent.
void PdfDictionaryRemove(PdfObject* dictionary, const char* key);

// Appends `member`, which the array adopts (also on failure).
void PdfArrayAppend(PdfObject* array, PdfObject* member, ErrorRecord* record);
uint32_t PdfArrayCount(const PdfObject* array);

}  // namespace velmora
