#include "service/ReachProbe.h"

#include <arpa/inet.h>
#include <event2/event.h>
#include <event2/event_struct.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

#include "platform/linux/base/FileDescriptor.h"
#include "serving/ClientAddress.h"
#include "serving/Metrics.h"

namespace zelvo::service {
namespace {

/// How the greeting of every screen server begins (RFC 6143, section 7.1.1).
constexpr std::string_view Greeting = "RFB ";
/// All of it is read, so that the host sees an ordinary end.
constexpr std::size_t GreetingLength = 12;
/// What routers open lies above; what is below is somebody else's.
constexpr int LowestPort = 1024;

/// Says in `isRefused` whether the other side has refused already.
platform::FileDescriptor connectTo(const std::string& address, int port, bool& isRefused) {
    platform::FileDescriptor socket(
        ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    sockaddr_in there{};
    there.sin_family = AF_INET;
    there.sin_port = htons(static_cast<std::uint16_t>(port));
    if (::inet_pton(AF_INET, address.c_str(), &there.sin_addr) != 1)
        return {};
    if (::connect(socket.get(), reinterpret_cast<sockaddr*>(&there), sizeof there) != 0 &&
        errno != EINPROGRESS) {
        isRefused = errno == ECONNREFUSED;
        return {};
    }
    return socket;
}

}  // namespace

class ReachProbe::Attempt {
  public:
    Attempt(ReachProbe& probe, std::string link, std::string client,
            platform::FileDescriptor socket)
        : link(std::move(link)),
          client(std::move(client)),
          probe_(probe),
          socket_(std::move(socket)) {
        event_assign(&event_, probe.loop_.base(), socket_.get(), EV_WRITE, &Attempt::connected,
                     this);
        wait(probe.options_.connectTime);
    }
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;
    ~Attempt() { event_del(&event_); }

    const std::string link;
    const std::string client;
    Attempts::iterator place;

  private:
    void wait(std::chrono::milliseconds most) {
        const timeval span{most.count() / 1000, most.count() % 1000 * 1000};
        event_add(&event_, &span);
    }

    static void connected(int socket, short what, void* self) {
        auto& attempt = *static_cast<Attempt*>(self);
        int error = 0;
        socklen_t size = sizeof error;
        ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size);
        if ((what & EV_TIMEOUT) != 0 || error != 0)
            return attempt.probe_.end(attempt.place, false);
        event_assign(&attempt.event_, attempt.probe_.loop_.base(), socket, EV_READ,
                     &Attempt::greeted, &attempt);
        attempt.wait(attempt.probe_.options_.greetingTime);
    }

    static void greeted(int socket, short what, void* self) {
        auto& attempt = *static_cast<Attempt*>(self);
        std::array<char, GreetingLength> bytes{};
        if ((what & EV_TIMEOUT) == 0)
            ::recv(socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
        const bool isScreen = std::string_view(bytes.data(), Greeting.size()) == Greeting;
        attempt.probe_.end(attempt.place, isScreen ? std::optional(true) : std::nullopt);
    }

    ReachProbe& probe_;
    const platform::FileDescriptor socket_;
    event event_{};
};

ReachProbe::ReachProbe(const Options& options)
    : options_(options), shares_(options.atOnceOfClient), allowances_(options.ofClient) {
    loop_.start();
}

ReachProbe::~ReachProbe() {
    loop_.post([this] { loop_.endAfter(std::chrono::milliseconds(0)); });
    loop_.join();
}

void ReachProbe::begin(const std::string& link, const std::string& address, int port) {
    remember(link, std::nullopt);
    loop_.post([this, link, address, port] {
        abandon(link);
        start(link, address, port);
    });
}

void ReachProbe::forget(const std::string& link) {
    remember(link, std::nullopt);
    loop_.post([this, link] { abandon(link); });
}

std::optional<bool> ReachProbe::told(const std::string& link) const {
    const std::lock_guard lock(mutex_);
    const auto found = byLink_.find(link);
    return found == byLink_.end() ? std::nullopt : std::optional(found->second->second);
}

void ReachProbe::start(const std::string& link, const std::string& address, int port) {
    const auto client = serving::ClientAddress::parse(address);
    if (!client || !client->isIpv4() || port < LowestPort)
        return;
    const auto key = client->budgetKey();
    if (attempts_.size() >= options_.atOnce || !allowances_.take(key) || !shares_.take(key))
        return count("left");
    bool isRefused = false;
    if (auto socket = connectTo(client->text(), port, isRefused)) {
        attempts_.push_front(std::make_unique<Attempt>(*this, link, key, std::move(socket)));
        attempts_.front()->place = attempts_.begin();
        return;
    }
    shares_.giveBack(key);
    // Of what this machine itself does not let out, nothing is known.
    remember(link, isRefused ? std::optional(false) : std::nullopt);
    count(isRefused ? "unreached" : "left");
}

// What an attempt finds is of the registration that it was begun for.
void ReachProbe::abandon(const std::string& link) {
    std::erase_if(attempts_, [&](const auto& attempt) {
        if (attempt->link != link)
            return false;
        shares_.giveBack(attempt->client);
        return true;
    });
    remember(link, std::nullopt);
}

void ReachProbe::end(Attempts::iterator attempt, std::optional<bool> reached) {
    remember((*attempt)->link, reached);
    count(!reached ? "other" : *reached ? "reached" : "unreached");
    shares_.giveBack((*attempt)->client);
    attempts_.erase(attempt);
}

void ReachProbe::remember(const std::string& link, std::optional<bool> reached) {
    const std::lock_guard lock(mutex_);
    if (const auto found = byLink_.find(link); found != byLink_.end()) {
        known_.erase(found->second);
        byLink_.erase(found);
    }
    if (!reached)
        return;
    byLink_.emplace(link, known_.emplace(known_.end(), link, *reached));
    if (known_.size() > options_.remembered) {
        byLink_.erase(known_.front().first);
        known_.pop_front();
    }
}

void ReachProbe::count(const char* result) {
    if (options_.metrics)
        ++options_.metrics->counter("zelvo_service_probes_total",
                                    "Connections to hosts that have registered, and what came of "
                                    "it.",
                                    std::string("result=\"") + result + "\"");
}

}  // namespace zelvo::service
