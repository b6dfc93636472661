#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/base/FileDescriptor.h"
#include "server/screen/Screen.h"
#include "server/screen/wlroots/WlrootsConnection.h"
#include "server/screen/wlroots/WlrootsOutput.h"

namespace zelvo::server {

/// What all outputs show, in one picture, each in its own pixels. Where their scales differ the
/// smaller ones have room beside them, which is black.
class WlrootsPicture {
  public:
    /// `changed` is called when a capture is worth while.
    WlrootsPicture(platform::EventLoop& loop, WlrootsConnection& wayland,
                   std::function<void()> changed);
    WlrootsPicture(const WlrootsPicture&) = delete;
    WlrootsPicture& operator=(const WlrootsPicture&) = delete;

    /// The compositor is asked for nothing while it is not watched, and nothing that it showed is
    /// kept.
    void setWatched(bool isWatched);
    /// Where the outputs have changed, and at first, it waits for them; less than a second.
    std::vector<Rectangle> capture();
    Size size() const { return size_; }
    std::span<std::uint32_t> pixels() { return pixels_; }

    /// A place in the compositor's measure, and the part of it in which pointers move.
    struct Aim {
        double x;
        double y;
        Size all;
    };
    Aim aim(Point point) const;

  private:
    struct Part {
        std::uint32_t output;
        /// In the picture.
        Rectangle place;
        /// In the compositor's measure.
        Rectangle logical;
        int transform;

        bool operator==(const Part& other) const;
    };

    bool arrange();
    std::vector<Part> parts() const;
    WlrootsOutput* find(std::uint32_t name) const;
    void update(const Part& part, WlrootsOutput& output, std::vector<Rectangle>& changed);
    void failed(const Part& part, WlrootsOutput& output, std::vector<Rectangle>& changed);
    void tryAgain();

    WlrootsConnection& wayland_;
    const std::function<void()> changed_;
    std::vector<std::unique_ptr<WlrootsOutput>> outputs_;
    std::vector<Part> parts_;
    /// The box around the parts in the compositor's measure.
    Rectangle logical_;
    double scale_ = 1;
    Size size_{1, 1};
    std::vector<std::uint32_t> pixels_{0};
    bool isWatched_ = false;
    bool wantsAll_ = true;
    platform::FileDescriptor again_;
    platform::EventLoop::Watch watch_;
};

}  // namespace zelvo::server
