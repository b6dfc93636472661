#include "platform/qt/Console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <cctype>
#include <cerrno>

#include "platform/qt/WriteAll.h"

namespace zelvo::platform {

Console::Console(int input, int output)
    : input_(input), output_(output), outputIsTerminal_(::isatty(output) == 1), keyMode_(input) {}

Console::~Console() = default;

int Console::columns() const {
    winsize size{};
    return ::ioctl(output_, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

void Console::listen(std::function<void(char)> key, std::function<void()> end) {
    key_ = std::move(key);
    end_ = std::move(end);
    notifier_ = std::make_unique<QSocketNotifier>(input_, QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(),
                     [this] { read(); });
}

void Console::read() {
    char keys[256];
    auto count = ::read(input_, keys, sizeof keys);
    if (count < 0 && (errno == EINTR || errno == EAGAIN))
        return;
    if (count <= 0) {
        notifier_->setEnabled(false);
        inputHasEnded_ = true;
        end_();
        return;
    }
    for (ssize_t i = 0; i < count; ++i)
        if (std::isspace(static_cast<unsigned char>(keys[i])) == 0)
            key_(keys[i]);
}

void Console::line(const std::string& text) {
    if (output_ >= 0 && !writeAll(output_, text + "\n"))
        output_ = -1;
}

}  // namespace zelvo::platform
