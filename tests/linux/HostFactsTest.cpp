#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "platform/linux/machine/InetAddressParser.h"
#include "platform/linux/machine/NssServicesDatabase.h"
#include "platform/linux/machine/OpenSslMessageDigest.h"
#include "platform/linux/machine/OsReleaseProcessInfo.h"
#include "platform/linux/machine/ProcProcessTable.h"
#include "platform/linux/machine/SysfsHardwareRegistry.h"
#include "platform/linux/machine/SystemRandom.h"
#include "tests/support/TemporaryFolder.h"

using namespace zelvo::platform;
using zelvo::test::bytes;
using zelvo::test::TemporaryFolder;

namespace {

std::string text(const std::optional<std::vector<std::byte>>& data) {
    return data ? std::string(reinterpret_cast<const char*>(data->data()), data->size()) : "(none)";
}

const std::string routeHead =
    "Iface\tDestination\tGateway\tFlags\tRefCnt\tUse\tMetric\tMask\tMTU\tWindow\tIRTT\n";

}  // namespace

TEST(SysfsHardwareRegistry, FindsTheInterfaceOfTheDefaultRoute) {
    TemporaryFolder root;
    SysfsHardwareRegistry hardware(root.path());
    EXPECT_TRUE(hardware.matchInterface("en0").services.empty()) << "no route";

    root.write("sys/class/net/eth0/address", "00:16:cb:8a:3f:21\n");
    root.write("sys/class/net/wlan0/address", "02:00:00:00:00:01\n");
    root.write("sys/class/net/tun0/address", "\n");
    auto route = [](const char* interface, const char* flags, const char* metric) {
        return std::string(interface) + "\t00000000\t010200C0\t" + flags + "\t0\t0\t" + metric +
               "\t00000000\t0\t0\t0\n";
    };
    auto address = [&] {
        auto match = hardware.matchInterface("en0");
        EXPECT_EQ(match.services.size(), 1U);
        return match.services.empty() ? "(no service)" : text(match.services[0].macAddress);
    };
    root.write("proc/net/route", routeHead + "eth0\t000200C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\n" +
                                     route("eth0", "0003", "600") + route("tun0", "0000", "0") +
                                     route("wlan0", "0003", "100"));
    EXPECT_EQ(address(), std::string("\x02\0\0\0\0\x01", 6));
    root.write("proc/net/route", routeHead + route("tun0", "0001", "0"));
    EXPECT_EQ(address(), "(none)") << "an interface without a hardware address";

    const std::string zeros(32, '0');
    root.write("proc/net/route", routeHead);
    root.write("proc/net/ipv6_route", zeros + " 00 " + zeros + " 00 " + zeros +
                                          " ffffffff 00000001 00000000 00200200 lo\n" + zeros +
                                          " 00 " + zeros + " 00 fe80" + std::string(28, '0') +
                                          " 00000400 00000003 00000000 00000003 eth0\n");
    EXPECT_EQ(address(), std::string("\x00\x16\xcb\x8a\x3f\x21", 6));
}

TEST(SysfsHardwareRegistry, ReadsTheFirmware) {
    TemporaryFolder root;
    SysfsHardwareRegistry hardware(root.path());
    EXPECT_FALSE(hardware.searchDeviceTree("serial-number").opened);
    EXPECT_EQ(hardware.machineModel(), "");

    const std::string tree = "sys/firmware/devicetree/base/";
    root.write(tree + "model", std::string("Board 4\0", 8));
    EXPECT_EQ(hardware.machineModel(), "Board 4");
    EXPECT_FALSE(hardware.searchDeviceTree("serial-number").found);
    EXPECT_TRUE(hardware.searchDeviceTree("serial-number").opened);
    root.write(tree + "deeper/serial-number", std::string("XY9\0C02\0", 8));
    EXPECT_EQ(text(hardware.searchDeviceTree("serial-number").data), std::string("XY9\0C02\0", 8));

    root.write("sys/class/dmi/id/product_name", "Desk 7\n");
    root.write("sys/class/dmi/id/product_serial", "ABC123\n");
    EXPECT_EQ(hardware.machineModel(), "Desk 7");
    EXPECT_EQ(text(hardware.searchDeviceTree("serial-number").data), "ABC123");
}

TEST(OsReleaseProcessInfo, ReadsTheVersion) {
    TemporaryFolder root;
    OsReleaseProcessInfo info(root.path());
    auto version = [&](const std::string& content) -> std::string {
        root.write("etc/os-release", content);
        auto found = info.operatingSystemVersion();
        return found ? std::to_string(found->majorVersion) + "." +
                           std::to_string(found->minorVersion) + "." +
                           std::to_string(found->patchVersion)
                     : "none";
    };
    EXPECT_FALSE(info.operatingSystemVersion());
    EXPECT_EQ(version("ID=debian\nVERSION_ID=\"12\"\n"), "12.0.0");
    EXPECT_EQ(version("VERSION_ID='22.04'"), "22.4.0");
    EXPECT_EQ(version("#VERSION_ID=1\nVERSION_ID=9.2.7\nXVERSION_ID=3\n"), "9.2.7");
    for (const auto* none :
         {"ID=arch\n", "VERSION_ID=\n", "VERSION_ID=rolling\n", "VERSION_ID=12a\n",
          "VERSION_ID=-1\n", "VERSION_ID=1.\n", "VERSION_ID=99999999999999999999\n"})
        EXPECT_EQ(version(none), "none") << none;
    std::filesystem::remove(root / "etc/os-release");
    root.write("usr/lib/os-release", "VERSION_ID=40");
    EXPECT_EQ(info.operatingSystemVersion()->majorVersion, 40);
}

TEST(ProcProcessTable, ListsThisProcess) {
    ProcProcessTable table;
    ASSERT_EQ(::prctl(PR_SET_NAME, "zelvo (test) 15"), 0);
    std::size_t room = 0;
    ASSERT_EQ(table.size(room), 0);
    EXPECT_GT(room, 0U);
    std::vector<ProcessRecord> records;
    EXPECT_EQ(table.fetch(0, records), ProcessTableGrown);
    EXPECT_TRUE(records.empty());
    ASSERT_EQ(table.fetch(room + 1000, records), 0);
    auto own = std::find_if(records.begin(), records.end(),
                            [](const auto& record) { return record.pid == ::getpid(); });
    ASSERT_NE(own, records.end());
    EXPECT_EQ(own->command, "zelvo (test) 15");
    EXPECT_EQ(ProcProcessTable("/nowhere").size(room), ENOENT);

    // In the order of the numbers, and without what has gone meanwhile.
    TemporaryFolder proc;
    proc.write("100/comm", "same\n");
    proc.write("9/comm", "a\nb\n");
    proc.write("self/comm", "x\n");
    std::filesystem::create_directory(proc / "50");
    ASSERT_EQ(ProcProcessTable(proc.path()).fetch(3, records), 0);
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].command, "a\nb");
    EXPECT_EQ(records[0].pid, 9);
    EXPECT_EQ(records[1].pid, 100);
}

TEST(SmallServices, AnswerAsTheSystemDoes) {
    NssServicesDatabase services;
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(services.tcpPort("https"), 443);
        EXPECT_EQ(services.tcpPort("no-such-service"), std::nullopt);
    }
    InetAddressParser addresses;
    EXPECT_TRUE(addresses.isIPv4("192.168.1.10"));
    EXPECT_FALSE(addresses.isIPv4("fe80::1"));
    EXPECT_FALSE(addresses.isIPv4(std::string("1.2.3.4\0", 8)));
    auto digest = OpenSslMessageDigest().md5(bytes("abc"));
    EXPECT_EQ(digest[0], std::byte{0x90});
    SystemRandom random;
    EXPECT_FALSE(random.uniform32() == random.uniform32() &&
                 random.uniform32() == random.uniform32());
}
