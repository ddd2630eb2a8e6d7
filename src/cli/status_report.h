#pragma once

#include <nlohmann/json.hpp>

#include <string>

#include "timemachine/backup_status_model.h"

namespace kestrow {

// The backup verdict as `kestrow status` prints it: the JSON document whose keys scripts and
// status bars depend on, and the same facts for a person.
nlohmann::ordered_json statusJson(const BackupStatusModel& model);
std::string statusText(const BackupStatusModel& model);

}  // namespace kestrow
