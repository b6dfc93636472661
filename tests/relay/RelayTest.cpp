#include <gtest/gtest.h>

#include "relay/NumberBook.h"
#include "relay/messages/RelayHeads.h"
#include "relay/messages/RelayLines.h"

using namespace zelvo::relay;
using namespace std::chrono_literals;

TEST(RelayMessages, HostsReadWhatRelaysWriteAndTheOtherWayRound) {
    const std::string token(22, 'A');
    const auto host = std::get<HostRequest>(readRequest(textOf(HostRequest{"r", "QUI", "QUJD"})));
    EXPECT_EQ(host.relay + host.ticket + host.lease, "rQUIQUJD");
    EXPECT_EQ(std::get<DialBackRequest>(readRequest(textOf(DialBackRequest{"r", token}))).token,
              token);
    const auto welcome = readReply(textOf(Reply{101, 12345, "QUJD"}));
    ASSERT_TRUE(welcome);
    EXPECT_EQ(welcome->number, 12345);
    EXPECT_EQ(welcome->lease, "QUJD");
    EXPECT_EQ(readReply(textOf(Reply{503, 0, "", 7s}))->retryAfter, 7s);
    for (const auto* head : {"HTTP/1.1 101 X\r\n\r\n", "HTTP/1.1 99 X\r\n\r\n", "200 OK\r\n\r\n",
                             "HTTP/1.1 403 X\r\nZelvo-Number: 9999\r\n\r\n"})
        EXPECT_FALSE(readReply(head)) << head;
    EXPECT_EQ(headLength("GET / HTTP/1.1\r\n\r"), 0u);
    EXPECT_EQ(headLength(std::string(LongestHead, 'x')), std::string::npos);

    std::string heard;
    LineReader lines;
    const auto hear = [&](const Line& line) {
        heard += std::to_string(static_cast<int>(line.kind)) + textOf(line);
        return true;
    };
    const auto said = "ping\npong\nviewer " + token + " 2001:db8::1\nlease QUJD\n";
    for (const char byte : said + "viewer " + token + "\nlease !\nnews\n")
        EXPECT_TRUE(lines.receive({&byte, 1}, hear));
    EXPECT_EQ(heard, "0ping\n1pong\n2viewer " + token + " 2001:db8::1\n3lease QUJD\n444");
    EXPECT_FALSE(LineReader().receive("a\r\n", hear));
    EXPECT_FALSE(lines.receive(std::string(Line::Longest, 'x'), hear));
}

TEST(NumberBook, KeepsANumberForItsHostUntilTheLeaseIsOver) {
    NumberBook book(1, 3);
    const auto first = book.give({}, 1000);
    ASSERT_TRUE(first);
    EXPECT_EQ(*first % 3, 1);
    Lease lease{1000 + Lease::ValidFor, book.find(*first)->host, *first};
    EXPECT_EQ(book.give(lease, 2000), first);
    auto foreign = lease;
    foreign.host = freshPseudonym();
    EXPECT_NE(book.give(foreign, 2000), first);
    EXPECT_EQ(book.give(foreign, 2000 + Lease::ValidFor), first);
    EXPECT_NE(book.give(lease, 2000 + Lease::ValidFor), first);
    // There is one for each of a third of them, and no more once all have their hosts.
    std::set<int> given;
    while (const auto number = book.give({}, 1'000'000)) {
        book.find(*number)->line = reinterpret_cast<HostLine*>(&book);
        ASSERT_TRUE(given.insert(*number).second);
    }
    EXPECT_EQ(given.size(), (LastNumber - FirstNumber) / 3 + 1u);
    EXPECT_EQ(*given.begin() % 3, 1);
    EXPECT_GE(*given.begin(), FirstNumber);
}

TEST(HostAccount, MakesUpForWhatWasTakenTooFast) {
    const auto now = HostAccount::Clock::now();
    HostAccount account({1000, 100});
    EXPECT_EQ(account.take(900, now), 0ms);
    EXPECT_EQ(account.take(300, now), 2100ms);
    EXPECT_EQ(account.take(1, now + 2100ms), 0ms);
    EXPECT_EQ(HostAccount({0, 0}).take(1 << 30), 0ms);
}
