const Over = "The session is over";
const Link = "The link has ended";
const Service = "The sharing service cannot be asked";
const Unreached = "The computer cannot be reached from here";

/// Why a session is over, or did not come about: its title and its sentence, whose "%@" is the host.
export const Endings = {
    "left": [Over, "You have left %@."],
    "host-left": [Over, "%@ has ended the session."],
    "disconnected": ["Disconnected", "The user of %@ has pressed “Disconnect”."],
    "screen-ended": [Over, "The screen of %@ cannot be shown any longer: its user may have logged out."],
    "refused": ["Refused", "The user of %@ does not want you to see the screen now."],
    "everybody-refused": ["Refused", "The user of %@ lets nobody in at the moment."],
    "too-soon": ["Too soon", "Nobody at %@ let you in a moment ago. Wait a minute before you ask again."],
    "no-answer": ["No answer", "Nobody has answered at %@ in time. Its user may not be there."],
    "too-many": ["Too many are waiting", "Too many want to see the screen of %@ at once. Try again later."],
    "link-ended": [Link,
        "The user of %@ has ended this link, or has quit Zelvo. Ask them to start it, and for the link that it shows."],
    "unknown-link": [Link, "The sharing service does not know this link, or not any more. Ask for a new one."],
    "not-shared": [Link, "The computer of this link does not share its screen at the moment. Ask its user to start Zelvo, then try again."],
    "service-busy": [Service, "The sharing service has too much to do at the moment. Try again in a minute."],
    "service-nonsense": [Service, "What the sharing service answers makes no sense. Something else may answer in its place."],
    "service-no-connection": [Service, "The sharing service cannot be reached. Check this computer’s internet connection, or try again later."],
    "unreachable": [Unreached, "No connection to %@ came about. Zelvo may have been closed there, or too many want to come in at once. Try again in a minute."],
    "silent": [Unreached, "Something is at the address of %@, but it hangs up or says nothing."],
    "no-relay": ["A browser cannot reach this computer", "%@ shares its screen without a relay, and browsers reach no computer directly. Zelvo does: install it, then press “Open with Zelvo”."],
    "key-refused": ["The link does not open this computer", "%@ does not take this link any more. A newer one may have been made there: ask for it."],
    "not-the-host": ["This is not the computer of your link", "Who answers at the address of %@ does not have the key of your link. Somebody may sit in between. Nothing was shown to them."],
    "broken": ["The connection was tampered with", "What came from %@ was changed on its way, or makes no sense. The connection was ended at once."],
    "picture-broken": ["The picture makes no sense", "%@ sent a picture that cannot be shown. The connection was ended."],
    "cut": ["The connection was lost", "The connection to %@ broke off without a goodbye. Your network or theirs may be down."],
    "old-browser": ["This browser is too old", "It lacks what keeps others out (X25519). Bring it up to date, or install Zelvo and press “Open with Zelvo”."],
    "fragment-lost": ["The key of the link is missing", "This page keeps it nowhere. Open the link again that you were sent, whole, with everything from “#” on."],
    "bad-link": ["This is no whole link", "This link holds characters that no link has. Something has changed it on its way: ask for it again."],
    "bad-key": ["This is no whole link", "The end of this link, behind “#”, is damaged or cut off. Ask for it again."],
};
