// What the interop tests and the benchmarks need of the peer tools: running
// them, finding them, and files and directories for their work.
//
// A test that needs a peer states it with REQUIRE_PEER: where the peer is
// missing the test is skipped on a developer's machine but fails when the
// environment variable CI is set, so that a green CI run has run every
// comparison.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace velmora::peers {

// Runs a shell command with its output discarded; true when it succeeds.
inline bool Run(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

// Runs a shell command; true when it succeeds, with its standard output in
// `*out` either way.
inline bool Output(const std::string& command, std::string* out) {
    out->clear();
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return false;
    char buffer[4096];
    for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out->append(buffer, got);
    return pclose(pipe) == 0;
}

// What a shell command writes to standard output; empty when it fails.
inline std::string Output(const std::string& command) {
    std::string text;
    return Output(command, &text) ? text : std::string();
}

// Whether the program at `path` exists and may be run.
inline bool Have(const char* path) { return access(path, X_OK) == 0; }

// Whether Debian's Pillow answers for the given interpreter.
inline bool HavePillow(const char* python) { return Run(std::string(python) + " -c 'import PIL, numpy'"); }

inline bool InCi() {
    const char* ci = std::getenv("CI");
    return ci != nullptr && *ci != '\0' && std::string(ci) != "false" && std::string(ci) != "0";
}

inline std::vector<uint8_t> ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline bool WriteFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out);
}

// A new directory under the system's temporary directory, removed with
// everything in it when the object goes.
class TempDir {
public:
    explicit TempDir(const char* prefix) {
        std::string pattern = (std::filesystem::temp_directory_path() / (std::string(prefix) + "-XXXXXX")).string();
        if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    bool ok() const { return !path_.empty(); }
    const std::string& path() const { return path_; }
    std::string Path(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

}  // namespace velmora::peers

// Skips the test where `available` is false, or fails it under CI.
#define REQUIRE_PEER(available, what)                                                     \
    do {                                                                                  \
        if (!(available)) {                                                               \
            if (::velmora::peers::InCi()) FAIL() << (what) << " is missing: CI runs every peer"; \
            GTEST_SKIP() << (what) << " is missing";                                     \
        }                                                                                 \
    } while (0)
