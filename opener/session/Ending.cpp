#include "opener/session/Ending.h"

#include <algorithm>
#include <iterator>

namespace zelvo::opener {

namespace {

constexpr const char* Unreached = "The computer cannot be reached from here";
constexpr const char* OverTitle = "The session is over";
constexpr const char* LinkTitle = "The link has ended";
constexpr const char* ServiceTitle = "The sharing service cannot be asked";
constexpr const char* ProofTitle = "This is not the computer of your link";

using enum Ending;

constexpr EndingTexts Table[] = {
    {Left, "left", ExitStatus::Done, OverTitle, "You have left %@."},
    {HostLeft, "host-left", ExitStatus::Done, OverTitle, "%@ has ended the session."},
    {Disconnected, "disconnected", ExitStatus::Done, "Disconnected",
     "The user of %@ has pressed “Disconnect”."},
    {ScreenEnded, "screen-ended", ExitStatus::Done, OverTitle,
     "The screen of %@ cannot be shown any longer: its user may have logged out."},
    {Refused, "refused", ExitStatus::Refused, "Refused",
     "The user of %@ does not want you to see the screen now."},
    {Everybody, "everybody-refused", ExitStatus::Refused, "Refused",
     "The user of %@ lets nobody in at the moment."},
    {TooSoon, "too-soon", ExitStatus::Refused, "Too soon",
     "Nobody at %@ let you in a moment ago. Wait a minute before you ask again."},
    {NotAnswered, "no-answer", ExitStatus::NoAnswer, "No answer",
     "Nobody has answered at %@ in time. Its user may not be there."},
    {TooMany, "too-many", ExitStatus::NoAnswer, "Too many are waiting",
     "Too many want to see the screen of %@ at once. Try again later."},
    {LinkEnded, "link-ended", ExitStatus::LinkEnded, LinkTitle,
     "The user of %@ has ended this link, or has quit Zelvo. Ask them to start it, and for the "
     "link "
     "that it shows."},
    {UnknownLink, "unknown-link", ExitStatus::LinkEnded, LinkTitle,
     "The sharing service does not know this link, or not any more. Ask for a new one."},
    {NotShared, "not-shared", ExitStatus::LinkEnded, LinkTitle,
     "The computer of this link does not share its screen at the moment. Ask its user to start "
     "Zelvo, then try again."},
    {ServiceBusy, "service-busy", ExitStatus::NoService, ServiceTitle,
     "The sharing service has too much to do at the moment. Try again in a minute."},
    {ServiceNonsense, "service-nonsense", ExitStatus::NoService, ServiceTitle,
     "What the sharing service answers makes no sense. Something else may answer in its place."},
    {AddressInside, "address-inside", ExitStatus::NotReached, Unreached,
     "The sharing service sends you to an address that is not on the internet, but of a private "
     "network or of this computer itself. Zelvo does not go there."},
    {ServiceNoName, "service-no-name", ExitStatus::NoService, ServiceTitle,
     "The name of the sharing service could not be found. Check this computer’s "
     "internet connection and its name server (DNS)."},
    {ServiceNoConnection, "service-no-connection", ExitStatus::NoService, ServiceTitle,
     "The sharing service cannot be reached. Check this computer’s internet "
     "connection, or try again later."},
    {ServiceNoAnswer, "service-no-answer", ExitStatus::NoService, ServiceTitle,
     "The sharing service does not answer. Try again later."},
    {CertificateExpired, "service-certificate-expired", ExitStatus::NoService, ServiceTitle,
     "The certificate of the sharing service has expired, or this computer’s clock is wrong."},
    {CertificateNotYetValid, "service-certificate-not-yet-valid", ExitStatus::NoService,
     ServiceTitle,
     "The certificate of the sharing service is not valid yet, or this computer’s clock is wrong."},
    {CertificateUntrusted, "service-certificate-untrusted", ExitStatus::NoService, ServiceTitle,
     "This computer does not trust the certificate of the sharing service. A filter or "
     "a virus scanner may stand in between."},
    {CertificateOfAnother, "service-certificate-of-another", ExitStatus::NoService, ServiceTitle,
     "Another computer answered in place of the sharing service. A sign-in page of "
     "this network may stand in between."},
    {ServiceNotSecure, "service-not-secure", ExitStatus::NoService, ServiceTitle,
     "No secure connection to the sharing service came about. A firewall may stand in "
     "between."},
    {NoRoute, "no-route", ExitStatus::NotReached, Unreached,
     "There is no way from your network to that of %@. Check your internet connection."},
    {ConnectionRefused, "connection-refused", ExitStatus::NotReached, Unreached,
     "The router or the computer at the address of %@ takes no connection. Zelvo may have been "
     "closed there, or its router may have forgotten it."},
    {TimedOut, "timed-out", ExitStatus::NotReached, Unreached,
     "%@ does not answer. It may be off or asleep, or a firewall, here or there, stands in "
     "between."},
    {Unreachable, "unreachable", ExitStatus::NotReached, Unreached,
     "No connection to %@ came about."},
    {RelayBusy, "relay-busy", ExitStatus::NotReached, Unreached,
     "Too many want to come to %@ at once, or its relay has too much to do. Try again in a "
     "minute."},
    {Silent, "silent", ExitStatus::NotReached, Unreached,
     "Something is at the address of %@, but it hangs up or says nothing."},
    {NotOurs, "not-ours", ExitStatus::NotReached, Unreached,
     "Something answers at the address of %@, but it is not a Zelvo that knows links like this."},
    {KeyRefused, "key-refused", ExitStatus::LinkEnded, "The link does not open this computer",
     "%@ does not take this link any more. A newer one may have been made there: ask for it."},
    {NotTheHost, "not-the-host", ExitStatus::NotTheHost, ProofTitle,
     "Who answers at the address of %@ does not have the key of your link. Somebody may sit in "
     "between. Nothing was shown to them."},
    {Broken, "broken", ExitStatus::NotTheHost, "The connection was tampered with",
     "What came from %@ was changed on its way, or makes no sense. The connection was ended at "
     "once."},
    {PictureBroken, "picture-broken", ExitStatus::NotTheHost, "The picture makes no sense",
     "%@ sent a picture that cannot be shown. The connection was ended."},
    {Cut, "cut", ExitStatus::Lost, "The connection was lost",
     "The connection to %@ broke off without a goodbye. Your network or theirs may be down."},
};

}  // namespace

const EndingTexts& textsOf(Ending ending) {
    return *std::ranges::find(Table, ending, &EndingTexts::ending);
}

Ending endingOf(NoFacts why) {
    switch (why) {
        case NoFacts::UnknownLink:
            return UnknownLink;
        case NoFacts::Unavailable:
            return NotShared;
        case NoFacts::Busy:
            return ServiceBusy;
        case NoFacts::Nonsense:
            return ServiceNonsense;
        case NoFacts::Inside:
            return AddressInside;
        case NoFacts::NoName:
            return ServiceNoName;
        case NoFacts::NoConnection:
            return ServiceNoConnection;
        case NoFacts::NoAnswer:
            return ServiceNoAnswer;
        case NoFacts::CertificateExpired:
            return CertificateExpired;
        case NoFacts::CertificateNotYetValid:
            return CertificateNotYetValid;
        case NoFacts::CertificateUntrusted:
            return CertificateUntrusted;
        case NoFacts::CertificateOfAnother:
            return CertificateOfAnother;
        case NoFacts::NotSecure:
            break;
    }
    return ServiceNotSecure;
}

namespace {

Ending endingOf(sealing::Farewell farewell) {
    switch (farewell) {
        case sealing::Farewell::Refused:
            return Refused;
        case sealing::Farewell::NotAnswered:
            return NotAnswered;
        case sealing::Farewell::Disconnected:
            return Disconnected;
        case sealing::Farewell::TooMany:
            return TooMany;
        case sealing::Farewell::TooSoon:
            return TooSoon;
        case sealing::Farewell::Everybody:
            return Everybody;
        case sealing::Farewell::LinkEnded:
            return LinkEnded;
        case sealing::Farewell::ScreenEnded:
            return ScreenEnded;
        case sealing::Farewell::Left:
            break;
    }
    // Also for reasons that are not known yet.
    return HostLeft;
}

}  // namespace

Ending endingOf(const LineEnding& how) {
    switch (how.end) {
        case LineEnd::Goodbye:
            return endingOf(how.farewell);
        case LineEnd::NoRoute:
            return NoRoute;
        case LineEnd::Refused:
            return ConnectionRefused;
        case LineEnd::TimedOut:
            return TimedOut;
        case LineEnd::Unreachable:
            return Unreachable;
        case LineEnd::Busy:
            return RelayBusy;
        case LineEnd::Silent:
            return Silent;
        case LineEnd::NotOurs:
            return NotOurs;
        case LineEnd::KeyRefused:
            return KeyRefused;
        case LineEnd::NotTheHost:
            return NotTheHost;
        case LineEnd::Broken:
            return Broken;
        case LineEnd::Cut:
            break;
    }
    return Cut;
}

}  // namespace zelvo::opener
