#pragma once

#include <event2/event_struct.h>

#include <list>
#include <string>
#include <unordered_map>

struct event_base;

namespace zelvo::serving {

/// In which order clients get what is dear, the steps of handshakes: one client after the other,
/// however many connections each has, and who has just come before who has had some. On one
/// loop's thread.
class Turns {
    struct Line;

  public:
    /// One that may have to wait. Leaves when it ends.
    class Guest {
      public:
        Guest() = default;
        Guest(const Guest&) = delete;
        Guest& operator=(const Guest&) = delete;

        bool waits() const { return turns_ != nullptr; }

      protected:
        ~Guest();
        /// Its turn, which it can take from now on.
        virtual void onTurn() = 0;

      private:
        friend Turns;
        Turns* turns_ = nullptr;  ///< where it waits
        std::list<Line>::iterator line_;
        std::list<Guest*>::iterator place_;
        bool hasTurn_ = false;
    };

    explicit Turns(event_base* base);
    Turns(const Turns&) = delete;
    Turns& operator=(const Turns&) = delete;
    /// Nobody waits any more.
    ~Turns();

    /// Whether it may go on at once; otherwise it waits in its client's line.
    bool take(Guest& guest, const std::string& client);

  private:
    struct Line {
        std::string client;
        std::list<Guest*> guests;
        bool isFresh = true;  ///< had no turn since it is there
    };

    bool isEmpty() const { return fresh_.empty() && lines_.empty(); }
    void leave(Guest& guest);
    void beginRound();
    void callNext();

    std::list<Line> fresh_;
    std::list<Line> lines_;  ///< by whose turn it is
    std::unordered_map<std::string, std::list<Line>::iterator> byClient_;
    int left_;  ///< of this round of the loop
    event round_{};
};

}  // namespace zelvo::serving
