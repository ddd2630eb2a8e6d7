#pragma once

#include "platform/share_network.h"

namespace kestrow {

// The system's resolver (files, DNS, and mDNS where the system has it), every address of a name.
class GetaddrinfoHostResolver final : public HostResolver {
public:
    std::optional<std::set<std::string>> resolve(const std::string& host) override;
};

}  // namespace kestrow
