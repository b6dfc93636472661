#include <memory>
#include <utility>

#include "server/screen/choice/ScreenModule.h"
#include "server/screen/wlroots/WlrootsScreen.h"

extern "C" __attribute__((visibility("default"))) void zelvoOpenScreen(
    std::unique_ptr<zelvo::server::ScreenOpening>& opening);

void zelvoOpenScreen(std::unique_ptr<zelvo::server::ScreenOpening>& opening) {
    using namespace zelvo::server;
    auto connection = std::make_unique<WlrootsConnection>();
    if (!connection->isUsable())
        return;
    opening = std::make_unique<OpenedAtOnce>(
        ScreenResult{std::make_unique<WlrootsScreen>(std::move(connection)), {}, {}});
}
