// The PDF-writing exports' refusals, in the order their checks run, around a
// document that is created, saved and closed.
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "../support/last_error.h"
#include "platform/platform.h"
#include "temp_names.h"
#include "velmora/velmora.h"

namespace velmora {
namespace {

using testing_support::ErrorOf;

TEST(PdfExports, RefusalsNameTheirReason) {
    const std::string pdf = testing::TempPath("refusals.pdf");
    const char* path = pdf.c_str();
    HGLOBAL document = CreateVelmoraPDF(path, nullptr);
    ASSERT_NE(document, nullptr);
    HGLOBAL other = platform::MemAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 64);
    EXPECT_EQ(ErrorOf(CreateVelmoraPDF(nullptr, nullptr) == nullptr), 998u);
    EXPECT_EQ(ErrorOf(!AppendVelmoraPDFPage(other, path, 1)), 6u);
    EXPECT_EQ(ErrorOf(!AppendVelmoraPDFPage(document, nullptr, 0)), 87u);
    EXPECT_EQ(ErrorOf(!AppendVelmoraPDFPage(document, nullptr, 1)), 998u);
    EXPECT_TRUE(SaveVelmoraPDF(document));
    // A PDF is a known type, but not a TIFF.
    EXPECT_EQ(ErrorOf(!AppendVelmoraPDFPage(document, path, 1)), 0x0200001Bu);
    const WORD v1 = VELMORA_TIFF_TO_PDF_INFO_SIZE_V1, v2 = VELMORA_TIFF_TO_PDF_INFO_SIZE_V2;
    const VelmoraTIFFToPDFInfo kBadRecords[] = {
        {WORD(v1 + 4), 0},
        {v1, VELMORA_TIFF_TO_PDF_MASKED_VALUES},
        {v1, 0x0020},
        {v2, VELMORA_TIFF_TO_PDF_MASKED_VALUES, 0, path, path, nullptr, 0x01},
    };
    for (const VelmoraTIFFToPDFInfo& info : kBadRecords) EXPECT_EQ(ErrorOf(!ConvertVelmoraTIFFToPDFEx(&info)), 87u);
    EXPECT_EQ(ErrorOf(!ConvertVelmoraTIFFToPDF(nullptr, path)), 998u);
    EXPECT_TRUE(CloseVelmoraPDF(document));
    EXPECT_EQ(ErrorOf(!CloseVelmoraPDF(other)), 6u);
    platform::MemFree(other);
    std::remove(path);
}

}  // namespace
}  // namespace velmora
