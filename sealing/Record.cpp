#include "sealing/Record.h"

#include "sealing/Secret.h"

namespace zelvo::sealing {

namespace {

// The first byte of each.
constexpr char openingKind = 1;
constexpr char dataKind = 2;
constexpr char goodbyeKind = 3;
constexpr char standingKind = 4;
constexpr char ticketKind = 5;
constexpr char openingOnReturnKind = 6;
constexpr char returnedKind = 7;

struct Encoder {
    std::string operator()(const Opening& opening) const {
        if (opening.proof.empty())
            return openingKind + opening.value + opening.name;
        return openingOnReturnKind + opening.value + opening.proof + opening.name;
    }
    std::string operator()(const Data& data) const { return dataKind + data.bytes; }
    std::string operator()(const Goodbye& goodbye) const {
        return {goodbyeKind, static_cast<char>(goodbye.reason)};
    }
    std::string operator()(const Standing& standing) const {
        return {standingKind, static_cast<char>(standing.place),
                static_cast<char>(standing.secondsLeft >> 8),
                static_cast<char>(standing.secondsLeft)};
    }
    std::string operator()(const ReturnTicket& ticket) const { return ticketKind + ticket.secret; }
    std::string operator()(const Returned& returned) const { return returnedKind + returned.proof; }
};

std::optional<Record> decodeOpening(std::string_view bytes, std::size_t proof) {
    if (bytes.size() <= valueSize + proof || !isHelperName(bytes.substr(valueSize + proof)))
        return std::nullopt;
    return Opening{std::string(bytes.substr(0, valueSize)),
                   std::string(bytes.substr(valueSize + proof)),
                   std::string(bytes.substr(valueSize, proof))};
}

std::optional<Record> decodeStanding(std::string_view bytes) {
    if (bytes.size() != 3 || bytes[0] == 0)
        return std::nullopt;
    const auto high = static_cast<unsigned char>(bytes[1]);
    const auto low = static_cast<unsigned char>(bytes[2]);
    return Standing{static_cast<Standing::Place>(bytes[0]),
                    static_cast<std::uint16_t>(high << 8 | low)};
}

}  // namespace

std::string encode(const Record& record) {
    return std::visit(Encoder{}, record);
}

std::optional<Record> decodeRecord(std::string_view bytes) {
    if (bytes.empty())
        return std::nullopt;
    const char kind = bytes[0];
    bytes.remove_prefix(1);
    switch (kind) {
        case openingKind:
            return decodeOpening(bytes, 0);
        case openingOnReturnKind:
            return decodeOpening(bytes, proofSize);
        case dataKind:
            if (bytes.empty() || bytes.size() > longestData)
                return std::nullopt;
            return Data{std::string(bytes)};
        case goodbyeKind:
            if (bytes.size() != 1 || bytes[0] == 0)
                return std::nullopt;
            return Goodbye{static_cast<Farewell>(bytes[0])};
        case standingKind:
            return decodeStanding(bytes);
        case ticketKind:
            if (bytes.size() != Key::size)
                return std::nullopt;
            return ReturnTicket{std::string(bytes)};
        case returnedKind:
            if (bytes.size() != proofSize)
                return std::nullopt;
            return Returned{std::string(bytes)};
        default:
            return std::nullopt;
    }
}

}  // namespace zelvo::sealing
