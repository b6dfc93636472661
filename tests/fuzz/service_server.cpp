// The sharing service as a whole but for TLS: whatever is sent to it, what it answers is HTTP, its
// replies are property lists, and nobody without a secret changes anything.

#include <arpa/inet.h>
#include <event2/event.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "service/SharingEndpoints.h"
#include "service/SharingHandler.h"
#include "service/SqliteLinkStore.h"
#include "serving/HttpServer.h"

using namespace zelvo;

namespace {

std::string folder = std::filesystem::temp_directory_path() / "zelvo-fuzz-XXXXXX";

std::unique_ptr<service::SqliteLinkStore> openStore() {
    const std::string file = mkdtemp(folder.data()) + std::string("/links");
    std::atexit([] { std::filesystem::remove_all(folder); });
    std::string error;
    return service::SqliteLinkStore::open(
        file, [] { return 1'000'000'000; }, error);
}

struct Service {
    Service() {
        event_set_log_callback([](int, const char*) {});
        port = server.listen("127.0.0.1", 0).value_or(0);
        server.start();
    }

    std::unique_ptr<service::SqliteLinkStore> store = openStore();
    service::SharingEndpoints endpoints{*store, {.clock = [] { return 1'000'000'000; }}};
    service::SharingHandler handler{endpoints, {}};
    serving::HttpServer server{
        [this](const auto& request, auto respond) { handler.handle(request, respond); },
        {.loops = 1, .bodyLength = 1 << 16}};
    int port = 0;
};

/// -1 with errno.
int connectFrom(std::uint32_t address, int port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in here{};
    here.sin_family = AF_INET;
    here.sin_addr.s_addr = htonl(address);
    ::bind(socket, reinterpret_cast<sockaddr*>(&here), sizeof here);
    sockaddr_in there{};
    there.sin_family = AF_INET;
    there.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    there.sin_port = htons(static_cast<std::uint16_t>(port));
    if (::connect(socket, reinterpret_cast<sockaddr*>(&there), sizeof there) == 0)
        return socket;
    const int error = errno;
    ::close(socket);
    errno = error;
    return -1;
}

std::string answerTo(int port, std::string_view bytes, std::size_t cut) {
    // An address has ports for so many connections only, of which each is kept for a minute; which
    // one is free is seen by trying.
    static std::uint32_t number = 0;
    int socket = -1;
    for (int tries = 0; socket < 0 && tries < 16; ++tries) {
        if (tries > 0)
            number += 8192;
        socket = connectFrom(INADDR_LOOPBACK + number++ / 8192, port);
    }
    if (socket < 0) {
        std::perror("connect");
        std::abort();
    }
    ::send(socket, bytes.data(), cut, MSG_NOSIGNAL);
    ::send(socket, bytes.data() + cut, bytes.size() - cut, MSG_NOSIGNAL);
    ::shutdown(socket, SHUT_WR);
    std::string answer;
    std::array<char, 4096> part{};
    for (ssize_t got = 0; (got = ::recv(socket, part.data(), part.size(), 0)) > 0;)
        answer.append(part.data(), static_cast<std::size_t>(got));
    ::close(socket);
    return answer;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Without an end: what runs on its loops is not to outlive what they use.
    static auto& service = *new Service;
    if (size == 0)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    const auto answer = answerTo(service.port, bytes, data[0] % size);
    if (!answer.empty() && !answer.starts_with("HTTP/"))
        std::abort();
    const auto list = answer.find("<plist");
    if (list != answer.npos && answer.find("</plist>\n", list) == answer.npos)
        std::abort();
    // Only a create makes a plain success, and it names a link.
    if (answer.find("<integer>0</integer>\n</dict>") != answer.npos &&
        answer.find("<key>link</key>") == answer.npos)
        std::abort();
    return 0;
}
