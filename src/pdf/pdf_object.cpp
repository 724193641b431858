#include "pdf/pdf_object.h"

#include <cstring>
#include <new>

namespace velmora {
namespace {

PdfObject* Make(PdfKind kind, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    PdfObject* object = new (std::nothrow) PdfObject;
    if (object == nullptr) {
        SetRecordError(record, kErrNotEnoughMemory, 0);
        return nullptr;
    }
    object->kind = kind;
    return object;
}

PdfObject* MakeBytes(PdfKind kind, const void* bytes, uint64_t length, ErrorRecord* record) {
    PdfObject* object = Make(kind, record);
    if (object == nullptr) return nullptr;
    // One spare zero byte keeps name texts terminated.
    if (!object->bytes.Zeroed(length + 1, record)) {
        PdfFreeObject(object);
        return nullptr;
    }
    if (length != 0) std::memcpy(object->bytes.data(), bytes, static_cast<size_t>(length));
    object->bytes.Sized(length, record);
    return object;
}

bool SameKey(const PdfObject* key, const char* text) {
    size_t length = std::strlen(text);
    if (key->bytes.size() != length) return false;
    for (size_t i = 0; i < length; ++i) {
        uint8_t a = key->bytes[i], b = static_cast<uint8_t>(text[i]);
        if (a >= 'A' && a <= 'Z') a = static_cast<uint8_t>(a + 32);
        if (b >= 'A' && b <= 'Z') b = static_cast<uint8_t>(b + 32);
        if (a != b) return false;
    }
    return true;
}

// The key node of `key`, and the node before it (null when it is the first).
PdfObject* FindKey(const PdfObject* dictionary, const char* key, PdfObject** before) {
    PdfObject* previous = nullptr;
    for (PdfObject* node = dictionary->members; node != nullptr && node->next != nullptr; node = node->next->next) {
        if (SameKey(node, key)) {
            if (before != nullptr) *before = previous;
            return node;
        }
        previous = node->next;
    }
    return nullptr;
}

// Appends a chain of one member, or of a key and its value.
void Append(PdfObject* container, PdfObject* first) {
    if (container->last == nullptr) {
        container->members = first;
    } else {
        container->last->next = first;
    }
    for (PdfObject* node = first; node != nullptr; node = node->next) {
        container->last = node;
        ++container->count;
    }
}

}  // namespace

PdfObject* PdfMakeDictionary(ErrorRecord* record) { return Make(PdfKind::Dictionary, record); }
PdfObject* PdfMakeArray(ErrorRecord* record) { return Make(PdfKind::Array, record); }
PdfObject* PdfMakeStream(ErrorRecord* record) { return Make(PdfKind::Stream, record); }
PdfObject* PdfMakeNull(ErrorRecord* record) { return Make(PdfKind::Null, record); }

PdfObject* PdfMakeBoolean(bool value, ErrorRecord* record) {
    PdfObject* object = Make(PdfKind::Boolean, record);
    if (object != nullptr) object->boolean = value;
    return object;
}

PdfObject* PdfMakeInteger(int32_t value, ErrorRecord* record) {
    PdfObject* object = Make(PdfKind::Integer, record);
    if (object != nullptr) object->integer = value;
    return object;
}

PdfObject* PdfMakeReal(double value, ErrorRecord* record) {
    PdfObject* object = Make(PdfKind::Real, record);
    if (object != nullptr) object->real = value;
    return object;
}

PdfObject* PdfMakeReference(uint32_t number, uint16_t generation, ErrorRecord* record) {
    PdfObject* object = Make(PdfKind::Reference, record);
    if (object != nullptr) {
        object->number = number;
        object->generation = generation;
    }
    return object;
}

PdfObject* PdfMakeName(const char* text, ErrorRecord* record) {
    size_t length = text == nullptr ? 0 : strnlen(text, kPdfNameLimit);
    return MakeBytes(PdfKind::Name, text, length, record);
}

PdfObject* PdfMakeString(const void* bytes, int64_t length, bool hex, ErrorRecord* record) {
    uint64_t size = length < 0 ? std::strlen(static_cast<const char*>(bytes)) : static_cast<uint64_t>(length);
    PdfObject* object = MakeBytes(PdfKind::String, bytes, size, record);
    if (object != nullptr) object->hex = hex;
    return object;
}

void PdfFreeObject(PdfObject* object) {
    // Members are spliced in front of the rest of the chain, so no nesting
    // depth reaches the stack.
    PdfObject* chain = object;
    if (chain != nullptr) chain->next = nullptr;
    while (chain != nullptr) {
        PdfObject* node = chain;
        chain = node->next;
        if (node->members != nullptr) {
            node->last->next = chain;
            chain = node->members;
        }
        delete node;
    }
}

void PdfDictionarySet(PdfObject* dictionary, const char* key, PdfObject* value, ErrorRecord* record) {
    if (record->failed() || value == nullptr) {
        PdfFreeObject(value);
        return;
    }
    PdfObject* existing = FindKey(dictionary, key, nullptr);
    if (existing != nullptr) {
        PdfObject* old = existing->next;
        value->next = old->next;
        existing->next = value;
        if (dictionary->last == old) dictionary->last = value;
        old->next = nullptr;
        PdfFreeObject(old);
        return;
    }
    PdfObject* name = PdfMakeName(key, record);
    if (name == nullptr) {
        PdfFreeObject(value);
        return;
    }
    name->next = value;
    value->next = nullptr;
    Append(dictionary, name);
}

void PdfDictionarySetName(PdfObject* dictionary, const char* key, const char* value, ErrorRecord* record) {
    PdfDictionarySet(dictionary, key, PdfMakeName(value, record), record);
}

void PdfDictionarySetInteger(PdfObject* dictionary, const char* key, int32_t value, ErrorRecord* record) {
    PdfDictionarySet(dictionary, key, PdfMakeInteger(value, record), record);
}

void PdfDictionarySetUnsigned(PdfObject* dictionary, const char* key, uint32_t value, ErrorRecord* record) {
    PdfDictionarySet(dictionary, key,
                     value <= 0x7FFFFFFFu ? PdfMakeInteger(static_cast<int32_t>(value), record)
                                          : PdfMakeReal(static_cast<double>(value), record),
                     record);
}

void PdfDictionarySetReal(PdfObject* dictionary, const char* key, double value, ErrorRecord* record) {
    PdfDictionarySet(dictionary, key, PdfMakeReal(value, record), record);
}

void PdfDictionarySetBoolean(PdfObject* dictionary, const char* key, bool value, ErrorRecord* record) {
    PdfDictionarySet(dictionary, key, PdfMakeBoolean(value, record), record);
}

void PdfDictionarySetReference(PdfObject* dictionary, const char* key, uint32_t number, uint16_t generation,
                               ErrorRecord* record) {
    PdfDictionarySet(dictionary, key, PdfMakeReference(number, generation, record), record);
}

void PdfDictionarySetString(PdfObject* dictionary, const char* key, const void* bytes, int64_t length, bool hex,
                            ErrorRecord* record) {
    PdfDictionarySet(dictionary, key, PdfMakeString(bytes, length, hex, record), record);
}

PdfObject* PdfDictionaryGet(const PdfObject* dictionary, const char* key) {
    PdfObject* found = FindKey(dictionary, key, nullptr);
    return found == nullptr ? nullptr : found->next;
}

void PdfDictionaryRemove(PdfObject* dictionary, const char* key) {
    PdfObject* before = nullptr;
    PdfObject* found = FindKey(dictionary, key, &before);
    if (found == nullptr) return;
    PdfObject* value = found->next;
    if (before == nullptr) {
        dictionary->members = value->next;
    } else {
        before->next = value->next;
    }
    if (dictionary->last == value) dictionary->last = before;
    dictionary->count -= 2;
    value->next = nullptr;
    found->next = nullptr;
    PdfFreeObject(found);
    PdfFreeObject(value);
}

void PdfArrayAppend(PdfObject* array, PdfObject* member, ErrorRecord* record) {
    if (record->failed() || member == nullptr) {
        PdfFreeObject(member);
        return;
    }
    member->next = nullptr;
    Append(array, member);
}

uint32_t PdfArrayCount(const PdfObject* array) { return array->count; }

}  // namespace velmora
