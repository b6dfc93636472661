#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "opener/viewer/RfbFilter.h"

struct _rfbClient;

namespace zelvo::opener {

/// Draws what RfbFilter has handed on, by LibVNCClient. The library has neither the host's socket
/// nor a word to say there: it plays a recording. One thread at a time.
class Decoder {
  public:
    /// Adds to the bytes to be played, waiting for them; false where there will be none.
    using Fill = std::function<bool(std::string& bytes)>;

    using Drawn = std::function<void(PicturePart part)>;

    Decoder(PictureSize size, Fill fill, Drawn drawn);
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    ~Decoder();

    /// Plays what the bytes begin with, an update, and takes it from them. False where it ends
    /// early or cannot be drawn.
    bool play(std::string& bytes);

    PictureSize size() const;
    /// 0x00RRGGBB in the machine's byte order, row by row; the upper byte means nothing.
    std::span<const std::uint32_t> pixels() const { return pixels_; }

  private:
    static Decoder& of(_rfbClient* client);
    static ssize_t read(void* self, char* to, std::size_t size);
    bool fit();

    const Fill fill_;
    const Drawn drawn_;
    std::unique_ptr<_rfbClient, void (*)(_rfbClient*)> client_;
    std::unique_ptr<FILE, int (*)(FILE*)> recording_;
    std::vector<std::uint32_t> pixels_;
    std::string* bytes_ = nullptr;
    std::size_t played_ = 0;
    std::size_t timeLeft_ = 0;
};

}  // namespace zelvo::opener
