#include "host/KVSystemInformation.h"
#include "host/ListeningPorts.h"
#include "host/ListingSearch.h"
#include "platform/Log.h"
#include "platform/PropertyListReader.h"
#include "platform/SocketTable.h"

namespace zelvo {

namespace {

using Search = bool (*)(std::string_view listing, std::uint16_t port);

bool probe(const platform::SocketListing& listing, platform::Log& log, Search search,
           std::uint16_t port) {
    if (!listing.text) {
        log.line("Exception: " + listing.error);
        return false;
    }
    return search(*listing.text, port);
}

std::uint16_t lowBits(std::int32_t port) {
    return static_cast<std::uint16_t>(port);
}

}  // namespace

bool KVSystemInformation::isListeningOnPort(const platform::SocketTable& sockets,
                                            platform::Log& log, std::uint16_t port) {
    return probe(sockets.tcpSockets(platform::SocketFamily::IPv4, platform::SocketState::Listen),
                 log, listsWildcardListener, port);
}

bool KVSystemInformation::establishedConnectionOnPort(const platform::SocketTable& sockets,
                                                      platform::Log& log, std::uint16_t port) {
    return probe(
        sockets.tcpSockets(platform::SocketFamily::Any, platform::SocketState::Established), log,
        listsEstablishedConnection, port);
}

std::int32_t KVSystemInformation::sshdListeningPort(const platform::PropertyListReader& reader,
                                                    const platform::ServicesDatabase& services) {
    auto configured = sshServiceName(reader);
    if (!configured)
        return DefaultSshPort;
    if (auto number = configured->integerReading(); number && *number >= 1 && *number <= 65535)
        return static_cast<std::int32_t>(*number);
    if (const auto* name = configured->string())
        return tcpServicePort(services, *name).value_or(DefaultSshPort);
    return DefaultSshPort;
}

std::int32_t KVSystemInformation::vncListeningPort(const platform::ServicesDatabase& services) {
    return vncServicePort(services);
}

bool KVSystemInformation::isRemoteLoginEnabled(const platform::SocketTable& sockets,
                                               const platform::PropertyListReader& reader,
                                               const platform::ServicesDatabase& services,
                                               platform::Log& log) {
    return isListeningOnPort(sockets, log, lowBits(sshdListeningPort(reader, services)));
}

bool KVSystemInformation::isScreenSharingRunning(const platform::SocketTable& sockets,
                                                 const platform::ServicesDatabase& services,
                                                 platform::Log& log) {
    return isListeningOnPort(sockets, log, lowBits(vncListeningPort(services)));
}

bool KVSystemInformation::screenSharingConnectionEstablished(
    const platform::SocketTable& sockets, const platform::ServicesDatabase& services,
    platform::Log& log) {
    return establishedConnectionOnPort(sockets, log, lowBits(vncListeningPort(services)));
}

bool KVSystemInformation::isScreenSharingReqPermEnabled(
    const platform::PropertyListReader& reader) {
    auto settings = reader.dictionaryWithContentsOfFile(
        "/Library/Preferences/com.apple.RemoteManagement.plist");
    if (!settings)
        return false;
    auto setting = settings->find("ScreenSharingReqPermEnabled");
    return setting != settings->end() && setting->second.booleanReading();
}

}  // namespace zelvo
