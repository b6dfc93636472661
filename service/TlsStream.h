#pragma once

#include <httplib.h>

#include <chrono>
#include <cstddef>
#include <memory>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::service {

/// One client's TLS connection. All of it, from the handshake to the end of the reply, has one
/// deadline and one limit of bytes, however slowly or fast the client sends: the HTTP library's own
/// time-outs count from each byte anew. Used by one thread.
class TlsStream : public httplib::Stream {
  public:
    struct Bounds {
        std::chrono::steady_clock::time_point deadline;
        std::size_t bytes = 0;  ///< most that is read
        int stop = -1;          ///< descriptor that becomes readable when waiting has to end
    };

    TlsStream(SSL_CTX* context, platform::FileDescriptor socket, Bounds bounds);

    /// False when no TLS connection came about.
    bool handshake();
    /// Ends the connection so that a client that is still sending receives the reply.
    void finish();

    bool is_readable() const override { return !broken_; }
    bool is_writable() const override { return !broken_; }
    ssize_t read(char* to, size_t size) override;
    ssize_t write(const char* from, size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override { return socket_.get(); }

  private:
    struct Releaser {
        void operator()(SSL* ssl) const { SSL_free(ssl); }
    };

    template <typename Operation>
    int perform(Operation operation);
    bool waitFor(short events);

    platform::FileDescriptor socket_;
    Bounds bounds_;
    std::unique_ptr<SSL, Releaser> ssl_;
    bool broken_ = false;
};

}  // namespace zelvo::service
