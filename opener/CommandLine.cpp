#include "opener/CommandLine.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "sealing/Secret.h"

namespace zelvo::opener {

namespace {

constexpr const char* Help =
    "Usage: zelvo-open [OPTION...] [LINK]\n"
    "\n"
    "Shows the screen of whoever sent you the link, once they have said yes.\n"
    "\n"
    "  --view-only    send no keys, no pointer and no clipboard, whatever the other side allows\n"
    "  --name NAME    the name that the other side is told, for this time\n"
    "  --print-facts  print what the sharing service tells about the computer, and end\n"
    "  --say          print on the standard output what happens, in lines that scripts can read:\n"
    "                 \"Host: NAME\", \"Digits: 012 345 678 901\", and \"State: \" with one of\n"
    "                 asking, in line, asked SECONDS, watching, controlling, returning,\n"
    "                 ended REASON\n"
    "  --once         end with the session instead of offering another try\n"
    "  --dbus         wait for a link on the session bus (the desktop starts it so)\n"
    "  -h, --help     print this\n"
    "  --version      print the version\n"
    "\n"
    "A link on the command line can be read by others for a moment. Without one the window asks\n"
    "for it; \"-\" reads it from the standard input.\n"
    "\n"
    "Exit status: 0 there was a session, 1 something failed here, 2 the command line makes no\n"
    "sense or has no link, 3 the sharing service cannot be asked, 4 the computer cannot be\n"
    "reached, 5 refused, 6 nobody answered or too many wait, 7 the link has ended, 8 whoever\n"
    "answers is not the computer of the link or sends nonsense, 9 the connection was lost,\n"
    "10 given up before anybody was let in.\n";

constexpr int BadUsage = 2;

int print(const char* text) {
    return std::fputs(text, stdout) >= 0 && std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int refuse(const char* why, std::string_view argument) {
    std::fprintf(stderr, "zelvo-open: %s%.*s\n%s", why, static_cast<int>(argument.size()),
                 argument.data(), Help);
    return BadUsage;
}

/// A line of the standard input, without its end.
std::string readLine() {
    // Longer than any link by far; what follows does not make it one.
    char line[1024]{};
    if (!std::fgets(line, sizeof line, stdin))
        return {};
    std::string text(line, std::strcspn(line, "\r\n"));
    sealing::wipe({reinterpret_cast<unsigned char*>(line), sizeof line});
    return text;
}

std::string takeAway(char* argument) {
    std::string text = argument;
    sealing::wipe({reinterpret_cast<unsigned char*>(argument), text.size()});
    return text;
}

struct Switch {
    std::string_view name;
    bool CommandLine::*value;
};

constexpr Switch Switches[] = {{"--view-only", &CommandLine::viewOnly},
                               {"--print-facts", &CommandLine::printsFacts},
                               {"--say", &CommandLine::says},
                               {"--once", &CommandLine::once},
                               {"--dbus", &CommandLine::serves}};

bool takeSwitch(CommandLine& line, std::string_view argument) {
    for (const auto& [name, value] : Switches) {
        if (argument == name)
            return line.*value = true;
    }
    return false;
}

}  // namespace

CommandLine readCommandLine(int argc, char* argv[]) {
    CommandLine line;
    bool hasLink = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "-h" || argument == "--help") {
            line.exitStatus = print(Help);
        } else if (argument == "--version") {
            line.exitStatus = print("zelvo-open " ZELVO_VERSION "\n");
        } else if (argument == "--name" && i + 1 < argc) {
            line.name = argv[++i];
        } else if (argument.starts_with("--name=")) {
            line.name = argument.substr(std::string_view("--name=").size());
        } else if (takeSwitch(line, argument)) {
            continue;
        } else if (argument.starts_with("-") && argument != "-") {
            line.exitStatus = refuse("unknown option: ", argument);
        } else if (std::exchange(hasLink, true)) {
            takeAway(argv[i]);
            line.exitStatus = refuse("only one link can be opened at a time", "");
        } else {
            line.link = argument == "-" ? readLine() : takeAway(argv[i]);
        }
    }
    if (!line.exitStatus && line.printsFacts && line.link.empty())
        line.exitStatus = refuse("--print-facts needs a link", "");
    return line;
}

}  // namespace zelvo::opener
