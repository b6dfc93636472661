#pragma once

#include <QMenu>
#include <cstdint>
#include <functional>
#include <vector>

#include "opener/facts/HostFacts.h"

namespace zelvo::opener {

/// Keys that are hard to press here, and what the host's own keys and corners do.
class HostKeysMenu : public QMenu {
  public:
    struct Actions {
        /// Keysyms, pressed one after the other.
        std::function<void(const std::vector<std::uint32_t>& keysyms)> strike;
        std::function<void(const HostCorner& corner)> visit;
    };

    HostKeysMenu(Actions actions, QWidget* parent);

    /// The note stands above the keys, where there is one.
    void setFacts(const HostFacts& facts, const QString& note);
    /// Whether they do anything.
    void setKeysEnabled(bool areEnabled);

  private:
    void addKeys(const QString& text, const std::vector<std::uint32_t>& keysyms);

    const Actions actions_;
    bool areEnabled_ = false;
};

}  // namespace zelvo::opener
