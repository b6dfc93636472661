// Both ends of a sealed channel: against the vectors, against each other, and against who sits
// between.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "sealing/Primitives.h"
#include "sealing/SealedLine.h"

namespace zelvo::sealing {

namespace {

using nlohmann::json;
using namespace std::string_literals;

json vectors(const std::string& name) {
    return json::parse(std::ifstream(ZELVO_VECTORS "/" + name));
}

std::string bytes(const json& hex) {
    std::string result;
    const auto text = hex.get<std::string>();
    for (std::size_t at = 0; at < text.size(); at += 2)
        result += static_cast<char>(std::stoi(text.substr(at, 2), nullptr, 16));
    return result;
}

Key key(const json& hex) {
    Key result;
    bytes(hex).copy(reinterpret_cast<char*>(result.bytes().data()), Key::size);
    return result;
}

ShareLink link(const std::string& text) {
    return std::get<ShareLink>(parseLink(text));
}

TEST(NoiseHandshake, AgreesWithThePublishedVectors) {
    for (const auto& vector : vectors("noise_vectors.json")["vectors"]) {
        NoiseHandshake initiator(NoiseHandshake::Role::Initiator, bytes(vector["init_prologue"]),
                                 key(vector["init_psks"][0]), key(vector["init_ephemeral"]));
        NoiseHandshake responder(NoiseHandshake::Role::Responder, bytes(vector["resp_prologue"]),
                                 key(vector["resp_psks"][0]), key(vector["resp_ephemeral"]));
        std::optional<NoiseHandshake::Transport> ends[2];
        for (std::size_t at = 0; at < vector["messages"].size(); ++at) {
            const auto payload = bytes(vector["messages"][at]["payload"]);
            const auto message = bytes(vector["messages"][at]["ciphertext"]);
            if (at < 2) {
                auto& from = at == 0 ? initiator : responder;
                auto& to = at == 0 ? responder : initiator;
                EXPECT_EQ(to.write("out of turn"), std::nullopt);
                EXPECT_EQ(from.write(payload), message);
                EXPECT_EQ(to.read(message), payload);
                continue;
            }
            if (at == 2) {
                ends[0] = initiator.split();
                ends[1] = responder.split();
                ASSERT_TRUE(ends[0] && ends[1]);
                EXPECT_EQ(ends[0]->hash, bytes(vector["handshake_hash"]));
                EXPECT_EQ(ends[1]->hash, ends[0]->hash);
            }
            std::string sealed, opened;
            ASSERT_TRUE(ends[at % 2]->sends.seal({}, payload, sealed));
            ASSERT_TRUE(ends[1 - at % 2]->receives.open({}, message, opened));
            EXPECT_EQ(sealed, message);
            EXPECT_EQ(opened, payload);
        }
    }
}

TEST(SealedChannel, IsByteForByteWhatItsPageSays) {
    const auto vector = vectors("channel_vectors.json");
    const auto shared = link(vector["link"]);
    EXPECT_EQ(linkText(shared), vector["link"]);
    const ChannelKey channelKey(shared);
    EXPECT_EQ(channelKey.preShared.view(), bytes(vector["preShared"]));
    EXPECT_EQ(channelKey.prologue, bytes(vector["prologue"]));
    ReplayCache replays;
    auto secrets = [&](const char* side) {
        return OwnSecrets{key(vector[side]["ephemeral"]), key(vector[side]["value"])};
    };
    auto opener =
        SealedChannel::opener(channelKey, vector["name"].get<std::string>(), secrets("opener"));
    auto host = SealedChannel::host(channelKey, replays, secrets("host"));
    using Messages = std::vector<std::string>;
    const auto first = opener.takeMessages();
    EXPECT_EQ(first, Messages{bytes(vector["message1"])});
    host.receive(first[0]);
    const auto second = host.takeMessages();
    EXPECT_EQ(second, Messages{bytes(vector["message2"])});
    EXPECT_EQ(host.state(), SealedChannel::State::Proving) << "who replays gets this far";
    opener.receive(second.at(0));
    for (const auto& record : vector["records"]) {
        const bool isOpeners = record["from"] == "opener";
        auto& from = isOpeners ? opener : host;
        auto& to = isOpeners ? host : opener;
        const auto plain = decodeRecord(bytes(record["plain"]));
        ASSERT_TRUE(plain);
        EXPECT_EQ(encode(*plain), bytes(record["plain"]));
        std::string last;
        for (int times = 0; times < record["times"]; ++times) {
            if (const auto* data = std::get_if<Data>(&*plain))
                from.send(data->bytes);
            else if (const auto* goodbye = std::get_if<Goodbye>(&*plain))
                from.sayGoodbye(goodbye->reason);
            else if (const auto* standing = std::get_if<Standing>(&*plain))
                from.tell(*standing);
            last = from.takeMessages().at(0);
            to.receive(last);
            if (const auto* data = std::get_if<Data>(&*plain)) {
                ASSERT_EQ(to.takeData(), data->bytes);
            }
        }
        EXPECT_EQ(last, bytes(record["sealed"]));
    }
    EXPECT_EQ(host.digits(), vector["digits"]);
    EXPECT_EQ(opener.digits(), vector["digits"]);
    EXPECT_EQ(host.name(), vector["name"]);
    EXPECT_EQ(opener.standing(), (Standing{Standing::Place::Asked, 60}));
    EXPECT_EQ(opener.goodbye(), Farewell::Disconnected);
    EXPECT_EQ(opener.state(), SealedChannel::State::Closed);
}

using State = SealedLine::State;
using Failure = SealedLine::Failure;

class SealedLineTest : public testing::Test {
  protected:
    const ChannelKey right{link("zelvo://here#AAAAAAAAAAAAAAAAAAAAAA")};
    const ChannelKey wrong{link("zelvo://here#AAAAAAAAAAAAAAAAAAAAAQ")};
    const ChannelKey elsewhere{link("zelvo://there#AAAAAAAAAAAAAAAAAAAAAA")};
    ReplayCache replays;

    /// Carries all that there is, a part at a time; what the opener said is kept.
    void carry(SealedLine& opener, SealedLine& host, std::size_t part = 1 << 20) {
        for (bool moved = true; moved;) {
            const auto up = opener.takeOutput();
            said += up;
            give(host, up, part);
            const auto down = host.takeOutput();
            give(opener, down, part);
            moved = !up.empty() || !down.empty();
        }
    }
    void give(SealedLine& to, std::string_view bytes, std::size_t part) {
        for (; !bytes.empty(); bytes.remove_prefix(std::min(part, bytes.size())))
            to.receive(bytes.substr(0, part));
    }

    std::string said;
};

TEST_F(SealedLineTest, CarriesHoweverItIsCutAndWhoeverGreetsFirst) {
    const std::string picture(100'000, 'p');
    for (const std::size_t part : {1U, 7U, 4096U, 1U << 20}) {
        auto opener = SealedLine::opener(right, "Zoë");
        auto host = SealedLine::host(right, replays);
        give(opener, "RFB 003.008\n", part);
        carry(opener, host, part);
        ASSERT_EQ(opener.state(), State::Open);
        ASSERT_EQ(host.state(), State::Open);
        EXPECT_EQ(host.channel().name(), "Zoë");
        EXPECT_EQ(host.channel().digits(), opener.channel().digits());
        opener.send("keys");
        host.send(picture);
        host.tell({Standing::Place::Controlling, 0});
        carry(opener, host, part);
        EXPECT_EQ(host.takeData(), "keys");
        EXPECT_EQ(opener.takeData(), picture);
        EXPECT_EQ(opener.channel().standing()->place, Standing::Place::Controlling);
        EXPECT_FALSE(host.isOver());
        opener.sayGoodbye(Farewell::Left);
        opener.send("more");
        carry(opener, host, part);
        EXPECT_EQ(host.channel().goodbye(), Farewell::Left);
        EXPECT_EQ(host.takeData(), "");
        EXPECT_TRUE(host.isOver() && opener.isOver());
        EXPECT_EQ(host.failure(), Failure::None);
        EXPECT_EQ(said.find("Zoë"), std::string::npos);
    }
}

TEST_F(SealedLineTest, LetsNobodyInWithoutTheKeyAndTellsThemLittle) {
    for (const auto* other : {&wrong, &elsewhere}) {
        auto opener = SealedLine::opener(*other, "Eve");
        auto host = SealedLine::host(right, replays);
        carry(opener, host);
        EXPECT_EQ(host.failure(), Failure::KeyRefused);
        EXPECT_EQ(opener.failure(), Failure::KeyRefused);
        EXPECT_EQ(host.channel().name(), "");
    }
    // What an honest opener said, said again.
    said.clear();
    auto opener = SealedLine::opener(right, "Zoë");
    auto first = SealedLine::host(right, replays);
    carry(opener, first);
    ASSERT_EQ(first.state(), State::Open);
    auto second = SealedLine::host(right, replays);
    second.receive(said);
    EXPECT_EQ(second.failure(), Failure::Replayed);
    EXPECT_TRUE(second.takeOutput().ends_with("\x88\x02\x0f\xa1")) << "the code of a wrong key";
    ReplayCache forgotten;
    auto third = SealedLine::host(right, forgotten);
    third.receive(said);
    EXPECT_EQ(third.failure(), Failure::BadOpening) << "only who made it knows the keys";
    auto astray = SealedLine::opener(right, "Zoë");
    astray.receive("HTTP/1.1 200 OK\r\n\r\n");
    EXPECT_EQ(astray.failure(), Failure::NoUpgrade);
    // With the link, in between: both sides open, and the digits tell.
    auto victim = SealedLine::opener(right, "Zoë");
    auto asHost = SealedLine::host(right, replays);
    auto asOpener = SealedLine::opener(right, "Zoë");
    auto host = SealedLine::host(right, replays);
    carry(victim, asHost);
    carry(asOpener, host);
    ASSERT_EQ(host.state(), State::Open);
    EXPECT_NE(victim.channel().digits(), host.channel().digits());
}

TEST_F(SealedLineTest, NoticesEveryChangeAndEveryCut) {
    const auto secrets = OwnSecrets::fresh();
    auto channels = [&](auto&& change, int which) {
        ReplayCache fresh;
        auto opener = SealedChannel::opener(right, "Zoë", secrets);
        auto host = SealedChannel::host(right, fresh, secrets);
        for (int at = 0; at < 4; ++at) {
            auto& from = at % 2 == 0 ? opener : host;
            auto& to = at % 2 == 0 ? host : opener;
            if (at == 3)
                host.send("picture");
            auto message = from.takeMessages().at(0);
            if (at == which)
                change(message);
            to.receive(message);
            if (at == which)
                return to.failure();
        }
        return SealedChannel::Failure::None;
    };
    using enum SealedChannel::Failure;
    const SealedChannel::Failure failures[]{KeyRefused, NotTheHost, BadOpening, BadRecord};
    const std::size_t sizes[]{80, 80, 1 + 32 + 4 + 16, 1 + 7 + 16};
    for (int which = 0; which < 4; ++which) {
        for (std::size_t at = 0; at < sizes[which]; ++at) {
            // The top bit of a public half means nothing to the agreement, but is hashed.
            auto flip = [&](std::string& message) {
                ASSERT_EQ(message.size(), sizes[which]);
                message[at] = static_cast<char>(message[at] ^ 0x80);
            };
            EXPECT_EQ(channels(flip, which), failures[which]) << which << ", byte " << at;
            auto cut = [&](std::string& message) { message.resize(at); };
            EXPECT_EQ(channels(cut, which), failures[which]) << which << ", cut at " << at;
        }
    }
    // A promise is kept, an opening comes once, and a standing is the host's to tell.
    const std::string value(32, 'v');
    const Opening opening{value, "Zoë"};
    const std::vector<std::tuple<std::string, std::vector<Record>, SealedChannel::Failure>> said{
        {sha256(value), {opening, Data{"keys"}}, None},
        {sha256("another"), {opening}, BadOpening},
        {sha256(value), {Data{"keys"}}, BadOpening},
        {sha256(value), {opening, opening}, BadRecord},
        {sha256(value), {opening, Standing{}}, BadRecord},
    };
    for (const auto& [promise, records, failure] : said) {
        NoiseHandshake peer(NoiseHandshake::Role::Initiator, right.prologue, right.preShared,
                            OwnSecrets::fresh().ephemeral);
        auto host = SealedChannel::host(right, replays, secrets);
        host.receive(*peer.write(promise));
        ASSERT_TRUE(peer.read(host.takeMessages().at(0)));
        auto transport = peer.split();
        for (const auto& record : records) {
            std::string message;
            transport->sends.seal({}, encode(record), message);
            host.receive(message);
        }
        EXPECT_EQ(host.failure(), failure);
    }
    auto opener = SealedLine::opener(right, "Zoë");
    auto line = SealedLine::host(right, replays);
    carry(opener, line);
    opener.end();
    EXPECT_EQ(opener.failure(), Failure::Cut) << "an end without a goodbye";
    ReplayCache cache;
    for (int filled = 0; filled < 4096; ++filled)
        EXPECT_TRUE(cache.admit("key " + std::to_string(filled)));
    EXPECT_FALSE(cache.admit("key 0"));
    EXPECT_TRUE(cache.admit("key 4096"));
    EXPECT_TRUE(cache.admit("key 0")) << "the oldest went";
}

}  // namespace

}  // namespace zelvo::sealing
