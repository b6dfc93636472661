#include "service/HttpsServer.h"

#include <gtest/gtest.h>

#include <thread>

#include "service/LinkStore.h"
#include "tests/service/Facts.h"
#include "tests/support/Certificate.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Socket.h"

#include <httplib.h>

namespace zelvo::service {
namespace {

using namespace std::chrono_literals;
using test::ChildProcess;
using test::Socket;

class HttpsServerTest : public testing::Test {
  protected:
    HttpsServerTest() {
        std::signal(SIGPIPE, SIG_IGN);  // the service may be killed while the client writes
        test::makeCertificate(folder, "cert");
    }

    static int portOf(const std::string& line) {
        const std::string announcement = "Service: https://127.0.0.1:";
        EXPECT_TRUE(line.starts_with(announcement)) << line;
        return std::atoi(line.c_str() + std::min(line.size(), announcement.size()));
    }
    static bool hasStatus(const std::string& body, StatusCode code) {
        return body.find("<key>StatusCode</key>\n\t<integer>" +
                         std::to_string(static_cast<int>(code)) + "<") != std::string::npos;
    }
    std::unique_ptr<httplib::SSLClient> client(int port) const {
        auto client = std::make_unique<httplib::SSLClient>("127.0.0.1", port);
        client->set_ca_cert_path(folder / "cert.pem");
        return client;
    }
    /// The body of the answer; empty when there was none.
    std::string post(int port, const std::string& endpoint, const std::string& body) const {
        auto result = client(port)->Post("/app/4.8.1/sharing/" + endpoint, body,
                                         "application/x-www-form-urlencoded");
        return result ? result->body : "";
    }

    test::TemporaryFolder folder;
    const std::string command = "exec " ZELVO_SERVICE_PROGRAM " --database " + folder / "links.db" +
                                " --certificate " + folder / "cert.pem" + " --key " +
                                folder / "cert.key";
};

TEST_F(HttpsServerTest, LosesNoAnsweredRegistrationWhenKilled) {
    std::vector<std::string> answered;
    for (std::size_t round = 1; round <= 3; ++round) {
        ChildProcess program(command);
        int port = portOf(program.readLine());
        for (const auto& link : answered)
            EXPECT_TRUE(hasStatus(post(port, "get.php", "link=" + link), StatusCode::Ok));
        // The kill falls into a create or right behind its answer.
        std::atomic<std::size_t> count = 0;
        std::thread registering([&] {
            const std::string form = facts("A") + "&permanentSharedLink=";
            const std::string key = "<key>link</key>\n\t<string>";
            for (std::string body; !(body = post(port, "create.php", form)).empty();) {
                answered.push_back(body.substr(body.find(key) + key.size(), 32));
                ++count;
                count.notify_one();
            }
        });
        for (std::size_t seen = 0; seen < 2 * round; seen = count)
            count.wait(seen);
        EXPECT_EQ(program.end(SIGKILL), -SIGKILL);
        registering.join();
    }
    EXPECT_GE(answered.size(), 12u);
}

TEST_F(HttpsServerTest, RefusesToStartWithoutWhatItNeeds) {
    for (const auto* more :
         {" --port", " --port 65536", " --port 1x", " --key again", " --color red"})
        EXPECT_EQ(ChildProcess(command + more).end(0), 2) << more;
    EXPECT_EQ(ChildProcess("exec " ZELVO_SERVICE_PROGRAM " --database x").end(0), 2);
    std::filesystem::remove(folder / "cert.pem");
    EXPECT_EQ(ChildProcess(command).end(0), 1);
}

TEST_F(HttpsServerTest, OutlivesRubbish) {
    ChildProcess program(command);
    int port = portOf(program.readLine());
    Socket silent;
    Socket plain;
    Socket binary;
    for (auto* socket : {&silent, &plain, &binary})
        EXPECT_TRUE(socket->connect(port));
    plain.send("POST / HTTP/1.1\r\n\r\n");
    binary.send(std::string(300000, '\x16'));

    auto https = client(port);
    const std::string get = "/app/4.8.1/sharing/get.php";
    const char* form = "application/x-www-form-urlencoded";
    auto expect = [](const httplib::Result& result, int httpStatus, StatusCode code) {
        ASSERT_TRUE(result) << httplib::to_string(result.error());
        if (httpStatus == 200) {
            EXPECT_EQ(result->get_header_value("Client-Address"), "127.0.0.1");
        }
        EXPECT_EQ(result->status, httpStatus);
        EXPECT_EQ(result->get_header_value("Content-Type"), "text/xml");
        EXPECT_TRUE(hasStatus(result->body, code)) << result->body;
    };
    const std::string huge(6 * 1024 * 1024, 'x');
    auto inChunks = [&](std::size_t, httplib::DataSink& sink) {
        sink.write(huge.data(), huge.size());
        sink.done();
        return true;
    };
    expect(https->Get(get), 405, StatusCode::MethodNotAllowed);
    expect(https->Post("/", "link=a", form), 404, StatusCode::UnknownPath);
    expect(https->Post(get, "link=a", "multipart/form-data; boundary=a"), 415,
           StatusCode::NotAForm);
    expect(https->Post(get, huge, form), 413, StatusCode::BodyTooLong);
    expect(https->Post(get, inChunks, form), 413, StatusCode::BodyTooLong);
    expect(https->Post(get, "link=" + huge.substr(0, 4 * 1024 * 1024 - 5), form), 200,
           StatusCode::FieldTooLong);
    expect(https->Post(get, {{"Range", "bytes=0-9,0-9,0-9"}}, "link=%FF", form), 200,
           StatusCode::MalformedField);
    expect(https->Post(get, {{"X", std::string(9000, 'x')}}, "link=a", form), 400,
           StatusCode::BadRequest);
    EXPECT_EQ(program.end(SIGTERM), 0);
    EXPECT_EQ(program.readLine(), "");
}

TEST_F(HttpsServerTest, SilentClientsHoldItOnlyUntilTheirDeadline) {
    std::string error;
    auto store = LinkStore::open(folder / "links.db", error);
    SharingEndpoints endpoints(*store);
    TlsContext tls(folder / "cert.pem", folder / "cert.key", error);
    HttpsServer server(tls, endpoints, {.workers = 2, .queue = 1, .connectionTime = 300ms});
    auto port = server.bind("127.0.0.1", 0);
    ASSERT_TRUE(port);
    bool inOrder = false;
    std::thread runner([&] { inOrder = server.run(); });
    // Workers and queue are full, more clients wait in the kernel, and yet the last is answered.
    std::vector<Socket> silent(4);
    for (auto& client : silent)
        EXPECT_TRUE(client.connect(*port));
    EXPECT_TRUE(hasStatus(post(*port, "get.php", "link=a"), StatusCode::UnknownLink));

    HttpsServer second(tls, endpoints);
    EXPECT_FALSE(second.bind("127.0.0.1", *port));
    server.stop();
    runner.join();
    EXPECT_TRUE(inOrder);

    // A stop that comes before the run is not lost.
    ASSERT_TRUE(second.bind("127.0.0.1", 0));
    second.stop();
    EXPECT_TRUE(second.run());
}

}  // namespace
}  // namespace zelvo::service
