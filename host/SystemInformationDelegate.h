#pragma once

#include <string>

namespace zelvo {

/// Hears of changes of the host's names. Main thread only.
class SystemInformationDelegate {
  public:
    virtual ~SystemInformationDelegate() = default;

    /// After each notice about the computer name, also when the name is what it was before.
    virtual void computerNameChanged(const std::string& computerName) = 0;
    /// The same for the local host name, given in its ".local." form.
    virtual void computerLocalHostnameChanged(const std::string& localHostname) = 0;
};

}  // namespace zelvo
