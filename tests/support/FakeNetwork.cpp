#include "tests/support/FakeNetwork.h"

#include <arpa/inet.h>

#include <algorithm>
#include <span>
#include <stdexcept>
#include <utility>

namespace zelvo::test {

namespace {

std::string unescaped(std::string_view text) {
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

std::map<std::string, std::string> fieldsOf(const std::vector<std::byte>& body) {
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

}  // namespace

platform::UrlResult RecordingPeer::record(const platform::UrlRequest& request) {
    auto endpoint = request.url.substr(request.url.rfind('/') + 1);
    requests.push_back({request, endpoint, fieldsOf(request.body)});
    if (auto found = answers_.find(endpoint); found != answers_.end())
        return found->second;
    return {std::nullopt, platform::Error{platform::UrlErrorDomain, 7, "no connection"}};
}

void RecordingPeer::dataTask(platform::UrlRequest request,
                             std::function<void(platform::UrlResult)> done) {
    if (!loop_.isOpen())
        return;
    auto answer = [result = record(request), done = std::move(done)] { done(result); };
    if (held_)
        waiting_.push_back(std::move(answer));
    else
        loop_.async(std::move(answer));
}

platform::UrlResult RecordingPeer::sendSynchronously(const platform::UrlRequest& request) {
    return record(request);
}

std::unique_ptr<platform::SerialQueue> RecordingPeer::makeSerialQueue() {
    ++serialQueuesMade;
    return std::make_unique<QueueOnLoop>(loop_);
}

void RecordingPeer::answer(const std::string& endpoint, std::vector<std::byte> body) {
    answers_[endpoint] = {std::move(body), std::nullopt};
}

void RecordingPeer::answer(const std::string& endpoint, const std::string& body) {
    auto bytes = std::as_bytes(std::span(body));
    answer(endpoint, std::vector<std::byte>(bytes.begin(), bytes.end()));
}

void RecordingPeer::fail(const std::string& endpoint) {
    answers_.erase(endpoint);
}

void RecordingPeer::release() {
    held_ = false;
    for (auto& answer : std::exchange(waiting_, {}))
        loop_.async(std::move(answer));
}

std::vector<std::string> RecordingPeer::endpoints() const {
    std::vector<std::string> result;
    for (const auto& request : requests)
        result.push_back(request.endpoint);
    return result;
}

std::size_t RecordingPeer::count(const std::string& endpoint) const {
    return static_cast<std::size_t>(
        std::count_if(requests.begin(), requests.end(),
                      [&](const auto& request) { return request.endpoint == endpoint; }));
}

const RecordedRequest& RecordingPeer::last(const std::string& endpoint) const {
    auto found = std::find_if(requests.rbegin(), requests.rend(),
                              [&](const auto& request) { return request.endpoint == endpoint; });
    if (found == requests.rend())
        throw std::out_of_range("no request for " + endpoint);
    return *found;
}

struct ScriptedRouter::Reference : platform::NatPortMappingReference {
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

std::int32_t ScriptedRouter::create(std::unique_ptr<platform::NatPortMappingReference>& reference,
                                    const platform::NatPortMappingRequest& request,
                                    Callback callback) {
    requests.push_back({request, ntohs(request.internalPort), ntohs(request.externalPort)});
    if (createError != 0)
        return createError;
    reference = std::make_unique<Reference>(*this, std::move(callback));
    if (automatic_)
        reply(*automatic_, refusal_ == 0 ? requests.back().externalPort : std::uint16_t{0},
              refusal_);
    return 0;
}

void ScriptedRouter::reply(const std::string& address, std::uint16_t externalPort,
                           std::int32_t errorCode) {
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

}  // namespace zelvo::test
