#include "platform/linux/privileges/SystemAuthorization.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/linux/base/Users.h"
#include "platform/linux/privileges/DetachedProcess.h"
#include "platform/linux/privileges/PolkitHelper.h"
#include "platform/linux/privileges/helper/ScreenSharingRequest.h"

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

/// Ours, and whom the tool works for.
std::vector<std::string> toolEnvironment() {
    std::vector<std::string> result;
    const auto user = ::geteuid() == 0 ? askingUser() : std::nullopt;
    for (char** entry = ::environ; entry && *entry; ++entry) {
        if (!user || !std::string_view(*entry).starts_with("ZELVO_USER="))
            result.emplace_back(*entry);
    }
    if (user)
        result.push_back("ZELVO_USER=" + *user);
    return result;
}

std::string_view fileName(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

/// Starts tools as whoever we are.
class DirectReference : public AuthorizationReference {
  public:
    explicit DirectReference(const SystemAuthorization::Options& options) : options_(options) {}

    std::int32_t copyRights(const std::string&, std::uint32_t) override {
        isGranted_ = true;
        return AuthorizationSuccess;
    }

    std::int32_t executeWithPrivileges(const std::string& toolPath) override {
        if (!isGranted_)
            return AuthorizationDenied;
        // The shell would start, and only then find nothing to run.
        if (!toolPath.starts_with('/') || ::access(toolPath.c_str(), R_OK) != 0)
            return AuthorizationToolExecuteFailure;
        if (startDetached({options_.shell, toolPath}, toolEnvironment(), STDERR_FILENO) != 0)
            return AuthorizationToolExecuteFailure;
        options_.started(fileName(toolPath));
        return AuthorizationSuccess;
    }

    void free(std::uint32_t) override { isGranted_ = false; }

  private:
    const SystemAuthorization::Options& options_;
    bool isGranted_ = false;
};

/// The right is a helper that runs as root and waits.
class PolkitReference : public AuthorizationReference {
  public:
    PolkitReference(Log& log, const SystemAuthorization::Options& options, std::string_view tool)
        : log_(log),
          options_(options),
          helperPath_(options.helpers + (ScreenSharingRequest::onlyTakesBack(tool)
                                             ? "/zelvo-screen-sharing-end-helper"
                                             : "/zelvo-screen-sharing-helper")) {}

    std::int32_t copyRights(const std::string&, std::uint32_t flags) override {
        if (!(flags & AuthorizationFlagInteractionAllowed))
            return AuthorizationInteractionNotAllowed;
        helper_ = std::make_unique<PolkitHelper>(log_, options_.pkexec, helperPath_);
        auto status = helper_->start();
        if (status != AuthorizationSuccess)
            helper_.reset();
        return status;
    }

    std::int32_t executeWithPrivileges(const std::string& toolPath) override {
        // The helper serves one request.
        auto helper = std::move(helper_);
        if (!helper)
            return AuthorizationDenied;
        if (!helper->startTool(fileName(toolPath)))
            return AuthorizationToolExecuteFailure;
        options_.started(fileName(toolPath));
        return AuthorizationSuccess;
    }

    void free(std::uint32_t) override { helper_.reset(); }

  private:
    Log& log_;
    const SystemAuthorization::Options& options_;
    // By which polkit knows the action.
    const std::string helperPath_;
    std::unique_ptr<PolkitHelper> helper_;
};

}  // namespace

SystemAuthorization::SystemAuthorization(Log& log, Options options)
    : log_(log), options_(std::move(options)) {
    if (options_.helpers.empty())
        options_.helpers = ZELVO_HELPERS_FOLDER;
}

std::int32_t SystemAuthorization::create(const std::string& tool,
                                         std::unique_ptr<AuthorizationReference>& reference) {
    if (options_.asSelf || ::geteuid() == 0)
        reference = std::make_unique<DirectReference>(options_);
    else
        reference = std::make_unique<PolkitReference>(log_, options_, tool);
    return AuthorizationSuccess;
}

}  // namespace zelvo::platform
