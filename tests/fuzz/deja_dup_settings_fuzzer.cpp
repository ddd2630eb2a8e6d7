// Déjà Dup's settings are text another program wrote: its dates, its location kind, its server
// address and folders all reach the snapshot. The input is split at NUL bytes into the fields.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "backup/deja_dup_settings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> fields;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        if (i == text.size() || text[i] == '\0') {
            fields.emplace_back(text.substr(start, i - start));
            start = i + 1;
        }
    }
    fields.resize(8);
    kestrow::DejaDupSettings settings;
    settings.lastBackup = fields[0];
    settings.lastRun = fields[1];
    settings.backend = fields[2];
    settings.remoteUri = fields[3];
    settings.remoteFolder = fields[4];
    settings.localFolder = fields[4];
    settings.driveFolder = fields[4];
    settings.googleFolder = fields[4];
    settings.driveName = fields[5];
    settings.driveUuid = fields[6];
    settings.hostName = fields[7];
    settings.periodic = !fields[2].empty() && (fields[2].front() & 1) != 0;
    (void)settings.configured();
    (void)settings.preferences().toJson();
    return 0;
}
