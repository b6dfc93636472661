#include "service/ReachProbe.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <future>
#include <thread>
#include <tuple>
#include <utility>

#include "service/SharingEndpoints.h"
#include "service/SqliteLinkStore.h"
#include "serving/Listening.h"
#include "tests/service/Facts.h"
#include "tests/support/TemporaryFolder.h"

namespace zelvo::service {
namespace {

using namespace std::chrono_literals;

/// Somebody who registers, and gets whatever the service would answer to whom.
class ReachProbeTest : public testing::Test {
  protected:
    /// The link of a host that registers that place from the peer's address.
    std::string registers(const std::string& address, int port, const std::string& peer,
                          const std::string& kept = "") {
        auto form = facts("A") + "&permanentSharedLink=" + kept;
        form.replace(form.find("203.0.113.7"), 11, address);
        const auto at = form.find("&Port=") + 6;
        form.replace(at, form.find('&', at) - at, std::to_string(port));
        return std::get<std::string>(ask("create.php", form, peer)["link"]);
    }
    Reply ask(const std::string& endpoint, const std::string& form, const std::string& peer) {
        std::promise<SharingEndpoints::Answer> promise;
        endpoints.answer("/app/4.8.1/sharing/" + endpoint, form, {secret, peer},
                         [&](const auto& given) { promise.set_value(given); });
        auto given = promise.get_future().get();
        if (!given.secret.empty())
            secret = given.secret;
        return given.reply;
    }
    /// What the owner is told in the end: 1, 0, or -1 for nothing.
    std::int64_t told(const std::string& link, std::chrono::milliseconds within = 1s) {
        for (const auto end = std::chrono::steady_clock::now() + within;;) {
            auto reply = ask("get.php", "link=" + link, "");
            if (reply.contains("Reached"))
                return std::get<std::int64_t>(reply["Reached"]);
            if (std::chrono::steady_clock::now() > end)
                return -1;
            std::this_thread::sleep_for(10ms);
        }
    }
    /// Who comes within a moment; nobody is -1.
    static platform::FileDescriptor comer(const platform::FileDescriptor& listening) {
        pollfd waiting{listening.get(), POLLIN, 0};
        ::poll(&waiting, 1, 300);
        return platform::FileDescriptor(::accept(listening.get(), nullptr, nullptr));
    }
    void greet(const std::string& greeting) {
        const auto guest = comer(host);
        EXPECT_EQ(::write(guest.get(), greeting.data(), greeting.size()), std::ssize(greeting));
        char byte = 0;
        EXPECT_EQ(::read(guest.get(), &byte, 1), 0) << "something was said to the host";
    }

    test::TemporaryFolder folder;
    std::string error;
    std::string secret;
    const platform::FileDescriptor host = serving::listenOn("127.0.0.2", 0);
    const int port = serving::portOf(host.get());
    ReachProbe probe{{.greetingTime = 200ms}};
    std::unique_ptr<LinkStore> store = SqliteLinkStore::open(
        folder / "links.db", [] { return Moment{1'000'000'000}; }, error);
    SharingEndpoints endpoints{*store,
                               {.clock = [] { return Moment{1'000'000'000}; }, .probe = &probe}};
};

TEST_F(ReachProbeTest, TellsTheOwnerAloneWhoAnswers) {
    const auto link = registers("127.0.0.2", port, "127.0.0.2");
    greet("RFB 003.008\n");
    EXPECT_EQ(told(link), 1);
    // What was found, or is just being found, is not of another address.
    const auto ours = std::exchange(secret, "");
    EXPECT_EQ(told(link, 0ms), -1);
    secret = ours;
    for (const bool isFound : {true, false}) {
        const auto moves = registers("127.0.0.2", port, "127.0.0.2");
        const auto guest = comer(host);
        if (isFound) {
            EXPECT_EQ(::write(guest.get(), "RFB 003.008\n", 12), 12);
            EXPECT_EQ(told(moves), 1);
        }
        EXPECT_EQ(registers("127.0.0.9", port, "127.0.0.2", moves), moves);
        ::send(guest.get(), "RFB 003.008\n", 12, MSG_NOSIGNAL);
        EXPECT_EQ(told(moves, 300ms), -1);
    }
    secret.clear();
    const auto another = registers("127.0.0.2", port, "127.0.0.2");
    greet("HTTP/1.1 400");
    EXPECT_EQ(told(another, 300ms), -1);
    EXPECT_EQ(told(registers("127.0.0.3", port, "127.0.0.3")), 0);
}

TEST_F(ReachProbeTest, TriesNobodyButWhoAsks) {
    for (const auto& [address, itsPort, peer] : {std::tuple("127.0.0.2", port, "127.0.0.3"),
                                                 {"127.0.0.2", port, "2001:db8::1"},
                                                 {"127.0.0.2", 1023, "127.0.0.2"}})
        EXPECT_EQ(told(registers(address, itsPort, peer), 0ms), -1);
    EXPECT_FALSE(comer(host));
}

TEST_F(ReachProbeTest, GivesWhoSaysNothingTwoConnectionsForAMoment) {
    for (int i = 0; i < 10; ++i)
        registers("127.0.0.2", port, "127.0.0.2");
    const platform::FileDescriptor comers[] = {comer(host), comer(host), comer(host)};
    EXPECT_TRUE(comers[1]);
    EXPECT_FALSE(comers[2]);
    pollfd ending{comers[0].get(), POLLIN, 0};
    EXPECT_EQ(::poll(&ending, 1, 2000), 1) << "it would wait for ever";
}

}  // namespace
}  // namespace zelvo::service
