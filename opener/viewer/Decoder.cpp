#include "opener/viewer/Decoder.h"

#include <rfb/rfbclient.h>
#include <stdio_ext.h>
#include <sys/time.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace zelvo::opener {

namespace {

int decoderTag = 0;

void logNothing(const char*, ...) {}

}  // namespace

Decoder::Decoder(PictureSize size, Fill fill, Drawn drawn)
    : fill_(std::move(fill)),
      drawn_(std::move(drawn)),
      client_(rfbGetClient(8, 3, 4), rfbClientCleanup),
      recording_(::fopencookie(this, "r", {Decoder::read, nullptr, nullptr, nullptr}), ::fclose) {
    // The library tells standard error what hosts are called.
    rfbClientLog = rfbClientErr = logNothing;
    // What is asked for is asked for exactly, so that nothing that comes next is read already.
    ::setvbuf(recording_.get(), nullptr, _IONBF, 0);
    ::__fsetlocking(recording_.get(), FSETLOCKING_BYCALLER);
    rfbClientSetClientData(client_.get(), &decoderTag, this);
    client_->serverPort = -1;  // Plays a recording.
    client_->vncRec = static_cast<rfbVNCRec*>(std::calloc(1, sizeof(rfbVNCRec)));
    client_->vncRec->file = recording_.get();
    client_->vncRec->doNotSleep = TRUE;
    client_->format.redShift = 16;
    client_->format.greenShift = 8;
    client_->format.blueShift = 0;
    client_->si.format = client_->format;
    client_->MallocFrameBuffer = [](rfbClient* client) {
        return static_cast<rfbBool>(of(client).fit());
    };
    client_->GotFrameBufferUpdate = [](rfbClient* client, int x, int y, int width, int height) {
        of(client).drawn_({x, y, width, height});
    };
    client_->width = size.width;
    client_->height = size.height;
    fit();
}

Decoder::~Decoder() {
    client_->frameBuffer = nullptr;
}

Decoder& Decoder::of(rfbClient* client) {
    return *static_cast<Decoder*>(rfbClientGetClientData(client, &decoderTag));
}

PictureSize Decoder::size() const {
    return {client_->width, client_->height};
}

bool Decoder::fit() {
    const auto count =
        static_cast<std::size_t>(client_->width) * static_cast<std::size_t>(client_->height);
    // Not resized, which would have both at the same time.
    if (pixels_.size() != count) {
        pixels_ = {};
        pixels_.resize(count);
    }
    client_->frameBuffer = reinterpret_cast<std::uint8_t*>(pixels_.data());
    client_->updateRect = {0, 0, client_->width, client_->height};
    return true;
}

bool Decoder::play(std::string& bytes) {
    bytes_ = &bytes;
    played_ = 0;
    // Each message of a recording begins with its time.
    timeLeft_ = sizeof(timeval);
    const bool isDrawn = HandleRFBServerMessage(client_.get()) != FALSE;
    bytes.erase(0, played_);
    return isDrawn;
}

ssize_t Decoder::read(void* self, char* to, std::size_t size) {
    auto& decoder = *static_cast<Decoder*>(self);
    if (decoder.timeLeft_ > 0) {
        const auto count = std::min(size, decoder.timeLeft_);
        std::memset(to, 0, count);
        decoder.timeLeft_ -= count;
        return static_cast<ssize_t>(count);
    }
    auto& bytes = *decoder.bytes_;
    if (decoder.played_ == bytes.size()) {
        bytes.clear();
        decoder.played_ = 0;
        while (bytes.empty()) {
            if (!decoder.fill_(bytes))
                return 0;
        }
    }
    const auto count = std::min(size, bytes.size() - decoder.played_);
    std::memcpy(to, bytes.data() + decoder.played_, count);
    decoder.played_ += count;
    return static_cast<ssize_t>(count);
}

}  // namespace zelvo::opener
