#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "service/LinkArchive.h"

namespace zelvo::service {

/// What whoever runs the service asks of its links on the command line, beside serving.
class Administration {
  public:
    /// Opens a database; null, with the reason in error, when it cannot be used.
    using Open = std::function<std::unique_ptr<LinkArchive>(
        const std::string& place, LinkArchive::Use use, std::string& error)>;

    Administration(Open open, Moment now) : open_(std::move(open)), now_(now) {}

    /// Does what the arguments that follow the program's name ask for, and returns the exit status;
    /// nothing where they ask for none of it.
    std::optional<int> run(std::span<char*> arguments);
    static std::string usage();

  private:
    int links(const std::string& what, std::span<char*> arguments);
    int list(LinkArchive& archive) const;
    int end(LinkArchive& archive, std::span<const std::string> links) const;
    int purge(LinkArchive& archive, std::span<const std::string> days) const;
    int migrate(std::span<char*> arguments);
    std::unique_ptr<LinkArchive> openExisting(const std::string& place, LinkArchive::Use use) const;

    const Open open_;
    const Moment now_;
};

}  // namespace zelvo::service
