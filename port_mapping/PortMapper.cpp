#include "port_mapping/PortMapper.h"

#include <array>
#include <bit>
#include <cassert>
#include <cstddef>
#include <utility>

namespace zelvo {

namespace {

/// Network byte order is big-endian; the same swap serves both directions.
std::uint16_t swappedToNetwork(std::uint16_t value) {
    if constexpr (std::endian::native == std::endian::big)
        return value;
    return static_cast<std::uint16_t>((value << 8) | (value >> 8));
}

std::string dottedDecimal(std::uint32_t networkOrderAddress) {
    auto bytes = std::bit_cast<std::array<unsigned char, 4>>(networkOrderAddress);
    std::string text;
    for (auto byte : bytes) {
        if (!text.empty())
            text += '.';
        text += std::to_string(byte);
    }
    return text;
}

platform::Error mappingError(std::int32_t code) {
    return {PortMapperErrorDomain, code, {}};
}

}  // namespace

PortMapper::PortMapper(platform::NatPortMapping& mapping) : mapping_(mapping) {}

PortMapper::~PortMapper() {
    close();
}

void PortMapper::tryMappingPort(std::uint16_t internalPort, std::uint16_t toExternalPort,
                                Completion completion) {
    assert(service_ == nullptr && "self.service == NULL");
    internalPort_ = internalPort;
    platform::NatPortMappingRequest request;
    request.protocol = platform::NatProtocolUdp | platform::NatProtocolTcp;
    request.internalPort = swappedToNetwork(internalPort);
    request.externalPort = swappedToNetwork(toExternalPort);
    auto status =
        mapping_.create(service_, request, [this](const platform::NatPortMappingReply& reply) {
            DNSServiceNATResponse response;
            response.sdRef = service_.get();
            response.flags = reply.flags;
            response.interfaceIndex = reply.interfaceIndex;
            response.errorCode = reply.errorCode;
            response.externalAddress = reply.externalAddress;
            response.protocol = reply.protocol;
            response.internalPort = swappedToNetwork(reply.internalPort);
            response.externalPort = swappedToNetwork(reply.externalPort);
            response.ttl = reply.ttl;
            gotResponse(response);
        });
    if (status != platform::NatErrorNone) {
        completion(false, std::nullopt, 0, mappingError(status));
        return;
    }
    status = service_->setMainQueue();
    if (status != platform::NatErrorNone) {
        close();
        completion(false, std::nullopt, 0, mappingError(status));
        return;
    }
    portMapperCompletion_ = std::move(completion);
}

void PortMapper::gotResponse(const DNSServiceNATResponse& response) {
    externalPort_ = response.externalPort;
    // Renewals and changes of a mapping that has been reported end here.
    if (!portMapperCompletion_)
        return;
    externalIPAddress_ = dottedDecimal(response.externalAddress);
    const bool success = externalPort_ != 0 && !externalIPAddress_->empty();
    std::optional<platform::Error> error;
    if (!success) {
        close();
        error =
            mappingError(response.errorCode != 0 ? response.errorCode : platform::NatErrorInvalid);
    }
    auto completion = std::exchange(portMapperCompletion_, nullptr);
    completion(success, externalIPAddress_, externalPort_, std::move(error));
}

void PortMapper::close() {
    service_.reset();
}

void PortMapper::abandon() {
    close();
    // The completion may hold the last reference to this mapper's owner.
    auto completion = std::exchange(portMapperCompletion_, nullptr);
}

}  // namespace zelvo
