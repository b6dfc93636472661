#include "tests/support/FakeDesktop.h"

namespace zelvo::test {

std::vector<std::unique_ptr<platform::RunningApplication>> FakeWorkspace::runningApplications() {
    struct Running : platform::RunningApplication {
        Running(FakeWorkspace& workspace, std::size_t index) : workspace(workspace), index(index) {}
        std::string bundleIdentifier() const override { return workspace.running[index]; }
        void terminate() override { workspace.quit.push_back(index); }
        FakeWorkspace& workspace;
        std::size_t index;
    };
    std::vector<std::unique_ptr<platform::RunningApplication>> result;
    for (std::size_t i = 0; i < running.size(); ++i)
        result.push_back(std::make_unique<Running>(*this, i));
    return result;
}

struct FakeAuthorization::Reference : platform::AuthorizationReference {
    Reference(FakeAuthorization& owner, std::string tool) : owner(owner), tool(std::move(tool)) {
        ++owner.alive;
    }
    ~Reference() override { --owner.alive; }
    std::int32_t copyRights(const std::string& right, std::uint32_t flags) override {
        owner.requests.push_back({right, flags});
        return owner.rightStatus;
    }
    std::int32_t executeWithPrivileges(const std::string& toolPath) override {
        if (owner.executeStatus != 0)
            return owner.executeStatus;
        if (!toolPath.ends_with("/" + tool))
            return platform::AuthorizationDenied;
        owner.toolPaths.push_back(toolPath);
        owner.tools.push_back(tool);
        if (owner.onTool)
            owner.onTool(owner.tools.back());
        return 0;
    }
    void free(std::uint32_t flags) override { owner.freed.push_back(flags); }

    FakeAuthorization& owner;
    const std::string tool;
};

std::int32_t FakeAuthorization::create(
    const std::string& tool, std::unique_ptr<platform::AuthorizationReference>& reference) {
    if (createStatus != 0)
        return createStatus;
    reference = std::make_unique<Reference>(*this, tool);
    return 0;
}

}  // namespace zelvo::test
