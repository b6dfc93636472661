#include "platform/linux/nat/base/HttpResponseReader.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace zelvo::platform {

namespace {

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

/// A number that makes up the whole text, or all of it up to a ";".
std::optional<std::size_t> number(std::string_view text, int base) {
    std::size_t value = 0;
    const auto [last, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    const std::string_view rest(last, static_cast<std::size_t>(text.data() + text.size() - last));
    if (error != std::errc() || (!rest.empty() && rest.front() != ';' && rest.front() != ' ')) {
        return std::nullopt;
    }
    return value;
}

}  // namespace

HttpResponseReader::State HttpResponseReader::feed(std::string_view bytes) {
    if (state_ != State::More) {
        return state_;
    }
    pending_.erase(0, position_);
    position_ = 0;
    pending_ += bytes;
    while (state_ == State::More && step()) {
    }
    return state_;
}

HttpResponseReader::State HttpResponseReader::end() {
    if (state_ == State::More) {
        const bool endsWithTheConnection = part_ == Part::Body && !length_;
        state_ = endsWithTheConnection ? State::Done : State::Failed;
    }
    return state_;
}

/// Reads one part; false when it takes more bytes to go on.
bool HttpResponseReader::step() {
    switch (part_) {
        case Part::Head:
        case Part::Trailer:
            return readHead();
        case Part::Body:
            return readBody();
        case Part::ChunkSize:
            return readChunkSize();
        case Part::Chunk:
            return readChunk();
        case Part::ChunkEnd: {
            const auto line = takeLine();
            part_ = line ? Part::ChunkSize : part_;
            return line && (line->empty() || fail());
        }
        case Part::Over:
            state_ = State::Done;
    }
    return false;
}

bool HttpResponseReader::readHead() {
    const auto line = takeLine();
    if (!line) {
        return false;
    }
    if (part_ == Part::Trailer) {
        part_ = line->empty() ? Part::Over : part_;
        return true;
    }
    if (!statusRead_) {
        statusRead_ = true;
        const auto status = line->substr(0, 7) == "HTTP/1." && line->size() >= 12
                                ? number(line->substr(9, 3), 10)
                                : std::nullopt;
        response_.status = static_cast<int>(status.value_or(0));
        return status ? true : fail();
    }
    if (!line->empty()) {
        return readHeader(*line);
    }
    if (response_.status == 100) {
        statusRead_ = false;
    } else if (chunked_) {
        part_ = Part::ChunkSize;
    } else {
        part_ = Part::Body;
    }
    return true;
}

bool HttpResponseReader::readHeader(std::string_view line) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
        return fail();
    }
    const std::string name = lowerCase(line.substr(0, colon));
    std::string_view value = line.substr(colon + 1);
    while (!value.empty() && value.front() == ' ') {
        value.remove_prefix(1);
    }
    if (name == "content-length") {
        length_ = number(value, 10);
        return length_ && *length_ <= LongestBody ? true : fail();
    }
    chunked_ = chunked_ || (name == "transfer-encoding" &&
                            lowerCase(value).find("chunked") != std::string::npos);
    return true;
}

bool HttpResponseReader::readBody() {
    const std::size_t wanted =
        length_ ? *length_ - response_.body.size() : pending_.size() - position_;
    const std::size_t size = std::min(wanted, pending_.size() - position_);
    response_.body.append(pending_, position_, size);
    position_ += size;
    if (response_.body.size() > LongestBody) {
        return fail();
    }
    if (length_ && response_.body.size() == *length_) {
        part_ = Part::Over;
        return true;
    }
    return false;
}

bool HttpResponseReader::readChunkSize() {
    const auto line = takeLine();
    if (!line) {
        return false;
    }
    const auto size = number(*line, 16);
    if (!size || *size > LongestBody - response_.body.size()) {
        return fail();
    }
    chunkLeft_ = *size;
    part_ = *size == 0 ? Part::Trailer : Part::Chunk;
    return true;
}

bool HttpResponseReader::readChunk() {
    const std::size_t size = std::min(chunkLeft_, pending_.size() - position_);
    response_.body.append(pending_, position_, size);
    position_ += size;
    chunkLeft_ -= size;
    if (chunkLeft_ == 0) {
        part_ = Part::ChunkEnd;
        return true;
    }
    return false;
}

/// A line of head, chunk size or trailer, all of which together are limited.
std::optional<std::string_view> HttpResponseReader::takeLine() {
    const std::size_t end = pending_.find('\n', position_);
    const std::size_t size = std::min(end, pending_.size()) - position_;
    if (headSize_ + size > LongestHead) {
        fail();
        return std::nullopt;
    }
    if (end == std::string::npos) {
        return std::nullopt;
    }
    headSize_ += size + 1;
    std::string_view line = std::string_view(pending_).substr(position_, size);
    position_ = end + 1;
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    return line;
}

bool HttpResponseReader::fail() {
    state_ = State::Failed;
    return false;
}

}  // namespace zelvo::platform
