#include "platform/linux/single_instance.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "wait_until.h"

namespace kestrow {
namespace {

using kestrow::testing::waitUntil;
using Role = SingleInstance::Role;

struct Outcome {
    Role role = Role::failed;
    std::string errorText;
};

// A second claim on another thread, while this thread's event loop lets the primary answer.
// flock locks belong to open file descriptions, so two claims in one process conflict just as
// two processes do.
Outcome claimElsewhere(const std::filesystem::path& folder,
                       std::chrono::milliseconds timeout = std::chrono::seconds(3)) {
    Outcome outcome;
    std::atomic<bool> done{false};
    std::thread second([&] {
        SingleInstance instance(folder, timeout);
        outcome.role = instance.claim();
        outcome.errorText = instance.errorText();
        done = true;
    });
    waitUntil([&] { return done.load(); }, std::chrono::seconds(10));
    second.join();
    return outcome;
}

class SingleInstanceTest : public ::testing::Test {
protected:
    std::filesystem::path folder() const {
        return std::filesystem::path(temp_.path().toStdString()) / "kestrow";
    }
    QTemporaryDir temp_;
};

TEST_F(SingleInstanceTest, ASecondInstanceHandsOverAndThePrimaryIsAskedToReopen) {
    auto primary = std::make_unique<SingleInstance>(folder());
    ASSERT_EQ(primary->claim(), Role::primary) << primary->errorText();
    QSignalSpy reopened(primary.get(), &SingleInstance::reopenRequested);

    const Outcome first = claimElsewhere(folder());
    EXPECT_EQ(first.role, Role::handedOver) << first.errorText;
    EXPECT_TRUE(waitUntil([&] { return reopened.count() == 1; }));
    const Outcome again = claimElsewhere(folder());
    EXPECT_EQ(again.role, Role::handedOver) << again.errorText;
    EXPECT_TRUE(waitUntil([&] { return reopened.count() == 2; }));

    // Once the primary is gone, the next agent takes over.
    primary.reset();
    EXPECT_FALSE(std::filesystem::exists(folder() / "agent.socket"));
    SingleInstance successor(folder());
    EXPECT_EQ(successor.claim(), Role::primary) << successor.errorText();
}

TEST_F(SingleInstanceTest, ASocketLeftByADeadAgentDoesNotBlockANewPrimary) {
    std::filesystem::create_directories(folder());
    const std::string socketPath = (folder() / "agent.socket").string();
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(fd);  // the file stays, nobody listens

    SingleInstance primary(folder());
    ASSERT_EQ(primary.claim(), Role::primary) << primary.errorText();
    QSignalSpy reopened(&primary, &SingleInstance::reopenRequested);
    EXPECT_EQ(claimElsewhere(folder()).role, Role::handedOver);
    EXPECT_TRUE(waitUntil([&] { return reopened.count() == 1; }));
}

TEST_F(SingleInstanceTest, ALockHeldWithoutAnswerFailsWithinTheWait) {
    std::filesystem::create_directories(folder());
    const int lock = ::open((folder() / "agent.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(lock, 0);
    ASSERT_EQ(::flock(lock, LOCK_EX | LOCK_NB), 0);

    const auto start = std::chrono::steady_clock::now();
    const Outcome outcome = claimElsewhere(folder(), std::chrono::milliseconds(400));
    const auto took = std::chrono::steady_clock::now() - start;
    ::close(lock);
    EXPECT_EQ(outcome.role, Role::failed);
    EXPECT_NE(outcome.errorText.find("already running"), std::string::npos) << outcome.errorText;
    // It keeps trying for the whole wait (the primary may still be setting up), and no longer.
    EXPECT_GE(took, std::chrono::milliseconds(400));
    EXPECT_LT(took, std::chrono::seconds(3));
}

TEST_F(SingleInstanceTest, AFolderTooDeepForASocketFailsReadably) {
    const auto deep = folder() / std::string(120, 'x');
    SingleInstance instance(deep);
    EXPECT_EQ(instance.claim(), Role::failed);
    EXPECT_NE(instance.errorText().find("too deep"), std::string::npos) << instance.errorText();
}

TEST_F(SingleInstanceTest, AnotherProcessHandsOverToThisOne) {
    SingleInstance primary(folder());
    ASSERT_EQ(primary.claim(), Role::primary) << primary.errorText();
    QSignalSpy reopened(&primary, &SingleInstance::reopenRequested);

    QProcess second;
    QSignalSpy finished(&second, &QProcess::finished);
    second.start(QCoreApplication::applicationFilePath(),
                 {"--kestrow-child", "claim", QString::fromStdString(folder().string())});
    ASSERT_TRUE(finished.wait(15'000)) << "the second process did not end";
    EXPECT_EQ(second.readAllStandardOutput().trimmed().toStdString(), "handedOver");
    EXPECT_TRUE(waitUntil([&] { return reopened.count() == 1; }));
}

}  // namespace
}  // namespace kestrow
