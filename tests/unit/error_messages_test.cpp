// How an error code becomes a message, and how the last error is published.
#include <string>

#include <gtest/gtest.h>

#include "frame/error_record.h"
#include "frame/library.h"
#include "frame/memory_handle.h"
#include "platform/platform.h"
#include "velmora/velmora.h"
#include "wide.h"
#include "../support/last_error.h"

namespace velmora {
namespace {

using testing_support::ErrorOf;

std::u16string Message(uint32_t code) {
    char16_t text[kMessageLength];
    BuildErrorMessage(code, text, kMessageLength);
    return text;
}

std::u16string Exported(DWORD code, WORD size = 512) {
    char16_t text[512] = {u'x'};
    EXPECT_EQ(GetVelmoraErrorMessageW(code, W(text), size), 1);
    return text;
}

TEST(ErrorMessages, CodesFindTheirTexts) {
    // (Which text each library code has is the message table's, checked
    // with the resources.)
    EXPECT_EQ(Message(0x02000004), u"Bad file data.");
    EXPECT_EQ(Message(10054), u"Connection reset by peer.");
    EXPECT_EQ(Message(32), u"The file cannot be opened because it is already open.");
#if !defined(_WIN32)
    // Windows has texts of its own for these; elsewhere the built-in ones serve.
    EXPECT_EQ(Message(8), u"Not enough storage is available to process this command.");
    EXPECT_EQ(Message(14), u"Not enough storage is available to complete this operation.");
#endif
}

TEST(ErrorMessages, UnknownCodesAndTheDeliberateFallbacks) {
    // The system's own text for 120 is never used.
    EXPECT_EQ(Exported(120, 64), u"Unknown error (120)");
    EXPECT_EQ(Exported(0), u"Unknown error (120)");
    EXPECT_EQ(Exported(0x0200007F), u"Unknown error (33554559)");
    EXPECT_EQ(Exported(0x0200001D), u"Unknown error (33554461)");
    // Wide output is truncated, not refused.
    EXPECT_EQ(Exported(0x02000003, 3), u"IF");
}

TEST(ErrorMessages, NarrowOutputMustHoldTheWholeMessage) {
    char text[64];
    ASSERT_EQ(GetVelmoraErrorMessage(0x02000003, text, sizeof text), 1);
    EXPECT_STREQ(text, "IFD not found.");
    EXPECT_EQ(GetVelmoraErrorMessage(0x02000003, text, 3), 0);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(ErrorOf(GetVelmoraErrorMessage(0x02000003, nullptr, 16) == 0), 998u);
}

TEST(ErrorRecords, FirstErrorWinsAndDetailsJoinOnOneLineBreak) {
    ErrorRecord record;
    SetRecordError(&record, 0x02000003, 0);
    SetRecordError(&record, 0x02000004, 0);
    EXPECT_EQ(record.code, 0x02000003u);
    EXPECT_EQ(std::u16string(record.message), u"IFD not found.");

    // A detail template (string 178: "Unable to load dll (%s)") follows after
    // exactly one CR LF.
    ErrorRecord withDetail;
    SetRecordError(&withDetail, 0x02000004, 178, u"shell32.dll");
    EXPECT_EQ(std::u16string(withDetail.message), u"Bad file data.\r\nUnable to load dll (shell32.dll)");

    // A system text's own line break is stripped before the detail is added.
    ErrorRecord system;
    SetRecordError(&system, 2, 178, u"x.dll");
    std::u16string text(system.message);
    EXPECT_EQ(text.find(u"\r\n"), text.rfind(u"\r\n"));
    EXPECT_NE(text.find(u"\r\nUnable to load dll (x.dll)"), std::u16string::npos);

    ErrorRecord zero;
    SetRecordError(&zero, 0, 0);
    EXPECT_EQ(zero.code, 120u);

    SetRecordError(nullptr, 5, 0);  // no record: nothing happens
}

TEST(ErrorRecords, FinishPublishesTheRecordAndSuccessLeavesTheLastError) {
    // Start-up sets the system's error on the way: done before the checks.
    ASSERT_EQ(EnsureLibraryInitialized(), 1);
    SetErrorCode(7);
    ErrorRecord ok;
    EXPECT_EQ(FinishWithRecord(ok), 1);
    EXPECT_EQ(LastErrorCode(), 7u);

    ErrorRecord failed;
    SetRecordError(&failed, 0x02000006, 0);
    EXPECT_EQ(ErrorOf(FinishWithRecord(failed) == 0), 0x02000006u);
    EXPECT_EQ(std::u16string(LastErrorMessage()), u"Bad image data.");
    EXPECT_EQ(platform::GetSystemError(), 0x02000006u);

    // Set by code alone: the message is cleared; the thread's error is left.
    EXPECT_EQ(SetLastVelmoraError(55), 55u);
    EXPECT_EQ(LastErrorCode(), 55u);
    EXPECT_EQ(std::u16string(LastErrorMessage()), u"");
    EXPECT_EQ(platform::GetSystemError(), 0x02000006u);
}

TEST(ErrorRecords, AllocationFailureNamesTheRequest) {
    ErrorRecord record;
    const size_t huge = SIZE_MAX / 2;
    HGLOBAL block = AllocHandle(huge, 0, &record);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(record.code, 8u);
    std::u16string expected =
        u"\r\nUnable to allocate memory (allocating " + platform::WideFromUtf8(std::to_string(huge)) + u", ";
    EXPECT_NE(std::u16string(record.message).find(expected), std::u16string::npos);

    ErrorRecord ok;
    block = AllocHandle(10, GMEM_ZEROINIT, &ok);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(platform::MemSize(block), 10u);
    FreeHandle(&block);
    EXPECT_EQ(block, nullptr);
    FreeHandle(&block);  // a null handle: nothing happens
}

TEST(DebugLogValidators, CheckTheirArgumentsOnly) {
    EXPECT_EQ(EnableVelmoraDebug(0x1F, 0), 1);
    EXPECT_EQ(ErrorOf(EnableVelmoraDebug(0x20, 0) == 0), 87u);
    EXPECT_EQ(ErrorOf(SetVelmoraDebugLogFile(nullptr) == 0), 998u);
    EXPECT_EQ(SetVelmoraDebugLogFile("log.txt"), 1);
    EXPECT_EQ(ErrorOf(SetVelmoraDebugLogProc(2, nullptr, 0) == 0), 87u);
    EXPECT_EQ(SetVelmoraDebugLogProc(1, nullptr, 0), 1);
}

}  // namespace
}  // namespace velmora
