#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "platform/linux/nat/base/NatNetwork.h"

namespace zelvo::test {

using platform::Bytes;
using platform::ByteView;
using platform::NatTime;
using std::chrono::milliseconds;
using namespace std::chrono_literals;

/// Time that passes when the test says so, and a router that is a function: what it answers arrives
/// after `delay`, where the one who asked is still there.
class VirtualNetwork : public platform::NatNetwork {
  public:
    struct Sent {
        milliseconds at;
        Bytes bytes;
    };

    NatTime now() const override { return now_; }
    milliseconds elapsed() const { return now_ - Start; }

    std::unique_ptr<platform::DatagramPort> connect(const platform::Ipv4Endpoint&,
                                                    std::uint32_t localAddress,
                                                    platform::DatagramReceiver& receiver) override {
        return reachable ? std::make_unique<Port>(*this, localAddress, receiver) : nullptr;
    }
    std::unique_ptr<platform::SearchPort> search(std::uint32_t,
                                                 platform::SearchReceiver& receiver) override {
        auto searcher = std::make_unique<Searcher>(*this, receiver);
        searchers_.push_back(searcher->receiver);
        return searcher;
    }
    std::unique_ptr<platform::SearchPort> join(const platform::Ipv4Endpoint& group, std::uint32_t,
                                               platform::SearchReceiver& receiver) override {
        auto member = std::make_unique<Searcher>(*this, receiver);
        members_[group.port] = member->receiver;
        return member;
    }
    std::unique_ptr<platform::HttpExchange> exchange(const platform::Ipv4Endpoint& server,
                                                     std::uint32_t localAddress,
                                                     std::string request,
                                                     platform::HttpExchange::Done done) override {
        auto exchange = std::make_unique<Exchange>(std::move(done));
        fetching_ = exchange->done;
        asker = localAddress;
        web(server, request);
        return exchange;
    }

    /// From within `router`: answers the port that has just asked.
    void answer(const Bytes& bytes) { answerAfter(delay, bytes); }
    void answerAfter(milliseconds wait, const Bytes& bytes) {
        later(wait, asking_, [bytes](auto& receiver) { receiver->received(bytes); });
    }
    void refuse() {
        later(0ms, asking_, [](auto& receiver) { receiver->refused(); });
    }
    /// From within `web`: the response, or nothing for a connection that fails.
    void respond(const std::optional<platform::HttpResponse>& response) {
        later(delay, fetching_, [response](auto& done) {
            const auto kept = done;
            kept(response);
        });
    }
    /// A datagram for all who search.
    void discover(milliseconds wait, const platform::Ipv4Endpoint& from, const std::string& text) {
        for (const auto& searcher : searchers_) {
            later(wait, searcher, [from, bytes = Bytes(text.begin(), text.end())](auto& receiver) {
                receiver->found(from, bytes);
            });
        }
    }

    /// A datagram for the group that listens on this port, if somebody does.
    void announce(std::uint16_t group, std::uint32_t from, const Bytes& bytes) {
        if (const auto member = members_[group].lock()) {
            (*member)->found({from, 0}, bytes);
        }
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

    /// Hears each datagram to the router, each search, and each HTTP request.
    std::function<void(const Bytes& request)> router = [](const auto&) {};
    std::function<void(const platform::Ipv4Endpoint& to, const std::string& text)> searched;
    std::function<void(const platform::Ipv4Endpoint& server, const std::string& request)> web;
    bool reachable = true;
    /// The address that has asked last.
    std::uint32_t asker = 0;
    milliseconds delay = 1ms;
    std::vector<Sent> sent;

  private:
    // What is shared goes with the port, and late answers with it.
    struct Port : platform::DatagramPort {
        Port(VirtualNetwork& network, std::uint32_t address, platform::DatagramReceiver& receiver)
            : network(network),
              address(address),
              receiver(std::make_shared<platform::DatagramReceiver*>(&receiver)) {}
        void send(ByteView datagram) override {
            network.sent.push_back({network.elapsed(), {datagram.begin(), datagram.end()}});
            network.asking_ = receiver;
            network.asker = address;
            network.router({datagram.begin(), datagram.end()});
        }
        std::uint32_t localAddress() const override { return address; }

        VirtualNetwork& network;
        std::uint32_t address;
        std::shared_ptr<platform::DatagramReceiver*> receiver;
    };
    struct Searcher : platform::SearchPort {
        Searcher(VirtualNetwork& network, platform::SearchReceiver& receiver)
            : network(network), receiver(std::make_shared<platform::SearchReceiver*>(&receiver)) {}
        void send(const platform::Ipv4Endpoint& to, ByteView datagram) override {
            network.searched(to, std::string(datagram.begin(), datagram.end()));
        }

        VirtualNetwork& network;
        std::shared_ptr<platform::SearchReceiver*> receiver;
    };
    struct Exchange : platform::HttpExchange {
        explicit Exchange(Done done) : done(std::make_shared<Done>(std::move(done))) {}
        std::shared_ptr<Done> done;
    };

    template <typename Kept, typename Action>
    void later(milliseconds wait, const std::weak_ptr<Kept>& whom, Action action) {
        events_.emplace(now_ + wait, [whom, action] {
            if (const auto there = whom.lock()) {
                action(*there);
            }
        });
    }

    static constexpr NatTime Start{std::chrono::hours(100)};

    NatTime now_ = Start;
    std::multimap<NatTime, std::function<void()>> events_;
    std::weak_ptr<platform::DatagramReceiver*> asking_;
    std::weak_ptr<platform::HttpExchange::Done> fetching_;
    std::vector<std::weak_ptr<platform::SearchReceiver*>> searchers_;
    std::map<std::uint16_t, std::weak_ptr<platform::SearchReceiver*>> members_;
};

}  // namespace zelvo::test
