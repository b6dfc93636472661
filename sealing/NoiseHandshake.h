#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "sealing/CipherState.h"
#include "sealing/Secret.h"

namespace zelvo::sealing {

/// The handshake Noise_NNpsk0_25519_AESGCM_SHA256 (revision 34 of the Noise framework): the
/// initiator's message, then the responder's, and then a key for each direction.
class NoiseHandshake {
  public:
    enum class Role { Initiator, Responder };

    /// `ephemeral` is this side's private key for this handshake alone.
    NoiseHandshake(Role role, std::string_view prologue, const Key& preShared,
                   const Key& ephemeral);

    /// This side's message with that in it. The initiator's first, the responder's once it has
    /// read.
    std::optional<std::string> write(std::string_view payload);
    /// What the peer's message holds; none where it was not made with our key, prologue and what
    /// was said before. The handshake is then over for good.
    std::optional<std::string> read(std::string_view message);

    struct Transport {
        CipherState sends, receives;
        /// The same on both sides, and no two handshakes'.
        std::string hash;
    };
    /// Once both messages are through; once.
    std::optional<Transport> split();

  private:
    enum class Step { First, Second, Done, Failed };

    bool isOurTurn() const;
    void mixHash(std::string_view bytes);
    void mixKey(std::string_view secret);
    void mixKeyAndHash(std::string_view secret);
    bool mixAgreement();

    Role role_;
    Step step_ = Step::First;
    Key ephemeral_;
    std::string peersHalf_;
    Key chainingKey_;
    std::string hash_;
    std::optional<CipherState> cipher_;
};

}  // namespace zelvo::sealing
