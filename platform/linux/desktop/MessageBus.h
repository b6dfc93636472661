#pragma once

#include <QDBusConnection>
#include <QDBusPendingCall>
#include <QDBusPendingReply>
#include <QObject>
#include <QVariantList>
#include <functional>
#include <optional>
#include <string>

namespace zelvo::platform {

struct BusCall {
    const char* service;
    const char* path;
    const char* interface;
    const char* method;
};

/// A connection of its own to a message bus. Waiting for the bus runs the event loop of the thread,
/// that of its construction, and ends when the loop ends.
class MessageBus : public QObject {
    Q_OBJECT

  public:
    enum class Kind { Session, System };

    /// Where the address is empty, the usual one of that kind. `noticed` is called for what
    /// `follow` asks for.
    MessageBus(Kind kind, const std::string& address, std::function<void()> noticed = {});
    ~MessageBus() override;

    /// Whether the bus has answered, and is there.
    bool isConnected() const { return isGreeted_ && bus_.isConnected(); }

    /// What the method answers; none when the service does not run, and when it does not answer in
    /// that form within 0.3 s.
    template <typename Answer>
    std::optional<Answer> ask(const BusCall& call, const QVariantList& arguments = {}) {
        QDBusPendingReply<Answer> reply = answerTo(call, arguments);
        if (!reply.isFinished() || reply.isError())
            return std::nullopt;
        return reply.value();
    }
    /// Has all signals of the call's object and interface noticed.
    void follow(const BusCall& call);

  private Q_SLOTS:
    void notice() { noticed_(); }

  private:
    QDBusPendingCall answerTo(const BusCall& call, const QVariantList& arguments);

    const std::function<void()> noticed_;
    QDBusConnection bus_;
    bool isGreeted_ = false;
};

}  // namespace zelvo::platform
