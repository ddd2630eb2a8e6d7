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

void SharePasswords::savePassword(const std::string& password, const std::string& id) {
    if (password.empty()) return;
    // The store replaces an existing item and adds one only when there is none.
    store_.write(kService, id, password, [](SecretAnswer) {});
}

void SharePasswords::deletePassword(const std::string& id) {
    store_.remove(kService, id, [](SecretAnswer) {});
}

}  // namespace kestrow
