#pragma once

#include "platform/file_watcher.h"

namespace kestrow {

// File watches through QFileSystemWatcher on the main thread. Each watch covers the file and its
// folder: a program that saves by renaming a new file over the old one leaves the old file's
// watch pointing at nothing, and only the folder sees the new file arrive.
class QtFileWatcher final : public FileWatcher {
public:
    std::unique_ptr<Watch> watch(const std::filesystem::path& file,
                                 std::function<void()> changed) override;
};

}  // namespace kestrow
