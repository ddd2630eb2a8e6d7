#pragma once

#include <functional>

namespace kestrow {

// The desktop's user-notification service.
class UserNotifications {
public:
    virtual ~UserNotifications() = default;
    // Asks to show alerts with sound. `done` runs on the main executor with whether notifications
    // will be shown; a refusal only means that none appear.
    virtual void requestAuthorization(std::function<void(bool granted)> done) = 0;
};

}  // namespace kestrow
