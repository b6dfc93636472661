// A viewer that measures: how soon the first picture is there, and how long a key takes to change
// it. Tight encoding.
//
// usage: zelvo-bench-viewer ADDRESS PORT none|tls|LINK
//
// On standard input "keys N" presses N keys, one after the other has been seen, and says the
// median, the 95th percentile and the longest time in ms; "frames" says how many updates came since
// it was asked last, "cost" how many ms of processor time the sealed channel of a link took.

#include <poll.h>
#include <rfb/rfbclient.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "bench/SealedTunnel.h"

using zelvo::bench::SealedTunnel;

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

/// A key that has changed nothing by then never will.
constexpr auto LongestWait = std::chrono::seconds(5);

void logNothing(const char*, ...) {}

class BenchViewer {
  public:
    BenchViewer(const char* address, int port, bool encrypted, SealedTunnel* tunnel)
        : tunnel_(tunnel) {
        client_ = rfbGetClient(8, 3, 4);
        client_->clientData = nullptr;
        rfbClientSetClientData(client_, nullptr, this);
        client_->appData.encodingsString = "tight copyrect";
        client_->appData.useRemoteCursor = TRUE;
        client_->canHandleNewFBSize = TRUE;
        client_->serverHost = ::strdup(address);
        client_->serverPort = port;
        client_->GotFrameBufferUpdate = [](rfbClient* client, int, int, int width, int height) {
            of(client).area_ += width * height;
        };
        client_->FinishedFrameBufferUpdate = [](rfbClient* client) { of(client).updated(); };
        std::array<std::uint32_t, 2> schemes{encrypted ? 19U : 1U, 0};
        SetClientAuthSchemes(client_, schemes.data(), 1);
    }

    int run() {
        const auto begun = Clock::now();
        // Frees the client where it fails.
        if (!rfbInitClient(client_, nullptr, nullptr))
            return 1;
        while (area_ < client_->width * client_->height) {
            if (!handle())
                return 1;
        }
        const auto now = Clock::now();
        // On the clock that others on this machine have, too.
        std::printf("first %.6f %.2f\n",
                    std::chrono::duration<double>(now.time_since_epoch()).count(),
                    Milliseconds(now - begun).count());
        std::fflush(stdout);
        while (true) {
            std::array<pollfd, 2> ready{pollfd{STDIN_FILENO, POLLIN, 0},
                                        pollfd{client_->sock, POLLIN, 0}};
            if (client_->buffered == 0)
                ::poll(ready.data(), ready.size(), -1);
            if ((client_->buffered || ready[1].revents) && !handle())
                return 1;
            if (ready[0].revents && !command())
                return 0;
        }
    }

  private:
    static BenchViewer& of(rfbClient* client) {
        return *static_cast<BenchViewer*>(rfbClientGetClientData(client, nullptr));
    }

    /// One message, or none within the time.
    bool handle(std::chrono::microseconds wait = std::chrono::seconds(5)) {
        // What the library has read with the message before, the socket tells nothing of.
        const int ready =
            client_->buffered ? 1 : WaitForMessage(client_, static_cast<unsigned>(wait.count()));
        return ready >= 0 && (ready == 0 || HandleRFBServerMessage(client_));
    }

    void updated() {
        ++frames_;
        std::uint32_t colour = 0;
        std::memcpy(&colour, client_->frameBuffer + (8 * client_->width + 8) * 4, 4);
        hasChanged_ = hasChanged_ || colour != colour_;
        colour_ = colour;
    }

    bool command() {
        std::array<char, 64> line{};
        if (!std::fgets(line.data(), line.size(), stdin))
            return false;
        int count = 0;
        if (std::sscanf(line.data(), "keys %d", &count) == 1)
            return measureKeys(count);
        if (tunnel_ && std::string_view(line.data()) == "cost\n")
            std::printf("cost %.3f\n", tunnel_->takeCost());
        else
            std::printf("frames %d\n", std::exchange(frames_, 0));
        std::fflush(stdout);
        return true;
    }

    bool measureKeys(int count) {
        std::vector<double> times;
        for (int i = 0; i < count; ++i) {
            // At any moment between two pictures.
            const auto from = Clock::now() + std::chrono::microseconds(30'000 + random_() % 70'000);
            while (Clock::now() < from) {
                if (!handle(std::chrono::duration_cast<std::chrono::microseconds>(
                        std::max<Clock::duration>(from - Clock::now(), {}))))
                    return false;
            }
            hasChanged_ = false;
            const auto begun = Clock::now();
            SendKeyEvent(client_, 'a', TRUE);
            SendKeyEvent(client_, 'a', FALSE);
            while (!hasChanged_) {
                if (!handle())
                    return false;
                if (Clock::now() - begun > LongestWait) {
                    std::puts("a key changed nothing");
                    return false;
                }
            }
            times.push_back(Milliseconds(Clock::now() - begun).count());
        }
        std::sort(times.begin(), times.end());
        std::printf("keys %.2f %.2f %.2f\n", times[times.size() / 2],
                    times[times.size() * 95 / 100], times.back());
        std::fflush(stdout);
        return true;
    }

    rfbClient* client_;
    SealedTunnel* tunnel_;
    int area_ = 0;
    int frames_ = 0;
    std::uint32_t colour_ = 0;
    bool hasChanged_ = false;
    std::minstd_rand random_;
};

}  // namespace

int main(int argc, char* argv[]) {
    if (argc != 4) {
        std::fputs("usage: zelvo-bench-viewer ADDRESS PORT none|tls|LINK\n", stderr);
        return 2;
    }
    rfbClientLog = logNothing;
    const char* address = argv[1];
    int port = std::atoi(argv[2]);
    std::unique_ptr<SealedTunnel> tunnel;
    const auto link = zelvo::sealing::parseLink(argv[3]);
    if (const auto* found = std::get_if<zelvo::sealing::ShareLink>(&link)) {
        tunnel = std::make_unique<SealedTunnel>(address, port, *found);
        address = "127.0.0.1";
        port = tunnel->port();
    }
    BenchViewer viewer(address, port, std::string_view(argv[3]) == "tls", tunnel.get());
    return viewer.run();
}
