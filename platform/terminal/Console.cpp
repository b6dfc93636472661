#include "platform/terminal/Console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string_view>

#include "platform/qt/core/WriteAll.h"

namespace zelvo::platform {

namespace {

constexpr char Escape = 0x1b;
constexpr auto lookEvery = std::chrono::milliseconds(300);

// Every one that is in use takes what is written to the screen, save for those that say no.
bool canBeDrawnOn() {
    const char* kind = std::getenv("TERM");
    return kind && *kind && std::string_view(kind) != "dumb" && std::string_view(kind) != "unknown";
}

}  // namespace

Console::Console(int input, int output, Reading reading)
    : input_(input),
      output_(output),
      outputIsTerminal_(::isatty(output) == 1),
      inputIsTerminal_(::isatty(input) == 1) {
    if (reading != Reading::Keys)
        return;
    const bool isDrawn = outputIsTerminal_ && inputIsTerminal_ && canBeDrawnOn();
    keyMode_.emplace(input, isDrawn ? output : -1);
    if (isDrawn && keyMode_->changes() >= 0)
        takeScreen();
}

Console::~Console() {
    untilThere_.stop();
    changes_.reset();
    screen_.reset();
    keyMode_.reset();
    if (!lastWords_.empty())
        line(lastWords_);
}

void Console::takeScreen() {
    screen_.emplace(output_, [this] { return keyMode_->isOnScreen(); });
    changes_ = std::make_unique<QSocketNotifier>(keyMode_->changes(), QSocketNotifier::Read);
    QObject::connect(changes_.get(), &QSocketNotifier::activated, changes_.get(), [this] {
        char bytes[16];
        while (::read(keyMode_->changes(), bytes, sizeof bytes) > 0) {
        }
        screen_->drawAnew();
        const bool isThere = keyMode_->isOnScreen();
        if (notifier_)
            notifier_->setEnabled(isThere && !inputHasEnded_);
        if (isThere)
            untilThere_.stop();
        else
            untilThere_.start(lookEvery);
    });
    QObject::connect(&untilThere_, &QTimer::timeout, &untilThere_, [this] {
        if (keyMode_->isInForeground())
            keyMode_->resume();
    });
}

void Console::giveBack() {
    if (screen_)
        keyMode_->giveBack();
}

void Console::takeAgain() {
    if (!screen_)
        return;
    keyMode_->takeAgain();
    screen_->drawAnew();
}

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
    if (screen_ && !keyMode_->isInForeground()) {
        notifier_->setEnabled(false);
        return untilThere_.start(lookEvery);
    }
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
        take(keys[i]);
    // The Escape key alone; a sequence comes in one piece.
    if (sequence_ == Sequence::Begun)
        sequence_ = Sequence::None;
}

void Console::take(char byte) {
    const bool isFinal = byte >= 0x40 && byte < 0x7f;
    if (byte == Escape) {
        sequence_ = Sequence::Begun;
    } else if (sequence_ == Sequence::Begun) {
        sequence_ = byte == '[' || byte == 'O' ? Sequence::Inside : Sequence::None;
    } else if (sequence_ == Sequence::Inside) {
        if (isFinal)
            sequence_ = Sequence::None;
    } else if (byte != EndOfTransmission || inputIsTerminal_) {
        const bool isForeign = (byte & 0x80) != 0 && inputIsTerminal_;
        for (char key : isForeign ? encoding_.decoded({byte}) : std::string(1, byte))
            key_(key);
    }
}

void Console::echo(const std::string& text) {
    if (keyMode_ && !screen_ && inputIsTerminal_ && output_ >= 0 && !writeAll(output_, text))
        output_ = -1;
}

void Console::line(const std::string& text) {
    if (screen_)
        return screen_->say(text);
    if (output_ >= 0 &&
        !writeAll(output_, (outputIsTerminal_ ? encoding_.encoded(text) : text) + "\n"))
        output_ = -1;
}

}  // namespace zelvo::platform
