#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/PropertyList.h"

namespace zelvo::platform {
class PropertyListReader;
class ServicesDatabase;
}  // namespace zelvo::platform

namespace zelvo {

inline constexpr std::uint16_t DefaultSshPort = 22;
inline constexpr std::uint16_t DefaultVncPort = 5900;

/// What the SSH daemon's launch file names as its socket's service: a service name, or a number;
/// none when the file is missing or says nothing of it.
std::optional<platform::PropertyList> sshServiceName(const platform::PropertyListReader& reader);

/// A string as it is, a number or boolean in its decimal form; empty for other kinds.
std::string textOfNumberOrString(const platform::PropertyList& value);

/// The service's TCP port. A name ends at its first NUL, and a name that is not ASCII is unknown:
/// the services database knows no others.
std::optional<std::uint16_t> tcpServicePort(const platform::ServicesDatabase& services,
                                            const std::string& name);

/// The port of "vnc-server", else 5900.
std::uint16_t vncServicePort(const platform::ServicesDatabase& services);

}  // namespace zelvo
