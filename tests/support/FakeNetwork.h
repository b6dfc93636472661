#pragma once

#include <arpa/inet.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/NatPortMapping.h"
#include "platform/UrlSession.h"
#include "tests/support/ManualLoop.h"

namespace zelvo::test {

inline std::string unescaped(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size()) {
            result += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
            i += 2;
        } else {
            result += text[i];
        }
    }
    return result;
}

inline std::map<std::string, std::string> fieldsOf(const std::vector<std::byte>& body) {
    std::map<std::string, std::string> fields;
    std::string_view rest(reinterpret_cast<const char*>(body.data()), body.size());
    while (!rest.empty()) {
        auto field = rest.substr(0, rest.find('&'));
        rest.remove_prefix(std::min(rest.size(), field.size() + 1));
        auto split = field.find('=');
        fields.emplace(field.substr(0, split), unescaped(field.substr(split + 1)));
    }
    return fields;
}

struct QueueOnLoop : platform::SerialQueue {
    explicit QueueOnLoop(ManualLoop& loop) : loop(loop) {}
    void async(std::function<void()> job) override { loop.async(std::move(job)); }
    ManualLoop& loop;
};

/// One exchange as the peer saw it.
struct RecordedRequest {
    platform::UrlRequest request;
    /// The last component of the URL's path, such as "create.php".
    std::string endpoint;
    /// The decoded fields of the body.
    std::map<std::string, std::string> fields;
};

/// An HTTP peer that records every request and answers, by endpoint, what the test has laid ready.
class RecordingPeer : public platform::UrlSession {
  public:
    explicit RecordingPeer(ManualLoop& loop) : loop_(loop) {}

    void dataTask(platform::UrlRequest request,
                  std::function<void(platform::UrlResult)> done) override {
        if (!loop_.isOpen())
            return;
        auto answer = [result = sendSynchronously(request), done = std::move(done)] {
            done(result);
        };
        if (held_)
            waiting_.push_back(std::move(answer));
        else
            loop_.async(std::move(answer));
    }
    platform::UrlResult sendSynchronously(const platform::UrlRequest& request) override {
        auto endpoint = request.url.substr(request.url.rfind('/') + 1);
        requests.push_back({request, endpoint, fieldsOf(request.body)});
        if (auto found = answers_.find(endpoint); found != answers_.end())
            return found->second;
        return {std::nullopt, platform::Error{platform::UrlErrorDomain, 7, "no connection"}};
    }
    std::unique_ptr<platform::SerialQueue> makeSerialQueue() override {
        ++serialQueuesMade;
        return std::make_unique<QueueOnLoop>(loop_);
    }

    /// The answer to every later request for the endpoint.
    void answer(const std::string& endpoint, std::vector<std::byte> body) {
        answers_[endpoint] = {std::move(body), std::nullopt};
    }
    void answer(const std::string& endpoint, const std::string& body) {
        auto bytes = std::as_bytes(std::span(body));
        answer(endpoint, std::vector<std::byte>(bytes.begin(), bytes.end()));
    }
    void fail(const std::string& endpoint) { answers_.erase(endpoint); }
    /// Answers nothing until `release`.
    void hold(bool held) { held_ = held; }
    void release() {
        held_ = false;
        for (auto& answer : std::exchange(waiting_, {}))
            loop_.async(std::move(answer));
    }
    /// Drops what is held, unanswered.
    void drop() { waiting_.clear(); }

    std::vector<std::string> endpoints() const {
        std::vector<std::string> result;
        for (const auto& request : requests)
            result.push_back(request.endpoint);
        return result;
    }
    std::size_t count(const std::string& endpoint) const {
        return static_cast<std::size_t>(
            std::count_if(requests.begin(), requests.end(),
                          [&](const auto& request) { return request.endpoint == endpoint; }));
    }
    const RecordedRequest& last(const std::string& endpoint) const {
        auto found = std::find_if(requests.rbegin(), requests.rend(), [&](const auto& request) {
            return request.endpoint == endpoint;
        });
        if (found == requests.rend())
            throw std::out_of_range("no request for " + endpoint);
        return *found;
    }

    std::vector<RecordedRequest> requests;
    int serialQueuesMade = 0;

  private:
    ManualLoop& loop_;
    bool held_ = false;
    std::map<std::string, platform::UrlResult> answers_;
    std::deque<std::function<void()>> waiting_;
};

/// A mapping service that answers when the test says so.
class ScriptedRouter : public platform::NatPortMapping {
  public:
    explicit ScriptedRouter(ManualLoop& loop) : loop_(loop) {}

    std::int32_t create(std::unique_ptr<platform::NatPortMappingReference>& reference,
                        const platform::NatPortMappingRequest& request,
                        Callback callback) override {
        requests.push_back({request, ntohs(request.internalPort), ntohs(request.externalPort)});
        if (createError != 0)
            return createError;
        reference = std::make_unique<Reference>(*this, std::move(callback));
        if (automatic_)
            reply(*automatic_, refusal_ == 0 ? requests.back().externalPort : std::uint16_t{0},
                  refusal_);
        return 0;
    }

    /// Answers the open request, from the main queue.
    void reply(const std::string& address, std::uint16_t externalPort, std::int32_t errorCode = 0) {
        if (!current_)
            return;
        platform::NatPortMappingReply reply;
        reply.errorCode = errorCode;
        reply.externalAddress = inet_addr(address.c_str());
        reply.protocol = requests.back().asked.protocol;
        reply.internalPort = requests.back().asked.internalPort;
        reply.externalPort = htons(externalPort);
        reply.ttl = 3600;
        loop_.async([weak = std::weak_ptr(current_->callback), reply] {
            if (auto callback = weak.lock())
                (*callback)(reply);
        });
    }
    /// Answers every later request at once with its own port and this address.
    void grantAll(const std::string& address) { automatic_ = address; }
    void refuseAll(std::int32_t errorCode) {
        automatic_ = "0.0.0.0";
        refusal_ = errorCode;
    }

    /// Host byte order.
    struct Request {
        platform::NatPortMappingRequest asked;
        std::uint16_t internalPort = 0;
        std::uint16_t externalPort = 0;
    };
    std::vector<Request> requests;
    int open = 0;
    int closed = 0;
    std::int32_t createError = 0;
    std::int32_t queueError = 0;

  private:
    struct Reference : platform::NatPortMappingReference {
        Reference(ScriptedRouter& router, Callback callback)
            : router(router), callback(std::make_shared<Callback>(std::move(callback))) {
            ++router.open;
            router.current_ = this;
        }
        ~Reference() override {
            --router.open;
            ++router.closed;
            if (router.current_ == this)
                router.current_ = nullptr;
        }
        std::int32_t setMainQueue() override { return router.queueError; }

        ScriptedRouter& router;
        std::shared_ptr<Callback> callback;
    };
    ManualLoop& loop_;
    Reference* current_ = nullptr;
    std::optional<std::string> automatic_;
    std::int32_t refusal_ = 0;
};

}  // namespace zelvo::test
