#include "serving/ProxyBio.h"

#include <openssl/bio.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <utility>

#include "serving/ProxyHeader.h"

namespace zelvo::serving {
namespace {

struct Reading {
    std::function<bool(const ClientAddress*)> heard;
    std::string bytes;  ///< the header so far, then what came with it
    bool isOver = false;
};

Reading& readingOf(BIO* bio) {
    return *static_cast<Reading*>(BIO_get_data(bio));
}

/// 1 when the header has been read; else what a read says that has nothing.
int readHeader(BIO* bio, Reading& reading) {
    while (!reading.isOver) {
        std::array<char, ProxyHeader::Longest> part{};
        const int got = BIO_read(BIO_next(bio), part.data(), part.size());
        if (got <= 0) {
            BIO_copy_next_retry(bio);
            return got;
        }
        reading.bytes.append(part.data(), static_cast<std::size_t>(got));
        const auto header = ProxyHeader::read(reading.bytes);
        if (header.state == ProxyHeader::State::Incomplete)
            continue;
        if (header.state == ProxyHeader::State::Malformed ||
            !reading.heard(header.client ? &*header.client : nullptr))
            return -1;
        reading.bytes.erase(0, header.length);
        reading.isOver = true;
    }
    return 1;
}

int readBio(BIO* bio, char* to, int size) {
    auto& reading = readingOf(bio);
    BIO_clear_retry_flags(bio);
    if (const int state = readHeader(bio, reading); state <= 0)
        return state;
    if (!reading.bytes.empty()) {
        const auto count = std::min(reading.bytes.size(), static_cast<std::size_t>(size));
        std::copy_n(reading.bytes.begin(), count, to);
        reading.bytes.erase(0, count);
        return static_cast<int>(count);
    }
    const int got = BIO_read(BIO_next(bio), to, size);
    BIO_copy_next_retry(bio);
    return got;
}

long controlBio(BIO* bio, int command, long number, void* pointer) {
    return BIO_ctrl(BIO_next(bio), command, number, pointer);
}

int destroyBio(BIO* bio) {
    delete static_cast<Reading*>(BIO_get_data(bio));
    return 1;
}

BIO_METHOD* method() {
    static BIO_METHOD* const made = [] {
        auto* kind = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_FILTER, "proxy header");
        BIO_meth_set_read(kind, readBio);
        BIO_meth_set_ctrl(kind, controlBio);
        BIO_meth_set_destroy(kind, destroyBio);
        return kind;
    }();
    return made;
}

}  // namespace

void expectProxyHeader(ssl_st* session, std::function<bool(const ClientAddress*)> heard) {
    auto* filter = BIO_new(method());
    auto* socket = SSL_get_rbio(session);
    if (!filter || !socket)
        return;
    BIO_set_data(filter, new Reading{std::move(heard), {}});
    BIO_set_init(filter, 1);
    // The session lets go of the one that it has.
    BIO_up_ref(socket);
    SSL_set0_rbio(session, BIO_push(filter, socket));
}

}  // namespace zelvo::serving
