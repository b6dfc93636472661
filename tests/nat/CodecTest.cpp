#include <random>

#include "platform/linux/nat/codec/NatPmpCodec.h"
#include "platform/linux/nat/codec/PcpCodec.h"
#include "tests/nat/VirtualNetwork.h"

namespace zelvo::test {

using namespace platform;

namespace {

const Bytes MapResponse = Packet()
                              .u8(0)       // version
                              .u8(130)     // response to "map TCP"
                              .u16(0)      // success
                              .u32(1000)   // epoch
                              .u16(5900)   // internal port
                              .u16(23456)  // external port
                              .u32(3600);  // lifetime
const Bytes PcpMapResponse = Packet()
                                 .u8(2)           // version
                                 .u8(0x81)        // response to MAP
                                 .u8(0)           // reserved
                                 .u8(0)           // success
                                 .u32(3600)       // lifetime
                                 .u32(77)         // epoch
                                 .fill(12, 0)     // reserved
                                 .fill(12, 0xab)  // nonce
                                 .u8(6)           // TCP
                                 .fill(3, 0)      // reserved
                                 .u16(5900)       // internal port
                                 .u16(23456)      // external port
                                 .fill(10, 0)     // external address, IPv4-mapped
                                 .u16(0xffff)
                                 .u32(0xcb007105);  // 203.0.113.5

/// Every prefix, and every packet with one byte more, is refused; one with any byte changed is
/// either refused or read, and never worse.
template <typename Decode>
void damage(const Bytes& packet, Decode decode) {
    ASSERT_TRUE(decode(packet));
    for (std::size_t size = 0; size < packet.size(); ++size) {
        // Copied, so that a read past the end is one past an allocation.
        const Bytes cut(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_FALSE(decode(cut)) << size;
    }
    Bytes longer = packet;
    longer.push_back(0);
    EXPECT_FALSE(decode(longer));
    std::mt19937 random(1);
    for (int round = 0; round < 20000; ++round) {
        Bytes changed = packet;
        for (int changes = 0; changes < 3; ++changes) {
            changed[random() % changed.size()] = static_cast<std::uint8_t>(random());
        }
        decode(changed);
    }
}

}  // namespace

TEST(CodecTest, NatPmpPacketsAreReadWhollyOrNotAtAll) {
    damage(MapResponse, decodeNatPmpResponse);
    damage(encode(NatPmpRequest{NatPmpOpcode::MapUdp, 5900, 23456, 3600}), [](ByteView cut) {
        const auto request = decodeNatPmpRequest(cut);
        // Its first two bytes alone would be another request, were the opcode 0.
        return request && request->opcode != NatPmpOpcode::ExternalAddress;
    });
    const auto response = decodeNatPmpResponse(MapResponse);
    EXPECT_EQ(response->epoch, 1000u);
    EXPECT_EQ(response->externalPort, 23456);
    EXPECT_EQ(encode(*response), MapResponse);

    // A refusal may end behind the epoch, a success may not.
    EXPECT_TRUE(decodeNatPmpResponse(Packet().u8(0).u8(129).u16(3).u32(1)));
    EXPECT_FALSE(decodeNatPmpResponse(Packet().u8(0).u8(129).u16(0).u32(1)));
    EXPECT_FALSE(decodeNatPmpResponse(encode(NatPmpRequest{NatPmpOpcode::MapTcp, 1, 2, 3})));
}

TEST(CodecTest, PcpPacketsAreReadWhollyOrNotAtAll) {
    damage(PcpMapResponse, decodePcpResponse);
    const auto response = decodePcpResponse(PcpMapResponse);
    EXPECT_EQ(response->map.nonce[11], 0xab);
    EXPECT_EQ(response->map.externalAddress, 0xcb007105u);
    EXPECT_EQ(encode(*response), PcpMapResponse);

    PcpRequest request{PcpOpcode::Map, 3600, 0xc0a80114, response->map};
    EXPECT_EQ(encode(request).size(), 60u);
    const auto back = decodePcpRequest(encode(request));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->clientAddress, 0xc0a80114u);
    EXPECT_EQ(back->map.internalPort, 5900);

    Bytes ipv6 = PcpMapResponse;
    ipv6[44] = 0x20;
    EXPECT_EQ(decodePcpResponse(ipv6)->map.externalAddress, 0u);
    Bytes endless = PcpMapResponse;
    endless.resize(PcpMaximumSize + 4);
    EXPECT_FALSE(decodePcpResponse(endless));
}

TEST(CodecTest, VersionRefusalsAreKnownAcrossTheProtocols) {
    EXPECT_TRUE(isVersionRefusal(encodeNatPmpVersionRefusal(1, 5), PcpVersion));
    EXPECT_FALSE(isVersionRefusal(encodeNatPmpVersionRefusal(1, 5), NatPmpVersion));
    PcpResponse refusal;
    refusal.result = PcpResult::UnsupportedVersion;
    EXPECT_TRUE(isVersionRefusal(encode(refusal), NatPmpVersion));
    EXPECT_FALSE(isVersionRefusal(MapResponse, PcpVersion));
}

}  // namespace zelvo::test
