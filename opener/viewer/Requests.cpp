#include "opener/viewer/Requests.h"

#include <zlib.h>

#include <algorithm>

#include "opener/viewer/Inflater.h"
#include "opener/viewer/RfbNumbers.h"
#include "platform/linux/base/TextEncoding.h"

namespace zelvo::opener::requests {

namespace {

using rfb::number;
using namespace std::string_literals;

enum ClipboardFlag : std::uint32_t {
    text = 1,
    abilities = 1U << 24U,
    request = 1U << 25U,
    notify = 1U << 27U,
    provide = 1U << 28U,
};
constexpr std::size_t flagsSize = 4;

std::string cutText(std::size_t length, const std::string& content) {
    return "\6\0\0\0"s + number(length, 4) + content;
}

/// A negative length says that it is of the extended form.
std::string extended(std::uint32_t flags, const std::string& content = {}) {
    return cutText(0U - static_cast<std::uint32_t>(flagsSize + content.size()),
                   number(flags, flagsSize) + content);
}

/// A stream that does not end: LibVNCServer takes its end for damage.
std::string deflated(std::string content) {
    z_stream stream{};
    if (::deflateInit(&stream, Z_DEFAULT_COMPRESSION) != Z_OK)
        return {};
    std::string compressed(::deflateBound(&stream, content.size()) + 64, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(content.data());
    stream.avail_in = static_cast<uInt>(content.size());
    stream.next_out = reinterpret_cast<Bytef*>(compressed.data());
    stream.avail_out = static_cast<uInt>(compressed.size());
    ::deflate(&stream, Z_SYNC_FLUSH);
    compressed.resize(stream.total_out);
    ::deflateEnd(&stream);
    return compressed;
}

std::uint32_t numberAt(const std::string& bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = at; i < at + 4; ++i)
        value = value << 8U | static_cast<std::uint8_t>(bytes[i]);
    return value;
}

}  // namespace

std::string pixelFormat() {
    return "\0\0\0\0"s + "\x20\x18\0\1"s + "\0\xff\0\xff\0\xff"s + "\x10\x08\0"s + "\0\0\0"s;
}

std::string encodings(LineQuality::Level level) {
    std::string list;
    std::size_t count = 0;
    auto add = [&](std::uint32_t encoding) {
        list += number(encoding, 4);
        ++count;
    };
    for (auto encoding : {rfb::tight, rfb::zrle, rfb::copyRectangle, rfb::raw, rfb::richCursor,
                          rfb::pointerPosition, rfb::desktopSize, rfb::extendedDesktopSize,
                          rfb::lastRectangle, rfb::extendedClipboard})
        add(encoding);
    add(rfb::lowestCompression + level.compression);
    if (level.quality)
        add(rfb::lowestQuality + *level.quality);
    return "\2\0"s + number(count, 2) + list;
}

std::string update(PicturePart part, bool onlyChanges) {
    auto message = "\3"s + number(onlyChanges ? 1 : 0, 1);
    for (int value : {part.x, part.y, part.width, part.height})
        message += number(static_cast<std::size_t>(value), 2);
    return message;
}

std::string key(std::uint32_t keysym, bool isDown) {
    return "\4"s + number(isDown ? 1 : 0, 1) + "\0\0"s + number(keysym, 4);
}

std::string pointer(int x, int y, std::uint8_t buttons) {
    return "\5"s + number(buttons, 1) + number(static_cast<std::size_t>(x), 2) +
           number(static_cast<std::size_t>(y), 2);
}

bool isPointer(std::string_view message) {
    return message.starts_with('\5');
}

std::string latin1Clipboard(std::string_view utf8) {
    std::string latin1;
    while (!utf8.empty()) {
        const auto character = platform::firstCodePoint(utf8);
        const bool isLatin1 = character && character->value < 0x100;
        latin1 += isLatin1 ? static_cast<char>(character->value) : '?';
        utf8.remove_prefix(character ? character->length : 1);
    }
    return cutText(latin1.size(), latin1);
}

std::string clipboardAbilities() {
    return extended(abilities | request | notify | provide | text,
                    number(RfbFilter::longestText, 4));
}

std::string clipboardRequest() {
    return extended(request | text);
}

std::string clipboardText(const std::string& utf8) {
    // The NUL at the end counts.
    return extended(provide | text, deflated(number(utf8.size() + 1, 4) + utf8 + '\0'));
}

ClipboardNews clipboardNews(const std::string& message) {
    ClipboardNews news;
    if (message.size() < flagsSize)
        return news;
    const auto flags = numberAt(message, 0);
    news.tellsAbilities = (flags & abilities) != 0;
    if (news.tellsAbilities || (flags & text) == 0)
        return news;
    news.hasText = (flags & notify) != 0;
    news.wantsText = (flags & request) != 0;
    if ((flags & provide) == 0)
        return news;
    const auto content = Inflater().inflate(std::string_view(message).substr(flagsSize),
                                            flagsSize + RfbFilter::longestText);
    if (!content || content->size() < 4 || numberAt(*content, 0) > content->size() - 4)
        return news;
    auto utf8 = content->substr(4, numberAt(*content, 0));
    utf8.resize(std::min(utf8.find('\0'), utf8.size()));
    if (platform::isUtf8(utf8))
        news.text = std::move(utf8);
    return news;
}

}  // namespace zelvo::opener::requests
