#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "serving/HttpServer.h"

namespace zelvo::serving {

class Metrics;

/// For whoever runs a server: "/health" and "/metrics", over plain HTTP on an address of their own.
class OperatorServer {
  public:
    /// Both outlive this object; `isWell` is asked on its thread.
    OperatorServer(const Metrics& metrics, std::function<bool()> isWell);

    /// Serves at "ADDRESS:PORT" until this object ends. The port; nothing when it is no such
    /// address, or taken.
    std::optional<int> start(const std::string& place);

  private:
    HttpServer server_;
};

}  // namespace zelvo::serving
