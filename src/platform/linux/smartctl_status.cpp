#include "platform/linux/smartctl_status.h"

#include <QCoreApplication>
#include <QEvent>
#include <QEventLoop>

#include <sys/sysmacros.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <utility>

#include "platform/linux/tool_process.h"
#include "support/ascii_case.h"
#include "support/atomic_file.h"
#include "support/mount_info_field.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

std::string trimmed(std::string text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
    return text;
}

// What an NVMe disk's critical-warning bits say, in words.
std::string nvmeWarnings(const Json& status) {
    const auto nvme = status.find("nvme");
    if (nvme == status.end() || !nvme->is_object()) return {};
    const auto value = nvme->find("value");
    if (value == nvme->end() || !value->is_number_unsigned()) return {};
    const auto bits = value->get<std::uint64_t>();
    static const std::pair<std::uint64_t, const char*> kWarnings[] = {
        {0x01, "spare capacity low"},   {0x02, "temperature out of range"},
        {0x04, "reliability degraded"}, {0x08, "read-only"},
        {0x10, "backup power failed"},
    };
    std::string words;
    for (const auto& [bit, text] : kWarnings) {
        if ((bits & bit) == 0) continue;
        if (!words.empty()) words += ", ";
        words += text;
    }
    return words;
}

}  // namespace

SmartctlStatus::SmartctlStatus(std::string program, double timeLimitSeconds)
    : SmartctlStatus(std::move(program), timeLimitSeconds, Roots{}) {}

SmartctlStatus::SmartctlStatus(std::string program, double timeLimitSeconds, Roots roots)
    : launcher_(std::move(program), clock_),
      timeLimitSeconds_(timeLimitSeconds),
      roots_(std::move(roots)) {}

std::string SmartctlStatus::program(const EnvironmentLookup& environment) {
    if (environment) {
        if (auto chosen = environment("KESTROW_SMARTCTL"); chosen && !chosen->empty())
            return std::move(*chosen);
    }
    return "smartctl";
}

std::optional<std::string> SmartctlStatus::verdict(std::string_view json) {
    const Json document = Json::parse(json, nullptr, false);
    if (document.is_discarded() || !document.is_object()) return std::nullopt;
    if (const auto support = document.find("smart_support");
        support != document.end() && support->is_object()) {
        const auto available = support->find("available");
        if (available != support->end() && available->is_boolean() && !available->get<bool>())
            return "Not Supported";
    }
    const auto status = document.find("smart_status");
    if (status == document.end()) return "Not Supported";
    if (!status->is_object()) return std::nullopt;
    const auto passed = status->find("passed");
    if (passed == status->end() || !passed->is_boolean()) return std::nullopt;
    if (passed->get<bool>()) return "Verified";
    const std::string warnings = nvmeWarnings(*status);
    return warnings.empty() ? "Failing" : "Failing: " + warnings;
}

SmartStatus::Verdict SmartctlStatus::bootDisk() {
    const auto table = mounts();
    // A later mount on the same point hides the earlier one.
    const auto root = std::find_if(table.rbegin(), table.rend(),
                                   [](const Mount& mount) { return mount.mountPoint == "/"; });
    if (root == table.rend()) return {std::nullopt, kDiskNotFound};
    const auto disk = diskOf(*root);
    if (!disk) return {std::nullopt, kDiskNotFound};
    return ask(*disk);
}

SmartStatus::BackupDisk SmartctlStatus::backupDisk(const Destination& destination) {
    const auto table = mounts();
    std::optional<Mount> found;
    if (!destination.volumeName.empty()) {
        for (const Mount& mount : table) {
            if (fs::path(mount.mountPoint).filename() == destination.volumeName) {
                found = mount;
                break;
            }
        }
    }
    for (const std::string& uuid :
         destination.destinationUUIDs.value_or(std::vector<std::string>{})) {
        if (found) break;
        found = mountWithUuid(table, uuid);
    }
    if (!found) return {false, std::nullopt};
    const auto disk = diskOf(*found);
    return {true, disk ? ask(*disk) : Verdict{std::nullopt, kDiskNotFound}};
}

std::vector<SmartctlStatus::Mount> SmartctlStatus::mounts() const {
    std::vector<Mount> table;
    const auto text = readFile(roots_.mountInfo);
    if (!text) return table;
    for (const MountInfoRow& row : parseMountInfo(*text)) {
        if (!row.device) continue;
        table.push_back({fmt::format("{}:{}", major(*row.device), minor(*row.device)),
                         row.mountPoint, unescapeMountInfoField(row.source)});
    }
    return table;
}

std::optional<std::string> SmartctlStatus::diskOf(const Mount& mount) const {
    std::error_code error;
    fs::path node = roots_.sys / "dev/block" / mount.device;
    if (!fs::exists(node, error)) {
        // btrfs and the like show a device number of their own; their source names the device.
        if (!mount.source.starts_with("/dev/")) return std::nullopt;
        const fs::path device = fs::canonical(roots_.dev / mount.source.substr(5), error);
        if (error) return std::nullopt;
        node = roots_.sys / "class/block" / device.filename();
        if (!fs::exists(node, error)) return std::nullopt;
    }
    return diskOfNode(node, 0);
}

std::optional<std::string> SmartctlStatus::diskOfNode(const fs::path& node, int depth) const {
    std::error_code error;
    const fs::path real = fs::canonical(node, error);
    if (error || real.filename().empty()) return std::nullopt;
    // Device mapper (encryption, LVM) and software RAID sit on other block devices.
    std::vector<fs::path> below;
    for (fs::directory_iterator it(real / "slaves", error);
         !error && it != fs::directory_iterator(); it.increment(error))
        below.push_back(it->path());
    if (!below.empty() && depth < 8) {
        std::sort(below.begin(), below.end());
        return diskOfNode(below.front(), depth + 1);
    }
    if (fs::exists(real / "partition", error)) return real.parent_path().filename().string();
    return real.filename().string();
}

std::optional<SmartctlStatus::Mount> SmartctlStatus::mountWithUuid(const std::vector<Mount>& table,
                                                                   const std::string& uuid) const {
    std::error_code error;
    const std::string wanted = asciiLowercase(uuid);
    for (fs::directory_iterator it(roots_.dev / "disk/by-uuid", error);
         !error && it != fs::directory_iterator(); it.increment(error)) {
        if (asciiLowercase(it->path().filename().string()) != wanted) continue;
        std::error_code resolveError;
        const fs::path device = fs::canonical(it->path(), resolveError);
        if (resolveError) return std::nullopt;
        const auto number = readFile(roots_.sys / "class/block" / device.filename() / "dev");
        if (!number) return std::nullopt;
        const std::string majorMinor = trimmed(*number);
        const auto mount = std::find_if(table.begin(), table.end(),
                                        [&](const Mount& m) { return m.device == majorMinor; });
        if (mount == table.end()) return std::nullopt;
        return *mount;
    }
    return std::nullopt;
}

SmartStatus::Verdict SmartctlStatus::ask(const std::string& disk) const {
    const std::string device = (roots_.dev / disk).string();
    std::optional<ToolResult> result;
    {
        QEventLoop loop;
        QObject runs;
        launcher_.run(
            {"-j", "-H", "-i", device}, timeLimitSeconds_,
            [&](ToolResult answer) {
                result = std::move(answer);
                loop.quit();
            },
            &runs);
        loop.exec();
    }
    // The run deletes itself later; on a worker thread no later event loop would see to it.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    if (!result || result->ending == ToolResult::Ending::failedToStart)
        return {std::nullopt, kToolMissing};
    if (result->ending != ToolResult::Ending::exited) return {std::nullopt, kNoAnswer};
    auto words = verdict(result->standardOutput);
    if (words && *words != "Not Supported") return *words;
    // smartctl reports a device it may not open as one without SMART; its message tells them
    // apart.
    const std::string& output = result->standardOutput;
    if (output.find("Permission denied") != std::string::npos ||
        output.find("Operation not permitted") != std::string::npos)
        return {std::nullopt, kNoPermission};
    if (!words) return {std::nullopt, kNoAnswer};
    return {std::move(words), kNoSmart};
}

}  // namespace kestrow
