#pragma once

#include <nlohmann/json.hpp>

#include <string>

#include "menu/menu_alerts.h"
#include "timemachine/backup_status_model.h"

namespace kestrow {

// The backup verdict as `kestrow status` prints it: the JSON document whose keys scripts and
// status bars depend on, and the same facts for a person.
// `alerts` in the order raised; both list them in menu order.
nlohmann::ordered_json statusJson(const BackupStatusModel& model,
                                  const std::vector<MenuAlert>& alerts);
std::string statusText(const BackupStatusModel& model, const std::vector<MenuAlert>& alerts);

}  // namespace kestrow
