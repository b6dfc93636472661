#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

struct z_stream_s;

namespace zelvo::opener {

/// A zlib stream that comes in pieces.
class Inflater {
  public:
    /// The next piece begins another stream.
    void reset() { stream_.reset(); }

    /// All that the piece holds; none where that is more than `most` bytes or the piece is damaged,
    /// after which the stream is of no more use.
    std::optional<std::string> inflate(std::string_view piece, std::size_t most);

    /// Fills `to` as far as the piece goes, takes from the piece what that needed, and tells how
    /// many bytes there are; fewer than fit only where the piece is used up. None as above.
    std::optional<std::size_t> fill(std::span<char> to, std::string_view& piece);

  private:
    struct End {
        void operator()(z_stream_s* stream) const;
    };

    std::unique_ptr<z_stream_s, End> stream_;
};

}  // namespace zelvo::opener
