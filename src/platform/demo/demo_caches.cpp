#include "platform/demo/demo_caches.h"

#include <fstream>

namespace kestrow {
namespace {

void writeBlob(const std::filesystem::path& file, std::size_t bytes) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    // Real bytes, not a sparse file: the cleaners count what the disk would get back.
    const std::string chunk(64 * 1024, 'k');
    for (std::size_t written = 0; written < bytes; written += chunk.size())
        out.write(chunk.data(),
                  static_cast<std::streamsize>(std::min(chunk.size(), bytes - written)));
}

}  // namespace

DemoCaches::DemoCaches(std::filesystem::path folder) : folder_(std::move(folder)) {
    folders_.home = folder_ / "home";
    folders_.configHome = folders_.home / ".config";
    folders_.cacheHome = folders_.home / ".cache";
    folders_.dataHome = folders_.home / ".local/share";
}

void DemoCaches::seed() const {
    const auto& home = folders_.home;
    writeBlob(home / ".npm/_cacache/content-v2/sha512/demo", 3 * 1024 * 1024);
    writeBlob(folders_.cacheHome / "pip/http/demo", 1536 * 1024);
    writeBlob(folders_.configHome / "google-chrome/Default/Service Worker/CacheStorage/demo/blob",
              5 * 1024 * 1024);
    writeBlob(folders_.cacheHome / "google-chrome/Default/Cache/demo", 2 * 1024 * 1024);
}

}  // namespace kestrow
