#include "frame/system_libraries.h"

#include <cstring>

#include "frame/text.h"

namespace velmora {
namespace {

constexpr unsigned kRequired = 0x1;
constexpr unsigned kWide = 0x2;
constexpr uint16_t kUnableToLoadDll = 178;      // "Unable to load dll (%s)"
constexpr uint16_t kUnableToGetFunction = 181;  // "Unable to get function address (%hs)"
constexpr size_t kMaxEntryName = 255;

struct EntryPoint {
    const char* name;
    unsigned flags;
};

// Rows end with a null name.
static const EntryPoint kCommonControlsTable[] = {
    {"CreatePropertySheetPage", 3},
    {"CreateStatusWindow", 3},
    {"CreateToolbarEx", 1},
    {"DestroyPropertySheetPage", 1},
    {"ImageList_Add", 1},
    {"ImageList_AddMasked", 1},
    {"ImageList_BeginDrag", 1},
    {"ImageList_Create", 1},
    {"ImageList_Destroy", 1},
    {"ImageList_DragEnter", 1},
    {"ImageList_DragLeave", 1},
    {"ImageList_DragMove", 1},
    {"ImageList_DragShowNolock", 1},
    {"ImageList_Draw", 1},
    {"ImageList_DrawEx", 1},
    {"ImageList_EndDrag", 1},
    {"ImageList_GetIconSize", 1},
    {"ImageList_GetImageCount", 1},
    {"ImageList_GetImageInfo", 1},
    {"ImageList_Merge", 1},
    {"InitCommonControls", 1},
    {nullptr, 0},
};

static const EntryPoint kShellTable[] = {
    {"DragAcceptFiles", 1}, {"DragQueryFile", 3},       {"SHBrowseForFolder", 3},
    {"ShellExecute", 3},    {"ShellExecuteEx", 3},      {"SHGetDesktopFolder", 1},
    {"SHGetMalloc", 1},     {"SHGetPathFromIDList", 3}, {"SHGetSpecialFolderLocation", 1},
    {nullptr, 0},
};

static const EntryPoint kCommonDialogsTable[] = {
    {"ChooseColor", 3},     {"ChooseFont", 3},      {"CommDlgExtendedError", 1},
    {"GetOpenFileName", 3}, {"GetSaveFileName", 3}, {"PageSetupDlg", 3},
    {"PrintDlg", 3},        {nullptr, 0},
};

constexpr size_t kMaxRows = 24;

struct LoadedLibrary {
    platform::ModuleHandleT module = nullptr;
    const EntryPoint* table = nullptr;
    void* slots[kMaxRows] = {};
};

LoadedLibrary g_libraries[3];
uint32_t g_commonControlsVersion = 0;

// Loads a library by its string id and resolves its table; on any error the
// library is freed again and nothing is kept.
void LoadWithTable(uint16_t nameId, const EntryPoint* table, LoadedLibrary* out, ErrorRecord* record) {
    if (record->failed()) return;
    std::u16string name = TextString(nameId);
    uint32_t error = 0;
    platform::ModuleHandleT module = platform::LoadSystemLibrary(name, &error);
    if (module == nullptr) {
        SetRecordError(record, error, kUnableToLoadDll, name.c_str());
        return;
    }
    LoadedLibrary loaded;
    loaded.module = module;
    loaded.table = table;
    for (size_t row = 0; table[row].name != nullptr && row < kMaxRows; ++row) {
        char entry[kMaxEntryName + 2];
        std::strncpy(entry, table[row].name, kMaxEntryName);
        entry[kMaxEntryName] = '\0';
        if ((table[row].flags & kWide) && std::strlen(entry) < kMaxEntryName) std::strcat(entry, "W");
        loaded.slots[row] = platform::SystemLibrarySymbol(module, entry);
        if (loaded.slots[row] == nullptr && (table[row].flags & kRequired)) {
            SetRecordError(record, 127, kUnableToGetFunction, entry);
            platform::FreeSystemLibrary(module);
            return;
        }
    }
    *out = loaded;
}

}  // namespace

void LoadSystemLibraries(ErrorRecord* record) {
    LoadWithTable(10231, kShellTable, &g_libraries[0], record);
    LoadWithTable(10199, kCommonControlsTable, &g_libraries[1], record);
    if (record->ok()) g_commonControlsVersion = platform::InitCommonControlsVersion();
    LoadWithTable(10230, kCommonDialogsTable, &g_libraries[2], record);
}

void FreeSystemLibraries() {
    for (int i = 2; i >= 0; --i) {
        if (g_libraries[i].module != nullptr) platform::FreeSystemLibrary(g_libraries[i].module);
        g_libraries[i] = LoadedLibrary();
    }
    g_commonControlsVersion = 0;
}

void* SystemFunction(SystemLibrary library, const char* name) {
    const LoadedLibrary& loaded = g_libraries[static_cast<int>(library)];
    if (loaded.table == nullptr) return nullptr;
    for (size_t row = 0; loaded.table[row].name != nullptr && row < kMaxRows; ++row) {
        if (std::strcmp(loaded.table[row].name, name) == 0) return loaded.slots[row];
    }
    return nullptr;
}

uint32_t CommonControlsVersion() { return g_commonControlsVersion; }

}  // namespace velmora
