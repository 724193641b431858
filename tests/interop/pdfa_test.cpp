// Archive conversions checked by qpdf: the file is valid, the catalog names
// the output intent and the metadata, the metadata packet is the fixed one
// with its padding, the profile is the system's own, and an LZW source page
// is re-coded; additional metadata is refused.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/peers.h"
#include "support/pictures.h"
#include "velmora/velmora.h"

namespace velmora {
namespace {

TEST(PdfaOutput, ConversionCarriesProfileMetadataAndIdentifier) {
    REQUIRE_PEER(peers::Have("/usr/bin/qpdf") && peers::Have("/usr/bin/ppm2tiff"), "qpdf, ppm2tiff");
    const std::vector<uint8_t> profile = peers::ReadFile("/usr/share/color/icc/sRGB.icc");
    REQUIRE_PEER(!profile.empty(), "icc-profiles-free");
    peers::TempDir dir("pdfa");
    peers::Picture picture{64, 48, 3, std::vector<uint8_t>(64 * 48 * 3)};
    for (size_t i = 0; i < picture.pixels.size(); ++i) picture.pixels[i] = static_cast<uint8_t>(i * 7 % 251);
    peers::WritePnm(picture, dir.Path("page.ppm"));
    const std::string tiff = dir.Path("page.tif"), pdf = dir.Path("page.pdf"), show = "qpdf " + pdf + " --show-object=";
    ASSERT_TRUE(peers::Run("ppm2tiff -c lzw " + dir.Path("page.ppm") + " " + tiff));
    VelmoraTIFFToPDFInfo info = {VELMORA_TIFF_TO_PDF_INFO_SIZE_V3,
                                 VELMORA_TIFF_TO_PDF_PDFA_VALID | VELMORA_TIFF_TO_PDF_XMP_PADDING,
                                 VELMORA_TIFF_TO_PDF_PDFA};
    info.source = tiff.c_str(), info.destination = pdf.c_str(), info.xmpPadding = 150;
    ASSERT_TRUE(ConvertVelmoraTIFFToPDFEx(&info)) << GetLastVelmoraErrorCode();
    EXPECT_TRUE(peers::Run("qpdf --check " + pdf));

    const std::string catalog = peers::Output(show + "2");
    EXPECT_NE(catalog.find("/DestOutputProfile 4 0 R"), std::string::npos) << catalog;
    EXPECT_NE(catalog.find("/Metadata 5 0 R"), std::string::npos) << catalog;
    EXPECT_NE(peers::Output(show + "trailer").find("/ID ["), std::string::npos);
    EXPECT_EQ(peers::Output(show + "5 --raw-stream-data"),
              "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
              "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">\n"
              "<rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n"
              "<rdf:Description rdf:about=\"\"\nxmlns:pdfaid=\"http://www.aiim.org/pdfa/ns/id/\">\n"
              "<pdfaid:part>1</pdfaid:part>\n<pdfaid:conformance>B</pdfaid:conformance>\n</rdf:Description>\n" +
                  std::string(100, ' ') + "\n" + std::string(50, ' ') +
                  "\n</rdf:RDF>\n</x:xmpmeta>\n<?xpacket end=\"w\"?>");
    EXPECT_EQ(peers::Output(show + "4 --raw-stream-data"), std::string(profile.begin(), profile.end()));
    const std::vector<uint8_t> bytes = peers::ReadFile(pdf);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()).find("/LZWDecode"), std::string::npos);

    // Archive files carry no additional metadata.
    info.flags |= VELMORA_TIFF_TO_PDF_METADATA, info.metadata = "extra";
    EXPECT_FALSE(ConvertVelmoraTIFFToPDFEx(&info));
    EXPECT_EQ(GetLastVelmoraErrorCode(), 0x02000005u);
}

}  // namespace
}  // namespace velmora
