#pragma once

#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "support/executor.h"

namespace kestrow {

// The pending tasks of one executor, ordered by due time and, among equal due times, by posting
// order. Shared by every executor (real threads, the Qt loop, virtual time) so that they order and
// cancel alike. Not synchronised: each executor guards it in its own way.
template <typename Due>
class TaskTimeline {
public:
    struct Entry {
        Due due;
        TaskId id;
        std::function<void()> task;
    };

    TaskId add(Due due, std::function<void()> task) {
        const TaskId id = nextId_++;
        tasks_.emplace(Key{due, id}, std::move(task));
        dueOf_.emplace(id, due);
        return id;
    }

    // The cancelled task, so that the caller can destroy it outside its lock; nothing when the
    // task already ran or never existed.
    std::function<void()> cancel(TaskId id) {
        const auto found = dueOf_.find(id);
        if (found == dueOf_.end()) return {};
        const auto task = tasks_.find(Key{found->second, id});
        std::function<void()> dropped = std::move(task->second);
        tasks_.erase(task);
        dueOf_.erase(found);
        return dropped;
    }

    // Removes and returns the first task when it is due by `now` and was posted before
    // `postedBefore`.
    std::optional<Entry> popDue(Due now, TaskId postedBefore = std::numeric_limits<TaskId>::max()) {
        if (tasks_.empty()) return std::nullopt;
        const auto first = tasks_.begin();
        const auto [due, id] = first->first;
        if (now < due || id >= postedBefore) return std::nullopt;
        Entry entry{due, id, std::move(first->second)};
        tasks_.erase(first);
        dueOf_.erase(id);
        return entry;
    }

    std::optional<Due> nextDue() const {
        if (tasks_.empty()) return std::nullopt;
        return std::get<0>(tasks_.begin()->first);
    }
    bool isFirst(TaskId id) const {
        return !tasks_.empty() && std::get<1>(tasks_.begin()->first) == id;
    }
    // The id the next task will get: tasks posted from now on have this id or a higher one.
    TaskId nextId() const { return nextId_; }
    bool empty() const { return tasks_.empty(); }
    std::size_t size() const { return tasks_.size(); }

    // Hands every pending task over, e.g. to be dropped outside a lock.
    TaskTimeline takeAll() { return std::exchange(*this, TaskTimeline{}); }

private:
    using Key = std::tuple<Due, TaskId>;
    std::map<Key, std::function<void()>> tasks_;
    std::unordered_map<TaskId, Due> dueOf_;
    TaskId nextId_ = 1;
};

}  // namespace kestrow
