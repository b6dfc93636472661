#pragma once

#include <QByteArray>
#include <chrono>

namespace zelvo::platform {

/// A connection to a socket of this machine, closed by its destruction. Any thread.
class LocalSocket {
  public:
    /// Waits for each of connecting, writing and reading for at most the patience. An abstract
    /// socket has a name instead of a path.
    LocalSocket(QByteArray path, bool isAbstract,
                std::chrono::milliseconds patience = std::chrono::seconds(1));
    ~LocalSocket();
    LocalSocket(const LocalSocket&) = delete;
    LocalSocket& operator=(const LocalSocket&) = delete;

    bool isConnected() const { return isConnected_; }
    /// Whether somebody listens there, and only does not take the connection.
    bool isKeptWaiting() const { return isKeptWaiting_; }
    /// Whether anything comes back, were it the end of the connection.
    bool answers(const QByteArray& question);

  private:
    int descriptor_;
    bool isConnected_ = false;
    bool isKeptWaiting_ = false;
};

}  // namespace zelvo::platform
