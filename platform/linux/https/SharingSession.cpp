#include "platform/linux/https/SharingSession.h"

#include <ctime>
#include <system_error>
#include <utility>

#include "platform/Log.h"
#include "platform/linux/https/ServiceExplanation.h"

namespace zelvo::platform {

using Kind = SharingRequest::Kind;
using namespace std::chrono_literals;

namespace {

/// A link that waits for its withdrawal cannot be registered meanwhile, so this bounds how much
/// later a start without a network says so.
constexpr auto LeftoverConnectsWithin = 10s;

/// Goes on while the computer sleeps.
std::chrono::milliseconds timeSinceBoot() {
    timespec now{};
    ::clock_gettime(CLOCK_BOOTTIME, &now);
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

}  // namespace

SharingSession::SharingSession(MainQueue& mainQueue, ServiceExplanation& explanation, Log& log,
                               Options options)
    : mainQueue_(mainQueue),
      explanation_(explanation),
      log_(log),
      registers_(std::move(options.registers)),
      disowns_(std::move(options.disowns)),
      inquired_(std::move(options.inquired)),
      signsOfLifeEvery_(options.signsOfLifeEvery),
      journal_(options.stateFolder, log),
      exchanges_(mainQueue, exchangeOptions(options)) {
    for (auto& request : journal_.requests()) {
        auto what = SharingRequest::of(request);
        submit({std::move(what), std::move(request), nullptr, true});
    }
}

CurlUrlSession::Options SharingSession::exchangeOptions(const Options& options) {
    auto its = options.exchanges;
    if (!options.stateFolder.empty())
        its.cookieFile = options.stateFolder + "/cookies";
    its.cookiesAreLost = [&log = log_, told = its.cookiesAreLost](const std::string& error) {
        if (!error.empty())
            log.line("Sharing service: the proof that the link is this computer's is not kept: " +
                     error);
        if (told)
            told(error);
    };
    its.beat = [this, alive = std::weak_ptr(alive_)] {
        if (alive.lock())
            showLife();
    };
    return its;
}

void SharingSession::dataTask(UrlRequest request, std::function<void(UrlResult)> done) {
    // Nothing is sent any more, so nothing is to be heard of either.
    if (!mainQueue_.isOpen())
        return;
    auto what = SharingRequest::of(request);
    if (what.kind == Kind::Creation)
        explanation_.creationBegan();
    if (what.kind == Kind::Withdrawal)
        journal_.add(request);
    if (what.kind == Kind::Inquiry) {
        inquiry_ = request;
        lastSign_ = timeSinceBoot();
    } else if (what.kind != Kind::Other) {
        inquiry_.reset();
    }
    Task task{std::move(what), std::move(request), std::move(done)};
    if (task.what.kind == Kind::Creation && quitBegun_)
        refuse(std::move(task));
    else
        submit(std::move(task));
}

void SharingSession::submit(Task task) {
    if (task.what.link.empty())
        return send(std::move(task), [] {});
    auto [queue, isFirst] = waiting_.try_emplace(task.what.link);
    const auto link = task.what.link;
    queue->second.push_back(std::move(task));
    if (isFirst)
        sendFirst(link);
}

void SharingSession::sendFirst(const std::string& link) {
    auto queue = waiting_.find(link);
    if (queue->second.empty()) {
        waiting_.erase(queue);
        return;
    }
    auto task = std::move(queue->second.front());
    queue->second.pop_front();
    send(std::move(task), [this, link] { sendFirst(link); });
}

void SharingSession::send(Task task, std::function<void()> ended) {
    auto request = std::move(task.request);
    const bool isLeftover = task.isLeftover;
    exchanges_.exchange(
        std::move(request),
        [this, task = std::move(task), ended = std::move(ended)](UrlResult result,
                                                                 const ExchangeReport& report) {
            hear(task, result, report);
            ended();
            if (task.done)
                task.done(std::move(result));
        },
        isLeftover ? LeftoverConnectsWithin : 1h);
}

void SharingSession::hear(const Task& task, const UrlResult& result, const ExchangeReport& report) {
    if (task.what.kind == Kind::Creation &&
        (result.data || report.trouble != ExchangeTrouble::None))
        explanation_.creationEnded(result.data && registers_(*result.data), report.trouble);
    if (task.what.kind == Kind::Inquiry && result.data && inquired_)
        inquired_();
    if (task.what.kind != Kind::Withdrawal)
        return;
    // A service that fails or is asked too often, or whatever stands before it and says so, has
    // withdrawn nothing. One that refuses would refuse again.
    constexpr long tooManyRequests = 429;
    const bool isConfirmed =
        result.data && report.httpStatus < 500 && report.httpStatus != tooManyRequests;
    if (isConfirmed)
        journal_.remove(task.what.link);
    if (!task.isLeftover)
        explanation_.withdrawalEnded(isConfirmed);
    if (!isConfirmed)
        log_.line(
            "Sharing service: it has not confirmed that the link is withdrawn; the next "
            "start asks it again");
    else if (task.isLeftover)
        log_.line("Sharing service: it has withdrawn the link that an earlier run left");
}

void SharingSession::refuse(Task task) {
    mainQueue_.async([done = std::move(task.done)] {
        done({std::nullopt, Error{UrlErrorDomain, 0, "No link is registered during a quit"}});
    });
}

void SharingSession::showLife() {
    if (!inquiry_ || quitBegun_ || isShowingLife_ ||
        timeSinceBoot() - lastSign_ < signsOfLifeEvery_)
        return;
    isShowingLife_ = true;
    const auto begun = timeSinceBoot();
    exchanges_.exchange(*inquiry_, [this, begun, body = inquiry_->body](
                                       const UrlResult& result, const ExchangeReport& report) {
        constexpr long answered = 200;
        isShowingLife_ = false;
        // There may be another link by now.
        const bool isMeant = inquiry_ && inquiry_->body == body;
        if (result.data && isMeant && disowns_ && disowns_(*result.data))
            log_.line(
                "Sharing service: it does not know the link any more, which leads nowhere; start "
                "over for a new one");
        // Else the next beat tries again.
        if (report.httpStatus == answered)
            lastSign_ = begun;
    });
}

void SharingSession::askAgain(std::function<void(const std::vector<std::byte>&)> done) {
    if (!inquiry_ || quitBegun_)
        return;
    exchanges_.exchange(*inquiry_, [this, body = inquiry_->body, done = std::move(done)](
                                       const UrlResult& result, const ExchangeReport&) {
        if (result.data && inquiry_ && inquiry_->body == body)
            done(*result.data);
    });
}

UrlResult SharingSession::sendSynchronously(const UrlRequest& request) {
    return exchanges_.sendSynchronously(request);
}

std::unique_ptr<SerialQueue> SharingSession::makeSerialQueue() {
    return exchanges_.makeSerialQueue();
}

void SharingSession::quitBegins() {
    quitBegun_ = true;
    exchanges_.quitBegins();
    for (auto& [link, queue] : waiting_)
        for (auto& task : std::exchange(queue, {})) {
            if (task.what.kind == Kind::Creation)
                refuse(std::move(task));
            else
                queue.push_back(std::move(task));
        }
}

}  // namespace zelvo::platform
