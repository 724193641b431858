// Looks every exported name up in the built library, as a host's loader
// would, and calls each entry point kept for completeness: a missing export
// or a wrong fixed result fails here.
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace {

#if defined(_WIN32)
using Library = HMODULE;
Library Open() { return LoadLibraryA(VELMORA_LIBRARY_FILE); }
void* Symbol(Library library, const char* name) { return reinterpret_cast<void*>(GetProcAddress(library, name)); }
uint32_t ThreadError(Library) { return GetLastError(); }
#else
using Library = void*;
Library Open() { return dlopen(VELMORA_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL); }
void* Symbol(Library library, const char* name) { return dlsym(library, name); }
// The thread's system error, kept by the library on this system.
uint32_t ThreadError(Library library) {
    auto get = reinterpret_cast<uint32_t (*)()>(dlsym(library, "VelmoraGetLastError"));
    return get != nullptr ? get() : 0xFFFFFFFFu;
}
#endif

struct Stub {
    std::string name;
    int argumentBytes;
    int64_t result;
    int width;
    bool gated;
};

std::vector<Stub> ReadStubTable() {
    std::vector<Stub> stubs;
    std::ifstream in(VELMORA_STUB_TABLE);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        Stub stub;
        std::string gated;
        fields >> stub.name >> stub.argumentBytes >> stub.result >> stub.width >> gated;
        stub.gated = gated == "gated";
        stubs.push_back(stub);
    }
    return stubs;
}

// Every export the library has so far, apart from the stubs.
const char* const kFrameExports[] = {
    "InitVelmoraEx",           "TerminateVelmoraDLL",       "GetVelmoraVersion",
    "GetVelmoraVersionW",      "VelmoraSystemInfo",         "SetVelmoraProductName",
    "SetVelmoraProductNameW",  "SetVelmoraPointer",         "GetVelmoraErrorMessage",
    "GetVelmoraErrorMessageW", "GetLastVelmoraErrorCode",   "SetLastVelmoraError",
    "EnableVelmoraDebug",      "SetVelmoraDebugLogFile",    "SetVelmoraDebugLogProc",
    "SetVelmoraLanguage",      "CheckVelmoraLanguage",      "SetVelmoraIniFile",
    "SetVelmoraIniFileW",      "SetVelmoraWindowPrefsRoot", "SetVelmoraWindowPrefsRootW",
    "DllGetClassObject",       "DllCanUnloadNow",           "DllRegisterServer",
    "DllUnregisterServer",
};

class ExportTable : public ::testing::Test {
protected:
    void SetUp() override {
        library_ = Open();
        ASSERT_NE(library_, nullptr) << "cannot load " << VELMORA_LIBRARY_FILE;
    }
    Library library_ = nullptr;
};

TEST_F(ExportTable, FrameAndComponentServerNamesAreExported) {
    for (const char* name : kFrameExports) EXPECT_NE(Symbol(library_, name), nullptr) << name;
}

TEST_F(ExportTable, EveryStubAnswersWithItsFixedResultAndError120) {
    std::vector<Stub> stubs = ReadStubTable();
    ASSERT_EQ(stubs.size(), 79u);
    using Any = uintptr_t (*)(uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t,
                              uintptr_t, uintptr_t);
    auto getLast = reinterpret_cast<uint32_t (*)()>(Symbol(library_, "GetLastVelmoraErrorCode"));
    ASSERT_NE(getLast, nullptr);
    for (const Stub& stub : stubs) {
        void* entry = Symbol(library_, stub.name.c_str());
        ASSERT_NE(entry, nullptr) << stub.name << " is not exported";
        // Every argument is ignored; zeros stand in for them (the callee
        // does not clean the stack on a 64-bit target).
        uintptr_t raw = reinterpret_cast<Any>(entry)(0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
        int64_t result = stub.width == 8 ? static_cast<int64_t>(raw & 0xFF)
                                         : static_cast<int64_t>(static_cast<int32_t>(raw & 0xFFFFFFFFu));
        EXPECT_EQ(result, stub.result) << stub.name;
        EXPECT_EQ(ThreadError(library_), 120u) << stub.name;
        EXPECT_EQ(getLast(), 120u) << stub.name;
    }
}

TEST_F(ExportTable, ComponentServerAnswersWithoutServingClasses) {
    using GetClassObject = int32_t (*)(const void*, const void*, void**);
    using NoArguments = int32_t (*)();
    auto getClassObject = reinterpret_cast<GetClassObject>(Symbol(library_, "DllGetClassObject"));
    auto canUnload = reinterpret_cast<NoArguments>(Symbol(library_, "DllCanUnloadNow"));
    auto registerServer = reinterpret_cast<NoArguments>(Symbol(library_, "DllRegisterServer"));
    auto unregisterServer = reinterpret_cast<NoArguments>(Symbol(library_, "DllUnregisterServer"));
    ASSERT_TRUE(getClassObject && canUnload && registerServer && unregisterServer);

    unsigned char guid[16] = {1, 2, 3};
    void* object = &guid;
    EXPECT_EQ(static_cast<uint32_t>(getClassObject(guid, guid, &object)), 0x80040111u);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(canUnload(), 0);
    EXPECT_EQ(registerServer(), 0);
    EXPECT_EQ(unregisterServer(), registerServer());
}

}  // namespace
