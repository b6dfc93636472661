#pragma once

#include <string>
#include <vector>

namespace zelvo::platform {

struct PasteboardObject {
    enum class Kind { Url, String };
    Kind kind = Kind::String;
    std::string text;
    friend bool operator==(const PasteboardObject&, const PasteboardObject&) = default;
};

/// The general pasteboard (clipboard). Main thread only.
class Pasteboard {
  public:
    virtual ~Pasteboard() = default;
    virtual void clearContents() = 0;
    /// Adds the objects in their order.
    virtual void writeObjects(const std::vector<PasteboardObject>& objects) = 0;
};

}  // namespace zelvo::platform
