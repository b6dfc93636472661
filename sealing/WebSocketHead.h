#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace zelvo::sealing {

struct HttpHead;

/// A host that is reached through a relay.
struct RelayedHost {
    /// As it stands in a link's facts: with a port where it is not 443.
    std::string relay;
    int number = 0;
};

/// The HTTP exchange that opens a WebSocket (RFC 6455, section 4), as one of its sides reads it.
class WebSocketHead {
  public:
    static constexpr std::size_t longest = 4096;
    static constexpr std::string_view protocol = "zelvo.1";

    enum class State { Reading, Done, Failed };

    virtual ~WebSocketHead() = default;

    State state() const { return state_; }
    /// Of Failed: the other side says that it may be asked again soon.
    virtual bool isBusy() const { return false; }
    /// Takes from the front what is the head's; what is left belongs to the frames.
    void receive(std::string_view& bytes);
    /// What is to be sent now. Empties it.
    std::string takeOutput() { return std::exchange(output_, {}); }

  private:
    /// Whether what came so far may be the beginning of one of ours; may drop what stands before
    /// it.
    virtual bool mayBegin(std::string& input) = 0;
    virtual bool isAccepted(const HttpHead& head, std::string& output) = 0;

    State state_ = State::Reading;
    std::string input_;

  protected:
    std::string output_;
};

/// The host's side. It answers with 101, or with an error and nothing more.
class UpgradeRequestReader final : public WebSocketHead {
  private:
    bool mayBegin(std::string& input) override;
    bool isAccepted(const HttpHead& head, std::string& output) override;
};

/// The opener's side; its request is there at once. A server that took it for a viewer and greeted
/// it first is forgiven: exactly the 12 bytes of RFB's greeting are skipped, once.
class UpgradeReplyReader final : public WebSocketHead {
  public:
    explicit UpgradeReplyReader(const std::array<unsigned char, 16>& nonce,
                                const RelayedHost* host = nullptr);
    static std::array<unsigned char, 16> freshNonce();
    bool isBusy() const override { return isBusy_; }

  private:
    bool mayBegin(std::string& input) override;
    bool isAccepted(const HttpHead& head, std::string& output) override;

    std::string nonce_;
    bool wasGreeted_ = false;
    bool isBusy_ = false;
};

/// Whether who says this first may be asking for a sealed channel; RFB viewers say something else.
bool mayAskForUpgrade(std::string_view first);

}  // namespace zelvo::sealing
