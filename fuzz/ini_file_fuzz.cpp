// Settings files are read from wherever a host points the library: the parser
// must take any bytes.
#include <cstddef>
#include <cstdint>

#include "frame/ini_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    velmora::IniFile file = velmora::IniFile::Parse(reinterpret_cast<const char*>(data), size);
    std::u16string value;
    file.Find(u"Defaults", u"HKCU\\General\\Temp Dir", &value);
    file.Set(u"General", u"Temp Dir", value);
    (void)file.Serialize();
    return 0;
}
