#include "platform/linux/https/CurlUrlSession.h"

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <set>
#include <thread>

#include "tests/support/Certificate.h"
#include "tests/support/Socket.h"
#include "tests/support/WaitingQueue.h"

#include <httplib.h>

using namespace zelvo::platform;
using namespace zelvo::test;
using namespace std::chrono_literals;

namespace {

class CurlUrlSessionTest : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        folder = std::make_unique<TemporaryFolder>();
        makeCertificate(*folder, "good");
        makeCertificate(*folder, "other");
    }
    static void TearDownTestSuite() { folder.reset(); }

    void SetUp() override {
        server.Post("/echo", [this](const auto& request, auto& response) {
            std::lock_guard lock(mutex);
            peers.insert(request.remote_port);
            contentTypes.push_back(request.get_header_value("Content-Type"));
            response.status = 500;
            response.set_header("Client-Address", request.remote_addr);
            response.set_content(request.method + " " + request.body, "text/plain");
        });
        server.Get("/redirect", [](const auto&, auto& response) {
            response.set_redirect("/landed");
            response.set_content("moved", "text/plain");
        });
        server.Get("/landed", [this](const auto&, auto&) { landed = true; });
        server.Get("/body", [](const auto& request, auto& response) {
            auto size = std::stoul(request.get_param_value("size"));
            if (request.has_param("chunked"))
                response.set_chunked_content_provider(
                    "text/plain", [size](std::size_t offset, httplib::DataSink& sink) {
                        std::string piece(std::min<std::size_t>(size - offset, 65536), 'x');
                        if (piece.empty())
                            sink.done();
                        else
                            sink.write(piece.data(), piece.size());
                        return true;
                    });
            else
                response.set_content(std::string(size, 'x'), "text/plain");
        });
        port = server.bind_to_any_port("127.0.0.1");
        ASSERT_GT(port, 0);
        thread = std::thread([this] { server.listen_after_bind(); });
        while (!server.is_running())
            std::this_thread::yield();
    }
    void TearDown() override {
        session.reset();
        server.stop();
        thread.join();
    }

    std::string url(const std::string& path, const std::string& scheme = "https") {
        return scheme + "://127.0.0.1:" + std::to_string(port) + path;
    }
    static UrlRequest get(const std::string& url, std::chrono::seconds timeout = 60s) {
        UrlRequest request;
        request.url = url;
        request.timeout = timeout;
        return request;
    }
    UrlRequest post(const std::string& body) {
        auto data = bytes(body);
        auto request = get(url("/echo"));
        request.method = "POST";
        request.headers = {{"Content-Type", "application/x-www-form-urlencoded"}};
        request.body = {data.begin(), data.end()};
        return request;
    }
    UrlResult exchange(UrlRequest request) {
        std::optional<UrlResult> result;
        session->dataTask(std::move(request), [&](UrlResult value) {
            EXPECT_FALSE(result) << "once only";
            result = std::move(value);
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
    void trust(const std::string& name) {
        session = std::make_unique<CurlUrlSession>(
            queue, CurlUrlSession::Options{.certificateFile = *folder / (name + ".pem")});
    }

    static inline std::unique_ptr<TemporaryFolder> folder;
    /// Takes connections and never says anything.
    Socket silent = std::move(Socket().bind());
    const std::string silentUrl = "https://127.0.0.1:" + std::to_string(silent.port()) + "/";
    httplib::SSLServer server{(*folder / "good.pem").c_str(), (*folder / "good.key").c_str()};
    int port = 0;
    std::thread thread;
    std::mutex mutex;
    std::set<int> peers;
    std::vector<std::string> contentTypes;
    std::atomic<bool> landed = false;
    std::vector<std::string> seen;

    WaitingQueue queue;
    std::unique_ptr<CurlUrlSession> session = std::make_unique<CurlUrlSession>(
        queue, CurlUrlSession::Options{
                   .certificateFile = *folder / "good.pem",
                   .seenFrom = [this](const std::string& address) { seen.push_back(address); }});
};

}  // namespace

TEST_F(CurlUrlSessionTest, ExchangesOverOneConnection) {
    EXPECT_EQ(text(exchange(post("a=1&b=\u00e9"))), "POST a=1&b=\u00e9") << "whatever the status";
    EXPECT_EQ(text(exchange(post(""))), "POST ");
    EXPECT_EQ(text(session->sendSynchronously(post("s"))), "POST s");
    EXPECT_EQ(text(exchange(get(url("/body?size=0")))), "");
    EXPECT_EQ(peers.size(), 1U);
    EXPECT_EQ(seen, std::vector<std::string>(3, "127.0.0.1"));
    EXPECT_EQ(contentTypes[0], "application/x-www-form-urlencoded");

    // A stalled exchange holds up no other one.
    bool stalledDone = false;
    session->dataTask(get(silentUrl), [&](UrlResult) { stalledDone = true; });
    EXPECT_EQ(text(exchange(post("x"))), "POST x");
    EXPECT_FALSE(stalledDone);
}

TEST_F(CurlUrlSessionTest, RefusesWhatItCannotTrust) {
    EXPECT_EQ(text(exchange(get(url("/landed", "http")))), error(CURLE_UNSUPPORTED_PROTOCOL));
    EXPECT_EQ(text(exchange(get("file:///etc/hostname"))), error(CURLE_UNSUPPORTED_PROTOCOL));
    EXPECT_EQ(text(exchange(get("/create.php"))), error(CURLE_URL_MALFORMAT));
    // The certificate is for the address alone.
    EXPECT_EQ(text(exchange(get("https://localhost:" + std::to_string(port) + "/landed"))),
              error(CURLE_PEER_FAILED_VERIFICATION));
    trust("other");
    EXPECT_EQ(text(exchange(get(url("/landed")))), error(CURLE_PEER_FAILED_VERIFICATION));
    trust("missing");
    EXPECT_EQ(text(exchange(get(url("/landed")))), error(CURLE_SSL_CACERT_BADFILE));
    EXPECT_FALSE(landed);
}

TEST_F(CurlUrlSessionTest, LimitsRedirectsBodyAndTime) {
    EXPECT_EQ(text(exchange(get(url("/redirect")))), "moved");
    EXPECT_FALSE(landed);
    EXPECT_EQ(text(exchange(get(url("/body?size=1048576")))).size(), 1048576U);
    for (const auto* path : {"/body?size=2097152", "/body?size=2097152&chunked"})
        EXPECT_EQ(text(exchange(get(url(path)))), error(CURLE_FILESIZE_EXCEEDED));
    EXPECT_EQ(text(exchange(get(silentUrl, 1s))), error(CURLE_OPERATION_TIMEDOUT));
    session = std::make_unique<CurlUrlSession>(
        queue, CurlUrlSession::Options{.certificateFile = "", .connectTimeout = 200ms});
    EXPECT_EQ(text(exchange(get(silentUrl))), error(CURLE_OPERATION_TIMEDOUT));
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
}

TEST_F(CurlUrlSessionTest, SendsNothingOnceTheMainQueueIsClosed) {
    queue.close();
    session->dataTask(get(url("/landed")), [](UrlResult) { FAIL() << "dropped"; });
    EXPECT_EQ(text(session->sendSynchronously(get(url("/landed")))),
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
