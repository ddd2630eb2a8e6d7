#pragma once

#include <string_view>

namespace kestrow {

// A long-lived service that the app starts at launch; some are also stopped at quit.
class Service {
public:
    virtual ~Service() = default;
    virtual void start() = 0;
    virtual void stop() = 0;
};

}  // namespace kestrow
