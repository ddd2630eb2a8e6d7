#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "platform/trash.h"

namespace kestrow {

// The freedesktop.org Trash, written by Kestrow itself so that the check and the move act on the
// same object. Every folder below the request's anchor is held open by descriptor, never
// followed through a link; the item is compared with what was checked right before it moves;
// its restorable entry is written and flushed before the move, and the move is one rename within
// the item's own volume: into the home Trash ($XDG_DATA_HOME/Trash) when it shares the data
// home's file system, else into that volume's $top/.Trash/$uid or $top/.Trash-$uid. Nothing is
// ever copied or deleted.
class FreedesktopTrash final : public Trash {
public:
    explicit FreedesktopTrash(std::filesystem::path dataHome);

    TrashMove moveToTrash(const TrashRequest& request) override;
    std::optional<std::string> putBack(const TrashedItem& item) override;

    // Runs between writing the restorable entry and the rename, so that a test can change the
    // file system at the worst moment.
    void setBeforeRenameForTesting(std::function<void()> hook) { beforeRename_ = std::move(hook); }

private:
    std::filesystem::path dataHome_;
    std::function<void()> beforeRename_;
};

}  // namespace kestrow
