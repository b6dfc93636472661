// What strangers and users write: links, names, records, the head and the frames of a WebSocket.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "sealing/HelperName.h"
#include "sealing/Record.h"
#include "sealing/ShareLink.h"
#include "sealing/WebSocket.h"
#include "sealing/WebSocketHead.h"

namespace zelvo::sealing {

namespace {

using namespace std::string_literals;

nlohmann::json vectors() {
    return nlohmann::json::parse(std::ifstream(ZELVO_VECTORS "/text_vectors.json"));
}

TEST(ShareLink, IsWholeOrNamedForWhatItIsNot) {
    const std::vector<std::string> reasons{"Empty",        "TooLong",       "OtherScheme", "NoKey",
                                           "NoIdentifier", "BadIdentifier", "BadKey"};
    const auto all = vectors();
    for (const auto& vector : all["links"]) {
        const auto text = vector["text"].get<std::string>();
        const auto read = parseLink(text);
        if (const auto* link = std::get_if<ShareLink>(&read)) {
            EXPECT_EQ(vector["fault"], "") << text;
            EXPECT_EQ(linkText(*link), text);
            for (std::size_t size = 0; size < text.size(); ++size)
                EXPECT_TRUE(std::holds_alternative<NoLink>(parseLink(text.substr(0, size))));
        } else {
            EXPECT_EQ(reasons[static_cast<std::size_t>(std::get<NoLink>(read))],
                      vector["fault"].get<std::string>())
                << text;
        }
    }
    EXPECT_EQ(linkText({"a#b", {}}), std::nullopt);
}

TEST(HelperName, StandsInASentenceAsItIs) {
    const auto all = vectors();
    for (const auto& vector : all["names"]) {
        const auto typed = vector["typed"].get<std::string>();
        EXPECT_EQ(asHelperName(typed), vector["name"].get<std::string>());
        EXPECT_EQ(isHelperName(typed), vector["name"] == typed) << typed;
    }
    EXPECT_EQ(asHelperName("Z\xffo\xc3"), "Zo");
    EXPECT_FALSE(isHelperName("Z\xff") || isHelperName(""));
}

TEST(Record, IsExactlyOneOrNone) {
    const auto opening = "\x01" + std::string(32, 'v');
    for (const auto& wrong :
         {""s, "\x00"s, "\x05x"s, "\x02"s, "\x02" + std::string(16385, 'd'), "\x03"s, "\x03\x00"s,
          "\x03\x01\x01"s, "\x04\x01\x00"s, "\x04\x00\x00\x00"s, "\x01v"s, opening, opening + "a\n",
          "\x05" + std::string(33, 's'), "\x07" + std::string(31, 'p'),
          "\x06" + std::string(64, 'v'), "\x08"s})
        EXPECT_EQ(decodeRecord(wrong), std::nullopt) << wrong.size();
    EXPECT_TRUE(decodeRecord("\x02" + std::string(16384, 'd')) && decodeRecord(opening + "a"));
}

const auto Request =
    "GET / HTTP/1.1\r\nHost: 192.0.2.7:5900\r\nConnection: keep-alive, Upgrade\r\n"
    "upgrade: WebSocket\r\nSec-WebSocket-Version: 13\r\nOrigin: null\r\n"
    "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Protocol: zelvo.2,zelvo.1\r\n\r\n"s;

std::string replaced(std::string text, const std::string& what, const std::string& by) {
    return text.replace(text.find(what), what.size(), by);
}

TEST(WebSocketHead, OpensForOneOfOursAndNobodyElse) {
    using State = WebSocketHead::State;
    // Byte by byte; tells what it left.
    auto give = [](WebSocketHead& reader, std::string_view bytes) {
        for (; !bytes.empty() && reader.state() == State::Reading; bytes.remove_prefix(1)) {
            auto byte = bytes.substr(0, 1);
            reader.receive(byte);
        }
        return bytes;
    };
    UpgradeRequestReader whole;
    give(whole, std::string_view(Request).substr(0, Request.size() - 1));
    EXPECT_EQ(whole.state(), State::Reading);
    EXPECT_EQ(give(whole, "\nrest"), "rest");
    const auto reply = whole.takeOutput();
    // The example of RFC 6455, section 1.3.
    EXPECT_NE(reply.find("Sec-WebSocket-Accept: s3pPLMBiTxaQ9kYGzzhZRbK+xOo=\r\n"), reply.npos);
    const std::vector<std::pair<std::string, std::vector<std::pair<std::string, std::string>>>>
        refused{
            {"", {{"GET /", "POST /"}, {"Origin: null", " folded"}, {"null", "a\nb"}}},
            {"", {{"Origin", "Ori gin"}, {"null", std::string(4096, 'a')}}},
            {"HTTP/1.1 404", {{"GET /", "GET /vnc"}}},
            {"HTTP/1.1 426", {{"13\r\n", "8\r\n"}}},
            {"HTTP/1.1 400",
             {{"jZQ==", "jZR=="}, {"zelvo.1", "zelvo.3"}, {"WebSocket\r\n", "h2c\r\n"}}},
            {"HTTP/1.1 400", {{"Origin: null", "Host: b"}, {"Origin: null", "Content-Length: 5"}}},
        };
    for (const auto& [status, changes] : refused) {
        for (const auto& [what, by] : changes) {
            UpgradeRequestReader reader;
            give(reader, replaced(Request, what, by));
            EXPECT_EQ(reader.state(), State::Failed) << by;
            EXPECT_EQ(reader.takeOutput().substr(0, 12), status);
        }
    }
    // The other side: its own nonce, once greeted or not, and not one byte of a frame.
    std::array<unsigned char, 16> nonce;
    std::copy_n("the sample nonce", nonce.size(), nonce.begin());
    const std::vector<std::tuple<std::string, State, std::string>> replies{
        {reply + "\x82", State::Done, "\x82"},
        {"RFB 003.008\n" + reply, State::Done, ""},
        {"RFB 003.008\nRFB 003.008\n" + reply, State::Failed, ""},
        {"RFB 003.0080" + reply, State::Failed, ""},
        {replaced(reply, "s3pP", "s3pQ"), State::Failed, ""},
        {replaced(reply, "zelvo.1", "zelvo.2"), State::Failed, ""},
        {replaced(reply, "101", "200"), State::Failed, ""},
        {replaced(reply, "101", "429"), State::Failed, ""},
        {replaced(reply, "Upgrade: ", "Sec-WebSocket-Extensions: x\r\nUpgrade: "), State::Failed,
         ""},
    };
    for (const auto& [text, state, rest] : replies) {
        UpgradeReplyReader reader(nonce);
        UpgradeRequestReader other;
        give(other, reader.takeOutput());
        EXPECT_EQ(other.takeOutput(), reply);
        const auto left = give(reader, text);
        EXPECT_EQ(reader.state(), state) << text;
        EXPECT_EQ(reader.isBusy(), text.starts_with("HTTP/1.1 429"));
        EXPECT_EQ(state == State::Done ? left : "", rest);
    }
}

TEST(WebSocket, TakesWholeMessagesAndNothingElse) {
    using State = WebSocket::State;
    const auto hello = "\x82\x05hello"s;
    std::vector<std::tuple<std::string, std::vector<std::string>, State, std::string>> cases{
        {hello + hello, {"hello", "hello"}, State::Open, ""},
        {"\x02\x02he\x89\x01p\x80\x03llo"s, {"hello"}, State::Open, "\x8a\x01p"},
        {"\x82\x7e\x01\x00"s + std::string(256, 'm'), {std::string(256, 'm')}, State::Open, ""},
        {"\x8a\x00\x82\x00"s, {""}, State::Open, ""},
        {hello + "\x88\x04\x03\xe9no"s + hello, {"hello"}, State::Closed, "\x88\x02\x03\xe9"},
        {"\x88\x00"s, {}, State::Closed, "\x88\x00"s},
    };
    const auto long16 = "\x02\x7e\x00\xff"s + std::string(255, 'm');
    const std::vector<std::pair<std::string, std::vector<std::string>>> faults{
        {"\x88\x02\x03\xea", {"\x88\x01\x03"s, "\x88\x02\x03\xed"s, "\x82\x7e\x00\x05hello"s}},
        {"\x88\x02\x03\xea", {"\xc2\x01m"s, "\x82\x81"s, "\x80\x01m"s, "\x02\x01m\x82\x01m"s}},
        {"\x88\x02\x03\xea", {"\x02\x00"s, "\x09\x00"s, "\x89\x7e"s, "\x8b\x00"s}},
        {"\x88\x02\x03\xeb", {"\x81\x02hi"s}},
        {"\x88\x02\x03\xf1", {"\x82\x7e\x01\x01"s, "\x82\x7f\x80"s + std::string(7, '\0')}},
        {"\x88\x02\x03\xf1", {long16 + "\x80\x02mm"s}},
    };
    for (const auto& [answer, wrong] : faults) {
        for (const auto& bytes : wrong)
            cases.emplace_back(bytes, std::vector<std::string>(), State::Failed, answer);
    }
    for (const auto& [bytes, messages, state, answer] : cases) {
        for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
            WebSocket client(WebSocket::Role::Client);
            client.setLongest(256);
            std::vector<std::string> came;
            for (const auto& part : {bytes.substr(0, cut), bytes.substr(cut)}) {
                client.receive(part);
                while (auto message = client.next())
                    came.push_back(*message);
            }
            EXPECT_EQ(came, messages);
            EXPECT_EQ(client.state(), state) << testing::PrintToString(bytes) << " at " << cut;
            // What a client says is masked, so read it as a server does.
            const auto masked = client.takeOutput();
            std::string said = masked.substr(0, 2);
            for (std::size_t at = 6; at < masked.size(); ++at)
                said += static_cast<char>(masked[at] ^ masked[2 + (at - 6) % 4]);
            if (!said.empty())
                said[1] = static_cast<char>(said[1] & 0x7f);
            EXPECT_EQ(said, answer);
        }
    }
    WebSocket server(WebSocket::Role::Server);
    server.receive(hello);
    EXPECT_EQ(server.next(), std::nullopt);
    EXPECT_EQ(server.state(), State::Failed) << "not masked";
    EXPECT_EQ(server.takeOutput(), "\x88\x02\x03\xea");
    WebSocket another(WebSocket::Role::Server);
    another.receive(
        "\x02\x83"
        "ABCD"
        "   \x80\x82"
        "ABCD"
        "  ");
    EXPECT_EQ(another.next(), "abcab") << "each part begins its mask anew";
}

}  // namespace

}  // namespace zelvo::sealing
