#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Viewers.h"

namespace zelvo::platform {

class Bundle;
class Explanations;
class MainWindowModel;

/// Who wants in and who is in, as lines, and the words that are typed in answer: in the user's
/// language or in English, whole, and ended by Return. Nothing shorter answers, and nothing of
/// which a part was typed before the question had stood for a second. Main thread only.
class QuestionPrompt {
  public:
    using Clock = std::chrono::steady_clock;

    /// Where it is shown.
    struct Shown {
        std::function<void(const std::string&)> line;
        /// Shows what is typed. None where that is seen anyway, since whole lines are read; then
        /// what else may be asked for is asked for by words, too, instead of by keys.
        std::function<void(const std::string&)> echo;
        std::function<Clock::time_point()> now = Clock::now;
        /// Takes a line that means nothing here, while no question is open. May be none.
        std::function<void(const std::string&)> otherLine{};
    };

    /// All outlive this object.
    QuestionPrompt(Viewers& viewers, MainWindowModel& model, const Explanations& explanations,
                   const Bundle& bundle, Shown shown);
    QuestionPrompt(const QuestionPrompt&) = delete;
    QuestionPrompt& operator=(const QuestionPrompt&) = delete;

    /// Whether a word is waited for, or was until a moment ago, to which every key belongs.
    bool takesWords() const { return isShown_ || asksForRights_ || shown_.now() < liveFrom_; }
    /// What is typed so far.
    const std::string& typed() const { return typed_; }
    /// A sentence about each who is inside.
    std::vector<std::string> insideTexts() const;
    /// Takes the next byte of what is typed, in UTF-8.
    void take(char byte);
    /// Nobody can answer any more.
    void inputEnded() { inputHasEnded_ = true; }

    /// Shows a question that is kept back while somebody is inside.
    void show();
    /// Lets all who are inside only watch, at once; where they do already, asks for the word that
    /// lets them control.
    void changeRights();
    /// Ends everybody's connection, and refuses who is asked about.
    void disconnect();
    /// Ends the refusing of everybody.
    void askAgain();
    /// Whether those without a proof of the link are asked about, the other way from now on.
    void changeWhoMayAsk();

  private:
    enum class Word : std::uint8_t {
        None,
        Help,
        Watch,
        Refuse,
        RefuseAll,
        Show,
        Disconnect,
        AskAgain
    };
    static const char* keyOf(Word word);
    Word wordOf(const std::string& typed) const;

    void questionChanged(const std::optional<ViewerQuestion>& question);
    void hide();
    void insideChanged(const std::vector<Viewer>& inside);
    void refusingChanged(bool refuses);
    void tellWhoMayAsk(bool onlyLinkHolders);
    void erase();
    void takeLine(const std::string& typed);
    void answer(Word word);
    bool canHelp() const { return viewers_.abilities().value().canControl; }
    void tellWords();
    void tell(const char* key, const std::vector<std::string>& objects = {});
    void tellQuestion(const ViewerQuestion& question);
    void tellViewer(const Viewer& viewer);
    std::string insideText(const Viewer& viewer) const;
    /// The name that they gave, or else the address.
    static std::string who(const Viewer& viewer);
    /// Of a viewer, or of a question about one.
    template <typename Somebody>
    std::string protection(const Somebody& somebody) const;
    std::string text(const char* key, const std::vector<std::string>& objects = {}) const;
    std::string text(Word word) const;
    std::string how(char key, Word word) const;
    void beginLine(Clock::time_point liveFrom);

    Viewers& viewers_;
    MainWindowModel& model_;
    const Bundle& bundle_;
    Shown shown_;
    bool inputHasEnded_ = false;

    std::optional<std::uint32_t> asked_;
    bool isShown_ = false;
    bool isAnswered_ = false;
    bool asksForRights_ = false;
    std::vector<Viewer> inside_;
    bool refuses_ = false;

    std::string typed_;
    /// Something is in the line that makes it no word.
    bool isSpoilt_ = false;
    Clock::time_point liveFrom_{};
    std::vector<Subscription> subscriptions_;
};

}  // namespace zelvo::platform
