#include "sealing/NoiseHandshake.h"

#include <utility>

#include "sealing/Primitives.h"

namespace zelvo::sealing {

namespace {

/// Exactly as long as a hash, and so the first of them as it is.
constexpr std::string_view protocolName = "Noise_NNpsk0_25519_AESGCM_SHA256";
static_assert(protocolName.size() == hashSize);

template <std::size_t Size>
Key part(const Secret<Size>& secret, std::size_t at) {
    Key key;
    secret.view().copy(reinterpret_cast<char*>(key.bytes().data()), Key::size, at * Key::size);
    return key;
}

}  // namespace

NoiseHandshake::NoiseHandshake(Role role, std::string_view prologue, const Key& preShared,
                               const Key& ephemeral)
    : role_(role), ephemeral_(ephemeral), hash_(protocolName) {
    protocolName.copy(reinterpret_cast<char*>(chainingKey_.bytes().data()), Key::size);
    mixHash(prologue);
    mixKeyAndHash(preShared.view());
}

bool NoiseHandshake::isOurTurn() const {
    return step_ == (role_ == Role::Initiator ? Step::First : Step::Second);
}

std::optional<std::string> NoiseHandshake::write(std::string_view payload) {
    if (!isOurTurn())
        return std::nullopt;
    auto message = publicHalf(ephemeral_);
    mixHash(message);
    // With a key that was shared before, the public halves go into the keys, too.
    mixKey(message);
    if ((step_ == Step::Second && !mixAgreement()) || !cipher_->seal(hash_, payload, message)) {
        step_ = Step::Failed;
        return std::nullopt;
    }
    mixHash(std::string_view(message).substr(publicKeySize));
    step_ = step_ == Step::First ? Step::Second : Step::Done;
    return message;
}

std::optional<std::string> NoiseHandshake::read(std::string_view message) {
    const bool isExpected = !isOurTurn() && (step_ == Step::First || step_ == Step::Second);
    const auto step = std::exchange(step_, Step::Failed);
    if (!isExpected || message.size() < publicKeySize + tagSize)
        return std::nullopt;
    peersHalf_ = message.substr(0, publicKeySize);
    const auto sealed = message.substr(publicKeySize);
    mixHash(peersHalf_);
    mixKey(peersHalf_);
    std::string payload;
    if ((step == Step::Second && !mixAgreement()) || !cipher_->open(hash_, sealed, payload))
        return std::nullopt;
    mixHash(sealed);
    step_ = step == Step::First ? Step::Second : Step::Done;
    return payload;
}

std::optional<NoiseHandshake::Transport> NoiseHandshake::split() {
    if (std::exchange(step_, Step::Failed) != Step::Done)
        return std::nullopt;
    Secret<2 * Key::size> keys;
    hkdf(chainingKey_.view(), {}, {}, keys.bytes());
    const bool initiates = role_ == Role::Initiator;
    Transport transport{CipherState(part(keys, initiates ? 0 : 1)),
                        CipherState(part(keys, initiates ? 1 : 0)), hash_};
    // What was recorded on the way must stay closed whatever becomes known later.
    ephemeral_ = {};
    chainingKey_ = {};
    cipher_.reset();
    return transport;
}

void NoiseHandshake::mixHash(std::string_view bytes) {
    hash_ += bytes;
    hash_ = sha256(hash_);
}

void NoiseHandshake::mixKey(std::string_view secret) {
    Secret<2 * Key::size> keys;
    hkdf(chainingKey_.view(), secret, {}, keys.bytes());
    chainingKey_ = part(keys, 0);
    cipher_.emplace(part(keys, 1));
}

void NoiseHandshake::mixKeyAndHash(std::string_view secret) {
    Secret<3 * Key::size> keys;
    hkdf(chainingKey_.view(), secret, {}, keys.bytes());
    chainingKey_ = part(keys, 0);
    mixHash(part(keys, 1).view());
    cipher_.emplace(part(keys, 2));
}

bool NoiseHandshake::mixAgreement() {
    Key agreed;
    if (!agree(ephemeral_, peersHalf_, agreed))
        return false;
    mixKey(agreed.view());
    return true;
}

}  // namespace zelvo::sealing
