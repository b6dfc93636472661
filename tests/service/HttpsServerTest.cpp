#include "service/HttpsServer.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/socket.h>

#include <csignal>
#include <thread>

#include "Workshop.h"
#include "service/LinkStore.h"

namespace zelvo::service {
namespace {

using namespace std::chrono_literals;

int portOf(const std::string& line) {
    const std::string announcement = "Service: https://127.0.0.1:";
    EXPECT_TRUE(line.starts_with(announcement)) << line;
    return std::atoi(line.c_str() + std::min(line.size(), announcement.size()));
}

TEST(ServiceProgram, LosesNoAnsweredRegistrationWhenKilled) {
    Workshop workshop;
    workshop.makeCertificate();
    std::vector<std::string> answered;
    for (std::size_t round = 1; round <= 3; ++round) {
        ServiceProgram program(serviceArguments(workshop));
        int port = portOf(program.readLine());
        for (const auto& link : answered)
            EXPECT_EQ(statusOf(*post(workshop, port, "get.php", "link=" + link)), 0);
        // The kill falls into a create or right behind its answer.
        std::atomic<std::size_t> count = 0;
        std::thread client([&] {
            while (auto reply =
                       post(workshop, port, "create.php", facts("A") + "&permanentSharedLink=")) {
                answered.push_back(std::get<std::string>(reply->at("link")));
                ++count;
                count.notify_one();
            }
        });
        for (std::size_t seen = 0; seen < 2 * round; seen = count)
            count.wait(seen);
        EXPECT_EQ(program.end(SIGKILL), -SIGKILL);
        client.join();
    }
    EXPECT_GE(answered.size(), 12u);
}

TEST(ServiceProgram, EndsInOrderOnSignalsWithClientsOpen) {
    Workshop workshop;
    workshop.makeCertificate();
    for (int signal : {SIGTERM, SIGINT}) {
        ServiceProgram program(serviceArguments(workshop));
        platform::FileDescriptor silent(connectAndSend(portOf(program.readLine()), ""));
        EXPECT_EQ(program.end(signal), 0);
        EXPECT_EQ(program.readLine(), "");
    }
}

TEST(ServiceProgram, RefusesToStartWithoutWhatItNeeds) {
    Workshop workshop;
    auto good = serviceArguments(workshop);
    auto with = [&](std::vector<std::string> more) {
        more.insert(more.begin(), good.begin(), good.end());
        return more;
    };
    for (const auto& arguments : std::vector<std::vector<std::string>>{{},
                                                                       {good[0], good[1]},
                                                                       with({"--port"}),
                                                                       with({"--port", "65536"}),
                                                                       with({"--port", "1x"}),
                                                                       with({"--key", "again"}),
                                                                       with({"--color", "red"})})
        EXPECT_EQ(ServiceProgram(arguments).end(0), 2);
    EXPECT_EQ(ServiceProgram(good).end(0), 1);  // no certificate there
}

TEST(ServiceProgram, OutlivesRubbish) {
    Workshop workshop;
    workshop.makeCertificate();
    ServiceProgram program(serviceArguments(workshop));
    int port = portOf(program.readLine());
    platform::FileDescriptor plain(connectAndSend(port, "POST / HTTP/1.1\r\n\r\n"));
    platform::FileDescriptor binary(connectAndSend(port, std::string(300000, '\x16')));

    httplib::SSLClient client("127.0.0.1", port);
    client.set_ca_cert_path(workshop.path("cert.pem"));
    const std::string get = "/app/4.8.1/sharing/get.php";
    const char* form = "application/x-www-form-urlencoded";
    auto expect = [](const httplib::Result& result, int httpStatus, StatusCode code) {
        ASSERT_TRUE(result) << httplib::to_string(result.error());
        if (httpStatus == 200)
            EXPECT_EQ(result->get_header_value("Client-Address"), "127.0.0.1");
        EXPECT_EQ(result->status, httpStatus);
        EXPECT_EQ(result->get_header_value("Content-Type"), "text/xml");
        EXPECT_EQ(statusOf(parse(result->body)), static_cast<int>(code));
    };
    const std::string huge(3 * 1024 * 1024, 'x');
    auto inChunks = [&](std::size_t, httplib::DataSink& sink) {
        sink.write(huge.data(), huge.size());
        sink.done();
        return true;
    };
    expect(client.Get(get), 405, StatusCode::MethodNotAllowed);
    expect(client.Put(get, "link=a", form), 405, StatusCode::MethodNotAllowed);
    expect(client.Post("/", "link=a", form), 404, StatusCode::UnknownPath);
    expect(client.Post(get, "link=a", "multipart/form-data; boundary=a"), 415,
           StatusCode::NotAForm);
    expect(client.Post(get, huge, form), 413, StatusCode::BodyTooLong);
    expect(client.Post(get, inChunks, form), 413, StatusCode::BodyTooLong);
    expect(client.Post(get, "link=" + huge.substr(0, 1024 * 1024 - 5), form), 200,
           StatusCode::FieldTooLong);
    expect(client.Post(get, {{"Range", "bytes=0-9,0-9,0-9"}}, "link=%FF", form), 200,
           StatusCode::MalformedField);
    expect(client.Post(get, {{"X", std::string(9000, 'x')}}, "link=a", form), 400,
           StatusCode::BadRequest);
    EXPECT_EQ(program.end(SIGTERM), 0);
}

TEST(HttpsServer, SilentClientsHoldItOnlyUntilTheirDeadline) {
    Workshop workshop;
    workshop.makeCertificate();
    std::string error;
    auto store = LinkStore::open(workshop.path("links.db"), error);
    SharingEndpoints endpoints(*store);
    TlsContext tls(workshop.path("cert.pem"), workshop.path("key.pem"), error);
    HttpsServer server(tls, endpoints, {.workers = 2, .queue = 1, .connectionTime = 300ms});
    auto port = server.bind("127.0.0.1", 0);
    ASSERT_TRUE(port);
    bool inOrder = false;
    std::thread runner([&] { inOrder = server.run(); });
    // Workers and queue are full, more clients wait in the kernel, and yet the last is answered.
    std::vector<platform::FileDescriptor> silent;
    for (int i = 0; i < 4; ++i)
        silent.emplace_back(connectAndSend(*port, ""));
    auto reply = post(workshop, *port, "get.php", "link=a");
    EXPECT_EQ(statusOf(reply.value_or(Reply())), static_cast<int>(StatusCode::UnknownLink));

    HttpsServer second(tls, endpoints);
    EXPECT_FALSE(second.bind("127.0.0.1", *port));
    server.stop();
    runner.join();
    EXPECT_TRUE(inOrder);

    // A stop that comes before the run is not lost.
    auto other = second.bind("127.0.0.1", 0);
    ASSERT_TRUE(other);
    second.stop();
    EXPECT_TRUE(second.run());
}

}  // namespace
}  // namespace zelvo::service
