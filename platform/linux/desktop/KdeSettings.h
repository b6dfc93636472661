#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/linux/desktop/DesktopReader.h"
#include "platform/linux/desktop/FolderWatch.h"

namespace zelvo::platform {

class MessageBus;

/// What KDE keeps in kxkbrc, kglobalshortcutsrc and kwinrc of a folder; which of several layouts is
/// the current one its keyboard service says.
class KdeSettings : public DesktopReader {
  public:
    /// The bus as an address, or empty for the session's.
    KdeSettings(std::string configHome, std::string busAddress, std::function<void()> changed);
    ~KdeSettings() override;

    std::optional<std::string> inputSource() const override;
    std::optional<DesktopSettings> settings(const KeyCombinations& combinations) const override;

  private:
    std::string file(const char* name) const { return configHome_ + "/" + name; }
    /// 0 where the service is not there.
    std::size_t currentLayout() const;

    const std::string configHome_;
    const std::string busAddress_;
    const std::function<void()> changed_;
    const FolderWatch files_;
    /// Made when it is first needed.
    mutable std::unique_ptr<MessageBus> bus_;
};

}  // namespace zelvo::platform
