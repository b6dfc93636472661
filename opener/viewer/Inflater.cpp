#include "opener/viewer/Inflater.h"

#include <zlib.h>

namespace zelvo::opener {

void Inflater::End::operator()(z_stream_s* stream) const {
    ::inflateEnd(stream);
    delete stream;
}

std::optional<std::string> Inflater::inflate(std::string_view piece, std::size_t most) {
    if (!stream_) {
        auto stream = std::make_unique<z_stream>();
        if (::inflateInit(stream.get()) != Z_OK)
            return std::nullopt;
        stream_.reset(stream.release());
    }
    // One byte more than may be, so that the end is seen, and what is too much.
    std::string content(most + 1, '\0');
    stream_->next_in = reinterpret_cast<Bytef*>(const_cast<char*>(piece.data()));
    stream_->avail_in = static_cast<uInt>(piece.size());
    stream_->next_out = reinterpret_cast<Bytef*>(content.data());
    stream_->avail_out = static_cast<uInt>(content.size());
    int result = Z_OK;
    while (result == Z_OK && stream_->avail_in > 0 && stream_->avail_out > 0)
        result = ::inflate(stream_.get(), Z_SYNC_FLUSH);
    const bool isWhole = (result == Z_OK || result == Z_STREAM_END) && stream_->avail_in == 0 &&
                         stream_->avail_out > 0;
    if (!isWhole)
        return std::nullopt;
    content.resize(content.size() - stream_->avail_out);
    return content;
}

}  // namespace zelvo::opener
