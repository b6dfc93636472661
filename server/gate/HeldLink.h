#pragma once

#include "sealing/ReplayCache.h"
#include "sealing/ShareLink.h"

namespace zelvo::server {

/// The link whose holders can prove that they have it, with what it keeps for as long as it holds.
struct HeldLink {
    explicit HeldLink(const sealing::ShareLink& link) : key(link) {}

    const sealing::ChannelKey key;
    sealing::ReplayCache replays;
};

}  // namespace zelvo::server
