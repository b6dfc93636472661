#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>
#include <utility>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::test {

/// A socket, on loopback where nothing else is said.
class Socket {
  public:
    explicit Socket(int family = AF_INET, int type = SOCK_STREAM)
        : descriptor_(::socket(family, type | SOCK_CLOEXEC, 0)) {}

    void setOnlyV6(int only) const {
        ::setsockopt(descriptor_.get(), IPPROTO_IPV6, IPV6_V6ONLY, &only, sizeof only);
    }
    /// Port 0 is one that the kernel picks. A socket of streams listens.
    Socket& bind(int port = 0, const char* address = "127.0.0.1") {
        const auto [storage, size] = make(port, address);
        EXPECT_EQ(::bind(descriptor_.get(), reinterpret_cast<const sockaddr*>(&storage), size), 0);
        ::listen(descriptor_.get(), 8);
        return *this;
    }
    bool connect(int port, const char* address = "127.0.0.1") const {
        const auto [storage, size] = make(port, address);
        return ::connect(descriptor_.get(), reinterpret_cast<const sockaddr*>(&storage), size) == 0;
    }
    /// Waits until somebody is there.
    Socket accept() const {
        return Socket(std::in_place, ::accept(descriptor_.get(), nullptr, nullptr));
    }
    void send(std::string_view text) const {
        ::send(descriptor_.get(), text.data(), text.size(), MSG_NOSIGNAL);
    }
    /// What has come so far; waits for the first of it.
    std::string receive() const {
        std::string text(4096, '\0');
        const auto size = ::recv(descriptor_.get(), text.data(), text.size(), 0);
        text.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
        return text;
    }
    void close() { descriptor_.reset(); }

    int descriptor() const { return descriptor_.get(); }
    int port() const {
        sockaddr_storage storage{};
        socklen_t size = sizeof storage;
        ::getsockname(descriptor_.get(), reinterpret_cast<sockaddr*>(&storage), &size);
        // The port lies at the same place in both families.
        return ntohs(reinterpret_cast<const sockaddr_in&>(storage).sin_port);
    }

  private:
    Socket(std::in_place_t, int descriptor) : descriptor_(descriptor) {}

    static std::pair<sockaddr_storage, socklen_t> make(int port, const char* address) {
        sockaddr_storage storage{};
        auto& v4 = reinterpret_cast<sockaddr_in&>(storage);
        auto& v6 = reinterpret_cast<sockaddr_in6&>(storage);
        v4.sin_port = htons(static_cast<std::uint16_t>(port));
        const bool isV4 = ::inet_pton(AF_INET, address, &v4.sin_addr) == 1;
        storage.ss_family = isV4 ? AF_INET : AF_INET6;
        if (!isV4)
            ::inet_pton(AF_INET6, address, &v6.sin6_addr);
        return {storage, isV4 ? sizeof v4 : sizeof v6};
    }

    platform::FileDescriptor descriptor_;
};

}  // namespace zelvo::test
