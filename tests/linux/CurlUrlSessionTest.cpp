#include "platform/linux/https/CurlUrlSession.h"

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <set>
#include <thread>

#include "tests/support/Certificate.h"
#include "tests/support/HttpsPeer.h"
#include "tests/support/Socket.h"
#include "tests/support/WaitingQueue.h"

using namespace zelvo::platform;
using namespace zelvo::test;
using namespace std::chrono_literals;

namespace {

/// Read when the library is first used, which any test of this program may be. The system's own
/// settings may be stricter than ours and would hide them.
struct LenientOpenSsl {
    LenientOpenSsl() {
        auto file = folder.write("openssl.cnf",
                                 "openssl_conf = conf\n[conf]\nssl_conf = ssl\n[ssl]\n"
                                 "system_default = all\n[all]\nMinProtocol = TLSv1\n"
                                 "CipherString = DEFAULT@SECLEVEL=0\n"
                                 "[req]\ndistinguished_name = name\n[name]\n");
        ::setenv("OPENSSL_CONF", file.c_str(), 1);
    }
    TemporaryFolder folder;
} const lenientOpenSsl;

class CurlUrlSessionTest : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        folder = std::make_unique<TemporaryFolder>();
        makeCertificate(*folder, "good");
        makeCertificate(*folder, "other");
        makeCertificate(*folder, "expired", -1);
    }
    static void TearDownTestSuite() { folder.reset(); }

    void SetUp() override {
        // Nothing here goes through it but what says so.
        ::setenv("https_proxy", silentUrl.c_str(), 1);
        peer.on("/echo", [this](const auto& request, auto respond) {
            std::lock_guard lock(mutex);
            peers.insert(request.port);
            contentTypes.emplace_back(request.header("Content-Type"));
            respond({500,
                     {{"Client-Address", request.client.text()}},
                     std::string(request.method) + " " + std::string(request.body)});
        });
        peer.on("/cookie", [](const auto& request, auto respond) {
            respond({200,
                     {{"Set-Cookie", std::string(request.query)}},
                     std::string(request.header("Cookie"))});
        });
        peer.on("/redirect", [](const auto&, auto respond) {
            respond({302, {{"Location", "/landed"}}, "moved"});
        });
        peer.on("/landed", [this](const auto&, auto respond) {
            landed = true;
            respond({});
        });
        peer.on("/never", [this](const auto&, auto respond) { unanswered.push_back(respond); });
        peer.on("/body", [](const auto& request, auto respond) {
            respond({200, {}, std::string(std::stoul(std::string(request.query)), 'x')});
        });
        peer.start();
        restart("good.pem");
    }
    void TearDown() override {
        ::unsetenv("https_proxy");
        session.reset();
        for (const auto& respond : unanswered)
            respond({});
    }

    static UrlRequest get(const std::string& url, std::chrono::seconds timeout = 60s) {
        UrlRequest request;
        request.url = url;
        request.timeout = timeout;
        return request;
    }
    UrlRequest post(const std::string& body) {
        auto data = bytes(body);
        auto request = get(peer.url("/echo"));
        request.method = "POST";
        request.headers = {{"Content-Type", "application/x-www-form-urlencoded"}};
        request.body = {data.begin(), data.end()};
        return request;
    }
    UrlResult exchange(UrlRequest request) {
        std::optional<UrlResult> result;
        session->exchange(std::move(request), [&](UrlResult value, const ExchangeReport& said) {
            EXPECT_FALSE(result) << "once only";
            result = std::move(value);
            report = said;
        });
        EXPECT_FALSE(result) << "never inside the call";
        EXPECT_TRUE(queue.runUntil([&] { return result.has_value(); }, 30s));
        return result.value_or(UrlResult{});
    }
    static std::string text(const UrlResult& result) {
        EXPECT_NE(result.data.has_value(), result.error.has_value());
        if (!result.data)
            return result.error ? "error " + std::to_string(result.error->code) : "nothing";
        return {reinterpret_cast<const char*>(result.data->data()), result.data->size()};
    }
    static std::string error(CURLcode code) { return "error " + std::to_string(code); }
    void restart(const std::string& authority, std::chrono::milliseconds patience = 5s) {
        session = std::make_unique<CurlUrlSession>(
            queue, CurlUrlSession::Options{
                       .certificateFile = *folder / authority,
                       .patienceAtQuit = patience,
                       .seenFrom = [this](const std::string& from) { seen.push_back(from); },
                       .cookieFile = cookieFile,
                       .cookiesAreLost = [this](const std::string& error) { lost = error; }});
    }

    static inline std::unique_ptr<TemporaryFolder> folder;
    /// Takes connections and never says anything.
    Socket silent = std::move(Socket().bind());
    const std::string silentUrl = "https://127.0.0.1:" + std::to_string(silent.port()) + "/";
    std::mutex mutex;
    std::set<int> peers;
    std::vector<std::string> contentTypes;
    std::atomic<bool> landed = false;
    std::vector<std::string> seen;
    std::string cookieFile;
    std::string lost;
    std::vector<HttpsPeer::Respond> unanswered;
    ExchangeReport report;
    HttpsPeer peer{*folder, "good"};

    WaitingQueue queue;
    std::unique_ptr<CurlUrlSession> session;
};

}  // namespace

TEST_F(CurlUrlSessionTest, ExchangesOverOneConnection) {
    EXPECT_EQ(text(exchange(post("a=1&b=\u00e9"))), "POST a=1&b=\u00e9") << "whatever the status";
    EXPECT_EQ(report.httpStatus, 500);
    EXPECT_EQ(text(exchange(post(""))), "POST ");
    EXPECT_EQ(text(session->sendSynchronously(post("s"))), "POST s");
    EXPECT_EQ(text(exchange(get(peer.url("/body?0")))), "");
    EXPECT_EQ(peers.size(), 1U);
    EXPECT_EQ(seen, std::vector<std::string>(3, "127.0.0.1"));
    EXPECT_EQ(contentTypes[0], "application/x-www-form-urlencoded");

    // A stalled exchange holds up no other one.
    bool stalledDone = false;
    session->dataTask(get(silentUrl), [&](UrlResult) { stalledDone = true; });
    EXPECT_EQ(text(exchange(post("x"))), "POST x");
    EXPECT_FALSE(stalledDone);
}

TEST_F(CurlUrlSessionTest, KeepsCookiesBeforeTheReplyIsHandedOn) {
    const TemporaryFolder jars;
    cookieFile = jars / "state/cookies";
    restart("good.pem");
    bool wasKept = false;
    session->dataTask(get(peer.url("/cookie?owner=1;Max-Age=99;Secure;HttpOnly;Path=/cookie")),
                      [&](UrlResult) { wasKept = !jars.read("state/cookies").empty(); });
    EXPECT_TRUE(queue.runUntil([&] { return wasKept; }));
    EXPECT_EQ(std::filesystem::status(cookieFile).permissions(), std::filesystem::perms(0600));
    restart("good.pem");
    EXPECT_EQ(text(exchange(get(peer.url("/cookie?owner=2;Max-Age=99;Path=/cookie")))), "owner=1");
    restart("good.pem");
    EXPECT_EQ(text(exchange(get(peer.url("/cookie")))), "owner=2");
    EXPECT_EQ(text(exchange(get(peer.url("/body?3")))), "xxx");
    cookieFile = "/proc/none";
    restart("good.pem");
    exchange(get(peer.url("/cookie?owner=3;Max-Age=99")));
    EXPECT_TRUE(queue.runUntil([&] { return !lost.empty(); }));
    EXPECT_EQ(text(exchange(get(peer.url("/cookie")))), "owner=3");
}

TEST_F(CurlUrlSessionTest, RefusesWhatItCannotTrustAndSaysWhy) {
    HttpsPeer expired(*folder, "expired");
    expired.start();
    using Trouble = ExchangeTrouble;
    const struct {
        std::string url;
        const char* authority;
        CURLcode code;
        Trouble trouble;
    } cases[] = {
        {"http" + peer.url("/landed").substr(5), "good.pem", CURLE_UNSUPPORTED_PROTOCOL,
         Trouble::NoName},
        {"file:///etc/hostname", "good.pem", CURLE_UNSUPPORTED_PROTOCOL, Trouble::NoName},
        {"/create.php", "good.pem", CURLE_URL_MALFORMAT, Trouble::NoName},
        {"https://127.0.0.1:1/", "good.pem", CURLE_COULDNT_CONNECT, Trouble::NoConnection},
        {expired.url("/"), "expired.pem", CURLE_PEER_FAILED_VERIFICATION,
         Trouble::CertificateExpired},
        // The certificate is for the address alone.
        {peer.url("/landed", "localhost"), "good.pem", CURLE_PEER_FAILED_VERIFICATION,
         Trouble::CertificateOfAnother},
        {peer.url("/landed"), "other.pem", CURLE_PEER_FAILED_VERIFICATION,
         Trouble::CertificateUntrusted},
        {peer.url("/landed"), "missing.pem", CURLE_SSL_CACERT_BADFILE, Trouble::NotSecure},
    };
    for (const auto& [url, authority, code, trouble] : cases) {
        restart(authority);
        EXPECT_EQ(text(exchange(get(url))), error(code)) << url;
        EXPECT_EQ(report.trouble, trouble) << url << ' ' << authority;
    }
    EXPECT_FALSE(landed);
}

TEST_F(CurlUrlSessionTest, OffersNoOldTlsAndUsesAProxyBeyondLoopbackOnly) {
    auto heard = [&](const std::string& url) {
        session->dataTask(get(url), [](UrlResult) {});
        return silent.accept().receive();
    };
    // The extension that lists the versions on offer (RFC 8446, section 4.2.1): 1.3 and 1.2 alone.
    EXPECT_NE(heard(silentUrl).find(std::string("\0\x2b\0\5\4\3\4\3\3", 9)), std::string::npos);
    EXPECT_TRUE(heard("https://share.invalid/").starts_with("\x16\x03")) << "an https proxy";
    ::setenv("https_proxy", ("http" + silentUrl.substr(5)).c_str(), 1);
    EXPECT_TRUE(heard("https://share.invalid/").starts_with("CONNECT share.invalid:443 "));
}

TEST_F(CurlUrlSessionTest, LimitsRedirectsBodyAndTime) {
    EXPECT_EQ(text(exchange(get(peer.url("/redirect")))), "moved");
    EXPECT_FALSE(landed);
    EXPECT_EQ(text(exchange(get(peer.url("/body?1048576")))).size(), 1048576U);
    EXPECT_EQ(text(exchange(get(peer.url("/body?2097152")))), error(CURLE_FILESIZE_EXCEEDED));
    EXPECT_EQ(text(exchange(get(silentUrl, 1s))), error(CURLE_OPERATION_TIMEDOUT));
    EXPECT_EQ(report.trouble, ExchangeTrouble::NoConnection);
    EXPECT_EQ(text(exchange(get(peer.url("/never"), 1s))), error(CURLE_OPERATION_TIMEDOUT));
    EXPECT_EQ(report.trouble, ExchangeTrouble::NoAnswer);
}

TEST_F(CurlUrlSessionTest, IsPatientUntilAQuitBegins) {
    restart("good.pem", 300ms);
    EXPECT_EQ(text(exchange(post("before"))), "POST before");
    std::vector<std::string> ended;
    auto begin = [&](const std::string& url) {
        session->dataTask(get(url), [&](UrlResult result) { ended.push_back(text(result)); });
    };
    begin(silentUrl);
    EXPECT_FALSE(queue.runUntil([&] { return !ended.empty(); }, 900ms));
    session->quitBegins();
    begin(silentUrl);
    begin(peer.url("/never"));
    EXPECT_TRUE(queue.runUntil([&] { return ended.size() == 3; }, 10s));
    EXPECT_EQ(ended, std::vector(3, error(CURLE_OPERATION_TIMEDOUT)));
    EXPECT_EQ(text(exchange(post("after"))), "POST after");
}

TEST_F(CurlUrlSessionTest, EndsAtOnceWithStalledExchanges) {
    // Released on the thread of its owner, not by the worker.
    auto owner = std::shared_ptr<int>(new int, [home = std::this_thread::get_id()](int* value) {
        EXPECT_EQ(std::this_thread::get_id(), home);
        delete value;
    });
    session->dataTask(get(silentUrl), [owner](UrlResult) { FAIL() << "cancelled"; });
    UrlResult synchronous;
    std::thread waiting([&] { synchronous = session->sendSynchronously(get(silentUrl)); });
    auto first = silent.accept();
    auto second = silent.accept();
    auto start = std::chrono::steady_clock::now();
    session.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
    waiting.join();
    EXPECT_EQ(text(synchronous), error(CURLE_ABORTED_BY_CALLBACK));
    EXPECT_EQ(owner.use_count(), 1);

    restart("good.pem");
    queue.close();
    session->dataTask(get(peer.url("/landed")), [](UrlResult) { FAIL() << "dropped"; });
    EXPECT_EQ(text(session->sendSynchronously(get(peer.url("/landed")))),
              error(CURLE_ABORTED_BY_CALLBACK));
    EXPECT_FALSE(landed);
}

TEST_F(CurlUrlSessionTest, SerialQueuesRunOneJobAtATime) {
    auto serial = session->makeSerialQueue();
    std::vector<int> order;
    std::thread::id thread;
    for (int job = 0; job < 20; ++job)
        serial->async([&, job] {
            thread = std::this_thread::get_id();
            order.push_back(job);
        });
    bool done = false;
    serial->async([&] { queue.async([&] { done = true; }); });
    EXPECT_TRUE(queue.runUntil([&] { return done; }));
    EXPECT_EQ(order.size(), 20U);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_NE(thread, std::this_thread::get_id());

    // The end waits for the job that runs and drops the others.
    std::promise<void> begun;
    serial->async([&, running = serial.get()] {
        begun.set_value();
        for (bool ending = false; !ending;) {
            // Only a queue that ends takes no more.
            auto kept = std::make_shared<int>();
            running->async([kept] {});
            ending = kept.use_count() == 1;
            std::this_thread::yield();
        }
        order.clear();
    });
    serial->async([] { ADD_FAILURE() << "dropped"; });
    begun.get_future().wait();
    serial.reset();
    EXPECT_TRUE(order.empty());
}
