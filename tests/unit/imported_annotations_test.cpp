// The foreign annotation blocks, built byte by byte after their published
// layouts, pages carrying them copied, and exemption code files.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "../support/memory_stream.h"
#include "annotations/annotation_stream.h"
#include "annotations/exemption_codes.h"
#include "annotations/sheet_chunk_reader.h"
#include "annotations/wang_reader.h"
#include "frame/settings.h"
#include "frame/settings_store.h"
#include "temp_names.h"
#include "tiff/tiff_file.h"
#include "tiff_builder.h"
#include "velmora/velmora.h"

namespace velmora {
namespace {

using Bytes = std::vector<uint8_t>;
using namespace std::string_literals;

void Put32(Bytes* out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out->push_back(static_cast<uint8_t>(v >> (8 * i)));
}
void Put16(Bytes* out, uint16_t v) { out->insert(out->end(), {uint8_t(v), uint8_t(v >> 8)}); }
void PutText(Bytes* out, const std::string& text) { out->insert(out->end(), text.begin(), text.end()); }
void PutWide(Bytes* out, const std::u16string& text) {
    for (char16_t c : text) Put16(out, c);
}
Bytes Words(std::initializer_list<uint32_t> words) {
    Bytes out;
    for (uint32_t w : words) Put32(&out, w);
    return out;
}

struct MarkFields {
    uint32_t type;
    int32_t left = 10, top = 20, right = 19, bottom = 29;
    uint32_t highlight = 0;
    uint32_t visible = 1;
};

// A Wang block: the header, then marks and named blocks in the order added.
struct WangBlock {
    Bytes bytes = Words({0, 1});

    WangBlock& Mark(const MarkFields& mark) {
        Put32(&bytes, 5);
        Put32(&bytes, 164);
        Bytes record = Words({mark.type, uint32_t(mark.left), uint32_t(mark.top), uint32_t(mark.right),
                              uint32_t(mark.bottom), 0x00112233, 0x00445566, mark.highlight, 0, 7});
        record.resize(164);
        std::memcpy(&record[48], Words({uint32_t(-12), 0, 0, 0, 700}).data(), 20);  // height, weight
        record[68] = 1;                                                             // italic
        std::memcpy(&record[76], "Arial", 5);
        std::memcpy(&record[116], &mark.visible, 4);
        bytes.insert(bytes.end(), record.begin(), record.end());
        return *this;
    }
    WangBlock& Named(uint32_t type, const char* name, const Bytes& data) {
        Put32(&bytes, type);
        Put32(&bytes, 12);
        char padded[8] = {};
        std::memcpy(padded, name, std::strlen(name));
        bytes.insert(bytes.end(), padded, padded + 8);
        Put32(&bytes, uint32_t(data.size()));
        bytes.insert(bytes.end(), data.begin(), data.end());
        return *this;
    }
};

Bytes Narrow(const std::string& text) { return Bytes(text.begin(), text.end() + 1); }
Bytes WideBlock(const std::u16string& text) {
    Bytes out = Words({2, 0xAAAA});
    out.resize(6);
    PutWide(&out, text + u'\0');
    return out;
}
Bytes TextBlock(uint32_t orientation, const std::string& text) {
    Bytes out = Words({orientation, 1000, 72000, uint32_t(text.size())});
    PutText(&out, text);
    return out;
}
// A 2 x 1 bottom-up 24-bit picture.
Bytes SmallDib() {
    Bytes out = Words({40, 2, 1, 0x00180001, 0, 8, 0, 0, 0, 0});
    out.resize(48, 0x7F);
    return out;
}

// The converted fields of an annotation in one line.
std::string Summary(const Annotation& a) {
    std::ostringstream out;
    auto rect = [&](const AnnotationRect& r) { out << r.left << ',' << r.top << ',' << r.right << ',' << r.bottom; };
    out << std::hex << "node " << a.nodeFlags << (a.hidden() ? " hidden" : "") << " groups ";
    for (char16_t c : a.groups) out << (c == 0 ? ';' : char(c));
    out << ' ';
    switch (a.family) {
        case AnnotationFamily::Rectangle: {
            const RectangleFields& f = a.rectangle;
            rect(f.rect);
            out << " border " << f.borderStyle << ':' << f.borderColor << ':' << f.borderWidth << " back "
                << f.backColor;
            if (f.flagByte == 0) break;
            out << " text " << f.textColor << ':' << platform::Utf8FromWide(f.fontFace) << ':' << f.textSize << ':'
                << int(f.option1) << ':' << f.textRotation << " '" << platform::Utf8FromWide(f.text.c_str()) << "'";
            break;
        }
        case AnnotationFamily::Line: {
            const LineFields& f = a.line;
            out << f.first.x << ',' << f.first.y << ' ' << f.second.x << ',' << f.second.y << " colour " << f.color
                << " width " << f.width << " ends " << f.endWord << ':' << f.endSize1 << ':' << f.endSize2;
            break;
        }
        case AnnotationFamily::Freehand:
            rect(a.freehand.bounds);
            out << " colour " << a.freehand.lineColor << ':' << a.freehand.fillColor << " width " << a.freehand.width
                << " style " << a.freehand.style << " points";
            for (const AnnotationPoint& p : a.freehand.points) out << ' ' << p.x << ',' << p.y;
            break;
        case AnnotationFamily::Image:
            rect(a.image.rect);
            out << " rotation " << a.image.rotation << " style " << a.image.style << " parameter " << a.image.parameter
                << (a.image.dib != nullptr ? " picture" : "");
            break;
        case AnnotationFamily::Ellipse:
            rect(a.ellipse.rect);
            out << " outline " << a.ellipse.outlineColor << ':' << a.ellipse.outlineStyle << ':'
                << a.ellipse.outlineWidth << " fill " << a.ellipse.fillColor;
            break;
    }
    return out.str();
}

struct WangCase {
    MarkFields mark;
    std::vector<std::pair<const char*, Bytes>> named;
    const char* expected;  // the Summary, numbers in hexadecimal
};

TEST(WangAnnotations, EveryMarkTypeConverts) {
    const Bytes linePoints = Words({2, 2, 1, 2, 5, 6});
    Bytes arrow = Words({1, 30, 20, 1, 0, 0, 0, 0});
    arrow.insert(arrow.end(), linePoints.begin(), linePoints.end());
    Bytes placement = Words({6, 0, 0, 0, 0, 0, 3, 0x22, 5000});
    placement.resize(56);
    const Bytes onePoint = Words({1, 1, 0, 0, 0, 0});
    // Bounds 10,20,19,29 unless given, colour 0x332211, second colour
    // 0x665544, line size 7; a default group "Default".
    const std::vector<WangCase> cases = {
        {{5, 10, 10, 19, 19, 0, 0}, {}, "node 40 hidden groups Default; a,a,14,14 border 1:332211:7 back ffffffff"},
        {{6, 10, 20, 19, 29, 1}, {}, "node 40 groups Default; a,14,14,1e border 0:ffffffff:0 back 1332211"},
        {{508}, {}, "node 41 groups Default; a,14,14,1e border 0:ffffffff:0 back 332211"},
        {{514}, {}, "node 40 groups Default; a,14,14,1e border 0:ffffffff:0 back 1332211"},
        {{7},
         {{"OiAnText", TextBlock(900, "Hi")}, {"OiGroup", Narrow("Own")}},
         "node 40 groups Own; a,14,14,1e border 0:ffffffff:0 back ffffffff text 332211:Arial:c:3:10e 'Hi'"},
        {{10},
         {{"OiAnText", TextBlock(2700, "x")}, {"OiUText", WideBlock(u"Né")}},
         "node 40 groups Default; a,14,14,1e border 4:0:1 back 332211 text 665544:Arial:c:3:5a 'Né'"},
        {{3},
         {{"OiAnoDat", linePoints}, {"OiUGroup", WideBlock(u"Wide")}},
         "node 40 groups Wide; b,16 f,1a colour 332211 width 7 ends 0:0:0"},
        {{506}, {{"OiAnoDat", arrow}}, "node 40 groups Default; b,16 f,1a colour 332211 width 7 ends 6:11:a"},
        {{510},
         {{"OiAnoDat", Words({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 40, 41, 42, 43})}},
         "node 40 groups Default; 28,29 2a,2b colour 332211 width 7 ends 0:0:0"},
        {{4},
         {{"OiAnoDat", Words({3, 3, 0, 0, 0, 0, 3, 4})}},
         "node 40 groups Default; a,14,14,1e colour 332211:ffffffff width 7 style 0 points a,14 d,18"},
        {{500},
         {{"OiAnoDat", onePoint}},
         "node 40 groups Default; a,14,14,1e colour 332211:ffffffff width 7 style 7 points a,14"},
        {{501},
         {{"OiAnoDat", onePoint}},
         "node 40 groups Default; a,14,14,1e colour 332211:ffffffff width 7 style 3 points a,14"},
        {{504}, {}, "node 40 groups Default; a,14,14,1e outline ffffffff:0:0 fill 332211"},
        {{505}, {}, "node 40 groups Default; a,14,14,1e outline 332211:1:7 fill ffffffff"},
        {{1},
         {{"OiAnoDat", placement}, {"OiDIB", SmallDib()}, {"IGOrient", Bytes(4)}},
         "node 40 groups Default; a,14,14,1e rotation 5a style 2b02 parameter 186a0 picture"},
    };
    WangBlock block;
    block.Named(2, "OiGroup", Narrow("Default"));
    for (const WangCase& c : cases) {
        block.Mark(c.mark);
        for (const auto& [name, data] : c.named) block.Named(6, name, data);
    }
    // Later defaults apply only to later marks. Not converted: an unknown
    // type, and a freehand mark without its points.
    block.Named(2, "OiGroup", Narrow("Later")).Mark({11}).Mark({4});
    AnnotationList list;
    uint32_t loadResult = 0;
    ErrorRecord record;
    ASSERT_TRUE(ReadWangAnnotations(block.bytes.data(), block.bytes.size(), &list, &loadResult, &record));
    EXPECT_EQ(loadResult, kLoadUnknownMarks);
    ASSERT_EQ(list.size(), cases.size());
    for (size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(Summary(*list.at(i)), cases[i].expected) << "mark type " << cases[i].mark.type;
    }

    // Every shorter block reads a prefix of the same marks, never more.
    for (size_t size = 0; size < block.bytes.size(); ++size) {
        Bytes cut(block.bytes.begin(), block.bytes.begin() + size);
        AnnotationList partial;
        ASSERT_TRUE(ReadWangAnnotations(cut.data(), cut.size(), &partial, &loadResult, &record));
        ASSERT_LE(partial.size(), list.size());
        for (size_t i = 0; i < partial.size(); ++i) ASSERT_EQ(partial.at(i)->family, list.at(i)->family);
    }
}

TEST(WangAnnotations, OtherIntegerFormatsAndMalformedBlocksStopQuietly) {
    Bytes other = WangBlock().Mark({6}).bytes;
    other[4] = 0;  // the 16-bit layout
    WangBlock unterminated;
    unterminated.Mark({6}).Mark({5}).Named(6, "OiGroup", Bytes{'a'}).Mark({6});
    for (const Bytes& bytes : {other, unterminated.bytes}) {
        AnnotationList list;
        uint32_t loadResult = 0;
        ErrorRecord record;
        EXPECT_TRUE(ReadWangAnnotations(bytes.data(), bytes.size(), &list, &loadResult, &record));
        EXPECT_EQ(list.size(), bytes == other ? 0u : 2u);
    }
}

TEST(WangAnnotations, PicturesByReferenceAreFoundThroughTheImagePathSetting) {
    const std::u16string folder = platform::WideFromUtf8(testing::TempPath("pictures"));
    uint32_t error = 0;
    ASSERT_TRUE(platform::CreateDirectories(folder, &error));
#if !defined(_WIN32)
    setenv("XDG_CONFIG_HOME", platform::Utf8FromWide(folder).c_str(), 1);
#endif
    ErrorRecord record;
    ASSERT_TRUE(SetPrefsRoot(u"Software\\VelmoraTests\\" + platform::WideFromUtf8(testing::ProcessTag()), &record));
    ASSERT_TRUE(WriteUserSetting(SettingsKeyPath(u"O/i ImagePath"), u"Q", folder, &error));
    Bytes bmp = {'B', 'M', 62, 0, 0, 0, 0, 0, 0, 0, 54, 0, 0, 0};  // file size, reserved, bits offset
    const Bytes dib = SmallDib();
    bmp.insert(bmp.end(), dib.begin(), dib.end());
    testing::WriteBytes(platform::Utf8FromWide(folder) + "/pic.bmp", bmp);
    WangBlock block;
    block.Mark({2}).Named(6, "OiAnoDat", Bytes(56)).Named(6, "OiFilNam", Narrow("q:\\pic.bmp"));
    block.Mark({2}).Named(6, "OiAnoDat", Bytes(56)).Named(6, "OiFilNam", Narrow("Q:\\none.bmp"));
    AnnotationList list;
    uint32_t loadResult = 0;
    EXPECT_TRUE(ReadWangAnnotations(block.bytes.data(), block.bytes.size(), &list, &loadResult, &record));
    SetPrefsRoot(u"", &record);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_NE(list.at(0)->image.dib, nullptr);
    EXPECT_TRUE(list.at(0)->image.fileName.Equals((folder + platform::PathSeparator() + u"pic.bmp").c_str()));
}

// One sheet chunk of the given items; each item is a tag and its payload.
Bytes SheetChunk(const std::vector<std::pair<std::string, Bytes>>& items) {
    Bytes body;
    for (const auto& [tag, payload] : items) {
        PutText(&body, tag);
        Put32(&body, uint32_t(payload.size()));
        body.insert(body.end(), payload.begin(), payload.end());
    }
    Bytes chunk;
    PutText(&chunk, "Sht2");
    Put32(&chunk, uint32_t(10 + 3 + 2 + body.size()));
    chunk.push_back(3);
    PutText(&chunk, "one");
    chunk.push_back(2);
    PutText(&chunk, "me");
    chunk.insert(chunk.end(), body.begin(), body.end());
    return chunk;
}

TEST(SheetChunkAnnotations, ItemsConvertWithTheResolution) {
    Bytes box = Words({1000, 500, 2000, 1500, kColorNone, 0x00FFFF, 0x0000FF});
    Put16(&box, 2);
    Put16(&box, 11);
    Put32(&box, 2);
    PutWide(&box, u"ok");
    Bytes arrow = Words({0, 0, 1000, 1000, 0xFF, 0x00030003});
    Bytes scribble = Words({0xFF00, 3, 2, 500, 500, 1000, 250});
    Bytes block = SheetChunk({{"Txt1", box}, {"Hlt1", box}, {"Ilt1", box}, {"Ntb1", Bytes(8)}});
    const Bytes second = SheetChunk({{"Ole1", box}, {"Arw1", arrow}, {"Scr1", scribble}});
    block.insert(block.end(), second.begin(), second.end());
    AnnotationList list;
    ErrorRecord record;
    ASSERT_TRUE(ReadSheetChunkAnnotations(block.data(), block.size(), 200, 100, &list, &record));
    const char* expected[] = {
        "node 40 groups  c8,32,190,96 border 0:ffffffff:2 back ffff text ff::b:0:0 'ok'",
        "node 40 groups  c8,32,190,96 border 0:ffffffff:2 back 100ffff",
        "node 40 groups  c8,32,190,96 border 0:ffffffff:2 back ffff",
        "node 40 groups  0,0 c8,64 colour ff width 3 ends 3:0:0",
        "node 40 groups  64,19,c9,33 colour ff00:ffffffff width 3 style 0 points 64,32 c8,19",
    };
    ASSERT_EQ(list.size(), std::size(expected));
    for (size_t i = 0; i < list.size(); ++i) EXPECT_EQ(Summary(*list.at(i)), expected[i]);

    for (size_t size = 0; size < block.size(); ++size) {
        AnnotationList partial;
        ASSERT_TRUE(ReadSheetChunkAnnotations(block.data(), size, 200, 100, &partial, &record));
        ASSERT_LE(partial.size(), list.size());
        for (size_t i = 0; i < partial.size(); ++i) ASSERT_EQ(partial.at(i)->family, list.at(i)->family);
    }
}

// The annotations of `page` through the export; empty for none.
Bytes PageAnnotations(HGLOBAL tiff, DWORD page) {
    HGLOBAL stream = nullptr;
    DWORD size = 0;
    EXPECT_EQ(GetVelmoraTIFFAnnotations(tiff, page, &stream, &size), 1);
    Bytes bytes = testing_support::TakeBlock(stream);
    bytes.resize(size);
    return bytes;
}

// Copying a page never writes its outside blocks: their annotations go,
// converted, into its own block, whether the image is copied or coded again.
// An outside block that cannot be read leaves the own block as stored.
TEST(OutsideAnnotations, CopiedPagesKeepThemInTheirOwnBlock) {
    AnnotationList ownList;
    uint32_t loadResult = 0, ownSize = 0;
    ErrorRecord record;
    const Bytes ownMark = WangBlock().Mark({6}).bytes;
    ASSERT_TRUE(ReadWangAnnotations(ownMark.data(), ownMark.size(), &ownList, &loadResult, &record));
    Bytes own = testing_support::TakeBlock(WriteAnnotationStream(ownList, false, &ownSize, &record));
    own.resize(ownSize);
    auto block = [](uint16_t tag, uint16_t type, const Bytes& b) {
        return testing::Field{tag, type, b.size(), std::vector<uint64_t>(b.begin(), b.end())};
    };
    std::string paths[2];
    for (int damaged = 0; damaged < 2; ++damaged) {
        testing::Field wang = block(32932, 1, WangBlock().Mark({5}).Mark({504}).bytes);
        wang.rawOffset = damaged ? 1u << 20 : 0;
        testing::TiffBuilder b(false, false);
        b.bytes().resize(24, 0x80);  // an 8 x 2 grey image
        b.AddDirectory({testing::Long(256, {8}), testing::Long(257, {2}), testing::Short(258, {8}),
                        testing::Short(262, {1}), testing::Long(273, {8}), testing::Long(279, {16}),
                        testing::Rational(282, 200, 1), testing::Rational(283, 100, 1), wang,
                        block(33581, 1, SheetChunk({{"Arw1", Words({0, 0, 1000, 1000, 0xFF, 0x00030003})}})),
                        block(33938, 7, own)});
        paths[damaged] = testing::WriteBytes(testing::TempPath("outside" + std::to_string(damaged)), b.bytes());
    }
    HGLOBAL source = OpenVelmoraTIFF(paths[0].c_str(), VELMORA_TIFF_READ, 0);
    const Bytes merged = PageAnnotations(source, 1);
    AnnotationList mergedList;  // own, Wang and sheet-chunk annotations
    ASSERT_TRUE(ReadAnnotationStream(merged.data(), merged.size(), &mergedList, &loadResult, &record));
    EXPECT_EQ(mergedList.size(), 4u);

    // Page 1 copied as coded; page 2 from the damaged file (the copy rewritten
    // with page 1 copied once more); page 3 coded again.
    const std::string copy = testing::TempPath("outside-copy.tif");
    ASSERT_EQ(AppendVelmoraTIFF(copy.c_str(), paths[0].c_str()), 1);
    ASSERT_EQ(AppendVelmoraTIFF(copy.c_str(), paths[1].c_str()), 1);
    VelmoraAppendTIFF recode = {.size = VELMORA_APPEND_TIFF_SIZE_V1,
                                .sourceTIFF = source,
                                .sourcePage = 1,
                                .compression = VELMORA_COMPRESSION_LZW};
    HGLOBAL copied = OpenVelmoraTIFF(copy.c_str(), VELMORA_TIFF_READ | VELMORA_TIFF_WRITE, 0);
    ASSERT_EQ(AppendVelmoraOpenTIFFEx(copied, &recode), 1);
    for (DWORD page = 1; page <= 3; ++page) {
        EXPECT_TRUE(PageAnnotations(copied, page) == (page == 2 ? own : merged)) << page;
        ASSERT_TRUE(LocatePage(TiffFromHandle(copied), page, 0, &record));
        EXPECT_TRUE(!FindEntry(TiffFromHandle(copied), 32932) && !FindEntry(TiffFromHandle(copied), 33581)) << page;
    }
    CloseVelmoraTIFF(copied);
    CloseVelmoraTIFF(source);
    for (const std::string& path : {paths[0], paths[1], copy}) std::remove(path.c_str());
}

TEST(ExemptionCodes, GroupsCodesAndErrors) {
    const std::string good = R"(<?xml version="1.0"?>
<Wrapper><ExemptionCodes>
  <ExemptionCodeGroup Name="foia" DisplayName="FOIA">
    <ExemptionCodeInfo Code="b6" Description="Privacy"/>
    <ExemptionCodeInfo Description="no code"/>
    <ExemptionCodeInfo Code="b1"/>
    <Other Code="x"/>
  </ExemptionCodeGroup>
  <ExemptionCodeGroup Name="foia" DisplayName="Again"><ExemptionCodeInfo Code="z"/></ExemptionCodeGroup>
  <ExemptionCodeGroup DisplayName="No name"/>
  <ExemptionCodeGroup Name="pa" DisplayName="Privacy &amp; Act"><ExemptionCodeInfo Code="k2"/></ExemptionCodeGroup>
</ExemptionCodes></Wrapper>)";
    const std::string path = testing::TempPath("codes.xml");
    testing::WriteBytes(path, Bytes(good.begin(), good.end()));
    ExemptionCodes codes;
    ErrorRecord record;
    ASSERT_TRUE(ReadExemptionCodesFile(platform::WideFromUtf8(path), &codes, &record));
    std::remove(path.c_str());
    ASSERT_EQ(codes.groups.size(), 2u);
    ASSERT_EQ(codes.codes.size(), 3u);
    const ExemptionCodeGroup& first = codes.groups[0];
    EXPECT_EQ(std::u16string(codes.Text(first.displayName)), u"FOIA");
    EXPECT_EQ(first.codeCount, 2u);
    EXPECT_EQ(std::u16string(codes.Text(codes.codes[0].code)), u"b1");
    EXPECT_EQ(codes.codes[0].description, 0u);
    EXPECT_EQ(std::u16string(codes.Text(codes.codes[1].description)), u"Privacy");
    EXPECT_EQ(codes.groups[1].position, 1u);
    EXPECT_EQ(std::u16string(codes.Text(codes.groups[1].displayName)), u"Privacy & Act");
    EXPECT_EQ(codes.codes[2].group, 1u);

#if !defined(_WIN32)
    // The Western Windows code page, which Windows' own reader knows and expat
    // is taught (Wine's reader does not know it).
    const std::string western =
        "<?xml version=\"1.0\" encoding=\"windows-1252\"?><ExemptionCodes>"
        "<ExemptionCodeGroup Name=\"\x80\" DisplayName=\"\xE9\"/></ExemptionCodes>";
    ASSERT_TRUE(
        ReadExemptionCodesBuffer(reinterpret_cast<const uint8_t*>(western.data()), western.size(), &codes, &record));
    EXPECT_EQ(std::u16string(codes.Text(codes.groups[0].name)) + codes.Text(codes.groups[0].displayName), u"€é");
#endif
    const std::string wrongRoot = "<Codes><ExemptionCodes/><ExemptionCodes/></Codes>";
    ErrorRecord wrong;
    EXPECT_FALSE(
        ReadExemptionCodesBuffer(reinterpret_cast<const uint8_t*>(wrongRoot.data()), wrongRoot.size(), &codes, &wrong));
    EXPECT_EQ(wrong.code, kUnexpectedError);
    EXPECT_EQ(codes.groups.size(), 0u);
    ErrorRecord missing;
    EXPECT_FALSE(ReadExemptionCodesFile(u"/nonexistent/codes.xml", &codes, &missing));
    EXPECT_EQ(missing.code, kUnexpectedError);
}

}  // namespace
}  // namespace velmora
