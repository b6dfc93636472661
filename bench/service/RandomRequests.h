#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/service/Client.h"

namespace zelvo::bench {

/// The facts of an ordinary host, as it sends them.
std::string ordinaryForm(const std::string& name = "Anna%E2%80%99s%20Computer");

/// Asks for anything: what owners ask for, what strangers would like, and what is no request at
/// all; and knows what the answers have to be.
class RandomRequests {
  public:
    RandomRequests(const Client::Place& place, int clients, int requests);

    /// Says how many answers were wrong; false where any was.
    bool report() const;

  private:
    struct Link {
        std::string computer;
        bool isAvailable = true;
    };
    struct Person {
        std::unique_ptr<Client> client;
        std::string secret;  ///< which owns something as long as there are links
        std::map<std::string, Link> links;
        std::vector<std::string> gone;
    };
    /// What came, as far as it can be told.
    struct Told {
        int http = 0;
        int status = -1;
        std::string link;
        std::string secret;
        std::string computer;
        bool hasFacts = false;
    };

    static Told read(const Client::Answer& answer);
    void next(Person& person);
    void create(Person& person);
    void change(Person& person);
    void ask(Person& person);
    void steal(Person& person);
    void babble(Person& person);
    void send(Person& person, const std::string& request, std::function<bool(const Told&)> isRight);

    std::size_t below(std::size_t limit) { return random_() % limit; }
    std::string newName() { return "PC" + std::to_string(random_() % 1000); }
    std::string anyLink();
    std::string noSecretOf(const Person& person);
    std::string damaged(std::string text);

    const Client::Place place_;
    std::mt19937_64 random_{20260101};
    std::vector<Person> people_;
    int left_;
    int under_ = 0;
    std::size_t asked_ = 0;
    std::size_t wrong_ = 0;
};

}  // namespace zelvo::bench
