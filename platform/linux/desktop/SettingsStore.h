#pragma once

#include <functional>
#include <string>
#include <vector>

namespace zelvo::platform {

/// The desktop's database of settings. A module holds it, so that its library is loaded only where
/// the desktop keeps something there. One thread.
class SettingsStore {
  public:
    virtual ~SettingsStore() = default;

    virtual bool hasSchema(const std::string& schema) const = 0;
    /// All texts in the value, one after the other, a truth value as "true" or "false"; none where
    /// the schema or its key is missing.
    virtual std::vector<std::string> texts(const std::string& schema, const char* key) const = 0;
};

/// What the module exports: a store of those of the schemas that are installed, to be deleted by
/// the caller. It tells of changes from the calling thread's event loop. Null where that loop
/// cannot deliver them.
using MakeSettingsStore = SettingsStore*(const std::vector<std::string>& schemas,
                                         std::function<void()> changed);
constexpr const char* makeSettingsStore = "zelvoMakeSettingsStore";

}  // namespace zelvo::platform
