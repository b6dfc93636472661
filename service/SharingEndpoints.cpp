#include "service/SharingEndpoints.h"

#include <algorithm>
#include <span>
#include <string>

#include "service/LinkName.h"
#include "service/SharingFields.h"

namespace zelvo::service {
namespace {

using Outcome = LinkStore::Outcome;
using Availability = LinkStore::Availability;

LinkStore::Registration registrationOf(const Fields& fields, Availability availability) {
    LinkStore::Registration registration;
    registration.availability = availability;
    for (auto name : FactNames)
        registration.facts.insert(*fields.find(name));
    return registration;
}

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

Reply withLink(Reply reply, const std::string& link) {
    reply.emplace("link", link);
    return reply;
}

}  // namespace

struct SharingEndpoints::Endpoint {
    std::string_view path;
    std::span<const std::string_view> names;
    Reply (SharingEndpoints::*run)(const Fields&);
};

const SharingEndpoints::Endpoint SharingEndpoints::Endpoints[4] = {
    {"/app/4.8.1/sharing/create.php", CreateNames, &SharingEndpoints::create},
    {"/app/4.8.1/sharing/update.php", UpdateNames, &SharingEndpoints::update},
    {"/app/4.8.1/sharing/get.php", LinkNames, &SharingEndpoints::get},
    {"/app/4.8.1/sharing/delete.php", LinkNames, &SharingEndpoints::remove},
};

bool SharingEndpoints::has(std::string_view path) {
    return find(path) != nullptr;
}

Reply SharingEndpoints::answer(std::string_view path, std::string_view body) {
    const auto* endpoint = find(path);
    if (!endpoint)
        return refusal(StatusCode::UnknownPath);
    auto form = FormDecoder(endpoint->names).decode(body);
    if (form.status != StatusCode::Ok)
        return refusal(form.status, form.field);
    for (const auto& [name, value] : form.fields)
        if (!isLegalValue(name, value))
            return refusal(StatusCode::MalformedField, name);
    return (this->*endpoint->run)(form.fields);
}

const SharingEndpoints::Endpoint* SharingEndpoints::find(std::string_view path) {
    const auto* found = std::ranges::find(Endpoints, path, &Endpoint::path);
    return found == std::end(Endpoints) ? nullptr : found;
}

Reply SharingEndpoints::create(const Fields& fields) {
    auto registration = registrationOf(fields, Availability::Available);
    const auto& kept = fields.find("permanentSharedLink")->second;
    if (!kept.empty()) {
        auto outcome = store_.replace(kept, registration);
        if (outcome == Outcome::Done)
            return withLink(success(), kept);
        if (outcome == Outcome::Failed)
            return replyTo(outcome);
    }
    auto link = newLinkName();
    if (!link)
        return refusal(StatusCode::InternalError);
    auto outcome = store_.insert(*link, registration);
    return outcome == Outcome::Done ? withLink(success(), *link) : replyTo(outcome);
}

Reply SharingEndpoints::update(const Fields& fields) {
    auto availability = fields.find("availabilityStatus")->second == "0"
                            ? Availability::Available
                            : Availability::Unavailable;
    return replyTo(
        store_.replace(fields.find("sharedLink")->second, registrationOf(fields, availability)));
}

Reply SharingEndpoints::get(const Fields& fields) {
    LinkStore::Registration registration;
    auto outcome = store_.find(fields.find("link")->second, registration);
    if (outcome != Outcome::Done)
        return replyTo(outcome);
    auto reply = success();
    reply.emplace("availabilityStatus", std::int64_t{static_cast<int>(registration.availability)});
    for (const auto& [name, value] : registration.facts)
        reply.emplace(name, value);
    return reply;
}

Reply SharingEndpoints::remove(const Fields& fields) {
    return replyTo(store_.remove(fields.find("link")->second));
}

}  // namespace zelvo::service
