#include "bench/service/RandomRequests.h"

#include <event2/event.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace zelvo::bench {
namespace {

constexpr int UnknownLink = 5;
constexpr int LastStatus = 13;

std::string between(std::string_view text, std::string_view before, char end) {
    const auto at = text.find(before);
    if (at == text.npos)
        return {};
    const auto from = at + before.size();
    return std::string(text.substr(from, text.find(end, from) - from));
}

}  // namespace

std::string ordinaryForm(const std::string& name) {
    return "ComputerName=" + name +
           "&LocalHostname=annas-computer.local.&vncPort=5900&IPAddress=203.0.113.77&Port=23456"
           "&MacAddress=0011aabbccdd&LastKeyboardLocale=com.apple.keylayout.German"
           "&MappedService=vnc&HotKeys=%7B%2232%22:%5B65507,65362%5D,%2233%22:%5B65507,65364%5D,"
           "%2236%22:%5B65480%5D,%2262%22:%5B65481%5D,%2264%22:%5B65513,32%5D,%22originalKeys%22:"
           "%5B126,125,103,111,49%5D,%22osVersion%22:%2212.4.0%22,%22hotCorners%22:%7B%22wvous-bl-"
           "corner%22:%7B%22value%22:1,%22modifiers%22:%5B%5D%7D,%22wvous-br-corner%22:%7B%22value"
           "%22:4,%22modifiers%22:%5B65505%5D%7D,%22wvous-tl-corner%22:%7B%22value%22:2,%22"
           "modifiers%22:%5B%5D%7D,%22wvous-tr-corner%22:%7B%22value%22:12,%22modifiers%22:%5B%5D"
           "%7D%7D%7D";
}

RandomRequests::RandomRequests(const Client::Place& place, int clients, int requests)
    : place_(place), people_(static_cast<std::size_t>(clients)), left_(requests) {
    std::uint32_t number = 0;
    for (auto& person : people_) {
        person.client = std::make_unique<Client>(place, number += 4);
        next(person);
    }
}

bool RandomRequests::report() const {
    std::printf("{\"asked\": %zu, \"wrong\": %zu}\n", asked_, wrong_);
    return wrong_ == 0;
}

RandomRequests::Told RandomRequests::read(const Client::Answer& answer) {
    Told told;
    told.http = answer.status;
    const auto status = between(answer.body, "<key>StatusCode</key>\n\t<integer>", '<');
    if (!status.empty())
        told.status = std::atoi(status.c_str());
    told.link = between(answer.body, "<key>link</key>\n\t<string>", '<');
    told.computer = between(answer.body, "<key>ComputerName</key>\n\t<string>", '<');
    told.hasFacts = answer.body.find("<key>IPAddress</key>") != std::string_view::npos;
    told.secret = between(answer.head, "Set-Cookie: owner=", ';');
    return told;
}

void RandomRequests::next(Person& person) {
    if (left_-- <= 0) {
        if (under_ == 0)
            event_base_loopbreak(place_.base);
        return;
    }
    switch (below(8)) {
        case 0:
            return create(person);
        case 1:
        case 2:
            return person.links.empty() ? create(person) : change(person);
        case 3:
        case 4:
            return ask(person);
        case 5:
            return steal(person);
        default:
            return babble(person);
    }
}

void RandomRequests::send(Person& person, const std::string& request,
                          std::function<bool(const Told&)> isRight) {
    ++under_;
    person.client->send(
        request, [this, &person, request, isRight = std::move(isRight)](const auto& answer) {
            --under_;
            ++asked_;
            if (!isRight(read(answer)) && ++wrong_ <= 20)
                std::fprintf(stderr, "WRONG\n%s\n->\n%s%s\n", request.substr(0, 700).c_str(),
                             std::string(answer.head).c_str(), std::string(answer.body).c_str());
            next(person);
        });
}

std::string RandomRequests::anyLink() {
    const auto& person = people_[below(people_.size())];
    if (person.links.empty())
        return "00000000000000000000000000000000";
    return std::next(person.links.begin(), static_cast<long>(below(person.links.size())))->first;
}

std::string RandomRequests::noSecretOf(const Person& person) {
    const auto& other = people_[below(people_.size())];
    switch (below(4)) {
        case 0:
            return {};
        case 1:
            return &other == &person ? "" : other.secret;
        case 2:
            return person.secret.substr(0, below(32));
        default:
            return "0123456789abcdef0123456789abcdef";
    }
}

std::string RandomRequests::damaged(std::string text) {
    for (auto changes = 1 + below(4); changes > 0 && !text.empty(); --changes) {
        const auto at = below(text.size());
        switch (below(4)) {
            case 0:
                text[at] = static_cast<char>(random_());
                break;
            case 1:
                text.erase(at, 1 + below(20));
                break;
            case 2:
                text.insert(at, text.substr(below(text.size()), 1 + below(30)));
                break;
            default:
                text.resize(at);
        }
    }
    return text;
}

void RandomRequests::create(Person& person) {
    const auto computer = newName();
    const bool wantsOwn = !person.links.empty() && below(2) == 0;
    const auto kept = wantsOwn ? person.links.begin()->first : below(3) == 0 ? anyLink() : "";
    const bool isOwn = person.links.contains(kept);
    const bool shows = below(4) != 0;
    const auto shown = shows ? person.secret : "";
    const bool isKnown = shows && !person.links.empty();
    send(person,
         Client::post("create.php", ordinaryForm(computer) + "&permanentSharedLink=" + kept, shown),
         [=, &person](const Told& told) {
             if (told.status != 0 || told.link.size() != 32 || told.secret.size() != 32)
                 return false;
             if ((told.link == kept) != (isOwn && isKnown) || (told.secret == shown) != isKnown)
                 return false;
             if (!isKnown) {
                 // From now on somebody new, who has nothing but this.
                 person.secret = told.secret;
                 person.links.clear();
             }
             person.links[told.link] = {computer, true};
             return true;
         });
}

void RandomRequests::change(Person& person) {
    const auto link = person.links.begin()->first;
    if (below(3) == 0)
        return send(person, Client::post("delete.php", "link=" + link, person.secret),
                    [=, &person](const Told& told) {
                        person.links.erase(link);
                        person.gone.push_back(link);
                        return told.status == 0;
                    });
    const auto computer = newName();
    const auto availability = below(2);
    send(person,
         Client::post("update.php",
                      ordinaryForm(computer) + "&sharedLink=" + link +
                          "&availabilityStatus=" + std::to_string(availability),
                      person.secret),
         [=, &person](const Told& told) {
             person.links[link] = {computer, availability == 0};
             return told.status == 0;
         });
}

void RandomRequests::ask(Person& person) {
    if (!person.gone.empty() && below(4) == 0)
        return send(person, Client::post("get.php", "link=" + person.gone.back(), person.secret),
                    [](const Told& told) { return told.status == UnknownLink; });
    if (person.links.empty())
        return send(person, Client::post("get.php", "link=" + anyLink()), [](const Told& told) {
            return told.status == 0 || told.status == UnknownLink;
        });
    const auto& [link, known] = *person.links.begin();
    send(person, Client::post("get.php", "link=" + link), [known = known](const Told& told) {
        return told.status == 0 && told.hasFacts == known.isAvailable &&
               (!known.isAvailable || told.computer == known.computer);
    });
}

void RandomRequests::steal(Person& person) {
    const auto link = person.links.empty() ? anyLink() : person.links.begin()->first;
    // Somebody else's link may be its owner's by the secret that is shown.
    const auto shown = person.links.empty() ? "" : noSecretOf(person);
    const auto request = below(2) == 0
                             ? Client::post("delete.php", "link=" + link, shown)
                             : Client::post("update.php",
                                            ordinaryForm("Thief") + "&sharedLink=" + link +
                                                "&availabilityStatus=" + std::to_string(below(2)),
                                            shown);
    send(person, request, [](const Told& told) { return told.status == UnknownLink; });
}

void RandomRequests::babble(Person& person) {
    const auto link = person.links.empty() ? anyLink() : person.links.begin()->first;
    const std::pair<const char*, std::string> forms[] = {
        {"create.php", ordinaryForm() + "&permanentSharedLink=" + link},
        {"update.php", ordinaryForm() + "&sharedLink=" + link + "&availabilityStatus=1"},
        {"get.php", "link=" + link},
        {"delete.php", "link=" + link}};
    const auto& [endpoint, form] = forms[below(4)];
    if (below(3) != 0) {
        const bool mayGoWell = endpoint[0] == 'c' || endpoint[0] == 'g';
        return send(person, Client::post(endpoint, damaged(form)), [=](const Told& told) {
            return told.status >= (mayGoWell ? 0 : 1) && told.status <= LastStatus;
        });
    }
    const auto head =
        "POST /app/4.8.1/sharing/" + std::string(endpoint) + " HTTP/1.1\r\nHost: x\r\n";
    const auto request = damaged(head) + "\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";
    send(person, request, [&person](const Told& told) {
        person.client->hangUp();
        return told.http == 0 || told.http >= 400 || told.status > 0;
    });
}

}  // namespace zelvo::bench
