#include <stdlib.h>

#include <QCoreApplication>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "child_modes.h"

namespace {

// Points HOME, the XDG folders and both bus addresses into a fresh folder, so that no test can
// reach the user's real files or session.
std::filesystem::path isolateEnvironment() {
    std::string pattern = std::filesystem::temp_directory_path() / "kestrow-platform.XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) return {};
    const std::filesystem::path root = pattern;
    const auto set = [&root](const char* name, const std::string& relative) {
        const auto path = root / relative;
        std::filesystem::create_directories(path);
        ::setenv(name, path.c_str(), 1);
    };
    set("HOME", "home");
    set("XDG_CONFIG_HOME", "home/.config");
    set("XDG_DATA_HOME", "home/.local/share");
    set("XDG_CACHE_HOME", "home/.cache");
    set("XDG_RUNTIME_DIR", "runtime");
    std::filesystem::permissions(root / "runtime", std::filesystem::perms::owner_all);
    const std::string noBus = "unix:path=" + (root / "no-bus").string();
    ::setenv("DBUS_SESSION_BUS_ADDRESS", noBus.c_str(), 1);
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", noBus.c_str(), 1);
    // Settings written by a test stay in this process, never in the desktop's settings store.
    ::setenv("GSETTINGS_BACKEND", "memory", 1);
    return root;
}

}  // namespace

int main(int argc, char** argv) {
    if (const auto code = kestrow::testing::runChildMode(argc, argv)) return *code;
    const auto root = isolateEnvironment();
    if (root.empty()) return 1;
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
    return result;
}
