#pragma once

#include <utility>

#include "support/signal.h"

namespace kestrow {

// A published value: observers hear about real changes only, so a service can publish on every
// tick without waking the UI when nothing moved.
template <typename T>
class Observable {
public:
    Observable() = default;
    explicit Observable(T initial) : value_(std::move(initial)) {}

    const T& get() const { return value_; }
    // Returns true when the value changed (and observers were told).
    bool set(T value) {
        if (value == value_) return false;
        value_ = std::move(value);
        changed_.emit(value_);
        return true;
    }
    [[nodiscard]] typename Signal<T>::Connection observe(std::function<void(const T&)> slot) {
        return changed_.connect(std::move(slot));
    }

private:
    T value_{};
    Signal<T> changed_;
};

}  // namespace kestrow
