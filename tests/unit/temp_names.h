// Names of temporary files that no other test process shares: CTest runs
// test cases in processes of their own, side by side.
#pragma once

#include <random>
#include <string>

namespace velmora::testing {

// A suffix drawn once per process.
inline const std::string& ProcessTag() {
    static const std::string tag = std::to_string(std::random_device()());
    return tag;
}

}  // namespace velmora::testing
