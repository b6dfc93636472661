#include "platform/linux/https/WithdrawalJournal.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <utility>

#include "platform/Log.h"
#include "platform/linux/base/FileReading.h"
#include "platform/linux/files/FileReplacement.h"
#include "platform/linux/https/SharingRequest.h"

namespace zelvo::platform {

namespace {

constexpr std::size_t MostRecords = 16;
constexpr std::size_t LongestFile = std::size_t{1} << 20;
/// Nobody waits for a service that has been away for longer.
constexpr std::chrono::hours LongestMemory{24 * 30};

std::int64_t secondsNow() {
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

WithdrawalJournal::WithdrawalJournal(const std::string& folder, Log& log)
    : file_(folder.empty() ? folder : folder + "/withdrawals"), log_(log) {
    if (!file_.empty())
        read();
}

UrlRequest WithdrawalJournal::requestOf(const Record& record) {
    UrlRequest request;
    request.url = record.url;
    request.cachePolicy = CachePolicy::ReloadIgnoringLocalCacheData;
    request.method = "POST";
    request.headers.emplace_back("Content-Type", "application/x-www-form-urlencoded");
    const auto* bytes = reinterpret_cast<const std::byte*>(record.form.data());
    request.body.assign(bytes, bytes + record.form.size());
    return request;
}

void WithdrawalJournal::read() {
    const auto oldest = secondsNow() - std::chrono::seconds(LongestMemory).count();
    std::istringstream lines(readTextFile(file_, LongestFile).value_or(""));
    for (std::string line; std::getline(lines, line) && records_.size() < MostRecords;) {
        Record record;
        std::istringstream words(line);
        if (!(words >> record.writtenAt >> record.url >> record.form) || record.writtenAt < oldest)
            continue;
        auto what = SharingRequest::of(requestOf(record));
        if (what.kind == SharingRequest::Kind::Withdrawal && !what.link.empty())
            records_[what.link] = std::move(record);
    }
}

void WithdrawalJournal::add(const UrlRequest& request) {
    Record record{secondsNow(),
                  request.url,
                  {reinterpret_cast<const char*>(request.body.data()), request.body.size()}};
    // A form has no blanks, which are what separates the words of a line.
    if (std::ranges::any_of(record.url + record.form, [](char c) { return c == ' ' || c == '\n'; }))
        return;
    records_[SharingRequest::of(request).link] = std::move(record);
    if (records_.size() > MostRecords)
        records_.erase(std::ranges::min_element(
            records_, {}, [](const auto& entry) { return entry.second.writtenAt; }));
    write();
}

void WithdrawalJournal::remove(const std::string& link) {
    if (records_.erase(link) > 0)
        write();
}

std::vector<UrlRequest> WithdrawalJournal::requests() const {
    std::vector<UrlRequest> all;
    for (const auto& [link, record] : records_)
        all.push_back(requestOf(record));
    return all;
}

void WithdrawalJournal::write() {
    if (file_.empty())
        return;
    if (records_.empty()) {
        ::unlink(file_.c_str());
        return;
    }
    std::string text;
    for (const auto& [link, record] : records_)
        text += std::to_string(record.writtenAt) + ' ' + record.url + ' ' + record.form + '\n';
    if (auto error = replaceFile(file_, text); !error.empty())
        log_.line("Sharing service: " + error);
}

}  // namespace zelvo::platform
