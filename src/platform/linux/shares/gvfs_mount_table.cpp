#include "platform/linux/shares/gvfs_mount_table.h"

#include <gio/gio.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>

#include "platform/linux/shares/gvfs_mount_record.h"

namespace kestrow {
namespace {

constexpr int kTrackerCallMs = 2000;
constexpr const char* kListSignature = "(a(sossssssbay(aya{sv})ay))";

struct VariantUnref {
    void operator()(GVariant* value) const { g_variant_unref(value); }
};
using Variant = std::unique_ptr<GVariant, VariantUnref>;

std::optional<std::string> fileText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::nullopt;
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (file.bad()) return std::nullopt;
    return text;
}

std::string textChild(GVariant* tuple, gsize index) {
    Variant child(g_variant_get_child_value(tuple, index));
    return g_variant_get_string(child.get(), nullptr);
}

// gvfs sends paths and spec values as byte strings that usually end in a NUL.
std::string bytesOf(GVariant* value) {
    if (!g_variant_is_of_type(value, G_VARIANT_TYPE_BYTESTRING)) return {};
    gsize size = 0;
    const auto* data = static_cast<const char*>(g_variant_get_fixed_array(value, &size, 1));
    std::string bytes(data ? data : "", data ? size : 0);
    while (!bytes.empty() && bytes.back() == '\0') bytes.pop_back();
    return bytes;
}

GvfsMountRecord recordOf(GVariant* mount) {
    GvfsMountRecord record;
    record.dbusId = textChild(mount, 0);
    record.objectPath = textChild(mount, 1);
    record.stableName = textChild(mount, 3);
    Variant visible(g_variant_get_child_value(mount, 8));
    record.userVisible = g_variant_get_boolean(visible.get()) != FALSE;
    Variant fuse(g_variant_get_child_value(mount, 9));
    record.fuseMountpoint = bytesOf(fuse.get());
    Variant spec(g_variant_get_child_value(mount, 10));
    Variant prefix(g_variant_get_child_value(spec.get(), 0));
    record.specPrefix = bytesOf(prefix.get());
    Variant items(g_variant_get_child_value(spec.get(), 1));
    const gsize count = g_variant_n_children(items.get());
    for (gsize i = 0; i < count; ++i) {
        Variant item(g_variant_get_child_value(items.get(), i));
        const std::string key = textChild(item.get(), 0);
        Variant boxed(g_variant_get_child_value(item.get(), 1));
        Variant value(g_variant_get_variant(boxed.get()));
        record.specItems.emplace_back(key, bytesOf(value.get()));
    }
    return record;
}

// The tracker is not on this bus and the bus cannot start it: there are simply no gvfs mounts.
bool meansNoTracker(const GError* error) {
    if (error->domain != G_DBUS_ERROR) return false;
    switch (error->code) {
        case G_DBUS_ERROR_SERVICE_UNKNOWN:
        case G_DBUS_ERROR_NAME_HAS_NO_OWNER:
        case G_DBUS_ERROR_SPAWN_EXEC_FAILED:
        case G_DBUS_ERROR_SPAWN_FORK_FAILED:
        case G_DBUS_ERROR_SPAWN_CHILD_EXITED:
        case G_DBUS_ERROR_SPAWN_CHILD_SIGNALED:
        case G_DBUS_ERROR_SPAWN_FAILED:
        case G_DBUS_ERROR_SPAWN_SERVICE_NOT_FOUND:
        case G_DBUS_ERROR_SPAWN_SERVICE_INVALID:
        case G_DBUS_ERROR_SPAWN_FILE_INVALID:
        case G_DBUS_ERROR_SPAWN_NO_MEMORY:
            return true;
        default:
            return false;
    }
}

}  // namespace

GvfsMountTable::GvfsMountTable(std::string volumesRoot, std::string mountInfoPath,
                               std::string bootIdPath)
    : volumesRoot_(std::move(volumesRoot)),
      mountInfoPath_(std::move(mountInfoPath)),
      bootIdPath_(std::move(bootIdPath)) {}

std::string GvfsMountTable::defaultVolumesRoot() {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    std::string root = runtime && *runtime ? runtime : g_get_user_runtime_dir();
    if (!root.ends_with('/')) root += '/';
    return root + "gvfs/";
}

std::optional<std::vector<MountEntry>> GvfsMountTable::gvfsMounts(const std::string& volumesRoot) {
    GError* error = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
    if (bus == nullptr) {
        // No session bus means no session gvfsd either.
        g_clear_error(&error);
        return std::vector<MountEntry>{};
    }
    Variant reply(g_dbus_connection_call_sync(
        bus, "org.gtk.vfs.Daemon", "/org/gtk/vfs/mounttracker", "org.gtk.vfs.MountTracker",
        "ListMounts2", g_variant_new("(b)", FALSE), G_VARIANT_TYPE(kListSignature),
        G_DBUS_CALL_FLAGS_NONE, kTrackerCallMs, nullptr, &error));
    g_object_unref(bus);
    if (!reply) {
        const bool none = meansNoTracker(error);
        g_clear_error(&error);
        if (none) return std::vector<MountEntry>{};
        return std::nullopt;
    }
    std::vector<MountEntry> entries;
    Variant mounts(g_variant_get_child_value(reply.get(), 0));
    const gsize count = g_variant_n_children(mounts.get());
    for (gsize i = 0; i < count; ++i) {
        Variant mount(g_variant_get_child_value(mounts.get(), i));
        if (auto entry = gvfsMountEntry(recordOf(mount.get()), volumesRoot))
            entries.push_back(std::move(*entry));
    }
    return entries;
}

std::optional<std::vector<MountEntry>> GvfsMountTable::current() {
    const auto mountInfo = fileText(mountInfoPath_);
    if (!mountInfo) return std::nullopt;
    auto entries = gvfsMounts(volumesRoot_);
    if (!entries) return std::nullopt;
    for (MountEntry& entry : kernelMountEntries(*mountInfo)) entries->push_back(std::move(entry));
    return entries;
}

std::int64_t GvfsMountTable::bootIdentity() {
    const auto text = fileText(bootIdPath_);
    return text ? bootIdentityFromId(*text) : 0;
}

}  // namespace kestrow
