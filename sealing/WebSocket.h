#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace zelvo::sealing {

/// Codes of a close frame (RFC 6455, section 7.4), as far as we send them.
enum class CloseCode : std::uint16_t {
    Normal = 1000,
    GoingAway = 1001,
    ProtocolError = 1002,
    NotBinary = 1003,
    TooBig = 1009,
    /// What was said first was not made with this link's key, or was said before.
    KeyRefused = 4001,
    /// What came later was not sealed by who began, or says nothing that it may.
    Broken = 4002,
};

/// The frames of a WebSocket (RFC 6455, section 5) once it is open: whole binary messages in and
/// out. Pings are answered; a server accepts masked frames only, a client only unmasked ones.
class WebSocket {
  public:
    enum class Role { Server, Client };
    enum class State {
        Open,
        /// We have closed; the peer has not answered yet. Nothing is read but its answer.
        Closing,
        Closed,
        /// What came was no such thing. The peer is told why, and not listened to any more.
        Failed,
    };
    static constexpr std::size_t longestControl = 125;

    explicit WebSocket(Role role) : role_(role) {}

    State state() const { return state_; }
    /// The peer's code; none where it gave none, or did not close.
    std::optional<std::uint16_t> peersCode() const { return peersCode_; }

    /// Messages of more bytes end it. Holds from the next frame on.
    void setLongest(std::size_t size) { longest_ = size; }
    void receive(std::string_view bytes);
    /// The next whole message, if there is one.
    std::optional<std::string> next();

    void send(std::string_view message);
    void close(CloseCode code);
    /// What is to be sent now. Empties it.
    std::string takeOutput();

  private:
    struct Header;

    bool readHeader();
    std::optional<CloseCode> faultOf(const Header& header) const;
    void readPayload();
    void frameIsWhole();
    void peerCloses();
    void fail(CloseCode code);
    void sendFrame(std::uint8_t opcode, std::string_view payload);

    Role role_;
    State state_ = State::Open;
    std::size_t longest_ = longestControl;
    std::optional<std::uint16_t> peersCode_;

    std::string input_;
    std::size_t read_ = 0;

    bool inFrame_ = false;
    bool isFinal_ = false;
    std::uint8_t opcode_ = 0;
    std::size_t left_ = 0;
    std::array<char, 4> mask_{};
    std::size_t maskAt_ = 0;

    bool inMessage_ = false;
    bool isWhole_ = false;
    std::string message_;
    std::string control_;

    std::string output_;
    /// The last ping that came is the one to answer: who pings without reading costs one answer.
    std::optional<std::string> pong_;
};

}  // namespace zelvo::sealing
