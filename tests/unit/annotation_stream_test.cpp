// Annotation streams: random lists of every family survive writing and
// reading (with their redaction index), streams are rewritten byte for byte,
// and a few fixed byte layouts pin the format.
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "annotations/annotation.h"
#include "annotations/annotation_stream.h"
#include "frame/memory_handle.h"
#include "platform/platform.h"
#include "velmora/velmora.h"

namespace velmora {
namespace {

class Generator {
public:
    explicit Generator(uint32_t seed) : engine_(seed) {}

    uint32_t Below(uint32_t n) { return std::uniform_int_distribution<uint32_t>(0, n - 1)(engine_); }
    bool Chance() { return Below(2) == 0; }
    uint32_t Any() { return Below(0xFFFFFFFFu); }
    int32_t Int() { return static_cast<int32_t>(Any()); }
    uint16_t U16() { return static_cast<uint16_t>(Any()); }
    uint8_t U8() { return static_cast<uint8_t>(Any()); }
    AnnotationRect Rect() { return {Int(), Int(), Int(), Int()}; }
    uint32_t Color() { return Chance() ? kColorNone : (Any() & 0xFFFFFF) | (Chance() ? kColorHighlighter : 0); }
    uint16_t Angle() { return static_cast<uint16_t>(Below(4) * 90); }
    // Texts of ASCII, of wider characters, or empty.
    void Text(AnnotationText* text, size_t longest = 12) {
        char16_t units[40];
        const size_t length = Below(static_cast<uint32_t>(longest) + 1);
        const bool wide = Below(3) == 0;
        for (size_t i = 0; i < length; ++i)
            units[i] = static_cast<char16_t>(wide ? 0x100 + Below(0x3000) : 32 + Below(95));
        ErrorRecord record;
        text->Assign(units, length, &record);
    }

    Annotation* Make(AnnotationFamily family, bool nested = false) {
        ErrorRecord record;
        Annotation* a = NewAnnotation(family, nullptr, &record);
        a->created = a->changed = PackedTime{};
        if (Chance()) {
            for (int i = 0; i < 3; ++i) a->created.words[i] = U16(), a->changed.words[i] = U16();
            a->created.words[2] |= 1;
        }
        a->objectFlags = Below(8);
        const bool applied = Chance(), redaction = Chance();
        a->nodeFlags = (applied ? kNodeApplied : 0) | (redaction ? kNodeRedaction : 0) | kNodeFontFlag;
        switch (family) {
            case AnnotationFamily::Rectangle: Rectangle(a); break;
            case AnnotationFamily::Line: Line(a); break;
            case AnnotationFamily::Freehand: Freehand(a); break;
            case AnnotationFamily::Image: Image(a, nested); break;
            case AnnotationFamily::Ellipse: Ellipse(a); break;
        }
        if (!nested) Groups(a);
        return a;
    }

private:
    void Attached(AttachedData* d) {
        if (Chance()) return;
        d->present = true;
        d->first = Any(), d->second = Any(), d->third = Any();
        for (uint8_t& b : d->guid) b = U8();
        d->fourth = U8(), d->fifth = U8(), d->sixth = U8();
        d->hasSecondText = Chance();
        Text(&d->text1);
        if (d->hasSecondText) Text(&d->text2);
    }

    void Groups(Annotation* a) {
        ErrorRecord record;
        const uint32_t kind = Below(4);
        if (kind == 1) AddAnnotationGroup(a, u"", 0, &record);
        for (uint32_t i = 0; kind >= 2 && i < kind - 1; ++i) {
            AnnotationText name;
            do Text(&name, 8);
            while (name.empty() || name.Equals(kDefaultGroupName));
            AddAnnotationGroup(a, name.c_str(), name.length(), &record);
        }
    }

    void Rectangle(Annotation* a) {
        RectangleFields& r = a->rectangle;
        if (Chance()) {
            r.borderStyle = static_cast<uint16_t>(1 + Below(5)), r.borderWidth = static_cast<uint16_t>(Below(3));
            r.borderColor = Chance() ? 0 : Color();
        }
        r.backColor = Color();
        Text(&r.text);
        r.option1 = r.text.empty() ? 0 : U8(), r.option2 = U8();
        r.textColor = Color();
        AnnotationText face;
        Text(&face, 31);
        std::memcpy(r.fontFace, face.c_str(), face.length() * 2);
        r.textSize = U16(), r.rect = Rect();
        r.flagByte = static_cast<uint8_t>(Below(2));
        r.textRotation = Angle();
        r.styleWord = Below(4) == 0 ? Any() & 0x3F0 : (Any() & 0x70);
        r.backColor2 = r.backStyle() != 0 ? Color() : kColorNone;
        r.thirdColor = Color();
        if (r.text.empty() && Chance()) a->nodeFlags |= Chance() ? kNodeMarker : kNodeSecondRedaction;
        if (Chance()) a->nodeFlags &= ~kNodeFontFlag;
        Attached(&a->attached);
    }

    void Line(Annotation* a) {
        LineFields& l = a->line;
        l.color = Chance() ? 0 : Any();
        l.first = {Int(), Int()}, l.second = {Int(), Int()};
        l.width = static_cast<uint16_t>(Below(0x4000));
        if (Chance()) a->nodeFlags &= ~kNodeFontFlag;
        if (Chance()) return;
        l.endSize1 = static_cast<uint16_t>(Below(0x8000));
        l.endSize2 = static_cast<uint16_t>(Below(0x8000));
        l.endWord = U16(), l.option = U8();
        l.subtype = static_cast<uint8_t>(Below(4));
        if (l.subtype != 0) Text(&l.text);
        l.textWord = Chance() ? 0xFFFF : U16(), l.measurement = Chance() ? 0 : U16();
    }

    void Freehand(Annotation* a) {
        FreehandFields& f = a->freehand;
        if (Chance()) a->nodeFlags |= kNodeSecondRedaction;
        f.fillColor = (a->nodeFlags & kNodeSecondRedaction) != 0 ? kColorNone : Color();
        f.lineColor = Any(), f.style = U16();
        f.width = static_cast<uint16_t>(Below(0x4000));
        ErrorRecord record;
        for (uint32_t s = Below(4); s > 0; --s) {
            const uint32_t n = Below(6);
            f.strokeLengths.Append(n, &record);
            for (uint32_t i = 0; i < n; ++i) f.points.Append({Int(), Int()}, &record);
        }
        ComputeFreehandBounds(&f);
    }

    void Image(Annotation* a, bool nested) {
        ImageFields& m = a->image;
        Attached(&a->attached);
        m.rect = Rect(), m.rotation = Angle(), m.style = U16();
        const bool tagged = m.style > 32767 || AttachedDataSubtype(a->attached) >= 2 ||
                            ((m.style & 2) != 0 && (m.style & 0x300) != 0x300);
        if (tagged && Chance()) m.parameter = Any();
        ErrorRecord record;
        if (Chance()) {
            const size_t size = 1 + Below(64);
            m.dib = AllocHandle(size, 0, &record);
            uint8_t* bytes = static_cast<uint8_t*>(platform::MemLock(m.dib));
            for (size_t i = 0; i < size; ++i) bytes[i] = U8();
            platform::MemUnlock(m.dib);
        }
        if (!nested && Chance()) {
            m.attachedText = Make(AnnotationFamily::Rectangle, true);
            const auto edge = [&] { return static_cast<int32_t>(Below(0x10000)); };
            m.attachedTextRect = {edge(), edge(), edge(), edge()};
        }
    }

    void Ellipse(Annotation* a) {
        EllipseFields& e = a->ellipse;
        e.outlineColor = Color(), e.outlineStyle = U16(), e.outlineWidth = static_cast<uint16_t>(Below(0x7FFF));
        if (Chance()) {
            a->nodeFlags = (a->nodeFlags & ~kNodeRedaction) | kNodeSecondRedaction;
            e.outlineWidth = 0;
        }
        e.fillColor = Color(), e.rect = Rect(), e.option = static_cast<uint16_t>(Below(2)), e.rotation = Angle();
        e.rect.left &= 0x7FFFFFFF;
    }

    std::mt19937 engine_;
};

// Every stored property of an annotation as text, to compare two lists.
std::string Describe(const Annotation& a) {
    std::string s;
    auto add = [&](auto... values) { ((s += std::to_string(static_cast<uint64_t>(values)) + ","), ...); };
    auto raw = [&](const auto& value) { s.append(reinterpret_cast<const char*>(&value), sizeof value); };
    auto text = [&](const AnnotationText& t) {
        s += platform::Utf8FromWide(std::u16string(t.c_str(), t.length())) + "|";
    };
    add(a.family, a.nodeFlags & ~kNodeSelected, a.objectFlags, a.owner != nullptr);
    raw(a.created), raw(a.changed), text(a.linkText);
    for (char16_t c : a.groups) add(c);
    const AttachedData& d = a.attached;
    if (d.present) add(d.first, d.second, d.third, d.fourth, d.fifth, d.sixth, d.hasSecondText), raw(d.guid);
    if (d.present) text(d.text1), text(d.text2);
    const RectangleFields& r = a.rectangle;
    add(r.borderColor, r.borderStyle, r.borderWidth, r.backColor, r.option1, r.option2, r.textColor, r.textSize);
    add(r.optionByte, r.flagByte, r.textRotation, r.styleWord, r.backColor2, r.thirdColor);
    raw(r.fontFace), raw(r.rect), text(r.text);
    const LineFields& l = a.line;
    add(l.color, l.endSize1, l.endSize2, l.endWord, l.width, l.option, l.subtype, l.textWord, l.measurement);
    raw(l.first), raw(l.second), text(l.text);
    const FreehandFields& f = a.freehand;
    add(f.fillColor, f.lineColor, f.style, f.width), raw(f.bounds);
    for (uint32_t n : f.strokeLengths) add(n);
    for (const AnnotationPoint& p : f.points) raw(p);
    const ImageFields& m = a.image;
    add(m.rotation, m.style, m.parameter, m.userValue), raw(m.rect), text(m.fileName);
    if (m.dib != nullptr) {
        s.append(static_cast<const char*>(platform::MemLock(m.dib)), platform::MemSize(m.dib));
        platform::MemUnlock(m.dib);
    }
    if (m.attachedText != nullptr) raw(m.attachedTextRect), s += "[" + Describe(*m.attachedText) + "]";
    raw(a.ellipse);
    return s;
}

std::string Describe(const AnnotationList& list) {
    std::string s;
    for (const Annotation* a : list) s += Describe(*a) + "\n";
    return s;
}
std::string Bytes(HGLOBAL block) {
    const char* bytes = static_cast<const char*>(platform::MemLock(block));
    std::string s(bytes, platform::MemSize(block));
    platform::MemUnlock(block);
    return s;
}

// A random list: every family, with labels owned by earlier redactions (one
// line label and one other label at most) and exemption code texts.
void RandomList(Generator& g, AnnotationList* list) {
    ErrorRecord record;
    for (uint32_t n = g.Below(7); n > 0; --n) {
        Annotation* a = g.Make(static_cast<AnnotationFamily>(1 + g.Below(5)));
        list->Append(a, &record);
        if (IsRedaction(*a) && g.Chance()) g.Text(&a->linkText);
        Annotation* owner = list->at(static_cast<ptrdiff_t>(g.Below(static_cast<uint32_t>(list->size()))));
        if (owner == a || !IsRedaction(*owner) || (owner->nodeFlags & kNodeLabel) != 0 || g.Chance()) continue;
        bool taken = false;
        for (const Annotation* other : *list) {
            taken = taken || (other->owner == owner &&
                              (other->family == AnnotationFamily::Line) == (a->family == AnnotationFamily::Line));
        }
        if (taken) continue;
        a->nodeFlags |= kNodeLabel;
        a->owner = owner;
        a->linkText.Clear();
    }
}

TEST(AnnotationStream, RandomListsSurviveWritingAndReadingAndRewriteByteForByte) {
    for (uint32_t seed = 0; seed < 3000; ++seed) {
        Generator g(seed);
        AnnotationList list;
        RandomList(g, &list);
        ErrorRecord record;
        uint32_t size = 0, indexSize = 0;
        HGLOBAL stream = WriteAnnotationStream(list, false, &size, &record);
        HGLOBAL index = BuildRedactionIndex(list, false, &indexSize, &record);
        ASSERT_TRUE(record.ok()) << seed;
        ASSERT_EQ(size, platform::MemSize(stream));

        AnnotationList read;
        uint32_t loaded = 7;
        const std::string bytes = Bytes(stream);
        ASSERT_TRUE(ReadAnnotationStream(reinterpret_cast<const uint8_t*>(bytes.data()), size, &read, &loaded, &record))
            << seed << " " << std::hex << record.code;
        EXPECT_EQ(loaded, 0u);
        if (index != nullptr) {
            const std::string entries = Bytes(index);
            ASSERT_TRUE(
                ReadRedactionIndex(reinterpret_cast<const uint8_t*>(entries.data()), indexSize, &read, &record));
        }
        ASSERT_EQ(Describe(list), Describe(read)) << "seed " << seed;

        uint32_t again = 0;
        HGLOBAL rewritten = WriteAnnotationStream(read, false, &again, &record);
        EXPECT_EQ(Bytes(rewritten), bytes) << "seed " << seed;
        FreeHandle(&stream);
        FreeHandle(&index);
        FreeHandle(&rewritten);
    }
}

TEST(AnnotationStream, ClipboardWritesTheSelectionAndItsLinksWithoutProtectionOrMarkers) {
    ErrorRecord record;
    AnnotationList list;
    for (int i = 0; i < 4; ++i) {
        Annotation* a = NewAnnotation(AnnotationFamily::Ellipse, nullptr, &record);
        a->created = a->changed = PackedTime{};
        a->objectFlags = kObjectProtect0 | kObjectProtect1;
        a->ellipse.outlineWidth = static_cast<uint16_t>(i + 1);
        list.Append(a, &record);
    }
    list.at(0)->nodeFlags = kNodeRedaction | kNodeFontFlag;
    list.at(1)->nodeFlags = kNodeLabel | kNodeSelected | kNodeFontFlag;
    list.at(1)->owner = list.at(0);
    uint32_t size = 0;
    HGLOBAL stream = WriteAnnotationStream(list, true, &size, &record);
    ASSERT_NE(stream, nullptr);
    AnnotationList read;
    const std::string bytes = Bytes(stream);
    ASSERT_TRUE(ReadAnnotationStream(reinterpret_cast<const uint8_t*>(bytes.data()), size, &read, nullptr, &record));
    ASSERT_EQ(read.size(), 2u);
    EXPECT_EQ(read.at(0)->ellipse.outlineWidth, 1);
    EXPECT_EQ(read.at(0)->nodeFlags, kNodeFontFlag);
    EXPECT_EQ(read.at(0)->objectFlags, 0u);
    uint32_t indexSize = 0;
    HGLOBAL index = BuildRedactionIndex(list, true, &indexSize, &record);
    ASSERT_EQ(indexSize, 52u);
    const std::string entries = Bytes(index);
    EXPECT_EQ(entries.substr(4, 20), std::string("VelmoraRedactions\0\0\0", 20));
    const uint32_t entry[5] = {0xFFFFFFFFu, 0, 1, 0xFFFFFFFFu, 0};
    EXPECT_EQ(std::memcmp(entries.data() + 32, entry, 20), 0);
    FreeHandle(&stream);
    FreeHandle(&index);
}

TEST(AnnotationStream, WritersChooseTheSmallestTypeThatHoldsTheAnnotation) {
    using F = AnnotationFamily;
    const struct {
        F family;
        void (*change)(Annotation*);
        uint32_t type;
    } cases[] = {
        {F::Rectangle, [](Annotation*) {}, 1},
        {F::Rectangle, [](Annotation* a) { a->objectFlags = kObjectHidden; }, 7},
        {F::Rectangle, [](Annotation* a) { a->objectFlags = kObjectProtect1; }, 12},
        {F::Rectangle, [](Annotation* a) { a->rectangle.thirdColor = 0; }, 18},
        {F::Rectangle, [](Annotation* a) { a->attached.present = true; }, 19},
        {F::Rectangle, [](Annotation* a) { a->rectangle.styleWord = 0x80; }, 22},
        {F::Rectangle, [](Annotation* a) { a->attached.present = a->attached.hasSecondText = true; }, 28},
        {F::Line, [](Annotation* a) { a->objectFlags = kObjectHidden; }, 8},
        {F::Line, [](Annotation* a) { a->line.endWord = 1; }, 25},
        {F::Line, [](Annotation* a) { a->line.subtype = 2, a->line.measurement = 1; }, 26},
        {F::Line, [](Annotation* a) { a->line.subtype = 3; }, 29},
        {F::Freehand, [](Annotation* a) { a->objectFlags = kObjectProtect0; }, 14},
        {F::Image, [](Annotation* a) { a->objectFlags = kObjectHidden; }, 10},
        {F::Image, [](Annotation* a) { a->image.style = 0x8000; }, 24},
        {F::Image, [](Annotation* a) { a->image.style = 2, a->image.parameter = 5; }, 21},
        {F::Ellipse, [](Annotation* a) { a->ellipse.rotation = 90; }, 11},
    };
    for (const auto& c : cases) {
        ErrorRecord record;
        AnnotationList list;
        Annotation* a = NewAnnotation(c.family, nullptr, &record);
        a->created = a->changed = PackedTime{};
        c.change(a);
        list.Append(a, &record);
        uint32_t size = 0, type = 0;
        HGLOBAL stream = WriteAnnotationStream(list, false, &size, &record);
        std::memcpy(&type, Bytes(stream).data() + 32 + 12 + 4, 4);
        EXPECT_EQ(type, c.type);
        FreeHandle(&stream);
    }
}

TEST(AnnotationStream, EmptyListsAndRecordWalking) {
    ErrorRecord record;
    AnnotationList empty;
    uint32_t size = 0;
    HGLOBAL stream = WriteAnnotationStream(empty, false, &size, &record);
    ASSERT_EQ(size, 32u);
    std::string bytes = Bytes(stream);
    EXPECT_EQ(bytes, std::string("\x20\0\0\0VelmoraAnnotations\0\0\x01\0\0\0\0\0\0\0", 32));
    FreeHandle(&stream);

    // A record of size 5 advances the walk by 8; unknown types are dropped.
    bytes.replace(28, 1, "\x02");
    bytes += std::string("\x05\0\0\0\x63\0\0\0", 8) + std::string("\x0c\0\0\0\x06\0\0\0\0\0\0\0", 12);
    bytes[0] = static_cast<char>(bytes.size());
    std::string visited;
    auto data = reinterpret_cast<const uint8_t*>(bytes.data());
    EXPECT_TRUE(WalkAnnotationRecords(
        data, bytes.size(),
        [&](uint32_t type, const uint8_t* body, size_t) {
            visited += std::to_string(type) + "@" + std::to_string(body - data) + " ";
            return true;
        },
        &record));
    EXPECT_EQ(visited, "99@40 6@48 ");
    AnnotationList list;
    uint32_t loaded = 0;
    EXPECT_TRUE(ReadAnnotationStream(data, bytes.size(), &list, &loaded, &record));
    EXPECT_EQ(loaded, kLoadUnknownRecords);
    EXPECT_TRUE(list.empty());

    bytes[32] = 48;  // past the end
    EXPECT_FALSE(ReadAnnotationStream(data, bytes.size(), &list, nullptr, &record));
    EXPECT_EQ(record.code, kErrBadAnnotationData);
    bytes[32] = 5;
    bytes[24] = 2;
    record = ErrorRecord{};
    EXPECT_FALSE(ReadAnnotationStream(data, bytes.size(), &list, nullptr, &record));
    EXPECT_EQ(record.code, kErrUnsupportedAnnotations);
}

TEST(AnnotationStream, RemovingAppliedAnnotationsRenumbersTheTable) {
    ErrorRecord record;
    AnnotationList list;
    for (uint32_t flags : {0u, kNodeApplied, 0u, kNodeApplied, 0u}) {
        Annotation* a = NewAnnotation(AnnotationFamily::Ellipse, nullptr, &record);
        a->nodeFlags = flags;
        list.Append(a, &record);
    }
    AnnotationCrossReference table[] = {{7, {0, 2, 4}}, {8, {4, 0xFFFFFFFFu, 0xFFFFFFFFu}}, {9, {1, 0, 0}}};
    size_t count = 3;
    RemoveAppliedAnnotations(&list, table, &count);
    EXPECT_EQ(list.size(), 3u);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(table[0].kind, 7u);
    EXPECT_EQ(table[0].index[1], 1u);
    EXPECT_EQ(table[0].index[2], 2u);
    EXPECT_EQ(table[1].index[0], 2u);
    EXPECT_EQ(table[1].index[1], 0xFFFFFFFFu);
}

}  // namespace
}  // namespace velmora
