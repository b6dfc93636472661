#include "platform/linux/names/HostNames.h"

#include <fcntl.h>
#include <unistd.h>

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QSocketNotifier>
#include <QUuid>
#include <array>
#include <utility>

#include "platform/Log.h"
#include "platform/linux/base/Debug.h"
#include "platform/linux/base/FileReading.h"
#include "platform/linux/base/ShellAssignments.h"
#include "platform/linux/base/TextEncoding.h"
#include "platform/linux/names/AvahiHostName.h"

namespace zelvo::platform {

namespace {

constexpr const char* service = "org.freedesktop.hostname1";
constexpr const char* object = "/org/freedesktop/hostname1";
constexpr const char* properties = "org.freedesktop.DBus.Properties";
constexpr const char* kernelNameFile = "/proc/sys/kernel/hostname";
constexpr int answerTimeout = 5000;

/// None for what cannot be passed on as text, so that the next source of the name counts: neither
/// a file's bytes nor the kernel's have to be UTF-8. The kernel says "(none)" where it has no name.
std::optional<std::string> usable(const std::string& name) {
    bool isText = name.find('\0') == name.npos && isUtf8(name);
    if (name.empty() || name == "(none)" || !isText)
        return std::nullopt;
    return name;
}

}  // namespace

HostNames::HostNames(Options options, Log& log) : options_(std::move(options)), log_(log) {
    auto machine = readTextFile(options_.root + "/etc/machine-info").value_or("");
    pretty_ = shellAssignment(machine, "PRETTY_HOSTNAME").value_or("");
    // hostname(5): one line, and comments begin with #.
    auto file = readTextFile(options_.root + "/etc/hostname").value_or("");
    while (file.starts_with('#'))
        file.erase(0, std::min(file.find('\n'), file.size() - 1) + 1);
    static_ = trimmed(file.substr(0, file.find('\n')));
    readKernel();
    announcedComputerName_ = computerName();
    announcedLocalHostName_ = localHostName();
}

HostNames::~HostNames() {
    avahiSubscription_ = {};
    avahi_.reset();
    owners_.reset();
    if (!bus_)
        return;
    auto name = bus_->name();
    bus_.reset();
    QDBusConnection::disconnectFromBus(name);
}

void HostNames::watch() {
    watchKernel();
    watchBus();
}

std::optional<std::string> HostNames::computerName() const {
    for (const auto& name : {pretty_, static_}) {
        if (auto found = usable(name))
            return found;
    }
    return usable(kernel_);
}

std::optional<std::string> HostNames::localHostName() const {
    if (auto announced = avahi_ ? avahi_->name().value() : std::nullopt; announced) {
        if (auto found = usable(*announced))
            return found;
    }
    return usable(kernel_.substr(0, kernel_.find('.')));
}

std::optional<std::string> HostNames::kernelName() const {
    return usable(kernel_);
}

void HostNames::watchBus() {
    auto name = "zelvo-hostnames-" + QUuid::createUuid().toString(QUuid::WithoutBraces);
    auto bus =
        options_.busAddress.empty()
            ? QDBusConnection::connectToBus(QDBusConnection::SystemBus, name)
            : QDBusConnection::connectToBus(QString::fromStdString(options_.busAddress), name);
    if (!bus.isConnected()) {
        log_.line("Host names: no message bus: " + bus.lastError().message().toStdString());
        QDBusConnection::disconnectFromBus(name);
        return;
    }
    bus_ = bus;
    // Without the service's name, for which Qt would ask the bus and wait. Anybody can send such a
    // signal, so it only makes us ask the service.
    bus_->connect(QString(), object, properties, "PropertiesChanged", this,
                  SLOT(propertiesChanged(QDBusMessage)));
    owners_ = std::make_unique<QDBusServiceWatcher>(service, *bus_,
                                                    QDBusServiceWatcher::WatchForRegistration);
    connect(owners_.get(), &QDBusServiceWatcher::serviceRegistered, this, [this] { ask(); });
    ask();
    avahi_ = std::make_unique<AvahiHostName>(*bus_);
    avahiSubscription_ =
        avahi_->name().subscribe([this](const AvahiHostName::Name&) { announce(); });
}

void HostNames::watchKernel() {
    kernelFile_.reset(::open(kernelNameFile, O_RDONLY | O_CLOEXEC));
    if (!kernelFile_)
        return;
    // The kernel marks the file as exceptional when the name has changed (proc_sys_poll).
    kernelNotifier_ =
        std::make_unique<QSocketNotifier>(kernelFile_.get(), QSocketNotifier::Exception);
    connect(kernelNotifier_.get(), &QSocketNotifier::activated, this, [this] {
        readKernel();
        announce();
    });
}

void HostNames::propertiesChanged(const QDBusMessage& message) {
    if (message.arguments().value(0).toString() == QLatin1String(service))
        ask();
}

void HostNames::ask() {
    auto question = QDBusMessage::createMethodCall(service, object, properties, "GetAll");
    question << QString(service);
    question.setAutoStartService(false);
    auto* call = new QDBusPendingCallWatcher(bus_->asyncCall(question, answerTimeout), this);
    connect(call, &QDBusPendingCallWatcher::finished, this, &HostNames::answered);
}

void HostNames::answered(QDBusPendingCallWatcher* call) {
    call->deleteLater();
    QDBusPendingReply<QVariantMap> reply = *call;
    debug("names", reply.isError() ? "the name service: " + reply.error().name().toStdString()
                                   : "the name service has answered");
    // A service that is not there changes nothing.
    if (reply.isError())
        return;
    auto values = reply.value();
    pretty_ = values.value("PrettyHostname").toString().toStdString();
    static_ = values.value("StaticHostname").toString().toStdString();
    readKernel();
    announce();
}

void HostNames::readKernel() {
    std::array<char, 256> name{};
    if (auto text = readTextFile(kernelNameFile))
        kernel_ = trimmed(*text);
    else if (::gethostname(name.data(), name.size() - 1) == 0)
        kernel_ = name.data();
}

void HostNames::announce() {
    Changed changed;
    changed.computerName = std::exchange(announcedComputerName_, computerName()) != computerName();
    changed.localHostName =
        std::exchange(announcedLocalHostName_, localHostName()) != localHostName();
    if (!changed.computerName && !changed.localHostName)
        return;
    debug("names", changed.computerName && changed.localHostName ? "both names are new"
                   : changed.computerName                        ? "the computer's name is new"
                                                                 : "the local name is new");
    changes_.set(changed);
}

}  // namespace zelvo::platform
