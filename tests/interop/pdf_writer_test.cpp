// Documents written through the PDF writer core, checked by qpdf and
// poppler: a new file, pages added in incremental updates (as tables and as
// cross-reference streams) that keep every earlier revision readable, random
// names and strings read back by qpdf, and the file identifier recomputed
// from its inputs.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "pdf/cross_reference.h"
#include "pdf/indirect_object.h"
#include "platform/local_time.h"
#include "platform/platform.h"
#include "support/peers.h"

namespace velmora {
namespace {

using peers::Have;
using peers::Output;
using peers::ReadFile;
using peers::TempDir;

PdfDocument* Create(const std::string& path, bool archive = false) {
    ErrorRecord record;
    PdfDocument* document = CreatePdfDocument(platform::WideFromUtf8(path).c_str(), archive, &record);
    EXPECT_TRUE(record.ok()) << record.code;
    return document;
}

// Adds a letter-size page filled by a content stream to the page tree.
void AddPage(PdfDocument* document, const char* content) {
    ErrorRecord record;
    uint32_t page = NewPdfObjectNumber(document, &record);
    uint32_t stream = NewPdfObjectNumber(document, &record);
    PdfObject* dictionary = PdfMakeDictionary(&record);
    PdfDictionarySetName(dictionary, "Type", "Page", &record);
    PdfDictionarySetReference(dictionary, "Parent", kPdfPagesNumber, 0, &record);
    PdfObject* box = PdfMakeArray(&record);
    for (double v : {0.0, 0.0, 612.0, 792.0}) PdfArrayAppend(box, PdfMakeReal(v, &record), &record);
    PdfDictionarySet(dictionary, "MediaBox", box, &record);
    PdfDictionarySet(dictionary, "Resources", PdfMakeDictionary(&record), &record);
    PdfDictionarySetReference(dictionary, "Contents", stream, 0, &record);
    WriteIndirectObject(document, dictionary, page, 0, &record);
    PdfFreeObject(dictionary);
    PdfObject* data = PdfMakeStream(&record);
    WriteStreamObject(document, data, stream, content, static_cast<uint32_t>(std::strlen(content)), &record);
    PdfFreeObject(data);

    PdfObject* tree = PdfLoadedObject(document, kPdfPagesNumber);
    PdfArrayAppend(PdfDictionaryGet(tree, "Kids"), PdfMakeReference(page, 0, &record), &record);
    PdfDictionarySetInteger(tree, "Count", static_cast<int32_t>(PdfArrayCount(PdfDictionaryGet(tree, "Kids"))),
                            &record);
    document->flags |= kPdfPageTreeChanged;
    EXPECT_TRUE(record.ok()) << record.code;
}

void Save(PdfDocument* document) {
    ErrorRecord record;
    SaveDocument(document, &record);
    EXPECT_TRUE(record.ok()) << record.code;
}

std::string Bytes(const std::string& path) {
    std::vector<uint8_t> bytes = ReadFile(path);
    return std::string(bytes.begin(), bytes.end());
}

void ExpectQpdfAccepts(const std::string& path) {
    std::string out;
    EXPECT_TRUE(Output("qpdf --check '" + path + "' 2>&1", &out)) << out;
    EXPECT_NE(out.find("No syntax or stream encoding errors found"), std::string::npos) << out;
}

std::string Info(const std::string& path) { return Output("pdfinfo '" + path + "' 2>&1"); }

TEST(PdfWriterPeers, NewEmptyDocument) {
    REQUIRE_PEER(Have("/usr/bin/qpdf"), "qpdf");
    TempDir dir("pdf-empty");
    std::string path = dir.Path("empty.pdf");
    PdfDocument* document = Create(path);
    ASSERT_NE(document, nullptr);
    Save(document);
    ClosePdfDocument(document);

    std::string file = Bytes(path);
    EXPECT_EQ(file.substr(0, 17), "%PDF-1.4\r\n%\xa2\xa3\xa9\xb5\r\n");
    EXPECT_EQ(file.substr(17, 23), "\r\n%Created by Velmora\r\n");
    EXPECT_NE(file.find("3 0 obj\r\n<</Type /Pages /Kids [] /Count 0>>\r\nendobj\r\n"), std::string::npos);
    size_t xref = file.find("xref\r\n0 4\r\n0000000000 65535 f\r\n");
    ASSERT_NE(xref, std::string::npos);
    for (int number = 1; number <= 3; ++number) {
        std::string entry = file.substr(xref + 11 + 20 * number, 20);
        ASSERT_EQ(entry.substr(10), " 00000 n\r\n");
        EXPECT_EQ(file.compare(std::stoul(entry), 8, std::to_string(number) + " 0 obj\r"), 0) << entry;
    }
    EXPECT_EQ(file.substr(xref + 91), "trailer\r\n<</Size 4 /Root 2 0 R /Info 1 0 R>>\r\nstartxref\r\n" +
                                          std::to_string(xref) + "\r\n%%EOF\r\n");
    ExpectQpdfAccepts(path);
}

TEST(PdfWriterPeers, UpdatesKeepEarlierRevisions) {
    REQUIRE_PEER(Have("/usr/bin/qpdf") && Have("/usr/bin/pdfinfo"), "qpdf and pdfinfo");
    TempDir dir("pdf-update");
    for (bool streams : {false, true}) {
        std::string path = dir.Path(streams ? "streams.pdf" : "table.pdf");
        PdfDocument* document = Create(path);
        ASSERT_NE(document, nullptr);
        AddPage(document, "q 0 0 1 rg 72 72 200 100 re f Q");
        Save(document);
        const std::string first = Bytes(path);
        ExpectQpdfAccepts(path);
        std::string info = Info(path);
        EXPECT_NE(info.find("Creator:         Velmora 8.748 (Unicode)"), std::string::npos) << info;
        EXPECT_NE(info.find("Page size:       612 x 792 pts (letter)"), std::string::npos) << info;

        // The update that follows the file's own convention: a table, or a
        // stream when the file was opened with one.
        if (streams) document->flags |= kPdfXrefStreams;
        AddPage(document, "q 1 0 0 rg 100 100 50 50 re f Q");
        ErrorRecord record;
        PdfDictionarySetString(PdfLoadedObject(document, kPdfInfoNumber), "Title", "Two (2) pages", -1, false, &record);
        Save(document);
        ClosePdfDocument(document);

        std::string file = Bytes(path);
        ASSERT_GT(file.size(), first.size());
        EXPECT_EQ(file.compare(0, first.size(), first), 0) << "the first revision is never rewritten";
        std::string update = file.substr(first.size());
        EXPECT_EQ(update.substr(0, 24), "\r\n%Modified by Velmora\r\n");
        size_t previous = first.rfind("startxref\r\n") + 11;
        EXPECT_NE(update.find("/Prev " + std::to_string(std::stoul(first.substr(previous)))), std::string::npos);
        if (streams) {
            EXPECT_NE(update.find("/Type /XRef /Index [1 1 3 1 6 3] /W [1 4 2] /Size 9"), std::string::npos) << update;
            EXPECT_EQ(update.find("trailer"), std::string::npos);
        } else {
            // Only what changed: the information dictionary, the page tree
            // and the new page with its contents.
            size_t table = update.find("xref\r\n1 1\r\n");
            ASSERT_NE(table, std::string::npos) << update;
            EXPECT_EQ(update.compare(table + 31, 5, "3 1\r\n"), 0);
            EXPECT_EQ(update.compare(table + 56, 5, "6 2\r\n"), 0);
        }
        ExpectQpdfAccepts(path);
        info = Info(path);
        EXPECT_NE(info.find("Pages:           2"), std::string::npos) << info;
        EXPECT_NE(info.find("Title:           Two (2) pages"), std::string::npos) << info;

        std::string earlier = dir.Path("earlier.pdf");
        peers::WriteFile(earlier, std::vector<uint8_t>(first.begin(), first.end()));
        ExpectQpdfAccepts(earlier);
        EXPECT_NE(Info(earlier).find("Pages:           1"), std::string::npos);
    }
}

// Reads qpdf's form of a dictionary of names and strings: names with "#xx"
// escapes, strings in parentheses with backslash escapes or in hexadecimal.
std::map<std::string, std::string> ParseQpdfDictionary(const std::string& text) {
    std::map<std::string, std::string> pairs;
    std::string key, value;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '/') {
            for (++i; i < text.size() && text[i] != ' '; ++i) {
                key += text[i] == '#' ? static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16)) : text[i];
                if (text[i] == '#') i += 2;
            }
            continue;
        } else if (text.compare(i, 2, "<<") == 0) {
            ++i;
            continue;
        } else if (text[i] == '<') {
            for (++i; text[i] != '>'; i += 2) value += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
        } else if (text[i] == '(') {
            static const std::string kEscapes = "n\nr\rt\tb\bf\f";
            for (++i; text[i] != ')'; ++i) {
                if (text[i] != '\\') {
                    value += text[i];
                } else if (text[++i] >= '0' && text[i] <= '7') {
                    value += static_cast<char>(std::stoi(text.substr(i, 3), nullptr, 8));
                    i += 2;
                } else {
                    size_t at = kEscapes.find(text[i]);
                    value += at != std::string::npos && at % 2 == 0 ? kEscapes[at + 1] : text[i];
                }
            }
        } else {
            continue;
        }
        pairs[key] = value;
        key.clear();
        value.clear();
    }
    return pairs;
}

TEST(PdfWriterPeers, RandomNamesAndStringsReadBackByQpdf) {
    REQUIRE_PEER(Have("/usr/bin/qpdf"), "qpdf");
    TempDir dir("pdf-strings");
    std::mt19937 random(20261125);
    // Delimiters, white space, escapes and bytes from 0x80 come often.
    static const char kBytes[] = "()\\\r\n #%/<>[]{}a\t\x80\xff";
    auto draw = [&](size_t limit, bool zero) {
        std::string bytes(random() % limit, 'a');
        for (char& c : bytes) c = random() % 2 ? kBytes[random() % (sizeof kBytes - 1)] : static_cast<char>(random());
        // Names hold no NUL. qpdf shows "#" unescaped and ends a name at a
        // vertical tab, which the writer leaves raw (it is no PDF white space).
        for (char drop : {'\0', '#', '\v'}) {
            if (!zero) std::replace(bytes.begin(), bytes.end(), drop, '0');
        }
        return bytes;
    };
    for (int round = 0; round < 20; ++round) {
        std::string path = dir.Path("strings.pdf");
        PdfDocument* document = Create(path);
        ASSERT_NE(document, nullptr);
        PdfObject* info = PdfLoadedObject(document, kPdfInfoNumber);
        ErrorRecord record;
        std::map<std::string, std::string> expected;
        for (int i = 0; i < 12; ++i) {
            std::string key = "K" + std::to_string(i) + draw(12, false), value = draw(24, true);
            PdfDictionarySetString(info, key.c_str(), value.data(), static_cast<int64_t>(value.size()), i % 3 == 0,
                                   &record);
            expected[key] = value;
        }
        Save(document);
        ClosePdfDocument(document);
        std::map<std::string, std::string> read = ParseQpdfDictionary(Output("qpdf --show-object=1 '" + path + "'"));
        for (const auto& [key, value] : expected) EXPECT_EQ(read[key], value) << "round " << round;
    }
}

TEST(PdfWriterPeers, IdentifierIsTheDigestOfTheSave) {
    REQUIRE_PEER(peers::Have(VELMORA_PYTHON), "python3");
    TempDir dir("pdf-id");
    std::string path = dir.Path("archive.pdf");
    PdfDocument* document = Create(path, true);
    ASSERT_NE(document, nullptr);
    std::string firstId;
    for (int save = 0; save < 2; ++save) {
        if (save == 1) AddPage(document, "0 g");
        SYSTEMTIME before, after;
        platform::UtcNow(&before);
        Save(document);
        platform::UtcNow(&after);
        char command[1024];
        int span =
            (after.wSecond * 1000 + after.wMilliseconds - before.wSecond * 1000 - before.wMilliseconds + 60000) % 60000;
        std::snprintf(command, sizeof command, "%s %s/interop/pdf_identifier.py '%s' '%s' %u %u %u %u %u %u %u %d",
                      VELMORA_PYTHON, VELMORA_TEST_SOURCE_DIR, path.c_str(), path.c_str(), before.wYear, before.wMonth,
                      before.wDay, before.wHour, before.wMinute, before.wSecond, before.wMilliseconds, span);
        std::string out = Output(command);
        ASSERT_GE(out.size(), 65u) << out;
        EXPECT_NE(out.find("match"), std::string::npos) << out;
        // The first identifier stays what the first save made.
        if (save == 0) {
            EXPECT_NE(Bytes(path).find("<</Type /Catalog /Pages 3 0 R /OutputIntents [<</S /GTS_PDFA1 "
                                       "/OutputConditionIdentifier (sRGB IEC61966-2.1) /Info (sRGB IEC61966-2.1) "
                                       "/DestOutputProfile 4 0 R>>] /Metadata 5 0 R>>"),
                      std::string::npos);
            firstId = out.substr(0, 32);
            EXPECT_EQ(out.substr(33, 32), firstId);
        } else {
            EXPECT_EQ(out.substr(0, 32), firstId);
            EXPECT_NE(out.substr(33, 32), firstId);
        }
    }
    ClosePdfDocument(document);
}

}  // namespace
}  // namespace velmora
