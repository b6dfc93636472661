#include "platform/linux/https/ServiceExplanation.h"

#include <sys/stat.h>
#include <sys/timex.h>

#include <array>
#include <ctime>
#include <utility>

#include "platform/Bundle.h"

namespace zelvo::platform {

namespace {

using Clock = ServiceExplanation::Clock;

/// A clock that a time server holds is right, and then the certificate is wrong. Of one that nobody
/// holds the certificate's dates are evidence: a service is seldom too early with a new one.
const char* keyOfWrongDates(bool isTooEarly, const Clock& clock) {
    if (clock.now < clock.past || (isTooEarly && !clock.isKept))
        return "This computer’s clock seems to be wrong: it says %@. Set it right, then try "
               "again.";
    if (isTooEarly)
        return "The certificate of the sharing service is not valid yet. Only those who run the "
               "service can change that.";
    if (clock.isKept)
        return "The certificate of the sharing service has expired. Only those who run the service "
               "can change that.";
    return "The certificate of the sharing service has expired, or this computer’s clock is wrong: "
           "it says %@.";
}

const char* keyOf(ExchangeTrouble trouble, const Clock& clock) {
    switch (trouble) {
        case ExchangeTrouble::None:
            return "The sharing service answered, but it gave no link. Try again later.";
        case ExchangeTrouble::NoName:
            return "The name of the sharing service could not be found. Check this computer’s "
                   "internet connection and its name server (DNS).";
        case ExchangeTrouble::NoConnection:
            return "The sharing service cannot be reached. Check this computer’s internet "
                   "connection, or try again later.";
        case ExchangeTrouble::NoAnswer:
            return "The sharing service does not answer. Try again later.";
        case ExchangeTrouble::CertificateExpired:
            return keyOfWrongDates(false, clock);
        case ExchangeTrouble::CertificateNotYetValid:
            return keyOfWrongDates(true, clock);
        case ExchangeTrouble::CertificateUntrusted:
            return "This computer does not trust the certificate of the sharing service. A filter "
                   "or "
                   "a virus scanner may stand in between.";
        case ExchangeTrouble::CertificateOfAnother:
            return "Another computer answered in place of the sharing service. A sign-in page of "
                   "this network may stand in between.";
        case ExchangeTrouble::NotSecure:
            break;
    }
    return "No secure connection to the sharing service came about. A firewall may stand in "
           "between.";
}

void setWhenNew(Observable<std::string>& observable, std::string text) {
    if (text != observable.value())
        observable.set(std::move(text));
}

}  // namespace

ServiceExplanation::ServiceExplanation(const Bundle& bundle, std::function<Clock()> readClock)
    : bundle_(bundle), readClock_(std::move(readClock)) {}

std::string ServiceExplanation::Clock::text() const {
    const auto time = static_cast<std::time_t>(now);
    std::tm parts{};
    std::array<char, 32> text{};
    ::localtime_r(&time, &parts);
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M", &parts)};
}

Clock ServiceExplanation::readSystemClock() {
    Clock clock{.now = std::time(nullptr)};
    struct stat program {};
    // Nothing was installed in the future.
    if (::stat("/proc/self/exe", &program) == 0)
        clock.past = program.st_mtime;
    timex state{};
    const int kept = ::adjtimex(&state);
    clock.isKept = kept >= 0 && kept != TIME_ERROR && (state.status & STA_UNSYNC) == 0;
    return clock;
}

void ServiceExplanation::creationBegan() {
    setWhenNew(creation_, "");
}

void ServiceExplanation::creationEnded(bool givesLink, ExchangeTrouble trouble) {
    setWhenNew(creation_, givesLink ? "" : sentence(trouble));
}

void ServiceExplanation::withdrawalEnded(bool isConfirmed) {
    setWhenNew(withdrawal_,
               isConfirmed ? ""
                           : bundle_.localizedString(
                                 "The sharing service could not be told, and may still show your "
                                 "link as available. Zelvo tells it when you start it again."));
}

std::string ServiceExplanation::sentence(ExchangeTrouble trouble) const {
    const auto clock = readClock_();
    auto text = bundle_.localizedString(keyOf(trouble, clock));
    if (auto at = text.find("%@"); at != text.npos)
        text.replace(at, 2, clock.text());
    return text;
}

}  // namespace zelvo::platform
