#pragma once

#include "platform/linux/nat/base/NatNetwork.h"
#include "platform/linux/nat/base/PollLoop.h"

namespace zelvo::platform {

/// The real clock and real sockets, on a poll loop.
class SocketNetwork final : public NatNetwork {
  public:
    explicit SocketNetwork(PollLoop& loop) : loop_(loop) {}

    NatTime now() const override { return PollLoop::now(); }
    std::unique_ptr<DatagramPort> connect(const Ipv4Endpoint& peer, std::uint32_t localAddress,
                                          DatagramReceiver& receiver) override;
    std::unique_ptr<SearchPort> search(std::uint32_t localAddress,
                                       SearchReceiver& receiver) override;
    std::unique_ptr<SearchPort> join(const Ipv4Endpoint& group, std::uint32_t localAddress,
                                     SearchReceiver& receiver) override;
    std::unique_ptr<HttpExchange> exchange(const Ipv4Endpoint& server, std::uint32_t localAddress,
                                           std::string request, HttpExchange::Done done) override;

  private:
    PollLoop& loop_;
};

}  // namespace zelvo::platform
