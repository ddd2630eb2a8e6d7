#pragma once

#include <functional>
#include <string>

namespace kestrow {

// The desktop's user-notification service.
class UserNotifications {
public:
    virtual ~UserNotifications() = default;
    // Asks to show alerts with sound. `done` runs on the main executor with whether notifications
    // will be shown; a refusal only means that none appear.
    virtual void requestAuthorization(std::function<void(bool granted)> done) = 0;
    // Shows one notification. A second post with the same identifier replaces the first instead
    // of stacking beside it.
    virtual void post(std::string identifier, std::string title, std::string body) = 0;
};

}  // namespace kestrow
