#include "link/ZVHTTPUtils.h"

#include <utility>

#include "link/FormEncoding.h"

namespace zelvo {

ZVHTTPUtils::ZVHTTPUtils(platform::UrlSession& session,
                         const platform::PropertyListReader& propertyLists,
                         platform::MainQueue& mainQueue)
    : session_(session), propertyLists_(propertyLists), mainQueue_(mainQueue) {}

ZVHTTPUtils::~ZVHTTPUtils() = default;

platform::UrlRequest ZVHTTPUtils::createPostURLRequest(
    const std::string& url, const platform::PropertyList::Dictionary& params) {
    std::string fields;
    for (const auto& [key, value] : params) {
        if (const auto* elements = value.array()) {
            for (const auto& element : *elements)
                appendField(fields, key + "[]", element);
        } else if (const auto* entries = value.dictionary()) {
            for (const auto& [innerKey, inner] : *entries)
                appendField(fields, key + '[' + innerKey + ']', inner);
        } else {
            appendField(fields, key, value);
        }
    }
    return formPost(url, fields);
}

ZVHTTPUtils::Reply ZVHTTPUtils::sendSynchronousRequest(const platform::UrlRequest& request,
                                                       Failure* error) {
    if (error)
        error->reset();
    auto result = session_.sendSynchronously(request);
    if (!result.data) {
        if (error)
            *error = std::move(result.error);
        return std::nullopt;
    }
    auto parsed = propertyLists_.parse(*result.data);
    if (!parsed.value && error)
        *error = std::move(parsed.error);
    return std::move(parsed.value);
}

void ZVHTTPUtils::sendAsynchronousRequest(platform::UrlRequest request,
                                          std::function<void(Reply, Failure)> onComplete) {
    if (!httpQueue_)
        httpQueue_ = session_.makeSerialQueue();
    httpQueue_->async([this, request = std::move(request), onComplete = std::move(onComplete)] {
        Failure error;
        auto reply = sendSynchronousRequest(request, &error);
        mainQueue_.async([onComplete, reply = std::move(reply), error = std::move(error)] {
            onComplete(reply, error);
        });
    });
}

}  // namespace zelvo
