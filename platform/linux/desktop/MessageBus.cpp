#include "platform/linux/desktop/MessageBus.h"

namespace zelvo::platform {

namespace {

constexpr int answerLimitMilliseconds = 300;

}  // namespace

GObjectPointer<GDBusConnection> connectToBus(GBusType kind, const std::string& address,
                                             GCancellable* cancellable) {
    std::unique_ptr<char, decltype(&g_free)> place(
        address.empty() ? g_dbus_address_get_for_bus_sync(kind, cancellable, nullptr)
                        : g_strdup(address.c_str()),
        g_free);
    if (!place)
        return nullptr;
    auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                   G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    return GObjectPointer<GDBusConnection>(
        g_dbus_connection_new_for_address_sync(place.get(), flags, nullptr, cancellable, nullptr));
}

GVariantPointer callOnBus(GDBusConnection* bus, const BusCall& call, GVariant* arguments,
                          const char* answerType, GCancellable* cancellable) {
    return GVariantPointer(g_dbus_connection_call_sync(
        bus, call.service, call.path, call.interface, call.method, arguments,
        G_VARIANT_TYPE(answerType), G_DBUS_CALL_FLAGS_NO_AUTO_START, answerLimitMilliseconds,
        cancellable, nullptr));
}

}  // namespace zelvo::platform
