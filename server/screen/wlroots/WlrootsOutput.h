#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "server/screen/Screen.h"
#include "server/screen/wlroots/PixelReader.h"
#include "server/screen/wlroots/SharedMemory.h"
#include "server/screen/wlroots/WlrootsConnection.h"

namespace zelvo::server {

/// An output of the compositor: where it is, and copies of what it shows, one at a time.
class WlrootsOutput {
  public:
    enum class Copy {
        None,
        /// Asked for.
        Coming,
        Here,
        /// The output is switched off, or has just changed.
        Failed,
    };

    /// `news` is called when its place or its copy is another.
    WlrootsOutput(WlrootsConnection& wayland, std::uint32_t name, std::function<void()> news);
    WlrootsOutput(const WlrootsOutput&) = delete;
    WlrootsOutput& operator=(const WlrootsOutput&) = delete;

    std::uint32_t name() const { return name_; }
    /// In the compositor's measure, by which pointers move; without a size while it is not known.
    Rectangle place() const { return place_; }
    /// In pixels, as it is looked at.
    Size pixels() const { return turned(mode_, transform_); }
    int transform() const { return transform_; }

    /// Asks for a copy; one of something new, where it has one already. What was asked before is
    /// taken back.
    void ask(bool onlyChanges);
    void takeBack();
    /// Takes back what was asked, and lets go of the memory that holds the last copy.
    void forget();
    Copy copy() const { return copy_; }
    /// Reads the copy; none where its size is not the output's any more, or nobody knows its
    /// format.
    std::optional<PixelReader> reader() const;
    /// What of the copy is new, as it is looked at; all of it where that is not known.
    std::vector<Rectangle> damage() const;

  private:
    struct Listeners;
    static const Listeners listeners;

    void offered(std::uint32_t format, Size size, int stride);
    void fill();
    void finish(Copy result);

    WlrootsConnection& wayland_;
    const std::uint32_t name_;
    const std::function<void()> news_;
    Proxy<wl_output> output_;
    Proxy<zxdg_output_v1> logical_;
    Rectangle place_;
    Size mode_;
    int transform_ = 0;

    Copy copy_ = Copy::None;
    bool onlyChanges_ = false;
    Proxy<zwlr_screencopy_frame_v1> frame_;
    /// What the compositor would fill.
    PixelLayout layout_;
    /// What it fills, and the layout for which that was made.
    std::optional<SharedMemory> memory_;
    Proxy<wl_buffer> buffer_;
    PixelLayout bufferLayout_;
    std::vector<Rectangle> damage_;
};

}  // namespace zelvo::server
