#pragma once

#include <string>

#include "platform/Observable.h"

namespace zelvo::platform {

class Bundle;

/// What there is to tell people about a link that works but is not as it should be: what the next
/// start will make of it, and who cannot come by it. Main thread only.
class LinkTroubles {
  public:
    /// The bundle outlives this object.
    explicit LinkTroubles(const Bundle& bundle) : bundle_(bundle) {}
    LinkTroubles(const LinkTroubles&) = delete;
    LinkTroubles& operator=(const LinkTroubles&) = delete;

    /// Whether the settings took the link, for the next start.
    void linkIsStored(bool isStored);
    /// Whether they let go of it.
    void linkIsRemoved(bool isRemoved);
    /// Whether the proof that the link is this computer's is kept, which the next start needs, too.
    void proofIsKept(bool isKept);
    void linkHasKey(bool hasKey);

    /// Sentences in the user's language, written when they change; empty where all is well.
    Observable<std::string>& text() { return text_; }

  private:
    void update();

    const Bundle& bundle_;
    bool isStored_ = true;
    bool isRemoved_ = true;
    bool proofIsKept_ = true;
    bool hasKey_ = true;
    Observable<std::string> text_;
};

}  // namespace zelvo::platform
