#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QVariantMap>
#include <optional>
#include <string>

namespace zelvo::test {

/// org.freedesktop.hostname1 with the properties of systemd-hostnamed.
class FakeHostnamed : public QDBusVirtualObject {
    Q_OBJECT

  public:
    enum class Manner { Answers, Hangs };

    FakeHostnamed(const std::string& address, const std::string& pretty,
                  Manner manner = Manner::Answers)
        : pretty_(QString::fromStdString(pretty)),
          manner_(manner),
          bus_(QDBusConnection::connectToBus(QString::fromStdString(address), "fake-hostnamed")) {
        bus_.registerVirtualObject("/org/freedesktop/hostname1", this);
        bus_.registerService("org.freedesktop.hostname1");
    }
    ~FakeHostnamed() override {
        bus_.unregisterService("org.freedesktop.hostname1");
        QDBusConnection::disconnectFromBus("fake-hostnamed");
    }

    void setPretty(const std::string& name) {
        pretty_ = QString::fromStdString(name);
        auto signal = QDBusMessage::createSignal(
            "/org/freedesktop/hostname1", "org.freedesktop.DBus.Properties", "PropertiesChanged");
        signal << QString("org.freedesktop.hostname1") << QVariantMap{{"PrettyHostname", pretty_}}
               << QStringList();
        bus_.send(signal);
    }
    /// Answers the question that was left.
    void answerNow() {
        manner_ = Manner::Answers;
        if (left_)
            answer(*left_);
    }
    int asked() const { return asked_; }

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override {
        if (message.member() != "GetAll")
            return false;
        ++asked_;
        if (manner_ == Manner::Answers)
            answer(message);
        else
            left_ = message;
        return true;
    }

  private:
    void answer(const QDBusMessage& message) {
        bus_.send(message.createReply(QVariantMap{{"PrettyHostname", pretty_},
                                                  {"StaticHostname", QString("static")},
                                                  {"Hostname", QString("kernel")}}));
    }

    QString pretty_;
    Manner manner_;
    QDBusConnection bus_;
    int asked_ = 0;
    std::optional<QDBusMessage> left_;
};

}  // namespace zelvo::test
