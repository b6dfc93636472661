#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "sealing/Secret.h"

struct evp_cipher_ctx_st;

namespace zelvo::sealing {

inline constexpr std::size_t tagSize = 16;

/// One direction under one key: Noise's CipherState with AES-256-GCM. It either seals or opens.
class CipherState {
  public:
    /// Whoever sealed so many records under a key changes it (Noise's REKEY); the count goes on.
    static constexpr std::uint64_t recordsBetweenKeys = 65536;

    explicit CipherState(const Key& key);

    /// Appends what is sealed; false where no more may be.
    bool seal(std::string_view associated, std::string_view plain, std::string& to);
    /// Appends what was sealed; false, and nothing appended, where it is not what the peer sealed
    /// with this key at this place.
    bool open(std::string_view associated, std::string_view sealed, std::string& to);

  private:
    enum class Direction { None, Opening, Sealing };

    bool begin(Direction direction, std::string_view associated);
    void countOn();
    void changeKey();

    struct Free {
        void operator()(evp_cipher_ctx_st* context) const;
    };

    Key key_;
    std::unique_ptr<evp_cipher_ctx_st, Free> context_;
    Direction direction_ = Direction::None;
    std::uint64_t count_ = 0;
};

}  // namespace zelvo::sealing
