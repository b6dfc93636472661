#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "host/SystemInformation.h"
#include "host/SystemInformationDelegate.h"
#include "platform/Error.h"
#include "platform/Platform.h"
#include "platform/PropertyList.h"
#include "platform/UrlSession.h"
#include "port_mapping/PortMapper.h"
#include "snapshot/KeyboardTable.h"

namespace zelvo {

class LinkManagerDelegate;

/// The port that a link completion gets where no link came about.
enum LinkManagerFailure : std::int64_t {
    LinkManagerPortMappingFailed = -1,
    LinkManagerRegistrationFailed = -2,
};

/// The request field "availabilityStatus".
enum LinkAvailability : std::int64_t {
    LinkAvailable = 0,
    LinkUnavailable = 1,
};

/// Turns the local VNC port into one shareable link and takes it back again: maps a random public
/// port on the router, registers it with the sharing service together with facts about the host,
/// and keeps those facts current while the host's names change.
///
/// Main thread only, and always held by a shared pointer: a pending completion keeps the manager
/// alive until it has run.
class LinkManager : public std::enable_shared_from_this<LinkManager>,
                    public SystemInformationDelegate {
  public:
    /// The public address, the public port and the shareable link; on failure the first and the
    /// last are absent and the port is a LinkManagerFailure.
    using LinkCompletion = std::function<void(std::optional<std::string> address, std::int64_t port,
                                              std::optional<std::string> link)>;
    /// The parsed reply, whatever its type; none where there was none.
    using Reply = std::optional<platform::PropertyList>;
    using ReplyCompletion = std::function<void(Reply)>;
    using PlainCompletion = std::function<void()>;

    /// The delegate is not kept.
    explicit LinkManager(const platform::Platform& platform,
                         LinkManagerDelegate* delegate = nullptr);
    /// Withdraws the link, if there is one.
    ~LinkManager() override;
    LinkManager(const LinkManager&) = delete;
    LinkManager& operator=(const LinkManager&) = delete;

    /// Maps a port to the low 16 bits of `internalPort`, registers the link and confirms it. A
    /// mapping from before is closed, and a creation that still waited for the router never
    /// completes.
    void createSharedLinkWithInternalPort(std::int64_t internalPort, LinkCompletion completion);
    /// Deletes the link, or marks it unavailable and keeps it for the next launch, as the default
    /// "useNewLinkAtEveryLaunch" says; then closes the mapping, whatever the service answered.
    /// Without a link the completion, which may be empty, runs before this returns and the mapping
    /// stays.
    void invalidateLink(PlainCompletion completion);
    /// Lets go of a creation that still waits for the router: it never completes, its mapping is
    /// closed.
    void abandonPendingMapping();
    /// Deletes the link for good, whatever the default says: it is kept no longer, and the next
    /// registration asks for another one. Its mapping stays until the next creation. Nothing
    /// without a link.
    void endLink();

    /// The four requests to the service. Completions may be empty. Get and delete act on
    /// `sharedLink`, whatever `link` says; without one they send nothing and never complete. An
    /// update without a link or a public address sends nothing and completes without a reply.
    void createSharedLinkWithCompletion(ReplyCompletion completion);
    void updateSharedLinkWithAvailabilityStatus(std::int64_t status, ReplyCompletion completion);
    void getSharedLinkInfo(const std::string& link, ReplyCompletion completion);
    void deleteSharedLink(const std::string& link, ReplyCompletion completion);

    /// A POST with one flat field for each parameter.
    platform::UrlRequest createPostURLRequest(
        const std::string& url, const platform::PropertyList::Dictionary& params) const;
    /// Sends the request; `error` is never written, failures arrive as no reply.
    void sendRequest(platform::UrlRequest request, platform::Error* error,
                     ReplyCompletion completion);

    /// The host-settings payload, built afresh: compact JSON.
    std::string getSystemInformation() const;
    /// Stores the identifier of the keyboard input source and reads the keyboard table again.
    void setCurrentKeyboardLayout(std::optional<std::string> layout) {
        keyboard_.setCurrentKeyboardLayout(std::move(layout));
    }
    void rebuildKeyboard() { keyboard_.rebuildKeyboard(); }
    /// The keysym for a virtual key code; 0 and a log line where the table has none.
    std::int32_t translateKeyCode(std::int32_t keyCode) const {
        return keyboard_.translateKeyCode(keyCode);
    }

    /// The change notices of `sysInfo`: each publishes the host's facts anew.
    void computerNameChanged(const std::string& name) override;
    void computerLocalHostnameChanged(const std::string& name) override;

    /// Not owned, and consulted by nobody yet.
    LinkManagerDelegate* delegate() const { return delegate_; }
    void setDelegate(LinkManagerDelegate* delegate) { delegate_ = delegate; }
    /// The identifier as the service gave it; none until the first registration, then never
    /// cleared.
    const std::optional<std::string>& sharedLink() const { return sharedLink_; }
    const PortMapper& portMapper() const { return *portMapper_; }
    const SystemInformation& sysInfo() const { return sysInfo_; }
    /// -1 after a mapping that yielded no port; none before the first mapping.
    const std::optional<std::int64_t>& publicPort() const { return publicPort_; }
    /// Dotted decimal; none after a mapping that yielded no port.
    const std::optional<std::string>& publicAddress() const { return publicAddress_; }
    const std::optional<std::string>& currentKeyboardLayout() const {
        return keyboard_.currentKeyboardLayout();
    }
    const std::optional<platform::PropertyList::Dictionary>& keyCodeToKeySymDictionnary() const {
        return keyboard_.keyCodeToKeySymDictionnary();
    }
    void setKeyCodeToKeySymDictionnary(std::optional<platform::PropertyList::Dictionary> table) {
        keyboard_.setKeyCodeToKeySymDictionnary(std::move(table));
    }

  private:
    void mappingAnswered(const std::optional<std::string>& address, std::uint16_t port,
                         const LinkCompletion& completion);
    void registrationAnswered(const Reply& reply, const LinkCompletion& completion);
    void keepLink();
    void failLater(LinkManagerFailure failure, const LinkCompletion& completion);
    bool usesNewLinkAtEveryLaunch() const;

    void readKeyboardInputSource();
    platform::PropertyList::Dictionary commonFields() const;
    std::string endpoint(const char* name) const;
    ReplyCompletion onMainQueue(ReplyCompletion completion);

    const platform::Platform platform_;
    LinkManagerDelegate* delegate_ = nullptr;
    SystemInformation sysInfo_;
    /// Shared with a withdrawal under way, which may outlive the manager.
    std::shared_ptr<PortMapper> portMapper_;
    /// Counts creations, so that a withdrawal leaves the mapping of a later one alone.
    std::uint64_t creations_ = 0;
    std::optional<std::string> sharedLink_;
    bool linkHasEnded_ = false;
    std::optional<std::int64_t> publicPort_;
    std::optional<std::string> publicAddress_;
    KeyboardTable keyboard_;
};

}  // namespace zelvo
