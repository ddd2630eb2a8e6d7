#pragma once

#include <functional>
#include <optional>
#include <string>

namespace kestrow {

// What became of one request to the user's keyring.
struct SecretAnswer {
    enum class Status {
        done,         // read: `secret` holds it; write and remove: done
        notFound,     // no such item (a remove of a missing item is `done`)
        locked,       // the keyring is locked and could not be opened without the user
        unavailable,  // no keyring answers on this desktop, or it failed
        timedOut,     // it did not answer within the time limit
    };
    Status status = Status::unavailable;
    std::optional<std::string> secret;
    std::string error;  // the keyring's own words, for the log; never holds the secret
};

// Passwords in the desktop's keyring (the Secret Service on Linux). Items are named by a service
// and an account. A secret handed in or out never goes to a log, a file, an argument or the
// environment. Every call returns at once; `done` runs later on the main executor, exactly once,
// within the store's time limit even when the keyring hangs.
class SecretStore {
public:
    virtual ~SecretStore() = default;
    virtual void read(const std::string& service, const std::string& account,
                      std::function<void(SecretAnswer)> done) = 0;
    // Replaces the item when it exists, else adds it.
    virtual void write(const std::string& service, const std::string& account,
                       const std::string& secret, std::function<void(SecretAnswer)> done) = 0;
    virtual void remove(const std::string& service, const std::string& account,
                        std::function<void(SecretAnswer)> done) = 0;
};

}  // namespace kestrow
