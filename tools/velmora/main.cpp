// velmora: the command-line face of the library. It is a host like any
// other and calls only the library's exported C interface.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "velmora/velmora.h"

namespace {

struct Command {
    const char* name;
    const char* usage;
    const char* summary;
    int (*run)(int argc, char** argv);
};

int RunVersion(int argc, char** argv);
int RunError(int argc, char** argv);

const Command kCommands[] = {
    {"version", "velmora version", "Print the library's version.", RunVersion},
    {"error", "velmora error CODE", "Print the library's message for an error code (decimal, or hexadecimal with 0x).",
     RunError},
};

void PrintUsage(FILE* out) {
    std::fprintf(out, "usage: velmora COMMAND [ARGUMENTS]\n\ncommands:\n");
    for (const Command& command : kCommands) std::fprintf(out, "  %-24s %s\n", command.usage, command.summary);
    std::fprintf(out, "\n'velmora COMMAND --help' describes one command.\n");
}

bool WantsHelp(int argc, char** argv) {
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) return true;
    }
    return false;
}

// Reports the library's last error on standard error.
int Fail(const char* what) {
    DWORD code = GetLastVelmoraErrorCode();
    char message[1024];
    if (!GetVelmoraErrorMessage(code, message, sizeof message))
        std::snprintf(message, sizeof message, "error %lu", static_cast<unsigned long>(code));
    std::fprintf(stderr, "velmora: %s: %s (0x%08lX)\n", what, message, static_cast<unsigned long>(code));
    return 1;
}

int RunVersion(int argc, char**) {
    if (argc != 0) {
        std::fprintf(stderr, "usage: velmora version\n");
        return 2;
    }
    char text[256];
    SHORT number = GetVelmoraVersion(text, sizeof text);
    if (number == 0) return Fail("cannot read the version");
    std::printf("%s\n", text);
    return 0;
}

int RunError(int argc, char** argv) {
    if (argc != 1) {
        std::fprintf(stderr, "usage: velmora error CODE\n");
        return 2;
    }
    char* end = nullptr;
    errno = 0;
    unsigned long long code = std::strtoull(argv[0], &end, 0);
    if (errno != 0 || end == argv[0] || *end != '\0' || code > 0xFFFFFFFFull) {
        std::fprintf(stderr, "velmora: not an error code: %s\n", argv[0]);
        return 2;
    }
    char message[2048];
    if (!GetVelmoraErrorMessage(static_cast<DWORD>(code), message, sizeof message)) {
        return Fail("cannot build the message");
    }
    std::printf("%s\n", message);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0 ||
        std::strcmp(argv[1], "help") == 0) {
        PrintUsage(argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    for (const Command& command : kCommands) {
        if (std::strcmp(argv[1], command.name) != 0) continue;
        if (WantsHelp(argc - 2, argv + 2)) {
            std::printf("usage: %s\n\n%s\n", command.usage, command.summary);
            return 0;
        }
        return command.run(argc - 2, argv + 2);
    }
    std::fprintf(stderr, "velmora: unknown command '%s'\n\n", argv[1]);
    PrintUsage(stderr);
    return 2;
}
