#pragma once

#include <QDBusConnection>

#include <filesystem>

namespace kestrow {

// Shows a file or folder selected in the desktop's file manager, through the freedesktop.org
// FileManager1 interface on the session bus.
class FileManagerReveal {
public:
    explicit FileManagerReveal(QDBusConnection bus) : bus_(std::move(bus)) {}

    // True when a file manager took the request; otherwise the caller opens the parent folder.
    bool reveal(const std::filesystem::path& path) const;

private:
    QDBusConnection bus_;
};

}  // namespace kestrow
