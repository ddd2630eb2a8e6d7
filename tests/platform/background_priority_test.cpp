// Against the real kernel: the scanning thread really runs at idle CPU and I/O priority, and the
// rest of the process keeps its own.
#include "platform/linux/background_priority.h"

#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>
#include <thread>

namespace kestrow {
namespace {

struct Priority {
    int policy = -1;
    int nice = 0;
    long io = -1;
};

Priority ofThisThread() {
    const auto thread = static_cast<pid_t>(::syscall(SYS_gettid));
    Priority p;
    p.policy = ::sched_getscheduler(thread);
    errno = 0;
    p.nice = ::getpriority(PRIO_PROCESS, static_cast<id_t>(thread));
    p.io = ::syscall(SYS_ioprio_get, 1, thread);
    return p;
}

TEST(BackgroundPriority, TheCallingThreadAloneDropsToIdleCpuAndIdleIo) {
    const Priority before = ofThisThread();
    Priority worker;
    Priority sibling;
    std::optional<std::string> failed;
    std::thread scanning([&] {
        failed = BackgroundPriority::enterOnThisThread();
        worker = ofThisThread();
    });
    scanning.join();
    std::thread other([&] { sibling = ofThisThread(); });
    other.join();

    EXPECT_EQ(failed, std::nullopt);
    EXPECT_EQ(worker.policy, SCHED_IDLE);
    EXPECT_EQ(worker.nice, 19);
    EXPECT_EQ(worker.io, 3L << 13) << "the idle I/O class";

    const Priority after = ofThisThread();
    EXPECT_EQ(after.policy, before.policy);
    EXPECT_EQ(after.nice, before.nice);
    EXPECT_EQ(after.io, before.io);
    EXPECT_EQ(sibling.policy, before.policy);
    EXPECT_NE(sibling.io, 3L << 13);
}

}  // namespace
}  // namespace kestrow
