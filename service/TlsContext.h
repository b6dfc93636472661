#pragma once

#include <memory>
#include <string>

struct ssl_ctx_st;

namespace zelvo::service {

/// Who the service is towards its clients: its certificate chain and key, TLS 1.2 or newer.
class TlsContext {
  public:
    /// Reads both PEM files. An invalid context, with the reason in error, when they cannot be
    /// read or do not belong together.
    TlsContext(const std::string& certificateFile, const std::string& keyFile, std::string& error);

    bool isValid() const { return context_ != nullptr; }
    ssl_ctx_st* get() const { return context_.get(); }

  private:
    struct Releaser {
        void operator()(ssl_ctx_st* context) const;
    };
    std::unique_ptr<ssl_ctx_st, Releaser> context_;
};

}  // namespace zelvo::service
