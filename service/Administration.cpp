#include "service/Administration.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <vector>

#include "service/Names.h"
#include "service/ServiceOptions.h"

namespace zelvo::service {
namespace {

constexpr int BadUsage = 2;
constexpr Moment Day = 24 * 3600;

int complain(const std::string& text, int status = EXIT_FAILURE) {
    std::fprintf(stderr, "zelvo-service: %s\n", text.c_str());
    return status;
}

int refuseUsage(const std::string& text) {
    std::fputs(Administration::usage().c_str(), stderr);
    return complain(text, BadUsage);
}

/// What has been printed is where it was to go.
int finishOutput() {
    const bool isOut = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    return isOut ? EXIT_SUCCESS : complain("cannot write to the standard output");
}

const char* stateOf(const LinkStore::Record& record, Moment now) {
    if (record.lastSign <= now - life::KnownFor)
        return "forgotten";
    if (record.registration.availability == LinkStore::Availability::Unavailable)
        return "unavailable";
    return record.lastSign < now - life::AvailableFor ? "silent" : "available";
}

}  // namespace

std::string Administration::usage() {
    return "usage: zelvo-service links list --database PLACE\n"
           "       zelvo-service links end LINK ... --database PLACE\n"
           "       zelvo-service links purge [DAYS] --database PLACE\n"
           "       zelvo-service migrate FROM TO [--add]\n"
           "Shows the links, ends some, or forgets those without a sign of life for 30 DAYS; or "
           "copies\nall of them to another database. A PLACE is a file or postgresql://...; "
           "instead of --database\nthere may be --config FILE.\n";
}

std::optional<int> Administration::run(std::span<char*> arguments) {
    const std::string command = arguments.empty() ? "" : arguments[0];
    if (command == "migrate")
        return migrate(arguments.subspan(1));
    if (command != "links")
        return std::nullopt;
    if (arguments.size() < 2)
        return refuseUsage("links: list, end or purge?");
    return links(arguments[1], arguments.subspan(2));
}

int Administration::links(const std::string& what, std::span<char*> arguments) {
    std::vector<std::string> words;
    while (!arguments.empty() && std::string_view(arguments[0]).substr(0, 2) != "--") {
        words.emplace_back(arguments[0]);
        arguments = arguments.subspan(1);
    }
    std::string error;
    const auto place = ServiceOptions::databaseOf(arguments, error);
    if (!place)
        return refuseUsage(error);
    if (what == "list" ? !words.empty() : what == "end" ? words.empty() : what != "purge")
        return refuseUsage("links " + what + ": no such words");
    using Use = LinkArchive::Use;
    const auto archive = openExisting(*place, what == "list" ? Use::Look : Use::Change);
    if (!archive)
        return EXIT_FAILURE;
    return what == "list"  ? list(*archive)
           : what == "end" ? end(*archive, words)
                           : purge(*archive, words);
}

int Administration::list(LinkArchive& archive) const {
    const bool isRead =
        archive.read(LinkArchive::Others::MayChange, [this](const LinkArchive::Row& row) {
            constexpr std::size_t length = 32;
            char date[length];
            const std::time_t sign = row.record.lastSign;
            std::tm parts{};
            std::strftime(date, sizeof date, "%FT%TZ", gmtime_r(&sign, &parts));
            return std::printf("%s %s %s\n", nameOfBytes(row.link).c_str(), date,
                               stateOf(row.record, now_)) >= 0;
        });
    if (!isRead)
        return complain(archive.trouble());
    return finishOutput();
}

int Administration::end(LinkArchive& archive, std::span<const std::string> links) const {
    int status = EXIT_SUCCESS;
    for (const auto& link : links) {
        const auto name = bytesOfName(link);
        const auto outcome = name ? archive.end(*name) : LinkStore::Outcome::Unknown;
        if (outcome == LinkStore::Outcome::Failed)
            return complain(archive.trouble());
        if (outcome == LinkStore::Outcome::Unknown)
            status = complain("no such link: " + link);
    }
    return status;
}

int Administration::purge(LinkArchive& archive, std::span<const std::string> days) const {
    Moment count = life::KnownFor / Day;
    if (!days.empty()) {
        const auto& text = days[0];
        const auto [last, failure] = std::from_chars(text.data(), text.data() + text.size(), count);
        if (days.size() > 1 || failure != std::errc() || last != text.data() + text.size() ||
            count < 1 || count > life::KnownFor / Day)
            return refuseUsage("links purge: not a number of days from 1 to 30");
    }
    const auto purged = archive.purge(now_ - count * Day);
    if (!purged)
        return complain(archive.trouble());
    std::printf("%lld links\n", static_cast<long long>(*purged));
    return finishOutput();
}

int Administration::migrate(std::span<char*> arguments) {
    const bool mayAdd = arguments.size() == 3 && std::string_view(arguments[2]) == "--add";
    if (arguments.size() != 2 && !mayAdd)
        return refuseUsage("migrate: from where, and where to?");
    for (const std::string place : arguments.first(2))
        if (const auto trouble = troubleWithDatabase(place); !trouble.empty())
            return refuseUsage(trouble);
    const auto from = openExisting(arguments[0], LinkArchive::Use::Look);
    if (!from)
        return EXIT_FAILURE;
    std::string error;
    const auto to = open_(arguments[1], LinkArchive::Use::Fill, error);
    if (!to)
        return complain(nameOfDatabase(arguments[1]) + ": " + error);
    const auto before = to->count();
    if (!before)
        return complain(to->trouble());
    if (*before > 0 && !mayAdd)
        return complain("there are " + std::to_string(*before) +
                        " links where they are to go; --add leaves those as they are");
    std::int64_t count = 0;
    bool isAdded = to->beginAdding();
    // What a service changed here meanwhile would be lost.
    if (isAdded && !from->read(LinkArchive::Others::MayNotChange, [&](const LinkArchive::Row& row) {
            ++count;
            return isAdded = to->add(row);
        }))
        return complain(nameOfDatabase(arguments[0]) + ": " + from->trouble());
    if (!isAdded || !to->endAdding())
        return complain(nameOfDatabase(arguments[1]) + ": " + to->trouble());
    const auto after = to->count();
    if (!after || *after < count || (*before == 0 && *after != count))
        return complain("not all links are there: " + std::to_string(after.value_or(0)) + " of " +
                        std::to_string(count));
    std::printf("%lld links\n", static_cast<long long>(count));
    return finishOutput();
}

std::unique_ptr<LinkArchive> Administration::openExisting(const std::string& place,
                                                          LinkArchive::Use use) const {
    std::string error = "no such file";
    std::error_code ignored;
    auto archive = isPostgres(place) || std::filesystem::exists(place, ignored)
                       ? open_(place, use, error)
                       : nullptr;
    if (!archive)
        complain(nameOfDatabase(place) + ": " + error);
    return archive;
}

}  // namespace zelvo::service
