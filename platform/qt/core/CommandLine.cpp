#include "platform/qt/core/CommandLine.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace zelvo::platform {

namespace {

constexpr const char* Help =
    "Usage: zelvo [-h | --help | --version | --ask-in-terminal]\n"
    "\n"
    "Shares this screen through one link. Opens a window, or runs in the terminal where there is\n"
    "no display.\n"
    "\n"
    "  --ask-in-terminal  with a window, too, says on the standard output who wants to see the\n"
    "                     screen, and takes whole words from the standard input as answers\n";

constexpr int BadUsage = 2;

// Nobody has read what could not be written.
int print(const char* text) {
    return std::fputs(text, stdout) >= 0 && std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

CommandLine readCommandLine(int argc, char* argv[]) {
    CommandLine line;
    for (int i = 1; i < argc && !line.exitStatus; ++i) {
        std::string_view argument = argv[i];
        if (argument == "-h" || argument == "--help") {
            line.exitStatus = print(Help);
        } else if (argument == "--version") {
            line.exitStatus = print("zelvo " ZELVO_VERSION "\n");
        } else if (argument == "--ask-in-terminal") {
            line.asksInTerminal = true;
        } else {
            const char* kind = argument.starts_with('-') ? "unknown option" : "unexpected argument";
            std::fprintf(stderr, "zelvo: %s: %s\n%s", kind, argv[i], Help);
            line.exitStatus = BadUsage;
        }
    }
    return line;
}

}  // namespace zelvo::platform
