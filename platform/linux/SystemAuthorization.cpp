#include "platform/linux/SystemAuthorization.h"

#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/linux/DetachedProcess.h"
#include "platform/linux/Users.h"

namespace zelvo::platform {

namespace {

/// Who asked root to run us; none when root itself did.
std::optional<std::string> askingUser() {
    for (const char* name : {"PKEXEC_UID", "SUDO_UID"}) {
        const char* value = std::getenv(name);
        std::string_view text = value ? value : "";
        uid_t user = 0;
        auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), user);
        if (!text.empty() && error == std::errc() && end == text.data() + text.size() && user != 0)
            return nameOfUser(user);
    }
    return std::nullopt;
}

std::vector<std::string> toolEnvironment() {
    std::vector<std::string> result;
    auto user = ::geteuid() == 0 ? askingUser() : std::nullopt;
    constexpr std::string_view variable = "ZELVO_USER=";
    for (char** entry = ::environ; entry && *entry; ++entry) {
        if (!user || !std::string_view(*entry).starts_with(variable))
            result.emplace_back(*entry);
    }
    if (user)
        result.push_back(std::string(variable) + *user);
    return result;
}

class Reference : public AuthorizationReference {
  public:
    explicit Reference(SystemAuthorization::Options options) : options_(std::move(options)) {}

    std::int32_t copyRights(const std::string&, std::uint32_t) override {
        // pkexec asks when the tool is started.
        if (!startsDirectly() && ::access(options_.pkexec.c_str(), X_OK) != 0)
            return AuthorizationInternal;
        isGranted_ = true;
        return AuthorizationSuccess;
    }

    std::int32_t executeWithPrivileges(const std::string& toolPath) override {
        if (!isGranted_)
            return AuthorizationDenied;
        // The shell would start, and only then find nothing to run.
        if (!toolPath.starts_with('/') || ::access(toolPath.c_str(), R_OK) != 0)
            return AuthorizationToolExecuteFailure;
        std::vector<std::string> arguments{options_.shell, toolPath};
        auto parent = ParentOfDetached::Init;
        if (!startsDirectly()) {
            arguments.insert(arguments.begin(), options_.pkexec);
            // pkexec refuses to serve a process whose parent has gone.
            parent = ParentOfDetached::Keeper;
        }
        return startDetached(arguments, toolEnvironment(), parent) == 0
                   ? AuthorizationSuccess
                   : AuthorizationToolExecuteFailure;
    }

    void free(std::uint32_t) override { isGranted_ = false; }

  private:
    bool startsDirectly() const { return options_.asSelf || ::geteuid() == 0; }

    SystemAuthorization::Options options_;
    bool isGranted_ = false;
};

}  // namespace

SystemAuthorization::SystemAuthorization() : SystemAuthorization(Options{}) {}

SystemAuthorization::SystemAuthorization(Options options) : options_(std::move(options)) {}

std::int32_t SystemAuthorization::create(std::unique_ptr<AuthorizationReference>& reference) {
    reference = std::make_unique<Reference>(options_);
    return AuthorizationSuccess;
}

}  // namespace zelvo::platform
