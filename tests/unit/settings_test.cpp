// Where settings are read from: the user's settings under the (movable) root,
// then the host's defaults file.
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "frame/library.h"
#include "frame/settings.h"
#include "velmora/velmora.h"
#include "wide.h"
#include "../support/last_error.h"

namespace velmora {
namespace {

using testing_support::ErrorOf;

constexpr uint16_t kGeneral = 10099;
constexpr uint16_t kTempDir = 10277;

class Settings : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(EnsureLibraryInitialized(), 1);
        uint32_t error = 0;
        // A name no other run or test shares, even within one millisecond.
        static uint32_t serial = std::random_device()();
        root_ = platform::SystemTempDirectory() + u"velmora-settings-" +
                platform::WideFromUtf8(std::to_string(platform::TickCount()) + "x" + std::to_string(++serial));
        ASSERT_TRUE(platform::CreateDirectories(root_, &error));
#if !defined(_WIN32)
        setenv("XDG_CONFIG_HOME", platform::Utf8FromWide(root_).c_str(), 1);
#endif
        // Each test gets settings of its own.
        std::string key = "Software\\VelmoraTests\\" + platform::Utf8FromWide(root_.substr(root_.rfind(u'-') + 1));
        ASSERT_EQ(SetVelmoraWindowPrefsRoot(key.c_str()), 1);
    }
    void TearDown() override {
        SetVelmoraWindowPrefsRootW(W(u""));
        TerminateVelmoraDLL();
    }

    std::u16string WriteFile(const std::u16string& name, const std::string& text) {
        std::u16string path = root_ + u"/" + name;
        std::ofstream(platform::Utf8FromWide(path), std::ios::binary) << text;
        return path;
    }

    std::u16string Read(bool useDefaults) {
        char16_t value[260];
        ErrorRecord record;
        ReadSetting(kGeneral, kTempDir, useDefaults, value, 260, &record);
        EXPECT_TRUE(record.ok());
        return value;
    }

    std::u16string root_;
};

TEST_F(Settings, RootsAreCheckedAndStoredWithoutTrailingBackslash) {
    EXPECT_EQ(ErrorOf(SetVelmoraWindowPrefsRoot("\\Software\\Acme") == 0), 87u);
    EXPECT_EQ(ErrorOf(SetVelmoraWindowPrefsRoot("Software\\\\Acme") == 0), 87u);
    EXPECT_EQ(ErrorOf(SetVelmoraWindowPrefsRoot(nullptr) == 0), 998u);

    ASSERT_EQ(SetVelmoraWindowPrefsRoot("Software\\Acme\\Viewer\\"), 1);
    EXPECT_EQ(PrefsRoot(), u"Software\\Acme\\Viewer");
    EXPECT_EQ(SettingsKeyPath(u"General"), u"Software\\Acme\\Viewer\\General");
    ASSERT_EQ(SetVelmoraWindowPrefsRootW(W(u"")), 1);
    EXPECT_EQ(SettingsKeyPath(u"General"), u"Software\\Solvenir\\Velmora\\3.0\\General");
}

TEST_F(Settings, UserValueFirstThenTheDefaultsFile) {
    EXPECT_EQ(Read(true), u"");  // nothing anywhere: empty, no error

    std::u16string ini = WriteFile(u"defaults.ini",
                                   "; site defaults\r\n[Other]\r\nHKCU\\General\\Temp Dir=wrong\r\n"
                                   "[Defaults]\nhkcu\\general\\temp dir = /from/defaults\n");
    ASSERT_EQ(SetVelmoraIniFileW(W(ini.c_str())), 1);
    EXPECT_EQ(Read(true), u"/from/defaults");
    EXPECT_EQ(Read(false), u"");

    ErrorRecord record;
    ASSERT_TRUE(WriteSetting(kGeneral, kTempDir, u"/from/user", &record));
    EXPECT_EQ(Read(true), u"/from/user");
}

TEST_F(Settings, DefaultsFileMustExistAndMayBeRelativeToTheLibrary) {
    std::u16string good = WriteFile(u"good.ini", "[Defaults]\n");
    ASSERT_EQ(SetVelmoraIniFileW(W(good.c_str())), 1);
    EXPECT_EQ(ErrorOf(SetVelmoraIniFileW(W((root_ + u"/missing.ini").c_str())) == 0), 2u);
    EXPECT_EQ(SettingsFile(), good);  // the previous file stays

    std::u16string beside = LibraryDirectory() + u"velmora-test-defaults.ini";
    std::ofstream(platform::Utf8FromWide(beside)) << "[Defaults]\n";
    EXPECT_EQ(SetVelmoraIniFile(".\\velmora-test-defaults.ini"), 1);
    EXPECT_EQ(SettingsFile(), beside);
    uint32_t error;
    platform::FileDelete(beside, &error);
}

TEST_F(Settings, TemporaryDirectoryComesFromTheSettingWhenItWorks) {
    std::u16string temp = root_ + u"/temp";
    uint32_t error = 0;
    ASSERT_TRUE(platform::CreateDirectories(temp, &error));
    std::u16string ini =
        WriteFile(u"temp.ini", "[Defaults]\nHKCU\\General\\Temp Dir=" + platform::Utf8FromWide(temp) + "\n");
    ASSERT_EQ(SetVelmoraIniFileW(W(ini.c_str())), 1);
    TerminateVelmoraDLL();
    ASSERT_EQ(EnsureLibraryInitialized(), 1);
    EXPECT_EQ(TempDirectory(), temp + platform::PathSeparator());

    // A directory that does not work is ignored without failing start-up.
    ini = WriteFile(u"bad.ini", "[Defaults]\nHKCU\\General\\Temp Dir=" + platform::Utf8FromWide(root_) + "/none\n");
    ASSERT_EQ(SetVelmoraIniFileW(W(ini.c_str())), 1);
    TerminateVelmoraDLL();
    ASSERT_EQ(EnsureLibraryInitialized(), 1);
    EXPECT_EQ(TempDirectory(), platform::SystemTempDirectory());
}

}  // namespace
}  // namespace velmora
