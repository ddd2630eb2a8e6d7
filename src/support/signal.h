#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace kestrow {

// A typed signal for publishing state to observers on one thread (the main executor). Slots run
// synchronously in connection order; a slot may connect or disconnect others while it runs.
template <typename... Args>
class Signal {
    using Slot = std::function<void(const Args&...)>;
    struct Slots {
        std::uint64_t next = 1;
        std::map<std::uint64_t, std::shared_ptr<Slot>> slots;
    };

public:
    // Disconnects when destroyed, so an observer cannot outlive its subscription by accident.
    class Connection {
    public:
        Connection() = default;
        Connection(std::weak_ptr<Slots> slots, std::uint64_t id)
            : slots_(std::move(slots)), id_(id) {}
        Connection(Connection&& other) noexcept
            : slots_(std::move(other.slots_)), id_(std::exchange(other.id_, 0)) {}
        Connection& operator=(Connection&& other) noexcept {
            if (this != &other) {
                disconnect();
                slots_ = std::move(other.slots_);
                id_ = std::exchange(other.id_, 0);
            }
            return *this;
        }
        Connection(const Connection&) = delete;
        Connection& operator=(const Connection&) = delete;
        ~Connection() { disconnect(); }

        void disconnect() {
            if (auto slots = slots_.lock()) slots->slots.erase(id_);
            slots_.reset();
            id_ = 0;
        }
        bool connected() const { return id_ != 0 && !slots_.expired(); }

    private:
        std::weak_ptr<Slots> slots_;
        std::uint64_t id_ = 0;
    };

    [[nodiscard]] Connection connect(Slot slot) {
        const std::uint64_t id = state_->next++;
        state_->slots.emplace(id, std::make_shared<Slot>(std::move(slot)));
        return Connection(state_, id);
    }

    void emit(const Args&... args) const {
        std::vector<std::pair<std::uint64_t, std::weak_ptr<Slot>>> snapshot;
        snapshot.reserve(state_->slots.size());
        for (const auto& [id, slot] : state_->slots) snapshot.emplace_back(id, slot);
        for (const auto& [id, weak] : snapshot) {
            // Skip slots disconnected by an earlier slot of this same emission.
            if (!state_->slots.contains(id)) continue;
            if (auto slot = weak.lock()) (*slot)(args...);
        }
    }

    std::size_t slotCount() const { return state_->slots.size(); }

private:
    std::shared_ptr<Slots> state_ = std::make_shared<Slots>();
};

}  // namespace kestrow
