#pragma once

#include <QAbstractNativeEventFilter>
#include <cstdint>
#include <functional>

namespace zelvo::platform {

/// Tells of each key that goes down in another program, for as long as it lives, where the display
/// lets us know: on X11, which hands them on without a grab. Which key it was is not looked at.
/// Main thread only.
class KeysElsewhere final : public QAbstractNativeEventFilter {
  public:
    explicit KeysElsewhere(std::function<void()> pressed);
    ~KeysElsewhere() override;
    KeysElsewhere(const KeysElsewhere&) = delete;
    KeysElsewhere& operator=(const KeysElsewhere&) = delete;

    bool nativeEventFilter(const QByteArray& type, void* message, qintptr* result) override;

  private:
    std::function<void()> pressed_;
    std::uint8_t extension_ = 0;
};

}  // namespace zelvo::platform
