#include "sealing/SealedChannel.h"

#include <algorithm>
#include <cstdint>

#include "sealing/Primitives.h"

namespace zelvo::sealing {

namespace {

/// Either message of the handshake: a public half, and 32 bytes sealed.
constexpr std::size_t handshakeMessage = publicKeySize + valueSize + tagSize;

// Who proves the secret to return by: neither side's proof is of use to the other.
constexpr std::string_view byOpener = "back, opener";
constexpr std::string_view byHost = "back, host";

void wipeText(std::string& text) {
    wipe({reinterpret_cast<unsigned char*>(text.data()), text.size()});
}

std::string digitsOf(std::string_view handshakeHash, std::string_view openersValue,
                     std::string_view hostsValue) {
    std::string all(handshakeHash);
    all += openersValue;
    all += hostsValue;
    const auto hash = sha256(all);
    std::uint64_t number = 0;
    for (const char byte : hash.substr(0, 8))
        number = number << 8 | static_cast<unsigned char>(byte);
    auto digits = std::to_string(number % 1'000'000'000'000);
    digits.insert(0, 12 - digits.size(), '0');
    for (const std::size_t gap : {9, 6, 3})
        digits.insert(gap, 1, ' ');
    return digits;
}

}  // namespace

OwnSecrets OwnSecrets::fresh() {
    OwnSecrets secrets;
    fillWithRandom(secrets.ephemeral.bytes());
    fillWithRandom(secrets.value.bytes());
    return secrets;
}

SealedChannel::SealedChannel(NoiseHandshake::Role role, const ChannelKey& key, ReplayCache* replays,
                             const OwnSecrets& secrets)
    : replays_(replays),
      handshake_(role, key.prologue, key.preShared, secrets.ephemeral),
      value_(secrets.value) {}

SealedChannel SealedChannel::host(const ChannelKey& key, ReplayCache& replays,
                                  const OwnSecrets& secrets) {
    return {NoiseHandshake::Role::Responder, key, &replays, secrets};
}

SealedChannel SealedChannel::opener(const ChannelKey& key, std::string_view name,
                                    const OwnSecrets& secrets,
                                    const std::optional<ReturnSecret>& comesBackBy) {
    SealedChannel channel(NoiseHandshake::Role::Initiator, key, nullptr, secrets);
    channel.name_ = name;
    channel.comesBackBy_ = comesBackBy;
    // A promise first, the value once the host has chosen its own: nobody in between can search for
    // values that make the digits equal.
    if (auto message = channel.handshake_.write(sha256(channel.value_.view())))
        channel.messages_.push_back(std::move(*message));
    return channel;
}

std::size_t SealedChannel::longestMessage() const {
    if (!transport_)
        return handshakeMessage;
    return (state_ == State::Proving ? longestOpening : longestRecord) + tagSize;
}

void SealedChannel::receive(std::string_view message) {
    if (state_ != State::Proving && state_ != State::Open)
        return;
    if (transport_)
        recordArrived(message);
    else if (isHost())
        helloArrived(message);
    else
        answerArrived(message);
}

void SealedChannel::helloArrived(std::string_view message) {
    auto promise = handshake_.read(message);
    if (!promise || promise->size() != hashSize)
        return fail(Failure::KeyRefused);
    // Not before it is known to come from somebody with the key: strangers must not fill it.
    if (!replays_->admit(message.substr(0, publicKeySize)))
        return fail(Failure::Replayed);
    promise_ = std::move(*promise);
    auto answer = handshake_.write(value_.view());
    transport_ = handshake_.split();
    if (!answer || !transport_)
        return fail(Failure::KeyRefused);
    messages_.push_back(std::move(*answer));
    hasAnswered_ = true;
}

void SealedChannel::answerArrived(std::string_view message) {
    const auto hostsValue = handshake_.read(message);
    transport_ = handshake_.split();
    if (!hostsValue || hostsValue->size() != valueSize || !transport_)
        return fail(Failure::NotTheHost);
    if (seal(Opening{std::string(value_.view()), name_,
                     comesBackBy_ ? proofOf(*comesBackBy_, byOpener) : std::string()}))
        open(value_.view(), *hostsValue);
}

void SealedChannel::recordArrived(std::string_view message) {
    const auto failure = state_ == State::Proving ? Failure::BadOpening : Failure::BadRecord;
    std::string bytes;
    if (message.size() > longestMessage() || !transport_->receives.open({}, message, bytes))
        return fail(failure);
    auto record = decodeRecord(bytes);
    // The opening, and nothing else, comes first, and once.
    if (!record || std::holds_alternative<Opening>(*record) != (state_ == State::Proving))
        return fail(failure);
    if (!std::holds_alternative<Data>(*record))
        wipeText(bytes);
    std::visit([this](auto& what) { take(std::move(what)); }, *record);
}

void SealedChannel::take(Opening&& opening) {
    if (!isSame(sha256(opening.value), promise_))
        return fail(Failure::BadOpening);
    name_ = std::move(opening.name);
    proof_ = std::move(opening.proof);
    open(opening.value, value_.view());
}

void SealedChannel::take(Data&& data) {
    // A host says nothing of its screen to whom it has not let in.
    if (!isHost() && !isInside_)
        return fail(Failure::BadRecord);
    if (data_.empty())
        data_ = std::move(data.bytes);
    else
        data_ += data.bytes;
}

void SealedChannel::take(Goodbye&& goodbye) {
    goodbye_ = goodbye.reason;
    state_ = State::Closed;
    returnSecret_.reset();
}

void SealedChannel::take(Standing&& standing) {
    if (isHost())
        return fail(Failure::BadRecord);
    standing_ = standing;
    isInside_ |= standing.place == Standing::Place::Watching ||
                 standing.place == Standing::Place::Controlling;
}

void SealedChannel::take(ReturnTicket&& ticket) {
    if (isHost()) {
        fail(Failure::BadRecord);
    } else {
        ticket.secret.copy(reinterpret_cast<char*>(returnSecret_.emplace().bytes().data()),
                           ReturnSecret::size);
    }
    wipeText(ticket.secret);
}

void SealedChannel::take(Returned&& returned) {
    if (isHost() || !comesBackBy_ || standing_)
        return fail(Failure::BadRecord);
    if (!isSame(returned.proof, proofOf(*comesBackBy_, byHost)))
        return fail(Failure::NotTheHost);
    isBack_ = true;
    comesBackBy_.reset();
}

// Of this handshake and no other: nobody in between, who has the link, can pass it on.
std::string SealedChannel::proofOf(const ReturnSecret& secret, std::string_view side) const {
    std::string proof(proofSize, '\0');
    hkdf(transport_->hash, secret.view(), side,
         {reinterpret_cast<unsigned char*>(proof.data()), proof.size()});
    return proof;
}

bool SealedChannel::offersReturn(const ReturnSecret& secret) const {
    return state_ == State::Open && offersReturn() && isSame(proof_, proofOf(secret, byOpener));
}

bool SealedChannel::seal(const Record& record) {
    std::string message;
    auto plain = encode(record);
    const bool isSealed = transport_->sends.seal({}, plain, message);
    if (!std::holds_alternative<Data>(record))
        wipeText(plain);
    if (!isSealed) {
        fail(Failure::BadRecord);
        return false;
    }
    messages_.push_back(std::move(message));
    return true;
}

void SealedChannel::open(std::string_view openersValue, std::string_view hostsValue) {
    digits_ = digitsOf(transport_->hash, openersValue, hostsValue);
    state_ = State::Open;
}

void SealedChannel::send(std::string_view bytes) {
    while (state_ == State::Open && !bytes.empty()) {
        seal(Data{std::string(bytes.substr(0, longestData))});
        bytes.remove_prefix(std::min(bytes.size(), longestData));
    }
}

void SealedChannel::tell(const Standing& standing) {
    if (state_ == State::Open && isHost())
        seal(standing);
}

void SealedChannel::giveReturnSecret(const ReturnSecret& secret) {
    if (state_ != State::Open || !isHost())
        return;
    ReturnTicket ticket{std::string(secret.view())};
    seal(ticket);
    wipeText(ticket.secret);
}

void SealedChannel::confirmReturn(const ReturnSecret& secret) {
    if (state_ == State::Open && isHost())
        seal(Returned{proofOf(secret, byHost)});
}

void SealedChannel::sayGoodbye(Farewell reason) {
    if (state_ != State::Open || !seal(Goodbye{reason}))
        return;
    state_ = State::Closed;
    returnSecret_.reset();
}

void SealedChannel::fail(Failure failure) {
    state_ = State::Failed;
    failure_ = failure;
    // Nothing of what came before is to be acted on, and no key is of use any more.
    data_.clear();
    messages_.clear();
    transport_.reset();
}

}  // namespace zelvo::sealing
