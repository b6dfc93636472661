#include "serving/DoorBio.h"

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
    ssl_st* session;
    Door door;
    std::string bytes;  ///< the header so far, then what the session has not been given yet
    bool isHeaderOver = false;
    bool hasTurn = false;
};

Reading& readingOf(BIO* bio) {
    return *static_cast<Reading*>(BIO_get_data(bio));
}

/// 1 when the header has been read; else what a read says that has nothing.
int readHeader(BIO* bio, Reading& reading) {
    while (!reading.isHeaderOver) {
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
            !reading.door.heard(header.client ? &*header.client : nullptr))
            return -1;
        reading.bytes.erase(0, header.length);
        reading.isHeaderOver = true;
    }
    return 1;
}

/// Whether what has come may be read: in a handshake, once for all until it runs dry.
bool mayRead(BIO* bio, Reading& reading) {
    if (reading.hasTurn || SSL_is_init_finished(reading.session))
        return true;
    const auto word = reading.door.mayStep();
    reading.hasTurn = word == Door::Word::GoOn;
    if (word == Door::Word::Wait)
        BIO_set_retry_read(bio);
    return reading.hasTurn;
}

int readBio(BIO* bio, char* to, int size) {
    auto& reading = readingOf(bio);
    BIO_clear_retry_flags(bio);
    if (const int state = readHeader(bio, reading); state <= 0)
        return state;
    if (reading.bytes.empty()) {
        const int got = BIO_read(BIO_next(bio), to, size);
        if (got <= 0) {
            reading.hasTurn = false;
            BIO_copy_next_retry(bio);
            return got;
        }
        if (mayRead(bio, reading))
            return got;
        reading.bytes.assign(to, static_cast<std::size_t>(got));
        return -1;
    }
    if (!mayRead(bio, reading))
        return -1;
    const auto count = std::min(reading.bytes.size(), static_cast<std::size_t>(size));
    std::copy_n(reading.bytes.begin(), count, to);
    reading.bytes.erase(0, count);
    return static_cast<int>(count);
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
        auto* kind = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_FILTER, "door");
        BIO_meth_set_read(kind, readBio);
        BIO_meth_set_ctrl(kind, controlBio);
        BIO_meth_set_destroy(kind, destroyBio);
        return kind;
    }();
    return made;
}

}  // namespace

void putBefore(ssl_st* session, Door door) {
    auto* filter = BIO_new(method());
    auto* socket = SSL_get_rbio(session);
    if (!filter || !socket)
        return;
    const bool awaitsHeader = door.heard != nullptr;
    BIO_set_data(filter, new Reading{session, std::move(door), {}, !awaitsHeader});
    BIO_set_init(filter, 1);
    // The session lets go of the one that it has.
    BIO_up_ref(socket);
    SSL_set0_rbio(session, BIO_push(filter, socket));
}

}  // namespace zelvo::serving
