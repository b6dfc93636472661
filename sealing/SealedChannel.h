#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sealing/NoiseHandshake.h"
#include "sealing/Record.h"
#include "sealing/ReplayCache.h"
#include "sealing/ShareLink.h"

namespace zelvo::sealing {

/// What one side draws for one channel.
struct OwnSecrets {
    static OwnSecrets fresh();

    Key ephemeral;
    Key value;
};

/// What a host gives to who is inside, by which they come back once without being asked about. It
/// is never sent again: both sides prove that they have it.
using ReturnSecret = Key;

/// One end of a channel, in whole messages: the handshake, the opening, then records.
class SealedChannel {
  public:
    enum class State {
        /// Nothing is proven yet, and nothing to be asked.
        Proving,
        /// The peer has the key of the link. The host knows the helper's name; both know the
        /// digits.
        Open,
        /// One side has said goodbye.
        Closed,
        Failed,
    };
    enum class Failure {
        None,
        /// Host: what the peer said first was not made with the key of this link.
        KeyRefused,
        /// Host: somebody said it before.
        Replayed,
        /// Opener: who answers has not the key of this link, or says that we are back without the
        /// secret by which we were to come.
        NotTheHost,
        /// Host: the opening is not what was promised, or gives no name that may be shown.
        BadOpening,
        /// A record that does not open or says nothing that it may.
        BadRecord,
    };

    /// `replays` are those of the link, and outlive the channel.
    static SealedChannel host(const ChannelKey& key, ReplayCache& replays,
                              const OwnSecrets& secrets);
    /// `name` has to be a helper's name (isHelperName). The first message is there at once.
    static SealedChannel opener(const ChannelKey& key, std::string_view name,
                                const OwnSecrets& secrets,
                                const std::optional<ReturnSecret>& comesBackBy = {});

    State state() const { return state_; }
    Failure failure() const { return failure_; }

    /// The host's: the peer has an answer, which shows the digits to who has the key.
    bool hasAnswered() const { return hasAnswered_; }
    /// The longest message that the peer may send now.
    std::size_t longestMessage() const;
    void receive(std::string_view message);
    /// Messages to be sent now, in this order.
    std::vector<std::string> takeMessages() { return std::exchange(messages_, {}); }

    /// While open; sealed in as many records as it takes.
    void send(std::string_view bytes);
    /// The host's, while open.
    void tell(const Standing& standing);
    /// The host's, while open: what the opener may come back by; the one before is of no use then.
    void giveReturnSecret(const ReturnSecret& secret);
    /// The host's, while open, before anything else: tells that the opener is back, by this secret.
    void confirmReturn(const ReturnSecret& secret);
    /// While open; afterwards nothing more goes either way.
    void sayGoodbye(Farewell reason);

    /// What the peer sent; of the host's what it sent since it has let us in. Empties it.
    std::string takeData() { return std::exchange(data_, {}); }
    /// Once open, on both sides: "012 345 678 901", equal unless somebody sits in between.
    const std::string& digits() const { return digits_; }
    /// Once open: of whom the host is to ask.
    const std::string& name() const { return name_; }
    /// What the opener was told last.
    std::optional<Standing> standing() const { return standing_; }
    /// The opener's: what it was given last; none once either side has said goodbye.
    const std::optional<ReturnSecret>& returnSecret() const { return returnSecret_; }
    /// The opener's: the host has proven that it is the one who gave us what we came back by, and
    /// that nobody was asked. An opener that is asked about instead shows digits to compare anew.
    bool isBack() const { return isBack_; }
    /// The host's, while open: whether the opener says that it was inside before, and whether it
    /// was by this secret.
    bool offersReturn() const { return !proof_.empty(); }
    bool offersReturn(const ReturnSecret& secret) const;
    /// The peer's.
    std::optional<Farewell> goodbye() const { return goodbye_; }

  private:
    SealedChannel(NoiseHandshake::Role role, const ChannelKey& key, ReplayCache* replays,
                  const OwnSecrets& secrets);

    bool isHost() const { return replays_ != nullptr; }
    void helloArrived(std::string_view message);
    void answerArrived(std::string_view message);
    void recordArrived(std::string_view message);
    void take(Opening&& opening);
    void take(Data&& data);
    void take(Goodbye&& goodbye);
    void take(Standing&& standing);
    void take(ReturnTicket&& ticket);
    void take(Returned&& returned);
    std::string proofOf(const ReturnSecret& secret, std::string_view side) const;
    bool seal(const Record& record);
    void open(std::string_view openersValue, std::string_view hostsValue);
    void fail(Failure failure);

    State state_ = State::Proving;
    Failure failure_ = Failure::None;
    ReplayCache* replays_;
    NoiseHandshake handshake_;
    std::optional<NoiseHandshake::Transport> transport_;
    Key value_;
    std::string promise_;
    std::string name_;
    std::string digits_;
    std::string data_;
    std::vector<std::string> messages_;
    std::optional<Standing> standing_;
    bool isInside_ = false;
    std::optional<ReturnSecret> comesBackBy_;
    std::optional<ReturnSecret> returnSecret_;
    std::string proof_;
    bool isBack_ = false;
    bool hasAnswered_ = false;
    std::optional<Farewell> goodbye_;
};

}  // namespace zelvo::sealing
