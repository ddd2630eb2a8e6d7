#pragma once

#include <filesystem>
#include <functional>
#include <memory>

namespace kestrow {

// Watching one file for changes. Programs that save settings often write a new file and rename
// it over the old one, so a watch follows the path, not the first file that had it.
class FileWatcher {
public:
    // Stops the watch when destroyed; no call to `changed` starts after that.
    class Watch {
    public:
        virtual ~Watch() = default;
    };

    virtual ~FileWatcher() = default;
    // `changed` runs on the main executor after the file was written, replaced, created or
    // removed. Several changes close together may arrive as one call or as several.
    virtual std::unique_ptr<Watch> watch(const std::filesystem::path& file,
                                         std::function<void()> changed) = 0;
};

}  // namespace kestrow
