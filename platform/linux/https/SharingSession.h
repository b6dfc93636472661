#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
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
/// withdrawal that is not confirmed is sent again by the next start.
class SharingSession : public UrlSession {
  public:
    struct Options {
        CurlUrlSession::Options exchanges;
        /// Where unconfirmed withdrawals are kept; empty for nowhere.
        std::string stateFolder;
        /// Whether a reply says that a link is registered.
        std::function<bool(const std::vector<std::byte>& reply)> registers;
    };

    /// Sends the withdrawals that earlier runs have left. All outlive this object.
    SharingSession(MainQueue& mainQueue, ServiceExplanation& explanation, Log& log,
                   Options options);
    SharingSession(const SharingSession&) = delete;
    SharingSession& operator=(const SharingSession&) = delete;

    void dataTask(UrlRequest request, std::function<void(UrlResult)> done) override;
    UrlResult sendSynchronously(const UrlRequest& request) override;
    std::unique_ptr<SerialQueue> makeSerialQueue() override;

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

    MainQueue& mainQueue_;
    ServiceExplanation& explanation_;
    Log& log_;
    const std::function<bool(const std::vector<std::byte>&)> registers_;
    bool quitBegun_ = false;
    WithdrawalJournal journal_;
    /// By the link that they change; the request that is under way is out of its queue.
    std::map<std::string, std::deque<Task>> waiting_;
    // Last, so that nothing of it comes back once the rest has gone.
    CurlUrlSession exchanges_;
};

}  // namespace zelvo::platform
