#include <gtest/gtest.h>

#include <random>

#include "platform/linux/nat/codec/NatPmpCodec.h"
#include "platform/linux/nat/codec/PcpCodec.h"

namespace zelvo::test {

using namespace platform;

namespace {

Bytes hex(std::string_view text) {
    Bytes bytes;
    for (std::size_t at = 0; at < text.size(); at += 2)
        bytes.push_back(
            static_cast<std::uint8_t>(std::stoi(std::string(text.substr(at, 2)), nullptr, 16)));
    return bytes;
}

const Bytes MapResponse =
    hex("00820000"    // version, response to "map TCP", success
        "000003e8"    // epoch 1000
        "170c5ba0"    // ports 5900 and 23456
        "00000e10");  // lifetime 3600
const Bytes PcpMapResponse =
    hex("02810000"                            // version, response to MAP, success
        "00000e100000004d"                    // lifetime 3600, epoch
        "000000000000000000000000"            // reserved
        "abababababababababababab"            // nonce
        "06000000170c5ba0"                    // TCP, ports 5900 and 23456
        "00000000000000000000ffffcb007105");  // 203.0.113.5, IPv4-mapped

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
    EXPECT_EQ(encode(*response), MapResponse);
    EXPECT_EQ(encode(NatPmpRequest{NatPmpOpcode::MapTcp, 5900, 23456, 3600}),
              hex("00020000170c5ba000000e10"));

    // A refusal may end behind the epoch, a success may not.
    EXPECT_TRUE(decodeNatPmpResponse(hex("0081000300000001")));
    EXPECT_FALSE(decodeNatPmpResponse(hex("0081000000000001")));
    EXPECT_FALSE(decodeNatPmpResponse(encode(NatPmpRequest{NatPmpOpcode::MapTcp, 1, 2, 3})));
}

TEST(CodecTest, PcpPacketsAreReadWhollyOrNotAtAll) {
    damage(PcpMapResponse, decodePcpResponse);
    const auto response = decodePcpResponse(PcpMapResponse);
    EXPECT_EQ(response->map.nonce[11], 0xab);
    EXPECT_EQ(response->map.externalAddress, 0xcb007105u);
    EXPECT_EQ(encode(*response), PcpMapResponse);

    PcpRequest request{PcpOpcode::Map, 3600, 0xc0a80114, response->map};
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
