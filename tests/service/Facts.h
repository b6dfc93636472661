#pragma once

#include <string>

namespace zelvo::service {

/// Nine good facts of a host, as a client writes them.
inline std::string facts(const std::string& name) {
    return "ComputerName=" + name +
           "&LocalHostname=tom.local.&vncPort=5900&IPAddress=203.0.113.7&Port=12345"
           "&MacAddress=0011aabbccdd&LastKeyboardLocale=de+nodeadkeys&MappedService=vnc"
           "&HotKeys=%7B%22originalKeys%22:%5B%5D,%22hotCorners%22:%7B%7D%7D";
}

}  // namespace zelvo::service
