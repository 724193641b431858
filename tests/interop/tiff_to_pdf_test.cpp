// TIFF pages converted to PDF through the exports, checked by the peer
// tools: qpdf validates the file, pdfimages reports each image's encoding
// and hands back the fax streams, and pdftoppm renders the pages, which must
// show the source pixels (exactly for bi-level and lossless pages).
#include <stdlib.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <tiffio.h>

#include "support/peers.h"
#include "support/pictures.h"
#include "annotations/annotation.h"
#include "annotations/annotation_stream.h"
#include "frame/settings.h"
#include "frame/settings_store.h"
#include "pdf/cross_reference.h"
#include "pdf/image_page.h"
#include "pdf/jbig2_converter.h"
#include "pdf/ocr_text.h"
#include "pdf/pdfa.h"
#include "platform/platform.h"
#include "tiff/image_file_reader.h"
#include "velmora/velmora.h"

namespace velmora {
namespace {

using peers::Picture;

// Random blocks over a gradient: long runs for the fax and run-length
// coders, noise for everything else.
Picture MakePicture(uint32_t width, uint32_t height, uint32_t channels, uint32_t seed) {
    std::mt19937 random(seed);
    Picture picture{width, height, channels, {}};
    for (size_t i = 0; i < size_t{width} * height * channels; ++i) {
        const size_t x = i / channels % width, y = i / channels / width, c = i % channels;
        picture.pixels.push_back(static_cast<uint8_t>((x / 13 + y / 9 + c) % 3 == 0 ? random() : x + y + c * 60));
    }
    return picture;
}

// The picture thresholded, as a PBM file (1 = black) and as the grey
// picture a renderer shows.
Picture WritePbm(const Picture& grey, const std::string& path) {
    Picture shown = grey;
    const uint32_t rowBytes = (grey.width + 7) / 8;
    std::string bits(size_t{rowBytes} * grey.height, '\0');
    for (size_t i = 0; i < grey.pixels.size(); ++i) {
        const size_t y = i / grey.width, x = i % grey.width;
        shown.pixels[i] = grey.pixels[i] < 128 ? 0 : 255;
        if (shown.pixels[i] == 0) bits[y * rowBytes + x / 8] |= static_cast<char>(0x80 >> (x % 8));
    }
    std::ofstream(path, std::ios::binary) << "P4\n" << grey.width << " " << grey.height << "\n" << bits;
    return shown;
}

struct Case {
    const char* name;
    const char* source;   // "bw", "grey" or "rgb"
    const char* tiffcp;   // options; empty: the source file as it is
    const char* listing;  // pdfimages -list: encoding, colour space, components, bits
    int tolerance;        // largest channel difference of the rendering from our decode (lossy pages)
    bool faxCopy;         // the CCITT stream is the TIFF's strip, byte for byte
    // A setting of the section "PDF" made before the conversion, and its value;
    // settings stay for the cases that follow, which are ordered to allow it.
    const char16_t* setting = nullptr;
    const char16_t* value = nullptr;
};

const Case kCases[] = {
    {"g4", "bw", "-c g4 -r 9999", "ccitt gray 1 1\n", 0, true},
    {"g3", "bw", "-c g3 -r 9999", "ccitt gray 1 1\n", 0, true},
    {"g3-2d", "bw", "-c g3:2d -r 9999", "ccitt gray 1 1\n", 0, true},
    {"g4-strips", "bw", "-c g4 -r 64", "ccitt gray 1 1\n", 0, false},
    {"bw-none", "bw", "-c none -r 9999", "image gray 1 1\n", 0, false},
    {"grey-lzw", "grey", "-c lzw -r 9999", "image gray 1 8\n", 0, false},
    {"grey-packbits", "grey", "-c packbits -r 9999", "image index 1 8\n", 0, false},
    {"rgb-lzw", "rgb", "-c lzw -r 9999", "image rgb 3 8\n", 0, false},
    {"rgb-none", "rgb", "-c none -r 9999", "image rgb 3 8\n", 0, false},
    {"rgb-strips", "rgb", "-c zip -r 8", "image rgb 3 8\n", 0, false},
    {"rgb-jpeg", "rgb", "-c jpeg:95 -r 160", "jpeg rgb 3 8\n", 8, false},
    {"rgb-jpeg-raw", "rgb", "-c jpeg:r:95 -r 160", "jpeg rgb 3 8\n", 8, false},
    {"grey-jpeg", "grey", "-c jpeg:90 -r 160", "jpeg gray 1 8\n", 8, false},
    // JPEG strips are joined into one stream when each ends on a row of MCUs.
    {"rgb-jpeg-raw-strips", "rgb", "-c jpeg:r:95 -r 24", "jpeg rgb 3 8\n", 8, false},
    {"grey-jpeg-strips", "grey", "-c jpeg:90 -r 8", "jpeg gray 1 8\n", 8, false},
    {"palette-smaller", "palette", "-c none -r 9999", "image index 1 8\n", 255, false, u"Enhanced Compress", u"1"},
    {"rgb-to-bw", "rgb", "-c lzw -r 9999", "ccitt gray 1 1\n", 255, false, u"To BW", u"1"},
    {"g4-as-runs", "bw", "-c g4 -r 9999", "image index 1 1\n", 0, false, u"BW Compression", u"32773"},
};

// Page 1 as this library decodes it.
Picture OwnDecode(const std::string& path) {
    ErrorRecord record;
    HGLOBAL dib = ReadImageFileDib(std::u16string(path.begin(), path.end()), 1, 0, 0, nullptr, nullptr, &record);
    EXPECT_NE(dib, nullptr);
    Picture picture = peers::FromDib(dib);
    platform::MemFree(dib);
    return picture;
}

class TiffToPdf : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* tool :
             {"qpdf", "pdfimages", "pdfinfo", "pdftoppm", "tiffcp", "ppm2tiff", "tiffset", "tiffmedian", "pal2rgb"}) {
            REQUIRE_PEER(peers::Have(("/usr/bin/" + std::string(tool)).c_str()), tool);
        }
        setenv("XDG_CONFIG_HOME", dir_.path().c_str(), 1);
        ASSERT_TRUE(SetPrefsRoot(u"Software\\VelmoraTests\\TiffToPdf", &record_));
        pictures_ = {{"grey", MakePicture(240, 160, 1, 1)}, {"rgb", MakePicture(240, 160, 3, 2)}};
        pictures_["bw"] = WritePbm(pictures_["grey"], dir_.Path("bw.pnm"));
        for (const char* name : {"bw", "grey", "rgb"}) {
            if (name[0] != 'b') peers::WritePnm(pictures_[name], dir_.Path(name) + ".pnm");
            ASSERT_TRUE(
                peers::Run(std::string("ppm2tiff -R 200 ") + dir_.Path(name) + ".pnm " + dir_.Path(name) + ".tif"));
        }
        ASSERT_TRUE(peers::Run("tiffmedian -c lzw -r 9999 " + dir_.Path("rgb.tif") + " " + dir_.Path("palette.tif")));
    }

    std::string Tiff(const Case& c) {
        const std::string path = dir_.Path(std::string(c.name) + ".tif");
        EXPECT_TRUE(peers::Run(std::string("tiffcp ") + c.tiffcp + " " + dir_.Path(std::string(c.source) + ".tif") +
                               " " + path));
        return path;
    }

    std::string Convert(const std::string& tiff) {
        const std::string pdf = tiff.substr(0, tiff.size() - 4) + ".pdf";
        EXPECT_TRUE(ConvertVelmoraTIFFToPDF(tiff.c_str(), pdf.c_str())) << GetLastVelmoraErrorCode();
        return pdf;
    }

    // The page at four times the image's resolution, one sample taken from
    // the middle of each image pixel: at that scale the renderer repeats
    // pixels instead of smoothing them.
    Picture Render(const std::string& pdf, bool grey, int page = 1, int imageDpi = 200) {
        const std::string prefix = pdf.substr(0, pdf.size() - 4), number = std::to_string(page);
        Picture big;
        EXPECT_TRUE(peers::Run("pdftoppm -aa no -aaVector no -singlefile -r " + std::to_string(4 * imageDpi) + " -f " +
                               number + " -l " + number + (grey ? " -gray " : " ") + pdf + " " + prefix));
        EXPECT_TRUE(peers::ReadPnm(prefix + (grey ? ".pgm" : ".ppm"), &big));
        Picture picture{big.width / 4, big.height / 4, big.channels, {}};
        for (size_t i = 0; i < size_t{picture.width} * picture.height; ++i) {
            const size_t at = ((4 * (i / picture.width) + 1) * big.width + 4 * (i % picture.width) + 1) * big.channels;
            picture.pixels.insert(picture.pixels.end(), big.pixels.begin() + at,
                                  big.pixels.begin() + at + big.channels);
        }
        return picture;
    }

    void TearDown() override { SetPrefsRoot(u"", &record_); }

    void Set(const char16_t* setting, const char16_t* value) {
        uint32_t error = 0;
        ASSERT_TRUE(WriteUserSetting(SettingsKeyPath(u"PDF"), setting, value, &error));
    }

    ErrorRecord record_;
    peers::TempDir dir_{"tiff-to-pdf"};
    std::map<std::string, Picture> pictures_;
};

TEST_F(TiffToPdf, EachEncodingChecksListsAndRendersAsItsSource) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        uint32_t error = 0;
        const std::string tiff = Tiff(c);
        if (c.setting) ASSERT_TRUE(WriteUserSetting(SettingsKeyPath(u"PDF"), c.setting, c.value, &error));
        const std::string pdf = Convert(tiff);
        EXPECT_TRUE(peers::Run("qpdf --check " + pdf));
        EXPECT_EQ(peers::Output("pdfimages -list " + pdf + " | awk 'NR == 3 { print $9, $6, $7, $8 }'"), c.listing);
        const Picture source = c.tolerance == 0 ? pictures_[c.source] : OwnDecode(tiff);
        EXPECT_LE(peers::LargestDifference(Render(pdf, source.channels == 1), source), c.tolerance);
        if (!c.faxCopy) continue;
        // The single strip is the only run of fax data in the TIFF.
        ASSERT_TRUE(peers::Run("pdfimages -ccitt " + pdf + " " + dir_.Path(c.name)));
        const std::vector<uint8_t> stream = peers::ReadFile(dir_.Path(std::string(c.name) + "-000.ccitt"));
        const std::vector<uint8_t> file = peers::ReadFile(tiff);
        EXPECT_TRUE(stream.size() > 1000 &&
                    std::search(file.begin(), file.end(), stream.begin(), stream.end()) != file.end());
    }
}

// Joined JPEG strips hold the strips' blocks: decoded without smoothing
// across blocks, the joined stream gives exactly the strips' pixels, one
// strip after another.
TEST_F(TiffToPdf, JpegStripsJoinIntoOneStreamOfTheSameBlocks) {
    const Case c = {"ycbcr-strips", "rgb", "-c jpeg:80 -r 32", "jpeg rgb 3 8\n", 0, false};
    const std::string tiff = Tiff(c), pdf = Convert(tiff);
    EXPECT_TRUE(peers::Run("qpdf --check " + pdf));
    ASSERT_TRUE(peers::Run("pdfimages -j " + pdf + " " + dir_.Path("joined")));
    const auto blocky = [](jpeg_decompress_struct& info) { info.do_fancy_upsampling = FALSE; };
    Picture joined, strips{0, 0, 3, {}};
    ASSERT_TRUE(peers::LibjpegDecode(peers::ReadFile(dir_.Path("joined-000.jpg")), &joined, nullptr, blocky));

    TIFF* tif = TIFFOpen(tiff.c_str(), "r");
    ASSERT_NE(tif, nullptr);
    uint32_t count = 0;
    void* tableBytes = nullptr;
    ASSERT_TRUE(TIFFGetField(tif, TIFFTAG_JPEGTABLES, &count, &tableBytes));
    const std::vector<uint8_t> tables(static_cast<uint8_t*>(tableBytes), static_cast<uint8_t*>(tableBytes) + count);
    ASSERT_GT(TIFFNumberOfStrips(tif), 1u);
    for (tstrip_t i = 0; i < TIFFNumberOfStrips(tif); ++i) {
        std::vector<uint8_t> coded(TIFFRawStripSize(tif, i));
        ASSERT_GT(TIFFReadRawStrip(tif, i, coded.data(), static_cast<tmsize_t>(coded.size())), 0);
        Picture strip;
        ASSERT_TRUE(peers::LibjpegDecode(coded, &strip, nullptr, blocky, &tables));
        strips.width = strip.width;
        strips.height += strip.height;
        strips.pixels.insert(strips.pixels.end(), strip.pixels.begin(), strip.pixels.end());
    }
    TIFFClose(tif);
    EXPECT_EQ(peers::LargestDifference(joined, strips), 0);
}

TEST_F(TiffToPdf, PagesAppendedOneByOneKeepSizeTurnAndColours) {
    const std::string g4 = Tiff(kCases[0]), turned = dir_.Path("turned.tif"), coarse = dir_.Path("coarse.tif"),
                      blackIsZero = dir_.Path("black-is-zero.tif"), palette = dir_.Path("palette.tif"),
                      fax = dir_.Path("fax.tif"), pdf = dir_.Path("appended.pdf");
    ASSERT_TRUE(peers::Run("cp " + g4 + " " + turned + " && tiffset -s 274 6 " + turned));
    ASSERT_TRUE(peers::Run("cp " + g4 + " " + blackIsZero + " && tiffset -s 262 1 " + blackIsZero));
    ASSERT_TRUE(peers::Run("ppm2tiff -c lzw -r 9999 -R 100 " + dir_.Path("rgb.pnm") + " " + coarse));
    ASSERT_TRUE(peers::Run("pal2rgb -c none " + palette + " " + dir_.Path("palette-shown.tif")));
    std::ofstream(dir_.Path("fax.pbm"), std::ios::binary) << "P4\n1728 2200\n" << std::string(216 * 2200, '\0');
    ASSERT_TRUE(peers::Run("ppm2tiff -c g4 -r 9999 -R 200 " + dir_.Path("fax.pbm") + " " + fax));

    HGLOBAL document = CreateVelmoraPDF(pdf.c_str(), nullptr);
    for (const std::string& page : {g4, turned, blackIsZero, coarse, palette, fax}) {
        EXPECT_TRUE(AppendVelmoraPDFPage(document, page.c_str(), 1)) << page << " " << GetLastVelmoraErrorCode();
    }
    EXPECT_TRUE(!AppendVelmoraPDFPage(document, g4.c_str(), 2) && GetLastVelmoraErrorCode() == 87u);
    EXPECT_TRUE(SaveVelmoraPDF(document));
    EXPECT_TRUE(CloseVelmoraPDF(document));

    EXPECT_TRUE(peers::Run("qpdf --check " + pdf));
    // Page 1 at 200 dpi, page 2 turned, page 4 at 100 dpi, page 6 a letter-sized fax page.
    EXPECT_EQ(peers::Output("grep -a -o -e '/MediaBox \\[0 0 86.4 57.6\\]' -e '/Rotate 90' -e '/MediaBox \\[0 0 172.8 "
                            "115.2\\]' -e '/MediaBox \\[0 0 622.08 792\\]' " +
                            pdf + " | sort -u | wc -l"),
              "4\n");
    Picture inverted = pictures_["bw"];
    for (uint8_t& value : inverted.pixels) value = static_cast<uint8_t>(255 - value);
    EXPECT_EQ(peers::LargestDifference(Render(pdf, true, 3), inverted), 0);
    EXPECT_EQ(peers::LargestDifference(Render(pdf, false, 4, 100), pictures_["rgb"]), 0);
    EXPECT_EQ(peers::LargestDifference(Render(pdf, false, 5), OwnDecode(dir_.Path("palette-shown.tif"))), 0);
}

// Writes a companion annotation file for the one-page TIFF at `tiff` that
// holds a black rectangle without a border over `rect`.
void WriteCompanion(const std::string& tiff, RECT rect) {
    VelmoraInsertAnnotationInfo box{VELMORA_INSERT_ANNOTATION_INFO_SIZE_V4};
    box.borderColor = box.textColor = box.thirdColor = VELMORA_COLOR_NONE, box.rect = rect;
    HGLOBAL stream = nullptr;
    DWORD size = 0;
    ASSERT_EQ(InsertVelmoraAnnotation(&stream, &size, VELMORA_INSERT_RECTANGLE, &box), 0) << GetLastVelmoraErrorCode();
    const uint32_t header[10] = {40 + size, 0, 0, 0, 0, 0, 1, 1, 40, size};
    std::string bytes(reinterpret_cast<const char*>(header), sizeof header);
    std::memcpy(&bytes[4], "VelmoraArt", 10);
    bytes.append(static_cast<const char*>(platform::MemLock(stream)), size);
    platform::MemUnlock(stream);
    platform::MemFree(stream);
    std::ofstream(tiff.substr(0, tiff.size() - 4) + ".art", std::ios::binary) << bytes;
}

TEST_F(TiffToPdf, AnnotationsAreBurnedInUnlessTheRecordSaysNot) {
    const std::string tiff = Tiff(kCases[0]);
    WriteCompanion(tiff, {40, 30, 120, 90});
    const Picture page = Render(Convert(tiff), true);
    const Picture& source = pictures_["bw"];
    ASSERT_EQ(page.pixels.size(), source.pixels.size());
    for (size_t at = 0; at < source.pixels.size(); ++at) {
        const size_t x = at % source.width, y = at / source.width;
        if (x >= 42 && x < 118 && y >= 32 && y < 88) EXPECT_EQ(page.pixels[at], 0) << x << "," << y;
        if (x < 37 || x >= 123 || y < 27 || y >= 93) EXPECT_EQ(page.pixels[at], source.pixels[at]) << x << "," << y;
    }

    const std::string plain = dir_.Path("plain.pdf");
    VelmoraTIFFToPDFInfo record = {VELMORA_TIFF_TO_PDF_INFO_SIZE_V2, VELMORA_TIFF_TO_PDF_MASKED_VALUES};
    record.source = tiff.c_str(), record.destination = plain.c_str(),
    record.valueMask = VELMORA_TIFF_TO_PDF_VALUE_BURN_IN;
    ASSERT_TRUE(ConvertVelmoraTIFFToPDFEx(&record)) << GetLastVelmoraErrorCode();
    EXPECT_EQ(peers::LargestDifference(Render(plain, true), source), 0);
}

// A movable block holding `bytes`.
HGLOBAL Block(const uint8_t* bytes, size_t size) {
    HGLOBAL block = platform::MemAlloc(GMEM_MOVEABLE, size);
    std::memcpy(platform::MemLock(block), bytes, size);
    platform::MemUnlock(block);
    return block;
}

// An OCR text record of one line of words, each letter 10 pixels wide and
// the words 10 pixels apart, starting at (10, 20).
std::vector<uint8_t> OcrLine(const std::vector<std::string>& words) {
    ErrorRecord record;
    OcrEntry entry;
    int32_t x = 10;
    for (const std::string& word : words) {
        if (x != 10) entry.chars.Append(OcrChar{u' ', OcrCharKind::Separator, {}}, &record);
        for (char c : word) {
            entry.chars.Append(OcrChar{static_cast<uint16_t>(c), OcrCharKind::Boxed, {x, 20, x + 9, 39}}, &record);
            x += 10;
        }
        x += 10;
    }
    OcrTextWriter writer;
    writer.Begin(1, 0, 0, 1);
    CheckedArray<uint8_t> out;
    EXPECT_TRUE(writer.Add(entry, &record) && writer.Finish(&out, &record));
    return std::vector<uint8_t>(out.begin(), out.end());
}

// Each word pdftotext finds, with its box in points: left, top, right, bottom.
std::string WordBoxes(const std::string& pdf) {
    return peers::Output("pdftotext -bbox " + pdf +
                         " - | awk -F'[\"<>]' '/<word/ { printf \"%.1f %.1f %.1f %.1f %s\\n\", "
                         "$3, $5, $7, $9, $11 }'");
}

TEST_F(TiffToPdf, TheTextLayerPlacesEachWordOverItsBoxAndDropsRedactedOnes) {
    REQUIRE_PEER(peers::Have("/usr/bin/pdftotext"), "pdftotext");
    // "alpha" spans pixels 10-59, "beta" 70-109 (under a redaction), "gamma" 120-169.
    const std::vector<uint8_t> text = OcrLine({"alpha", "beta", "gamma"});
    ErrorRecord record;
    AnnotationList list;
    Annotation* redaction = NewAnnotation(AnnotationFamily::Rectangle, nullptr, &record);
    redaction->rectangle.rect = {65, 15, 112, 45};
    redaction->rectangle.backColor = 0;
    redaction->nodeFlags = kNodeRedaction;
    list.Append(redaction, &record);
    uint32_t streamSize = 0;
    HGLOBAL stream = WriteAnnotationStream(list, false, &streamSize, &record);
    HGLOBAL ocr = Block(text.data(), text.size());

    const std::string tiff = dir_.Path("ocr.tif");
    HGLOBAL source = OpenVelmoraTIFF(Tiff(kCases[0]).c_str(), VELMORA_TIFF_READ, 0);
    HGLOBAL target = OpenVelmoraTIFF(tiff.c_str(), VELMORA_TIFF_READ | VELMORA_TIFF_WRITE, 1);
    VelmoraAppendTIFF append = {};
    append.size = VELMORA_APPEND_TIFF_SIZE_V5;
    append.sourceTIFF = source;
    append.sourcePage = 1;
    append.flags = VELMORA_APPEND_OCR_TEXT | VELMORA_APPEND_ANNOTATIONS;
    append.ocrText = ocr;
    append.annotations = stream;
    ASSERT_EQ(AppendVelmoraOpenTIFFEx(target, &append), 1) << std::hex << GetLastVelmoraErrorCode();
    CloseVelmoraTIFF(target);
    CloseVelmoraTIFF(source);
    platform::MemFree(ocr);
    platform::MemFree(stream);

    const std::string pdf = Convert(tiff);
    EXPECT_TRUE(peers::Run("qpdf --check " + pdf));
    // At 200 dpi a pixel is 0.36 point; the words lie on pixel rows 20-39.
    EXPECT_EQ(WordBoxes(pdf), "3.6 7.2 21.6 14.4 alpha\n43.2 7.2 61.2 14.4 gamma\n");

    // Written as LZW data when asked, the layer keeps its words and places;
    // an archive file keeps it plain.
    TiffDocument* document = OpenTiffDocumentFile(std::u16string(tiff.begin(), tiff.end()).c_str(), 0, &record);
    for (const bool archive : {false, true}) {
        const std::string coded = dir_.Path(archive ? "lzw-archive.pdf" : "lzw.pdf");
        PdfDocument* out = CreatePdfDocument(std::u16string(coded.begin(), coded.end()).c_str(), archive, &record);
        if (archive) AddPdfaObjects(out, 0, false, &record);
        out->contentCompression = kPdfContentLzw;
        ImagePageChoices choices;
        choices.archive = archive;
        choices.textLayer = true;
        EXPECT_TRUE(AppendTiffPage(out, document, 1, choices, &record)) << record.code;
        SaveDocument(out, &record);
        ClosePdfDocument(out);
        EXPECT_TRUE(peers::Run("qpdf --check " + coded));
        EXPECT_EQ(peers::Output("grep -a -o LZWDecode " + coded + " | wc -l"), archive ? "0\n" : "1\n");
        EXPECT_EQ(WordBoxes(coded), "3.6 7.2 21.6 14.4 alpha\n25.2 7.2 39.6 14.4 beta\n43.2 7.2 61.2 14.4 gamma\n");
    }
    CloseTiffDocument(document, nullptr);
}

// The width and height of each page's thumbnail image, "none" for a page
// without one, as qpdf reads the file.
std::string Thumbnails(const std::string& pdf) {
    return peers::Output(
        "qpdf --json=2 --json-key=qpdf " + pdf +
        " | " VELMORA_PYTHON
        " -c 'import json, sys\nobjects = json.load(sys.stdin)[\"qpdf\"][1]\n"
        "for page in [o[\"value\"] for o in objects.values() if \"/Contents\" in o.get(\"value\", {})]:\n"
        "    t = page.get(\"/Thumb\")\n"
        "    d = t and objects[\"obj:\" + t][\"stream\"][\"dict\"]\n"
        "    print(d and (d[\"/Width\"], d[\"/Height\"], d[\"/ColorSpace\"]))'");
}

TEST_F(TiffToPdf, StoredThumbnailsBecomeThePagesThumbnails) {
    // A picked bi-level thumbnail of the fax page, an averaged colour one of the RGB page.
    for (const auto& [c, option, listed] : {std::tuple<Case, DWORD, const char*>{kCases[0], 1, "/DeviceGray"},
                                            std::tuple<Case, DWORD, const char*>{kCases[7], 0, "/DeviceRGB"}}) {
        const std::string tiff = Tiff(c), plain = Convert(tiff), pdf = dir_.Path("thumb.pdf");
        ASSERT_TRUE(AppendVelmoraThumbnail(64, 64, option, tiff.c_str()));
        ASSERT_TRUE(ConvertVelmoraTIFFToPDF(tiff.c_str(), pdf.c_str())) << GetLastVelmoraErrorCode();
        EXPECT_TRUE(peers::Run("qpdf --check " + pdf));
        EXPECT_EQ(Thumbnails(pdf), std::string("(64, 42, '") + listed + "')\n");  // 240 x 160 fitted to 64 x 64
        EXPECT_EQ(Thumbnails(plain), "None\n");
    }
}

// Without the converter library nothing is written. With it, every page
// reaches it bi-level in one temporary TIFF, with the command the settings
// ask for; its PDF is copied when it has the document's page count.
TEST_F(TiffToPdf, TheJbig2RouteHandsBilevelPagesToTheConverterLibrary) {
    const std::string tiff = dir_.Path("two.tif"), pdf = dir_.Path("two.pdf"), log = dir_.Path("converter.log");
    ASSERT_TRUE(peers::Run("tiffcp " + dir_.Path("rgb.tif") + " " + dir_.Path("bw.tif") + " " + tiff +
                           " && tiffset -d 1 -s 262 1 " + tiff));
    Set(u"To BW", u"2");
    Set(u"BW Compression", u"34715");
    EXPECT_FALSE(ConvertVelmoraTIFFToPDF(tiff.c_str(), pdf.c_str()));
    EXPECT_EQ(GetLastVelmoraErrorCode(), 0x02000019u);
    EXPECT_FALSE(peers::Run("test -e " + pdf));

    SetJbig2ConverterPath(u"" VELMORA_FAKE_JBIG2_CONVERTER);
    setenv("FAKE_CONVERTER_LOG", log.c_str(), 1);
    setenv("FAKE_CONVERTER_RESULT", "0", 1);
    for (const char* pages : {"2", "1"}) {
        setenv("FAKE_CONVERTER_PAGES", pages, 1);
        const bool whole = pages[0] == '2';
        EXPECT_EQ(ConvertVelmoraTIFFToPDF(tiff.c_str(), pdf.c_str()), whole);
        if (!whole) EXPECT_EQ(GetLastVelmoraErrorCode(), 0x02000009u);
        // Page 2 is black-is-zero: inverted only once asked.
        EXPECT_EQ(peers::Output("tiffinfo " + log + ".tif | grep -e Bits/Sample -e Photometric | sort | uniq -c"),
                  whole ? "      2   Bits/Sample: 1\n      1   Photometric Interpretation: min-is-black\n"
                          "      1   Photometric Interpretation: min-is-white\n"
                        : "      2   Bits/Sample: 1\n      2   Photometric Interpretation: min-is-white\n");
        EXPECT_EQ(peers::Output("cat " + pdf),
                  std::string("%PDF-1.4\n") + "1 0 obj <</Type /Page>> endobj\n" + "1 0 obj <</Type /Page>> endobj\n");
        Set(u"BlackZero To WhiteZero", u"1");
        Set(u"JBIG2 ChkBWColor", u"1");
    }
    SetJbig2ConverterPath(u"");
    // Both temporary files are gone.
    const std::string commands = peers::Output("cat " + log);
    EXPECT_TRUE(std::regex_match(commands, std::regex("-bwimg 2 \"(.*\\.tif)\" \"(.*\\.pdf)\"\n"
                                                      "-chkbwcolor -bwimg 2 \"(.*\\.tif)\" \"(.*\\.pdf)\"\n")))
        << commands;
    EXPECT_EQ(peers::Output("sed 's/.*-bwimg 2 //' " + log + " | xargs ls 2>/dev/null | wc -l"), "0\n");
}

}  // namespace
}  // namespace velmora
