#pragma once

#include <QObject>

#include <functional>
#include <string>

#include "platform/secret_store.h"

namespace QKeychain {
class Job;
}

namespace kestrow {

// The desktop's keyring through QtKeychain (the Secret Service, or KWallet on KDE). Every
// request answers within the time limit: a keyring that hangs yields `timedOut`, and its late
// answer is dropped. Requests belong to this store: destroying it drops their answers.
class QtKeychainSecretStore final : public QObject, public SecretStore {
    Q_OBJECT
public:
    static constexpr double kDefaultTimeLimitSeconds = 10.0;

    explicit QtKeychainSecretStore(double timeLimitSeconds = kDefaultTimeLimitSeconds);
    ~QtKeychainSecretStore() override;

    void read(const std::string& service, const std::string& account,
              std::function<void(SecretAnswer)> done) override;
    void write(const std::string& service, const std::string& account, const std::string& secret,
               std::function<void(SecretAnswer)> done) override;
    void remove(const std::string& service, const std::string& account,
                std::function<void(SecretAnswer)> done) override;

    // How a finished request reads: QtKeychain's error codes do not tell a locked keyring from
    // a missing one on their own, so its words count too.
    static SecretAnswer::Status statusOf(int keychainError, const QString& errorText);

private:
    enum class Kind { read, write, remove };
    void track(QKeychain::Job* job, Kind kind, std::function<void(SecretAnswer)> done);

    double timeLimitSeconds_;
};

}  // namespace kestrow
