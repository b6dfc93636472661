#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/NatPortMapping.h"
#include "platform/Observable.h"

namespace zelvo::platform {

class Bundle;
class Log;

/// What there is to tell people about the router: why nothing is mapped, or why nobody can come in
/// through what is. Main thread only.
class RouterExplanation {
  public:
    RouterExplanation(const Bundle& bundle, Log& log);
    RouterExplanation(const RouterExplanation&) = delete;
    RouterExplanation& operator=(const RouterExplanation&) = delete;

    /// The mapping service's latest reply; none when it is asked anew.
    void mappingReplied(const std::optional<NatPortMappingReply>& reply);
    /// The address from which the sharing service saw this host come. Any text but a public IPv4
    /// address says nothing.
    void seenFrom(const std::string& address);

    /// A sentence in the user's language, written when it changes; empty where all is well.
    const Observable<std::string>& text() const { return text_; }

  private:
    const char* reason() const;
    bool seenElsewhere() const;
    /// The mapping is no longer the one that the link was made of.
    bool hasMoved() const;
    void update();

    const Bundle& bundle_;
    Log& log_;
    std::optional<NatPortMappingReply> reply_;
    /// The first reply since the service was asked anew, where that was a mapping.
    std::optional<NatPortMappingReply> first_;
    /// Host byte order; 0 for unknown.
    std::uint32_t seen_ = 0;
    Observable<std::string> text_;
};

}  // namespace zelvo::platform
