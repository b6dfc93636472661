#include "platform/qt/core/CommandLine.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace zelvo::platform {

namespace {

constexpr const char* Help =
    "Usage: zelvo [-h | --help | --version]\n"
    "\n"
    "Shares this screen through one link. Opens a window, or runs in the terminal where there is\n"
    "no display.\n";

constexpr int BadUsage = 2;

// Nobody has read what could not be written.
int print(const char* text) {
    return std::fputs(text, stdout) >= 0 && std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

std::optional<int> answerCommandLine(int argc, char* argv[]) {
    if (argc < 2)
        return std::nullopt;
    std::string_view argument = argv[1];
    if (argument == "-h" || argument == "--help")
        return print(Help);
    if (argument == "--version")
        return print("zelvo " ZELVO_VERSION "\n");
    const char* kind = argument.starts_with('-') ? "unknown option" : "unexpected argument";
    std::fprintf(stderr, "zelvo: %s: %s\n%s", kind, argv[1], Help);
    return BadUsage;
}

}  // namespace zelvo::platform
