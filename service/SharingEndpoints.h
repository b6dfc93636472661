#pragma once

#include <string_view>

#include "service/LinkStore.h"
#include "service/Reply.h"

namespace zelvo::service {

/// The four things that one can ask the service: to register a link, to replace its facts, to
/// tell them, and to forget it. Any thread.
class SharingEndpoints {
  public:
    explicit SharingEndpoints(LinkStore& store) : store_(store) {}

    /// Whether there is an endpoint at this path of a URL.
    static bool has(std::string_view path);

    /// Answers the form that was posted to the path.
    Reply answer(std::string_view path, std::string_view body);

  private:
    struct Endpoint;
    static const Endpoint Endpoints[4];
    static const Endpoint* find(std::string_view path);

    Reply create(const Fields& fields);
    Reply update(const Fields& fields);
    Reply get(const Fields& fields);
    Reply remove(const Fields& fields);

    LinkStore& store_;
};

}  // namespace zelvo::service
