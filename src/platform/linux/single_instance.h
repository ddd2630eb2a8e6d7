#pragma once

#include <QObject>

#include <chrono>
#include <filesystem>
#include <string>

class QLocalServer;
class QLocalSocket;

namespace kestrow {

// One agent per user. The first process to lock `<folder>/agent.lock` is the primary and
// listens on `<folder>/agent.socket`; a later one asks the primary to show itself and quits.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    enum class Role { primary, handedOver, failed };

    // `folder` is `$XDG_RUNTIME_DIR/kestrow`, or `$XDG_CACHE_HOME/kestrow` without a runtime
    // folder. `handoverTimeout` bounds how long a second instance waits for the primary.
    explicit SingleInstance(std::filesystem::path folder,
                            std::chrono::milliseconds handoverTimeout = std::chrono::seconds(3),
                            QObject* parent = nullptr);
    ~SingleInstance() override;
    SingleInstance(const SingleInstance&) = delete;
    SingleInstance& operator=(const SingleInstance&) = delete;

    // Call once. As primary, the lock is held until this object is destroyed. As second
    // instance, blocks until the primary acknowledged or the timeout passed. `failed` means this
    // process could neither serve nor reach a primary (errorText() says why); a lock it took
    // stays held.
    Role claim();
    // Why claim() failed.
    const std::string& errorText() const { return errorText_; }

Q_SIGNALS:
    // A second instance asked the primary to show itself (already acknowledged).
    void reopenRequested();

private:
    Role fail(std::string text);
    Role becomePrimary(const QString& socketPath);
    Role handOver(const QString& socketPath);
    void answer(QLocalSocket* client);

    std::filesystem::path folder_;
    std::chrono::milliseconds handoverTimeout_;
    int lockFd_ = -1;
    QLocalServer* server_ = nullptr;
    std::string errorText_;
};

}  // namespace kestrow
