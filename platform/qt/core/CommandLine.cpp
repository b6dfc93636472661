#include "platform/qt/core/CommandLine.h"

#include <strings.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace zelvo::platform {

namespace {

constexpr const char* Help =
    "Usage: zelvo [-h | --help | --version] [--ask-in-terminal] [--print-link]\n"
    "       zelvo doctor [--json]\n"
    "       zelvo zelvo://...\n"
    "\n"
    "Shares this screen through one link. Opens a window, or runs in the terminal where there is\n"
    "no display.\n"
    "\n"
    "  --ask-in-terminal  with a window, too, says on the standard output who wants to see the\n"
    "                     screen, and takes whole words from the standard input as answers\n"
    "  --print-link       with a window, too, writes the link to the standard output; whoever can\n"
    "                     read that can ask to see the screen\n"
    "\n"
    "With \"doctor\", says what works on this computer and what does not, and changes nothing.\n"
    "\n"
    "  --json             says it for programs and for a report, in English\n"
    "\n"
    "With a link, opens it with zelvo-open, to see somebody else's screen.\n";

constexpr const char* Opener = "zelvo-open";
constexpr int BadUsage = 2;
/// As a shell says it.
constexpr int NoOpener = 127;

// Nobody has read what could not be written.
int print(const char* text) {
    return std::fputs(text, stdout) >= 0 && std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

bool isLink(std::string_view argument) {
    constexpr std::string_view scheme = "zelvo:";
    return ::strncasecmp(argument.data(), scheme.data(), scheme.size()) == 0;
}

/// Returns only where there is no such program: beside this one, or else where programs are.
int openLink(char** arguments) {
    std::array<char, 4096> path{};
    const auto length = ::readlink("/proc/self/exe", path.data(), path.size());
    std::string beside(path.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    beside.replace(beside.rfind('/') + 1, beside.npos, Opener);
    std::vector<char*> all{const_cast<char*>(Opener)};
    while (*arguments)
        all.push_back(*arguments++);
    all.push_back(nullptr);
    ::execv(beside.c_str(), all.data());
    ::execvp(Opener, all.data());
    std::fprintf(stderr, "zelvo: The program that opens a link (%s) is not installed.\n", Opener);
    return NoOpener;
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
        } else if (argument == "--print-link") {
            line.printsLink = true;
        } else if (argument == "doctor" && i == 1) {
            line.examines = true;
        } else if (argument == "--json" && line.examines) {
            line.asJson = true;
        } else if (isLink(argument)) {
            line.exitStatus = openLink(argv + i);
        } else {
            // What is no option may be a link that was cut, and is not for the log.
            if (argument.starts_with('-'))
                std::fprintf(stderr, "zelvo: unknown option: %s\n%s", argv[i], Help);
            else
                std::fprintf(stderr, "zelvo: unexpected argument\n%s", Help);
            line.exitStatus = BadUsage;
        }
    }
    return line;
}

}  // namespace zelvo::platform
