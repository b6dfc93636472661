#pragma once

#include <memory>
#include <string>

struct ssl_ctx_st;

namespace zelvo::serving {

/// Who a server is towards its clients: its certificate chain and key, TLS 1.2 or newer. Clients
/// that come again take up their session by a ticket, which costs the server no memory.
class TlsContext {
  public:
    /// Reads both PEM files. Null, with the reason in error, when they cannot be read or do not
    /// belong together.
    static std::shared_ptr<const TlsContext> read(const std::string& certificateFile,
                                                  const std::string& keyFile, std::string& error);

    ssl_ctx_st* get() const { return context_.get(); }

  private:
    struct Releaser {
        void operator()(ssl_ctx_st* context) const;
    };

    TlsContext() = default;
    bool set(const std::string& certificateFile, const std::string& keyFile, std::string& error);

    std::unique_ptr<ssl_ctx_st, Releaser> context_;
};

}  // namespace zelvo::serving
