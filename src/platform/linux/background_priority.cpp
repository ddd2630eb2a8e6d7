#include "platform/linux/background_priority.h"

#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kestrow {
namespace {

// From the kernel's ioprio.h, which no user-space header carries.
constexpr int kIoprioWhoProcess = 1;  // a thread id, despite the name
constexpr int kIoprioClassShift = 13;
constexpr int kIoprioClassIdle = 3;

void note(std::string& failures, const char* what) {
    if (!failures.empty()) failures += "; ";
    failures += what;
    failures += ": ";
    failures += std::strerror(errno);
}

}  // namespace

std::optional<std::string> BackgroundPriority::enterOnThisThread() {
    const auto thread = static_cast<pid_t>(::syscall(SYS_gettid));
    std::string failures;
    // On Linux both calls act on one thread when given its id, not on the whole process.
    if (::setpriority(PRIO_PROCESS, static_cast<id_t>(thread), 19) != 0) note(failures, "nice");
    const sched_param none{};
    if (::sched_setscheduler(thread, SCHED_IDLE, &none) != 0) note(failures, "idle CPU policy");
    if (::syscall(SYS_ioprio_set, kIoprioWhoProcess, thread,
                  kIoprioClassIdle << kIoprioClassShift) != 0)
        note(failures, "idle I/O class");
    if (failures.empty()) return std::nullopt;
    return failures;
}

}  // namespace kestrow
