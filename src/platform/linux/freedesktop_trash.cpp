#include "platform/linux/freedesktop_trash.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <variant>

#include "platform/linux/mount_points.h"
#include "platform/linux/pinned_folder.h"
#include "platform/linux/trash_info_text.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;

constexpr int kMaxNameTries = 10000;
// Room for ".trashinfo" and a counter within a file name's 255 bytes.
constexpr std::size_t kMaxBaseName = 200;

std::string errorText(int error) {
    return std::strerror(error);
}

WallTime modifiedOf(const struct stat& info) {
    const auto since =
        std::chrono::seconds(info.st_mtim.tv_sec) + std::chrono::nanoseconds(info.st_mtim.tv_nsec);
    return WallTime(std::chrono::duration_cast<WallTime::duration>(since));
}

std::optional<std::string> mismatch(const struct stat& info, const TrashItemIdentity& expected) {
    const bool directory = expected.kind == TrashItemIdentity::Kind::directory;
    if (directory ? !S_ISDIR(info.st_mode) : !S_ISREG(info.st_mode)) {
        if (S_ISLNK(info.st_mode)) return std::string("is now a symbolic link");
        return std::string(directory ? "is no longer a folder" : "is no longer a regular file");
    }
    if ((expected.device && *expected.device != static_cast<std::uint64_t>(info.st_dev)) ||
        (expected.inode && *expected.inode != static_cast<std::uint64_t>(info.st_ino))) {
        return std::string("was replaced since it was checked");
    }
    if (!directory && expected.size && *expected.size != static_cast<std::int64_t>(info.st_size)) {
        return std::string("changed size since it was checked");
    }
    if (expected.modified && *expected.modified != modifiedOf(info)) {
        return std::string("was modified since it was checked");
    }
    return std::nullopt;
}

// A name cut at a character boundary, so that a long UTF-8 name stays valid text.
std::string baseName(const std::string& name) {
    if (name.size() <= kMaxBaseName) return name;
    std::size_t end = kMaxBaseName;
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) --end;
    return name.substr(0, end);
}

struct TrashFolders {
    PinnedFolder files;
    PinnedFolder info;
    fs::path top;  // empty for the home Trash, whose Path is absolute
};

template <typename T>
T* failed(std::variant<T, std::string>& result, std::string& failure) {
    if (auto* text = std::get_if<std::string>(&result)) {
        failure = *text;
        return nullptr;
    }
    return &std::get<T>(result);
}

// files/ and info/ inside a Trash folder, made 0700 when missing.
bool openInside(const PinnedFolder& trash, TrashFolders& folders, std::string& failure) {
    auto files = trash.openOrMakeChild("files", 0700);
    auto info = trash.openOrMakeChild("info", 0700);
    PinnedFolder* filesFolder = failed(files, failure);
    if (filesFolder == nullptr) return false;
    PinnedFolder* infoFolder = failed(info, failure);
    if (infoFolder == nullptr) return false;
    folders.files = std::move(*filesFolder);
    folders.info = std::move(*infoFolder);
    return true;
}

bool ownedFolder(const PinnedFolder& folder) {
    struct stat info {};
    return ::fstat(folder.fd(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == ::getuid();
}

// $top/.Trash/$uid when $top/.Trash is a real folder with the sticky bit, else $top/.Trash-$uid.
std::optional<PinnedFolder> volumeTrash(const PinnedFolder& top, std::string& failure) {
    const std::string uid = std::to_string(::getuid());
    struct stat shared {};
    if (::fstatat(top.fd(), ".Trash", &shared, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISDIR(shared.st_mode) && (shared.st_mode & S_ISVTX) != 0) {
        auto opened = top.openChild(".Trash");
        if (auto* sharedFolder = std::get_if<PinnedFolder>(&opened)) {
            auto mine = sharedFolder->openOrMakeChild(uid, 0700);
            if (auto* folder = std::get_if<PinnedFolder>(&mine); folder && ownedFolder(*folder)) {
                return std::move(*folder);
            }
        }
    }
    auto own = top.openOrMakeChild(".Trash-" + uid, 0700);
    PinnedFolder* folder = failed(own, failure);
    if (folder == nullptr) return std::nullopt;
    if (!ownedFolder(*folder)) {
        failure = (top.currentPath() / (".Trash-" + uid)).string() + " is not this user's own";
        return std::nullopt;
    }
    return std::move(*folder);
}

std::optional<TrashFolders> trashFor(const fs::path& dataHome, dev_t device,
                                     const fs::path& itemPath, const std::vector<fs::path>& mounts,
                                     std::string& failure) {
    TrashFolders folders;
    std::error_code ignored;
    fs::create_directories(dataHome, ignored);
    auto home = PinnedFolder::openAnchor(dataHome);
    if (PinnedFolder* homeFolder = std::get_if<PinnedFolder>(&home)) {
        struct stat info {};
        if (::fstat(homeFolder->fd(), &info) == 0 && info.st_dev == device) {
            auto trash = homeFolder->openOrMakeChild("Trash", 0700);
            PinnedFolder* trashFolder = failed(trash, failure);
            if (trashFolder == nullptr || !openInside(*trashFolder, folders, failure)) {
                return std::nullopt;
            }
            return folders;
        }
    }
    const fs::path top = MountPoints::holding(mounts, itemPath);
    auto opened = PinnedFolder::openAnchor(top);
    PinnedFolder* topFolder = failed(opened, failure);
    if (topFolder == nullptr) return std::nullopt;
    struct stat info {};
    if (::fstat(topFolder->fd(), &info) != 0 || info.st_dev != device) {
        failure = "cannot find the top folder of the volume holding " + itemPath.string();
        return std::nullopt;
    }
    std::optional<PinnedFolder> trash = volumeTrash(*topFolder, failure);
    if (!trash || !openInside(*trash, folders, failure)) return std::nullopt;
    folders.top = top;
    return folders;
}

std::string pathField(const TrashFolders& folders, const fs::path& original) {
    const std::string& text = original.native();
    const std::string& top = folders.top.native();
    if (top.empty()) return text;
    if (top == "/") return text.substr(1);
    if (text.size() > top.size() && text.starts_with(top) && text[top.size()] == '/') {
        return text.substr(top.size() + 1);
    }
    return text;  // an absolute Path is valid in a volume Trash too
}

// Writes all of `text` into `fd` and flushes it; false on a short write or a full disk.
bool writeFully(int fd, const std::string& text, std::string& failure) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t wrote = ::write(fd, text.data() + done, text.size() - done);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote <= 0) {
            failure =
                "its Trash entry could not be written: " + errorText(wrote < 0 ? errno : ENOSPC);
            return false;
        }
        done += static_cast<std::size_t>(wrote);
    }
    if (::fsync(fd) != 0) {
        failure = "its Trash entry could not be written: " + errorText(errno);
        return false;
    }
    return true;
}

// Creates NAME.trashinfo with O_EXCL for a NAME free in files/ too, and writes it whole.
std::optional<std::string> writeEntry(const TrashFolders& folders, const std::string& name,
                                      const std::string& text, std::string& failure) {
    const std::string base = baseName(name);
    for (int n = 1; n <= kMaxNameTries; ++n) {
        const std::string candidate = n == 1 ? base : base + "." + std::to_string(n);
        struct stat taken {};
        if (::fstatat(folders.files.fd(), candidate.c_str(), &taken, AT_SYMLINK_NOFOLLOW) == 0) {
            continue;
        }
        const std::string infoName = candidate + ".trashinfo";
        const int fd = ::openat(folders.info.fd(), infoName.c_str(),
                                O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0) {
            if (errno == EEXIST) continue;
            failure = "its Trash entry could not be made: " + errorText(errno);
            return std::nullopt;
        }
        const bool written = writeFully(fd, text, failure);
        const bool closed = ::close(fd) == 0;
        if (!written || !closed) {
            if (written) failure = "its Trash entry could not be written: " + errorText(errno);
            ::unlinkat(folders.info.fd(), infoName.c_str(), 0);
            return std::nullopt;
        }
        ::fsync(folders.info.fd());
        return candidate;
    }
    failure = "no free name in the Trash";
    return std::nullopt;
}

bool rewriteEntry(const TrashFolders& folders, const std::string& name, const std::string& text) {
    const std::string infoName = name + ".trashinfo";
    const int fd =
        ::openat(folders.info.fd(), infoName.c_str(), O_WRONLY | O_TRUNC | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return false;
    std::string ignored;
    const bool written = writeFully(fd, text, ignored);
    return ::close(fd) == 0 && written;
}

}  // namespace

FreedesktopTrash::FreedesktopTrash(fs::path dataHome) : dataHome_(std::move(dataHome)) {}

TrashMove FreedesktopTrash::moveToTrash(const TrashRequest& request) {
    const auto refuse = [&request](const std::string& why) {
        return TrashMove{std::nullopt, request.item.string() + ": " + why};
    };
    auto pinned = PinnedItem::pin(request.anchor, request.item);
    if (auto* failure = std::get_if<std::string>(&pinned)) return refuse(*failure);
    const PinnedItem& item = std::get<PinnedItem>(pinned);

    struct stat checked {};
    if (::fstatat(item.parent.fd(), item.name.c_str(), &checked, AT_SYMLINK_NOFOLLOW) != 0) {
        return refuse(errorText(errno));
    }
    if (auto why = mismatch(checked, request.expected)) return refuse(*why);

    const fs::path parentPath = item.parent.currentPath();
    if (parentPath.empty()) return refuse("cannot tell where it is");
    const fs::path original = parentPath / item.name;
    struct stat parentInfo {};
    if (::fstat(item.parent.fd(), &parentInfo) != 0 || parentInfo.st_dev != checked.st_dev) {
        return refuse("is a mount point");
    }
    const auto mounts = MountPoints::read();
    if (!mounts) return refuse("cannot read the mount table");
    if (const auto inside = MountPoints::atOrBelow(*mounts, original); !inside.empty()) {
        return refuse("holds a mount point (" + inside.front().string() + ")");
    }

    std::string failure;
    std::optional<TrashFolders> folders =
        trashFor(dataHome_, checked.st_dev, original, *mounts, failure);
    if (!folders) return refuse(failure);
    const std::time_t now = std::time(nullptr);
    const std::optional<std::string> name = writeEntry(
        *folders, item.name, TrashInfoText::text(pathField(*folders, original), now), failure);
    if (!name) return refuse(failure);
    const std::string infoName = *name + ".trashinfo";
    const auto dropEntry = [&] { ::unlinkat(folders->info.fd(), infoName.c_str(), 0); };

    if (beforeRename_) beforeRename_();
    if (::renameat2(item.parent.fd(), item.name.c_str(), folders->files.fd(), name->c_str(),
                    RENAME_NOREPLACE) != 0) {
        const int error = errno;
        dropEntry();
        if (error == EXDEV) return refuse("is on another file system than its Trash");
        return refuse(errorText(error));
    }
    struct stat moved {};
    const bool same =
        ::fstatat(folders->files.fd(), name->c_str(), &moved, AT_SYMLINK_NOFOLLOW) == 0 &&
        moved.st_dev == checked.st_dev && moved.st_ino == checked.st_ino;
    if (!same) {
        if (::renameat2(folders->files.fd(), name->c_str(), item.parent.fd(), item.name.c_str(),
                        RENAME_NOREPLACE) != 0) {
            return refuse("was swapped while it moved and is in the Trash as " + *name +
                          "; restore it from there");
        }
        dropEntry();
        return refuse("was swapped while it moved; it was put back");
    }
    // The folder may have moved while the entry was written: Restore must use where it was.
    const fs::path parentNow = item.parent.currentPath();
    fs::path restoredTo = original;
    if (!parentNow.empty() && parentNow != parentPath) {
        restoredTo = parentNow / item.name;
        if (!rewriteEntry(*folders, *name,
                          TrashInfoText::text(pathField(*folders, restoredTo), now))) {
            ::renameat2(folders->files.fd(), name->c_str(), item.parent.fd(), item.name.c_str(),
                        RENAME_NOREPLACE);
            dropEntry();
            return refuse("its Trash entry could not be brought up to date; it was not moved");
        }
    }
    return TrashMove{TrashedItem{restoredTo, folders->files.currentPath() / *name,
                                 folders->info.currentPath() / infoName},
                     {}};
}

std::optional<std::string> FreedesktopTrash::putBack(const TrashedItem& item) {
    const std::string shown = item.original.string();
    if (item.original.filename().empty() || item.inTrash.filename().empty()) {
        return "cannot put back " + shown;
    }
    auto from = PinnedFolder::openAnchor(item.inTrash.parent_path());
    auto to = PinnedFolder::openAnchor(item.original.parent_path());
    std::string failure;
    PinnedFolder* fromFolder = failed(from, failure);
    if (fromFolder == nullptr) return "cannot put back " + shown + ": " + failure;
    PinnedFolder* toFolder = failed(to, failure);
    if (toFolder == nullptr) return "cannot put back " + shown + ": " + failure;
    if (::renameat2(fromFolder->fd(), item.inTrash.filename().c_str(), toFolder->fd(),
                    item.original.filename().c_str(), RENAME_NOREPLACE) != 0) {
        if (errno == EEXIST) return "cannot put back " + shown + ": its place is taken";
        return "cannot put back " + shown + ": " + errorText(errno);
    }
    ::unlink(item.info.c_str());
    return std::nullopt;
}

}  // namespace kestrow
