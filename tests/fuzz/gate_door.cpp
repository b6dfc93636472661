// The whole gate: whatever Zelvo says to it, in any order of viewers, openers and strangers who
// come, speak and go.

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>

#include "server/gate/Gate.h"

using namespace zelvo;
using namespace zelvo::server;
using namespace zelvo::platform::gate;

namespace {

void check(bool holds) {
    if (!holds)
        std::abort();
}

struct Peer {
    explicit Peer(std::uint16_t port)
        : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        ::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
    }
    void say(std::string_view bytes) const {
        ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }

    platform::FileDescriptor socket;
    std::optional<sealing::SealedLine> line;
};

class World {
  public:
    World() {
        auto listener = Gate::bind(0);
        check(Gate::listen(listener));
        sockaddr_in address{};
        socklen_t size = sizeof address;
        ::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &size);
        port_ = ntohs(address.sin_port);
        gate_ = std::make_unique<Gate>(
            loop_, std::move(listener),
            Gate::Handlers{.tell = [this](const Message& message) { hear(message); },
                           .admit = [this](ViewerId, platform::FileDescriptor end,
                                           Rights) { ends_.push_back(std::move(end)); },
                           .setRights = [](auto, auto) {},
                           .setInputPasses = [](auto) {}});
        gate_->handle(link_);
    }

    void act(std::uint8_t what, std::string_view bytes) {
        auto* peer = peers_.empty() ? nullptr : &peers_[(what >> 4U) % peers_.size()];
        switch (what & 15U) {
            case 0:
                peers_.emplace_back(port_).say(bytes);
                break;
            case 1:
            case 2:
                peers_.emplace_back(port_).line = sealing::SealedLine::opener(
                    sealing::ChannelKey({link_.identifier, {}}), "Zo", back_);
                break;
            case 3:
                if (peer)
                    peer->say(bytes);
                break;
            case 4:
                if (peer && peer->line)
                    peer->line->send(bytes);
                break;
            case 5:
                if (peer && peer->line)
                    peer->line->sayGoodbye(sealing::Farewell::Left);
                break;
            case 6:
                if (peer)
                    peers_.erase(peers_.begin() + (what >> 4U) % peers_.size());
                break;
            case 7:
                if (!ends_.empty() && bytes.empty())
                    ends_.pop_back();
                else if (!ends_.empty())
                    ::send(ends_.back().get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
                break;
            case 8:
                tell(Link{what & 16U ? "here" : what & 32U ? "" : "there", {}});
                break;
            case 9:
            case 10:
                if (asked_)
                    tell(Reply{*asked_, static_cast<Answer>((what >> 4U) % 3)});
                break;
            default:
                if (const auto message = decode(std::as_bytes(std::span(bytes))))
                    tell(*message);
        }
        turn();
    }

  private:
    void tell(const Message& message) {
        if (const auto* reply = std::get_if<Reply>(&message))
            mayEnter_ = reply->viewer == asked_ && reply->answer != Answer::Refuse;
        gate_->handle(message);
        mayEnter_ = false;
        const auto* link = std::get_if<Link>(&message);
        check(!link || *link == link_ || proven_.empty());
        if (link)
            link_ = *link;
    }

    void hear(const Message& message) {
        // Zelvo hangs up on what it cannot read.
        check(decode(encode(message)) == message);
        if (const auto* question = std::get_if<Question>(&message)) {
            check(!asked_ || asked_ == question->viewer);
            asked_ = question->viewer;
        } else if (const auto* over = std::get_if<QuestionOver>(&message)) {
            check(asked_ == over->viewer);
            asked_.reset();
        } else if (const auto* inside = std::get_if<Inside>(&message)) {
            // Nobody comes in without a yes but who was in before.
            const bool isNew = inside_.insert(inside->viewer).second;
            check(!isNew || (mayEnter_ && asked_ == inside->viewer) ||
                  (!inside->name.empty() && back_));
            if (asked_ == inside->viewer)
                asked_.reset();
            if (!inside->name.empty())
                proven_.insert(inside->viewer);
        } else if (const auto* left = std::get_if<Left>(&message)) {
            // Of who may come back it is said a second time when they are, or can no longer.
            check(inside_.erase(left->viewer) + away_.erase(left->viewer) == 1);
            if (left->mayReturn)
                away_.insert(left->viewer);
            proven_.erase(left->viewer);
        }
    }

    void turn() {
        for (int times = 0; times < 6; ++times) {
            for (auto& peer : peers_) {
                std::string bytes(1 << 14, '\0');
                const auto count = ::recv(peer.socket.get(), bytes.data(), bytes.size(), 0);
                if (!peer.line)
                    continue;
                if (count > 0)
                    peer.line->receive(
                        std::string_view(bytes).substr(0, static_cast<std::size_t>(count)));
                peer.say(peer.line->takeOutput());
                if (peer.line->channel().returnSecret())
                    back_ = peer.line->channel().returnSecret();
            }
            loop_.turn({});
            gate_->tick(platform::EventLoop::Clock::now());
        }
    }

    platform::EventLoop loop_;
    std::uint16_t port_ = 0;
    Link link_{"here", {}};
    std::vector<Peer> peers_;
    std::vector<platform::FileDescriptor> ends_;
    std::optional<sealing::ReturnSecret> back_;
    std::optional<ViewerId> asked_;
    bool mayEnter_ = false;
    std::set<ViewerId> inside_, away_, proven_;
    std::unique_ptr<Gate> gate_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    World world;
    // What is done, how many bytes are said with it, and these; few, as each takes a moment.
    std::string_view left(reinterpret_cast<const char*>(data), size);
    for (int acts = 0; acts < 24 && left.size() >= 2; ++acts) {
        const auto length =
            std::min<std::size_t>(static_cast<std::uint8_t>(left[1]), left.size() - 2);
        world.act(static_cast<std::uint8_t>(left[0]), left.substr(2, length));
        left.remove_prefix(2 + length);
    }
    return 0;
}
