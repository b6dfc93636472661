#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zelvo::platform {

struct HttpResponse {
    int status = 0;
    std::string body;
};

/// Reads one HTTP response as it arrives, and no more of it than a router has any reason to send.
class HttpResponseReader {
  public:
    enum class State : std::uint8_t { More, Done, Failed };

    static constexpr std::size_t LongestHead = 8 * 1024;
    static constexpr std::size_t LongestBody = 128 * 1024;

    State feed(std::string_view bytes);
    /// The peer has closed.
    State end();

    /// In State::Done.
    const HttpResponse& response() const { return response_; }

  private:
    enum class Part : std::uint8_t { Head, Body, ChunkSize, Chunk, ChunkEnd, Trailer, Over };

    bool step();
    bool readHead();
    bool readHeader(std::string_view line);
    bool readBody();
    bool readChunkSize();
    bool readChunk();
    std::optional<std::string_view> takeLine();
    bool fail();

    State state_ = State::More;
    Part part_ = Part::Head;
    /// What has come and is not read yet, from `position_` on.
    std::string pending_;
    std::size_t position_ = 0;
    std::size_t headSize_ = 0;
    bool statusRead_ = false;
    bool chunked_ = false;
    std::optional<std::size_t> length_;
    std::size_t chunkLeft_ = 0;
    HttpResponse response_;
};

}  // namespace zelvo::platform
