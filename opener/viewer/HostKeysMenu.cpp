#include "opener/viewer/HostKeysMenu.h"

#include <utility>

#include "platform/qt/content/Localized.h"

namespace zelvo::opener {

namespace {

using platform::localized;

/// X11/keysymdef.h.
constexpr std::uint32_t control = 0xFFE3;
constexpr std::uint32_t alt = 0xFFE9;
constexpr std::uint32_t super = 0xFFEB;

QString hotKeyText(int number) {
    switch (number) {
        case 32:
            return localized("viewer-all-windows");
        case 33:
            return localized("viewer-application-windows");
        case 64:
            return localized("viewer-search");
        case 79:
            return localized("viewer-workspace-left");
        case 81:
            return localized("viewer-workspace-right");
        default:
            return {};
    }
}

QString cornerText(const HostCorner& corner) {
    auto action = [&] {
        switch (corner.action) {
            case 2:
                return localized("viewer-all-windows");
            case 3:
                return localized("viewer-application-windows");
            case 4:
                return localized("viewer-desktop");
            case 13:
                return localized("viewer-lock");
            default:
                return localized("viewer-corner");
        }
    };
    constexpr const char* places[] = {"viewer-top-left", "viewer-top-right", "viewer-bottom-left",
                                      "viewer-bottom-right"};
    return localized(places[static_cast<std::size_t>(corner.place)]).replace("%@", action());
}

}  // namespace

HostKeysMenu::HostKeysMenu(Actions actions, QWidget* parent)
    : QMenu(localized("viewer-keys"), parent), actions_(std::move(actions)) {
    setFacts({}, {});
}

void HostKeysMenu::setFacts(const HostFacts& facts, const QString& note) {
    clear();
    if (!note.isEmpty()) {
        addAction(note);
        addSeparator();
    }
    const auto first = actions().size();
    for (const auto& hotKey : facts.hotKeys) {
        if (const auto text = hotKeyText(hotKey.number); !text.isEmpty() && !hotKey.keys.empty())
            addKeys(text, hotKey.keys);
    }
    for (const auto& corner : facts.corners) {
        // 0 and 1 do nothing.
        if (corner.action > 1)
            addAction(cornerText(corner), this, [this, corner] {
                actions_.visit(corner);
            })->setData(true);
    }
    if (actions().size() > first)
        addSeparator();
    addKeys(localized("viewer-ctrl-alt-del"), {control, alt, 0xFFFF});
    addKeys(localized("viewer-super"), {super});
    addKeys(localized("viewer-print"), {0xFF61});
    addKeys(localized("viewer-alt-tab"), {alt, 0xFF09});
    setKeysEnabled(areEnabled_);
}

void HostKeysMenu::addKeys(const QString& text, const std::vector<std::uint32_t>& keysyms) {
    addAction(text, this, [this, keysyms] { actions_.strike(keysyms); })->setData(true);
}

void HostKeysMenu::setKeysEnabled(bool areEnabled) {
    areEnabled_ = areEnabled;
    for (auto* action : actions())
        action->setEnabled(areEnabled && action->data().toBool());
}

}  // namespace zelvo::opener
