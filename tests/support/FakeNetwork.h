#pragma once

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/NatPortMapping.h"
#include "platform/UrlSession.h"
#include "tests/support/ManualLoop.h"

namespace zelvo::test {

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
                  std::function<void(platform::UrlResult)> done) override;
    platform::UrlResult sendSynchronously(const platform::UrlRequest& request) override;
    std::unique_ptr<platform::SerialQueue> makeSerialQueue() override;

    /// The answer to every later request for the endpoint.
    void answer(const std::string& endpoint, std::vector<std::byte> body);
    void answer(const std::string& endpoint, const std::string& body);
    void fail(const std::string& endpoint);
    /// Answers nothing until `release`.
    void hold(bool held) { held_ = held; }
    void release();
    /// Drops what is held, unanswered.
    void drop() { waiting_.clear(); }

    std::vector<std::string> endpoints() const;
    std::size_t count(const std::string& endpoint) const;
    const RecordedRequest& last(const std::string& endpoint) const;

    std::vector<RecordedRequest> requests;
    int serialQueuesMade = 0;

  private:
    platform::UrlResult record(const platform::UrlRequest& request);

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
                        const platform::NatPortMappingRequest& request, Callback callback) override;

    /// Answers the open request, from the main queue.
    void reply(const std::string& address, std::uint16_t externalPort, std::int32_t errorCode = 0);
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
    struct Reference;
    ManualLoop& loop_;
    Reference* current_ = nullptr;
    std::optional<std::string> automatic_;
    std::int32_t refusal_ = 0;
};

}  // namespace zelvo::test
