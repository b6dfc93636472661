#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "service/Reply.h"

namespace zelvo::service {

/// A folder of the test's own, gone with the test.
class Workshop {
  public:
    Workshop();
    Workshop(const Workshop&) = delete;
    ~Workshop();

    /// Makes cert.pem and key.pem for 127.0.0.1 with the openssl command.
    void makeCertificate() const;
    std::string path(const std::string& name) const { return folder_ / name; }

  private:
    std::filesystem::path folder_;
};

/// A running zelvo-service, killed with the object where it still runs.
class ServiceProgram {
  public:
    explicit ServiceProgram(std::vector<std::string> arguments);
    ServiceProgram(const ServiceProgram&) = delete;
    ~ServiceProgram();

    /// The next line of its standard output; empty at its end.
    std::string readLine() const;
    /// Sends the signal, 0 for none, and waits for the end: the exit status, or minus the signal
    /// that ended it.
    int end(int signal);

  private:
    pid_t child_ = -1;
    int output_ = -1;
};

/// The arguments of a service on the workshop's database and certificate.
std::vector<std::string> serviceArguments(const Workshop& workshop);

/// Reads a property list with another program's reader.
Reply parse(const std::string& xml);
std::int64_t statusOf(const Reply& reply);

/// Posts a form and reads the reply; nothing when there was no reply.
std::optional<Reply> post(const Workshop& workshop, int port, const std::string& endpoint,
                          const std::string& body);

/// A connection that sends the bytes, plain, and then nothing. The descriptor.
int connectAndSend(int port, const std::string& bytes);

/// Nine good facts of a host, as a client writes them.
std::string facts(const std::string& name);

}  // namespace zelvo::service
