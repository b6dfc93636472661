#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace zelvo::platform {

/// Ends an observation when it is destroyed. May outlive the observable.
class [[nodiscard]] Subscription {
  public:
    Subscription() = default;
    explicit Subscription(std::function<void()> end) : end_(std::move(end)) {}
    Subscription(Subscription&& other) noexcept : end_(std::exchange(other.end_, nullptr)) {}
    Subscription& operator=(Subscription&& other) noexcept {
        if (this != &other) {
            stop();
            end_ = std::exchange(other.end_, nullptr);
        }
        return *this;
    }
    ~Subscription() { stop(); }

  private:
    void stop() {
        if (auto end = std::exchange(end_, nullptr))
            end();
    }

    std::function<void()> end_;
};

/// A value that tells its observers of every write, also of one that changes nothing. A constant
/// reference is the view of those who read and observe it. Main thread only.
template <typename T>
class Observable {
  public:
    using Observer = std::function<void(const T&)>;

    Observable() = default;
    explicit Observable(T initial) : value_(std::move(initial)) {}
    Observable(const Observable&) = delete;
    Observable& operator=(const Observable&) = delete;

    const T& value() const { return value_; }

    /// Stores the value, then calls each observer that was there before the call, oldest first.
    void set(T value) {
        value_ = std::move(value);
        std::vector<std::uint64_t> order;
        for (const auto& [id, observer] : *observers_)
            order.push_back(id);
        auto observers = observers_;
        for (auto id : order) {
            // An earlier observer may have ended a later one's subscription.
            if (auto found = observers->find(id); found != observers->end()) {
                auto observer = found->second;
                observer(value_);
            }
        }
    }

    /// Calls `observer` at every later write, until the subscription is destroyed.
    [[nodiscard]] Subscription subscribe(Observer observer) const {
        auto id = next_++;
        observers_->emplace(id, std::move(observer));
        return Subscription([weak = std::weak_ptr(observers_), id] {
            if (auto observers = weak.lock())
                observers->erase(id);
        });
    }

    /// Calls `observer` at once with the present value, and then as `subscribe`.
    [[nodiscard]] Subscription bind(Observer observer) const {
        observer(value_);
        return subscribe(std::move(observer));
    }

  private:
    T value_{};
    mutable std::uint64_t next_ = 0;
    std::shared_ptr<std::map<std::uint64_t, Observer>> observers_ =
        std::make_shared<std::map<std::uint64_t, Observer>>();
};

}  // namespace zelvo::platform
