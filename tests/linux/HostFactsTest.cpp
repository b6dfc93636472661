#include <gtest/gtest.h>
#include <sched.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>

#include "platform/linux/machine/InetAddressParser.h"
#include "platform/linux/machine/NssServicesDatabase.h"
#include "platform/linux/machine/OpenSslMessageDigest.h"
#include "platform/linux/machine/OsReleaseProcessInfo.h"
#include "platform/linux/machine/ProcProcessTable.h"
#include "platform/linux/machine/SysfsHardwareRegistry.h"
#include "platform/linux/machine/SystemRandom.h"
#include "platform/linux/nat/KernelRoutes.h"
#include "tests/support/TemporaryFolder.h"

using namespace zelvo::platform;
using zelvo::test::bytes;
using zelvo::test::TemporaryFolder;

namespace {

std::string text(const std::optional<std::vector<std::byte>>& data) {
    return data ? std::string(reinterpret_cast<const char*>(data->data()), data->size()) : "(none)";
}

}  // namespace

TEST(SysfsHardwareRegistry, FindsTheAddressOfTheBestInterface) {
    TemporaryFolder root;
    std::vector<std::string> routed;
    SysfsHardwareRegistry hardware(root.path(), [&] { return routed; });
    auto address = [&](const char* interface = "en0") {
        auto match = hardware.matchInterface(interface);
        return match.services.size() != 1 ? "(no service)" : text(match.services[0].macAddress);
    };
    EXPECT_EQ(address(), "(no service)");

    auto add = [&](const std::string& name, const char* content, const char* index) {
        root.write("sys/class/net/" + name + "/address", content);
        root.write("sys/class/net/" + name + "/ifindex", index);
        return "sys/class/net/" + name + "/device/vendor";
    };
    add("tun0", "\n", "9\n");
    add("gre0", "c0:00:02:01\n", "8\n");
    add("lo", "00:00:00:00:00:00\n", "1\n");
    add("br0", "02:00:00:00:00:03\n", "2\n");
    EXPECT_EQ(address(), "(no service)") << "offline, without a physical interface";
    root.write(add("wlan0", "02:00:00:00:00:01\n", "10\n"), "");
    root.write(add("eth0", "00:16:cb:8a:3f:21\n", "3\n"), "");
    EXPECT_EQ(address(), std::string("\x00\x16\xcb\x8a\x3f\x21", 6)) << "offline";
    routed = {"tun0"};
    EXPECT_EQ(address(), std::string("\x00\x16\xcb\x8a\x3f\x21", 6)) << "a tunnel alone";
    routed = {"gone", "tun0", "gre0", "lo", "wlan0", "eth0"};
    EXPECT_EQ(address(), std::string("\x02\0\0\0\0\x01", 6)) << "the next route";
    EXPECT_EQ(address("tun0"), "(none)");
    EXPECT_EQ(address("../net/eth0"), "(no service)");
}

TEST(DefaultRoutes, TheLowestMetricCounts) {
    bool isAlone = false;
    std::vector<std::string> interfaces;
    std::optional<RouterRoute> router;
    // The namespace is that of the thread, and goes with it.
    std::thread([&] {
        isAlone = ::unshare(CLONE_NEWNET) == 0 &&
                  std::system(
                      "for name in far near off; do ip link add $name type veth peer "
                      "name ${name}-peer && ip link set $name up || exit; done\n"
                      "ip link set far-peer up; ip link set near-peer up\n"
                      "ip address add 192.0.2.2/24 dev far\n"
                      "ip address add 198.51.100.2/24 dev near\n"
                      "ip address add 203.0.113.2/24 dev off\n"
                      "ip route add default metric 600 nexthop via 192.0.2.1 "
                      "nexthop via 198.51.100.1\n"
                      "ip route add default via 198.51.100.1 metric 100\n"
                      "ip route add default via 203.0.113.1 metric 5\n"
                      "ip route add unreachable default metric 1\n"
                      "ip route add 0.0.0.0/1 dev far\n"
                      "ip route add default dev far\n"
                      "ip -6 address add 2001:db8::2/64 dev near nodad\n"
                      "ip -6 route add default via 2001:db8::1") == 0;
        interfaces = interfacesOfDefaultRoutes();
        router = KernelRoutes().defaultRoute();
    }).join();
    if (!isAlone)
        GTEST_SKIP() << "needs the right to have a network of its own";
    EXPECT_EQ(interfaces, (std::vector<std::string>{"far", "near", "far", "near"}));
    ASSERT_TRUE(router);
    EXPECT_EQ(router->router, 0xC6336401U) << "the best one that has a gateway";
    EXPECT_EQ(router->localAddress, 0xC6336402U);
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
    for (const auto& [id, leading] :
         std::initializer_list<std::pair<const char*, const char*>>{{"3.21.0_alpha2024", "3.21.0"},
                                                                    {"15.6 SP1", "15.6.0"},
                                                                    {"12-1", "12.0.0"},
                                                                    {"12.-1", "12.0.0"},
                                                                    {"1.", "1.0.0"}})
        EXPECT_EQ(version("VERSION_ID=\"" + std::string(id) + "\"\n"), leading);
    for (const auto* none : {"ID=arch\n", "VERSION_ID=\n", "VERSION_ID=rolling\n",
                             "VERSION_ID=-1\n", "VERSION_ID=99999999999999999999\n"})
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
