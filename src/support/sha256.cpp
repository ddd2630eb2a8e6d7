#include "support/sha256.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

namespace kestrow {
namespace {

// O_NOATIME is refused (EPERM) on files the process does not own; the read then goes ahead the
// ordinary way.
int openForHashing(const std::filesystem::path& file) {
    const int flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
#ifdef O_NOATIME
    int fd = ::open(file.c_str(), flags | O_NOATIME);
    if (fd >= 0 || errno != EPERM) return fd;
#endif
    return ::open(file.c_str(), flags);
}

struct FileHandle {
    int fd;
    ~FileHandle() {
        if (fd >= 0) ::close(fd);
    }
};

}  // namespace

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

std::optional<std::string> Sha256::ofFile(const std::filesystem::path& file,
                                          std::optional<std::int64_t> limit,
                                          std::span<std::byte> buffer) {
    if (buffer.empty()) return std::nullopt;
    const FileHandle handle{openForHashing(file)};
    if (handle.fd < 0) return std::nullopt;
    // O_NONBLOCK only kept the open from hanging on a FIFO swapped in since the walk; reads of a
    // regular file block either way.
    ::fcntl(handle.fd, F_SETFL, ::fcntl(handle.fd, F_GETFL) & ~O_NONBLOCK);
    ::posix_fadvise(handle.fd, 0, limit.value_or(0), POSIX_FADV_SEQUENTIAL);
    Sha256 hash;
    std::int64_t remaining = limit.value_or(-1);
    while (remaining != 0) {
        std::size_t want = buffer.size();
        if (remaining > 0 && static_cast<std::uint64_t>(remaining) < want)
            want = static_cast<std::size_t>(remaining);
        const ssize_t got = ::read(handle.fd, buffer.data(), want);
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
