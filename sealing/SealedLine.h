#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "sealing/SealedChannel.h"
#include "sealing/WebSocket.h"
#include "sealing/WebSocketHead.h"

namespace zelvo::sealing {

/// A sealed channel as it runs over a connection: bytes of the peer's in, bytes for the peer out,
/// from the GET on. No sockets and no clock; how long a handshake may take is up to who owns it.
class SealedLine {
  public:
    enum class State {
        /// Nothing is proven yet.
        Proving,
        /// The peer has the key: digits(), and for the host name(), are known.
        Open,
        /// One side said goodbye, sealed.
        Closed,
        Failed,
    };
    enum class Failure {
        None,
        /// Whoever is there opens no WebSocket of ours.
        NoUpgrade,
        /// It says by HTTP that it has too much to do.
        Busy,
        /// Its frames are none, or too large.
        BadFrames,
        /// The host does not know this link's key (opener), or the peer does not (host). To the
        /// opener it is the word of whoever sits on the wire: an end, but no proof of one.
        KeyRefused,
        Replayed,
        NotTheHost,
        BadOpening,
        BadRecord,
        /// It ended without a goodbye: the network died, or somebody cut it.
        Cut,
    };

    /// `replays` are those of the link, and outlive the line.
    static SealedLine host(const ChannelKey& key, ReplayCache& replays);
    /// `name` has to be a helper's name (isHelperName). Who was inside and was cut comes back by
    /// what channel().returnSecret() was last, once, within a minute.
    static SealedLine opener(const ChannelKey& key, std::string_view name,
                             const std::optional<ReturnSecret>& comesBackBy = {},
                             const RelayedHost* relayed = nullptr);

    State state() const;
    Failure failure() const;
    const SealedChannel& channel() const { return channel_; }
    /// The WebSocket is open.
    bool isUpgraded() const { return !head_; }

    /// The peer's next bytes.
    void receive(std::string_view bytes);
    /// The connection is at its end.
    void end();
    /// What is to be sent now. Empties it. Whatever the state is afterwards, this still goes out.
    std::string takeOutput();
    /// Once takeOutput() has gone out, there is nothing more to send or to wait for: hang up.
    bool isOver() const;

    /// The peer's word that it goes for good, as browsers give it for a page that is closed. Not
    /// sealed: it can have been said by whoever sits on the wire.
    bool peerGoesAway() const {
        return socket_.peersCode() == static_cast<std::uint16_t>(CloseCode::GoingAway);
    }

    std::string takeData() { return channel_.takeData(); }
    void send(std::string_view bytes);
    void tell(const Standing& standing);
    void giveReturnSecret(const ReturnSecret& secret);
    void confirmReturn(const ReturnSecret& secret);
    void sayGoodbye(Farewell reason);

  private:
    SealedLine(std::unique_ptr<WebSocketHead> head, WebSocket::Role role, SealedChannel channel)
        : head_(std::move(head)), socket_(role), channel_(std::move(channel)) {}

    void readMessages();
    void sendMessages();
    void fail(Failure failure);

    /// Null once it is through.
    std::unique_ptr<WebSocketHead> head_;
    WebSocket socket_;
    SealedChannel channel_;
    Failure failure_ = Failure::None;
    std::string output_;
};

}  // namespace zelvo::sealing
