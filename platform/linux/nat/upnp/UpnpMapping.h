#pragma once

#include <memory>
#include <vector>

#include "platform/linux/nat/base/NatNetwork.h"
#include "platform/linux/nat/base/RouterMapping.h"
#include "platform/linux/nat/upnp/GatewayCalls.h"
#include "platform/linux/nat/upnp/GatewayRemovals.h"
#include "platform/linux/nat/upnp/GatewaySearch.h"
#include "platform/linux/nat/upnp/UpnpDescription.h"

namespace zelvo::platform {

class SoapAnswer;

/// A mapping by UPnP, with gateways of version 1 and 2. Nobody but the router is spoken to.
class UpnpMapping final : public RouterMapping {
  public:
    UpnpMapping(NatNetwork& network, const GatewayPlace& place, const PortWish& wish);

    /// Finds the router and removes the mappings of these external ports that lead to the wish's
    /// internal one at this address: what a crash has left behind.
    void recover(std::uint32_t internalAddress, std::vector<std::uint16_t> externalPorts);

    void ask() override;
    void release() override;
    void check() override;
    void wake() override;
    void announced(ByteView datagram) override;

    std::string_view protocol() const override { return "UPnP"; }
    Phase phase() const override {
        return phase_ == Phase::Releasing && removals_.isOver() ? Phase::Over : phase_;
    }
    NatTime nextWake() const override;
    std::uint32_t externalAddress() const override { return externalAddress_; }
    const PortGrant& grant() const override { return grant_; }
    NatFailure failure() const override { return failure_; }
    const std::string& lastWord() const override { return lastWord_; }
    MappingRecord record() const override;
    bool withdrawn() const override {
        return phase() == Phase::Over && withdrawn_ && removals_.isConfirmed();
    }

  private:
    using OnAnswer = void (UpnpMapping::*)(const SoapAnswer&);

    void tryNextLocation();
    void onDescription(const std::optional<HttpResponse>& response);
    void onAddress(const SoapAnswer& answer);

    void add(bool tcp);
    void onAdded(const SoapAnswer& answer);
    void onEntry(const SoapAnswer& answer);
    /// 0 for success.
    void concludeAdd(int errorCode);
    bool adaptTo(int errorCode);
    void moveTo(std::size_t portIndex);
    void settle();
    void conclude();
    void scheduleRenewal();

    /// Whether an answer to GetSpecificPortMappingEntry tells of a mapping to this host.
    bool leadsTo(const SoapAnswer& answer, std::uint32_t internalAddress) const;
    void checkNextLeftover();
    void onLeftover(const SoapAnswer& answer);

    void order(std::string_view action,
               const std::vector<std::pair<std::string_view, std::string>>& arguments,
               OnAnswer onAnswer);
    /// What was tried has come to nothing; whether there is something else to try depends.
    void stumble(NatFailure failure, const std::string& why);
    void fail(NatFailure failure, const std::string& why);

    void renounceHeld();
    void beginRemovals();

    std::uint16_t externalPort() const { return externalPorts_[portIndex_]; }
    bool& held(bool tcp) { return tcp ? tcpHeld_ : udpHeld_; }

    NatNetwork& network_;
    GatewayPlace place_;
    PortWish wish_;
    Phase phase_ = Phase::Probing;

    GatewaySearch search_;
    UpnpUrl location_;
    std::optional<UpnpService> service_;
    GatewayCalls calls_;

    std::vector<std::uint16_t> externalPorts_;
    std::size_t portIndex_ = 0;
    bool permanent_ = false;
    /// Mapped, or perhaps mapped.
    bool tcpHeld_ = false;
    bool udpHeld_ = false;
    /// Of the order to add that is under way: its transport, whether that was held before, and what
    /// the gateway has said against it.
    bool addingTcp_ = false;
    bool wasHeld_ = false;
    int refusal_ = 0;
    std::uint32_t externalAddress_ = 0;
    NatTime settleAt_ = Never;
    /// When the gateway is spoken to again; before half life about its address alone.
    NatTime renewAt_ = Never;
    NatTime halfLife_ = Never;
    NatTime concludedAt_ = NatTime::min();
    /// Asked for while something was under way.
    bool checkAgain_ = false;
    NatTime expiresAt_ = Never;
    std::chrono::milliseconds renewPause_{0};

    bool recovering_ = false;
    std::uint32_t recoveredAddress_ = 0;
    std::size_t leftover_ = 0;
    GatewayRemovals removals_;

    PortGrant grant_;
    NatFailure failure_ = NatFailure::Silent;
    std::string lastWord_ = "no gateway answers the search";
    /// Of what was left behind: there was an answer for all of it.
    bool withdrawn_ = true;
};

}  // namespace zelvo::platform
