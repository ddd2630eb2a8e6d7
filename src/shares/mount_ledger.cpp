#include "shares/mount_ledger.h"

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>

#include "app/settings/settings_keys.h"
#include "shares/mount_ownership.h"
#include "support/nesting_depth.h"

namespace kestrow {
namespace {

using nlohmann::json;

constexpr auto kInt64Max = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

}  // namespace

std::vector<OwnedMount> MountLedger::decode(const PlistData& data) {
    if (data.empty()) return {};
    // Anything that is not exactly an array of complete records fails the whole ledger.
    if (!jsonNestingWithin(
            std::string_view(reinterpret_cast<const char*>(data.data()), data.size())))
        return {};
    const json document = json::parse(data.begin(), data.end(), nullptr, false);
    if (document.is_discarded() || !document.is_array()) return {};
    std::vector<OwnedMount> records;
    for (const json& item : document) {
        if (!item.is_object()) return {};
        const auto mountedOn = item.find("mountedOn");
        const auto fsid = item.find("fsid");
        const auto from = item.find("from");
        const auto boot = item.find("boot");
        if (mountedOn == item.end() || !mountedOn->is_string() || fsid == item.end() ||
            !fsid->is_number_integer() || from == item.end() || !from->is_string() ||
            boot == item.end() || !boot->is_number_integer())
            return {};
        if ((fsid->is_number_unsigned() && fsid->get<std::uint64_t>() > kInt64Max) ||
            (boot->is_number_unsigned() && boot->get<std::uint64_t>() > kInt64Max))
            return {};
        records.push_back({mountedOn->get<std::string>(), fsid->get<std::int64_t>(),
                           from->get<std::string>(), boot->get<std::int64_t>()});
    }
    return records;
}

PlistData MountLedger::encode(const std::vector<OwnedMount>& records) {
    json document = json::array();
    for (const OwnedMount& record : records) {
        document.push_back({{"mountedOn", record.mountedOn},
                            {"fsid", record.fsid},
                            {"from", record.from},
                            {"boot", record.boot}});
    }
    // A path that is not UTF-8 must not make the whole ledger unwritable.
    const std::string text = document.dump(-1, ' ', false, json::error_handler_t::replace);
    return PlistData(text.begin(), text.end());
}

std::vector<OwnedMount> MountLedger::loadLocked() const {
    const auto data = store_.dataValue(keys::ownedMounts);
    return data ? decode(*data) : std::vector<OwnedMount>{};
}

void MountLedger::saveLocked(const std::vector<OwnedMount>& records) {
    // A failed write is silent: the worst outcome is that an owned mount is left alone.
    store_.set(keys::ownedMounts, PlistValue(encode(records)));
}

std::vector<OwnedMount> MountLedger::load() const {
    const std::lock_guard lock(mutex_);
    return loadLocked();
}

void MountLedger::save(const std::vector<OwnedMount>& records) {
    const std::lock_guard lock(mutex_);
    saveLocked(records);
}

std::vector<OwnedMount> MountLedger::prune(const std::vector<MountEntry>& table,
                                           std::int64_t boot) {
    const std::lock_guard lock(mutex_);
    const auto records = loadLocked();
    auto live = MountOwnership::live(records, table, boot);
    if (live != records) saveLocked(live);
    return live;
}

bool MountLedger::recordNewMount(int status, const std::string& mountPoint,
                                 const std::optional<std::vector<MountEntry>>& table,
                                 std::int64_t boot) {
    if (status != 0 || mountPoint.empty() || !table) return false;
    const auto record = MountOwnership::record(mountPoint, *table, boot);
    if (!record) return false;
    const std::lock_guard lock(mutex_);
    auto records = MountOwnership::live(loadLocked(), *table, boot);
    std::erase_if(records, [&](const OwnedMount& r) { return r.mountedOn == mountPoint; });
    records.push_back(*record);
    saveLocked(records);
    return true;
}

void MountLedger::drop(const std::string& mountedOn) {
    const std::lock_guard lock(mutex_);
    auto records = loadLocked();
    if (std::erase_if(records, [&](const OwnedMount& r) { return r.mountedOn == mountedOn; }) > 0)
        saveLocked(records);
}

std::size_t MountLedger::addMissing(const std::vector<OwnedMount>& additions,
                                    const std::vector<MountEntry>& table, std::int64_t boot) {
    const std::lock_guard lock(mutex_);
    const auto stored = loadLocked();
    auto records = MountOwnership::live(stored, table, boot);
    std::size_t added = 0;
    for (const OwnedMount& record : additions) {
        const bool present = std::any_of(records.begin(), records.end(), [&](const OwnedMount& r) {
            return r.mountedOn == record.mountedOn;
        });
        if (present) continue;
        records.push_back(record);
        ++added;
    }
    if (records != stored) saveLocked(records);
    return added;
}

}  // namespace kestrow
