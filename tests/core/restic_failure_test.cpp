#include "backup/restic_failure.h"

#include <gtest/gtest.h>

#include <string>

namespace kestrow {
namespace {

// Standard error of restic 0.14, recorded in temporary folders; each ended with exit code 1
// unless said otherwise.
constexpr const char* kNoRepository =
    "reading repository password from stdin\n"
    "Fatal: unable to open config file: stat /tmp/rcrec/nothere/config: no such file or "
    "directory\nIs there a repository at the following location?\n/tmp/rcrec/nothere\n";
constexpr const char* kWrongPassword =
    "reading repository password from stdin\nFatal: wrong password or no key found\n";
constexpr const char* kLocked =
    "unable to create lock in backend: repository is already locked by PID 3869 on vm by root "
    "(UID 0, GID 0)\nlock was created at 2026-11-23 20:34:40 (3.107318417s ago)\n"
    "storage ID d16213a6\nthe `unlock` command can be used to remove stale locks\n";
constexpr const char* kNoSpace =
    "Fatal: unable to save snapshot: write "
    "/tmp/rcrec/small/repo/data/13/13827048df52ee1fbc522755585cd2cba2f85b2198fcf349b2d4c3426dda4cb9"
    "-tmp-2828315813: no space left on device\n";
constexpr const char* kRefused =
    "Fatal: unable to open config file: client.Head: Head \"http://127.0.0.1:1/config\": dial "
    "tcp 127.0.0.1:1: connect: connection refused\nIs there a repository at the following "
    "location?\nrest:http://127.0.0.1:1/\n";
constexpr const char* kNoHost =
    "Fatal: unable to open config file: client.Head: Head "
    "\"http://nosuchhost.invalid:8000/config\": dial tcp: lookup nosuchhost.invalid on "
    "10.255.255.53:53: no such host\nIs there a repository at the following location?\n"
    "rest:http://nosuchhost.invalid:8000/\n";
constexpr const char* kUnreachable =
    "Fatal: unable to open config file: client.Head: Head \"http://10.1.2.3:8000/config\": dial "
    "tcp 10.1.2.3:8000: connect: network is unreachable\nIs there a repository at the following "
    "location?\nrest:http://10.1.2.3:8000/\n";
constexpr const char* kSftpRefused =
    "subprocess ssh: ssh: connect to host 127.0.0.1 port 22: Connection refused\n"
    "Fatal: unable to open repository at sftp:nobody@127.0.0.1:/x: unable to start the sftp "
    "session, error: EOF\n";
// SIGINT during a backup: exit code 130.
constexpr const char* kInterrupted = "\x1b[2Ksignal interrupt received, cleaning up\n";
// A file it could not read: exit code 3, and the snapshot was made.
constexpr const char* kSomeUnreadable = "Warning: at least one source file could not be read\n";

ResticRunFacts exited(int code, std::string errorText) {
    ResticRunFacts facts;
    facts.ending.kind = ResticEnding::Kind::exited;
    facts.ending.exitCode = code;
    facts.ending.errorText = std::move(errorText);
    return facts;
}

std::optional<BackupFailureKind> kindOf(const ResticRunFacts& facts) {
    return ResticFailure::classify(facts).failure;
}

TEST(ResticFailure, TellsEveryRecordedFailureOfResticFromItsWords) {
    using K = BackupFailureKind;
    EXPECT_EQ(kindOf(exited(1, kNoRepository)), K::repositoryNotFound);
    EXPECT_EQ(kindOf(exited(1, kWrongPassword)), K::wrongPassword);
    EXPECT_EQ(kindOf(exited(1, kLocked)), K::repositoryLocked);
    EXPECT_EQ(kindOf(exited(1, kNoSpace)), K::outOfSpace);
    // These also ask "Is there a repository…?"; the network is what failed.
    EXPECT_EQ(kindOf(exited(1, kRefused)), K::networkUnreachable);
    EXPECT_EQ(kindOf(exited(1, kNoHost)), K::networkUnreachable);
    EXPECT_EQ(kindOf(exited(1, kUnreachable)), K::networkUnreachable);
    EXPECT_EQ(kindOf(exited(1, kSftpRefused)), K::networkUnreachable);
    EXPECT_EQ(kindOf(exited(130, kInterrupted)), K::interrupted);
    EXPECT_EQ(kindOf(exited(1, "Fatal: something nobody foresaw\n")), K::other);

    const auto partial = ResticFailure::classify(exited(3, kSomeUnreadable));
    EXPECT_FALSE(partial.failure);
    EXPECT_TRUE(partial.someFilesUnreadable);
    const auto clean = ResticFailure::classify(exited(0, "reading repository password\n"));
    EXPECT_FALSE(clean.failure);
    EXPECT_FALSE(clean.someFilesUnreadable);
    EXPECT_FALSE(clean.error);

    // The words kept are the ones that say why, one line, without terminal codes.
    EXPECT_EQ(ResticFailure::classify(exited(1, kWrongPassword)).error,
              "Fatal: wrong password or no key found");
    EXPECT_EQ(ResticFailure::classify(exited(1, kLocked)).error,
              "unable to create lock in backend: repository is already locked by PID 3869 on vm "
              "by root (UID 0, GID 0)");
    EXPECT_EQ(ResticFailure::classify(exited(130, kInterrupted)).error,
              "signal interrupt received, cleaning up");
}

TEST(ResticFailure, NewerExitCodesJsonMessagesAndTheDriveDecideWhenWordsDoNot) {
    using K = BackupFailureKind;
    EXPECT_EQ(kindOf(exited(10, "")), K::repositoryNotFound);
    EXPECT_EQ(kindOf(exited(11, "")), K::repositoryLocked);
    EXPECT_EQ(kindOf(exited(12, "")), K::wrongPassword);
    EXPECT_EQ(kindOf(exited(1, "")), K::other);

    auto json = exited(1, "");
    json.jsonErrors = {"Fatal: unable to save snapshot: no space left on device"};
    EXPECT_EQ(kindOf(json), K::outOfSpace);
    EXPECT_EQ(ResticFailure::classify(json).error,
              "Fatal: unable to save snapshot: no space left on device");

    // An unplugged drive: restic only says there is no repository.
    auto unplugged = exited(1, kNoRepository);
    unplugged.mountPresent = false;
    unplugged.repositoryFolderExists = false;
    EXPECT_EQ(kindOf(unplugged), K::diskNotConnected);
    auto plugged = exited(1, "Fatal: something else\n");
    plugged.mountPresent = true;
    plugged.repositoryFolderExists = false;
    EXPECT_EQ(kindOf(plugged), K::repositoryNotFound);

    ResticRunFacts missing;
    missing.ending.kind = ResticEnding::Kind::failedToStart;
    missing.ending.errorText = "execvp restic: No such file or directory";
    EXPECT_EQ(kindOf(missing), K::toolMissing);
    missing.ending.errorText = "execvp restic: Permission denied";
    EXPECT_EQ(kindOf(missing), K::other);
    for (auto kind : {ResticEnding::Kind::stopped, ResticEnding::Kind::killed}) {
        ResticRunFacts ended;
        ended.ending.kind = kind;
        EXPECT_EQ(kindOf(ended), K::interrupted);
    }
}

TEST(ResticFailure, EveryKindButOtherHasAGentleSentenceAndTheKeyringMapsOntoThem) {
    using K = BackupFailureKind;
    for (auto kind :
         {K::diskNotConnected, K::repositoryNotFound, K::wrongPassword, K::missingPassword,
          K::keyringLocked, K::keyringUnavailable, K::repositoryLocked, K::networkUnreachable,
          K::outOfSpace, K::interrupted, K::toolMissing}) {
        const auto sentence = ResticFailure::sentence(kind);
        ASSERT_TRUE(sentence);
        // Nothing that would destroy a lock or a repository is ever suggested.
        for (const char* word : {"unlock", "delete", "remove", "init"}) {
            EXPECT_EQ(sentence->find(word), std::string::npos) << *sentence;
        }
    }
    EXPECT_EQ(ResticFailure::sentence(K::repositoryLocked),
              "Another backup is using the repository");
    EXPECT_FALSE(ResticFailure::sentence(K::other));

    using S = SecretAnswer::Status;
    EXPECT_FALSE(ResticFailure::fromKeyring(S::done));
    EXPECT_EQ(ResticFailure::fromKeyring(S::notFound), K::missingPassword);
    EXPECT_EQ(ResticFailure::fromKeyring(S::locked), K::keyringLocked);
    EXPECT_EQ(ResticFailure::fromKeyring(S::unavailable), K::keyringUnavailable);
    EXPECT_EQ(ResticFailure::fromKeyring(S::timedOut), K::keyringUnavailable);
}

}  // namespace
}  // namespace kestrow
