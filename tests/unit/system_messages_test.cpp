// The platform's table of system message texts.

#include <string>

#include <gtest/gtest.h>

#include "platform/system_messages.h"

namespace velmora {
namespace {

std::u16string Message(uint32_t code, size_t size) {
    char16_t buffer[600];
    for (char16_t& c : buffer) c = u'#';
    if (!SystemMessageText(code, buffer, size)) return u"<none>";
    return std::u16string(buffer);
}

TEST(SystemMessageText, KnownCodesAndTruncation) {
    EXPECT_EQ(Message(2, 512), u"The system cannot find the file specified.");
    EXPECT_EQ(Message(1460, 512), u"This operation returned because the timeout period expired.");
    EXPECT_EQ(Message(0x80004005, 512), u"Unspecified error");
    EXPECT_EQ(Message(5, 7), u"Access");  // size counts the terminator
    EXPECT_EQ(Message(5, 1), u"");

    char16_t untouched[2] = {u'#', u'#'};
    EXPECT_TRUE(SystemMessageText(5, untouched, 0));
    EXPECT_EQ(untouched[0], u'#');
}

TEST(SystemMessageText, CodesLeftToTheMessageBuilder) {
    // 8 and 14 have built-in texts, 120 is never asked, 0x8000FFFF uses the
    // message table; none may come from here.
    for (uint32_t code : {0u, 8u, 14u, 120u, 0x8000FFFFu, 0x02000003u, 10004u}) {
        EXPECT_EQ(Message(code, 512), u"<none>") << code;
    }
    for (uint32_t code : {1u, 3u, 87u, 998u, 1223u, 1400u}) {
        const std::u16string text = Message(code, 512);
        ASSERT_FALSE(text.empty()) << code;
        EXPECT_NE(text.back(), u'\n') << code;
        EXPECT_NE(text.back(), u'\r') << code;
    }
}

}  // namespace
}  // namespace velmora
