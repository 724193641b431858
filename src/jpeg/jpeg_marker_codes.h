// The JPEG marker codes the decoder and the encoder name (ITU-T T.81
// Table B.1): the byte that follows 0xFF.
#pragma once

#include <cstdint>

namespace velmora::jpeg {

enum : uint8_t {
    kMarkerTem = 0x01,
    kMarkerSof0 = 0xC0,  // the frame markers run to 0xCF, less DHT, JPG and DAC
    kMarkerSof1 = 0xC1,
    kMarkerSof3 = 0xC3,
    kMarkerDht = 0xC4,
    kMarkerJpg = 0xC8,
    kMarkerDac = 0xCC,
    kMarkerRst0 = 0xD0,  // RST0 to RST7 follow it
    kMarkerSoi = 0xD8,
    kMarkerEoi = 0xD9,
    kMarkerSos = 0xDA,
    kMarkerDqt = 0xDB,
    kMarkerDnl = 0xDC,
    kMarkerDri = 0xDD,
    kMarkerDhp = 0xDE,
    kMarkerApp0 = 0xE0,
    kMarkerApp1 = 0xE1,
    kMarkerApp3 = 0xE3,
    kMarkerApp14 = 0xEE,
    kMarkerCom = 0xFE,
};

}  // namespace velmora::jpeg
