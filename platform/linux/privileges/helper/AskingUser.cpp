#include "platform/linux/privileges/helper/AskingUser.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace zelvo::platform {

std::optional<AskingUser> AskingUser::ofProcess() {
    const char* value = std::getenv("PKEXEC_UID");
    std::string_view text = value ? value : "";
    AskingUser user;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), user.id);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || user.id == 0)
        return std::nullopt;
    const passwd* entry = ::getpwuid(user.id);
    if (!entry)
        return std::nullopt;
    user.group = entry->pw_gid;
    user.name = entry->pw_name;
    return user;
}

AskingUser::Rights::Rights(const AskingUser& user) {
    int count = ::getgroups(0, nullptr);
    groups_.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    isTaken_ = ::getgroups(count, groups_.data()) == count &&
               ::initgroups(user.name.c_str(), user.group) == 0 && ::setegid(user.group) == 0 &&
               ::seteuid(user.id) == 0;
}

AskingUser::Rights::~Rights() {
    if (::seteuid(0) != 0 || ::setegid(0) != 0 || ::setgroups(groups_.size(), groups_.data()) != 0)
        std::abort();
}

}  // namespace zelvo::platform
