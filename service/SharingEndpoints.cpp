#include "service/SharingEndpoints.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <random>
#include <span>
#include <utility>

#include "service/Names.h"
#include "service/ReachProbe.h"
#include "service/SharingFields.h"

namespace zelvo::service {
namespace {

using Outcome = LinkStore::Outcome;
using Availability = LinkStore::Availability;

Reply replyTo(Outcome outcome) {
    switch (outcome) {
        case Outcome::Done:
            return success();
        case Outcome::Unknown:
            return refusal(StatusCode::UnknownLink);
        case Outcome::Failed:
            break;
    }
    return refusal(StatusCode::StoreUnavailable);
}

const std::string& value(const Fields& fields, std::string_view name) {
    return fields.find(name)->second;
}

/// What is no secret of ours is nobody's.
LinkStore::Owner ownerOf(const std::string& secret) {
    return bytesOfName(secret) ? digestOf(secret) : LinkStore::Owner();
}

Reply describe(const LinkStore::Registration& registration, bool isAvailable) {
    auto reply = success();
    reply.emplace("availabilityStatus", std::int64_t{isAvailable ? 0 : 1});
    // Whom the host does not want to be found any more is told to nobody.
    if (!isAvailable)
        return reply;
    reply.emplace("AddressProven", std::int64_t{registration.addressIsProven});
    for (const auto& [name, text] : registration.facts)
        reply.emplace(name, text);
    return reply;
}

}  // namespace

struct SharingEndpoints::Endpoint {
    std::string_view name;
    std::span<const std::string_view> fields;
    void (SharingEndpoints::*run)(const Fields&, const Caller&, Done);
};

const SharingEndpoints::Endpoint SharingEndpoints::Endpoints[5] = {
    {"create.php", CreateNames, &SharingEndpoints::create},
    {"update.php", UpdateNames, &SharingEndpoints::update},
    {"get.php", LinkNames, &SharingEndpoints::get},
    {"delete.php", LinkNames, &SharingEndpoints::remove},
    {"relay.php", RelayNames, &SharingEndpoints::sendToRelay},
};

std::string_view SharingEndpoints::nameOf(std::string_view path) {
    const auto* endpoint = find(path);
    return endpoint ? endpoint->name : std::string_view();
}

void SharingEndpoints::answer(std::string_view path, std::string_view body, const Caller& caller,
                              Done done) {
    const auto* endpoint = find(path);
    if (!endpoint)
        return done({refusal(StatusCode::UnknownPath), ""});
    auto form = FormDecoder(endpoint->fields).decode(body);
    if (form.status != StatusCode::Ok)
        return done({refusal(form.status, form.field), ""});
    for (const auto& [name, text] : form.fields)
        if (!isLegalValue(name, text))
            return done({refusal(StatusCode::MalformedField, name), ""});
    (this->*endpoint->run)(form.fields, caller, std::move(done));
}

const SharingEndpoints::Endpoint* SharingEndpoints::find(std::string_view path) {
    if (!path.starts_with(Folder))
        return nullptr;
    const auto* found = std::ranges::find(Endpoints, path.substr(Folder.size()), &Endpoint::name);
    return found == std::end(Endpoints) ? nullptr : found;
}

LinkStore::Registration SharingEndpoints::registrationOf(const Fields& fields,
                                                         const Caller& caller) const {
    LinkStore::Registration registration;
    for (auto name : FactNames)
        registration.facts.insert(*fields.find(name));
    const auto& address = value(fields, "IPAddress");
    registration.addressIsProven = address == caller.address || options_.relays.contains(address);
    return registration;
}

/// What tries whether the caller can be reached at the port that it registers, once that is done.
/// Nobody else is tried, and relays are not the caller: then what was found before is of no use.
std::function<void(const std::string&)> SharingEndpoints::probeOf(const Fields& fields,
                                                                  const Caller& caller) const {
    const auto& port = value(fields, "Port");
    int number = 0;
    std::from_chars(port.data(), port.data() + port.size(), number);
    if (!options_.probe)
        return [](const std::string&) {};
    if (value(fields, "IPAddress") != caller.address || options_.relays.contains(caller.address))
        return [probe = options_.probe](const std::string& link) { probe->forget(link); };
    return [probe = options_.probe, address = caller.address, number](const std::string& link) {
        probe->begin(link, address, number);
    };
}

void SharingEndpoints::create(const Fields& fields, const Caller& caller, Done done) {
    LinkStore::Creation creation;
    creation.kept = value(fields, KeptLinkName);
    creation.owner = ownerOf(caller.secret);
    creation.registration = registrationOf(fields, caller);
    if (options_.mayCreate && !options_.mayCreate(creation.owner))
        return done({refusal(StatusCode::TooManyRequests), ""});
    auto link = newName();
    auto secret = newName();
    if (!link || !secret)
        return done({refusal(StatusCode::InternalError), ""});
    creation.newLink = *link;
    creation.newOwner = digestOf(*secret);
    store_.create(std::move(creation),
                  [done = std::move(done), shown = caller.secret, probe = probeOf(fields, caller),
                   secret = *secret](const LinkStore::Created& created) {
                      if (created.outcome != Outcome::Done)
                          return done({replyTo(created.outcome), ""});
                      probe(created.link);
                      auto reply = success();
                      reply.emplace("link", created.link);
                      // A known secret is given again, too, as it is kept for so long only.
                      done({std::move(reply), created.isNewOwner ? secret : shown});
                  });
}

void SharingEndpoints::update(const Fields& fields, const Caller& caller, Done done) {
    auto registration = registrationOf(fields, caller);
    const bool isAvailable = value(fields, "availabilityStatus") == "0";
    if (!isAvailable)
        registration.availability = Availability::Unavailable;
    const auto& link = value(fields, "sharedLink");
    store_.replace(link, ownerOf(caller.secret), std::move(registration),
                   [done = std::move(done), probe = probeOf(fields, caller), isAvailable,
                    link](Outcome outcome) {
                       if (outcome == Outcome::Done && isAvailable)
                           probe(link);
                       done({replyTo(outcome), ""});
                   });
}

void SharingEndpoints::get(const Fields& fields, const Caller& caller, Done done) {
    const auto& link = value(fields, "link");
    store_.find(link, [this, link, owner = ownerOf(caller.secret), done = std::move(done)](
                          Outcome outcome, const LinkStore::Record& record) {
        if (outcome != Outcome::Done)
            return done({replyTo(outcome), ""});
        const auto silence = options_.clock() - record.lastSign;
        const bool isOwner = !owner.empty() && owner == record.owner;
        if (isOwner && silence >= life::SignEvery)
            store_.touch(link);
        const bool isAvailable = record.registration.availability == Availability::Available &&
                                 (isOwner || silence <= life::AvailableFor);
        auto reply = describe(record.registration, isAvailable);
        const auto relay = options_.relays.find(value(record.registration.facts, "IPAddress"));
        if (isAvailable && relay != options_.relays.end())
            reply.emplace("Relay", relay->second);
        // To the host alone, since others see for themselves.
        const auto reached =
            isOwner && isAvailable && options_.probe ? options_.probe->told(link) : std::nullopt;
        if (reached)
            reply.emplace("Reached", std::int64_t{*reached});
        done({std::move(reply), ""});
    });
}

void SharingEndpoints::remove(const Fields& fields, const Caller& caller, Done done) {
    store_.remove(value(fields, "link"), ownerOf(caller.secret),
                  [done = std::move(done)](Outcome outcome) {
                      done({replyTo(outcome), ""});
                  });
}

void SharingEndpoints::sendToRelay(const Fields& fields, const Caller& caller, Done done) {
    const auto& relays = options_.relays;
    const auto owner = ownerOf(caller.secret);
    if (options_.mayCreate && !options_.mayCreate(owner))
        return done({refusal(StatusCode::TooManyRequests), ""});
    if (relays.empty() || !options_.ticketFor)
        return done({refusal(StatusCode::NoRelay), ""});
    const auto& wanted = value(fields, "Relay");
    auto relay = std::ranges::find(relays, wanted, [](const auto& it) { return it.second; });
    if (relay == relays.end())
        relay = std::next(relays.begin(), std::random_device()() % relays.size());
    auto ticket = options_.ticketFor(owner, relay->second);
    if (ticket.empty())
        return done({refusal(StatusCode::InternalError), ""});
    auto reply = success();
    reply.emplace("Relay", relay->second);
    reply.emplace("RelayAddress", relay->first);
    reply.emplace("ClientAddress", caller.address);
    reply.emplace("Ticket", std::move(ticket));
    done({std::move(reply), ""});
}

}  // namespace zelvo::service
