#include "support/atomic_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace kestrow {
namespace {

bool fail(std::string* error, std::string_view what, int code) {
    if (error != nullptr) *error = std::string(what) + ": " + std::strerror(code);
    return false;
}

}  // namespace

std::optional<std::string> readFile(const std::filesystem::path& path, std::string* error) {
    errno = 0;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        fail(error, path.string(), errno != 0 ? errno : ENOENT);
        return std::nullopt;
    }
    if (std::filesystem::is_directory(path)) {
        fail(error, path.string(), EISDIR);
        return std::nullopt;
    }
    std::ostringstream content;
    content << in.rdbuf();
    if (in.bad()) {
        fail(error, path.string(), EIO);
        return std::nullopt;
    }
    return std::move(content).str();
}

bool writeFileAtomically(const std::filesystem::path& path, std::string_view data,
                         std::string* error) {
    const std::filesystem::path folder = path.parent_path().empty() ? "." : path.parent_path();
    std::error_code ec;
    if (!std::filesystem::exists(folder, ec)) {
        std::filesystem::create_directories(folder, ec);
        if (ec) return fail(error, "Cannot create " + folder.string(), ec.value());
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all, ec);
    }

    std::string temp = (folder / ("." + path.filename().string() + ".XXXXXX")).string();
    const int fd = ::mkstemp(temp.data());
    if (fd < 0) return fail(error, "Cannot write in " + folder.string(), errno);

    const auto abandon = [&](std::string_view what, int code) {
        ::close(fd);
        ::unlink(temp.c_str());
        return fail(error, what, code);
    };
    std::size_t written = 0;
    while (written < data.size()) {
        const ssize_t n = ::write(fd, data.data() + written, data.size() - written);
        if (n < 0) {
            if (errno == EINTR) continue;
            return abandon("Cannot write " + path.string(), errno);
        }
        written += static_cast<std::size_t>(n);
    }
    if (::fsync(fd) != 0) return abandon("Cannot flush " + path.string(), errno);
    if (::close(fd) != 0) {
        const int code = errno;
        ::unlink(temp.c_str());
        return fail(error, "Cannot close " + path.string(), code);
    }
    if (::rename(temp.c_str(), path.c_str()) != 0) {
        const int code = errno;
        ::unlink(temp.c_str());
        return fail(error, "Cannot replace " + path.string(), code);
    }
    // Make the rename itself durable; a failure here does not undo a completed replace.
    if (const int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return true;
}

}  // namespace kestrow
