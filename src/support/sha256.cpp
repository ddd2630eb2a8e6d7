#include "support/sha256.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

namespace kestrow {

struct Sha256::Context {
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    ~Context() { EVP_MD_CTX_free(ctx); }
};

Sha256::Sha256() : context_(std::make_unique<Context>()) {
    if (context_->ctx == nullptr || EVP_DigestInit_ex(context_->ctx, EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("SHA-256 is not available");
}

Sha256::~Sha256() = default;

void Sha256::update(std::span<const std::byte> bytes) {
    if (!bytes.empty()) EVP_DigestUpdate(context_->ctx, bytes.data(), bytes.size());
}

std::string Sha256::finishHex() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(context_->ctx, digest, &length);
    EVP_DigestInit_ex(context_->ctx, EVP_sha256(), nullptr);
    return hexOf(std::as_bytes(std::span(digest, length)));
}

std::string Sha256::hexOf(std::span<const std::byte> bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (const std::byte b : bytes) {
        const auto value = std::to_integer<unsigned>(b);
        hex.push_back(kDigits[value >> 4]);
        hex.push_back(kDigits[value & 0xFU]);
    }
    return hex;
}

std::optional<std::string> Sha256::ofDescriptor(int fd, std::optional<std::int64_t> limit,
                                                std::span<std::byte> buffer, std::stop_token stop) {
    if (fd < 0 || buffer.empty()) return std::nullopt;
    ::posix_fadvise(fd, 0, limit.value_or(0), POSIX_FADV_SEQUENTIAL);
    Sha256 hash;
    std::int64_t remaining = limit.value_or(-1);
    while (remaining != 0) {
        if (stop.stop_requested()) return std::nullopt;
        std::size_t want = buffer.size();
        if (remaining > 0 && static_cast<std::uint64_t>(remaining) < want)
            want = static_cast<std::size_t>(remaining);
        const ssize_t got = ::read(fd, buffer.data(), want);
        if (got < 0) {
            if (errno == EINTR) continue;
            return std::nullopt;
        }
        if (got == 0) break;
        hash.update(buffer.first(static_cast<std::size_t>(got)));
        if (remaining > 0) remaining -= got;
    }
    return hash.finishHex();
}

}  // namespace kestrow
