#pragma once

#include <QObject>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "platform/Viewers.h"
#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/screen_sharing/messages/GateMessage.h"

class QSocketNotifier;

namespace zelvo::platform {

class Log;

/// Where the screen server finds us, and what it tells. It ends with this connection, which no
/// child of ours inherits: when we end, in whatever way, so does it.
class ScreenServerLine : public Viewers {
  public:
    /// The name of the socket below its folder.
    static constexpr const char* socketName = "screen-sharing";

    /// Listens below the folder, which is made for nobody but us. Where that fails a line in the
    /// log says so, and no screen server will find us.
    ScreenServerLine(Log& log, const std::string& folder);
    ScreenServerLine(const ScreenServerLine&) = delete;
    ScreenServerLine& operator=(const ScreenServerLine&) = delete;
    /// Ends the screen server.
    ~ScreenServerLine() override;

    const Observable<std::vector<Viewer>>& inside() const override { return inside_; }
    const Observable<std::vector<Viewer>>& away() const override { return away_; }
    const Observable<std::optional<ViewerQuestion>>& question() const override { return question_; }
    const Observable<bool>& refusesEverybody() const override { return refusesEverybody_; }
    const Observable<bool>& admitsOnlyLinkHolders() const override {
        return admitsOnlyLinkHolders_;
    }
    const Observable<ViewerAbilities>& abilities() const override { return abilities_; }

    void answer(std::uint32_t viewer, ViewerAnswer answer) override;
    void setRights(std::uint32_t viewer, ViewerRights rights) override;
    void disconnect(std::uint32_t viewer) override;
    void disconnectEverybody() override;
    void setRefusesEverybody(bool refuses) override;
    void setAdmitsOnlyLinkHolders(bool only) override;
    void setQuestionShown(bool isShown) override;

    /// What the viewers' link is from now on, also for servers to come; without an identifier
    /// there is none. Those who came in by another one are cut.
    void setLink(const gate::Link& link);

    /// A connection to the server, which does not block, for somebody whom a relay saw come from
    /// that address, and of which the server has been told that. Empty where none listens.
    FileDescriptor connectRelayed(const std::string& origin);
    /// Whether a server is connected, which listens later than that.
    bool serverIsThere() const { return bool(server_); }
    /// Whether a server is connected and listens.
    bool serverListens() const { return port_ != 0; }
    /// Whether the connection to the server's port from this IPv4 address, in network order, and
    /// port is that of somebody who is inside.
    bool isInside(const gate::Peer& peer) const;
    /// Ends the server, and everybody's connection with it. The next one is welcome.
    void hangUp();

    /// The server has ended, by itself or by hangUp.
    std::function<void()> ended;
    /// The desktop asks the user whether the server may show it.
    std::function<void()> desktopAsks;
    /// The desktop does not show the screen any more, for which the server ends.
    std::function<void()> desktopWithdraws;

  private:
    bool listen(const std::string& folder);
    void accept();
    void receive();
    void handle(const gate::Message& message);
    void send(const gate::Message& message);
    void publishInside();
    void leave(const gate::Left& left);
    /// Also where they are gone, since who has lost the line may come back.
    bool isOfThisServer(std::uint32_t viewer) const {
        return viewer > firstNumber_ && viewer <= lastNumber_;
    }

    Log& log_;
    std::string path_;
    FileDescriptor listener_;
    std::unique_ptr<QSocketNotifier> newServer_;
    FileDescriptor server_;
    std::unique_ptr<QSocketNotifier> messages_;
    bool hasGreeted_ = false;
    std::uint16_t port_ = 0;

    /// Ordered by number, and so by arrival.
    std::map<std::uint32_t, std::pair<gate::Peer, Viewer>> viewers_;
    /// Numbers of this launch begin behind those of servers before.
    std::uint32_t firstNumber_ = 0;
    std::uint32_t lastNumber_ = 0;
    Observable<std::vector<Viewer>> inside_;
    Observable<std::vector<Viewer>> away_;
    Observable<std::optional<ViewerQuestion>> question_;
    Observable<bool> refusesEverybody_{false};
    Observable<bool> admitsOnlyLinkHolders_{false};
    gate::Link link_;
    Observable<ViewerAbilities> abilities_;
    bool isQuestionShown_ = false;
};

}  // namespace zelvo::platform
