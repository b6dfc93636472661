#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/Error.h"
#include "platform/MainQueue.h"
#include "platform/PropertyList.h"
#include "platform/PropertyListReader.h"
#include "platform/UrlSession.h"

namespace zelvo {

/// Form-encoded POST requests that can carry arrays and maps, answered by property lists.
class ZVHTTPUtils {
  public:
    using Reply = std::optional<platform::PropertyList>;
    using Failure = std::optional<platform::Error>;

    ZVHTTPUtils(platform::UrlSession& session, const platform::PropertyListReader& propertyLists,
                platform::MainQueue& mainQueue);
    /// Waits for an exchange that is under way. A class that overrides the synchronous sender is
    /// destroyed only once its asynchronous requests have been answered.
    virtual ~ZVHTTPUtils();

    /// An array gives one field "name[]" for each element, a map one field "name[key]" for each
    /// entry, in their order, anything else one field "name"; collections inside those go as their
    /// text.
    static platform::UrlRequest createPostURLRequest(
        const std::string& url, const platform::PropertyList::Dictionary& params);

    /// Performs the exchange on the calling thread. `error` is cleared first, then holds the
    /// transport's or the parser's error where there is no reply; it may be null. Any thread.
    virtual Reply sendSynchronousRequest(const platform::UrlRequest& request, Failure* error);

    /// Performs the exchange on a thread of its own, one request after the other; the completion
    /// runs on the main thread. Main thread only.
    void sendAsynchronousRequest(platform::UrlRequest request,
                                 std::function<void(Reply, Failure)> onComplete);

  private:
    platform::UrlSession& session_;
    const platform::PropertyListReader& propertyLists_;
    platform::MainQueue& mainQueue_;
    std::unique_ptr<platform::SerialQueue> httpQueue_;
};

}  // namespace zelvo
