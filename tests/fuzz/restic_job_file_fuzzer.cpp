// The jobs file is edited by hand: any text reads without a crash, every job kept has its id,
// name and repository, no two share an id, and what is kept writes back to the same jobs.
#include <cstddef>
#include <cstdint>
#include <set>
#include <string_view>

#include "backup/restic_job_store.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto reading = kestrow::ResticJobStore::parse(text);
    if (reading.unreadable && !reading.jobs.empty()) __builtin_trap();
    std::set<std::string> ids;
    for (const auto& job : reading.jobs) {
        if (job.id.empty() || job.name.empty() || job.repository.empty()) __builtin_trap();
        if (!ids.insert(job.id).second) __builtin_trap();
    }
    const auto again =
        kestrow::ResticJobStore::parse(kestrow::ResticJobStore::serialise(reading.jobs));
    if (again.jobs != reading.jobs || !again.skipped.empty()) __builtin_trap();
    return 0;
}
