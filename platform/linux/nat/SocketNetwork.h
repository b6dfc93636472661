#pragma once

#include "platform/linux/nat/NatNetwork.h"
#include "platform/linux/nat/PollLoop.h"

namespace zelvo::platform {

/// The real clock and real sockets, on a poll loop.
class SocketNetwork final : public NatNetwork {
  public:
    explicit SocketNetwork(PollLoop& loop) : loop_(loop) {}

    NatTime now() const override { return PollLoop::now(); }
    std::unique_ptr<DatagramPort> connect(const Ipv4Endpoint& peer,
                                          DatagramReceiver& receiver) override;

  private:
    PollLoop& loop_;
};

}  // namespace zelvo::platform
