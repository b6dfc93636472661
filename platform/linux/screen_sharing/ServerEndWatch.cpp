#include "platform/linux/screen_sharing/ServerEndWatch.h"

#include <QSocketNotifier>
#include <chrono>

#include "platform/linux/base/Debug.h"
#include "platform/linux/base/ProcessDescriptor.h"

namespace zelvo::platform {

ServerEndWatch::ServerEndWatch() {
    pause_.setSingleShot(true);
    pause_.setInterval(std::chrono::seconds(1));
    connect(&pause_, &QTimer::timeout, this, [this] {
        if (ended)
            ended();
    });
}

ServerEndWatch::~ServerEndWatch() = default;

void ServerEndWatch::watch(pid_t server) {
    if (server == server_)
        return;
    notifier_.reset();
    process_ = processDescriptor(server);
    server_ = process_ ? server : 0;
    debug("screen_sharing", "process " + std::to_string(server) +
                                (process_ ? " is the server" : " has ended already"));
    if (!process_)
        return;
    notifier_ = std::make_unique<QSocketNotifier>(process_.get(), QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, [this] {
        debug("screen_sharing", "the server has ended");
        notifier_->setEnabled(false);
        server_ = 0;
        pause_.start();
    });
}

}  // namespace zelvo::platform
