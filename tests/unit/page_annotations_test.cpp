// A page's annotations through the exports: the page's own block merged with
// the document's ".art" companion in each companion mode, and a redaction
// burned into the page when it is read with burning asked for.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "annotations/annotation.h"
#include "annotations/annotation_stream.h"
#include "dib/dib_layout.h"
#include "dib/image.h"
#include "dib/pixel_fetch.h"
#include "dib_test_images.h"
#include "io/byte_order.h"
#include "platform/platform.h"
#include "temp_names.h"
#include "velmora/velmora.h"

namespace velmora {
namespace {

constexpr AnnotationRect kRedaction = {10, 8, 30, 20};

// A stream of `count` annotations: the first a black redaction rectangle
// over kRedaction, the others ellipses.
std::vector<uint8_t> Stream(int count) {
    ErrorRecord record;
    AnnotationList list;
    for (int i = 0; i < count; ++i) {
        Annotation* a =
            NewAnnotation(i == 0 ? AnnotationFamily::Rectangle : AnnotationFamily::Ellipse, nullptr, &record);
        if (i == 0) {
            a->rectangle.rect = kRedaction;
            a->rectangle.backColor = 0;
            a->nodeFlags = kNodeRedaction;
        } else {
            a->ellipse.rect = {1, 1, 5, 5};
            a->ellipse.outlineColor = 0xFF;
        }
        list.Append(a, &record);
    }
    uint32_t size = 0;
    HGLOBAL block = WriteAnnotationStream(list, false, &size, &record);
    EXPECT_TRUE(record.ok());
    const auto* bytes = static_cast<const uint8_t*>(platform::MemLock(block));
    std::vector<uint8_t> out(bytes, bytes + size);
    platform::MemUnlock(block);
    platform::MemFree(block);
    return out;
}

// A companion store with one stream per page (an empty one for none).
std::vector<uint8_t> Companion(const std::vector<std::vector<uint8_t>>& pages) {
    std::vector<uint8_t> out(32 + 8 * pages.size());
    std::memcpy(out.data() + 4, "VelmoraArt", 10);
    StoreLittleEndian32(&out[24], 1);
    StoreLittleEndian32(&out[28], static_cast<uint32_t>(pages.size()));
    for (size_t i = 0; i < pages.size(); ++i) {
        if (pages[i].empty()) continue;
        StoreLittleEndian32(&out[32 + 8 * i], static_cast<uint32_t>(out.size()));
        StoreLittleEndian32(&out[36 + 8 * i], static_cast<uint32_t>(pages[i].size()));
        out.insert(out.end(), pages[i].begin(), pages[i].end());
    }
    StoreLittleEndian32(out.data(), static_cast<uint32_t>(out.size()));
    return out;
}

// Two white 40 x 30 bi-level pages; the first carries `annotations`.
void WriteDocument(const std::string& path, const std::vector<uint8_t>& annotations) {
    test::TestDib dib = test::MakeDib(40, 30, 1, 2);
    dib.table()[0] = RGBQUAD{255, 255, 255, 0};
    HGLOBAL tiff = OpenVelmoraTIFF(path.c_str(), VELMORA_TIFF_READ | VELMORA_TIFF_WRITE, 1);
    ASSERT_NE(tiff, nullptr);
    HGLOBAL block = platform::MemAlloc(GMEM_MOVEABLE, annotations.size());
    std::memcpy(platform::MemLock(block), annotations.data(), annotations.size());
    platform::MemUnlock(block);
    for (int page = 0; page < 2; ++page) {
        VelmoraAppendTIFF a = {};
        a.size = VELMORA_APPEND_TIFF_SIZE_V7;
        a.flags = VELMORA_APPEND_DIB_POINTER | (page == 0 ? VELMORA_APPEND_ANNOTATIONS : 0);
        a.annotations = block;
        a.dib = dib.words.data();
        a.compression = VELMORA_COMPRESSION_GROUP4;
        ASSERT_EQ(AppendVelmoraOpenTIFFEx(tiff, &a), 1);
    }
    platform::MemFree(block);
    ASSERT_EQ(CloseVelmoraTIFF(tiff), 1);
}

// The number of annotations of `page` from `sources`, or -1 after a
// failure (its error then in *error).
long PageCount(HGLOBAL tiff, DWORD page, uint32_t* error = nullptr, DWORD sources = VELMORA_ANNOTATION_SOURCES_ALL) {
    HGLOBAL stream = nullptr;
    DWORD size = 0;
    if (sources == VELMORA_ANNOTATION_SOURCES_ALL ? !GetVelmoraTIFFAnnotations(tiff, page, &stream, &size)
                                                  : !GetVelmoraTIFFAnnotationsEx(tiff, page, sources, &stream, &size)) {
        if (error != nullptr) *error = GetLastVelmoraErrorCode();
        return -1;
    }
    const long count = stream == nullptr ? 0 : GetVelmoraAnnotationsCount(stream, size);
    DestroyVelmoraAnnotations(stream);
    return count;
}

TEST(PageAnnotations, CompanionModesMergeWithThePagesOwn) {
    const std::string path = testing::TempPath("annotated.tif"), art = testing::TempPath("annotated.art");
    WriteDocument(path, Stream(1));
    testing::WriteBytes(art, Companion({Stream(2), Stream(3)}));

    HGLOBAL plain = OpenVelmoraTIFF(path.c_str(), VELMORA_TIFF_READ, 0);
    EXPECT_EQ(PageCount(plain, 1), 1);
    EXPECT_EQ(PageCount(plain, 2), 0);
    CloseVelmoraTIFF(plain);

    // Page 1 source by source: the mode decides first whether the page's own
    // block counts, the sources asked for then only leave some out.
    struct Mode {
        WORD flags;
        long page1, page2, own1;
    } const modes[] = {{0, 1, 3, 1},
                       {VELMORA_TIFF_DOCUMENT_COMPANION_REPLACE, 2, 3, 0},
                       {VELMORA_TIFF_DOCUMENT_COMPANION_ADD, 3, 3, 1}};
    for (const Mode& mode : modes) {
        const VelmoraOpenTIFFDocument open = {VELMORA_OPEN_TIFF_DOCUMENT_SIZE_V1, mode.flags, path.c_str()};
        HGLOBAL document = OpenVelmoraTIFFDocumentEx(&open);
        ASSERT_NE(document, nullptr);
        HGLOBAL tiff = GetVelmoraTIFFDocumentTIFF(document);
        EXPECT_EQ(PageCount(tiff, 1), mode.page1) << mode.flags;
        EXPECT_EQ(PageCount(tiff, 2), mode.page2) << mode.flags;
        EXPECT_EQ(PageCount(tiff, 1, nullptr, VELMORA_ANNOTATION_SOURCE_OWN), mode.own1) << mode.flags;
        EXPECT_EQ(PageCount(tiff, 1, nullptr, VELMORA_ANNOTATION_SOURCE_COMPANION), mode.page1 - mode.own1);
        EXPECT_EQ(PageCount(tiff, 1, nullptr, VELMORA_ANNOTATION_SOURCE_WANG), 0) << mode.flags;
        CloseVelmoraTIFFDocument(document);
    }
    HGLOBAL some = OpenVelmoraTIFF(path.c_str(), VELMORA_TIFF_READ, 0);
    for (DWORD sources : {0x0u, 0x10u, 0x11u}) {
        uint32_t error = 0;
        EXPECT_EQ(PageCount(some, 1, &error, sources), -1) << sources;
        EXPECT_EQ(error, VELMORA_ERROR_INVALID_PARAMETER) << sources;
    }
    CloseVelmoraTIFF(some);

    // A companion that knows fewer pages than the document.
    testing::WriteBytes(art, Companion({Stream(2)}));
    const VelmoraOpenTIFFDocument add = {VELMORA_OPEN_TIFF_DOCUMENT_SIZE_V1, VELMORA_TIFF_DOCUMENT_COMPANION_ADD,
                                         path.c_str()};
    HGLOBAL document = OpenVelmoraTIFFDocumentEx(&add);
    uint32_t error = 0;
    EXPECT_EQ(PageCount(GetVelmoraTIFFDocumentTIFF(document), 2, &error), -1);
    EXPECT_EQ(error, VELMORA_ERROR_IFD_NOT_FOUND);
    CloseVelmoraTIFFDocument(document);
    std::remove(path.c_str());
    std::remove(art.c_str());
}

// Whether every pixel inside kRedaction is black and every other one white.
bool Redacted(HGLOBAL dib) {
    ImageLock lock(dib);
    const BITMAPINFOHEADER* h = lock.header();
    for (int32_t y = 0; y < h->biHeight; ++y) {
        for (int32_t x = 0; x < h->biWidth; ++x) {
            const bool inside =
                x >= kRedaction.left && x < kRedaction.right && y >= kRedaction.top && y < kRedaction.bottom;
            if (PixelColor(h, PackedBits(h), x, y) != (inside ? 0u : 0xFFFFFFu)) return false;
        }
    }
    return true;
}

TEST(PageAnnotations, RedactionsBurnIntoReadPagesAndLeaveTheStream) {
    const std::string path = testing::TempPath("redacted.tif");
    {
        // The page's redaction as a host marks it.
        HGLOBAL marked = nullptr;
        DWORD markedSize = 0;
        const RECT area = {kRedaction.left, kRedaction.top, kRedaction.right, kRedaction.bottom};
        ASSERT_EQ(InsertVelmoraRedaction(&marked, &markedSize, &area, 0), 0);
        const auto* bytes = static_cast<const uint8_t*>(platform::MemLock(marked));
        // Stored from a block longer than its stream, as burning redactions
        // in place leaves one: the page keeps the stream the block states.
        std::vector<uint8_t> block(bytes, bytes + markedSize);
        block.resize(block.size() + 12);
        WriteDocument(path, block);
        platform::MemUnlock(marked);
        DestroyVelmoraAnnotations(marked);
    }
    HGLOBAL tiff = OpenVelmoraTIFF(path.c_str(), VELMORA_TIFF_READ, 0);
    VelmoraReadTIFFDIB read = {};
    read.size = VELMORA_READ_TIFF_DIB_SIZE_V2;
    read.tiff = tiff;
    read.page = 1;
    read.flags = VELMORA_READ_TIFF_BURN_ANNOTATIONS;
    HGLOBAL burned = ReadVelmoraOpenTIFFDIBEx(&read);
    ASSERT_NE(burned, nullptr);
    EXPECT_TRUE(Redacted(burned));
    HGLOBAL plain = ReadVelmoraOpenTIFFDIB(tiff, 1);
    EXPECT_FALSE(Redacted(plain));

    // Burning redactions only through the short form: drawn in place, and
    // the stream left without annotations.
    HGLOBAL stream = nullptr;
    DWORD size = 0;
    ASSERT_EQ(GetVelmoraTIFFAnnotations(tiff, 1, &stream, &size), 1);
    {
        ImageLock lock(plain);
        EXPECT_EQ(BurnInVelmoraAnnotations(stream, reinterpret_cast<UINT_PTR>(&size), plain, lock.header(),
                                           VELMORA_BURN_IN_KEEP_IMAGE | VELMORA_BURN_IN_REDACTIONS_ONLY),
                  VELMORA_BURNED_IN_PLACE);
    }
    EXPECT_EQ(size, 0u);
    EXPECT_TRUE(Redacted(plain));
    DestroyVelmoraAnnotations(stream);
    FreeImage(&plain);
    FreeImage(&burned);
    CloseVelmoraTIFF(tiff);
    std::remove(path.c_str());
}

}  // namespace
}  // namespace velmora
