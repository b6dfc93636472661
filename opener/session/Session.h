#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "opener/channel/HostLine.h"
#include "opener/facts/FactsSource.h"
#include "opener/session/Ending.h"
#include "platform/Observable.h"
#include "platform/RunLoop.h"

namespace zelvo::opener {

enum class Stage : std::uint8_t {
    /// The service first, then the host, until it has proven itself and said where we stand.
    Asking,
    /// Others are asked about first.
    InLine,
    /// Its user is being asked.
    Asked,
    Inside,
    /// The line was lost; the host lets us back in for a while without asking.
    Returning,
    Ended,
};

struct SessionState {
    Stage stage = Stage::Asking;
    /// Of Ended.
    Ending ending = Ending::Left;
    /// Of PictureBroken: a sentence, or empty.
    std::string detail;
    /// Of Asked: what is left for an answer; 0 where nobody knows.
    unsigned secondsLeft = 0;
    /// Of Inside: the host takes our keys and pointer.
    bool controls = false;
    /// "012 345 678 901" while there is a proven line, else empty.
    std::string digits;
    /// What the host is called; empty until the service has told it.
    std::string host;
    bool addressIsProven = false;
    /// Of Inside: the line was lost, and nothing proves that this is still the same host.
    bool comparesAgain = false;
};

/// From one link to the end of its session, and again. Main thread only.
class Session {
  public:
    struct Surroundings {
        platform::RunLoop& runLoop;
        FactsSource& facts;
        HostLine::Factory makeLine;
    };

    /// Whoever is let back in is so within this time.
    static constexpr std::chrono::seconds returnsWithin{60};
    static constexpr std::chrono::seconds pauseBetweenReturns{1};

    /// `name` is a helper's name. What surrounds it outlives this object.
    Session(Surroundings surroundings, sealing::ShareLink link, std::string name);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    const platform::Observable<SessionState>& state() const { return state_; }
    /// None until the service has told them.
    const std::optional<HostFacts>& facts() const { return facts_; }
    /// Somebody has been inside since the last start.
    bool wasInside() const { return wasInside_; }

    /// Called with one end of a pair whose other speaks RFB, each time a host begins to.
    std::function<void(platform::FileDescriptor)> rfbBegan;

    /// Also after an end, anew.
    void start();
    /// The helper has had enough.
    void leave();
    /// What the host sends is no picture; `why` is a sentence for people.
    void pictureFailed(std::string why);

  private:
    void factsArrived(const FactsAnswer& answer);
    void connect();
    void connectLater();
    void askAgain();
    void answeredAgain(const FactsAnswer& answer);
    HostLine::Listener listener();
    void stands(const sealing::Standing& standing);
    void countDown();
    void lineEnded(const LineEnding& how);
    void comeBack(const sealing::ReturnSecret& secret);
    bool triesToReturnAgain(LineEnd end) const;
    void stopEverything();
    void end(Ending why, std::string detail = {});
    /// Changes what is shown.
    template <typename Change>
    void change(Change&& how);

    Surroundings surroundings_;
    sealing::ShareLink link_;
    std::string name_;
    platform::Observable<SessionState> state_;
    std::optional<HostFacts> facts_;
    bool wasInside_ = false;
    std::unique_ptr<HostLine> line_;
    /// What the next line comes back by; gone once it has been shown.
    std::optional<sealing::ReturnSecret> returnSecret_;
    bool comesBack_ = false;
    std::unique_ptr<platform::Perform> nextReturn_;
    std::unique_ptr<platform::Perform> lastReturn_;
    std::unique_ptr<platform::Timer> countdown_;
    /// Tells this start's answer from an earlier one's.
    std::shared_ptr<char> start_;
    /// The service has not answered yet to one who comes back.
    bool isAskedAgain_ = false;
};

}  // namespace zelvo::opener
