#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>

namespace kestrow {

// SHA-256 through the system's crypto library, which picks the CPU's hashing instructions where
// there are some.
class Sha256 {
public:
    Sha256();
    ~Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    void update(std::span<const std::byte> bytes);
    // Lower-case hex of everything fed since construction or the last finish; starts over.
    std::string finishHex();

    static std::string hexOf(std::span<const std::byte> bytes);

    // The digest of the next `limit` bytes `fd` reads (all it reads when absent), in chunks of at
    // most `buffer.size()` bytes; a file shorter than `limit` is hashed as far as it goes. Absent
    // when a read fails, or once `stop` is asked for: a digest of part of a file would be wrong.
    static std::optional<std::string> ofDescriptor(int fd, std::optional<std::int64_t> limit,
                                                   std::span<std::byte> buffer,
                                                   std::stop_token stop = {});

private:
    struct Context;
    std::unique_ptr<Context> context_;
};

}  // namespace kestrow
