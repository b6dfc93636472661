#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "relay/Connection.h"
#include "relay/NumberBook.h"
#include "relay/messages/RelayHeads.h"
#include "serving/LoopThread.h"

struct evconnlistener;

namespace zelvo::relay {

class Member;
class Pair;
struct RelayShared;

/// One event loop with its thread, its part of the numbers, and who has to do with those.
class RelayLoop {
  public:
    RelayLoop(RelayShared& shared, std::size_t index, std::size_t loops, std::size_t most);
    RelayLoop(const RelayLoop&) = delete;
    RelayLoop& operator=(const RelayLoop&) = delete;
    ~RelayLoop();

    /// Accepts from the socket, of which it takes a descriptor of its own.
    bool listen(int socket);
    void start() { thread_.start(); }
    /// Ends every connection, and the loop with them. Any thread.
    void beginStop();
    void join() { thread_.join(); }

    serving::LoopThread& thread() { return thread_; }
    RelayShared& shared() { return shared_; }
    NumberBook& numbers() { return numbers_; }

    // On the loop's thread:

    void add(std::unique_ptr<Member> member);
    /// Destroys it when nothing runs in it any more.
    void bury(Member& member);
    /// Takes in a client by its first words, or shows it out.
    void hear(Request request, std::unique_ptr<Connection> connection, std::string rest);
    void forget(int number, const HostLine& line);
    void forgetWaiting(const std::string& token) { waiting_.erase(token); }
    void refuse(std::unique_ptr<Connection> connection, int status,
                std::chrono::seconds retry = {});

  private:
    struct Visitor;

    void hear(const HostRequest& request, Visitor visitor);
    void hear(const DialBackRequest& request, Visitor visitor);
    void hear(const ViewerRequest& request, Visitor visitor);
    void takeHost(const Ticket& ticket, const std::optional<Lease>& lease, Visitor visitor);
    void takeViewer(const ViewerRequest& request, Visitor visitor);
    void takeDialBack(const std::string& token, Visitor visitor);
    void refuseToken(std::unique_ptr<Connection> connection);
    bool charge(const Connection& connection);
    std::string freshToken() const;
    void accepted(int socket);
    void pause();

    RelayShared& shared_;
    const std::size_t index_;
    const std::size_t most_;
    serving::LoopThread thread_{serving::LoopThread::Descriptors::Move};
    NumberBook numbers_;
    std::unordered_map<Member*, std::unique_ptr<Member>> members_;
    std::vector<std::unique_ptr<Member>> buried_;
    std::unordered_map<std::string, Pair*> waiting_;  ///< by their tokens
    evconnlistener* listener_ = nullptr;
    bool stopping_ = false;
};

}  // namespace zelvo::relay
