#include "shares/share_passwords.h"

namespace kestrow {

void SharePasswords::getPassword(const std::string& id,
                                 std::function<void(std::optional<std::string>)> done) {
    store_.read(kService, id, [done = std::move(done)](SecretAnswer answer) {
        if (answer.status == SecretAnswer::Status::done && answer.secret) {
            done(std::move(answer.secret));
        } else {
            done(std::nullopt);
        }
    });
}

void SharePasswords::savePassword(const std::string& password, const std::string& id,
                                  std::function<void()> done) {
    if (password.empty()) {
        if (done) done();
        return;
    }
    // The store replaces an existing item and adds one only when there is none.
    store_.write(kService, id, password, [done = std::move(done)](SecretAnswer) {
        if (done) done();
    });
}

void SharePasswords::deletePassword(const std::string& id, std::function<void()> done) {
    store_.remove(kService, id, [done = std::move(done)](SecretAnswer) {
        if (done) done();
    });
}

}  // namespace kestrow
