#include "platform/linux/privileges/PolkitHelper.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/Authorization.h"
#include "platform/Log.h"
#include "platform/linux/privileges/helper/ScreenSharingRequest.h"
#include "platform/linux/privileges/helper/SessionVariables.h"

namespace zelvo::platform {

namespace {

// pkexec(1).
constexpr int pkexecDismissed = 126;

/// Whether a question on our terminal would reach the user. In the background it would stop us.
bool isInForegroundOfTerminal() {
    FileDescriptor terminal(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
    return terminal && ::tcgetpgrp(terminal.get()) == ::getpgrp();
}

/// What a question on the terminal needs, and nothing that pkexec would refuse.
std::vector<std::string> environmentOfPkexec() {
    std::vector<std::string> result{"PATH=/usr/sbin:/usr/bin:/sbin:/bin"};
    for (const char* name : {"LANG", "LANGUAGE", "LC_ALL", "LC_CTYPE", "LC_MESSAGES", "TERM"}) {
        std::string_view value = std::getenv(name) ? std::getenv(name) : "";
        if (!value.empty() && value.find_first_of("/%") == value.npos)
            result.push_back(std::string(name) + "=" + std::string(value));
    }
    return result;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (auto& text : texts)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

bool openPipe(FileDescriptor& reading, FileDescriptor& writing) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return false;
    reading.reset(ends[0]);
    writing.reset(ends[1]);
    return true;
}

/// Appends what can be read; closes the file at its end.
void readInto(std::string& text, FileDescriptor& file) {
    std::array<char, 1024> part;
    auto count = ::read(file.get(), part.data(), part.size());
    if (count > 0)
        text.append(part.data(), static_cast<std::size_t>(count));
    else if (count == 0 || errno != EINTR)
        file.reset();
}

/// Why pkexec, or the helper before it was ready, ended.
std::int32_t statusOf(int ended, std::string_view errors) {
    auto says = [&](std::string_view words) { return errors.find(words) != errors.npos; };
    if (WIFSIGNALED(ended)) {
        // From the terminal on which it asked.
        int number = WTERMSIG(ended);
        return number == SIGINT || number == SIGHUP || number == SIGTERM ? AuthorizationCanceled
                                                                         : AuthorizationInternal;
    }
    if (WEXITSTATUS(ended) == pkexecDismissed)
        return AuthorizationCanceled;
    // All else has one exit status, and the words, which are never translated, tell more.
    if (says("Not authorized"))
        return AuthorizationDenied;
    if (says("No authentication agent found") || says("creating textual authentication agent"))
        return AuthorizationInteractionNotAllowed;
    return AuthorizationInternal;
}

}  // namespace

PolkitHelper::PolkitHelper(Log& log, std::string pkexec, std::string helper)
    : log_(log), pkexec_(std::move(pkexec)), helper_(std::move(helper)) {}

std::int32_t PolkitHelper::start() {
    if (!spawn())
        return AuthorizationInternal;
    if (answers(ScreenSharingRequest::readyAnswer))
        return AuthorizationSuccess;
    auto ended = end();
    logErrors();
    return statusOf(ended, errorText_);
}

bool PolkitHelper::startTool(std::string_view name) {
    auto variables = SessionVariables::from(
        [](const char* variable) -> std::optional<std::string> {
            const char* value = std::getenv(variable);
            return value ? std::optional<std::string>(value) : std::nullopt;
        },
        ::getuid());
    auto request = screenSharingRequest(name, variables.assignments());
    bool isSent = ::write(input_.get(), request.data(), request.size()) ==
                  static_cast<ssize_t>(request.size());
    input_.reset();
    bool isStarted = isSent && answers(ScreenSharingRequest::startedAnswer);
    (void)end();
    logErrors();
    return isStarted;
}

bool PolkitHelper::spawn() {
    FileDescriptor theirInput;
    FileDescriptor theirOutput;
    FileDescriptor theirErrors;
    if (!openPipe(theirInput, input_) || !openPipe(output_, theirOutput) ||
        !openPipe(errors_, theirErrors))
        return false;

    std::vector<std::string> arguments{pkexec_, helper_};
    if (!isInForegroundOfTerminal())
        arguments.insert(arguments.begin() + 1, "--disable-internal-agent");
    auto environment = environmentOfPkexec();

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawnattr_init(&attributes);
    ::posix_spawn_file_actions_adddup2(&actions, theirInput.get(), STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, theirOutput.get(), STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, theirErrors.get(), STDERR_FILENO);
    ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    sigset_t signals;
    ::sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes, &signals);
    ::sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&attributes, &signals);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    int error = ::posix_spawn(&process_, pkexec_.c_str(), &actions, &attributes,
                              pointers(arguments).data(), pointers(environment).data());
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        process_ = -1;
        log_.line(pkexec_ + ": " + std::strerror(error));
    }
    return error == 0;
}

bool PolkitHelper::answers(std::string_view answer) {
    std::string text;
    while (output_ && text.size() < answer.size()) {
        // A negative descriptor is passed over.
        pollfd files[]{{output_.get(), POLLIN, 0}, {errors_.get(), POLLIN, 0}};
        if (::poll(files, 2, -1) < 0)
            continue;
        if (files[0].revents)
            readInto(text, output_);
        if (files[1].revents)
            readInto(errorText_, errors_);
    }
    return text == answer;
}

void PolkitHelper::logErrors() {
    while (errors_)
        readInto(errorText_, errors_);
    std::string_view rest = errorText_;
    while (!rest.empty()) {
        auto line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        if (!line.empty())
            log_.line(std::string(line));
    }
}

int PolkitHelper::end() {
    input_.reset();
    output_.reset();
    int status = 0;
    if (process_ > 0) {
        while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) {
        }
    }
    process_ = -1;
    return status;
}

}  // namespace zelvo::platform
