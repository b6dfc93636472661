#include "platform/linux/screen_sharing/ScreenServerLine.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <array>
#include <cerrno>
#include <cstring>
#include <variant>

#include "platform/Log.h"

namespace zelvo::platform {

namespace {

std::string text(const gate::Peer& peer) {
    std::string address;
    for (auto part : peer.address)
        address += (address.empty() ? "" : ".") + std::to_string(part);
    return address;
}

/// That of a relayed viewer's own, not that of the socket by which we bring them in.
template <typename Message>
std::string shownAddress(const Message& message) {
    return message.origin.empty() ? text(message.peer) : message.origin;
}

ViewerRights rightsOf(gate::Rights rights) {
    return rights == gate::Rights::Control ? ViewerRights::Control : ViewerRights::Watch;
}

/// One packet and one byte more, by which a longer one shows.
using Packet = std::array<std::byte, gate::longestMessage + 1>;

}  // namespace

ScreenServerLine::ScreenServerLine(Log& log, const std::string& folder) : log_(log) {
    if (folder.empty() || !listen(folder))
        log_.line("Screen Sharing: no socket in \"" + folder + "\": " + std::strerror(errno));
}

ScreenServerLine::~ScreenServerLine() {
    ended = nullptr;
    if (listener_)
        ::unlink(path_.c_str());
}

bool ScreenServerLine::listen(const std::string& folder) {
    struct stat status {};
    // Nobody else may look in, nor have made it.
    if ((::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) ||
        ::lstat(folder.c_str(), &status) != 0)
        return false;
    if (!S_ISDIR(status.st_mode) || status.st_uid != ::geteuid() || (status.st_mode & 077) != 0) {
        errno = EPERM;
        return false;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    auto path = folder + "/" + socketName;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    path.copy(address.sun_path, path.size());
    // One Zelvo a user: what lies there is left from one that was killed.
    ::unlink(path.c_str());
    FileDescriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket ||
        ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(socket.get(), 1) != 0)
        return false;
    path_ = path;
    listener_ = std::move(socket);
    newServer_ = std::make_unique<QSocketNotifier>(listener_.get(), QSocketNotifier::Read);
    QObject::connect(newServer_.get(), &QSocketNotifier::activated, newServer_.get(),
                     [this] { accept(); });
    return true;
}

void ScreenServerLine::accept() {
    FileDescriptor socket(
        ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    ucred peer{};
    socklen_t size = sizeof peer;
    // One server at a time; a second one would be told nothing, and ends.
    if (!socket || server_ ||
        ::getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 ||
        peer.uid != ::geteuid())
        return;
    server_ = std::move(socket);
    hasGreeted_ = false;
    firstNumber_ = lastNumber_;
    messages_ = std::make_unique<QSocketNotifier>(server_.get(), QSocketNotifier::Read);
    QObject::connect(messages_.get(), &QSocketNotifier::activated, messages_.get(),
                     [this] { receive(); });
    send(gate::Hello{});
    if (refusesEverybody_.value())
        send(gate::RefuseEverybody{true});
    if (admitsOnlyLinkHolders_.value())
        send(gate::AdmitOnlyLinkHolders{true});
    if (!link_.identifier.empty())
        send(link_);
}

void ScreenServerLine::receive() {
    while (server_) {
        Packet packet;
        const auto size = ::recv(server_.get(), packet.data(), packet.size(), 0);
        if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR))
            return;
        auto message = size > 0
                           ? gate::decode(std::span(packet).first(static_cast<std::size_t>(size)))
                           : std::nullopt;
        if (!message) {
            if (size > 0)
                log_.line("Screen Sharing: the server says what we do not know.");
            return hangUp();
        }
        handle(*message);
    }
}

void ScreenServerLine::handle(const gate::Message& message) {
    if (!std::exchange(hasGreeted_, true)) {
        if (!std::holds_alternative<gate::Hello>(message))
            hangUp();
        return;
    }
    if (const auto* listening = std::get_if<gate::Listening>(&message)) {
        port_ = listening->port;
        abilities_.set({listening->takesInput, listening->offersInput, listening->hasClipboard});
    } else if (std::holds_alternative<gate::DesktopAsks>(message)) {
        if (desktopAsks)
            desktopAsks();
    } else if (std::holds_alternative<gate::DesktopWithdraws>(message)) {
        if (desktopWithdraws)
            desktopWithdraws();
    } else if (const auto* asked = std::get_if<gate::Question>(&message)) {
        lastNumber_ = std::max(lastNumber_, firstNumber_ + asked->viewer);
        question_.set(ViewerQuestion{
            firstNumber_ + asked->viewer, shownAddress(*asked), asked->isEncrypted,
            std::chrono::steady_clock::now() + std::chrono::seconds(asked->secondsLeft),
            asked->waiting, asked->name, asked->digits, !asked->origin.empty()});
    } else if (const auto* over = std::get_if<gate::QuestionOver>(&message)) {
        if (question_.value() && question_.value()->id == firstNumber_ + over->viewer)
            question_.set(std::nullopt);
    } else if (const auto* entered = std::get_if<gate::Inside>(&message)) {
        const auto id = firstNumber_ + entered->viewer;
        lastNumber_ = std::max(lastNumber_, id);
        auto known = viewers_.find(id);
        if (known == viewers_.end())
            viewers_[id] = {entered->peer,
                            {.id = id,
                             .address = shownAddress(*entered),
                             .isEncrypted = entered->isEncrypted,
                             .rights = rightsOf(entered->rights),
                             .since = std::chrono::system_clock::now(),
                             .name = entered->name,
                             .digits = entered->digits,
                             .isRelayed = !entered->origin.empty()}};
        else
            known->second.second.rights = rightsOf(entered->rights);
        // The answer has been given; nobody is asked about twice.
        if (question_.value() && question_.value()->id == id)
            question_.set(std::nullopt);
        publishInside();
    } else if (const auto* left = std::get_if<gate::Left>(&message)) {
        leave(*left);
    }
}

void ScreenServerLine::leave(const gate::Left& left) {
    const auto id = firstNumber_ + left.viewer;
    const auto entry = viewers_.extract(id);
    auto away = away_.value();
    std::erase_if(away, [id](const Viewer& viewer) { return viewer.id == id; });
    if (entry && left.mayReturn)
        away.push_back(entry.mapped().second);
    if (away != away_.value())
        away_.set(std::move(away));
    if (entry)
        publishInside();
}

void ScreenServerLine::publishInside() {
    std::vector<Viewer> all;
    for (const auto& [id, entry] : viewers_)
        all.push_back(entry.second);
    inside_.set(std::move(all));
}

void ScreenServerLine::hangUp() {
    if (!server_)
        return;
    // Called from within what this destroys.
    messages_->setEnabled(false);
    messages_.release()->deleteLater();
    server_.reset();
    port_ = 0;
    abilities_.set({});
    isQuestionShown_ = false;
    viewers_.clear();
    if (!away_.value().empty())
        away_.set({});
    if (question_.value())
        question_.set(std::nullopt);
    if (!inside_.value().empty())
        publishInside();
    if (ended)
        ended();
}

void ScreenServerLine::send(const gate::Message& message) {
    if (!server_)
        return;
    auto bytes = gate::encode(message);
    const auto sent = ::send(server_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    gate::wipe(bytes);
    // A server that takes nothing is stopped or worse, and lets nobody in either.
    if (sent < 0)
        hangUp();
}

bool ScreenServerLine::isInside(const gate::Peer& peer) const {
    for (const auto& [id, entry] : viewers_) {
        if (entry.first == peer)
            return true;
    }
    return false;
}

void ScreenServerLine::answer(std::uint32_t viewer, ViewerAnswer answer) {
    if (!question_.value() || question_.value()->id != viewer)
        return;
    const auto word = answer == ViewerAnswer::Control ? gate::Answer::Control
                      : answer == ViewerAnswer::Watch ? gate::Answer::Watch
                                                      : gate::Answer::Refuse;
    send(gate::Reply{viewer - firstNumber_, word});
}

void ScreenServerLine::setRights(std::uint32_t viewer, ViewerRights rights) {
    if (isOfThisServer(viewer))
        send(gate::SetRights{viewer - firstNumber_, rights == ViewerRights::Control
                                                        ? gate::Rights::Control
                                                        : gate::Rights::Watch});
}

void ScreenServerLine::disconnect(std::uint32_t viewer) {
    if (isOfThisServer(viewer))
        send(gate::Disconnect{viewer - firstNumber_});
}

void ScreenServerLine::disconnectEverybody() {
    send(gate::Disconnect{gate::everybody});
}

void ScreenServerLine::setRefusesEverybody(bool refuses) {
    send(gate::RefuseEverybody{refuses});
    refusesEverybody_.set(refuses);
}

void ScreenServerLine::setAdmitsOnlyLinkHolders(bool only) {
    send(gate::AdmitOnlyLinkHolders{only});
    admitsOnlyLinkHolders_.set(only);
}

void ScreenServerLine::setLink(const gate::Link& link) {
    if (link == link_)
        return;
    link_ = link;
    send(link_);
}

FileDescriptor ScreenServerLine::connectRelayed(const std::string& origin) {
    FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    std::memcpy(&address.sin_addr, gate::relayedAddress.data(), gate::relayedAddress.size());
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    if (port_ == 0 || !socket || ::bind(socket.get(), any, size) != 0 ||
        ::getsockname(socket.get(), any, &size) != 0)
        return {};
    send(gate::Relayed{ntohs(address.sin_port), origin});
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port_);
    if (::connect(socket.get(), any, sizeof address) != 0 && errno != EINPROGRESS)
        return {};
    const int on = 1;
    ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return socket;
}

void ScreenServerLine::setQuestionShown(bool isShown) {
    if (std::exchange(isQuestionShown_, isShown) != isShown)
        send(gate::QuestionShown{isShown});
}

}  // namespace zelvo::platform
