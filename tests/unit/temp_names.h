// Temporary files that no other test process shares: CTest runs test cases
// in processes of their own, side by side.
#pragma once

#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace velmora::testing {

// A suffix drawn once per process.
inline const std::string& ProcessTag() {
    static const std::string tag = std::to_string(std::random_device()());
    return tag;
}

// A path in the system's temporary directory for this process's `name`.
inline std::string TempPath(const std::string& name) {
    return platform::Utf8FromWide(platform::SystemTempDirectory()) + "velmora-" + ProcessTag() + "-" + name;
}

inline std::vector<uint8_t> ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Writes `bytes` at `path` and returns the path.
inline std::string WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return path;
}

}  // namespace velmora::testing
