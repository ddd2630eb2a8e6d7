#pragma once

#include <filesystem>

#include "app/preferences_file_handle.h"
#include "support/environment.h"

namespace kestrow {

// The Time Machine settings file as far as access goes: on Linux it counts as readable exactly
// when it can be opened for reading. Reading and watching its contents build on this.
class ReadableSettingsFile final : public PreferencesFileHandle {
public:
    explicit ReadableSettingsFile(std::filesystem::path file);

    // KESTROW_TM_PLIST, else the system location.
    static std::filesystem::path location(const EnvironmentLookup& environment);

    bool hasAccess() const override { return hasAccess_; }
    bool demo() const override { return false; }
    void recheckAccess() override;
    const std::filesystem::path& file() const { return file_; }

private:
    std::filesystem::path file_;
    bool hasAccess_ = false;
};

}  // namespace kestrow
