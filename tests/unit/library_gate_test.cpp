// The initialisation gate, termination and the frame's own exports.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "frame/library.h"
#include "velmora/velmora.h"
#include "wide.h"

namespace velmora {
namespace {

class Gate : public ::testing::Test {
protected:
    void TearDown() override {
        SimulateInitializationFailure(0);
        TerminateVelmoraDLL();
        SetInitFlags(0);
    }
};

TEST_F(Gate, FailedInitialisationIsNotRetriedUntilTermination) {
    TerminateVelmoraDLL();
    SimulateInitializationFailure(0x80004005u);
    EXPECT_EQ(GetVelmoraVersion(nullptr, 0), 0);
    EXPECT_EQ(GetLastVelmoraErrorCode(), 0u);  // gated too

    // The cause is gone, but the outcome stands: each call re-reports it.
    SimulateInitializationFailure(0);
    for (int i = 0; i < 3; ++i) {
        SetErrorCode(0);
        char text[64];
        EXPECT_EQ(GetVelmoraErrorMessage(2, text, sizeof text), 0);
        EXPECT_EQ(LastErrorCode(), 0x80004005u);
        EXPECT_NE(std::u16string(LastErrorMessage()).find(u"Unable to initialize OLE"), std::u16string::npos);
        EXPECT_EQ(platform::GetSystemError(), 0x80004005u);
    }
    EXPECT_EQ(DllRegisterServer(), static_cast<HRESULT>(0x80004005u));
    EXPECT_EQ(DllUnregisterServer(), DllRegisterServer());

    TerminateVelmoraDLL();
    EXPECT_EQ(static_cast<uint16_t>(GetVelmoraVersion(nullptr, 0)), 0x8748);
    EXPECT_TRUE(IsLibraryInitialized());
    EXPECT_EQ(DllRegisterServer(), S_OK);
}

TEST_F(Gate, TerminationTwiceAndReinitialisation) {
    ASSERT_EQ(EnsureLibraryInitialized(), 1);
    TerminateVelmoraDLL();
    EXPECT_FALSE(IsLibraryInitialized());
    TerminateVelmoraDLL();
    EXPECT_FALSE(IsLibraryInitialized());
    EXPECT_EQ(EnsureLibraryInitialized(), 1);
}

TEST_F(Gate, InitFlagsAndTheDisabledSystemInformation) {
    SetErrorCode(0);
    EXPECT_EQ(InitVelmoraEx(4), 0u);
    EXPECT_EQ(LastErrorCode(), 87u);
    EXPECT_EQ(InitFlags(), 0u);
    EXPECT_EQ(InitVelmoraEx(3), 1u);
    EXPECT_EQ(InitFlags(), 3u);
    TerminateVelmoraDLL();
    // Refused before the gate runs.
    EXPECT_EQ(VelmoraSystemInfo(nullptr), 0u);
    EXPECT_EQ(LastErrorCode(), 0x02000019u);
    EXPECT_FALSE(IsLibraryInitialized());
    ASSERT_EQ(InitVelmoraEx(0), 1u);
    // Without a Win32 user interface the dialog is not available.
    EXPECT_EQ(VelmoraSystemInfo(reinterpret_cast<HWND>(0x1234)), 0u);
    EXPECT_EQ(LastErrorCode(), 1400u);
}

TEST_F(Gate, VersionTextAndProductName) {
    char text[64];
    ASSERT_EQ(static_cast<uint16_t>(GetVelmoraVersion(text, sizeof text)), 0x8748);
    EXPECT_STREQ(text, "Velmora 8.748 (Unicode)");
    char five[5] = {'x', 'x', 'x', 'x', 'x'};
    EXPECT_EQ(static_cast<uint16_t>(GetVelmoraVersion(five, 5)), 0x8748);
    EXPECT_STREQ(five, "Velm");
    // Only the low 16 bits of the size count.
    EXPECT_EQ(static_cast<uint16_t>(GetVelmoraVersion(five, 0x10005)), 0x8748);
    EXPECT_STREQ(five, "Velm");
    char16_t wide[4];
    EXPECT_EQ(static_cast<uint16_t>(GetVelmoraVersionW(W(wide), 4)), 0x8748);
    EXPECT_EQ(std::u16string(wide), u"Vel");

    ASSERT_EQ(SetVelmoraProductName("Acme Archive"), 1u);
    EXPECT_EQ(ProductName(), u"Acme Archive");
    GetVelmoraVersion(text, sizeof text);
    EXPECT_STREQ(text, "Velmora 8.748 (Unicode)");  // the version keeps its own name
    ASSERT_EQ(SetVelmoraProductNameW(nullptr), 1u);
    EXPECT_EQ(ProductName(), u"Velmora");
}

TEST_F(Gate, SetPointerStoresOrRefuses) {
    DWORD slot = 5;
    EXPECT_EQ(SetVelmoraPointer(&slot, 0xFFFFFFFFu), -1);
    EXPECT_EQ(slot, 0xFFFFFFFFu);
    EXPECT_NE(SetVelmoraPointer(nullptr, 0), 0);
}

TEST_F(Gate, ConversionDefaultsAreFilledAtLoad) {
    // The shared library's load does this; the tests link the archive.
    ASSERT_EQ(EnsureLibraryInitialized(), 1);
    const ConversionDefaults* defaults = DefaultConversionOptions();
    EXPECT_EQ(defaults->flags, 0x1483u);
    const uint8_t expected[10] = {2, 6, 0, 1, 1, 2, 1, 1, 4, 1};
    EXPECT_EQ(std::memcmp(defaults->byteOptions, expected, 10), 0);
    EXPECT_EQ(defaults->resolution, 300000u);
    EXPECT_EQ(defaults->owned, nullptr);
}

TEST_F(Gate, ComponentServerWithoutClasses) {
    CLSID clsid = {};
    void* object = &clsid;
    EXPECT_EQ(DllGetClassObject(clsid, clsid, &object), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

}  // namespace
}  // namespace velmora
