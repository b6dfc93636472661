#pragma once

#include <array>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::server {

/// The forms of UTF-8 text by which programs offer what was copied, the best first.
inline constexpr std::array<const char*, 3> textTypes{"text/plain;charset=utf-8", "UTF8_STRING",
                                                      "text/plain"};
/// Whether it is one of them, and `than` is none or comes later.
bool isBetterTextType(std::string_view type, std::string_view than);

/// Copied text on its way through pipes, which other programs read and write as slowly as they
/// like. In turns of one loop.
class TextPipes {
  public:
    /// Longer texts are neither taken nor told of. In bytes.
    static constexpr std::size_t longestText = 1024 * 1024;

    explicit TextPipes(platform::EventLoop& loop) : loop_(loop) {}
    TextPipes(const TextPipes&) = delete;
    TextPipes& operator=(const TextPipes&) = delete;

    /// Gives up what is being read. `done` gets the whole text, unless it is empty or too long.
    void read(platform::FileDescriptor pipe, std::function<void(const std::string&)> done);
    void stopReading() { incoming_.reset(); }
    /// `done` gets whether all of it was taken, if that ever shows: where many take their time, the
    /// first of them is given up.
    void write(platform::FileDescriptor pipe, std::string text,
               std::function<void(bool)> done = {});

  private:
    struct Transfer {
        platform::FileDescriptor pipe;
        std::string text;
        std::size_t done = 0;
        std::unique_ptr<platform::EventLoop::Watch> watch;
    };

    void goOnReading(const std::function<void(const std::string&)>& done);
    void goOnWriting(Transfer& transfer, const std::function<void(bool)>& done);

    platform::EventLoop& loop_;
    std::unique_ptr<Transfer> incoming_;
    std::deque<std::unique_ptr<Transfer>> outgoing_;
};

}  // namespace zelvo::server
