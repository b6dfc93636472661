#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <map>

#include "platform/linux/nat/NatNetwork.h"

namespace zelvo::test {

using platform::Bytes;
using platform::ByteView;
using platform::NatTime;
using std::chrono::milliseconds;
using namespace std::chrono_literals;

/// A packet, one field per line.
class Packet {
  public:
    Packet& u8(std::uint8_t value) {
        bytes_.push_back(value);
        return *this;
    }
    Packet& u16(std::uint16_t value) {
        platform::append16(bytes_, value);
        return *this;
    }
    Packet& u32(std::uint32_t value) {
        platform::append32(bytes_, value);
        return *this;
    }
    Packet& fill(std::size_t count, std::uint8_t value) {
        bytes_.insert(bytes_.end(), count, value);
        return *this;
    }
    operator Bytes() const { return bytes_; }
    operator ByteView() const { return bytes_; }

  private:
    Bytes bytes_;
};

/// Time that passes when the test says so, and a router that is a function: what it answers arrives
/// after `delay`.
class VirtualNetwork : public platform::NatNetwork {
  public:
    struct Sent {
        milliseconds at;
        Bytes bytes;
    };
    using Router = std::function<void(const Bytes& request)>;

    NatTime now() const override { return now_; }
    milliseconds elapsed() const { return now_ - Start; }

    std::unique_ptr<platform::DatagramPort> connect(const platform::Ipv4Endpoint&,
                                                    platform::DatagramReceiver& receiver) override {
        if (!reachable) {
            return nullptr;
        }
        const int id = nextPort_++;
        ports_[id] = &receiver;
        return std::make_unique<Port>(*this, id);
    }

    std::unique_ptr<platform::SearchPort> search(std::uint32_t,
                                                 platform::SearchReceiver& receiver) override {
        if (!reachable) {
            return nullptr;
        }
        const int id = nextPort_++;
        searchers_[id] = &receiver;
        return std::make_unique<Searcher>(*this, id);
    }
    std::unique_ptr<platform::HttpExchange> exchange(const platform::Ipv4Endpoint& server,
                                                     std::string request,
                                                     platform::HttpExchange::Done done) override {
        const int id = nextPort_++;
        exchanges_[id] = std::move(done);
        asking_ = id;
        web(server, request);
        return std::make_unique<Exchange>(*this, id);
    }

    /// From within `web`: the response, or nothing for a connection that fails.
    void respond(std::optional<platform::HttpResponse> response) { respondAfter(delay, response); }
    void respondAfter(milliseconds wait, std::optional<platform::HttpResponse> response) {
        events_.emplace(now_ + wait, [this, id = asking_, response] {
            if (const auto found = exchanges_.find(id); found != exchanges_.end()) {
                const auto done = found->second;
                done(response);
            }
        });
    }
    /// A datagram for all who search.
    void discover(milliseconds wait, const platform::Ipv4Endpoint& from, const std::string& text) {
        events_.emplace(now_ + wait, [this, from, bytes = Bytes(text.begin(), text.end())] {
            for (const auto& [id, receiver] : std::map(searchers_)) {
                receiver->found(from, bytes);
            }
        });
    }

    /// From within the router: answers the port that has just asked.
    void answer(const Bytes& bytes) { answerAfter(delay, bytes); }
    void answerAfter(milliseconds wait, const Bytes& bytes) {
        events_.emplace(now_ + wait, [this, id = asking_, bytes] {
            if (ports_.count(id)) {
                ports_[id]->received(bytes);
            }
        });
    }
    void refuse() {
        events_.emplace(now_, [this, id = asking_] {
            if (ports_.count(id)) {
                ports_[id]->refused();
            }
        });
    }

    /// Lets `duration` pass for a subject that has `nextWake` and is called by `wake`.
    void run(milliseconds duration, const std::function<NatTime()>& nextWake,
             const std::function<void()>& wake) {
        const NatTime end = now_ + duration;
        wake();
        while (true) {
            const NatTime event = events_.empty() ? platform::Never : events_.begin()->first;
            const NatTime next = std::min(event, nextWake());
            if (next > end) {
                break;
            }
            now_ = std::max(now_, next);
            if (event <= now_) {
                const auto action = events_.extract(events_.begin()).mapped();
                action();
            }
            wake();
        }
        now_ = end;
    }

    /// Hears each search, and each HTTP request.
    std::function<void(const platform::Ipv4Endpoint& to, const std::string& text)> searched =
        [](const auto&, const auto&) {};
    std::function<void(const platform::Ipv4Endpoint& server, const std::string& request)> web =
        [](const auto&, const auto&) {};
    Router router = [](const Bytes&) {};
    bool reachable = true;
    milliseconds delay = 1ms;
    std::vector<Sent> sent;

  private:
    class Port : public platform::DatagramPort {
      public:
        Port(VirtualNetwork& network, int id) : network_(network), id_(id) {}
        ~Port() override { network_.ports_.erase(id_); }

        void send(ByteView datagram) override {
            const Bytes bytes(datagram.begin(), datagram.end());
            network_.sent.push_back({network_.elapsed(), bytes});
            network_.asking_ = id_;
            network_.router(bytes);
        }
        std::uint32_t localAddress() const override { return 0xc0a80114; }

      private:
        VirtualNetwork& network_;
        int id_;
    };

    class Searcher : public platform::SearchPort {
      public:
        Searcher(VirtualNetwork& network, int id) : network_(network), id_(id) {}
        ~Searcher() override { network_.searchers_.erase(id_); }
        void send(const platform::Ipv4Endpoint& to, ByteView datagram) override {
            network_.searched(to, std::string(datagram.begin(), datagram.end()));
        }

      private:
        VirtualNetwork& network_;
        int id_;
    };
    class Exchange : public platform::HttpExchange {
      public:
        Exchange(VirtualNetwork& network, int id) : network_(network), id_(id) {}
        ~Exchange() override { network_.exchanges_.erase(id_); }

      private:
        VirtualNetwork& network_;
        int id_;
    };

    static constexpr NatTime Start{std::chrono::hours(100)};

    NatTime now_ = Start;
    std::map<int, platform::DatagramReceiver*> ports_;
    std::multimap<NatTime, std::function<void()>> events_;
    std::map<int, platform::SearchReceiver*> searchers_;
    std::map<int, platform::HttpExchange::Done> exchanges_;
    int asking_ = 0;
    int nextPort_ = 0;
};

}  // namespace zelvo::test
