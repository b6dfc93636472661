// Started as root by pkexec(1), when polkit has agreed, for one request: it starts one of the three
// Screen Sharing tools and ends. Everything that comes in is the user's. Built twice, since polkit
// knows actions by a program's path: the one that anybody in front of the computer may start
// without a question starts no tool that gives something away, whatever it is told.

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/privileges/DetachedProcess.h"
#include "platform/linux/privileges/helper/AskingUser.h"
#include "platform/linux/privileges/helper/ScreenSharingRequest.h"
#include "platform/linux/privileges/helper/SessionVariables.h"
#include "platform/linux/privileges/helper/TrustedFolder.h"

using namespace zelvo::platform;

namespace {

/// Nobody keeps a right by asking and then saying nothing.
constexpr std::chrono::seconds longestSilence{10};

void writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        auto count = ::write(descriptor, text.data(), text.size());
        if (count < 0 && errno != EINTR)
            return;
        if (count > 0)
            text.remove_prefix(static_cast<std::size_t>(count));
    }
}

int refuse(const std::string& reason) {
    writeAll(STDERR_FILENO, "zelvo: " + reason + "\n");
    return EXIT_FAILURE;
}

/// Takes back what the user can have set for this process and pkexec left.
bool settle() {
    // A file opened later must not become a standard stream.
    for (int descriptor = 0; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) < 0 && ::open("/dev/null", O_RDWR) != descriptor)
            return false;
    }
    ::signal(SIGPIPE, SIG_IGN);
    ::umask(022);
    for (auto resource : {RLIMIT_AS, RLIMIT_CPU, RLIMIT_DATA, RLIMIT_FSIZE, RLIMIT_NPROC}) {
        rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
        ::setrlimit(resource, &unlimited);
    }
    return ::chdir("/") == 0 && ::clearenv() == 0;
}

/// Everything up to the end of the input, or a byte more than a request may have; none when it does
/// not end in time.
std::optional<std::string> readRequest() {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + longestSilence;
    std::string bytes;
    while (bytes.size() <= ScreenSharingRequest::longest) {
        auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd input{STDIN_FILENO, POLLIN, 0};
        auto ready = left > 0 ? ::poll(&input, 1, static_cast<int>(left)) : 0;
        if (ready < 0 && errno == EINTR)
            continue;
        std::array<char, 512> part;
        auto count = ready > 0 ? ::read(STDIN_FILENO, part.data(), part.size()) : -1;
        if (count < 0)
            return std::nullopt;
        if (count == 0)
            break;
        bytes.append(part.data(), static_cast<std::size_t>(count));
    }
    return bytes;
}

/// Where the tool's messages go: the system's journal, by its stream protocol, as
/// sd_journal_stream_fd(3) has it. Where there is none, nowhere.
FileDescriptor openJournal() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    constexpr std::string_view path = "/run/systemd/journal/stdout";
    path.copy(address.sun_path, path.size());
    FileDescriptor journal(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (journal && ::connect(journal.get(), reinterpret_cast<const sockaddr*>(&address),
                             sizeof address) == 0) {
        // Identifier, unit, priority (informational), no level prefix, three times no forwarding.
        writeAll(journal.get(), "zelvo\n\n6\n0\n0\n0\n0\n");
        return journal;
    }
    return FileDescriptor(::open("/dev/null", O_RDWR | O_CLOEXEC));
}

int serve(const AskingUser& user, std::string_view bytes) {
    auto parsed = ScreenSharingRequest::parse(bytes);
    if (!parsed.request)
        return refuse(parsed.complaint);
    const auto& tool = parsed.request->tool;
    if (ZELVO_ONLY_TAKES_BACK && !ScreenSharingRequest::onlyTakesBack(tool))
        return refuse("This program only ends Screen Sharing.");

    SessionVariables variables(user.id);
    for (const auto& [name, value] : parsed.request->variables) {
        AskingUser::Rights rights(user);
        if (!rights)
            return refuse("The rights of the user who asks cannot be taken up.");
        if (auto complaint = variables.add(name, value))
            return refuse(*complaint);
    }
    TrustedFolder folder(ZELVO_TOOLS_FOLDER);
    if (auto complaint = folder.complaintAboutScript(tool))
        return refuse(*complaint);

    std::vector<std::string> environment{
        "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
        "PKEXEC_UID=" + std::to_string(user.id), "ZELVO_USER=" + user.name};
    environment.insert(environment.end(), variables.assignments().begin(),
                       variables.assignments().end());
    auto journal = openJournal();
    if (int error = startDetached({"/bin/sh", folder.pathOf(tool)}, environment, journal.get()))
        return refuse(tool + " cannot be started: " + std::strerror(error) + ".");
    writeAll(STDOUT_FILENO, ScreenSharingRequest::startedAnswer);
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char**) {
    auto user = AskingUser::ofProcess();
    if (!settle())
        return EXIT_FAILURE;
    if (argc != 1)
        return refuse("This program takes no arguments.");
    if (::getuid() != 0 || ::geteuid() != 0 || !user)
        return refuse("This program is started by pkexec, for the user who asks.");
    writeAll(STDOUT_FILENO, ScreenSharingRequest::readyAnswer);
    auto bytes = readRequest();
    if (!bytes)
        return refuse("No whole request came in time.");
    // The user thought better of it.
    if (bytes->empty())
        return EXIT_SUCCESS;
    return serve(*user, *bytes);
}
