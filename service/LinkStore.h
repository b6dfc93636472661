#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "service/FormDecoder.h"
#include "service/LinkLife.h"

namespace zelvo::service {

/// The registered links, their facts and their owners. A change is durable before its function is
/// called, so that a killed process or a power cut loses none that was answered. Any thread; the
/// functions are called exactly once, inside the call or later, on any thread, and do not block.
class LinkStore {
  public:
    enum class Outcome {
        Done,
        Unknown,  ///< no such link, or it is somebody else's
        /// The database is damaged, locked, full, overrun or away. Nothing has changed, unless it
        /// went while it confirmed and is not back in time: that change may be there.
        Failed,
    };
    enum class Availability : int { Available = 0, Unavailable = 1 };

    struct Registration {
        Fields facts;  ///< one value for each of FactNames
        Availability availability = Availability::Available;
        /// Whether the host was seen at the address that it registered.
        bool addressIsProven = false;
    };

    /// SHA-256 of the owner's secret; empty for nobody, who owns nothing.
    using Owner = std::string;

    struct Creation {
        std::string kept;  ///< the link that the host would like to have again; may be any text
        Owner owner;       ///< who says so
        std::string newLink;
        Owner newOwner;  ///< takes the place of an owner who owns nothing here
        Registration registration;
    };
    struct Created {
        Outcome outcome = Outcome::Failed;
        std::string link;
        bool isNewOwner = false;
    };

    struct Record {
        Registration registration;
        Owner owner;
        Moment lastSign = 0;
    };

    struct Figures {
        std::uint64_t commits = 0;
        std::uint64_t changes = 0;   ///< in those commits
        std::uint64_t failures = 0;  ///< changes that the database refused
        std::uint64_t waiting = 0;
    };

    virtual ~LinkStore() = default;

    /// Registers the kept link anew where it is the owner's, else the new one.
    virtual void create(Creation creation, std::function<void(const Created&)> done) = 0;
    /// Replaces everything that is kept under the link.
    virtual void replace(const std::string& link, const Owner& owner, Registration registration,
                         std::function<void(Outcome)> done) = 0;
    virtual void remove(const std::string& link, const Owner& owner,
                        std::function<void(Outcome)> done) = 0;
    virtual void find(const std::string& link,
                      std::function<void(Outcome, const Record&)> done) = 0;
    /// Notes a sign of life, soon.
    virtual void touch(const std::string& link) = 0;

    /// Whether the last change went well, or none has been tried.
    virtual bool isWell() const = 0;
    virtual Figures figures() const = 0;
};

}  // namespace zelvo::service
