// The CALS raster header.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tiff/cals_header.h"

namespace velmora {
namespace {

// A header of 16 records of 128 bytes (blank-padded) and one byte of data.
std::vector<uint8_t> Header(std::initializer_list<std::string> records) {
    std::vector<uint8_t> bytes(kCalsHeaderSize + 1, ' ');
    size_t r = 0;
    for (const std::string& text : records) std::memcpy(bytes.data() + kCalsRecordSize * r++, text.data(), text.size());
    return bytes;
}

bool Parse(const std::vector<uint8_t>& bytes, CalsHeader* header, uint32_t* code) {
    ErrorRecord record;
    bool ok = ParseCalsHeader(bytes.data(), bytes.size(), header, &record);
    *code = record.code;
    return ok;
}

TEST(CalsHeader, RecordsAndOrientations) {
    CalsHeader header;
    uint32_t code;
    ASSERT_TRUE(Parse(Header({"srcdocid: 1", "rtype: 1", "rorient: 180,270", "rpelcnt: 2550,3300", "rdensity: 300"}),
                      &header, &code));
    EXPECT_EQ(header.width, 2550u);
    EXPECT_EQ(header.height, 3300u);
    EXPECT_EQ(header.density, 300);
    CalsOrientation o = CalsPageOrientation(header);
    EXPECT_EQ(o.orientation, 3);
    EXPECT_EQ(o.angle, 180);
    EXPECT_FALSE(o.mirrored);

    // The other spelling of the density, and an orientation that is not
    // accepted keeps the defaults.
    ASSERT_TRUE(Parse(Header({"srcdocid:", "rtype:1", "rorient: 45,270", "rpelcnt:  10 , 20", "rdensty: 200"}),
                      &header, &code));
    EXPECT_EQ(header.density, 200);
    EXPECT_EQ(header.width, 10u);
    EXPECT_EQ(header.height, 20u);
    EXPECT_EQ(CalsPageOrientation(header).orientation, 1);

    struct Case {
        uint16_t rotation, direction, orientation, angle;
        bool mirrored;
    };
    const Case cases[] = {{0, 270, 1, 0, false},   {0, 90, 4, 0, true},     {90, 270, 8, 270, false},
                          {90, 90, 5, 90, true},   {180, 270, 3, 180, false}, {180, 90, 2, 180, true},
                          {270, 270, 6, 90, false}, {270, 90, 7, 270, true}};
    for (const Case& c : cases) {
        CalsHeader h;
        h.rotation = c.rotation;
        h.lineDirection = c.direction;
        CalsOrientation o = CalsPageOrientation(h);
        EXPECT_EQ(o.orientation, c.orientation) << c.rotation << "," << c.direction;
        EXPECT_EQ(o.angle, c.angle) << c.rotation << "," << c.direction;
        EXPECT_EQ(o.mirrored, c.mirrored) << c.rotation << "," << c.direction;
    }
}

TEST(CalsHeader, Refusals) {
    CalsHeader header;
    uint32_t code;
    std::vector<uint8_t> shortFile = Header({"srcdocid:", "rtype: 1", "rpelcnt: 1,1"});
    shortFile.resize(kCalsHeaderSize);
    EXPECT_FALSE(Parse(shortFile, &header, &code));
    EXPECT_EQ(code, 0x02000002u);
    EXPECT_FALSE(Parse(Header({"srcdocix:", "rtype: 1", "rpelcnt: 1,1"}), &header, &code));
    EXPECT_EQ(code, 0x0200001Bu);
    EXPECT_FALSE(Parse(Header({"srcdocid:", "rtype: 2", "rpelcnt: 1,1"}), &header, &code));
    EXPECT_EQ(code, 0x02000005u);
    EXPECT_FALSE(Parse(Header({"srcdocid:", "rtype: 1"}), &header, &code));
    EXPECT_EQ(code, 0x02000005u);
    // A value running to the end of its record is not a value.
    std::string longValue = "rpelcnt: 5," + std::string(kCalsRecordSize - 11, '7');
    EXPECT_FALSE(Parse(Header({"srcdocid:", "rtype: 1", longValue}), &header, &code));
    EXPECT_EQ(code, 0x02000005u);
}

}  // namespace
}  // namespace velmora
