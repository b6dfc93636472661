#include "platform/linux/https/SharingSession.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <mutex>

#include "platform/linux/LinuxExplanations.h"
#include "platform/linux/https/ServiceExplanation.h"
#include "tests/support/Certificate.h"
#include "tests/support/FakePlatform.h"
#include "tests/support/HttpsPeer.h"
#include "tests/support/WaitingQueue.h"

using namespace zelvo::platform;
using namespace zelvo::test;
using namespace std::chrono_literals;

namespace {

// A computer may be named like the rest of a form.
const std::string withdrawalOfL =
    "ComputerName=a&availabilityStatus=0&sharedLink=M&availabilityStatus=1&sharedLink=L&vncPort=1";
const std::string creationOfL = "permanentSharedLink=L";

/// A service that notes what comes, and answers with the status that the test sets, 0 for not at
/// all before that changes.
struct SharingSessionTest : testing::Test {
    SharingSessionTest() {
        peer.on("/app/", [this](const auto& request, auto respond) {
            queue.async([this, what = std::string(request.path.substr(5)) + " " +
                                      std::string(request.body)] { came.push_back(what); });
            const std::lock_guard lock(mutex);
            if (status == 0)
                unanswered.push_back(respond);
            else
                respond({status, {}, "link"});
        });
        peer.start();
        restart();
    }
    ~SharingSessionTest() override {
        answerWith(200);
        session.reset();
    }

    void answerWith(int next) {
        const std::lock_guard lock(mutex);
        status = next;
        for (const auto& respond : std::exchange(unanswered, {}))
            respond({status, {}, "link"});
    }

    void restart() {
        session.reset();
        session = std::make_unique<SharingSession>(
            queue, explanation, fake.log,
            SharingSession::Options{
                .exchanges = {.certificateFile = folder / "cert.pem",
                              .patienceAtQuit = 300ms,
                              .beatsEvery = 10ms},
                .stateFolder = folder / "state",
                .registers = [](const auto& reply) { return reply.size() == 4; },
                .disowns = [](const auto& reply) { return reply.size() == 4; },
                .signsOfLifeEvery = signsOfLifeEvery});
    }
    void send(const std::string& endpoint, const std::string& form) {
        UrlRequest request;
        request.url = peer.url("/app/" + endpoint);
        request.method = "POST";
        const auto data = bytes(form);
        request.body.assign(data.begin(), data.end());
        session->dataTask(std::move(request),
                          [this](const UrlResult& result) { ended.push_back(!!result.data); });
    }
    bool runUntil(const std::function<bool()>& condition) { return queue.runUntil(condition, 15s); }
    void expectEnds(const std::vector<bool>& results) {
        EXPECT_TRUE(runUntil([&] { return ended.size() >= results.size(); }));
        EXPECT_EQ(ended, results);
        ended.clear();
    }
    std::string journal() const { return folder.read("state/withdrawals"); }

    TemporaryFolder folder;
    std::chrono::milliseconds signsOfLifeEvery = 24h;
    const bool hasCertificate = (makeCertificate(folder, "cert"), true);
    FakePlatform fake;
    WaitingQueue queue;
    std::mutex mutex;
    int status = 200;
    std::vector<HttpsPeer::Respond> unanswered;
    std::vector<std::string> came;
    std::vector<bool> ended;
    HttpsPeer peer{folder, "cert"};
    ServiceExplanation explanation{fake.bundle};
    std::unique_ptr<SharingSession> session;
};

}  // namespace

TEST_F(SharingSessionTest, SendsAWithdrawalAgainBeforeTheSameLinkIsRegistered) {
    answerWith(503);
    send("update.php", withdrawalOfL);
    expectEnds({true});
    EXPECT_TRUE(explanation.withdrawal().value().starts_with("The sharing service could not be"));
    struct stat file {};
    ::stat((folder / "state/withdrawals").c_str(), &file);
    EXPECT_EQ(file.st_mode & 0777, 0600U);
    // What is no record, what is none of a withdrawal and what is too old go unsent.
    folder.write("state/withdrawals", "x\n9999999999 " + peer.url("/app/create.php") +
                                          " permanentSharedLink=L\n1 " +
                                          peer.url("/app/delete.php") + " link=N\n" + journal());
    came.clear();
    answerWith(0);
    restart();
    send("create.php", creationOfL);
    send("create.php", "permanentSharedLink=");
    EXPECT_TRUE(runUntil([&] { return came.size() == 2; }));
    EXPECT_FALSE(queue.runUntil([&] { return came.size() > 2; }, 100ms)) << "not while it may undo";
    answerWith(200);
    EXPECT_TRUE(runUntil([&] { return came.size() == 3 && ended.size() == 2; }));
    EXPECT_EQ(came[2], "create.php " + creationOfL);
    EXPECT_NE(std::ranges::find(came, "update.php " + withdrawalOfL), came.end());
    EXPECT_EQ(journal(), "");
}

TEST_F(SharingSessionTest, KeepsWhatIsNotConfirmed) {
    const struct {
        const char* endpoint;
        std::string form;
        int status;
        bool isKept;
    } cases[] = {
        {"update.php", withdrawalOfL, 503, true},
        {"update.php", withdrawalOfL, 429, true},
        {"update.php", withdrawalOfL, 404, false},
        {"delete.php", "link=L", 500, true},
        {"delete.php", "link=L", 200, false},
        {"update.php", "availabilityStatus=0&sharedLink=L", 503, false},
        {"get.php", "link=L", 503, false},
    };
    for (const auto& [endpoint, form, answer, isKept] : cases) {
        answerWith(answer);
        send(endpoint, form);
        expectEnds({true});
        EXPECT_EQ(!journal().empty(), isKept) << endpoint << ' ' << answer;
    }
    // It is there before the request is, for a process that is killed meanwhile.
    answerWith(0);
    send("update.php", withdrawalOfL);
    EXPECT_NE(journal(), "");
    session->quitBegins();
    expectEnds({false});
    EXPECT_NE(explanation.withdrawal().value(), "");
    EXPECT_NE(journal(), "");
}

TEST_F(SharingSessionTest, ShowsThatItLivesUntilTheWithdrawal) {
    signsOfLifeEvery = 50ms;
    restart();
    send("create.php", "permanentSharedLink=");
    send("get.php", "link=L");
    EXPECT_TRUE(runUntil([&] { return came.size() >= 5; }));
    EXPECT_EQ(std::ranges::count(came, "get.php link=L"), std::ssize(came) - 1);
    EXPECT_TRUE(runUntil([&] { return !fake.log.lines.empty(); })) << "the service knows no link";
    send("delete.php", "link=L");
    const auto last = [&] { return came.back() == "delete.php link=L"; };
    EXPECT_TRUE(runUntil(last));
    EXPECT_FALSE(queue.runUntil([&] { return !last(); }, 200ms));
}

TEST_F(SharingSessionTest, RegistersNothingOnceAQuitHasBegun) {
    answerWith(0);
    send("update.php", "availabilityStatus=0&sharedLink=L");
    send("create.php", creationOfL);
    session->quitBegins();
    send("update.php", withdrawalOfL);
    send("create.php", "permanentSharedLink=");
    expectEnds({false, false});
    EXPECT_TRUE(runUntil([&] { return came.size() == 1; }));
    answerWith(200);
    expectEnds({true, true});
    EXPECT_EQ(came.back(), "update.php " + withdrawalOfL);
    EXPECT_EQ(came.size(), 2U);
    queue.close();
    send("update.php", withdrawalOfL);
    EXPECT_EQ(journal(), "") << "as the end of the application withdraws once more";
}

TEST(ServiceExplanation, NamesWhatWasInTheWay) {
    FakePlatform fake;
    ServiceExplanation::Clock clock;
    ServiceExplanation service(fake.bundle, [&] { return clock; });
    Observable<std::string> none;
    RouterExplanation router(fake.bundle, fake.log);
    RelayExplanation relay(fake.bundle);
    LinuxExplanations explanations(
        {none, none, router, relay, none, service.creation(), none, service.withdrawal()});
    NatPortMappingReply refused;
    refused.errorCode = NatErrorTransient;
    router.mappingReplied(refused);
    const auto routers = router.text().value();
    ASSERT_NE(routers, "");
    using Trouble = ExchangeTrouble;
    const struct {
        Trouble trouble;
        /// Built on day 2, held by a time server or not.
        int day;
        bool isKept;
        const char* says;
    } cases[] = {
        {Trouble::None, 3, false, "answered"},
        {Trouble::NoName, 3, false, "name server"},
        {Trouble::NoConnection, 3, false, "cannot be reached"},
        {Trouble::NoAnswer, 3, false, "does not answer"},
        {Trouble::CertificateUntrusted, 3, false, "does not trust"},
        {Trouble::CertificateOfAnother, 3, false, "Another computer"},
        {Trouble::NotSecure, 3, false, "firewall"},
        {Trouble::CertificateExpired, 3, true, "has expired. Only"},
        {Trouble::CertificateExpired, 3, false, "clock is wrong: it says 1970-01-0"},
        {Trouble::CertificateExpired, 1, true, "clock seems to be wrong: it says 1970-01-0"},
        {Trouble::CertificateNotYetValid, 3, true, "not valid yet"},
        {Trouble::CertificateNotYetValid, 3, false, "clock seems to be wrong"},
    };
    for (const auto& [trouble, day, isKept, says] : cases) {
        clock = {.now = 86400 * day, .past = 86400 * 2, .isKept = isKept};
        service.creationEnded(false, trouble);
        EXPECT_NE(explanations.router().value().find(says), std::string::npos)
            << explanations.router().value();
    }
    service.creationBegan();
    EXPECT_EQ(explanations.router().value(), routers);
    service.creationEnded(true, Trouble::None);
    router.mappingReplied(std::nullopt);
    EXPECT_EQ(explanations.router().value(), "");
    EXPECT_LE(ServiceExplanation::readSystemClock().past,
              ServiceExplanation::readSystemClock().now);
}
