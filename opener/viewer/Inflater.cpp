#include "opener/viewer/Inflater.h"

#include <zlib.h>

namespace zelvo::opener {

void Inflater::End::operator()(z_stream_s* stream) const {
    ::inflateEnd(stream);
    delete stream;
}

std::optional<std::string> Inflater::inflate(std::string_view piece, std::size_t most) {
    // One byte more than may be, so that the end is seen, and what is too much.
    std::string content(most + 1, '\0');
    const auto size = fill(content, piece);
    if (!size || *size > most)
        return std::nullopt;
    content.resize(*size);
    return content;
}

std::optional<std::size_t> Inflater::fill(std::span<char> to, std::string_view& piece) {
    if (!stream_) {
        auto stream = std::make_unique<z_stream>();
        if (::inflateInit(stream.get()) != Z_OK)
            return std::nullopt;
        stream_.reset(stream.release());
    }
    stream_->next_in = reinterpret_cast<Bytef*>(const_cast<char*>(piece.data()));
    stream_->avail_in = static_cast<uInt>(piece.size());
    stream_->next_out = reinterpret_cast<Bytef*>(to.data());
    stream_->avail_out = static_cast<uInt>(to.size());
    int result = Z_OK;
    // Also without a byte to read: what is left of the last one may be more than fitted.
    while (result == Z_OK && stream_->avail_out > 0)
        result = ::inflate(stream_.get(), Z_SYNC_FLUSH);
    piece.remove_prefix(piece.size() - stream_->avail_in);
    // What comes behind a stream's end is damage, and so is all that stops it before.
    const bool isSound = result == Z_OK || result == Z_BUF_ERROR || result == Z_STREAM_END;
    if (!isSound || (stream_->avail_out > 0 && !piece.empty()))
        return std::nullopt;
    return to.size() - stream_->avail_out;
}

}  // namespace zelvo::opener
