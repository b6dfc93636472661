#include "platform/linux/link_key/LinkTroubles.h"

#include "platform/Bundle.h"

namespace zelvo::platform {

void LinkTroubles::linkIsStored(bool isStored) {
    isStored_ = isStored;
    // It lies where the earlier one lay.
    isRemoved_ = isRemoved_ || isStored;
    update();
}

void LinkTroubles::linkIsRemoved(bool isRemoved) {
    isRemoved_ = isRemoved;
    isStored_ = true;
    update();
}

void LinkTroubles::proofIsKept(bool isKept) {
    proofIsKept_ = isKept;
    update();
}

void LinkTroubles::linkHasKey(bool hasKey) {
    hasKey_ = hasKey;
    update();
}

void LinkTroubles::update() {
    std::string text;
    auto add = [&](const char* key) {
        text += (text.empty() ? "" : " ") + bundle_.localizedString(key);
    };
    if (!hasKey_)
        add("This link has no key, as the sharing service gave one that takes none: people can "
            "come in by it with a VNC viewer only, and none of them can prove that they have it.");
    // What the next start has is the old link or none.
    if (!isRemoved_)
        add("Your old link has ended, but it could not be removed from this computer’s settings, "
            "and may work again after the next start. Is the disk full or write-protected?");
    else if (!isStored_ || !proofIsKept_)
        add("Your link works, but it could not be kept on this computer, so the next start makes a "
            "new one. Is the disk full?");
    if (text != text_.value())
        text_.set(std::move(text));
}

}  // namespace zelvo::platform
