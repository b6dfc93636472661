// What comes over the private socket, to Zelvo's end of it as to the server's; and the door, told
// in any order of everything that can happen there.

#include <sys/socket.h>
#include <sys/un.h>

#include <QCoreApplication>
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <span>
#include <string>

#include "platform/Log.h"
#include "platform/linux/screen_sharing/ScreenServerLine.h"
#include "server/gate/Doorkeeper.h"

using namespace zelvo;
using namespace zelvo::server;
namespace gate = zelvo::platform::gate;

namespace {

void check(bool holds) {
    if (!holds)
        std::abort();
}

struct Silence : platform::Log {
    void line(std::string_view) override {}
    void standardError(std::string_view) override {}
};

/// Zelvo's end, in a folder of its own, and a server that says what is fuzzed.
struct Line {
    Line() {
        std::string pattern = std::filesystem::temp_directory_path() / "zelvo-fuzz-XXXXXX";
        folder = ::mkdtemp(pattern.data());
        zelvo = std::make_unique<platform::ScreenServerLine>(silence, folder);
    }
    ~Line() {
        zelvo.reset();
        std::filesystem::remove_all(folder);
    }

    void hear(const std::vector<std::span<const std::uint8_t>>& packets) {
        platform::FileDescriptor server(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (folder + "/" + platform::ScreenServerLine::socketName).copy(address.sun_path, 100);
        check(::connect(server.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0);
        for (auto packet : packets)
            ::send(server.get(), packet.data(), packet.size(), MSG_NOSIGNAL);
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        // Whatever it was told, it takes a person's actions; and it is rid of a server that ends.
        if (auto question = zelvo->question().value())
            zelvo->answer(question->id, platform::ViewerAnswer::Watch);
        for (const auto& viewer : std::vector(zelvo->inside().value()))
            zelvo->disconnect(viewer.id);
        server.reset();
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        check(!zelvo->serverListens() && !zelvo->question().value() &&
              zelvo->inside().value().empty());
    }

    Silence silence;
    std::string folder;
    std::unique_ptr<platform::ScreenServerLine> zelvo;
};

void atTheDoor(std::span<const std::uint8_t> events) {
    const Doorkeeper::Limits limits{.atTheDoor = 6, .fromOneAddress = 3, .waiting = 2};
    Doorkeeper door(limits);
    std::set<ViewerId> present;
    std::set<ViewerId> ready;
    ViewerId last = 0;
    Time now{std::chrono::hours(1)};
    auto leave = [&](const auto& leaving) {
        for (const auto& [viewer, refusal] : leaving)
            check(present.erase(viewer) == 1);
    };
    for (auto event : events) {
        const ViewerId one = last - std::min<ViewerId>(event >> 3U & 7U, last);
        const auto asked = door.asked();
        now += std::chrono::seconds(event >> 6U);
        if (const auto kind = event & 7U; kind <= 1) {
            const auto arrival =
                door.arrive(++last, {10, 0, 0, std::uint8_t(event >> 3U & 3U)}, now);
            if (arrival.hasPlace)
                present.insert(last);
            check(!arrival.pushedOut || (arrival.hasPlace && !ready.contains(*arrival.pushedOut) &&
                                         present.erase(*arrival.pushedOut) == 1));
        } else if (kind == 2) {
            const auto proof = one % 3 == 0 ? Proof::Link : Proof::None;
            if (present.contains(one) && ready.insert(one).second && door.ready(one, proof, now))
                present.erase(one);
        } else if (kind == 3) {
            door.leave(one, now);
            present.erase(one);
        } else if (kind <= 5) {
            leave(door.answered(kind == 4, now));
            if (kind == 4 && asked)
                present.erase(*asked);
        } else if (kind == 6) {
            for (auto viewer : event & 16U ? door.refuseEverybody(event & 8U, now)
                                           : door.admitOnlyProven(event & 8U, now))
                check(present.erase(viewer) == 1);
        } else {
            now += std::chrono::seconds(event >> 3U);
            leave(door.overdue(now));
            check(door.nextDeadline() > now);
        }
        const auto all = door.everybodyAtTheDoor();
        check(std::equal(all.begin(), all.end(), present.begin(), present.end()));
        check(all.size() <= 2 * limits.atTheDoor && door.waiting() <= 2 * limits.waiting);
        check(!door.asked() || present.contains(*door.asked()));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static int argc = 0;
    static QCoreApplication application(argc, nullptr);
    static Line line;
    std::vector<std::span<const std::uint8_t>> packets;
    // Each begins with its length.
    for (std::span left(data, size); !left.empty();) {
        const auto length = std::min<std::size_t>(left[0], left.size() - 1);
        const auto packet = left.subspan(1, length);
        if (const auto message = gate::decode(std::as_bytes(packet))) {
            const auto again = gate::encode(*message);
            check(std::ranges::equal(again, std::as_bytes(packet)));
        }
        packets.push_back(packet);
        left = left.subspan(1 + length);
    }
    line.hear(packets);
    atTheDoor({data, size});
    return 0;
}
