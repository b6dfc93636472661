#include "server/screen/portal/PortalClipboard.h"

#include <fcntl.h>

#include <utility>

namespace zelvo::server {

namespace {

/// The message closes its own. None where there is none in it.
platform::FileDescriptor pipeOf(sd_bus_message* reply) {
    int descriptor = -1;
    if (!reply || sd_bus_message_read(reply, "h", &descriptor) <= 0)
        return {};
    return platform::FileDescriptor(::fcntl(descriptor, F_DUPFD_CLOEXEC, 3));
}

/// From a variant of strings, which some portals wrap once more.
std::string bestTextType(sd_bus_message* message, const std::string& signature) {
    const bool isWrapped = signature == "(as)";
    sd_bus_message_enter_container(message, 'v', signature.c_str());
    if (isWrapped)
        sd_bus_message_enter_container(message, 'r', "as");
    std::string best;
    sd_bus_message_enter_container(message, 'a', "s");
    const char* type = nullptr;
    while (sd_bus_message_read_basic(message, 's', &type) > 0) {
        if (isBetterTextType(type, best))
            best = type;
    }
    sd_bus_message_exit_container(message);
    if (isWrapped)
        sd_bus_message_exit_container(message);
    sd_bus_message_exit_container(message);
    return best;
}

}  // namespace

void PortalClipboard::begin(const std::string& session) {
    session_ = session;
    auto isOurs = [this](sd_bus_message* signal) {
        const char* path = nullptr;
        return sd_bus_message_read(signal, "o", &path) > 0 && path == session_;
    };
    bus_.subscribe(interface, "SelectionOwnerChanged", [this, isOurs](auto* signal) {
        if (isOurs(signal))
            ownerChanged(signal);
    });
    bus_.subscribe(interface, "SelectionTransfer", [this, isOurs](auto* signal) {
        const char* type = nullptr;
        std::uint32_t serial = 0;
        if (isOurs(signal) && sd_bus_message_read(signal, "su", &type, &serial) > 0)
            write(serial);
    });
}

void PortalClipboard::setWatched(bool isWatched) {
    isWatched_ = isWatched;
    ++owners_;
    pipes_.stopReading();
}

void PortalClipboard::call(const char* method, const PortalBus::Arguments& arguments,
                           PortalBus::Reply reply) {
    bus_.call(
        PortalBus::path, interface, method,
        [&](auto* message) {
            sd_bus_message_append(message, "o", session_.c_str());
            arguments(message);
        },
        std::move(reply));
}

void PortalClipboard::ownerChanged(sd_bus_message* signal) {
    ++owners_;
    pipes_.stopReading();
    std::string type;
    int isOurs = 0;
    readDictionary(signal, [&](const auto& key, const auto& signature) {
        if (key == "mime_types" && (signature == "as" || signature == "(as)")) {
            type = bestTextType(signal, signature);
            return true;
        }
        return key == "session_is_owner" && signature == "b" &&
               sd_bus_message_read(signal, "v", "b", &isOurs) > 0;
    });
    if (isWatched_ && !isOurs && !type.empty())
        read(type);
}

void PortalClipboard::read(const std::string& type) {
    call(
        "SelectionRead", [&](auto* message) { sd_bus_message_append(message, "s", type.c_str()); },
        [this, owner = owners_](auto* reply) {
            if (auto pipe = pipeOf(reply); pipe && owner == owners_)
                pipes_.read(std::move(pipe), copied_);
        });
}

void PortalClipboard::set(std::string text) {
    if (!isThere() || text.size() > TextPipes::longestText)
        return;
    text_ = std::move(text);
    call(
        "SetSelection",
        [](auto* message) {
            sd_bus_message_append(message, "a{sv}", 1, "mime_types", "as",
                                  static_cast<int>(textTypes.size()), textTypes[0], textTypes[1],
                                  textTypes[2]);
        },
        [](auto*) {});
}

void PortalClipboard::write(std::uint32_t serial) {
    auto tellDone = [this, serial](bool isDone) {
        call(
            "SelectionWriteDone",
            [&](auto* message) { sd_bus_message_append(message, "ub", serial, isDone ? 1 : 0); },
            [](auto*) {});
    };
    call(
        "SelectionWrite", [&](auto* message) { sd_bus_message_append(message, "u", serial); },
        [this, tellDone](auto* reply) {
            if (auto pipe = pipeOf(reply))
                pipes_.write(std::move(pipe), text_, tellDone);
        });
}

}  // namespace zelvo::server
