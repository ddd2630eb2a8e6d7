#include "app/readable_settings_file.h"

#include <fstream>

namespace kestrow {

ReadableSettingsFile::ReadableSettingsFile(std::filesystem::path file) : file_(std::move(file)) {
    recheckAccess();
}

std::filesystem::path ReadableSettingsFile::location(const EnvironmentLookup& environment) {
    if (auto overridden = environment("KESTROW_TM_PLIST"); overridden && !overridden->empty())
        return *overridden;
    return "/Library/Preferences/com.apple.TimeMachine.plist";
}

void ReadableSettingsFile::recheckAccess() {
    std::ifstream probe(file_, std::ios::binary);
    hasAccess_ = probe.is_open() && !std::filesystem::is_directory(file_);
}

}  // namespace kestrow
