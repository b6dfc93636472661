#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "serving/HttpServer.h"

namespace zelvo::service {

/// What a browser is shown at a link: the same bytes for everybody, whose script asks for the rest.
/// Any thread.
class WebPage {
  public:
    /// Reads the page, and beside it the same compressed (".gz"). It may connect to these relays,
    /// names by address. Nothing, with the reason in error, where one cannot be read.
    static std::optional<WebPage> read(const std::string& file,
                                       const std::map<std::string, std::string>& relays,
                                       std::string& error);

    /// Whether a link leads to this path of a URL, known or not.
    static bool isAt(std::string_view path);
    serving::HttpResponse answer(const serving::HttpRequest& request) const;

  private:
    std::string text_;
    std::string compressed_;
    std::string policy_;
};

}  // namespace zelvo::service
