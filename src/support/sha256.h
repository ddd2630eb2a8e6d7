#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
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

    // The digest of a file's first `limit` bytes (all of it when absent), read in chunks of at
    // most `buffer.size()` bytes. Absent when the file cannot be opened or read; a file shorter
    // than `limit` is hashed as far as it goes.
    static std::optional<std::string> ofFile(const std::filesystem::path& file,
                                             std::optional<std::int64_t> limit,
                                             std::span<std::byte> buffer);

private:
    struct Context;
    std::unique_ptr<Context> context_;
};

}  // namespace kestrow
