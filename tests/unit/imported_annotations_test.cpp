// The foreign annotation blocks, built byte by byte after their published
// layouts, and exemption code files.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "annotations/exemption_codes.h"
#include "annotations/sheet_chunk_reader.h"
#include "annotations/wang_reader.h"
#include "temp_names.h"

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

struct MarkSpec {
    uint32_t type;
    int32_t left = 10, top = 20, right = 19, bottom = 29;
    uint32_t highlight = 0;
    uint32_t visible = 1;
};

// A Wang block: the header, then marks and named blocks in the order added.
struct WangBlock {
    Bytes bytes = Words({0, 1});

    WangBlock& Mark(const MarkSpec& spec) {
        Put32(&bytes, 5);
        Put32(&bytes, 164);
        Bytes record = Words({spec.type, uint32_t(spec.left), uint32_t(spec.top), uint32_t(spec.right),
                              uint32_t(spec.bottom), 0x00112233, 0x00445566, spec.highlight, 0, 7});
        record.resize(164);
        std::memcpy(&record[48], Words({uint32_t(-12), 0, 0, 0, 700}).data(), 20);  // height, weight
        record[68] = 1;                                                             // italic
        std::memcpy(&record[76], "Arial", 5);
        std::memcpy(&record[116], &spec.visible, 4);
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

std::u16string Groups(const Annotation& a) { return std::u16string(a.groups.begin(), a.groups.end()); }

struct WangCase {
    MarkSpec mark;
    std::vector<std::pair<const char*, Bytes>> named;
    std::function<void(const Annotation&)> check;
};

TEST(WangAnnotations, EveryMarkTypeConverts) {
    const Bytes linePoints = Words({2, 2, 1, 2, 5, 6});
    Bytes arrow = Words({1, 30, 20, 1, 0, 0, 0, 0});
    arrow.insert(arrow.end(), linePoints.begin(), linePoints.end());
    Bytes placement = Words({6, 0, 0, 0, 0, 0, 3, 0x22, 5000});
    placement.resize(56);
    const std::vector<WangCase> cases = {
        {{5, 10, 10, 19, 19, 0, 0},
         {},
         [](const Annotation& a) {
             EXPECT_EQ(a.rectangle.borderStyle, 1);
             EXPECT_EQ(a.rectangle.borderColor, 0x332211u);
             EXPECT_EQ(a.rectangle.borderWidth, 7);
             EXPECT_EQ(a.rectangle.backColor, kColorNone);
             EXPECT_EQ(a.rectangle.rect.right, 20);
             EXPECT_EQ(a.rectangle.rect.bottom, 20);
             EXPECT_TRUE(a.hidden());
             EXPECT_EQ(Groups(a), u"Default\0"s);
         }},
        {{6, 0, 0, 0, 0, 1}, {}, [](const Annotation& a) { EXPECT_EQ(a.rectangle.backColor, 0x01332211u); }},
        {{508},
         {},
         [](const Annotation& a) {
             EXPECT_EQ(a.rectangle.backColor, 0x332211u);
             EXPECT_EQ(a.nodeFlags, kNodeRedaction | kNodeFontFlag);
         }},
        {{514}, {}, [](const Annotation& a) { EXPECT_EQ(a.rectangle.backColor, 0x01332211u); }},
        {{7},
         {{"OiAnText", TextBlock(900, "Hi")}, {"OiGroup", Narrow("Own")}},
         [](const Annotation& a) {
             EXPECT_EQ(std::u16string(a.rectangle.fontFace), u"Arial");
             EXPECT_EQ(a.rectangle.textSize, 12);
             EXPECT_EQ(a.rectangle.option1, kWangFontBold | kWangFontItalic);
             EXPECT_EQ(a.rectangle.textRotation, 270);
             EXPECT_EQ(a.rectangle.textColor, 0x332211u);
             EXPECT_EQ(a.rectangle.backColor, kColorNone);
             EXPECT_EQ(a.rectangle.flagByte, 1);
             EXPECT_TRUE(a.rectangle.text.Equals(u"Hi"));
             EXPECT_EQ(Groups(a), u"Own\0"s);
         }},
        {{10},
         {{"OiAnText", TextBlock(2700, "x")}, {"OiUText", WideBlock(u"Né")}},
         [](const Annotation& a) {
             EXPECT_EQ(a.rectangle.borderStyle, 4);
             EXPECT_EQ(a.rectangle.borderColor, 0u);
             EXPECT_EQ(a.rectangle.backColor, 0x332211u);
             EXPECT_EQ(a.rectangle.textColor, 0x665544u);
             EXPECT_EQ(a.rectangle.textRotation, 90);
             EXPECT_TRUE(a.rectangle.text.Equals(u"Né"));
         }},
        {{3},
         {{"OiAnoDat", linePoints}, {"OiUGroup", WideBlock(u"Wide")}},
         [](const Annotation& a) {
             EXPECT_EQ(a.line.first.x, 11);
             EXPECT_EQ(a.line.first.y, 22);
             EXPECT_EQ(a.line.second.x, 15);
             EXPECT_EQ(a.line.second.y, 26);
             EXPECT_EQ(a.line.width, 7);
             EXPECT_EQ(Groups(a), u"Wide\0"s);
         }},
        {{506},
         {{"OiAnoDat", arrow}},
         [](const Annotation& a) {
             EXPECT_EQ(a.line.second.y, 26);
             EXPECT_EQ(a.line.endWord, 2 | 1 << 2);
             EXPECT_EQ(a.line.endSize1, 17);  // 20 cos 30
             EXPECT_EQ(a.line.endSize2, 10);
         }},
        {{510},
         {{"OiAnoDat", Words({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 40, 41, 42, 43})}},
         [](const Annotation& a) {
             EXPECT_EQ(a.line.first.x, 40);
             EXPECT_EQ(a.line.second.y, 43);
         }},
        {{4},
         {{"OiAnoDat", Words({3, 3, 0, 0, 0, 0, 3, 4})}},
         [](const Annotation& a) {
             ASSERT_EQ(a.freehand.points.size(), 2u);
             EXPECT_EQ(a.freehand.points[1].x, 13);
             EXPECT_EQ(a.freehand.points[1].y, 24);
             EXPECT_EQ(a.freehand.strokeLengths[0], 2u);
             EXPECT_EQ(a.freehand.fillColor, kColorNone);
             EXPECT_EQ(a.freehand.style, 0);
         }},
        {{500}, {{"OiAnoDat", Words({1, 1, 0, 0, 0, 0})}}, [](const Annotation& a) { EXPECT_EQ(a.freehand.style, 7); }},
        {{501}, {{"OiAnoDat", Words({1, 1, 0, 0, 0, 0})}}, [](const Annotation& a) { EXPECT_EQ(a.freehand.style, 3); }},
        {{504},
         {},
         [](const Annotation& a) {
             EXPECT_EQ(a.ellipse.fillColor, 0x332211u);
             EXPECT_EQ(a.ellipse.outlineColor, kColorNone);
         }},
        {{505},
         {},
         [](const Annotation& a) {
             EXPECT_EQ(a.ellipse.outlineColor, 0x332211u);
             EXPECT_EQ(a.ellipse.outlineStyle, 1);
             EXPECT_EQ(a.ellipse.outlineWidth, 7);
             EXPECT_EQ(a.ellipse.fillColor, kColorNone);
         }},
        {{1},
         {{"OiAnoDat", placement}, {"OiDIB", SmallDib()}, {"IGOrient", Bytes(4)}},
         [](const Annotation& a) {
             EXPECT_EQ(a.image.rotation, 90);
             EXPECT_EQ(a.image.style, 0x0002 | 0x0800 | 0x2000 | 0x0300);
             EXPECT_EQ(a.image.parameter, kImageDefaultParameter);
             EXPECT_NE(a.image.dib, nullptr);
         }},
    };
    WangBlock block;
    block.Named(2, "OiGroup", Narrow("Default"));
    for (const WangCase& c : cases) {
        block.Mark(c.mark);
        for (const auto& [name, data] : c.named) block.Named(6, name, data);
    }
    // Not converted: an unknown type, and a freehand mark without its points.
    block.Mark({11}).Mark({4});
    AnnotationList list;
    uint32_t loadResult = 0;
    ErrorRecord record;
    ASSERT_TRUE(ReadWangAnnotations(block.bytes.data(), block.bytes.size(), &list, &loadResult, &record));
    EXPECT_EQ(loadResult, kLoadUnknownMarks);
    ASSERT_EQ(list.size(), cases.size());
    for (size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE("mark type " + std::to_string(cases[i].mark.type));
        EXPECT_EQ(list.at(i)->hidden(), cases[i].mark.visible == 0);
        cases[i].check(*list.at(i));
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
    ASSERT_EQ(list.size(), 5u);
    const RectangleFields& text = list.at(0)->rectangle;
    EXPECT_EQ(text.rect.left, 200);
    EXPECT_EQ(text.rect.top, 50);
    EXPECT_EQ(text.rect.right, 400);
    EXPECT_EQ(text.rect.bottom, 150);
    EXPECT_EQ(text.backColor, 0x00FFFFu);
    EXPECT_EQ(text.textSize, 11);
    EXPECT_EQ(text.flagByte, 1);
    EXPECT_TRUE(text.text.Equals(u"ok"));
    EXPECT_EQ(list.at(1)->rectangle.backColor, 0x0100FFFFu);
    EXPECT_EQ(list.at(2)->rectangle.flagByte, 0);
    const LineFields& line = list.at(3)->line;
    EXPECT_EQ(line.second.x, 200);
    EXPECT_EQ(line.second.y, 100);
    EXPECT_EQ(line.endWord, 3);
    EXPECT_EQ(line.width, 3);
    const FreehandFields& freehand = list.at(4)->freehand;
    ASSERT_EQ(freehand.points.size(), 2u);
    EXPECT_EQ(freehand.points[1].x, 200);
    EXPECT_EQ(freehand.points[1].y, 25);
    EXPECT_EQ(freehand.bounds.right, 201);

    for (size_t size = 0; size < block.size(); ++size) {
        AnnotationList partial;
        ASSERT_TRUE(ReadSheetChunkAnnotations(block.data(), size, 200, 100, &partial, &record));
        ASSERT_LE(partial.size(), list.size());
        for (size_t i = 0; i < partial.size(); ++i) ASSERT_EQ(partial.at(i)->family, list.at(i)->family);
    }
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
