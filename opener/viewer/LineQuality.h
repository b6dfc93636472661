#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>

namespace zelvo::opener {

/// How the host is to send its picture, so that it comes in time:
///
///     bytes a second     pictures                                 compressed
///     more than 2.5 MB   exact                                    little
///     more than 800 kB   what looks like a photograph: JPEG, 8    little
///     more than 200 kB   the same, 5                              more
///     less               the same, 2                              most
///
/// What is measured are bytes against the time that an update took from its beginning to its end,
/// without what drawing it took, over 16 kB or more. The first 16 kB of an update do not count:
/// they are one record of the sealed channel, which comes at once however slow the line is, and
/// while nothing is on its way the line says nothing. It gets worse at once and better only where
/// the line is faster than the border by a half, so that it does not swing. It begins with 5.
class LineQuality {
  public:
    using Duration = std::chrono::steady_clock::duration;

    struct Level {
        /// 0 to 9, none for exact pictures.
        std::optional<unsigned> quality;
        unsigned compression = 1;  ///< 0 to 9

        friend bool operator==(const Level&, const Level&) = default;
    };
    static constexpr Level exact{std::nullopt, 1};

    Level level() const { return levels[at_].level; }
    /// As many bytes as may be on their way before the user's next key has to wait for them.
    std::size_t notInTheWay() const;
    /// An update has come; true where the level is another one now.
    bool received(std::size_t bytes, Duration took);

  private:
    struct Row {
        double fasterThan;  ///< bytes a second
        Level level;
    };
    static constexpr std::array<Row, 4> levels{
        {{2.5e6, exact}, {8e5, {8, 2}}, {2e5, {5, 5}}, {0, {2, 9}}}};
    static constexpr std::size_t atOnce = 16 * 1024;

    std::size_t at_ = 2;
    /// Bytes a second; as slow as what it begins with.
    double speed_ = 2e5;
    std::size_t bytes_ = 0;
    Duration took_{};
};

}  // namespace zelvo::opener
