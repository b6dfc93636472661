#pragma once

#include <event2/event_struct.h>

#include <cstddef>
#include <memory>
#include <span>
#include <string_view>

#include "platform/linux/base/FileDescriptor.h"
#include "serving/ClientAddress.h"
#include "serving/DoorBio.h"
#include "serving/Turns.h"

struct ssl_st;

namespace zelvo::serving {
class LoopThread;
}

namespace zelvo::relay {

struct RelayShared;

/// A client's connection: TLS on a socket that never waits, without a buffer of its own, so that
/// what a peer does not take is left with the other one's kernel. On one loop at a time.
class Connection final : serving::Turns::Guest {
  public:
    enum class Outcome {
        Done,
        Again,  ///< when the socket is ready
        Ended,
    };

    /// Whose it is for the time being.
    class User {
      public:
        virtual ~User() = default;
        /// Something that was waited for may be possible. May end the connection.
        virtual void onReady(Connection& connection, bool canRead, bool canWrite) = 0;
    };

    /// Takes the socket. Null when there is no TLS session to be had.
    static std::unique_ptr<Connection> accept(RelayShared& shared, platform::FileDescriptor socket);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    /// From now on it is that user's, on that loop.
    void attach(serving::LoopThread& loop, User& user);
    /// Waits for nothing any more, and is free for another loop.
    void detach();
    void waitFor(bool reading, bool writing);

    Outcome handshake();
    Outcome read(std::span<char> into, std::size_t& got);
    /// After Again the same bytes have to come again.
    Outcome write(std::string_view bytes, std::size_t& sent);
    /// Between the two, what is written may wait in the kernel for more, which saves most of a
    /// packet's price.
    void holdBack(bool isOn);
    /// Somebody looks at what comes from here: a peer that is gone without a word is noticed within
    /// twenty seconds, not two minutes: who was inside may come back unasked only for a minute.
    void beginCarrying();
    /// Says that nothing more comes.
    void sayEnd();

    /// Known from the handshake's end on.
    const serving::ClientAddress& client() const { return client_; }

  private:
    Connection(RelayShared& shared, platform::FileDescriptor socket, ssl_st* session);
    static void ready(int, short what, void* self);
    bool admit(const serving::ClientAddress& client);
    serving::Door::Word mayStep();
    void onTurn() override;
    Outcome outcomeOf(int result);

    RelayShared& shared_;
    platform::FileDescriptor socket_;
    ssl_st* session_;
    event event_{};
    short awaited_ = 0;
    bool wantsToWrite_ = false;  ///< the session does, to go on with what it was asked for
    serving::LoopThread* loop_ = nullptr;
    User* user_ = nullptr;
    serving::ClientAddress client_;
    bool hasShare_ = false;
};

}  // namespace zelvo::relay
