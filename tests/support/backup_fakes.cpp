#include "support/backup_fakes.h"

namespace kestrow::testing {

void FakeSecretStore::answer(std::function<void(SecretAnswer)> done, SecretAnswer answer) {
    executor_.post([done = std::move(done), answer = std::move(answer)] { done(answer); });
}

void FakeSecretStore::read(const std::string& service, const std::string& account,
                           std::function<void(SecretAnswer)> done) {
    if (failWith) return answer(std::move(done), {*failWith, std::nullopt, "refused"});
    const auto it = items.find(service + "/" + account);
    if (it == items.end())
        return answer(std::move(done), {SecretAnswer::Status::notFound, std::nullopt, ""});
    answer(std::move(done), {SecretAnswer::Status::done, it->second, ""});
}

void FakeSecretStore::write(const std::string& service, const std::string& account,
                            const std::string& secret, std::function<void(SecretAnswer)> done) {
    if (failWith) return answer(std::move(done), {*failWith, std::nullopt, "refused"});
    items[service + "/" + account] = secret;
    answer(std::move(done), {SecretAnswer::Status::done, std::nullopt, ""});
}

void FakeSecretStore::remove(const std::string& service, const std::string& account,
                             std::function<void(SecretAnswer)> done) {
    items.erase(service + "/" + account);
    answer(std::move(done), {SecretAnswer::Status::done, std::nullopt, ""});
}

class FakeResticCommands::FakeRun final : public Run {
public:
    FakeRun(std::shared_ptr<std::deque<Call>> calls, std::size_t index)
        : calls_(std::move(calls)), index_(index) {}
    ~FakeRun() override { calls_->at(index_).dropped = true; }
    void stop() override { calls_->at(index_).stopped = true; }

private:
    std::shared_ptr<std::deque<Call>> calls_;
    std::size_t index_;
};

std::unique_ptr<ResticCommands::Run> FakeResticCommands::run(
    ResticInvocation invocation, std::function<void(std::string_view)> line,
    std::function<void(ResticEnding)> done) {
    calls_->push_back({std::move(invocation), std::move(line), std::move(done)});
    return std::make_unique<FakeRun>(calls_, calls_->size() - 1);
}

void FakeResticCommands::finish(std::size_t index, std::vector<std::string> lines,
                                ResticEnding ending) {
    Call& c = calls_->at(index);
    if (c.dropped || c.ended) return;  // nobody listens any more
    c.ended = true;
    for (const auto& text : lines) c.line(text);
    auto done = c.done;
    done(std::move(ending));
}

std::vector<std::size_t> FakeResticCommands::runsOf(const std::string& command) const {
    std::vector<std::size_t> found;
    for (std::size_t i = 0; i < calls_->size(); ++i)
        if (!calls_->at(i).invocation.arguments.empty() &&
            calls_->at(i).invocation.arguments.front() == command)
            found.push_back(i);
    return found;
}

class FakeFileWatcher::FakeWatch final : public Watch {
public:
    FakeWatch(std::shared_ptr<std::multimap<std::filesystem::path, std::function<void()>*>> watches,
              std::filesystem::path file, std::function<void()> changed)
        : watches_(std::move(watches)), changed_(std::move(changed)) {
        it_ = watches_->emplace(std::move(file), &changed_);
    }
    ~FakeWatch() override { watches_->erase(it_); }

private:
    std::shared_ptr<std::multimap<std::filesystem::path, std::function<void()>*>> watches_;
    std::function<void()> changed_;
    std::multimap<std::filesystem::path, std::function<void()>*>::iterator it_;
};

std::unique_ptr<FileWatcher::Watch> FakeFileWatcher::watch(const std::filesystem::path& file,
                                                           std::function<void()> changed) {
    return std::make_unique<FakeWatch>(watches_, file, std::move(changed));
}

void FakeFileWatcher::touch(const std::filesystem::path& file) {
    std::vector<std::function<void()>> callbacks;
    const auto [from, to] = watches_->equal_range(file);
    for (auto it = from; it != to; ++it) callbacks.push_back(*it->second);
    for (auto& callback : callbacks) callback();
}

}  // namespace kestrow::testing
