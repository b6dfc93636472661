// Loads the sharing service, or any server of its kind, and says how long it took:
//
//     zelvo-bench-service PORT create|get|fresh|resumed CLIENTS SECONDS [LINKS]
//     zelvo-bench-service PORT idle CONNECTIONS          until standard input ends
//     zelvo-bench-service PORT strangers CONNECTIONS     the same, with 100 new ones in a second
//     zelvo-bench-service PORT random CLIENTS REQUESTS
//
// LINKS is a file of links to ask for, 32 characters each.

#include <event2/event.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench/service/Client.h"
#include "bench/service/LeanTls.h"
#include "bench/service/RandomRequests.h"

namespace {

using namespace zelvo::bench;
using namespace std::chrono_literals;

event_base* makeBase() {
    auto* config = event_config_new();
    event_config_set_flag(config, EVENT_BASE_FLAG_NOLOCK);
    event_config_set_flag(config, EVENT_BASE_FLAG_EPOLL_USE_CHANGELIST);
    auto* base = event_base_new_with_config(config);
    event_config_free(config);
    return base;
}

timeval asTimeval(std::chrono::milliseconds span) {
    return {span.count() / 1000, span.count() % 1000 * 1000};
}

double milliseconds(Clock::duration span) {
    return std::chrono::duration<double, std::milli>(span).count();
}

/// Clients that ask again as soon as they are answered, on a thread of their own.
class Load {
  public:
    /// `links` outlives this object; `first` is the number of the first client.
    Load(const Client::Place& place, std::string kind, int first, int clients,
         Clock::time_point end, const std::string& links)
        : place_(place), kind_(std::move(kind)), end_(end), random_(first), links_(links) {
        for (int i = 0; i < clients; ++i)
            clients_.push_back(std::make_unique<Client>(place, (first + i) * 4));
        thread_ = std::jthread([this] {
            for (auto& client : clients_)
                ask(*client);
            event_base_dispatch(place_.base);
        });
    }

    /// Milliseconds of each answer. Waits for the last one.
    const std::vector<double>& took() {
        if (thread_.joinable())
            thread_.join();
        return took_;
    }
    std::size_t wrong() const { return wrong_; }

  private:
    std::string request() {
        constexpr std::size_t length = 32;
        if (kind_ == "create")
            return Client::post("create.php", ordinaryForm() + "&permanentSharedLink=");
        const auto count = links_.size() / length;
        const auto link = count > 0 ? links_.substr(random_() % count * length, length) : "none";
        return Client::post("get.php", "link=" + link);
    }

    void ask(Client& client) {
        if (kind_ == "resumed")
            client.keepSession();
        if (kind_ == "fresh" || kind_ == "resumed")
            client.hangUp();
        client.send(request(), [this, &client](const Client::Answer& answer) {
            took_.push_back(milliseconds(answer.took));
            if (answer.status != 200 || !client.hasKept())
                ++wrong_;
            if (Clock::now() < end_)
                ask(client);
            else if (++done_ == clients_.size())
                event_base_loopbreak(place_.base);
        });
    }

    const Client::Place place_;
    const std::string kind_;
    const Clock::time_point end_;
    std::mt19937_64 random_;
    const std::string& links_;
    std::vector<std::unique_ptr<Client>> clients_;
    std::vector<double> took_;
    std::size_t done_ = 0;
    std::size_t wrong_ = 0;
    std::jthread thread_;
};

/// One thread would be at its end with handshakes before two cores are.
void beLoad(int port, const std::string& kind, int clients, std::chrono::seconds span,
            const std::string& linksFile) {
    std::ifstream file(linksFile);
    const std::string links{std::istreambuf_iterator<char>(file), {}};
    const int threads = std::clamp<int>(std::thread::hardware_concurrency(), 1, clients);
    std::vector<Client::Place> places;
    for (int i = 0; i < threads; ++i)
        places.push_back({makeBase(), makeLeanTls(), port});
    std::vector<std::unique_ptr<Load>> loads;
    const auto begun = Clock::now();
    for (int i = 0; i < threads; ++i) {
        const int first = clients * i / threads;
        loads.push_back(std::make_unique<Load>(
            places[i], kind, first, clients * (i + 1) / threads - first, begun + span, links));
    }
    std::vector<double> took;
    std::size_t wrong = 0;
    for (auto& load : loads) {
        took.insert(took.end(), load->took().begin(), load->took().end());
        wrong += load->wrong();
    }
    const double seconds = milliseconds(Clock::now() - begun) / 1000;
    std::ranges::sort(took);
    const auto at = [&took](double part) {
        return took.empty()
                   ? 0.0
                   : took[static_cast<std::size_t>(part * static_cast<double>(took.size() - 1))];
    };
    std::printf("{\"rate\": %.0f, \"p50\": %.2f, \"p99\": %.2f, \"max\": %.2f, \"wrong\": %zu}\n",
                static_cast<double>(took.size()) / seconds, at(0.5), at(0.99), at(1), wrong);
}

/// Connections that have asked once and then say nothing.
void beIdle(const Client::Place& place, std::size_t count) {
    std::vector<std::unique_ptr<Client>> clients;
    std::size_t begun = 0;
    std::size_t done = 0;
    std::size_t wrong = 0;
    std::function<void()> next = [&] {
        if (begun == count)
            return;
        const auto number = begun++;
        clients.push_back(std::make_unique<Client>(place, number));
        clients.back()->send(Client::post("get.php", "link=a"), [&](const Client::Answer& answer) {
            wrong += answer.status != 200;
            if (++done == count)
                event_base_loopbreak(place.base);
            next();
        });
    };
    clients.reserve(count);
    for (int i = 0; i < 64; ++i)
        next();
    event_base_dispatch(place.base);
    const auto open = std::ranges::count_if(clients, [](auto& it) { return it->isConnected(); });
    std::printf("{\"open\": %zd, \"wrong\": %zu}\n", open, wrong);
    std::fflush(stdout);
    std::getchar();
}

/// Connections that are never used, each made anew as soon as it is ended, and new ones besides.
class Strangers {
  public:
    Strangers(const Client::Place& place, std::size_t count) : place_(place), sockets_(count) {
        tick_ = event_new(place.base, -1, EV_PERSIST, &Strangers::tick, this);
        const auto span = asTimeval(10ms);
        event_add(tick_, &span);
    }
    ~Strangers() { event_free(tick_); }

  private:
    struct Silent {
        int socket = -1;
        Strangers* all = nullptr;
        event* ended = nullptr;
    };

    void begin(Silent& it) {
        it.all = this;
        it.socket = Client::connectFrom(number_++, place_.port);
        it.ended = event_new(
            place_.base, it.socket, EV_READ,
            [](int, short, void* silent) {
                auto& one = *static_cast<Silent*>(silent);
                event_free(one.ended);
                ::close(one.socket);
                one.all->begin(one);
            },
            &it);
        event_add(it.ended, nullptr);
    }

    /// One more client in each hundredth of a second, which goes when the next one comes.
    static void tick(int, short, void* self) {
        auto& all = *static_cast<Strangers*>(self);
        // Over the time that they are suffered for, so that they do not all come again at once.
        for (std::size_t i = 0; i < 10 && all.begun_ < all.sockets_.size(); ++i)
            all.begin(all.sockets_[all.begun_++]);
        if (all.begun_ == all.sockets_.size() && !std::exchange(all.saidSo_, true)) {
            std::puts("{}");
            std::fflush(stdout);
        }
        if (all.last_ >= 0)
            ::close(all.last_);
        all.last_ = Client::connectFrom(all.number_++, all.place_.port);
    }

    const Client::Place place_;
    std::uint32_t number_ = 1'000'000;
    std::vector<Silent> sockets_;
    std::size_t begun_ = 0;
    bool saidSo_ = false;
    event* tick_ = nullptr;
    int last_ = -1;
};

void beStrangers(const Client::Place& place, std::size_t count) {
    Strangers strangers(place, count);
    auto* over = event_new(
        place.base, STDIN_FILENO, EV_READ,
        [](int, short, void* base) { event_base_loopbreak(static_cast<event_base*>(base)); },
        place.base);
    event_add(over, nullptr);
    event_base_dispatch(place.base);
    event_free(over);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4)
        return 2;
    std::signal(SIGPIPE, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    const std::string kind = argv[2];
    const int count = std::atoi(argv[3]);
    const int more = argc > 4 ? std::atoi(argv[4]) : 0;
    const Client::Place place{makeBase(), makeLeanTls(), std::atoi(argv[1])};
    if (kind == "idle") {
        beIdle(place, count);
    } else if (kind == "strangers") {
        beStrangers(place, count);
    } else if (kind == "random") {
        RandomRequests requests(place, count, more);
        event_base_dispatch(place.base);
        return requests.report() ? EXIT_SUCCESS : EXIT_FAILURE;
    } else {
        beLoad(place.port, kind, count, std::chrono::seconds(more), argc > 5 ? argv[5] : "");
    }
    return EXIT_SUCCESS;
}
