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
using Role = NoiseHandshake::Role;

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
    const auto vector = vectors("noise_vectors.json")["vectors"][0];
    auto side = [&](Role role, const std::string& who) {
        return NoiseHandshake(role, bytes(vector[who + "_prologue"]), key(vector[who + "_psks"][0]),
                              key(vector[who + "_ephemeral"]));
    };
    NoiseHandshake sides[]{side(Role::Initiator, "init"), side(Role::Responder, "resp")};
    std::optional<NoiseHandshake::Transport> ends[2];
    for (std::size_t at = 0; at < vector["messages"].size(); ++at) {
        const auto payload = bytes(vector["messages"][at]["payload"]);
        const auto message = bytes(vector["messages"][at]["ciphertext"]);
        if (at < 2) {
            EXPECT_EQ(sides[1 - at].write("out of turn"), std::nullopt);
            EXPECT_EQ(sides[at].write(payload), message);
            EXPECT_EQ(sides[1 - at].read(message), payload);
            continue;
        }
        for (int end = 0; end < 2 && at == 2; ++end)
            ends[end] = sides[end].split();
        EXPECT_EQ(ends[0]->hash, ends[1]->hash);
        std::string sealed, opened;
        ASSERT_TRUE(ends[at % 2]->sends.seal({}, payload, sealed));
        ASSERT_TRUE(ends[1 - at % 2]->receives.open({}, message, opened));
        EXPECT_EQ(sealed, message);
        EXPECT_EQ(opened, payload);
    }
}

TEST(SealedChannel, IsByteForByteWhatItsPageSays) {
    const auto vector = vectors("channel_vectors.json");
    const ChannelKey channelKey(link(vector["link"]));
    EXPECT_EQ(channelKey.preShared.view(), bytes(vector["preShared"]));
    EXPECT_EQ(channelKey.prologue, bytes(vector["prologue"]));
    ReplayCache replays;
    auto secrets = [&](const char* side) {
        return OwnSecrets{key(vector[side]["ephemeral"]), key(vector[side]["value"])};
    };
    const auto name = vector["name"].get<std::string>();
    auto opener = SealedChannel::opener(channelKey, name, secrets("opener"));
    auto host = SealedChannel::host(channelKey, replays, secrets("host"));
    const auto back = key(vector["back"]["secret"]);
    for (const auto& message : vector["messages"]) {
        const bool isOpeners = message["from"] == "opener";
        auto& from = isOpeners ? opener : host;
        auto& to = isOpeners ? host : opener;
        const auto plain = decodeRecord(bytes(message["plain"]));
        const auto* data = plain ? std::get_if<Data>(&*plain) : nullptr;
        std::string last;
        for (int times = 0; times < message["times"]; ++times) {
            if (data)
                from.send(data->bytes);
            else if (plain == Record(Goodbye{Farewell::Disconnected}))
                from.sayGoodbye(Farewell::Disconnected);
            else if (plain && std::holds_alternative<Standing>(*plain))
                from.tell(std::get<Standing>(*plain));
            else if (plain && std::holds_alternative<ReturnTicket>(*plain))
                from.giveReturnSecret(back);
            if (plain == Record(Goodbye{Farewell::Disconnected})) {
                EXPECT_EQ(opener.returnSecret()->view(), back.view());
            }
            last = from.takeMessages().at(0);
            to.receive(last);
            ASSERT_EQ(to.takeData(), data ? data->bytes : "");
        }
        EXPECT_EQ(last, bytes(message["sealed"]));
    }
    EXPECT_EQ(host.digits(), vector["digits"].get<std::string>());
    EXPECT_EQ(opener.digits(), vector["digits"].get<std::string>());
    EXPECT_EQ(host.name(), name);
    EXPECT_EQ(opener.standing(), (Standing{Standing::Place::Watching, 0}));
    EXPECT_EQ(opener.goodbye(), Farewell::Disconnected);
    EXPECT_EQ(opener.state(), SealedChannel::State::Closed);
    EXPECT_FALSE(opener.returnSecret()) << "who was disconnected does not come back";

    ReplayCache others;
    auto returning = SealedChannel::opener(channelKey, name, secrets("opener"), back);
    auto again = SealedChannel::host(channelKey, others, secrets("host"));
    again.receive(returning.takeMessages().at(0));
    returning.receive(again.takeMessages().at(0));
    const auto opening = returning.takeMessages().at(0);
    EXPECT_EQ(opening, bytes(vector["back"]["opening"]));
    again.receive(opening);
    EXPECT_TRUE(again.offersReturn(back));
    EXPECT_FALSE(again.offersReturn(Key()));
    again.confirmReturn(back);
    const auto returned = again.takeMessages().at(0);
    EXPECT_EQ(returned, bytes(vector["back"]["returned"]));
    returning.receive(returned);
    EXPECT_TRUE(returning.isBack());
    // Somebody in between, who has the link, knows nothing to come back by.
    ReplayCache theirs;
    auto lost = SealedChannel::opener(channelKey, name, secrets("opener"), back);
    auto between = SealedChannel::host(channelKey, theirs, secrets("host"));
    for (int turn = 0; turn < 3; ++turn)
        (turn == 1 ? lost : between).receive((turn == 1 ? between : lost).takeMessages().at(0));
    between.confirmReturn(Key());
    lost.receive(between.takeMessages().at(0));
    EXPECT_EQ(lost.failure(), SealedChannel::Failure::NotTheHost);
}

using State = SealedLine::State;
using Failure = SealedLine::Failure;

class SealedLineTest : public testing::Test {
  protected:
    const ChannelKey right{link("zelvo://here#AAAAAAAAAAAAAAAAAAAAAA")};
    ReplayCache replays;

    /// Carries all that there is, a part at a time; what the opener said is kept.
    void carry(SealedLine& opener, SealedLine& host, std::size_t part = 1 << 20) {
        for (int turn = 0; turn < 6; ++turn) {
            const auto up = opener.takeOutput();
            said += up;
            give(host, up, part);
            give(opener, host.takeOutput(), part);
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
        ASSERT_TRUE(opener.state() == State::Open && host.state() == State::Open);
        opener.send("keys");
        host.tell({Standing::Place::Watching, 0});
        host.send(picture);
        carry(opener, host, part);
        EXPECT_EQ(host.takeData(), "keys");
        EXPECT_EQ(opener.takeData(), picture);
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
    for (const auto* other :
         {"zelvo://here#AAAAAAAAAAAAAAAAAAAAAQ", "zelvo://there#AAAAAAAAAAAAAAAAAAAAAA"}) {
        auto opener = SealedLine::opener(ChannelKey(link(other)), "Eve");
        auto host = SealedLine::host(right, replays);
        carry(opener, host);
        EXPECT_EQ(host.failure(), Failure::KeyRefused);
        EXPECT_EQ(opener.failure(), Failure::KeyRefused);
    }
    // What an honest opener said, said again; with what was forgotten, too.
    said.clear();
    auto opener = SealedLine::opener(right, "Zoë");
    auto host = SealedLine::host(right, replays);
    carry(opener, host);
    auto second = SealedLine::host(right, replays);
    second.receive(said);
    EXPECT_EQ(second.failure(), Failure::Replayed);
    EXPECT_TRUE(second.takeOutput().ends_with("\x88\x02\x0f\xa1")) << "the code of a wrong key";
    ReplayCache forgotten;
    auto third = SealedLine::host(right, forgotten);
    third.receive(said);
    EXPECT_EQ(third.failure(), Failure::BadOpening) << "only who made it knows the keys";
    // With the link, in between: both sides open, and the digits tell.
    auto between = SealedLine::opener(right, "Zoë");
    auto another = SealedLine::host(right, replays);
    carry(between, another);
    ASSERT_EQ(another.state(), State::Open);
    EXPECT_NE(another.channel().digits(), opener.channel().digits());
    opener.end();
    EXPECT_EQ(opener.failure(), Failure::Cut) << "an end without a goodbye";
    for (int filled = 0; filled < 4096; ++filled)
        EXPECT_TRUE(forgotten.admit("key " + std::to_string(filled)));
    EXPECT_FALSE(forgotten.admit("key 0"));
    EXPECT_TRUE(forgotten.admit("key 4096") && forgotten.admit("key 0")) << "the oldest went";
}

TEST_F(SealedLineTest, NoticesEveryChangeAndEveryLie) {
    using enum SealedChannel::Failure;
    const auto secrets = OwnSecrets::fresh();
    // Each message in turn, with a bit turned or cut short at each of its bytes.
    const SealedChannel::Failure failures[]{KeyRefused, NotTheHost, BadOpening, BadRecord};
    const std::size_t sizes[]{80, 80, 1 + 32 + 4 + 16, 1 + 3 + 16};
    for (std::size_t at = 0; at < 4 * 2 * 80; ++at) {
        const auto which = at / 160, place = at % 80;
        ReplayCache fresh;
        auto opener = SealedChannel::opener(right, "Zoë", secrets);
        auto host = SealedChannel::host(right, fresh, secrets);
        for (std::size_t turn = 0; turn <= which && place < sizes[which]; ++turn) {
            if (turn == 3)
                host.tell({Standing::Place::Watching, 0});
            auto message = (turn % 2 == 0 ? opener : host).takeMessages().at(0);
            auto& to = turn % 2 == 0 ? host : opener;
            ASSERT_EQ(message.size(), sizes[turn]);
            if (turn == which && at % 160 < 80)
                message[place] = static_cast<char>(message[place] ^ 0x80);
            else if (turn == which)
                message.resize(place);
            to.receive(message);
            EXPECT_EQ(to.failure(), turn == which ? failures[which] : None) << which << ' ' << at;
        }
    }
    // A promise is kept, an opening comes once, and a standing is the host's to tell.
    const std::string value(32, 'v');
    const Opening opening{value, "Zoë"};
    const std::vector<std::tuple<std::string, std::vector<Record>, SealedChannel::Failure>> lies{
        {sha256(value), {opening, Data{"keys"}}, None},
        {sha256("another"), {opening}, BadOpening},
        {sha256(value), {Data{"keys"}}, BadOpening},
        {sha256(value), {opening, opening}, BadRecord},
        {sha256(value), {opening, Standing{}}, BadRecord},
        {sha256(value), {opening, ReturnTicket{value}}, BadRecord},
        {sha256(value), {opening, Returned{value}}, BadRecord},
    };
    for (const auto& [promise, records, failure] : lies) {
        NoiseHandshake peer(Role::Initiator, right.prologue, right.preShared,
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
    // Nor is a picture shown by a host that lets nobody in.
    auto opener = SealedLine::opener(right, "Zoë");
    auto host = SealedLine::host(right, replays);
    carry(opener, host);
    host.tell({Standing::Place::Asked, 60});
    host.send("picture");
    carry(opener, host);
    EXPECT_EQ(opener.failure(), Failure::BadRecord);
    EXPECT_EQ(opener.takeData(), "");
}

}  // namespace

}  // namespace zelvo::sealing
