#include "Workshop.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <plist/plist.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <memory>

namespace zelvo::service {

Workshop::Workshop() {
    std::string name = std::filesystem::temp_directory_path() / "zelvo-service-XXXXXX";
    folder_ = mkdtemp(name.data());
}

Workshop::~Workshop() {
    std::filesystem::remove_all(folder_);
}

void Workshop::makeCertificate() const {
    auto command =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 "
        "-subj /CN=zelvo -addext subjectAltName=IP:127.0.0.1 -keyout " +
        path("key.pem") + " -out " + path("cert.pem") + " 2>" + path("openssl.log");
    ASSERT_EQ(std::system(command.c_str()), 0);
}

ServiceProgram::ServiceProgram(std::vector<std::string> arguments) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return;
    std::vector<char*> words{const_cast<char*>(ZELVO_SERVICE_PROGRAM)};
    for (auto& argument : arguments)
        words.push_back(argument.data());
    words.push_back(nullptr);
    child_ = fork();
    if (child_ == 0) {
        dup2(ends[1], STDOUT_FILENO);
        execv(words[0], words.data());
        _exit(127);
    }
    close(ends[1]);
    output_ = ends[0];
}

ServiceProgram::~ServiceProgram() {
    if (child_ > 0)
        end(SIGKILL);
    close(output_);
}

std::string ServiceProgram::readLine() const {
    std::string line;
    for (char c = 0; read(output_, &c, 1) == 1 && c != '\n';)
        line += c;
    return line;
}

int ServiceProgram::end(int signal) {
    int status = 0;
    if (signal != 0)
        kill(child_, signal);
    waitpid(child_, &status, 0);
    child_ = -1;
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

std::vector<std::string> serviceArguments(const Workshop& workshop) {
    return {"--database", workshop.path("links.db"), "--certificate", workshop.path("cert.pem"),
            "--key",      workshop.path("key.pem")};
}

Reply parse(const std::string& xml) {
    plist_t root = nullptr;
    plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &root);
    std::unique_ptr<void, decltype(&plist_free)> owner(root, plist_free);
    Reply reply;
    if (!root || plist_get_node_type(root) != PLIST_DICT)
        return reply;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(root, &iterator);
    for (;;) {
        char* key = nullptr;
        plist_t node = nullptr;
        plist_dict_next_item(root, iterator, &key, &node);
        if (!node)
            break;
        if (plist_get_node_type(node) == PLIST_STRING) {
            std::uint64_t length = 0;
            const char* text = plist_get_string_ptr(node, &length);
            reply.emplace(key, std::string(text, length));
        } else {
            std::uint64_t number = 0;
            plist_get_uint_val(node, &number);
            reply.emplace(key, static_cast<std::int64_t>(number));
        }
        std::free(key);
    }
    std::free(iterator);
    return reply;
}

std::int64_t statusOf(const Reply& reply) {
    auto status = reply.find("StatusCode");
    const auto* number =
        status == reply.end() ? nullptr : std::get_if<std::int64_t>(&status->second);
    return number ? *number : -1;
}

std::optional<Reply> post(const Workshop& workshop, int port, const std::string& endpoint,
                          const std::string& body) {
    std::signal(SIGPIPE, SIG_IGN);  // the service may be killed while the client writes
    httplib::SSLClient client("127.0.0.1", port);
    client.set_ca_cert_path(workshop.path("cert.pem"));
    auto result =
        client.Post("/app/4.8.1/sharing/" + endpoint, body, "application/x-www-form-urlencoded");
    return result ? std::optional(parse(result->body)) : std::nullopt;
}

int connectAndSend(int port, const std::string& bytes) {
    int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return connection;
}

std::string facts(const std::string& name) {
    return "ComputerName=" + name +
           "&LocalHostname=tom.local.&vncPort=5900&IPAddress=203.0.113.7&Port=12345"
           "&MacAddress=0011aabbccdd&LastKeyboardLocale=de+nodeadkeys&MappedService=vnc"
           "&HotKeys=%7B%22originalKeys%22:%5B%5D,%22hotCorners%22:%7B%7D%7D";
}

}  // namespace zelvo::service
