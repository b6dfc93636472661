#pragma once

#include <functional>

struct ssl_st;

namespace zelvo::serving {

class ClientAddress;

/// Takes a proxy's header off what the session reads, before its first byte. The function hears
/// which client it names, or null where it names none, and says whether that may go on.
void expectProxyHeader(ssl_st* session, std::function<bool(const ClientAddress*)> heard);

}  // namespace zelvo::serving
