#include "app/AppDelegate.h"
#include "platform/Authorization.h"
#include "platform/Bundle.h"
#include "platform/Log.h"

namespace zelvo {

bool AppDelegate::runToolWithPrivileges(const std::string& tool,
                                        const std::function<void(bool)>& completion) {
    std::unique_ptr<platform::AuthorizationReference> reference;
    auto fail = [&](const char* number, std::int32_t status) {
        platform_.log.line(std::string("Error ") + number + ": " + std::to_string(status));
        reference.reset();
        completion(false);
        return false;
    };
    if (auto status = platform_.authorization.create(tool, reference); status != 0)
        return fail("1", status);
    constexpr auto flags = platform::AuthorizationFlagInteractionAllowed |
                           platform::AuthorizationFlagExtendRights |
                           platform::AuthorizationFlagPreAuthorize;
    if (auto status = reference->copyRights("system.privilege.admin", flags); status != 0)
        return fail("3", status);
    const auto path = platform_.bundle.resourcePath() + '/' + tool;
    if (auto status = reference->executeWithPrivileges(path); status != 0)
        return fail("2", status);
    // No right is kept for a later call.
    reference->free(platform::AuthorizationFlagDestroyRights);
    reference.reset();
    completion(true);
    return true;
}

}  // namespace zelvo
