// What anybody says to either end of a sealed channel, before and after somebody has proven the
// key.

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "sealing/SealedLine.h"

using namespace zelvo::sealing;

namespace {

const ChannelKey key(ShareLink{"here", {}});

void check(bool holds) {
    if (!holds)
        std::abort();
}

// Keys and nonces are other ones each time, so that only what a stranger can make is tried.
void stranger(SealedLine line, std::string_view bytes, std::size_t cut) {
    line.takeOutput();
    line.receive(bytes.substr(0, cut));
    line.receive(bytes.substr(cut));
    line.end();
    check(line.state() == SealedLine::State::Failed && line.isOver());
    check(line.channel().digits().empty() && line.takeData().empty());
    check(line.takeOutput().size() < 512);
}

// A peer with the key, whose first record says whatever it likes, but keeps no promise.
void insider(std::string_view bytes) {
    ReplayCache replays;
    auto host = SealedChannel::host(key, replays, OwnSecrets::fresh());
    NoiseHandshake peer(NoiseHandshake::Role::Initiator, key.prologue, key.preShared,
                        OwnSecrets::fresh().ephemeral);
    host.receive(*peer.write(std::string(valueSize, 'p')));
    check(peer.read(host.takeMessages().at(0)).has_value());
    std::string message;
    check(peer.split()->sends.seal({}, bytes, message));
    host.receive(message);
    check(host.failure() == SealedChannel::Failure::BadOpening && host.name().empty());
    const auto record = decodeRecord(bytes);
    check(!record || encode(*record) == bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data + 2), size - 2);
    const std::size_t cut = std::min<std::size_t>(data[1], bytes.size());
    ReplayCache replays;
    switch (data[0] % 3) {
        case 0:
            stranger(SealedLine::host(key, replays), bytes, cut);
            break;
        case 1:
            stranger(SealedLine::opener(key, "Zo"), bytes, cut);
            break;
        default:
            insider(bytes);
    }
    return 0;
}
