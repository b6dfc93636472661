#include "platform/qt/core/CommandLine.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace zelvo::platform {

namespace {

constexpr const char* Help =
    "Usage: zelvo [--help | --version]\n"
    "\n"
    "Shares this screen through one link. Opens a window, or runs in the terminal where there is\n"
    "no display.\n";

}  // namespace

std::optional<int> answerCommandLine(int argc, char* argv[]) {
    if (argc < 2)
        return std::nullopt;
    std::string_view argument = argv[1];
    if (argc == 2 && argument == "--version") {
        std::puts("zelvo " ZELVO_VERSION);
        return EXIT_SUCCESS;
    }
    if (argc == 2 && argument == "--help") {
        std::fputs(Help, stdout);
        return EXIT_SUCCESS;
    }
    std::fputs(Help, stderr);
    return 2;
}

}  // namespace zelvo::platform
