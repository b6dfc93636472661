#include "platform/terminal/QuestionPrompt.h"

#include <QString>
#include <algorithm>

#include "platform/Bundle.h"
#include "platform/Explanations.h"
#include "platform/MainWindowModel.h"
#include "platform/qt/content/ShownText.h"
#include "platform/qt/content/StatusTexts.h"
#include "platform/terminal/Words.h"

namespace zelvo::platform {

namespace {

constexpr auto DeadTime = std::chrono::seconds(1);
// Longer than any word, in bytes.
constexpr std::size_t LongestLine = 80;
constexpr char Backspace = '\b';
constexpr char Delete = 0x7f;

bool continuesCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xc0) == 0x80;
}

}  // namespace

QuestionPrompt::QuestionPrompt(Viewers& viewers, MainWindowModel& model,
                               const Explanations& explanations, const Bundle& bundle, Shown shown)
    : viewers_(viewers), model_(model), bundle_(bundle), shown_(std::move(shown)) {
    subscriptions_.push_back(explanations.screenLimits().bind([this](auto& limits) {
        if (!limits.empty())
            shown_.line(limits);
    }));
    subscriptions_.push_back(
        viewers.inside().bind([this](auto& inside) { insideChanged(inside); }));
    subscriptions_.push_back(
        viewers.refusesEverybody().bind([this](bool refuses) { refusingChanged(refuses); }));
    if (viewers.admitsOnlyLinkHolders().value())
        tellWhoMayAsk(true);
    subscriptions_.push_back(
        viewers.admitsOnlyLinkHolders().subscribe([this](bool only) { tellWhoMayAsk(only); }));
    subscriptions_.push_back(
        viewers.question().bind([this](auto& question) { questionChanged(question); }));
}

void QuestionPrompt::questionChanged(const std::optional<ViewerQuestion>& question) {
    auto asked = question ? std::optional(question->id) : std::nullopt;
    if (asked == asked_)
        return;
    hide();
    asked_ = asked;
    if (!asked)
        return;
    // Somebody inside might control this very terminal.
    if (inside_.empty())
        show();
    else
        tell("Somebody else wants to see your screen. To be asked: %@.", {how('s', Word::Show)});
}

void QuestionPrompt::show() {
    const auto question = viewers_.question().value();
    if (!asked_ || !question || isShown_)
        return;
    isShown_ = true;
    isAnswered_ = false;
    asksForRights_ = false;
    viewers_.setQuestionShown(true);
    // What is said to a server that has gone ends the question.
    if (!isShown_)
        return;
    shown_.line("");
    tellQuestion(*question);
    tell(
        "No bank, no company and no authority ever asks for this. Let in only whom you have asked "
        "for help.");
    if (!canHelp())
        tell(NobodyCanHelp);
    if (!inputHasEnded_) {
        auto left = std::chrono::ceil<std::chrono::seconds>(question->until - shown_.now()).count();
        tell("You have %@ seconds; without an answer it is no.", {std::to_string(left)});
        tellWords();
    }
    beginLine(shown_.now() + DeadTime);
}

void QuestionPrompt::tellQuestion(const ViewerQuestion& question) {
    const auto address = shownText(question.address).toStdString();
    if (question.digits.empty()) {
        shown_.line(text("Somebody wants to see your screen, from the address %@.", {address}) +
                    " " + protection(question));
        tell(
            "They have no proof of your link: whoever finds your address and port can ask like "
            "this.");
        return;
    }
    shown_.line(text(question.isRelayed
                         ? "%@, who has your link, wants to see your screen, through a relay, "
                           "which names the address %@."
                         : "%@, who has your link, wants to see your screen, from the address %@.",
                     {shownName(question.name).toStdString(), address}) +
                " " + protection(question));
    tell(
        "The name is what they call themselves. Compare these digits by telephone with those that "
        "your helper sees, and refuse if they differ: %@",
        {shownText(question.digits).toStdString()});
}

void QuestionPrompt::hide() {
    if (!std::exchange(isShown_, false))
        return;
    viewers_.setQuestionShown(false);
    if (!isAnswered_)
        tell("The question is over.");
    // Whoever is in the middle of a word means no key by the rest of it.
    beginLine(shown_.now() + (isAnswered_ ? std::chrono::seconds(0) : DeadTime));
}

void QuestionPrompt::insideChanged(const std::vector<Viewer>& inside) {
    auto before = std::exchange(inside_, inside);
    auto find = [](auto& viewers, auto id) {
        return std::find_if(viewers.begin(), viewers.end(),
                            [id](auto& viewer) { return viewer.id == id; });
    };
    for (const auto& viewer : before) {
        if (find(inside, viewer.id) != inside.end())
            continue;
        const auto& away = viewers_.away().value();
        if (find(away, viewer.id) == away.end()) {
            tell("%@ has left.", {who(viewer)});
            continue;
        }
        tell("%@ has lost the connection and may come back unasked within a minute.",
             {who(viewer)});
        tell("To disconnect: %@.", {how('d', Word::Disconnect)});
    }
    for (const auto& viewer : inside) {
        auto known = find(before, viewer.id);
        if (known == before.end() || known->rights != viewer.rights)
            tellViewer(viewer);
    }
    if (inside.size() > before.size())
        tell(shown_.echo && canHelp() ? "To disconnect: %@. To change what they may do: press r."
                                      : "To disconnect: %@.",
             {how('d', Word::Disconnect)});
    if (inside.empty()) {
        asksForRights_ = false;
        show();
    }
}

void QuestionPrompt::refusingChanged(bool refuses) {
    if (std::exchange(refuses_, refuses) == refuses)
        return;
    if (refuses)
        tell("Everybody is refused until Zelvo starts again. To be asked before: %@.",
             {how('a', Word::AskAgain)});
    else
        tell("You are asked again.");
}

void QuestionPrompt::take(char byte) {
    if (byte == '\n' || byte == '\r') {
        if (shown_.echo && takesWords())
            shown_.echo("\n");
        auto typed = std::exchange(typed_, {});
        if (std::exchange(isSpoilt_, false))
            typed = " ";
        takeLine(typed);
        return;
    }
    if (byte == Backspace || byte == Delete) {
        erase();
        return;
    }
    const bool isControl = byte >= 0 && byte < ' ';
    if (isControl || shown_.now() < liveFrom_ || typed_.size() == LongestLine) {
        isSpoilt_ = true;
        return;
    }
    typed_ += byte;
    if (shown_.echo)
        shown_.echo(std::string(1, byte));
}

void QuestionPrompt::erase() {
    if (typed_.empty())
        return;
    std::size_t length = 1;
    while (continuesCharacter(typed_[typed_.size() - length]) && length < typed_.size())
        ++length;
    typed_.resize(typed_.size() - length);
    if (!shown_.echo)
        return;
    // Of the words' characters those of three bytes are two columns wide.
    for (std::size_t column = 0; column < (length < 3 ? 1U : 2U); ++column)
        shown_.echo("\b \b");
}

void QuestionPrompt::takeLine(const std::string& typed) {
    if (typed.empty() && !asksForRights_)
        return;
    const auto word = wordOf(typed);
    if (std::exchange(asksForRights_, false)) {
        for (const auto& viewer : word == Word::Help ? inside_ : std::vector<Viewer>())
            viewers_.setRights(viewer.id, ViewerRights::Control);
    } else if (isShown_) {
        // Whoever was let in a moment ago can be put out before the word of it is here.
        if (!isAnswered_ || word == Word::Disconnect)
            answer(word);
    } else if (word == Word::Show) {
        show();
    } else if (word == Word::Disconnect) {
        disconnect();
    } else if (word == Word::AskAgain) {
        askAgain();
    } else if (shown_.otherLine) {
        shown_.otherLine(typed);
    }
}

void QuestionPrompt::answer(Word word) {
    switch (word) {
        case Word::Help:
            if (!canHelp())
                return tellWords();
            isAnswered_ = true;
            viewers_.answer(*asked_, ViewerAnswer::Control);
            break;
        case Word::Watch:
            isAnswered_ = true;
            viewers_.answer(*asked_, ViewerAnswer::Watch);
            break;
        case Word::RefuseAll:
        case Word::Refuse:
            isAnswered_ = true;
            viewers_.answer(*asked_, ViewerAnswer::Refuse);
            if (word == Word::RefuseAll)
                viewers_.setRefusesEverybody(true);
            break;
        case Word::Disconnect:
            isAnswered_ = true;
            disconnect();
            break;
        default:
            tellWords();
    }
}

void QuestionPrompt::changeRights() {
    bool anyControls = false;
    // A copy: it changes with what is said.
    for (const auto& viewer : std::vector(inside_)) {
        if (viewer.rights == ViewerRights::Control) {
            anyControls = true;
            viewers_.setRights(viewer.id, ViewerRights::Watch);
        }
    }
    if (anyControls || inside_.empty() || isShown_)
        return;
    if (!canHelp())
        return tell(NobodyCanHelp);
    // Taking away is a key, giving is a word.
    asksForRights_ = true;
    beginLine(shown_.now());
    tell("Type “%@” and press Return to let them use your screen.", {text(Word::Help)});
}

void QuestionPrompt::disconnect() {
    viewers_.disconnectEverybody();
    model_.closeConnection();
}

void QuestionPrompt::askAgain() {
    if (refuses_)
        viewers_.setRefusesEverybody(false);
}

void QuestionPrompt::changeWhoMayAsk() {
    viewers_.setAdmitsOnlyLinkHolders(!viewers_.admitsOnlyLinkHolders().value());
}

void QuestionPrompt::beginLine(Clock::time_point liveFrom) {
    typed_.clear();
    isSpoilt_ = false;
    liveFrom_ = liveFrom;
}

void QuestionPrompt::tellWords() {
    if (!canHelp())
        return tell(
            "Type a whole word and press Return: “%@” lets them watch, “%@” refuses, “%@” refuses "
            "everybody until Zelvo starts again.",
            {text(Word::Watch), text(Word::Refuse), text(Word::RefuseAll)});
    tell(
        "Type a whole word and press Return: “%@” lets them use your screen, “%@” lets them only "
        "watch, “%@” refuses, “%@” refuses everybody until Zelvo starts again.",
        {text(Word::Help), text(Word::Watch), text(Word::Refuse), text(Word::RefuseAll)});
}

std::string QuestionPrompt::insideText(const Viewer& viewer) const {
    return text(viewer.rights == ViewerRights::Control ? "%@ is in and can use your screen."
                                                       : "%@ is in and only watches.",
                {who(viewer)});
}

std::vector<std::string> QuestionPrompt::insideTexts() const {
    std::vector<std::string> texts;
    for (const auto& viewer : inside_)
        texts.push_back(insideText(viewer));
    return texts;
}

void QuestionPrompt::tellViewer(const Viewer& viewer) {
    shown_.line(insideText(viewer) + " " + protection(viewer));
}

void QuestionPrompt::tellWhoMayAsk(bool onlyLinkHolders) {
    tell(onlyLinkHolders
             ? "You are asked only about people who prove that they have your link; "
               "plain VNC viewers are refused."
             : "You are asked about everybody, also about plain VNC viewers, which have "
               "no proof of your link.");
}

void QuestionPrompt::tell(const char* key, const std::vector<std::string>& objects) {
    shown_.line(text(key, objects));
}

std::string QuestionPrompt::who(const Viewer& viewer) {
    return (viewer.name.empty() ? shownText(viewer.address) : shownName(viewer.name)).toStdString();
}

template <typename Somebody>
std::string QuestionPrompt::protection(const Somebody& somebody) const {
    if (!somebody.digits.empty())
        return text("The connection is sealed with your link.");
    return text(somebody.isEncrypted
                    ? "The connection is encrypted."
                    : "The connection is not encrypted: others on its way can look in.");
}

std::string QuestionPrompt::text(const char* key, const std::vector<std::string>& objects) const {
    auto text = bundle_.localizedString(key);
    std::size_t at = 0;
    for (const auto& object : objects) {
        at = text.find("%@", at);
        if (at == std::string::npos)
            break;
        text.replace(at, 2, object);
        at += object.size();
    }
    return text;
}

std::string QuestionPrompt::text(Word word) const {
    return bundle_.localizedString(keyOf(word));
}

std::string QuestionPrompt::how(char key, Word word) const {
    return shown_.echo ? text("press %@", {std::string(1, key)})
                       : text("type “%@” and press Return", {text(word)});
}

const char* QuestionPrompt::keyOf(Word word) {
    constexpr const char* Keys[] = {"",           "help", "watch",      "refuse",
                                    "refuse all", "show", "disconnect", "ask again"};
    return Keys[static_cast<std::size_t>(word)];
}

QuestionPrompt::Word QuestionPrompt::wordOf(const std::string& typed) const {
    for (auto word : {Word::Help, Word::Watch, Word::Refuse, Word::RefuseAll, Word::Show,
                      Word::Disconnect, Word::AskAgain}) {
        if (isWord(typed, keyOf(word), bundle_))
            return word;
    }
    return Word::None;
}

}  // namespace zelvo::platform
