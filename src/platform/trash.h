#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "support/clock.h"

namespace kestrow {

// What an item was when it was checked. The move compares it with the object it is about to move,
// so that what was checked is what moves; a field left out is not compared.
struct TrashItemIdentity {
    enum class Kind { regularFile, directory };
    Kind kind = Kind::regularFile;
    std::optional<std::uint64_t> device;
    std::optional<std::uint64_t> inode;
    std::optional<std::int64_t> size;  // logical, regular files only
    std::optional<WallTime> modified;
    bool operator==(const TrashItemIdentity&) const = default;
};

struct TrashRequest {
    // A folder the caller trusts (the home, a cache root, a scan root). It is taken as the kernel
    // resolves it; every folder between it and the item must be a real folder, not a link, and
    // is held open from the check to the move.
    std::filesystem::path anchor;
    std::filesystem::path item;  // strictly below `anchor`
    TrashItemIdentity expected;
};

// An item this Trash moved, and where its restorable entry is.
struct TrashedItem {
    std::filesystem::path original;  // where Restore puts it back, as the kernel named it
    std::filesystem::path inTrash;   // .../Trash/files/NAME
    std::filesystem::path info;      // .../Trash/info/NAME.trashinfo
    bool operator==(const TrashedItem&) const = default;
};

struct TrashMove {
    std::optional<TrashedItem> trashed;  // set only when the item sits in the Trash, restorable
    std::string failure;                 // a readable reason otherwise
    bool ok() const { return trashed.has_value(); }
};

// The desktop's Trash: items moved there can be put back from the file manager. Nothing is ever
// deleted or copied; an item is moved by rename into the Trash of its own volume.
class Trash {
public:
    virtual ~Trash() = default;
    virtual TrashMove moveToTrash(const TrashRequest& request) {
        // TRANSITIONAL until the pinned Trash lands: unchecked, by path.
        if (auto failure = moveByPath(request.item)) return TrashMove{std::nullopt, *failure};
        return TrashMove{TrashedItem{request.item, {}, {}}, {}};
    }
    // Undoes a move of ours that turned out wrong (the last copy went with it): the item goes back
    // to its original place, and only when that place is still free. Nothing on success, else a
    // readable reason.
    virtual std::optional<std::string> putBack(const TrashedItem& item) {
        return "cannot put back " + item.original.string();  // TRANSITIONAL
    }
    // TRANSITIONAL: the unchecked move by path, removed once every caller pins its items.
    virtual std::optional<std::string> moveByPath(const std::filesystem::path& item) {
        return "no unchecked move for " + item.string();
    }
};

}  // namespace kestrow
