#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace zelvo::platform {

inline constexpr std::uint32_t AuthorizationFlagInteractionAllowed = 1;
inline constexpr std::uint32_t AuthorizationFlagExtendRights = 2;
inline constexpr std::uint32_t AuthorizationFlagDestroyRights = 8;
inline constexpr std::uint32_t AuthorizationFlagPreAuthorize = 16;

/// Status values; 0 is success.
inline constexpr std::int32_t AuthorizationSuccess = 0;
/// The user is not allowed, or gave no valid credentials.
inline constexpr std::int32_t AuthorizationDenied = -60005;
/// The user dismissed the prompt.
inline constexpr std::int32_t AuthorizationCanceled = -60006;
/// There is nobody who could ask the user.
inline constexpr std::int32_t AuthorizationInteractionNotAllowed = -60007;
/// Something is broken: no authorization service, or an answer that makes no sense.
inline constexpr std::int32_t AuthorizationInternal = -60008;
/// The right was granted, but the tool could not be started.
inline constexpr std::int32_t AuthorizationToolExecuteFailure = -60031;

/// One request for rights. Destroying it releases it and discards the rights. Main thread only.
class AuthorizationReference {
  public:
    virtual ~AuthorizationReference() = default;

    /// Obtains the right, asking the user where the flags allow it; blocks until answered. A
    /// status.
    virtual std::int32_t copyRights(const std::string& right, std::uint32_t flags) = 0;

    /// Starts the tool (a shell script, by its whole path) with the right and returns as soon as it
    /// has been started, without waiting for its end. A status. The path is handed over as one
    /// argument, never as shell text, so that it may hold any character.
    virtual std::int32_t executeWithPrivileges(const std::string& toolPath) = 0;

    /// Releases the reference; with AuthorizationFlagDestroyRights no right is kept for a later
    /// one.
    virtual void free(std::uint32_t flags) = 0;
};

/// Main thread only.
class Authorization {
  public:
    virtual ~Authorization() = default;

    /// Makes an empty reference: 0 and `reference` filled, or a status and `reference` empty. It
    /// serves for the tool of that file name alone, by which a system can ask differently for what
    /// gives something away and what only takes it back.
    virtual std::int32_t create(const std::string& tool,
                                std::unique_ptr<AuthorizationReference>& reference) = 0;
};

}  // namespace zelvo::platform
