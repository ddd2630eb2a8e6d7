#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/trash.h"

namespace kestrow {

// The freedesktop.org Trash through GIO. An item on the home's file system goes to
// $XDG_DATA_HOME/Trash, one on another volume to that volume's $topdir/.Trash/$uid or
// $topdir/.Trash-$uid. GIO only renames: an item it cannot move within its own volume stays where
// it is and the move fails, it is never copied. It also refuses volumes it counts as the system's
// own (tmpfs among them) unless they hold the home.
//
// GLib reads HOME and XDG_DATA_HOME once, at its first use in the process; later changes to them
// are not seen.
class GioTrash final : public Trash {
public:
    std::optional<std::string> moveByPath(const std::filesystem::path& item) override;
};

}  // namespace kestrow
