#pragma once

#include <memory>
#include <string>

#include "platform/linux/nat/base/NatNetwork.h"

namespace zelvo::platform {

/// What a gateway's web server is asked, one request at a time, each made again where it is not
/// answered: every order may be given twice without harm.
class GatewayCalls {
  public:
    GatewayCalls(NatNetwork& network, std::uint32_t localAddress)
        : network_(network), localAddress_(localAddress) {}

    /// `done` hears nothing for a server that does not answer. Only when none is under way.
    void start(const Ipv4Endpoint& server, std::string request, HttpExchange::Done done);
    /// Ends what is under way without a word.
    void drop() { call_ = {}; }
    void wake();

    bool isOpen() const { return call_.exchange != nullptr; }
    NatTime nextWake() const { return call_.deadline; }
    /// A request went out and its answer was not waited for: it may take effect yet.
    bool hasCutOff() const { return cutOff_; }

  private:
    struct Call {
        Ipv4Endpoint server;
        std::string request;
        HttpExchange::Done done;
        int tries = 0;
        NatTime deadline = Never;
        std::unique_ptr<HttpExchange> exchange{};
    };

    void send();
    void answered(const std::optional<HttpResponse>& response);

    NatNetwork& network_;
    std::uint32_t localAddress_;
    Call call_;
    bool cutOff_ = false;
};

}  // namespace zelvo::platform
