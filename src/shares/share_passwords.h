#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/secret_store.h"

namespace kestrow {

// Share passwords in the keyring: service "bar.vemb.orvel.passwords", account = the share's id.
// Failures are never shown to the user: a password that cannot be read is no password (the
// mount then gets the interactive limits).
class SharePasswords {
public:
    static constexpr const char* kService = "bar.vemb.orvel.passwords";

    explicit SharePasswords(SecretStore& store) : store_(store) {}

    // `done` runs on the main executor.
    void getPassword(const std::string& id, std::function<void(std::optional<std::string>)> done);
    // Stores nothing for an empty password, so an edit with an empty field keeps the stored one.
    // `done` (optional) runs once the keyring has answered, so a process that ends right after
    // can wait for it.
    void savePassword(const std::string& password, const std::string& id,
                      std::function<void()> done = {});
    void deletePassword(const std::string& id, std::function<void()> done = {});

private:
    SecretStore& store_;
};

}  // namespace kestrow
