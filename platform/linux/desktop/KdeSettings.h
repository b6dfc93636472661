#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/linux/desktop/DesktopReader.h"
#include "platform/linux/desktop/GLibPointers.h"

namespace zelvo::platform {

/// What KDE keeps in kxkbrc, kglobalshortcutsrc and kwinrc of a folder; which of several layouts is
/// the current one its keyboard service says.
class KdeSettings : public DesktopReader {
  public:
    /// The bus as an address, or empty for the session's. Nothing waits for it any more once
    /// `cancellable`, which outlives this object, is cancelled.
    KdeSettings(std::string configHome, std::string busAddress, GCancellable* cancellable,
                std::function<void()> changed);
    ~KdeSettings() override;

    std::optional<std::string> inputSource() const override;
    std::optional<DesktopSettings> settings(const KeyCombinations& combinations) const override;

  private:
    std::string file(const char* name) const { return configHome_ + "/" + name; }
    /// 0 where the service is not there.
    std::size_t currentLayout() const;

    const std::string configHome_;
    const std::string busAddress_;
    GCancellable* const cancellable_;
    const std::function<void()> changed_;
    std::vector<GObjectPointer<GFileMonitor>> monitors_;
    /// Made when it is first needed.
    mutable GObjectPointer<GDBusConnection> bus_;
    mutable guint subscription_ = 0;
};

}  // namespace zelvo::platform
