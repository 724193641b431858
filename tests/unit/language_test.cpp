// Texts by id, string lists, and language modules. The test build puts a
// German module (vlmr0407.lang) and a mismatched Italian one (vlmr0410.lang)
// beside the test program, which is where the library looks for them.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "frame/language.h"
#include "frame/library.h"
#include "frame/text.h"
#include "velmora/velmora.h"
#include "../support/last_error.h"

namespace velmora {
namespace {

using testing_support::ErrorOf;

class Languages : public ::testing::Test {
protected:
    void SetUp() override { TerminateVelmoraDLL(); }
    void TearDown() override {
        TerminateVelmoraDLL();
        SetStartupLanguage(kEnglishUs);
    }
};

TEST_F(Languages, TextsAndStringLists) {
    ASSERT_EQ(EnsureLibraryInitialized(), 1);
    char16_t text[64];
    ErrorRecord record;
    EXPECT_EQ(LoadText(40, text, 64, &record), 1);
    EXPECT_EQ(std::u16string(text), u"IFD not found.");

    // A string list: its members one after the other, each terminated.
    EXPECT_EQ(LoadText(6710, text, 64, &record), 2);
    EXPECT_EQ(std::u16string(text, 18), std::u16string(u"in\0in\0inch\0inches", 18));
    char narrow[32];
    EXPECT_EQ(LoadTextNarrow(6710, narrow, sizeof narrow, &record), 2);
    EXPECT_EQ(std::memcmp(narrow, "in\0in\0inch\0inches\0", 19), 0);
    EXPECT_TRUE(record.ok());

    // Truncated to the buffer; a size of 0 writes nothing.
    EXPECT_EQ(LoadText(40, text, 4, &record), 1);
    EXPECT_EQ(std::u16string(text), u"IFD");
    text[0] = u'!';
    EXPECT_EQ(LoadText(40, text, 0, &record), 1);
    EXPECT_EQ(text[0], u'!');

    // An id the table does not hold.
    EXPECT_EQ(LoadText(65000, text, 64, &record), 0);
    EXPECT_EQ(text[0], 0);
    EXPECT_NE(std::u16string(record.message).find(u"Unable to load string (65000)"), std::u16string::npos);
}

TEST_F(Languages, MissingModuleAtStartUpLeavesEnglish) {
    SetErrorCode(0);
    EXPECT_EQ(ErrorOf(SetVelmoraLanguage(0x040C) == 0), 2u);
    EXPECT_TRUE(IsLibraryInitialized());
    EXPECT_EQ(GetCurrentLanguage(), kEnglishUs);
    EXPECT_EQ(TextString(40), u"IFD not found.");
    EXPECT_EQ(SetVelmoraLanguage(1033), 1);
}

TEST_F(Languages, ModuleReplacesTranslatableTextsOnly) {
    ASSERT_EQ(SetVelmoraLanguage(0x0407), 1);
    EXPECT_EQ(GetCurrentLanguage(), 0x0407);
    EXPECT_EQ(TextString(40), u"IFD nicht gefunden.");
    EXPECT_EQ(TextString(1), u"Moduldateiname nicht verf\u00fcgbar");
    // Texts the module lacks come from the library.
    EXPECT_EQ(TextString(41), u"Bad file data.");
    char text[64];
    ASSERT_EQ(GetVelmoraErrorMessage(0x02000003, text, sizeof text), 1);
    EXPECT_STREQ(text, "IFD nicht gefunden.");

    // Switching after initialisation, and back.
    EXPECT_EQ(ErrorOf(SetVelmoraLanguage(0x040C) == 0), 2u);
    EXPECT_EQ(GetCurrentLanguage(), 0x0407);
    EXPECT_EQ(SetVelmoraLanguage(1033), 1);
    EXPECT_EQ(TextString(40), u"IFD not found.");
}

TEST_F(Languages, CheckFindsMissingAndMismatchedModules) {
    EXPECT_EQ(ErrorOf(CheckVelmoraLanguage(0, 0) == 0), 87u);
    EXPECT_EQ(ErrorOf(CheckVelmoraLanguage(0x040C, 0) == 0), 2u);
    EXPECT_EQ(CheckVelmoraLanguage(0x0407, 0), 1);

#if defined(_WIN32)
    // Windows shows message boxes; the check runs silently here.
    EXPECT_EQ(CheckVelmoraLanguage(0x0410, 0), 0);
#else
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(CheckVelmoraLanguage(0x0410, 1), 0);
    std::string shown = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(shown.find("String 178 contains incorrect format specifications"), std::string::npos) << shown;
    EXPECT_NE(shown.find("String 6710 contains an incorrect number of strings"), std::string::npos) << shown;
#endif
    EXPECT_EQ(GetLastVelmoraErrorCode(), 13u);
    // A module made for another version of the library.
    EXPECT_EQ(ErrorOf(CheckVelmoraLanguage(0x0413, 0) == 0), 13u);

    // A module that fails its check is never selected.
    EXPECT_EQ(SetVelmoraLanguage(0x0410), 0);
    EXPECT_EQ(SetVelmoraLanguage(0x0413), 0);
    EXPECT_EQ(GetCurrentLanguage(), kEnglishUs);
}

}  // namespace
}  // namespace velmora
