#pragma once

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/nat/base/NatNetwork.h"
#include "platform/linux/nat/base/PollLoop.h"

namespace zelvo::platform {

/// An HTTP request over a connection of its own.
class SocketExchange final : public HttpExchange {
  public:
    SocketExchange(PollLoop& loop, const Ipv4Endpoint& server, std::uint32_t localAddress,
                   std::string request, Done done);

  private:
    void ready();
    bool write();
    void read();
    /// Nothing of this object may be touched behind it.
    void finish(std::optional<HttpResponse> response);

    std::string request_;
    std::size_t written_ = 0;
    HttpResponseReader reader_;
    Done done_;
    FileDescriptor socket_;
    std::unique_ptr<PollLoop::Watch> watch_;
};

}  // namespace zelvo::platform
