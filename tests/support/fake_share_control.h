#pragma once

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "shares/share_control.h"

namespace kestrow::testing {

// A share manager that records what it is asked and keeps the list the way the real one does
// (add appends, update replaces by id, remove drops by id), without mounting anything.
class FakeShareControl final : public ShareControl {
public:
    struct Call {
        std::string what;  // "add", "update", "remove", "mount", "unmount"
        SMBShare share;
        std::string password;
    };

    explicit FakeShareControl(std::vector<SMBShare> initial = {}) : list(std::move(initial)) {}

    Observable<std::vector<SMBShare>>& shares() override { return list; }
    void add(SMBShare share, const std::string& password) override {
        calls.push_back({"add", share, password});
        auto shares = list.get();
        shares.push_back(std::move(share));
        list.set(std::move(shares));
    }
    void update(SMBShare share, const std::string& password) override {
        calls.push_back({"update", share, password});
        auto shares = list.get();
        for (SMBShare& s : shares)
            if (s.id == share.id) s = share;
        list.set(std::move(shares));
    }
    void remove(const SMBShare& share) override {
        calls.push_back({"remove", share, {}});
        auto shares = list.get();
        std::erase_if(shares, [&](const SMBShare& s) { return s.id == share.id; });
        list.set(std::move(shares));
    }
    void mount(const SMBShare& share) override {
        calls.push_back({"mount", share, {}});
        if (onMount) onMount(share);
    }
    void unmount(const SMBShare& share) override {
        calls.push_back({"unmount", share, {}});
        if (onUnmount) onUnmount(share);
    }

    // Sets one share's live state, as the manager publishes it.
    void setStatus(const std::string& id, MountStatus status,
                   std::optional<std::string> lastError = std::nullopt) {
        auto shares = list.get();
        for (SMBShare& s : shares)
            if (s.id == id) {
                s.status = status;
                s.lastError = std::move(lastError);
            }
        list.set(std::move(shares));
    }

    Observable<std::vector<SMBShare>> list;
    std::vector<Call> calls;
    std::function<void(const SMBShare&)> onMount;
    std::function<void(const SMBShare&)> onUnmount;
};

}  // namespace kestrow::testing
