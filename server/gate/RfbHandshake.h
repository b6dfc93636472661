#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace zelvo::server {

/// The server's side of the RFB handshake up to and including security (RFC 6143, section 7.1), for
/// versions 3.3, 3.7 and 3.8: security None (type 1), and VeNCrypt (type 19) with anonymous TLS and
/// nothing more (subtype TLSNone, 257), which is offered first. Bytes in, bytes out; no sockets.
///
/// It stops where the viewer has to be let in: nothing of what follows is read here.
class RfbHandshake {
  public:
    enum class State {
        Talking,
        /// What was said so far goes out in clear; then the server's side of TLS is begun, and
        /// tlsIsUp() tells of its end.
        WantsTls,
        /// The viewer waits for an answer.
        Done,
        /// What the viewer said is no RFB, or nothing that we speak.
        Failed,
    };

    RfbHandshake();

    State state() const { return state_; }
    /// How many bytes of the viewer's to read next, so that none is read that is not ours; 0 unless
    /// talking.
    std::size_t wanted() const;
    /// Takes the viewer's bytes, no more than were wanted.
    void receive(std::string_view bytes);
    void tlsIsUp();

    /// What is to be sent now. Empties it.
    std::string takeOutput() { return std::exchange(output_, {}); }

    /// Once done: what lets the viewer in. The next from either side is ClientInit.
    std::string admission() const;
    /// What sends the viewer away, with the reason where its version and the moment carry one;
    /// else empty. In UTF-8.
    std::string refusal(std::string_view reason) const;

  private:
    enum class Awaited { Version, SecurityType, VencryptVersion, VencryptSubtype, Nothing };

    std::size_t awaitedSize() const;
    void answer(std::string_view message);
    void versionArrived(std::string_view message);
    void finish();
    void fail() { state_ = State::Failed; }

    State state_ = State::Talking;
    Awaited awaited_ = Awaited::Version;
    /// 3, 7 or 8; 0 before the viewer named one.
    int minor_ = 0;
    std::string input_;
    std::string output_;
};

}  // namespace zelvo::server
