#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "opener/viewer/HostConnection.h"
#include "tests/opener_viewer/Host.h"

namespace zelvo::opener {

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using End = HostConnection::End;

/// How a viewer takes what a host says who then hangs up, or is silent.
End endAfter(const std::string& said, bool hangsUp = true, std::string* heard = nullptr) {
    auto [host, ours] = test::connected();
    HostConnection connection(std::move(ours), 50ms);
    std::promise<End> promise;
    QObject::connect(
        &connection, &HostConnection::ended, &connection, [&](End end) { promise.set_value(end); },
        Qt::DirectConnection);
    ::send(host.get(), said.data(), said.size(), MSG_NOSIGNAL);
    if (hangsUp)
        ::shutdown(host.get(), SHUT_WR);
    connection.begin();
    auto end = promise.get_future();
    EXPECT_EQ(end.wait_for(10s), std::future_status::ready);
    if (heard) {
        heard->resize(4096);
        heard->resize(static_cast<std::size_t>(
            std::max<ssize_t>(0, ::recv(host.get(), heard->data(), heard->size(), 0))));
    }
    return end.get();
}

const std::string greeting = "RFB 003.008\n";
const std::string noSecurity = "\1\1\0\0\0\0"s;
/// 16 x 16, called "x".
const std::string screen = "\0\x10\0\x10"s + std::string(16, '\0') + "\0\0\0\1x"s;
const std::string open = greeting + noSecurity + screen;

std::string update(const std::string& rectangles, char count = 1) {
    return "\0\0\0"s + count + rectangles;
}

/// Two pixels from the upper left corner on.
std::string pair(const std::string& encoding) {
    return "\0\0\0\0\0\2\0\1"s + encoding;
}

const std::string all = open +
                        update(pair("\0\0\0\0"s) + "abcdefgh" + pair("\0\0\0\1\0\4\0\4"s) +
                                   pair("\0\0\0\7\x80xyz"s) + pair("\0\0\0\7\0"s) + "abcdef",
                               4) +
                        "\2" + "\3\0\0\0\0\0\0\3abc"s +
                        "\3\0\0\0\xff\xff\xff\xf8\x1f\0\0\1\0\x10\0\0"s +
                        update("\0\0\0\0\0\1\0\1\xff\xff\xff\x11"s + "abc\0\x80"s +
                                   "\0\0\0\0\0\x20\0\x20\xff\xff\xff\x21"s,
                               2);

TEST(HostileHost, MayBeCutAnywhere) {
    std::string heard;
    EXPECT_EQ(endAfter(all, true, &heard), End::Closed);
    EXPECT_TRUE(heard.starts_with(greeting + "\1\1")) << testing::PrintToString(heard);
    for (std::size_t length = 0; length < all.size(); ++length)
        EXPECT_EQ(endAfter(all.substr(0, length)), End::Closed) << length;
    EXPECT_EQ(
        endAfter(
            open +
            update("\0\0\0\0\0\x10\0\1\0\0\0\7\0\xc\x78\x9c\x4a\x4c\x24\x0d\0\0\0\0\xff\xff"s)),
        End::Closed)
        << "as many rows as there are";
    EXPECT_EQ(endAfter(open + update(""), false), End::Silence);
    EXPECT_EQ(endAfter(greeting, false), End::Silence);
}

TEST(HostileHost, HoldsNothingDownAfterItTookNothing) {
    auto [host, ours] = test::connected();
    const timeval patience{10, 0};
    ::setsockopt(host.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    HostConnection connection(std::move(ours));
    connection.pointer(1, 1, 1);
    for (const bool isDown : {true, false})
        for (std::uint32_t keysym = 1; keysym < 2000; ++keysym)
            connection.key(keysym, isDown);
    connection.pointer(2, 2, 2);
    connection.begin();
    // As many presses as have room, and as many releases.
    std::string heard(2 * 6 + 2 * 1023 * 8, '\0');
    ASSERT_EQ(::recv(host.get(), heard.data(), heard.size(), MSG_WAITALL), ssize_t(heard.size()));
    EXPECT_EQ(heard.substr(0, 6), "\5\1\0\1\0\1"s);
    EXPECT_EQ(heard.substr(heard.size() - 6), "\5\0\0\2\0\2"s);
    EXPECT_EQ(heard.substr(heard.size() - 14, 8), "\4\0\0\0\0\0\3\xff"s);
}

TEST(HostileHost, IsNotHeardWhereItTalksNonsense) {
    const std::vector<std::pair<const char*, std::string>> lies = {
        {"another version", "RFB 003.003\n"},
        {"no security at all", greeting + "\0"s},
        {"only with a password", greeting + "\1\2"},
        {"refused", greeting + "\1\1\0\0\0\1"s},
        {"no screen", greeting + noSecurity + std::string(24, '\0')},
        {"a screen of a gigabyte", greeting + noSecurity + "\x40\0\x40\0"s + std::string(20, '\0')},
        {"a name of a gigabyte", greeting + noSecurity + screen.substr(0, 20) + "\x40\0\0\0"s},
        {"a palette of its own", open + "\1"},
        {"a gigabyte of text", open + "\3\0\0\0\x40\0\0\0"s},
        {"beside the screen", open + update("\0\x0f\0\0\0\2\0\1\0\0\0\0"s)},
        {"below the screen", open + update("\0\0\0\x10\0\1\0\1\0\0\0\7"s)},
        {"from beside the screen", open + update(pair("\0\0\0\1\0\x0f\0\0"s))},
        {"nothing, in Tight", open + update("\0\0\0\0\0\0\0\0\0\0\0\7"s)},
        {"what was not asked for", open + update(pair("\0\0\0\5"s))},
        {"a screen without size", open + update("\0\0\0\0\0\0\0\1\xff\xff\xff\x21"s)},
        {"a huge cursor", open + update("\0\0\0\0\4\0\4\0\xff\xff\xff\x11"s)},
        {"a palette of one", open + update(pair("\0\0\0\7\x40\1\0"s))},
        {"an unknown filter", open + update(pair("\0\0\0\7\x40\3"s))},
        {"Tight of another kind", open + update(pair("\0\0\0\7\xa0"s))},
        {"no zlib in ZRLE", open + update(pair("\0\0\0\x10\0\0\0\4"s + "abcd"))},
        {"ZRLE without tiles", open + update(pair("\0\0\0\x10\0\0\0\0"s))},
        {"no JPEG", open + update(pair("\0\0\0\7\x90\4abcd"s))},
        {"no zlib", open + update("\0\0\0\0\0\x10\0\1\0\0\0\7\0\4abcd"s)},
        // Of 60 bytes for 48, and of 40.
        {"more rows than there are",
         open + update("\0\0\0\0\0\x10\0\1\0\0\0\7\0\xc\x78\x9c\x4a\x4c\x24\x1f\0\0\0\0\xff\xff"s)},
        {"fewer rows than there are",
         open + update("\0\0\0\0\0\x10\0\1\0\0\0\7\0\xc\x78\x9c\x4a\x4c\x24\x0e\0\0\0\0\xff\xff"s)},
    };
    for (const auto& [what, said] : lies)
        EXPECT_EQ(endAfter(said, false), End::Nonsense) << what;
}

}  // namespace

}  // namespace zelvo::opener
