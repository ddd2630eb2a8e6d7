#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "cleaners/cleaner.h"

namespace kestrow {

// A package manager's download cache: one folder that the tool refills on demand.
class PackageCacheCleaner final : public Cleaner {
public:
    PackageCacheCleaner(std::string id, std::string name, std::filesystem::path base,
                        std::vector<std::string> relative, CleanerOwner owner)
        : id_(std::move(id)),
          name_(std::move(name)),
          base_(std::move(base)),
          relative_(std::move(relative)),
          owner_(std::move(owner)) {}

    std::string id() const override { return id_; }
    std::string name() const override { return name_; }
    CleanerOwner owner() const override { return owner_; }
    CleanerDiscovery discover() const override;
    bool isReclaimable(const std::filesystem::path& target) const override;

    std::filesystem::path folder() const;

private:
    std::string id_;
    std::string name_;
    std::filesystem::path base_;
    std::vector<std::string> relative_;
    CleanerOwner owner_;
};

}  // namespace kestrow
