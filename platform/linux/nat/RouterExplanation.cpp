#include "platform/linux/nat/RouterExplanation.h"

#include <arpa/inet.h>

#include "platform/Bundle.h"
#include "platform/Log.h"
#include "platform/linux/nat/ExternalAddress.h"
#include "platform/linux/nat/base/NatNetwork.h"

namespace zelvo::platform {

namespace {

/// Loopback and link-local addresses (RFC 1122, section 3.2.1.3; RFC 3927).
bool isLocal(std::uint32_t address) {
    return address >> 24 == 127 || address >> 16 == 0xa9fe;
}

}  // namespace

RouterExplanation::RouterExplanation(const Bundle& bundle, Log& log) : bundle_(bundle), log_(log) {}

void RouterExplanation::mappingReplied(const std::optional<NatPortMappingReply>& reply) {
    if (!reply)
        first_.reset();
    else if (!first_ && reply->externalPort != 0)
        first_ = reply;
    // What the service saw was seen by way of the address before.
    if (!reply || !reply_ || reply->externalAddress != reply_->externalAddress)
        seen_ = 0;
    reply_ = reply;
    update();
}

void RouterExplanation::seenFrom(const std::string& address) {
    in_addr parsed{};
    if (inet_pton(AF_INET, address.c_str(), &parsed) != 1)
        return;
    auto seen = ntohl(parsed.s_addr);
    // A service on this host or in the same private network sees no router at all.
    if (isLocal(seen) || isBehindAnotherRouter(seen) || seen == seen_)
        return;
    seen_ = seen;
    if (seenElsewhere())
        log_.line("Port mapping: the sharing service saw this computer come from " +
                  addressText(seen_) + " and not from the router's own address " +
                  addressText(ntohl(reply_->externalAddress)) +
                  ": another router or a VPN stands between, and nobody can come in that way");
    update();
}

bool RouterExplanation::seenElsewhere() const {
    return reply_ && reply_->externalPort != 0 && seen_ != 0 &&
           seen_ != ntohl(reply_->externalAddress);
}

bool RouterExplanation::hasMoved() const {
    return first_ && (reply_->externalAddress != first_->externalAddress ||
                      reply_->externalPort != first_->externalPort);
}

std::string RouterExplanation::news() const {
    const bool stands = first_ && reply_->externalPort != 0 && reply_->externalAddress != 0;
    return !first_ || (stands && !hasMoved()) ? std::string() : text_.value();
}

const char* RouterExplanation::reason() const {
    if (!reply_)
        return nullptr;
    if (reply_->externalPort != 0) {
        auto external = ntohl(reply_->externalAddress);
        if (external == 0)
            return "Your router is not connected to the internet. Nobody can reach you before it "
                   "is.";
        if (hasMoved())
            return "The way to this computer has changed, and your link leads nowhere now. Quit "
                   "Zelvo and start it again to renew the link.";
        if (isBehindAnotherRouter(external))
            return "There is a second router between yours and the internet, so nobody can reach "
                   "you. Router Help says what you can do.";
        if (seenElsewhere())
            return "You seem to be behind a second router or a VPN, so nobody may be able to reach "
                   "you. Router Help says what you can do.";
        return nullptr;
    }
    switch (reply_->errorCode) {
        case NatErrorNoRouter:
            return "This computer is not connected to a router. Check the network cable or the "
                   "wireless network.";
        case NatErrorTransient:
            return "Your router has no address on the internet: it is not connected, or a second "
                   "router stands before it. Router Help says what you can do.";
        case NatErrorPortMappingDisabled:
            return "Your router answered, but it does not let Zelvo open a port. Allow it in the "
                   "router’s settings; Router Help says how.";
        case NatErrorPortMappingUnsupported:
        case NatErrorTimeout:
            return "Your router did not answer. Switch on UPnP or NAT-PMP in its settings; Router "
                   "Help says how.";
        default:
            return nullptr;
    }
}

void RouterExplanation::update() {
    const auto* key = reason();
    auto text = key ? bundle_.localizedString(key) : std::string();
    if (text != text_.value())
        text_.set(std::move(text));
}

}  // namespace zelvo::platform
