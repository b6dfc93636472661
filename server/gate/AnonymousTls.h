#pragma once

#include <memory>
#include <string>

struct ssl_ctx_st;

namespace zelvo::server {

/// What anonymous TLS needs: no certificate, keys agreed anew for each viewer (ADH and AECDH of RFC
/// 5246 and RFC 8422), so that nobody who only listens can read along. TLS 1.2, the last version
/// that has it. One for all viewers.
class AnonymousTls {
  public:
    AnonymousTls();

    /// Null where this machine's TLS library has no anonymous ciphers.
    ssl_ctx_st* context() const { return context_.get(); }

  private:
    struct Free {
        void operator()(ssl_ctx_st* context) const;
    };
    std::unique_ptr<ssl_ctx_st, Free> context_;
};

}  // namespace zelvo::server
