#pragma once

#include <string>

#include "app/service.h"
#include "support/logger.h"

namespace kestrow {

// Holds a service's place in the start and stop orders until the subsystem behind it is built.
// It runs nothing; it only records, at debug level, that it was asked to.
class PlaceholderService final : public Service {
public:
    PlaceholderService(std::string name, Logger log) : name_(std::move(name)), log_(log) {}
    void start() override { log_.debug("{} has nothing to start in this build", name_); }
    void stop() override { log_.debug("{} has nothing to stop in this build", name_); }

private:
    std::string name_;
    Logger log_;
};

}  // namespace kestrow
