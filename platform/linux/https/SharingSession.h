#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/https/CurlUrlSession.h"
#include "platform/linux/https/SharingRequest.h"
#include "platform/linux/https/WithdrawalJournal.h"

namespace zelvo::platform {

class Log;
class ServiceExplanation;

/// The session to the sharing service. What changes one link goes one request after the other, so
/// that no withdrawal overtakes, or is overtaken by, the registration of the same link. A
/// withdrawal that is not confirmed is sent again by the next start. While the link is there the
/// service is asked for it once a day, which tells it that the host is alive.
class SharingSession : public UrlSession {
  public:
    struct Options {
        CurlUrlSession::Options exchanges;
        /// Where unconfirmed withdrawals are kept, and cookies; empty for nowhere.
        std::string stateFolder;
        /// Whether a reply says that a link is registered.
        std::function<bool(const std::vector<std::byte>& reply)> registers;
        /// Whether a reply says that the service does not know the link that it was asked for.
        std::function<bool(const std::vector<std::byte>& reply)> disowns = {};
        /// Called when the service has told the link that is there.
        std::function<void()> inquired = {};
        std::chrono::milliseconds signsOfLifeEvery = std::chrono::hours(24);
    };

    /// Sends the withdrawals that earlier runs have left. All outlive this object.
    SharingSession(MainQueue& mainQueue, ServiceExplanation& explanation, Log& log,
                   Options options);
    SharingSession(const SharingSession&) = delete;
    SharingSession& operator=(const SharingSession&) = delete;

    void dataTask(UrlRequest request, std::function<void(UrlResult)> done) override;
    UrlResult sendSynchronously(const UrlRequest& request) override;
    std::unique_ptr<SerialQueue> makeSerialQueue() override;

    /// Asks again for the link that is there. `done` is called with the reply, once at most: not
    /// without a link or a reply, nor for a link that has gone meanwhile.
    void askAgain(std::function<void(const std::vector<std::byte>&)> done);

    /// From now on nothing takes long, and no link is registered any more. Main thread only.
    void quitBegins();

  private:
    struct Task {
        SharingRequest what;
        UrlRequest request;
        std::function<void(UrlResult)> done;
        bool isLeftover = false;
    };

    void submit(Task task);
    void sendFirst(const std::string& link);
    void send(Task task, std::function<void()> ended);
    void hear(const Task& task, const UrlResult& result, const ExchangeReport& report);
    void refuse(Task task);
    void showLife();
    CurlUrlSession::Options exchangeOptions(const Options& options);

    MainQueue& mainQueue_;
    ServiceExplanation& explanation_;
    Log& log_;
    const std::function<bool(const std::vector<std::byte>&)> registers_;
    const std::function<bool(const std::vector<std::byte>&)> disowns_;
    const std::function<void()> inquired_;
    const std::chrono::milliseconds signsOfLifeEvery_;
    bool quitBegun_ = false;
    /// The last question for the link that is there.
    std::optional<UrlRequest> inquiry_;
    std::chrono::milliseconds lastSign_{0};
    bool isShowingLife_ = false;
    /// By which a beat that comes late sees that this object has gone.
    std::shared_ptr<bool> alive_ = std::make_shared<bool>();
    WithdrawalJournal journal_;
    /// By the link that they change; the request that is under way is out of its queue.
    std::map<std::string, std::deque<Task>> waiting_;
    // Last, so that nothing of it comes back once the rest has gone.
    CurlUrlSession exchanges_;
};

}  // namespace zelvo::platform
