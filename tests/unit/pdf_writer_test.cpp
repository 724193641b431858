// The PDF writer's text forms: numbers, names, strings, nested containers,
// dates, and the MD5 digest under the file identifier.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "pdf/document_info.h"
#include "pdf/number_format.h"
#include "pdf/object_writer.h"
#include "platform/digest.h"

namespace velmora {
namespace {

// Serialises `object` (which it frees) as a file of `version` would hold it.
std::string Text(PdfObject* object, uint16_t version = kPdfVersion14) {
    ErrorRecord record;
    CheckedArray<uint8_t> bytes;
    BufferedWriter out;
    out.AttachBytes(&bytes);
    WritePdfObject(&out, object, version, &record);
    out.Flush(&record);
    PdfFreeObject(object);
    EXPECT_TRUE(record.ok());
    return std::string(bytes.begin(), bytes.end());
}

TEST(PdfWriter, NumberFormats) {
    static const struct {
        double value;
        const char* text;
    } kReals[] = {
        {612, "612"},
        {0.5, "0.5"},
        {72.0 / 300, "0.24"},
        {-1.25, "-1.25"},
        {0.0000004, "0"},
        {0.00000075, "0.000001"},
        {1e-9, "0"},
        {0.1 + 0.2, "0.3"},
        {1234567.125, "1234567.125"},
        {2.0000004, "2"},
        {622.08, "622.08"},
        {-0.0000004, "-0"},
        {99.9999996, "100"},
        {1e15, "1000000000000000"},
    };
    char text[kNumberTextSize];
    for (const auto& c : kReals) {
        EXPECT_EQ(std::string(text, FormatReal(c.value, text)), c.text) << c.value;
    }
    static const struct {
        int32_t value;
        const char* text;
    } kIntegers[] = {{0, "0"}, {-1, "-1"}, {2147483647, "2147483647"}, {-2147483647 - 1, "-2147483648"}};
    for (const auto& c : kIntegers) EXPECT_EQ(std::string(text, FormatInteger(c.value, text)), c.text);
}

TEST(PdfWriter, NamesAndStrings) {
    ErrorRecord record;
    static const struct {
        const char* name;
        uint16_t version;
        const char* text;
    } kNames[] = {{"A B", kPdfVersion14, "/A#20B"},
                  {"A B", kPdfVersion11, "/A B"},
                  {"a#b", kPdfVersion14, "/a#23b"},
                  {"(x)/%[]{}<>", kPdfVersion14, "/#28x#29#2f#25#5b#5d#7b#7d#3c#3e"},
                  {"\t\r\n\f", kPdfVersion14, "/#09#0d#0a#0c"},
                  {"caf\xe9\x80", kPdfVersion14, "/caf\xe9\x80"}};
    for (const auto& c : kNames) EXPECT_EQ(Text(PdfMakeName(c.name, &record), c.version), c.text) << c.name;
    // A name whose escapes would pass 255 bytes stops before the first that
    // does not fit.
    EXPECT_EQ(Text(PdfMakeName(std::string(100, ' ').c_str(), &record)).size(), 1u + 85 * 3);

    static const struct {
        const char* bytes;
        bool hex;
        const char* text;
    } kStrings[] = {{"a(b)c", false, "(a(b)c)"},       {"a)b", false, "(a\\)b)"},    {"x\ny", false, "(x\\ny)"},
                    {"(a\r\n)", false, "((a\\r\\n))"}, {"a\\b", false, "(a\\\\b)"},  {"((x)", false, "(\\(\\(x\\))"},
                    {"x\n)", false, "(x\\n\\))"},      {"\x01\xab", true, "<01ab>"}, {"", false, "()"},
                    {"caf\xe9", false, "(caf\xe9)"}};
    for (const auto& c : kStrings) {
        EXPECT_EQ(Text(PdfMakeString(c.bytes, -1, c.hex, &record)), c.text) << c.bytes;
    }
    EXPECT_TRUE(record.ok());
}

TEST(PdfWriter, ContainersKeepOrderAndReplaceInPlace) {
    ErrorRecord record;
    PdfObject* page = PdfMakeDictionary(&record);
    PdfDictionarySetName(page, "Type", "Page", &record);
    PdfObject* box = PdfMakeArray(&record);
    for (double v : {0.0, 0.0, 622.08, 792.0}) PdfArrayAppend(box, PdfMakeReal(v, &record), &record);
    PdfDictionarySet(page, "MediaBox", box, &record);
    PdfDictionarySetInteger(page, "Rotate", 90, &record);
    PdfDictionarySetBoolean(page, "Flag", true, &record);
    PdfDictionarySet(page, "Empty", PdfMakeNull(&record), &record);
    // Keys match without regard to case; the first position is kept.
    PdfDictionarySetInteger(page, "ROTATE", -270, &record);
    ASSERT_NE(PdfDictionaryGet(page, "rotate"), nullptr);
    EXPECT_EQ(PdfDictionaryGet(page, "rotate")->integer, -270);
    PdfDictionaryRemove(page, "flag");
    PdfDictionaryRemove(page, "Empty");
    PdfDictionarySetUnsigned(page, "Prev", 4000000000u, &record);
    EXPECT_EQ(Text(page), "<</Type /Page /MediaBox [0 0 622.08 792] /Rotate -270 /Prev 4000000000>>");
    EXPECT_TRUE(record.ok());
}

TEST(PdfWriter, DatesKeepTheBiasSign) {
    SYSTEMTIME time = {};
    time.wYear = 2024;
    time.wMonth = 2;
    time.wDay = 29;
    time.wHour = 7;
    time.wMinute = 5;
    time.wSecond = 9;
    static const struct {
        bool known;
        int32_t bias;
        const char* text;
    } kCases[] = {
        {true, -120, "D:20240229070509-02'00'"}, {true, 0, "D:20240229070509Z"},
        {true, 300, "D:20240229070509+05'00'"},  {true, -345, "D:20240229070509-05'45'"},
        {false, 60, "D:20240229070509"},
    };
    char text[kPdfDateSize];
    for (const auto& c : kCases) EXPECT_EQ(std::string(text, FormatPdfDate(time, c.known, c.bias, text)), c.text);
}

TEST(PdfWriter, Md5DigestsOfKnownMessages) {
    static const struct {
        const char* message;
        const char* digest;
    } kVectors[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& v : kVectors) {
        // The message in two pieces, split in the middle.
        size_t length = std::strlen(v.message);
        platform::DigestPiece pieces[] = {{v.message, length / 2}, {v.message + length / 2, length - length / 2}};
        uint8_t digest[platform::kMd5Size];
        uint32_t error = 0;
        ASSERT_TRUE(platform::Md5Digest(pieces, 2, digest, &error));
        char hex[33];
        for (size_t i = 0; i < sizeof digest; ++i) std::snprintf(hex + 2 * i, 3, "%02x", digest[i]);
        EXPECT_STREQ(hex, v.digest) << v.message;
    }
}

}  // namespace
}  // namespace velmora
