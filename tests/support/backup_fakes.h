#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/file_watcher.h"
#include "platform/restic_commands.h"
#include "platform/secret_store.h"
#include "support/executor.h"

namespace kestrow::testing {

// A keyring in memory that answers on the executor; `hang` keeps every answer back, as a keyring
// that never replies (the real adapter's time limit is tested against the real keyring).
class FakeSecretStore final : public SecretStore {
public:
    explicit FakeSecretStore(Executor& executor) : executor_(executor) {}
    void read(const std::string& service, const std::string& account,
              std::function<void(SecretAnswer)> done) override;
    void write(const std::string& service, const std::string& account, const std::string& secret,
               std::function<void(SecretAnswer)> done) override;
    void remove(const std::string& service, const std::string& account,
                std::function<void(SecretAnswer)> done) override;

    std::map<std::string, std::string> items;  // "service/account" → secret
    std::optional<SecretAnswer::Status> failWith;

private:
    void answer(std::function<void(SecretAnswer)> done, SecretAnswer answer);
    Executor& executor_;
};

// restic as the tests script it: each run is recorded, and ends when the test says so.
class FakeResticCommands final : public ResticCommands {
public:
    struct Call {
        ResticInvocation invocation;
        std::function<void(std::string_view)> line;
        std::function<void(ResticEnding)> done;
        bool stopped = false;
        bool dropped = false;
        bool ended = false;
    };

    std::unique_ptr<Run> run(ResticInvocation invocation,
                             std::function<void(std::string_view)> line,
                             std::function<void(ResticEnding)> done) override;

    // Feeds lines, then ends run `index` with `ending`.
    void finish(std::size_t index, std::vector<std::string> lines, ResticEnding ending);
    std::size_t count() const { return calls_->size(); }
    Call& call(std::size_t index) { return calls_->at(index); }
    // Runs whose arguments start with `command` ("backup", "snapshots", "init").
    std::vector<std::size_t> runsOf(const std::string& command) const;

private:
    class FakeRun;
    std::shared_ptr<std::deque<Call>> calls_ = std::make_shared<std::deque<Call>>();
};

class FakeFileWatcher final : public FileWatcher {
public:
    std::unique_ptr<Watch> watch(const std::filesystem::path& file,
                                 std::function<void()> changed) override;
    // Tells every live watch of `file` that it changed.
    void touch(const std::filesystem::path& file);

private:
    class FakeWatch;
    std::shared_ptr<std::multimap<std::filesystem::path, std::function<void()>*>> watches_ =
        std::make_shared<std::multimap<std::filesystem::path, std::function<void()>*>>();
};

}  // namespace kestrow::testing
