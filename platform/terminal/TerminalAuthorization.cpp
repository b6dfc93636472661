#include "platform/terminal/TerminalAuthorization.h"

#include "platform/terminal/Console.h"

namespace zelvo::platform {

namespace {

class Reference final : public AuthorizationReference {
  public:
    Reference(std::unique_ptr<AuthorizationReference> asks, Console& console)
        : asks_(std::move(asks)), console_(console) {}

    std::int32_t copyRights(const std::string& right, std::uint32_t flags) override {
        console_.giveBack();
        const auto status = asks_->copyRights(right, flags);
        console_.takeAgain();
        return status;
    }
    std::int32_t executeWithPrivileges(const std::string& toolPath) override {
        return asks_->executeWithPrivileges(toolPath);
    }
    void free(std::uint32_t flags) override { asks_->free(flags); }

  private:
    std::unique_ptr<AuthorizationReference> asks_;
    Console& console_;
};

}  // namespace

std::int32_t TerminalAuthorization::create(const std::string& tool,
                                           std::unique_ptr<AuthorizationReference>& reference) {
    const auto status = asks_.create(tool, reference);
    if (reference)
        reference = std::make_unique<Reference>(std::move(reference), console_);
    return status;
}

}  // namespace zelvo::platform
