#include "sealing/CipherState.h"

#include <openssl/evp.h>

#include <array>

namespace zelvo::sealing {

namespace {

/// What every language that speaks this counts exactly.
constexpr std::uint64_t lastCount = (std::uint64_t{1} << 53) - 1;
/// Where the next key comes from; no record's.
constexpr std::uint64_t countOfNextKey = ~std::uint64_t{0};

using Nonce = std::array<unsigned char, 12>;

Nonce nonceOf(std::uint64_t count) {
    Nonce nonce{};
    for (std::size_t at = nonce.size(); at > 4; count >>= 8)
        nonce[--at] = static_cast<unsigned char>(count);
    return nonce;
}

}  // namespace

void CipherState::Free::operator()(evp_cipher_ctx_st* context) const {
    EVP_CIPHER_CTX_free(context);
}

CipherState::CipherState(const Key& key) : key_(key) {}

bool CipherState::begin(Direction direction, std::string_view associated) {
    const bool seals = direction == Direction::Sealing;
    const auto nonce = nonceOf(count_);
    if (count_ > lastCount && count_ != countOfNextKey)
        return false;
    if (direction_ == Direction::None) {
        context_.reset(EVP_CIPHER_CTX_new());
        if (!context_ || EVP_CipherInit_ex(context_.get(), EVP_aes_256_gcm(), nullptr,
                                           key_.bytes().data(), nonce.data(), seals) != 1)
            return false;
        direction_ = direction;
    } else if (direction_ != direction || EVP_CipherInit_ex(context_.get(), nullptr, nullptr,
                                                            nullptr, nonce.data(), seals) != 1) {
        return false;
    }
    int size = 0;
    return associated.empty() ||
           EVP_CipherUpdate(context_.get(), nullptr, &size,
                            reinterpret_cast<const unsigned char*>(associated.data()),
                            static_cast<int>(associated.size())) == 1;
}

bool CipherState::seal(std::string_view associated, std::string_view plain, std::string& to) {
    const auto before = to.size();
    to.resize(before + plain.size() + tagSize);
    auto* out = reinterpret_cast<unsigned char*>(to.data()) + before;
    int size = 0;
    if (!begin(Direction::Sealing, associated) ||
        EVP_CipherUpdate(context_.get(), out, &size,
                         reinterpret_cast<const unsigned char*>(plain.data()),
                         static_cast<int>(plain.size())) != 1 ||
        EVP_CipherFinal_ex(context_.get(), out + plain.size(), &size) != 1 ||
        EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_GCM_GET_TAG, tagSize, out + plain.size()) !=
            1) {
        to.resize(before);
        return false;
    }
    countOn();
    return true;
}

bool CipherState::open(std::string_view associated, std::string_view sealed, std::string& to) {
    if (sealed.size() < tagSize)
        return false;
    std::array<unsigned char, tagSize> tag;
    sealed.copy(reinterpret_cast<char*>(tag.data()), tagSize, sealed.size() - tagSize);
    sealed.remove_suffix(tagSize);
    const auto before = to.size();
    to.resize(before + sealed.size());
    auto* out = reinterpret_cast<unsigned char*>(to.data()) + before;
    int size = 0;
    if (!begin(Direction::Opening, associated) ||
        EVP_CipherUpdate(context_.get(), out, &size,
                         reinterpret_cast<const unsigned char*>(sealed.data()),
                         static_cast<int>(sealed.size())) != 1 ||
        EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_GCM_SET_TAG, tagSize, tag.data()) != 1 ||
        EVP_CipherFinal_ex(context_.get(), out + sealed.size(), &size) != 1) {
        // What is not proven is not shown to anybody.
        wipe({out, sealed.size()});
        to.resize(before);
        return false;
    }
    countOn();
    return true;
}

void CipherState::countOn() {
    if (count_ != countOfNextKey && ++count_ % recordsBetweenKeys == 0)
        changeKey();
}

void CipherState::changeKey() {
    // The key's own ciphertext of zeros.
    CipherState last(key_);
    last.count_ = countOfNextKey;
    const std::string zeros(Key::size, '\0');
    std::string next;
    if (last.seal({}, zeros, next))
        next.copy(reinterpret_cast<char*>(key_.bytes().data()), Key::size);
    else
        count_ = lastCount + 1;
    wipe({reinterpret_cast<unsigned char*>(next.data()), next.size()});
    direction_ = Direction::None;
}

}  // namespace zelvo::sealing
