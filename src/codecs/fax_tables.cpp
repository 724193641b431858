#include "codecs/fax_tables.h"

#include <cstring>

#include "codecs/fax_code_lists.h"

namespace velmora {

bool FindFaxCodeResource(uint16_t id, const uint8_t** bytes, uint32_t* size) {
    for (uint32_t i = 0; i < kFaxCodeResourceCount; ++i) {
        if (kFaxCodeResources[i].id == id) {
            *bytes = kFaxCodeResources[i].bytes;
            *size = kFaxCodeResources[i].size;
            return true;
        }
    }
    return false;
}

namespace {

enum TableSet : uint8_t { kWhiteTable = 1, kBlackTable = 2, kModeTable = 4 };

struct ListUse {
    uint16_t id;
    FaxCodeKind kind;
    uint8_t tables;
};

// Which table each list fills, and with which kind of slot.
static const ListUse kListUses[] = {
    {kFaxListWhiteTerminating, kFaxWhiteTerminating, kWhiteTable},
    {kFaxListBlackTerminating, kFaxBlackTerminating, kBlackTable},
    {kFaxListWhiteMakeUp, kFaxWhiteMakeUpCode, kWhiteTable},
    {kFaxListBlackMakeUp, kFaxBlackMakeUpCode, kBlackTable},
    {kFaxListExtendedMakeUp, kFaxExtendedMakeUpCode, kWhiteTable | kBlackTable},
    {kFaxListEndOfLinePrefix, kFaxZeros, kWhiteTable | kBlackTable},
    {kFaxListPass, kFaxPass, kModeTable},
    {kFaxListHorizontal, kFaxHorizontal, kModeTable},
    {kFaxListVertical0, kFaxVertical0, kModeTable},
    {kFaxListVerticalLeft, kFaxVerticalLeft, kModeTable},
    {kFaxListVerticalRight, kFaxVerticalRight, kModeTable},
    {kFaxListExtension, kFaxExtension, kModeTable},
    {kFaxListModeEndOfLinePrefix, kFaxZeros, kModeTable},
};

uint16_t ReadU16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

// Writes `code` at every slot of a table of 2^bits slots whose low bits equal
// the code. False when the code does not fit the table.
bool Spread(FaxCode* table, unsigned bits, uint16_t code, FaxCode slot) {
    if (slot.length == 0 || slot.length > bits || code >= (1u << slot.length)) return false;
    for (uint32_t index = code; index < (1u << bits); index += 1u << slot.length) table[index] = slot;
    return true;
}

bool FillFromList(FaxTables* tables, const ListUse& use) {
    const uint8_t* bytes = nullptr;
    uint32_t size = 0;
    if (!FindFaxCodeResource(use.id, &bytes, &size)) return false;
    for (uint32_t at = 0;; at += 4) {
        if (at > size || size - at < 4) return false;  // the end pair is missing
        uint16_t code = ReadU16(bytes + at);
        uint16_t packed = ReadU16(bytes + at + 2);
        if (packed == 0) return true;
        FaxCode slot{use.kind, static_cast<uint8_t>(packed & 0xF), static_cast<uint16_t>(packed >> 4)};
        if ((use.tables & kWhiteTable) && !Spread(tables->white, kFaxWhiteBits, code, slot)) return false;
        if ((use.tables & kBlackTable) && !Spread(tables->black, kFaxBlackBits, code, slot)) return false;
        if ((use.tables & kModeTable) && !Spread(tables->mode, kFaxModeBits, code, slot)) return false;
    }
}

// Fills `tables` from the code lists; false when a list is missing or
// malformed.
bool BuildFaxTables(FaxTables* tables) {
    std::memset(tables, 0, sizeof(*tables));
    for (const ListUse& use : kListUses) {
        if (!FillFromList(tables, use)) return false;
    }
    const uint8_t* reversal = nullptr;
    uint32_t size = 0;
    if (!FindFaxCodeResource(kFaxListBitReversal, &reversal, &size) || size != sizeof(tables->bitReversal))
        return false;
    std::memcpy(tables->bitReversal, reversal, size);
    return true;
}

struct SharedTables {
    FaxTables tables;
    bool built;
};

SharedTables* BuildShared() {
    static SharedTables shared;
    shared.built = BuildFaxTables(&shared.tables);
    return &shared;
}

}  // namespace

const FaxTables* GetFaxTables(ErrorRecord* record) {
    if (record->failed()) return nullptr;
    // A function-local static is initialised exactly once, other threads
    // waiting until it is done; the tables are read-only afterwards.
    static SharedTables* const shared = BuildShared();
    if (!shared->built) {
        SetRecordError(record, kUnexpectedError, 0);
        return nullptr;
    }
    return &shared->tables;
}

}  // namespace velmora
