// Datagrams of NAT-PMP and PCP. What can be read must also survive being written and read again.

#include <cstdlib>

#include "platform/linux/nat/codec/NatPmpCodec.h"
#include "platform/linux/nat/port_control/NatPmpWire.h"
#include "platform/linux/nat/port_control/PcpWire.h"

using namespace zelvo::platform;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ByteView datagram(data, size);
    if (const auto response = decodeNatPmpResponse(datagram)) {
        const auto again = decodeNatPmpResponse(encode(*response));
        if (!again || again->epoch != response->epoch || again->result != response->result) {
            std::abort();
        }
    }
    if (const auto request = decodeNatPmpRequest(datagram)) {
        const Bytes written = encode(*request);
        if (written.size() != size) {
            std::abort();
        }
    }
    if (const auto response = decodePcpResponse(datagram)) {
        const auto again = decodePcpResponse(encode(*response));
        if (!again || again->map.nonce != response->map.nonce ||
            again->map.externalAddress != response->map.externalAddress) {
            std::abort();
        }
    }
    decodePcpRequest(datagram);
    NatPmpWire(5900).read(datagram);
    PcpWire(5900, 0xc0a80114, PcpNonces{}).read(datagram);
    return 0;
}
